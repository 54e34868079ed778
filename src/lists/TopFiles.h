#pragma once
// The largest files of one read, collected inside the walk at no second pass.
//
// Every worker thread offers the files it meets to a set of its own (a shard), which keeps the
// N largest it has seen; at the end the shards are merged. The order is total: by size, largest
// first, and among equal sizes by the path's bytes. So the list is the same for the same tree
// whatever the number of threads and whichever thread met a file first.
//
// A full shard proves that N files are at least as large as its smallest: anything smaller can
// never be in the list, and the walk is told so (minimumSize) and stops offering such files.
//
// Threads: offer() and minimumSize() from any thread; result() from any thread, also while an
// abandoned walk still offers.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "lists/FileRow.h"
#include "scan/FolderWalk.h"

#include "support/ThreadShards.h"

namespace ql {

class TopFiles : public FileFeed {
 public:
  static constexpr int kMinimum = 5;
  static constexpr int kMaximum = 999;

  explicit TopFiles(int limit);

  int64_t minimumSize() const override { return cutoff_.load(std::memory_order_relaxed); }
  void offer(const FoundFile& file) override;

  int limit() const { return limit_; }
  // The N largest offered so far, largest first, with their display fields filled.
  std::vector<FileRow> result() const;
  // The rows whose extension (lower case, "" for none) is `extension`, in their order. The list
  // stays the N largest of all kinds: a filter costs the walk nothing.
  static std::vector<FileRow> ofExtension(const std::vector<FileRow>& rows,
                                          std::string_view extension);

  struct Candidate {
    std::string path;  // folder and name
    uint32_t nameAt = 0;
    int64_t size = 0;
    int64_t modified = 0, created = -1, accessed = 0;
    uint32_t mode = 0;
    uint64_t blocks = 0;
    uint64_t attributes = 0;
  };
  // True when a comes before b in the list.
  static bool before(const Candidate& a, const Candidate& b) {
    return a.size != b.size ? a.size > b.size : a.path < b.path;
  }

 private:
  struct alignas(64) Shard {
    std::mutex mutex;
    std::vector<Candidate> heap;  // the worst candidate on top
  };
  void raiseCutoff(int64_t size);

  const int limit_;
  std::atomic<int64_t> cutoff_{0};
  mutable ThreadShards<Shard> shards_;
};

}  // namespace ql
