#pragma once
// What the treemap and the file-types table are drawn from, collected during the walk.
//
// TreemapTree holds every file's size and kind, 8 bytes a file and no name: the picture needs no
// names, and a pane that shows one folder reads those names itself. Folders hold a name and the
// range of their files, which lie together, largest first (equal sizes in the order the folder
// was listed). Children come after their parents in `folders`.
//
// TreemapCollector is the walk's FileFeed for both. Each worker thread fills a shard of its own
// (files of one folder arrive together from one thread); result() merges the shards in an order
// that does not depend on which thread met what, so tree and table are the same for any number of
// threads.
//
// Threads: offer() from any thread; takeTree() and types() once the walk is over.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scan/FolderWalk.h"
#include "treemap/FileKind.h"

#include "support/ThreadShards.h"

namespace ql {

struct TreemapFolder {
  std::string name;
  int64_t bytes = 0;  // everything below, once finished
  uint32_t firstFile = 0, fileCount = 0;
  std::vector<uint32_t> children;
};

class TreemapTree {
 public:
  static constexpr int64_t kMaxSize = (int64_t{1} << 56) - 1;  // larger sizes are cut to this
  static uint64_t pack(int64_t size, FileKind kind) {
    const uint64_t s = static_cast<uint64_t>(size < 0 ? 0 : size > kMaxSize ? kMaxSize : size);
    return s << 8 | static_cast<uint8_t>(kind);
  }
  static int64_t sizeOf(uint64_t file) { return static_cast<int64_t>(file >> 8); }
  static FileKind kindOf(uint64_t file) { return static_cast<FileKind>(file & 0xff); }

  TreemapTree() { folders.emplace_back(); }
  uint32_t addFolder(uint32_t parent, std::string name);
  // A folder's files must be added one after the other, with no other folder's in between.
  void addFile(uint32_t folder, int64_t size, FileKind kind);
  // Sorts each folder's files and sums the folders; call once all is added.
  void finish();

  std::vector<TreemapFolder> folders;  // [0] is the walked folder
  std::vector<uint64_t> files;         // pack()ed
};

struct TypeRow {
  std::string extension;  // lower case; "" for names without one
  int64_t files = 0;
  int64_t bytes = 0;
};

class TreemapCollector : public FileFeed {
 public:
  // `root` is the walked folder as the walk was given it.
  TreemapCollector(std::string root, bool wantTree, bool wantTypes);

  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile& file) override;

  TreemapTree takeTree();
  // By bytes, largest first; equal ones by extension.
  std::vector<TypeRow> types() const;

 private:
  struct Count {
    int64_t files = 0, bytes = 0;
  };
  struct Run {            // files of one folder, one after the other in the shard
    uint64_t pathAt = 0;  // the folder's path below the walked one, in `paths`
    uint32_t pathSize = 0;
    uint32_t first = 0, count = 0;
  };
  struct alignas(64) Shard {
    std::mutex mutex;
    std::string paths;  // one arena: no allocation per folder
    std::vector<Run> runs;
    std::vector<uint64_t> files;
    std::unordered_map<std::string, Count> types;
  };
  const std::string root_;
  const bool wantTree_, wantTypes_;
  ThreadShards<Shard> shards_;
};

}  // namespace ql
