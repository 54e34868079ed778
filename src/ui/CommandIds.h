#pragma once
// The numbers of the window's commands. Numbers are per bar: 33 and 35 mean one thing on the
// main bar and another on the report's bar, so each bar has its own names.

namespace ql::cmd {

namespace main {
enum : int {
  Sources = 50,  // carries the sources box
  New = 1,
  Start = 2,
  Stop = 3,
  ShowReport = 33,
  ShowDrives = 21,
  ShowFiles = 306,
  ShowLargest = 307,
  Options = 14,
  BigIcons = 27,
  IconText = 34,
  FontLarger = 32,
  FontSmaller = 31,
  Language = 28,
  German = 35,
  English = 36,
  Russian = 37,  // known to the handler, carried by no control
  About = 17,
  Homepage = 18,
  Update = 19,
  Exit = 20,
};
}  // namespace main

namespace report {
enum : int {
  Rescan = 4,
  FullView = 323,
  CollapseAll = 24,
  ExpandAll = 25,
  ExpandLevels = 100,  // 100 to 109: one to ten levels
  Remove = 7,
  RemoveAll = 9,
  Save = 5,
  Print = 6,
  PercentColumn = 35,
  FilesColumn = 22,
  FoldersColumn = 23,
  FitColumns = 26,
  Bytes = 10,  // 10 to 13: bytes, KB, MB, GB
  Kilobytes = 11,
  Megabytes = 12,
  Gigabytes = 13,
  Decimals = 33,
  SearchBox = 29,
  Search = 30,
};
}  // namespace report

// The report's popup menu.
namespace popup {
enum : int { CollapseBelow = 1006, ExpandBelow = 1007, RenameFolder = 1008 };
}  // namespace popup

}  // namespace ql::cmd
