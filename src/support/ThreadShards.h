#pragma once
// Shards of a result that many threads add to at once: each thread keeps to one shard of a
// collector, so the threads seldom wait on each other's lock. A new collector hands its shards
// out afresh.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ql {

template <class Shard, size_t N = 16>
class ThreadShards {
 public:
  ThreadShards() : id_(nextId().fetch_add(1, std::memory_order_relaxed) + 1) {}

  // The shard of the calling thread.
  Shard& mine() {
    thread_local uint64_t owner = 0;
    thread_local uint32_t index = 0;
    if (owner != id_) {
      owner = id_;
      index = next_.fetch_add(1, std::memory_order_relaxed) % N;
    }
    return shards_[index];
  }
  std::array<Shard, N>& all() { return shards_; }
  const std::array<Shard, N>& all() const { return shards_; }

 private:
  static std::atomic<uint64_t>& nextId() {
    static std::atomic<uint64_t> n{0};
    return n;
  }
  const uint64_t id_;
  std::atomic<uint32_t> next_{0};
  std::array<Shard, N> shards_;
};

}  // namespace ql
