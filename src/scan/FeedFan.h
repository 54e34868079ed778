#pragma once
// One feed for the walk that hands each file to several: the largest files, the treemap and
// whatever else wants to see every file of a read. A file goes to each feed whose minimum it
// reaches; a feed may raise its minimum as it fills (the largest files do), so it is asked each
// time.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "scan/FolderWalk.h"

namespace ql {

class FeedFan : public FileFeed {
 public:
  // Null feeds are left out. Returns the only feed itself when there is just one.
  static std::shared_ptr<FileFeed> of(std::vector<std::shared_ptr<FileFeed>> feeds) {
    std::erase(feeds, nullptr);
    if (feeds.empty()) return nullptr;
    if (feeds.size() == 1) return feeds.front();
    return std::make_shared<FeedFan>(std::move(feeds));
  }

  explicit FeedFan(std::vector<std::shared_ptr<FileFeed>> feeds) : feeds_(std::move(feeds)) {}

  int64_t minimumSize() const override {
    int64_t least = INT64_MAX;
    for (const auto& f : feeds_) least = std::min(least, f->minimumSize());
    return least;
  }
  void offer(const FoundFile& file) override {
    for (const auto& f : feeds_)
      if (file.size >= f->minimumSize()) f->offer(file);
  }

 private:
  std::vector<std::shared_ptr<FileFeed>> feeds_;
};

}  // namespace ql
