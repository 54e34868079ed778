#include "ui/TreemapStore.h"

#include <algorithm>

#include "support/Path.h"

namespace ql {

namespace {
// `path` lies in or below `top` (both with "/").
bool below(const std::string& path, const std::string& top) {
  return path.size() >= top.size() && path.compare(0, top.size(), top) == 0;
}

void addUp(TreemapTree& tree, uint32_t folder, int64_t delta) {
  for (uint32_t f = folder;; f = tree.parents[f]) {
    tree.folders[f].bytes += delta;
    if (f == 0) break;
  }
}
}  // namespace

void TreemapStore::put(const std::string& path, TreemapTree tree) {
  const std::string top = addSlash(path);
  auto kept = std::make_shared<TreemapTree>(std::move(tree));
  for (Source& s : sources_)
    if (s.path == top) {
      s.tree = std::move(kept);
      return;
    }
  sources_.push_back({top, std::move(kept)});
}

TreemapStore::Source* TreemapStore::sourceOf(const std::string& path, TreemapPlace& place) {
  const std::string p = addSlash(path);
  Source* best = nullptr;
  for (Source& s : sources_)
    if (below(p, s.path) && (!best || s.path.size() > best->path.size())) best = &s;
  if (!best ||
      !findTreemapFolder(*best->tree, std::string_view(p).substr(best->path.size()), place.chain))
    return nullptr;
  place.tree = best->tree;
  place.top = best->path;
  return best;
}

TreemapPlace TreemapStore::find(const std::string& path) const {
  TreemapPlace place;
  if (!const_cast<TreemapStore*>(this)->sourceOf(path, place)) return {};
  return place;
}

TreemapTree& TreemapStore::writable(Source& s) {
  // A worker still draws the old one: it keeps it, and the edit goes to a copy.
  if (s.tree.use_count() > 1) s.tree = std::make_shared<TreemapTree>(*s.tree);
  return *s.tree;
}

void TreemapStore::removeFolder(const std::string& path) {
  TreemapPlace place;
  Source* s = sourceOf(path, place);
  if (!s) return;
  if (place.chain.size() == 1) {
    sources_.erase(sources_.begin() + (s - sources_.data()));
    return;
  }
  place.tree.reset();
  TreemapTree& tree = writable(*s);
  const uint32_t gone = place.folder();
  addUp(tree, tree.parents[gone], -tree.folders[gone].bytes);
  // The folder stays in its parent's list, empty: nothing draws or counts it.
  std::vector<uint32_t> waiting{gone};
  while (!waiting.empty()) {
    TreemapFolder& f = tree.folders[waiting.back()];
    waiting.pop_back();
    f.bytes = 0;
    f.fileCount = 0;
    waiting.insert(waiting.end(), f.children.begin(), f.children.end());
  }
}

void TreemapStore::removeFile(const std::string& folder, std::string_view name, int64_t size) {
  TreemapPlace place;
  Source* s = sourceOf(folder, place);
  if (!s) return;
  place.tree.reset();
  char lower[64];
  const std::string_view extension(lower, lowerExtension(typeExtension(name), lower, sizeof lower));
  TreemapTree& tree = writable(*s);
  TreemapFolder& f = tree.folders[place.folder()];
  const uint32_t begin = f.firstFile, end = f.firstFile + f.fileCount;
  // Files keep no name: one of the same size and extension stands for it (they draw alike).
  uint32_t at = end;
  for (uint32_t k = begin; k < end && at == end; ++k)
    if (TreemapTree::ownSize(tree.files[k]) == size &&
        tree.extensionName(tree.extensions[k]) == extension)
      at = k;
  for (uint32_t k = begin; k < end && at == end; ++k)
    if (TreemapTree::ownSize(tree.files[k]) == size) at = k;
  if (at == end) return;
  const int64_t counted = TreemapTree::sizeOf(tree.files[at]);
  // The rest moves up and stays largest first; the last place is left to nobody.
  std::rotate(tree.files.begin() + at, tree.files.begin() + at + 1, tree.files.begin() + end);
  std::rotate(tree.extensions.begin() + at, tree.extensions.begin() + at + 1,
              tree.extensions.begin() + end);
  --f.fileCount;
  addUp(tree, place.folder(), -counted);
}

void TreemapStore::keepOnly(const std::vector<std::string>& paths) {
  std::erase_if(sources_, [&](const Source& s) {
    return std::none_of(paths.begin(), paths.end(),
                        [&](const std::string& p) { return addSlash(p) == s.path; });
  });
}

size_t TreemapStore::memoryUse() const {
  size_t bytes = 0;
  for (const Source& s : sources_) {
    const TreemapTree& t = *s.tree;
    bytes += t.files.capacity() * sizeof(uint64_t) + t.extensions.capacity() * sizeof(uint16_t) +
             t.folders.capacity() * sizeof(TreemapFolder) +
             t.parents.capacity() * 2 * sizeof(uint32_t);
    for (const TreemapFolder& f : t.folders)
      bytes += f.name.capacity() > 15 ? f.name.capacity() : 0;
  }
  return bytes;
}

}  // namespace ql
