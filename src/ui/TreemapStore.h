#pragma once
// The treemap trees of the window's sources, found by path, and kept in line with what the
// report does to them: a folder deleted or trashed, files deleted from the file list, a folder
// measured again. The report stays the truth for the sums; this only keeps the picture from
// showing files that are gone. Nothing here refers to a report node: a cleared or rebuilt report
// cannot leave anything pointing into it.
//
// Threads: the user-interface thread only. A tree handed out by find() may be read on a worker
// while the store goes on: an edit then works on a copy of its own (copy on write).

#include <memory>
#include <string>
#include <vector>

#include "treemap/TreemapData.h"

namespace ql {

// A folder of a kept tree, with the chain of folders from the tree's top down to it.
struct TreemapPlace {
  std::shared_ptr<const TreemapTree> tree;  // null: nothing is known there
  std::string top;                          // the path of the tree's folder 0, with "/"
  std::vector<uint32_t> chain;              // folder indices, [0] = 0, back() = the folder
  uint32_t folder() const { return chain.empty() ? 0 : chain.back(); }
};

class TreemapStore {
 public:
  // The files of a source (tree folder 0 stands for `path`); replaces what was kept for it.
  void put(const std::string& path, TreemapTree tree);
  void removeFolder(const std::string& path);
  // One file of this name and size left `folder`.
  void removeFile(const std::string& folder, std::string_view name, int64_t size);
  // Forgets sources whose path is not among these (the report's roots).
  void keepOnly(const std::vector<std::string>& paths);
  void clear() { sources_.clear(); }
  bool empty() const { return sources_.empty(); }

  TreemapPlace find(const std::string& path) const;
  // The bytes the kept trees hold, for the memory figures.
  size_t memoryUse() const;

 private:
  struct Source {
    std::string path;  // with "/"
    std::shared_ptr<TreemapTree> tree;
  };
  Source* sourceOf(const std::string& path, TreemapPlace& place);
  TreemapTree& writable(Source& s);

  std::vector<Source> sources_;
};

}  // namespace ql
