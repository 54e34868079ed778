#include "snapshot/SnapshotKeeper.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>

#include "scan/FolderWalk.h"
#include "snapshot/SnapshotFeed.h"
#include "snapshot/SnapshotStore.h"

namespace ql {

namespace {
// Lower CPU and I/O priority for this thread and the ones it starts (both are inherited): a
// snapshot gives way to the user's next scan. Failing to lower them changes nothing else.
void lowerPriority() {
  const auto tid = static_cast<id_t>(::syscall(SYS_gettid));
  ::setpriority(PRIO_PROCESS, tid, 10);
  constexpr int kWhoProcess = 1, kClassIdle = 3, kClassShift = 13;
  ::syscall(SYS_ioprio_set, kWhoProcess, static_cast<int>(tid), kClassIdle << kClassShift);
}
}  // namespace

SnapshotKeeper::~SnapshotKeeper() {
  {
    std::lock_guard lock(mutex_);
    ending_ = true;
    queue_.clear();
  }
  stop_.request();
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void SnapshotKeeper::keep(Job job) {
  std::lock_guard lock(mutex_);
  const auto waiting = std::find_if(queue_.begin(), queue_.end(),
                                    [&](const Job& j) { return j.source == job.source; });
  if (waiting != queue_.end())
    *waiting = std::move(job);  // the newer measurement
  else
    queue_.push_back(std::move(job));
  if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  changed_.notify_all();
}

void SnapshotKeeper::waitIdle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return queue_.empty() && !writing_; });
}

void SnapshotKeeper::run() {
  lowerPriority();
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !queue_.empty(); });
    if (ending_) return;
    Job job = std::move(queue_.front());
    queue_.pop_front();
    writing_ = true;
    lock.unlock();
    const SnapshotResult r =
        job.feed && job.feed->complete()
            ? job.feed->keep(job.source, job.excludes, &stop_)
            : writeSnapshot(job.source, FolderWalk::defaultThreads(), &stop_, job.excludes);
    job.feed.reset();  // its temporary files go
    if (r.ok)
      pruneSnapshots(job.keep, job.budgetBytes);
    else if (!stop_.requested() && failed_)
      failed_(job.source, r.error);
    lock.lock();
    writing_ = false;
    changed_.notify_all();
  }
}

}  // namespace ql
