#pragma once
// What the window measures, without the window: the report tree, the driver that reads sources
// into it, the measurements imported from JSON exports, and the queue of both. It says when it
// is busy, what the status bar should read and what went wrong; the panes send it requests and
// the frame listens to its signals. A session belongs to the user-interface thread.
//
// Sources and imports queue up: a source handed over during a scan joins that scan, an import
// waits until the walk and any other import are done, and all of it waits until ready() (the
// window is on the screen).

#include <QObject>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "failure/Guard.h"
#include "lists/FileRow.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"
#include "ui/TreemapStore.h"

namespace ql {

class ImportedSources;
class FileFeed;
class SnapshotFeed;
class SnapshotKeeper;
class TreemapCollector;

class ScanSession : public QObject {
  Q_OBJECT
 public:
  // The list of the largest files: each full read starts a collection and ends it under the
  // source's path (`root` is the source the rows are reached from); clear() empties the list.
  struct LargestFiles {
    std::function<std::shared_ptr<FileFeed>()> begin;
    std::function<void(const std::string& source, const std::string& root)> end;
    std::function<void()> clear;
  };

  ScanSession(const Guard& guard, QObject* parent = nullptr);
  ~ScanSession() override;

  ReportTree& tree() { return tree_; }
  ScanDriver& driver() { return *driver_; }
  ImportedSources& imports() { return *imports_; }
  const Stop& stopFlag() const { return stop_; }
  bool sizesAllocated() const { return options_.SizeAllocated != 0; }
  void setLargestFiles(LargestFiles list);
  void applyOptions(const MainOptions& options);
  // Sizes are counted the new way from now on, and the setting is kept. The tree holds one size
  // a folder, so the sources read from the disk are read again; an imported one keeps the
  // counting it came with until it is imported again (the status says so).
  void setCounting(bool allocated, bool linksOnce);

  // Reads the sources, exactly as given; during a scan they join its queue. A source already
  // queued is not queued again, and one already shown is read anew in its place (during a walk
  // it is left as it is).
  void readSources(const std::vector<std::string>& sources);
  // Reads these sources alone (asked for by hand): a stop asked for earlier is forgotten,
  // whatever was still queued is dropped, and a source that is not there is told.
  void readOnly(const std::vector<std::string>& sources);
  // Reads a measurement saved as a JSON export into the report; queued while anything runs.
  void importFile(const std::string& file);
  // Measures a folder of the report again: with `full` its whole subtree, else its own files.
  void rescan(uint32_t node, bool full);
  // Ends the walk under way; an import under way ends too, and nothing of it joins the report.
  void stop();
  // Files were deleted from `folders` while `shownFolder` was the folder of the file list: its
  // own files are counted again, and the sums go up the chain.
  void filesDeleted(uint32_t shownFolder, const std::vector<std::string>& folders);
  // The window is up: what was asked for until now is read.
  void ready();

  // Where the file list finds the files of a report folder (a files row stands for its folder):
  // the folder's path and the source it was found below; an imported folder brings its rows,
  // and whether it is on this machine. False for a node that is gone.
  struct FolderFiles {
    std::string path, source;
    bool imported = false, onDisk = true;
    std::vector<FileRow> rows;
  };
  bool folderFiles(uint32_t node, FolderFiles& files) const;
  // An imported folder that is not on this machine cannot be read again, deleted or renamed.
  bool locked(uint32_t node) const;

  // --- The treemap: every full read and import also keeps each file's size, kind and extension (10 bytes
  // a file), so the treemap and types panes can show any folder without reading it again.
  // The files of a folder of the report, empty while it is read or when nothing is known.
  TreemapPlace treemapAt(const std::string& path);
  // The report node of a folder's path, kNoNode when the report holds none.
  uint32_t nodeOfPath(const std::string& path) const;
  // The folder a walk reads now (a source, or a folder measured again), "" when none: what is
  // kept for it is what it held before.
  std::string readingFolder() const;
  // The report deleted or trashed a folder; files were deleted from a folder.
  void treemapFolderGone(const std::string& path);
  void treemapFileGone(const std::string& folder, std::string_view name, int64_t size);
  size_t treemapBytes() const { return treemaps_.memoryUse(); }

  // Busy: a walk, an import or a long command of a pane runs; the window takes no new work.
  bool busy() const { return busy_; }
  void setBusy(bool busy);
  // After a failure in a handler: idle again unless a walk really runs.
  void recover();

 Q_SIGNALS:
  void busyChanged(bool busy);
  void statusText(const QString& text);
  void warning(const QString& text);
  void countingChanged(bool allocated, bool linksOnce);
  // A source exists and is about to be read: it belongs in the sources box.
  void sourceAccepted(const std::string& path);
  void sourceStarted(uint32_t root);
  // Every queued source was read (`node`: the root read last, kNoNode when none is left;
  // `walked`), or a rescan of `node` ended, or an import joined the report as the root `node`
  // (after sourceStarted). The session is idle again.
  void readDone(uint32_t node, bool walked);
  // What the treemap knows has changed (a read was taken in, something was deleted).
  void treemapChanged();

 private:
  void wireDriver();
  void start();
  void finish(uint32_t node, bool walked);
  void endLargestFiles(uint32_t node);
  void onImportFinished(uint32_t root, const QString& error);
  void importNext();
  void keepSnapshot(uint32_t root);
  std::shared_ptr<FileFeed> beginTreemap(const std::string& path);
  // Builds the tree of the collection just ended off this thread; `graft` for a rescan.
  void endTreemap(bool graft, const std::string& importedRoot = {});
  std::shared_ptr<FileFeed> walkFeed();

  const Guard& guard_;
  Stop stop_;  // before the driver, which holds it
  ReportTree tree_;
  std::unique_ptr<ScanDriver> driver_;
  ImportedSources* imports_ = nullptr;
  LargestFiles largest_;
  MainOptions options_;
  bool busy_ = false;
  bool ready_ = false;
  std::vector<std::string> waiting_;  // sources asked for before the window was up
  std::deque<std::string> pendingImports_;
  std::string importing_;  // the export being read
  QStringList refused_;    // sources that could not be read in this run, told at its end
  // A snapshot follows each source read to its end; these tell whether the source failed.
  std::unique_ptr<SnapshotKeeper> snapshots_;
  // The source whose walk starts next, and the feed that keeps its files for its snapshot.
  uint32_t startedRoot_ = kNoNode;
  std::shared_ptr<SnapshotFeed> snapshotFeed_;
  uint32_t snapshotRoot_ = kNoNode;
  uint64_t snapshotGeneration_ = 0;
  int failuresAtStart_ = 0;
  qsizetype refusedAtStart_ = 0;
  TreemapStore treemaps_;
  std::shared_ptr<TreemapCollector> collecting_;  // of the walk or import under way
  std::string collectingPath_;
};

}  // namespace ql
