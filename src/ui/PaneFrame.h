#pragma once
// Where the panes stand in the window: the report, with the treemap and the file-types pane side
// by side below it, beside a column of the drive table over one of the two file lists; each part
// shown or not, and the drive table never taller than its rows. And what the panes share: one
// font for their grids, one look for their bars, busy, and what they keep for the next start.

#include <QString>
#include <functional>

#include "ui/Splitter.h"

class QToolBar;

namespace ql {

class DrivePane;
class FileListPane;
struct MainOptions;
class ReportPane;
class TreemapPane;
class TypesPane;

class PaneFrame {
 public:
  PaneFrame(ReportPane* report, DrivePane* drives, FileListPane* files, FileListPane* top,
            TreemapPane* treemap, TypesPane* types, QWidget* parent);

  Splitter& main() { return *main_; }
  Splitter& info() { return *info_; }
  Splitter& report() { return *report_; }      // the report over the pictures
  Splitter& pictures() { return *pictures_; }  // the treemap beside the types
  // The report, the drive table, and the file list or else the largest files; with none of the
  // last three the report stands alone. The shown list takes the preview. The treemap and the
  // types stand below the report (in its place when it is not shown). "Vollansicht" is checked
  // on the bar of a pane that stands alone, and a file list that is not shown is emptied.
  void show(bool report, bool drives, bool files, bool largest, bool treemap = false,
            bool types = false);
  void fitDriveTable();

  // One font for the four grids, of 8 to 18 points; false (and nothing changed) outside that.
  bool setGridFont(double points);
  // The grids' font `step` points larger or smaller, with columns and drive table measured again.
  void stepGridFont(int step);
  // Big or small icons, with or without captions, on `mainBar` and every pane's bar.
  void setBarLook(QToolBar& mainBar, bool big, bool text);
  // Busy: the panes take no input (pointing at the treemap still names what lies where).
  void setControlsEnabled(bool on);
  void setWarningHandler(const std::function<void(const QString&)>& warn);
  // The panes' options and the drive table's locations, for the next start.
  void storeOptions(MainOptions& o);

 private:
  void place(bool report, bool drives, bool files, bool largest, bool treemap, bool types);

  ReportPane* reportPane_;
  TypesPane* types_;
  DrivePane* drives_;
  FileListPane* files_;
  FileListPane* top_;
  Splitter* info_ = nullptr;
  Splitter* main_ = nullptr;
  Splitter* report_ = nullptr;
  Splitter* pictures_ = nullptr;
};

}  // namespace ql
