#pragma once
// Counting a file of several names once: its inode (device and number folded into one key) with
// its size in the count's mode, in sets kept sorted, one for each folder with everything below.

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ql {

struct Link {
  uint64_t key;
  int64_t size;
  bool operator<(const Link& o) const { return key < o.key; }
};
static_assert(sizeof(Link) == 16);
using Links = std::vector<Link>;

// Drops repeated inodes from sorted links; returns the bytes the repeats held.
inline int64_t dropRepeats(Links& links) {
  int64_t repeated = 0;
  size_t out = 0;
  for (size_t i = 0; i < links.size(); ++i) {
    if (out > 0 && links[out - 1].key == links[i].key) {
      repeated += links[i].size;
      continue;
    }
    links[out++] = links[i];
  }
  links.resize(out);
  if (links.capacity() > out + out / 4) links.shrink_to_fit();
  return repeated;
}

inline int64_t dedupLinks(Links& links) {
  std::sort(links.begin(), links.end());
  return dropRepeats(links);
}

// Adds the sorted `from` to the sorted `into`, the smaller into the larger, so that an inode is
// copied about log n times on its way up; repeats stay until dropRepeats. `from` is emptied.
inline void addLinks(Links& into, Links& from) {
  if (into.size() < from.size()) into.swap(from);
  const auto middle = static_cast<std::ptrdiff_t>(into.size());
  into.insert(into.end(), from.begin(), from.end());
  std::inplace_merge(into.begin(), into.begin() + middle, into.end());
  Links().swap(from);
}

}  // namespace ql
