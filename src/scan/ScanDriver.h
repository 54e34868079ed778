#pragma once
// The source queue and the driver that reads it: each source becomes a root of the report tree,
// walked on worker threads while the owner thread stays free. Finished top-level folders are
// linked into the tree as they come, so the tree grows one folder at a time.
//
// Threads: a ScanDriver and its tree belong to the thread that made them (the owner). The walk
// runs on its own threads; branches and failures come back to the owner through the event loop
// (start) or after the walk (runToEnd). Nothing else of the driver is touched off the owner.

#include <QObject>
#include <QTimer>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "report/ReportTree.h"
#include "scan/FolderWalk.h"

namespace ql {

class ScanDriver : public QObject, private WalkSink {
  Q_OBJECT
 public:
  struct Settings {
    bool noHardlinks = false;
    bool folderColorFade = false;
    int threads = 0;  // 0: the walk's default
  };

  explicit ScanDriver(ReportTree& tree, QObject* parent = nullptr);
  ~ScanDriver() override;

  void setSettings(const Settings& settings) { settings_ = settings; }
  void setFileFeed(FileFeed* feed) { feed_ = feed; }

  // Sources waiting to be read, taken from the front; sources added during a scan are read in
  // the same run.
  std::deque<std::string>& sourceQueue() { return queue_; }
  bool busy() const { return busy_; }

  // Reads every queued source, one after the other, and returns at once; finished() follows.
  void start();
  // The same, on the calling thread, returning when all is read (the silent run).
  void runToEnd();

  // Measures one folder of the tree again and corrects the sums above it by the difference.
  // `full` replaces the folder's whole subtree; otherwise only its own files are read again and
  // its subfolder rows stay. A files row stands for its folder. Returns at once unless `wait`;
  // rescanFinished() follows. Sources queued meanwhile are read afterwards.
  void Report_Rescan(uint32_t node, bool full, bool wait = false);
  // Takes the whole source of a node out of the report.
  void Report_RemoveFolders(uint32_t node);

  // The sums of the source read last.
  const ScanResult& totalResult() const { return total_; }
  uint32_t lastRoot() const { return lastRoot_; }
  // A folder being read now, for the status bar.
  std::string currentFolder() const;

 Q_SIGNALS:
  void sourceAccepted(const QString& path);  // an existing source is about to be read
  void sourceStarted(uint32_t root);
  void sourceFinished(uint32_t root);
  void progress(const QString& folder);
  void finished();
  void rescanFinished(uint32_t node);

 private:
  struct Pending {
    uint32_t position;
    ReportTree branch;
  };

  void branchDone(uint32_t position, ReportTree&& branch) override;
  void failure(const WalkFailure& failure) override;

  bool takeNextSource(std::string& scanPath);
  void beginWalk(uint32_t node);
  void drain();
  void place(uint32_t position, ReportTree&& branch);
  void finishSource(const WalkOutcome& outcome);
  void onWalkDone(const WalkOutcome& outcome);
  void readNextAsync();
  void finishAll();
  void finishRescan();
  void addUp(uint32_t from, int64_t size, int64_t files);
  void startWalkThread(const std::string& path);

  struct Rescan {
    bool active = false;
    bool full = false;
    uint32_t node = kNoNode;
    int64_t oldSize = 0, oldFiles = 0, oldFolders = 0;
  } rescan_;
  std::unique_ptr<FolderWalk> makeWalk();

  ReportTree& tree_;
  Settings settings_;
  FileFeed* feed_ = nullptr;
  std::deque<std::string> queue_;
  bool busy_ = false;
  bool async_ = false;

  std::unique_ptr<FolderWalk> walk_;
  std::thread thread_;
  uint32_t node_ = kNoNode;      // the folder being read
  std::vector<uint32_t> placed_; // listing positions of its children linked in so far
  ScanResult total_;
  uint32_t lastRoot_ = kNoNode;

  std::mutex pendingMutex_;
  std::vector<Pending> pending_;
  std::vector<WalkFailure> failures_;
  QTimer progressTimer_;
};

}  // namespace ql
