#include "treemap/TreemapData.h"

#include <algorithm>
#include <cassert>

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

uint32_t TreemapTree::addFolder(uint32_t parent, std::string name) {
  const auto index = static_cast<uint32_t>(folders.size());
  folders.emplace_back().name = std::move(name);
  folders[parent].children.push_back(index);
  return index;
}

void TreemapTree::addFile(uint32_t folder, int64_t size, FileKind kind) {
  TreemapFolder& f = folders[folder];
  if (f.fileCount == 0) f.firstFile = static_cast<uint32_t>(files.size());
  assert(f.firstFile + f.fileCount == files.size());
  files.push_back(pack(size, kind));
  ++f.fileCount;
}

void TreemapTree::finish() {
  for (TreemapFolder& f : folders) {
    const auto begin = files.begin() + f.firstFile;
    std::stable_sort(begin, begin + f.fileCount,
                     [](uint64_t a, uint64_t b) { return sizeOf(a) > sizeOf(b); });
  }
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

TreemapCollector::TreemapCollector(std::string root, bool wantTree, bool wantTypes)
    : root_(
          addSlash(root.size() > 1 && root.back() == '/' ? root.substr(0, root.size() - 1) : root)),
      wantTree_(wantTree),
      wantTypes_(wantTypes) {}

void TreemapCollector::offer(const FoundFile& file) {
  const std::string_view extension = typeExtension(file.name);
  std::string lower(extension.size(), '\0');  // short enough to stay off the heap
  lowerExtension(extension, lower.data(), lower.size());
  Shard& s = shards_.mine();
  std::lock_guard lock(s.mutex);
  if (wantTypes_) {
    Count& c = s.types[lower];
    ++c.files;
    c.bytes = saturatedAdd(c.bytes, file.size);
  }
  if (!wantTree_) return;
  const std::string_view folder =
      std::string_view(file.folder).substr(std::min(root_.size(), file.folder.size()));
  if (s.runs.empty() || std::string_view(s.paths).substr(s.runs.back().pathAt) != folder) {
    s.runs.push_back(Run{s.paths.size(), static_cast<uint32_t>(folder.size()),
                         static_cast<uint32_t>(s.files.size()), 0});
    s.paths.append(folder);
  }
  ++s.runs.back().count;
  s.files.push_back(TreemapTree::pack(file.size, kindOfExtension(lower)));
}

TreemapTree TreemapCollector::takeTree() {
  struct Piece {
    std::string_view path;  // "a/b/", "" for the walked folder
    const Shard* shard;
    const Run* run;
  };
  std::vector<Piece> pieces;
  size_t fileCount = 0;
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
    for (uint32_t i = 0; i < p.run->count; ++i) {
      const uint64_t f = p.shard->files[p.run->first + i];
      tree.addFile(open.back().folder, TreemapTree::sizeOf(f), TreemapTree::kindOf(f));
    }
  }
  for (Shard& s : shards_.all()) {
    std::lock_guard lock(s.mutex);
    std::string().swap(s.paths);
    std::vector<Run>().swap(s.runs);
    std::vector<uint64_t>().swap(s.files);
  }
  tree.finish();
  return tree;
}

std::vector<TypeRow> TreemapCollector::types() const {
  std::unordered_map<std::string, Count> all;
  for (const Shard& s : shards_.all())
    for (const auto& [extension, c] : s.types) {
      Count& sum = all[extension];
      sum.files += c.files;
      sum.bytes = saturatedAdd(sum.bytes, c.bytes);
    }
  std::vector<TypeRow> rows;
  rows.reserve(all.size());
  for (auto& [extension, c] : all) rows.push_back({extension, c.files, c.bytes});
  std::sort(rows.begin(), rows.end(), [](const TypeRow& a, const TypeRow& b) {
    return a.bytes != b.bytes ? a.bytes > b.bytes : a.extension < b.extension;
  });
  return rows;
}

}  // namespace ql
