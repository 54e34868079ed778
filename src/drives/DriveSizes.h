#pragma once
// Sizes of mounted file systems, and the reader that gets them without ever making its caller
// wait on a mount that does not answer (a hung network share blocks statvfs in the kernel for
// minutes).
//
// Threads: SizeReader starts one worker thread per read. A worker that is blocked in the kernel
// is left behind; it shares only the reader's State, which it keeps alive, so the reader and its
// owner may go at any time. The notify function is called on the worker's thread, under the
// state's lock, and is cleared by the reader's destructor before the owner goes.

#include <sys/statvfs.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace ql {

// What a read gives. A total of 0 means nothing is known: the read failed, the mount went away,
// it did not answer in time, or it really has no blocks (an empty drive).
struct DriveSizes {
  int64_t total = 0;
  int64_t free = 0;       // all free bytes, the blocks kept for root among them
  int64_t available = 0;  // the free bytes a user may write
  int64_t cluster = 0;    // the fragment size
};

// Used percent as df tells it: of what is used plus what the user may still write, so the blocks
// kept for root count neither way; rounded up, as df does. Nothing used and nothing available
// (all of it kept for root) is 100%: the user has no room.
int usedPercent(int64_t used, int64_t available);

// The figures a row shows; `known` is false when the total is 0, and then every cell is empty.
// Free is what the user may write; used is the total less every free block, as df has them, so
// used and free need not add up to the total. Free percent is 100 less the used one.
struct SizeFigures {
  bool known = false;
  int64_t used = 0, free = 0, total = 0, cluster = 0;
  int usedPercent = 0, freePercent = 0;
};
SizeFigures figuresOf(const DriveSizes& s);

using StatvfsFn = std::function<int(const char* path, struct statvfs* out)>;

// One blocking read; any failure gives the empty sizes.
DriveSizes readSizes(const std::string& path, const StatvfsFn& stat);

class SizeReader {
 public:
  using Clock = std::chrono::steady_clock;

  explicit SizeReader(StatvfsFn stat = {}, std::chrono::milliseconds limit = std::chrono::seconds(2));
  ~SizeReader();
  SizeReader(const SizeReader&) = delete;
  SizeReader& operator=(const SizeReader&) = delete;

  // Called on a worker's thread whenever a result comes in; keep it short (post an event).
  void setNotify(std::function<void()> notify);

  // Starts reading `path` and returns the request number (from 1). A path whose earlier read
  // still hangs is not read again: 0 comes back and the row stays empty, so a dead mount costs
  // one thread, not one per refresh.
  uint64_t start(const std::string& path);

  // The results that came in since the last call. A read that took longer than the limit comes
  // back with empty sizes, as a failed one does.
  std::vector<std::pair<uint64_t, DriveSizes>> take();

  // Waits until at least `count` results are waiting to be taken, or until `deadline`; returns
  // how many are waiting. For callers without an event loop.
  size_t waitForResults(size_t count, Clock::time_point deadline);

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::function<void()> notify;
    std::vector<std::pair<uint64_t, DriveSizes>> results;
    std::map<std::string, int> running;  // path -> workers not yet back
  };
  StatvfsFn stat_;
  std::chrono::milliseconds limit_;
  std::shared_ptr<State> state_;
  uint64_t next_ = 1;
};

}  // namespace ql
