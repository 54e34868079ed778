#pragma once
// A statvfs stand-in for the drive tests: "/hung" blocks until the gate opens, "/gone" fails as a
// mount that went away does, every other path answers at once with 1000 + its length blocks of
// 4 KiB, 250 of them free and 200 of those free for the user. The gate is shared with the
// workers, so it outlives any of them.

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "drives/DriveSizes.h"

namespace ql::test {

struct Gate {
  std::mutex m;
  std::condition_variable cv;
  bool open = false;
  std::atomic<int> hungCalls{0};
  void release() {
    std::lock_guard l(m);
    open = true;
    cv.notify_all();
  }
};

inline StatvfsFn fakeStat(std::shared_ptr<Gate> gate) {
  return [gate](const char* path, struct statvfs* st) {
    const std::string p(path);
    if (p == "/gone") {
      errno = ENOENT;
      return -1;
    }
    if (p == "/hung") {
      ++gate->hungCalls;
      std::unique_lock l(gate->m);
      gate->cv.wait(l, [&] { return gate->open; });
    }
    *st = {};
    st->f_frsize = 4096;
    st->f_blocks = 1000 + p.size();
    st->f_bfree = 250;
    st->f_bavail = 200;
    return 0;
  };
}

}  // namespace ql::test
