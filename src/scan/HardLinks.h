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

// Adds the sorted, repeat-free `from` to the sorted, repeat-free `into`, each inode once, and
// returns the bytes of the inodes both held. The smaller goes into the larger, so that an inode is
// copied about log n times on its way up, and the two are merged from the back inside the larger's
// buffer: no third buffer is needed. `from` is emptied.
inline int64_t addLinks(Links& into, Links& from) {
  if (into.size() < from.size()) into.swap(from);
  const size_t a = into.size(), b = from.size();
  if (b == 0) return 0;
  if (into.capacity() < a + b) into.reserve(std::max(a + b, a + a / 2));
  into.resize(a + b);
  int64_t repeated = 0;
  size_t i = a, j = b, k = a + b;
  while (j > 0) {
    const Link& y = from[j - 1];
    if (i > 0 && into[i - 1].key > y.key) {
      into[--k] = into[--i];
    } else {
      if (i > 0 && into[i - 1].key == y.key)
        repeated += y.size;
      else
        into[--k] = y;
      --j;
    }
  }
  // into[0, i) never moved; close the gap the repeats left before into[k, a + b).
  if (k > i) {
    std::copy(into.begin() + static_cast<std::ptrdiff_t>(k), into.end(),
              into.begin() + static_cast<std::ptrdiff_t>(i));
    into.resize(a + b - (k - i));
  }
  Links().swap(from);
  return repeated;
}

// The bytes of the inodes that more than one of the sorted, repeat-free `sets` holds, counted
// once for each extra holder; the sets are emptied. For a folder whose set goes no further (the
// walked one): merged on the fly, never held whole.
inline int64_t repeatsAcross(std::vector<Links*>& sets) {
  struct At {
    const Link* link;
    const Link* end;
    bool operator<(const At& o) const { return link->key > o.link->key; }  // smallest on top
  };
  std::vector<At> heap;
  for (Links* s : sets)
    if (!s->empty()) heap.push_back({s->data(), s->data() + s->size()});
  std::make_heap(heap.begin(), heap.end());
  int64_t repeated = 0;
  bool any = false;
  uint64_t last = 0;
  while (!heap.empty()) {
    std::pop_heap(heap.begin(), heap.end());
    At& at = heap.back();
    if (any && at.link->key == last) repeated += at.link->size;
    last = at.link->key;
    any = true;
    if (++at.link == at.end)
      heap.pop_back();
    else
      std::push_heap(heap.begin(), heap.end());
  }
  for (Links* s : sets) Links().swap(*s);
  return repeated;
}

// Gives back what a set no longer needs once its folder is complete.
inline void trimLinks(Links& links) {
  if (links.capacity() > links.size() + links.size() / 4) links.shrink_to_fit();
}

}  // namespace ql
