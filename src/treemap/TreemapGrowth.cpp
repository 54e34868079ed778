#include "treemap/TreemapGrowth.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace ql {

namespace {
using Named = std::pair<std::string_view, uint32_t>;

// The subfolders of a node of `then` by name, and the bytes of its own files.
int64_t subfoldersOf(const ReportTree& then, uint32_t node, std::vector<Named>& named) {
  named.clear();
  int64_t own = then.node(node).size;
  for (uint32_t c : then.children(node)) {
    if (!(then.node(c).flags & ReportTree::IsFolder)) continue;  // the row of its own files
    named.emplace_back(then.text(c), c);
    own -= then.node(c).size;
  }
  std::sort(named.begin(), named.end());
  return std::max<int64_t>(own, 0);
}

uint32_t childNamed(const std::vector<Named>& named, std::string_view name) {
  const auto it = std::lower_bound(named.begin(), named.end(), Named{name, 0});
  return it != named.end() && it->first == name ? it->second : kNoNode;
}
}  // namespace

std::vector<float> folderGrowth(const TreemapTree& now, uint32_t top, const ReportTree& then,
                                uint32_t thenTop) {
  std::vector<float> growth(now.folders.size(), 0.0f);
  std::vector<Named> named;
  // Down to `top` by the names of its parents.
  std::vector<uint32_t> chain;
  for (uint32_t f = top; f != 0; f = now.parents[f]) chain.push_back(f);
  uint32_t match = thenTop;
  for (auto f = chain.rbegin(); f != chain.rend() && match != kNoNode; ++f) {
    subfoldersOf(then, match, named);
    match = childNamed(named, now.folders[*f].name);
  }
  std::vector<std::pair<uint32_t, uint32_t>> waiting{{top, match}};  // (folder, then's node)
  while (!waiting.empty()) {
    const auto [folder, old] = waiting.back();
    waiting.pop_back();
    const TreemapFolder& f = now.folders[folder];
    if (old == kNoNode) {
      growth[folder] = kNewFolder;
      for (uint32_t c : f.children) waiting.emplace_back(c, kNoNode);
      continue;
    }
    const int64_t ownThen = subfoldersOf(then, old, named);
    int64_t ownNow = 0;
    for (uint32_t k = f.firstFile; k < f.firstFile + f.fileCount; ++k)
      ownNow += TreemapTree::sizeOf(now.files[k]);
    if (ownThen > 0)
      growth[folder] =
          static_cast<float>(static_cast<double>(ownNow - ownThen) / static_cast<double>(ownThen));
    else if (ownNow > 0)
      growth[folder] = std::numeric_limits<float>::max();
    for (uint32_t c : f.children) waiting.emplace_back(c, childNamed(named, now.folders[c].name));
  }
  return growth;
}

}  // namespace ql
