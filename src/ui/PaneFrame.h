#pragma once
// Where the panes stand in the window: the report, with the treemap and the file-types pane side
// by side below it, beside a column of the drive table over one of the two file lists; each part
// shown or not, and the drive table never taller than its rows.

#include "ui/Splitter.h"

namespace ql {

class DrivePane;
class FileListPane;
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
  // types stand below the report (in its place when it is not shown).
  void show(bool report, bool drives, bool files, bool largest, bool treemap = false,
            bool types = false);
  void fitDriveTable();

 private:
  DrivePane* drives_;
  FileListPane* files_;
  FileListPane* top_;
  Splitter* info_ = nullptr;
  Splitter* main_ = nullptr;
  Splitter* report_ = nullptr;
  Splitter* pictures_ = nullptr;
};

}  // namespace ql
