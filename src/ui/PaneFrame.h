#pragma once
// Where the panes stand in the window: the report beside a column of the drive table over one
// of the two file lists, each part shown or not, and the drive table never taller than its rows.

#include "ui/Splitter.h"

namespace ql {

class DrivePane;
class FileListPane;
class ReportPane;

class PaneFrame {
 public:
  PaneFrame(ReportPane* report, DrivePane* drives, FileListPane* files, FileListPane* top,
            QWidget* parent);

  Splitter& main() { return *main_; }
  Splitter& info() { return *info_; }
  // The report, the drive table, and the file list or else the largest files; with none of the
  // last three the report stands alone. The shown list takes the preview.
  void show(bool report, bool drives, bool files, bool largest);
  void fitDriveTable();

 private:
  DrivePane* drives_;
  FileListPane* files_;
  FileListPane* top_;
  Splitter* info_ = nullptr;
  Splitter* main_ = nullptr;
};

}  // namespace ql
