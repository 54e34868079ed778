#pragma once
// The numbers of the window's commands. Numbers are per bar: 33 and 35 mean one thing on the
// main bar and another on the report's bar, so each bar has its own names. Within one bar no two
// commands share a number: the static_asserts below check the ranges.

#include <initializer_list>

namespace ql::cmd {

// One number, or the numbers first to last.
struct IdRange {
  constexpr IdRange(int id) : first(id), last(id) {}
  constexpr IdRange(int from, int to) : first(from), last(to) {}
  int first, last;
};

// Whether no two of the ranges share a number.
constexpr bool disjoint(std::initializer_list<IdRange> ranges) {
  for (auto a = ranges.begin(); a != ranges.end(); ++a)
    for (auto b = a + 1; b != ranges.end(); ++b)
      if (a->first <= b->last && b->first <= a->last) return false;
  return true;
}

namespace main {
enum : int {
  Sources = 50,  // carries the sources box
  New = 1,
  Import = 41,  // a measurement saved as a JSON export
  Start = 2,
  Stop = 3,
  ShowReport = 33,
  ShowDrives = 21,
  ShowFiles = 306,
  ShowLargest = 307,
  ShowTreemap = 326,
  ShowTypes = 327,
  Options = 14,
  BigIcons = 27,
  IconText = 34,
  FontLarger = 32,
  FontSmaller = 31,
  Language = 28,
  German = 35,
  English = 36,
  Russian = 37,
  About = 17,
  Homepage = 18,
  Update = 19,
  Exit = 20,
};
static_assert(disjoint({Sources,    New,         Import,      Start,   Stop,     ShowReport,
                        ShowDrives, ShowFiles,   ShowLargest, ShowTreemap, ShowTypes, Options, BigIcons, IconText,
                        FontLarger, FontSmaller, Language,    German,  English,  Russian,
                        About,      Homepage,    Update,      Exit}));
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
  Allocated = 36,
  LinksOnce = 37,
  Compare = 38,  // opens its popup: the kept snapshots of the source, another export, off
  CompareOther = 39,
  CompareOff = 40,
  CompareSnapshots = 41,  // 41 to 70: the snapshots in the popup, newest first
  CompareSnapshotsLast = 70,
};
static_assert(disjoint({Rescan,
                        FullView,
                        CollapseAll,
                        ExpandAll,
                        {ExpandLevels, ExpandLevels + 9},
                        Remove,
                        RemoveAll,
                        Save,
                        Print,
                        PercentColumn,
                        FilesColumn,
                        FoldersColumn,
                        FitColumns,
                        {Bytes, Gigabytes},
                        Decimals,
                        SearchBox,
                        Search,
                        Allocated,
                        LinksOnce,
                        Compare,
                        CompareOther,
                        CompareOff,
                        {CompareSnapshots, CompareSnapshotsLast}}));
}  // namespace report

// The report's popup menu.
namespace popup {
enum : int {
  Rescan = 999,
  RemoveSource = 1000,
  TrashFolder = 1003,
  DeleteFolder = 1004,
  CollapseBelow = 1006,
  ExpandBelow = 1007,
  RenameFolder = 1008,
  Open = 1100,
  ShowInFileManager = 1101,
  CopyPath = 1102,
};
}  // namespace popup

// The bars of the file list and the largest-files list.
namespace files {
enum : int {
  Title = 9999,
  Refresh = 300,
  UnitBytes = 301,  // 301 to 304: bytes, KB, MB, GB
  Symbols = 305,
  SearchBox = 307,
  Search = 308,
  Decimals = 309,
  FirstColumn = 310,  // 310 to 316 (files) or 317 (largest files): the column toggles
  LastColumn = 317,
  Optimize = 325,  // the file list's; the largest files' is TopOptimize
  TopOptimize = 324,
  Preview = 318,
  Tile = 319,
  Delete = 320,
  Trash = 321,
  Limit = 322,
  FullView = 323,
  NewOrGrown = 326,  // the largest files: only those new or grown since the report's baseline
};
static_assert(disjoint({Title,
                        Refresh,
                        {UnitBytes, UnitBytes + 3},
                        Symbols,
                        SearchBox,
                        Search,
                        Decimals,
                        {FirstColumn, LastColumn},
                        Optimize,
                        TopOptimize,
                        Preview,
                        Tile,
                        Delete,
                        Trash,
                        Limit,
                        FullView,
                        NewOrGrown}));
}  // namespace files

// The popup menu of the two file lists; below 1100 the numbers of the report's popup family.
namespace filePopup {
enum : int {
  Trash = 1000,
  Delete = 1001,
  Rename = 1004,
  OpenFolder = 1006,
  Open = 1100,
  ShowInFileManager = 1101,
  CopyPath = 1102,
};
}  // namespace filePopup

}  // namespace ql::cmd
