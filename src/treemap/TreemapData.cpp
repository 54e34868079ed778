#include "treemap/TreemapData.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "support/Path.h"

namespace ql {

namespace {

int64_t saturatedAdd(int64_t a, int64_t b) {
  int64_t sum;
  return __builtin_add_overflow(a, b, &sum) ? INT64_MAX : sum;
}

// Byte order with "/" before any other byte: a folder's path comes right before everything below
// it, so sorted paths are the folders depth first.
bool pathBefore(std::string_view a, std::string_view b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    if (a[i] == b[i]) continue;
    if (a[i] == '/') return true;
    if (b[i] == '/') return false;
    return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
  }
  return a.size() < b.size();
}
}  // namespace

TreemapTree::TreemapTree() {
  folders.emplace_back();
  parents.push_back(0);
  extensionId("");
}

TreemapTree& TreemapTree::operator=(const TreemapTree& other) {
  if (this == &other) return *this;
  folders = other.folders;
  parents = other.parents;
  files = other.files;
  extensions = other.extensions;
  extensionNames = other.extensionNames;
  extensionIds_ = other.extensionIds_;
  listChildren();  // the copied spans point into the other tree's list
  return *this;
}

uint32_t TreemapTree::addFolder(uint32_t parent, std::string name) {
  const auto index = static_cast<uint32_t>(folders.size());
  folders.emplace_back().name = std::move(name);
  parents.push_back(parent);
  return index;
}

void TreemapTree::listChildren() {
  // Counted by parent, then placed in folder order: each folder's children keep their order.
  std::vector<uint32_t> start(folders.size() + 1, 0);
  for (size_t i = 1; i < folders.size(); ++i) ++start[parents[i] + 1];
  for (size_t i = 1; i < start.size(); ++i) start[i] += start[i - 1];
  childList_.assign(folders.size() > 0 ? folders.size() - 1 : 0, 0);
  std::vector<uint32_t> next(start.begin(), start.end() - 1);
  for (uint32_t i = 1; i < folders.size(); ++i) childList_[next[parents[i]]++] = i;
  for (size_t i = 0; i < folders.size(); ++i)
    folders[i].children =
        std::span<const uint32_t>(childList_).subspan(start[i], start[i + 1] - start[i]);
}

std::string TreemapTree::pathOf(uint32_t folder) const {
  std::vector<uint32_t> chain;
  for (uint32_t f = folder; f != 0; f = parents[f]) chain.push_back(f);
  std::string path;
  for (size_t i = chain.size(); i-- > 0;) {
    path += folders[chain[i]].name;
    if (i > 0) path += '/';
  }
  return path;
}

void TreemapTree::addPacked(uint32_t folder, uint64_t file, uint16_t extension) {
  TreemapFolder& f = folders[folder];
  if (f.fileCount == 0) f.firstFile = static_cast<uint32_t>(files.size());
  assert(f.firstFile + f.fileCount == files.size());
  files.push_back(file);
  extensions.push_back(extension);
  ++f.fileCount;
}

uint16_t TreemapTree::extensionId(std::string_view extension) {
  const std::string key(extension);
  if (const auto it = extensionIds_.find(key); it != extensionIds_.end()) return it->second;
  if (extensionNames.size() >= kOtherExtension) return kOtherExtension;
  const auto id = static_cast<uint16_t>(extensionNames.size());
  extensionNames.push_back(key);
  extensionIds_.emplace(key, id);
  return id;
}

void TreemapTree::finish() {
  // Size and extension move together; a folder's files are mostly in order already.
  struct Pair {
    uint64_t file;
    uint16_t extension;
  };
  std::vector<Pair> pairs;
  for (TreemapFolder& f : folders) {
    const auto begin = files.begin() + f.firstFile, end = begin + f.fileCount;
    const auto bySize = [](uint64_t a, uint64_t b) { return ownSize(a) > ownSize(b); };
    if (std::is_sorted(begin, end, bySize)) continue;
    pairs.clear();
    for (uint32_t k = f.firstFile; k < f.firstFile + f.fileCount; ++k)
      pairs.push_back({files[k], extensions[k]});
    std::stable_sort(pairs.begin(), pairs.end(),
                     [&](const Pair& a, const Pair& b) { return bySize(a.file, b.file); });
    for (uint32_t k = 0; k < f.fileCount; ++k) {
      files[f.firstFile + k] = pairs[k].file;
      extensions[f.firstFile + k] = pairs[k].extension;
    }
  }
  listChildren();
  // Children come after their parents: summing from the back finishes each before its parent.
  for (size_t i = folders.size(); i-- > 0;) {
    TreemapFolder& f = folders[i];
    int64_t sum = 0;
    for (uint32_t k = 0; k < f.fileCount; ++k)
      sum = saturatedAdd(sum, sizeOf(files[f.firstFile + k]));
    for (uint32_t c : f.children) sum = saturatedAdd(sum, folders[c].bytes);
    f.bytes = sum;
  }
}

std::vector<TypeRow> TreemapTree::typesBelow(uint32_t folder) const {
  struct Sum {
    int64_t files = 0, bytes = 0;
    uint32_t largest = TypeRow::kNoFile, folder = 0;
  };
  // By id; the last one is kOtherExtension's.
  const size_t named = extensionNames.size();
  std::vector<Sum> sums(named + 1);
  std::vector<uint32_t> waiting{folder};
  while (!waiting.empty()) {
    const uint32_t at = waiting.back();
    waiting.pop_back();
    const TreemapFolder& f = folders[at];
    for (uint32_t k = f.firstFile; k < f.firstFile + f.fileCount; ++k) {
      Sum& sum = sums[std::min<size_t>(extensions[k], named)];
      const int64_t size = sizeOf(files[k]);
      ++sum.files;
      sum.bytes = saturatedAdd(sum.bytes, size);
      if (sum.largest == TypeRow::kNoFile || size > sizeOf(files[sum.largest]))
        sum.largest = k, sum.folder = at;
    }
    // Backwards onto the stack, so that folders are met in their order.
    waiting.insert(waiting.end(), f.children.rbegin(), f.children.rend());
  }
  std::vector<TypeRow> rows;
  for (size_t i = 0; i <= named; ++i) {
    const Sum& sum = sums[i];
    if (sum.files == 0) continue;
    const auto id = i == named ? kOtherExtension : static_cast<uint16_t>(i);
    rows.push_back(
        {std::string(extensionName(id)), sum.files, sum.bytes, sum.largest, sum.folder, id});
  }
  std::sort(rows.begin(), rows.end(), [](const TypeRow& a, const TypeRow& b) {
    return a.bytes != b.bytes ? a.bytes > b.bytes : a.extension < b.extension;
  });
  return rows;
}

bool findTreemapFolder(const TreemapTree& tree, std::string_view rest,
                       std::vector<uint32_t>& chain) {
  chain.assign(1, 0);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (name.empty()) continue;
    const auto kids = tree.folders[chain.back()].children;
    const auto it = std::find_if(kids.begin(), kids.end(),
                                 [&](uint32_t k) { return tree.folders[k].name == name; });
    if (it == kids.end()) return false;
    chain.push_back(*it);
  }
  return true;
}

TreemapTree copyTreemap(const TreemapTree& tree, uint32_t top, const TreemapTree* graft,
                        uint32_t at) {
  TreemapTree out;
  // Extension ids of each tree in the new one, made as they are met.
  std::vector<int> ids[2];
  auto copyFiles = [&](const TreemapTree& from, int which, uint32_t folder, uint32_t into) {
    std::vector<int>& map = ids[which];
    const TreemapFolder& f = from.folders[folder];
    for (uint32_t k = f.firstFile; k < f.firstFile + f.fileCount; ++k) {
      const uint16_t id = from.extensions[k];
      if (map.size() <= id) map.resize(size_t{id} + 1, -1);
      if (map[id] < 0) map[id] = out.extensionId(from.extensionName(id));
      out.addPacked(into, from.files[k], static_cast<uint16_t>(map[id]));
    }
  };
  struct Todo {
    const TreemapTree* from;
    uint32_t folder, parent;
  };
  std::vector<Todo> waiting{{&tree, top, UINT32_MAX}};
  while (!waiting.empty()) {
    Todo t = waiting.back();
    waiting.pop_back();
    if (graft && t.from == &tree && t.folder == at) t = {graft, 0, t.parent};
    const TreemapFolder& f = t.from->folders[t.folder];
    const uint32_t index =
        t.parent == UINT32_MAX
            ? 0
            : out.addFolder(
                  t.parent,
                  std::string(t.from == graft && t.folder == 0 ? tree.folders[at].name : f.name));
    copyFiles(*t.from, t.from == &tree ? 0 : 1, t.folder, index);
    for (auto c = f.children.rbegin(); c != f.children.rend(); ++c)
      waiting.push_back({t.from, *c, index});
  }
  out.finish();
  return out;
}

bool cutTreemapTo(TreemapTree& tree, std::string_view top) {
  std::vector<uint32_t> chain;
  if (!findTreemapFolder(tree, top, chain)) return false;  // a leading "/" names no folder
  if (chain.size() > 1) tree = copyTreemap(tree, chain.back());
  return true;
}

TreemapCollector::TreemapCollector(std::string root, bool wantTree, bool wantTypes, bool linksOnce)
    : root_(root.empty()
                ? root
                : addSlash(root.size() > 1 && root.back() == '/' ? root.substr(0, root.size() - 1)
                                                                 : root)),
      wantTree_(wantTree),
      wantTypes_(wantTypes),
      linksOnce_(linksOnce) {}

void TreemapCollector::offer(const FoundFile& file) {
  const std::string_view extension = typeExtension(file.name);
  std::string lower(extension.size(), '\0');  // short enough to stay off the heap
  lowerExtension(extension, lower.data(), lower.size());
  Shard& s = shards_.mine();
  std::lock_guard lock(s.mutex);
  // One look-up serves table and tree: a shard's own id for the extension, and its kind.
  auto [at, made] = s.typeIds.try_emplace(std::move(lower), static_cast<uint32_t>(s.types.size()));
  if (made) s.types.push_back({at->first, kindOfExtension(at->first)});
  Type& type = s.types[at->second];
  ++type.files;
  type.bytes = saturatedAdd(type.bytes, file.size);
  // As the walk counts: only names of a file that holds a byte.
  const bool linked = linksOnce_ && file.nlink > 1 && file.size > 0;
  if (!wantTree_ && !linked) return;
  const std::string_view folder =
      std::string_view(file.folder).substr(std::min(root_.size(), file.folder.size()));
  if (s.lastSize == UINT32_MAX || std::string_view(s.paths).substr(s.lastAt) != folder) {
    s.lastAt = s.paths.size();
    s.lastSize = static_cast<uint32_t>(folder.size());
    s.paths.append(folder);
    if (wantTree_)
      s.runs.push_back(Run{s.lastAt, s.lastSize, static_cast<uint32_t>(s.files.size()), 0});
  }
  if (linked)
    s.linked.push_back({file.device, file.ino, file.size, s.lastAt, s.lastSize, at->second,
                        static_cast<uint32_t>(s.files.size())});
  if (!wantTree_) return;
  ++s.runs.back().count;
  s.files.push_back(TreemapTree::pack(file.size, type.kind));
  s.extensions.push_back(at->second);
}

void TreemapCollector::settleLinks() {
  if (std::exchange(settled_, true)) return;
  struct Name {
    const Linked* link;
    uint32_t shard;
    std::string_view path;
  };
  std::vector<Name> names;
  auto& shards = shards_.all();
  for (uint32_t i = 0; i < shards.size(); ++i)
    for (const Linked& l : shards[i].linked)
      names.push_back({&l, i, std::string_view(shards[i].paths).substr(l.pathAt, l.pathSize)});
  // By file, then in the order the tree is merged in: folders by path, a folder's names as
  // listed (they all lie in one shard, in order).
  std::sort(names.begin(), names.end(), [](const Name& a, const Name& b) {
    if (a.link->device != b.link->device) return a.link->device < b.link->device;
    if (a.link->inode != b.link->inode) return a.link->inode < b.link->inode;
    if (pathBefore(a.path, b.path) || pathBefore(b.path, a.path)) return pathBefore(a.path, b.path);
    return a.shard != b.shard ? a.shard < b.shard : a.link < b.link;
  });
  for (size_t i = 1; i < names.size(); ++i) {
    const Linked &l = *names[i].link, &previous = *names[i - 1].link;
    if (l.device != previous.device || l.inode != previous.inode) continue;
    Shard& s = shards[names[i].shard];
    s.types[l.type].bytes -= l.size;
    if (wantTree_) s.files[l.file] |= TreemapTree::kFurtherName;
  }
  for (Shard& s : shards) std::vector<Linked>().swap(s.linked);
}

TreemapTree TreemapCollector::takeTree() {
  settleLinks();
  struct Piece {
    std::string_view path;  // "a/b/", "" for the walked folder
    const Shard* shard;
    const Run* run;
  };
  std::vector<Piece> pieces;
  size_t fileCount = 0, runCount = 0;
  // The room the shards grew into goes first, one shard at a time, before the tree takes its own.
  for (Shard& s : shards_.all()) {
    s.paths.shrink_to_fit();
    s.runs.shrink_to_fit();
    s.files.shrink_to_fit();
    s.extensions.shrink_to_fit();
    runCount += s.runs.size();
  }
  pieces.reserve(runCount);
  for (const Shard& s : shards_.all()) {
    fileCount += s.files.size();
    for (const Run& r : s.runs)
      pieces.push_back({std::string_view(s.paths).substr(r.pathAt, r.pathSize), &s, &r});
  }
  // A folder's files come from one thread, so pieces of one path all lie in one shard, in order.
  std::stable_sort(pieces.begin(), pieces.end(),
                   [](const Piece& a, const Piece& b) { return pathBefore(a.path, b.path); });

  TreemapTree tree;
  tree.files.reserve(fileCount);
  tree.extensions.reserve(fileCount);
  // Most folders hold files of their own: room for one a piece, grown only for the others.
  tree.folders.reserve(pieces.size() + 1);
  tree.parents.reserve(pieces.size() + 1);
  // Ids by bytes, largest first: should there be more extensions than ids, the smallest share one.
  std::vector<std::vector<uint32_t>> rank;
  const std::vector<TypeRow> rows = merged(&rank);
  std::vector<uint16_t> idOfRank(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) idOfRank[i] = tree.extensionId(rows[i].extension);
  struct Open {
    uint32_t folder;
    size_t length;  // of its path, without the closing "/"
  };
  std::vector<Open> open{{0, 0}};
  std::string_view current;
  for (const Piece& p : pieces) {
    const std::string_view path = p.path.empty() ? p.path : p.path.substr(0, p.path.size() - 1);
    auto holds = [&](const Open& o) {
      return o.length == 0 || (path.size() >= o.length &&
                               path.compare(0, o.length, current.substr(0, o.length)) == 0 &&
                               (path.size() == o.length || path[o.length] == '/'));
    };
    while (!holds(open.back())) open.pop_back();
    // Folders that hold no file of their own are made on the way down.
    for (size_t at = open.back().length; at < path.size();) {
      if (at > 0 || path[0] == '/') ++at;
      const size_t end = std::min(path.find('/', at), path.size());
      open.push_back(
          {tree.addFolder(open.back().folder, std::string(path.substr(at, end - at))), end});
      at = end;
    }
    current = path;
    const size_t shard = static_cast<size_t>(p.shard - shards_.all().data());
    for (uint32_t i = p.run->first; i < p.run->first + p.run->count; ++i) {
      tree.addPacked(open.back().folder, p.shard->files[i],
                     idOfRank[rank[shard][p.shard->extensions[i]]]);
    }
  }
  for (Shard& s : shards_.all()) {
    std::lock_guard lock(s.mutex);
    std::string().swap(s.paths);
    s.lastSize = UINT32_MAX;
    std::vector<Run>().swap(s.runs);
    std::vector<uint64_t>().swap(s.files);
    std::vector<uint32_t>().swap(s.extensions);
  }
  tree.finish();
  return tree;
}

std::vector<TypeRow> TreemapCollector::merged(std::vector<std::vector<uint32_t>>* rank) const {
  std::unordered_map<std::string_view, uint32_t> rowOf;
  std::vector<TypeRow> rows;
  std::vector<std::vector<uint32_t>> rowOfType;
  for (const Shard& s : shards_.all()) {
    std::vector<uint32_t>& into = rowOfType.emplace_back();
    for (const Type& t : s.types) {
      const auto [at, made] = rowOf.try_emplace(t.name, static_cast<uint32_t>(rows.size()));
      if (made) rows.push_back({t.name});
      TypeRow& sum = rows[at->second];
      sum.files += t.files;
      sum.bytes = saturatedAdd(sum.bytes, t.bytes);
      into.push_back(at->second);
    }
  }
  std::vector<uint32_t> order(rows.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    const TypeRow &x = rows[a], &y = rows[b];
    return x.bytes != y.bytes ? x.bytes > y.bytes : x.extension < y.extension;
  });
  std::vector<TypeRow> sorted;
  sorted.reserve(rows.size());
  std::vector<uint32_t> placeOf(rows.size());
  for (uint32_t i = 0; i < order.size(); ++i) {
    placeOf[order[i]] = i;
    sorted.push_back(std::move(rows[order[i]]));
  }
  if (rank) {
    for (std::vector<uint32_t>& shard : rowOfType)
      for (uint32_t& r : shard) r = placeOf[r];
    *rank = std::move(rowOfType);
  }
  return sorted;
}

std::vector<TypeRow> TreemapCollector::types() {
  settleLinks();
  return merged(nullptr);
}

}  // namespace ql
