#pragma once
// Keeps snapshots for the window: each source handed in is written from what its scan's feed
// kept (see SnapshotFeed), on a thread of the keeper's own at low CPU and I/O priority (nice 10,
// idle I/O class), one after the other, and the store is pruned after each. A source handed in
// without a feed is walked once more by the export's walk.
//
// Threads: keep() and the destructor belong to the owner's thread; `failed` is called on the
// keeper's thread. The destructor stops the snapshot being written (its temporary file goes)
// and waits for the thread, which ends at the next folder.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/Stop.h"

namespace ql {

class SnapshotFeed;

class SnapshotKeeper {
 public:
  struct Job {
    std::string source;
    std::vector<std::string> excludes;
    int keep = 12;            // per source, 0: no limit
    int64_t budgetBytes = 0;  // for the whole store, 0: no limit
    std::shared_ptr<SnapshotFeed> feed;  // what the scan kept; none: walked again
  };
  using Failed = std::function<void(const std::string& source, const std::string& error)>;

  explicit SnapshotKeeper(Failed failed = {}) : failed_(std::move(failed)) {}
  ~SnapshotKeeper();
  SnapshotKeeper(const SnapshotKeeper&) = delete;
  SnapshotKeeper& operator=(const SnapshotKeeper&) = delete;

  // Queues a snapshot; one of a source already waiting takes that one's place.
  void keep(Job job);
  // Waits until nothing is queued or being written (tests and benchmarks).
  void waitIdle();

 private:
  void run();

  Failed failed_;
  Stop stop_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> queue_;
  bool writing_ = false;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace ql
