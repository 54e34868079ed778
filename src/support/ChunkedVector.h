#pragma once
// A growing array in fixed blocks: elements never move, and growing never copies what is there,
// so a large array needs no transient double of itself.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace ql {

template <typename T, size_t BlockBits = 12>
class ChunkedVector {
 public:
  static constexpr size_t kBlock = size_t{1} << BlockBits;

  T& operator[](size_t i) { return blocks_[i >> BlockBits][i & (kBlock - 1)]; }
  const T& operator[](size_t i) const { return blocks_[i >> BlockBits][i & (kBlock - 1)]; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  template <typename... Args>
  T& emplace_back(Args&&... args) {
    if ((size_ & (kBlock - 1)) == 0 && (size_ >> BlockBits) == blocks_.size())
      blocks_.push_back(std::make_unique<T[]>(kBlock));
    T& slot = (*this)[size_++];
    slot = T(std::forward<Args>(args)...);
    return slot;
  }
  void push_back(T value) { emplace_back(std::move(value)); }

  // Appends `count` (at most kBlock) elements that lie side by side in one block, padding the
  // rest of the last block with `filler` when they would not fit there. Returns the first index.
  size_t appendRun(const T* values, size_t count, const T& filler) {
    if (count > 0 && (size_ & (kBlock - 1)) + count > kBlock) padToBlock(filler);
    const size_t first = size_;
    if ((size_ & (kBlock - 1)) == 0 && (size_ >> BlockBits) == blocks_.size() && count > 0)
      blocks_.push_back(std::make_unique_for_overwrite<T[]>(kBlock));
    if (count == 0) return first;
    std::copy(values, values + count, &(*this)[first]);
    size_ += count;
    return first;
  }
  const T* data(size_t i) const { return &(*this)[i]; }
  T* data(size_t i) { return &(*this)[i]; }

  // Appends fillers until the size is a whole number of blocks.
  void padToBlock(const T& filler) {
    while (size_ & (kBlock - 1)) emplace_back(filler);
  }
  // Takes the other array's blocks over as they are, behind this one's: nothing is copied and no
  // new memory is touched. This array must end on a block boundary (padToBlock).
  void adoptBlocks(ChunkedVector&& other) {
    for (auto& b : other.blocks_) blocks_.push_back(std::move(b));
    size_ += other.size_;
    other.clear();
  }

  void clear() {
    blocks_.clear();
    size_ = 0;
  }
  size_t capacityBytes() const { return blocks_.size() * kBlock * sizeof(T); }

 private:
  std::vector<std::unique_ptr<T[]>> blocks_;
  size_t size_ = 0;
};

}  // namespace ql
