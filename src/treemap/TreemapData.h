#pragma once
// What the treemap and the file-types table are drawn from, collected during the walk.
//
// TreemapTree holds every file's size and kind (8 bytes) and its extension's id (2 bytes), and no
// name: the picture and the types of a folder need no names, and a pane that shows one folder
// reads those names itself. Folders hold a name and the range of their files, which lie together,
// largest first (equal sizes in the order the folder was listed). Children come after their
// parents in `folders`.
//
// Counting a file of several names once, one name carries its bytes and the others are marked as
// further names: they count as files of 0 bytes but keep their own size for their place in the
// folder, so that the folder's names sorted by size still match its files one for one.
//
// TreemapCollector is the walk's FileFeed for both. Each worker thread fills a shard of its own
// (files of one folder arrive together from one thread); takeTree() and types() merge the shards
// in an order that does not depend on which thread met what, so tree and table are the same for
// any number of threads. With links once, the name that counts is the first in path order (the
// order of the merge), chosen there.
//
// Threads: offer() from any thread; takeTree() and types() once the walk is over.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scan/FolderWalk.h"
#include "treemap/FileKind.h"

#include "support/ThreadShards.h"

namespace ql {

// One extension's files below a folder, or in the whole walk.
struct TypeRow {
  static constexpr uint32_t kNoFile = UINT32_MAX;
  std::string extension;  // lower case; "" for names without one
  int64_t files = 0;
  int64_t bytes = 0;
  // The largest file of the extension (the first met of equal ones) and its folder: indexes into
  // the tree's files and folders, kNoFile from TreemapCollector::types().
  uint32_t largestFile = kNoFile, largestFolder = 0;
  uint16_t extensionId = 0;  // in TreemapTree::extensionNames
};

struct TreemapFolder {
  std::string name;
  int64_t bytes = 0;  // everything below, once finished
  uint32_t firstFile = 0, fileCount = 0;
  // Once finished, in the order they were added. One list for the tree rather than a vector a
  // folder: a walk meets about one folder for three files, and a vector each cost a third of the
  // tree.
  std::span<const uint32_t> children;
};

class TreemapTree {
 public:
  static constexpr int64_t kMaxSize = (int64_t{1} << 56) - 1;  // larger sizes are cut to this
  static constexpr uint64_t kFurtherName = 0x80;  // beside the kind: counted under another name
  static uint64_t pack(int64_t size, FileKind kind) {
    const uint64_t s = static_cast<uint64_t>(size < 0 ? 0 : size > kMaxSize ? kMaxSize : size);
    return s << 8 | static_cast<uint8_t>(kind);
  }
  // The bytes the file counts with: 0 for a further name of a file counted once.
  static int64_t sizeOf(uint64_t file) {
    return file & kFurtherName ? 0 : static_cast<int64_t>(file >> 8);
  }
  // The size of the name itself, which orders a folder's files.
  static int64_t ownSize(uint64_t file) { return static_cast<int64_t>(file >> 8); }
  static FileKind kindOf(uint64_t file) { return static_cast<FileKind>(file & 0x7f); }

  // Extension ids: 0 is "" (no extension); a tree holds at most 65,535 names, and the extensions
  // met after that share kOtherExtension, named "..." (which no extension can be: it has a dot).
  static constexpr uint16_t kOtherExtension = 0xffff;
  static constexpr std::string_view kOtherName = "...";

  TreemapTree();
  TreemapTree(const TreemapTree& other) { *this = other; }
  TreemapTree& operator=(const TreemapTree& other);
  TreemapTree(TreemapTree&&) = default;  // the list moves with its buffer: children stay valid
  TreemapTree& operator=(TreemapTree&&) = default;

  uint32_t addFolder(uint32_t parent, std::string name);
  // A folder's files must be added one after the other, with no other folder's in between.
  void addFile(uint32_t folder, int64_t size, FileKind kind, uint16_t extension = 0) {
    addPacked(folder, pack(size, kind), extension);
  }
  void addPacked(uint32_t folder, uint64_t file, uint16_t extension);
  // The id of a lower-case extension, made when new (kOtherExtension once the table is full).
  uint16_t extensionId(std::string_view lowerCaseExtension);
  std::string_view extensionName(uint16_t id) const {
    return id < extensionNames.size() ? std::string_view(extensionNames[id]) : kOtherName;
  }
  // Sorts each folder's files, lists the children and sums the folders; call once all is added.
  void finish();
  // The folder's path below the walked one, "a/b" ("" for the walked one).
  std::string pathOf(uint32_t folder) const;

  // The extensions of the files in `folder` and all below it, ordered as TreemapCollector::types().
  // One pass over those files, nothing kept per folder.
  std::vector<TypeRow> typesBelow(uint32_t folder) const;

  std::vector<TreemapFolder> folders;  // [0] is the walked folder
  std::vector<uint32_t> parents;       // of each folder; [0] is 0
  std::vector<uint64_t> files;         // pack()ed
  std::vector<uint16_t> extensions;    // of each file, beside `files`
  std::vector<std::string> extensionNames;

 private:
  void listChildren();
  std::vector<uint32_t> childList_;
  std::unordered_map<std::string, uint16_t> extensionIds_;
};

// Descends from folder 0 by the names of `below` ("a/b/"): the chain of folders down to it.
// False when a name is not there.
bool findTreemapFolder(const TreemapTree& tree, std::string_view below,
                       std::vector<uint32_t>& chain);

// The folder `top` and all below it as a tree of its own (folder 0 = `top`); with `graft`, the
// folder `at` holds what `graft` holds instead of its own (a folder measured again).
TreemapTree copyTreemap(const TreemapTree& tree, uint32_t top, const TreemapTree* graft = nullptr,
                        uint32_t at = 0);

// A tree collected with no root (an import's: its folder is known only once read) cut to the
// folder `top` as the export names it ("/a/b/"); false when nothing was collected there.
bool cutTreemapTo(TreemapTree& tree, std::string_view top);

class TreemapCollector : public FileFeed {
 public:
  // `root` is the walked folder as the walk was given it, "" for none (the files' folders as they
  // come); `linksOnce` as the walk counts.
  TreemapCollector(std::string root, bool wantTree, bool wantTypes, bool linksOnce = false);

  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile& file) override;

  TreemapTree takeTree();
  // By bytes, largest first; equal ones by extension.
  std::vector<TypeRow> types();

 private:
  struct Type {  // an extension as one shard met it
    std::string name;
    FileKind kind;
    int64_t files = 0, bytes = 0;
  };
  struct Run {            // files of one folder, one after the other in the shard
    uint64_t pathAt = 0;  // the folder's path below the walked one, in `paths`
    uint32_t pathSize = 0;
    uint32_t first = 0, count = 0;
  };
  struct Linked {  // a name of a file of several names, with links once
    uint64_t device, inode;
    int64_t size;
    uint64_t pathAt;  // its folder's, as in Run
    uint32_t pathSize;
    uint32_t type;  // in the shard's `types`
    uint32_t file;  // in the shard's `files`, with a tree
  };
  struct alignas(64) Shard {
    std::mutex mutex;
    std::string paths;  // one arena: no allocation per folder
    uint64_t lastAt = 0;  // the path last added to `paths`
    uint32_t lastSize = UINT32_MAX;
    std::vector<Run> runs;
    std::vector<Linked> linked;
    std::vector<uint64_t> files;
    std::vector<uint32_t> extensions;  // beside `files`, into `types`
    std::unordered_map<std::string, uint32_t> typeIds;
    std::vector<Type> types;
  };
  // All shards' types added up, ordered as types(); with `rank`, where each shard's types went.
  std::vector<TypeRow> merged(std::vector<std::vector<uint32_t>>* rank) const;
  // With links once: the further names of each file lose their bytes. Once, before either merge.
  void settleLinks();

  const std::string root_;
  const bool wantTree_, wantTypes_, linksOnce_;
  bool settled_ = false;
  ThreadShards<Shard> shards_;
};

}  // namespace ql
