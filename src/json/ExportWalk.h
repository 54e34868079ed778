#pragma once
// The export's walk (see JsonExport.h) in its two halves, for a program that reads folders in
// other processes as well (quorlane-mpi):
//
// - readFolder() reads one folder and formats its entries, leaving a cut where each subfolder's
//   text goes. It needs nothing of the walk but the excludes and the root, so another process
//   can read a folder by its path and send the result back.
// - run() puts finished folders together in the writer's order and writes them. Besides its
//   own threads it can have a helper: a thread that takes folders in that order (take()), has
//   them read elsewhere and hands them back (give()). The text is the same whoever read what.
//
// Threads: readFolder() may run on any number of threads at once. take(), give() and ended()
// are for the helper, which run() starts after the root has been read and joins before it
// returns.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "json/JsonExport.h"
#include "scan/DirReader.h"
#include "scan/FolderWalk.h"

namespace ql {

struct ExportOpenFolder;

struct ExportFolder {
  std::string path;                          // for opening it
  uint32_t nameAt = 0;                       // its name within the path
  std::shared_ptr<ExportOpenFolder> parent;  // open until this folder is
  std::string info;                          // its info object without the closing brace
  // The mount it lies on, as this process sees it; a folder found by another process (mount ids
  // are a machine's own) asks its descriptor when it is read.
  uint64_t mountId = 0;
  bool mountKnown = true;
  // Its place in the writer's order: the index of each folder on the way down from the root
  // among its parent's subfolders, as big-endian bytes, so that comparing the bytes compares the
  // places in the text (and a shallow one needs no allocation).
  std::string order;
  // Filled by the one thread that reads it:
  std::string text;  // its entries, each led by ",\n"; subfolders are cut in at `cuts`
  std::vector<std::pair<size_t, std::shared_ptr<ExportFolder>>> cuts;
  int readError = 0;  // errno of an open or listing that failed, -1 for a stop
  int shortage = 0;   // errno of a shortage that ends the export here
  uint64_t entries = 0;
  uint64_t files = 0, bytes = 0;  // its own non-folder entries
  // Under the walk's mutex: 0 waiting, 1 being read, 2 read.
  int state = 0;
  bool byWorker = false;
};

class ExportWalk {
 public:
  ExportWalk(int threads, const Stop* stop, const std::vector<std::string>& excludes);
  ExportWalk(const ExportWalk&) = delete;
  ExportWalk& operator=(const ExportWalk&) = delete;

  // Walks `source` and writes the export to `fd`, as exportJson().
  ExportResult run(const std::string& source, int fd, bool compress);

  // Reads `f` (by its parent's descriptor or its path). A reader that only reads, in another
  // process, names the root first: patterns with a "/" match below it.
  void readFolder(ExportFolder& f, DirReader& reader);
  void setRoot(const std::string& rootPath);
  const std::string& rootPath() const { return rootPath_; }
  static DirReader makeReader();

  // Called before each folder is read, on the reading thread (a bench's simulated latency).
  void setBeforeRead(std::function<void(const ExportFolder&)> hook) {
    beforeRead_ = std::move(hook);
  }
  void setHelper(std::function<void(ExportWalk&)> helper) { helper_ = std::move(helper); }
  // For the helper: up to `most` of the first folders in the writer's order that no one has
  // taken, none while enough are held ahead of the writer.
  void take(std::vector<std::shared_ptr<ExportFolder>>& into, size_t most);
  // A taken folder, read: text, cuts (each child's path, nameAt and info), entries and errors
  // filled in as readFolder() would.
  void give(const std::shared_ptr<ExportFolder>& f);
  // The writer is done (or gave up): nothing taken is wanted any more.
  bool ended() const { return ended_.load(std::memory_order_acquire); }

  // Folders read by workers and not yet written: enough to keep the workers busy, few enough
  // that memory stays flat.
  static constexpr uint32_t kAhead = 1024;

 private:
  void readOrWait(const std::shared_ptr<ExportFolder>& f);
  void finished(const std::shared_ptr<ExportFolder>& f, bool byWorker);  // under the mutex
  void workerLoop();
  void wakeWorkers(size_t folders);            // under the mutex
  std::shared_ptr<ExportFolder> takeFirst() {  // under the mutex
    std::pop_heap(waiting_.begin(), waiting_.end(), later);
    std::shared_ptr<ExportFolder> f = std::move(waiting_.back());
    waiting_.pop_back();
    return f;
  }
  static bool later(const std::shared_ptr<ExportFolder>& a,
                    const std::shared_ptr<ExportFolder>& b) {
    return b->order < a->order;
  }
  void growIfWaiting(std::unique_lock<std::mutex>& lock);
  bool stopped_() const { return stop_ && stop_->requested(); }

  int threads_;
  bool parallel_ = false;  // others read too: folders wait in order to be taken
  const Stop* stop_;
  ExcludeList excludes_;
  std::string rootPath_;
  size_t rootPrefix_ = 0;  // the root's path with its "/": what a relative path leaves out
  std::function<void(const ExportFolder&)> beforeRead_;
  std::function<void(ExportWalk&)> helper_;
  DirReader writerReader_;
  std::mutex mutex_;
  std::condition_variable work_;   // workers: something to read, or room to read ahead
  std::condition_variable ready_;  // the writer: a folder it waits for was read
  // Folders found and not yet taken, as a heap: the first in the writer's order on top.
  std::vector<std::shared_ptr<ExportFolder>> waiting_;
  uint32_t ahead_ = 0;
  uint32_t helping_ = 0;  // taken by the helper and not given back
  size_t idle_ = 0;       // workers waiting for work_
  size_t stale_ = 0;      // entries of waiting_ the writer took out of turn
  std::atomic<int> openFolders_{0};
  bool done_ = false;
  std::atomic<bool> ended_{false};
  // Only the writer touches these.
  std::vector<std::thread> pool_;
  bool canGrow_ = false;
  std::chrono::steady_clock::time_point checkedAt_ = std::chrono::steady_clock::now();
  long blocksRead_ = 0;
};

}  // namespace ql
