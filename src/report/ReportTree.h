#pragma once
// The report tree: one root per source, one node per folder found, and a "Dateien" pseudo node
// for a folder's own files where a folder also has subfolders. Files themselves are not stored.
//
// Nodes live in one array and refer to each other by 32-bit index; names are bytes in one arena.
// Node 0 is an invisible super root whose children are the roots, so roots and children are
// handled alike. Indices stay valid until clear(); removed nodes are marked dead, not reused.
//
// Threads: a ReportTree belongs to one thread. The walk builds whole branches in private trees on
// worker threads and the owner thread moves them in with attachBranch().

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/ChunkedVector.h"

namespace ql {

inline constexpr uint32_t kNoNode = UINT32_MAX;
inline constexpr uint32_t kSuperRoot = 0;

// Which value a level's sort definition compares. Text is the empty key of the grid.
enum class SortField : uint8_t { Text, Size, Files, Folders };

struct SortDefinition {
  SortField field = SortField::Size;
  int direction = 1;  // 1 largest first, 0 smallest first
  int kind = 2;       // 1 text, 2 number, 0 undefined (plain byte order)
};

// Told about every change, so a view can follow. All calls come in begin/end pairs.
class TreeObserver {
 public:
  virtual ~TreeObserver() = default;
  virtual void beginInsert(uint32_t parent, int first, int last) = 0;
  virtual void endInsert() = 0;
  virtual void beginRemove(uint32_t parent, int first, int last) = 0;
  virtual void endRemove() = 0;
  virtual void beginReorder() = 0;
  virtual void endReorder() = 0;
  virtual void beginReset() = 0;
  virtual void endReset() = 0;
  // Values (sums, percent, text, flags) of these nodes changed; they are siblings.
  virtual void valuesChanged(uint32_t parent, int firstRow, int lastRow) = 0;
};

class ReportTree {
 public:
  enum Flag : uint16_t {
    IsFolder = 1,   // a folder, a junction or a root; 0 for the pseudo node
    Junction = 2,   // a link to a folder or a mount point, shown and never entered
    Expanded = 4,
    Faded = 8,      // row drawn in a grey that darkens with the level
    Dead = 16,
    HasFolders = 32 // the folders count is set (the pseudo node has none)
  };

  struct Node {
    int64_t size = 0;
    int64_t files = 0;
    double percent = 0;
    int32_t folders = 0;
    uint32_t parent = kNoNode;
    uint32_t row = 0;  // position among the parent's children
    uint32_t level = 0;
    uint32_t nameOffset = 0;
    uint32_t nameLength = 0;
    uint16_t flags = 0;
    int8_t image = -1;  // image of the source for a root, -1 otherwise
  };

  ReportTree();

  void setObserver(TreeObserver* observer) { observer_ = observer; }
  bool observed() const { return observer_ != nullptr; }

  // --- structure ---
  uint32_t addRoot(std::string_view text, int image = -1);
  uint32_t addChild(uint32_t parent, std::string_view text, uint16_t flags);
  // Moves the single root of `branch` (and all below it) in as a child of `parent` at `position`
  // among its children. Returns the new index of the branch's root.
  uint32_t attachBranch(uint32_t parent, size_t position, ReportTree&& branch);
  void removeSubtree(uint32_t node);
  void clearChildren(uint32_t node);
  void clear();

  // --- reading ---
  const Node& node(uint32_t i) const { return nodes_[i]; }
  std::string_view text(uint32_t i) const {
    return std::string_view(names_).substr(nodes_[i].nameOffset, nodes_[i].nameLength);
  }
  const std::vector<uint32_t>& children(uint32_t i) const { return children_[i]; }
  const std::vector<uint32_t>& roots() const { return children_[kSuperRoot]; }
  uint32_t parent(uint32_t i) const { return nodes_[i].parent; }
  bool isRoot(uint32_t i) const { return nodes_[i].parent == kSuperRoot; }
  bool isFolder(uint32_t i) const { return nodes_[i].flags & IsFolder; }
  bool hasFlag(uint32_t i, Flag f) const { return nodes_[i].flags & f; }
  size_t liveCount() const { return live_; }
  size_t capacity() const { return nodes_.size(); }
  uint32_t deepestLevel() const { return deepestLevel_; }
  bool empty() const { return roots().empty(); }
  // Goes up with every clear(): a node index kept from before belongs to a tree that is gone.
  uint64_t generation() const { return generation_; }
  // True when the index names a node of this tree that has not been removed.
  bool isLive(uint32_t i) const { return i != kSuperRoot && i < nodes_.size() && !(nodes_[i].flags & Dead); }

  // All live nodes in pre-order: the grid's row numbering.
  std::vector<uint32_t> preorder() const;

  // The path of a node: the texts from its root down, joined with "/".
  std::string Report_GetFullpathOfNode(uint32_t node, bool addSlash = false, bool parentOnly = false) const;

  // --- values ---
  void setText(uint32_t i, std::string_view text);
  void setFlag(uint32_t i, Flag f, bool on);
  void Report_SetNodeSizeAndFilecount(uint32_t i, int64_t size, int64_t files);
  void setFolders(uint32_t i, int32_t folders);
  void setPercent(uint32_t i, double percent);
  // Gives each direct child of `node` its share of `node`'s size.
  void Report_ChangePercentValue(uint32_t node);

  // --- sorting ---
  SortDefinition& sorter(uint32_t level);
  // Sorts the children of every node by the definition of their level (stable).
  void Report_Sort();

  // Rough bytes held, for the benchmark.
  size_t memoryBytes() const;

 private:
  uint32_t newNode(uint32_t parent, std::string_view text, uint16_t flags);
  void renumber(uint32_t parent, size_t from);
  void markDead(uint32_t node);

  ChunkedVector<Node> nodes_;
  ChunkedVector<std::vector<uint32_t>> children_;
  std::string names_;
  std::vector<SortDefinition> sorters_;
  size_t live_ = 0;
  uint32_t deepestLevel_ = 0;
  uint64_t generation_ = 0;
  TreeObserver* observer_ = nullptr;
};

}  // namespace ql
