#include "ui/TreemapStore.h"

#include <algorithm>

#include "support/Path.h"

namespace ql {

namespace {
// `path` lies in or below `top` (both with "/").
bool below(const std::string& path, const std::string& top) {
  return path.size() >= top.size() && path.compare(0, top.size(), top) == 0;
}

}  // namespace

bool findTreemapFolder(const TreemapTree& tree, std::string_view rest, std::vector<uint32_t>& chain) {
  chain.assign(1, 0);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (name.empty()) continue;
    const std::vector<uint32_t>& kids = tree.folders[chain.back()].children;
    const auto it = std::find_if(kids.begin(), kids.end(),
                                 [&](uint32_t k) { return tree.folders[k].name == name; });
    if (it == kids.end()) return false;
    chain.push_back(*it);
  }
  return true;
}

namespace {
void addUp(TreemapTree& tree, const std::vector<uint32_t>& chain, size_t upTo, int64_t delta) {
  for (size_t i = 0; i < upTo; ++i) tree.folders[chain[i]].bytes += delta;
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
  if (!best || !findTreemapFolder(*best->tree, std::string_view(p).substr(best->path.size()), place.chain))
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
  // A worker still lays out the old one: it keeps it, and the edit goes to a copy.
  if (s.tree.use_count() > 1) s.tree = std::make_shared<TreemapTree>(*s.tree);
  return *s.tree;
}

void TreemapStore::graft(const std::string& path, TreemapTree fresh) {
  TreemapPlace place;
  Source* s = sourceOf(path, place);
  if (!s) return;  // nothing kept there: a later full read brings it
  if (place.chain.size() == 1) {
    put(path, std::move(fresh));
    return;
  }
  place.tree.reset();
  TreemapTree& tree = writable(*s);
  const uint32_t at = place.folder();
  const int64_t delta = fresh.folders[0].bytes - tree.folders[at].bytes;
  // The new folders and files go at the end, so each folder's files still lie together and
  // children still follow their parents; the old ones stay behind, unreached.
  const auto base = static_cast<uint32_t>(tree.folders.size() - 1);
  const auto fileBase = static_cast<uint32_t>(tree.files.size());
  auto index = [&](uint32_t k) { return k == 0 ? at : base + k; };
  tree.files.insert(tree.files.end(), fresh.files.begin(), fresh.files.end());
  std::string name = std::move(tree.folders[at].name);
  for (uint32_t k = 0; k < fresh.folders.size(); ++k) {
    TreemapFolder f = std::move(fresh.folders[k]);
    f.firstFile += fileBase;
    for (uint32_t& c : f.children) c = index(c);
    if (k == 0) {
      f.name = std::move(name);
      tree.folders[at] = std::move(f);
    } else {
      tree.folders.push_back(std::move(f));
    }
  }
  addUp(tree, place.chain, place.chain.size() - 1, delta);
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
  std::erase(tree.folders[place.chain[place.chain.size() - 2]].children, gone);
  addUp(tree, place.chain, place.chain.size() - 1, -tree.folders[gone].bytes);
}

void TreemapStore::removeFile(const std::string& folder, std::string_view name, int64_t size) {
  TreemapPlace place;
  Source* s = sourceOf(folder, place);
  if (!s) return;
  place.tree.reset();
  char lower[16];
  const FileKind kind =
      kindOfExtension({lower, lowerExtension(typeExtension(name), lower, sizeof lower)});
  TreemapTree& tree = writable(*s);
  TreemapFolder& f = tree.folders[place.folder()];
  const auto begin = tree.files.begin() + f.firstFile, end = begin + f.fileCount;
  // Files keep no name: one of the same size and kind stands for it (they are drawn alike).
  auto it = std::find_if(begin, end, [&](uint64_t file) {
    return TreemapTree::sizeOf(file) == size && TreemapTree::kindOf(file) == kind;
  });
  if (it == end)
    it = std::find_if(begin, end, [&](uint64_t file) { return TreemapTree::sizeOf(file) == size; });
  if (it == end) return;
  std::rotate(it, it + 1, end);  // the rest stays largest first
  --f.fileCount;
  addUp(tree, place.chain, place.chain.size(), -size);
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
    bytes += s.tree->files.capacity() * sizeof(uint64_t) +
             s.tree->folders.capacity() * sizeof(TreemapFolder);
    for (const TreemapFolder& f : s.tree->folders)
      bytes += f.children.capacity() * sizeof(uint32_t) +
               (f.name.capacity() > 15 ? f.name.capacity() : 0);
  }
  return bytes;
}

TreemapTree treemapSubtree(const TreemapTree& tree, uint32_t folder) {
  TreemapTree out;
  out.folders.clear();
  std::vector<std::pair<uint32_t, uint32_t>> todo{{folder, UINT32_MAX}};  // old index, new parent
  while (!todo.empty()) {
    const auto [old, parent] = todo.back();
    todo.pop_back();
    const TreemapFolder& f = tree.folders[old];
    const auto index = static_cast<uint32_t>(out.folders.size());
    TreemapFolder& n = out.folders.emplace_back();
    n.name = f.name;
    n.bytes = f.bytes;
    n.firstFile = static_cast<uint32_t>(out.files.size());
    n.fileCount = f.fileCount;
    out.files.insert(out.files.end(), tree.files.begin() + f.firstFile,
                     tree.files.begin() + f.firstFile + f.fileCount);
    if (parent != UINT32_MAX) out.folders[parent].children.push_back(index);
    for (auto c = f.children.rbegin(); c != f.children.rend(); ++c) todo.emplace_back(*c, index);
  }
  return out;
}

}  // namespace ql
