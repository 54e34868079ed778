#pragma once
// The two file lists below the report, the files of the selected folder and the largest files of
// the sources, with the preview that stands beside whichever of them is in view. The largest
// files are fed by the scan session; files deleted from either list leave the treemap too, and
// with a baseline the largest files can be narrowed to those new or grown since.
//
// Threads: the user-interface thread only.

#include <QObject>
#include <string>
#include <vector>

#include "failure/Guard.h"

class QWidget;

namespace ql {

class CompareBaseline;
class FileListPane;
class PreviewPane;
class ScanSession;
struct MainOptions;

class FileLists : public QObject {
  Q_OBJECT
 public:
  FileLists(ScanSession& session, const Guard& guard, const MainOptions& options, QWidget* parent);

  FileListPane& files() { return *files_; }
  FileListPane& top() { return *top_; }
  PreviewPane& preview() { return *preview_; }
  void setAllocated(bool allocated);
  // The baseline of the report's comparison; none shows every largest file again.
  void setBaseline(const CompareBaseline* baseline);

 Q_SIGNALS:
  void statusText(const QString& text);
  // "Vollansicht" of a list's bar; `folderList` tells which of the two.
  void fullViewRequested(bool folderList);
  // Files were deleted from these folders.
  void filesDeleted(const std::vector<std::string>& folders, bool folderList);

 private:
  FileListPane* files_;
  FileListPane* top_;
  PreviewPane* preview_;
};

}  // namespace ql
