#pragma once
// The source queue and the driver that reads it: each source becomes a root of the report tree,
// walked on worker threads while the owner thread stays free. Finished top-level folders are
// linked into the tree as they come, so the tree grows one folder at a time.
//
// Threads: a ScanDriver and its tree belong to the thread that made them (the owner), and only
// the owner ever changes the tree. A walk runs on a thread of its own with its pool of workers;
// finished branches and failures wait in the walk's mailbox until the owner takes them (through
// the event loop in start(), or in a loop of its own in runToEnd()).
//
// A walk that does not answer a stop within a second (a worker blocked in the kernel on a dead
// network mount) is abandoned: the mailbox it shares with the driver outlives both, the walk
// finishes on its own whenever the kernel lets it, and nothing it hands in is looked at again.

#include <QObject>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "report/ReportTree.h"
#include "scan/FolderWalk.h"

namespace ql {

class ScanDriver : public QObject {
  Q_OBJECT
 public:
  struct Settings {
    bool noHardlinks = false;
    bool folderColorFade = false;
    int threads = 0;  // 0: the walk's default
    SizeMode mode;
    std::vector<std::string> excludes;  // shell patterns, see ExcludeList
  };

  // `stop` is the owner's: once requested the reading ends; the driver resets it when done.
  ScanDriver(ReportTree& tree, Stop& stop, QObject* parent = nullptr);
  ~ScanDriver() override;

  void setSettings(const Settings& settings) { settings_ = settings; }
  // Makes the collector of files for each full walk (a source or a full rescan); it is called
  // on the owner thread just before the walk starts, also for a files-only rescan, whose walk
  // offers nothing. The walk keeps its collector alive as long as it runs, even when abandoned.
  void setFeedFactory(std::function<std::shared_ptr<FileFeed>()> factory) {
    feedFactory_ = std::move(factory);
  }
  // While the factory runs: the folder about to be walked, and whether its files are offered.
  const std::string& walkPath() const { return walkPath_; }
  bool walkOffersFiles() const { return job_ != Job::FilesRescan; }

  // Sources waiting to be read, taken from the front; sources added during a scan are read in
  // the same run. Paths are bytes, used exactly as given.
  std::deque<std::string>& sourceQueue() { return queue_; }
  bool busy() const { return busy_; }

  // Reads every queued source, one after the other, and returns at once; finished() follows.
  void start();
  // The same, on the calling thread, returning when all is read (the silent run).
  void runToEnd();

  // Measures one folder of the tree again and corrects the sums above it by the difference.
  // `full` replaces the folder's whole subtree; otherwise only its own files are read again and
  // its subfolder rows stay. A files row stands for its folder; a junction is never entered.
  // Returns false when there is nothing to do; otherwise rescanFinished() follows (at once when
  // `wait`). Sources queued meanwhile are read afterwards. When a file of several names counts
  // once, a folder's sum depends on what lies beside it: then the whole source is measured again.
  bool rescan(uint32_t node, bool full, bool wait = false);
  // Ends the reading at the next entry: the owner's stop, and the running walk's own.
  void stop();
  // Takes the whole source of a node out of the report.
  void removeSource(uint32_t node);
  // Takes every source out of the report; nothing the driver keeps points into it afterwards.
  void clearAll();

  // The sums of the source read last.
  const ScanResult& totalResult() const { return total_; }
  // The root of the source read last, kNoNode once it is gone.
  uint32_t lastRoot() const;
  // A folder being read now, for the status bar.
  std::string currentFolder() const;

 Q_SIGNALS:
  void sourceAccepted(const QByteArray& path);  // an existing source is about to be read
  void sourceStarted(uint32_t root);
  void sourceFinished(uint32_t root);
  // A source that is there but cannot be read, with the system's reason.
  void sourceRefused(const QString& path, const QString& reason);
  void progress(const QString& folder);
  void finished();
  void rescanFinished(uint32_t node);
  // From the walk's threads to the driver itself, queued: finished branches wait in the run,
  // and the walk has ended.
  void branchesWaiting();
  void walkEnded();

 private:
  struct Run;
  enum class Job { Source, FullRescan, FilesRescan };

  bool takeNextSource(std::string& scanPath);
  void launch(Job job, uint32_t node, const std::string& path);
  void drain();
  void place(uint32_t position, ReportTree&& branch);
  void reportFailure(const WalkFailure& failure);
  void finishWalk(const WalkOutcome& outcome);
  WalkOutcome waitForWalk();
  void onWalkDone();
  void afterWalk(const WalkOutcome& outcome);
  void onTick();
  void abandon();
  void readNextAsync();
  void finishAll();
  void finishRescan(const WalkOutcome& outcome);
  void resetAfterFailure();
  void endThread();
  bool stopped() const { return stop_.requested(); }

  struct Rescan {
    bool full = false;
    uint32_t node = kNoNode;
    int64_t oldSize = 0, oldFiles = 0, oldFolders = 0;
  };

  ReportTree& tree_;
  Stop& stop_;
  Settings settings_;
  std::function<std::shared_ptr<FileFeed>()> feedFactory_;
  std::deque<std::string> queue_;
  bool busy_ = false;
  bool async_ = false;

  Job job_ = Job::Source;
  std::string walkPath_;
  std::shared_ptr<Run> run_;
  std::thread thread_;
  uint32_t node_ = kNoNode;       // the folder being read
  std::vector<uint32_t> placed_;  // listing positions of its children linked in so far
  Rescan rescan_;
  ScanResult total_;
  uint32_t lastRoot_ = kNoNode;
  uint64_t lastRootGeneration_ = 0;
  std::chrono::steady_clock::time_point stopSeen_{};
  QTimer ticker_;
};

}  // namespace ql
