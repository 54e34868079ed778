#pragma once
// The report tree: one root per source, one node per folder found, and a "Dateien" pseudo node
// for a folder's own files where a folder also has subfolders. Files themselves are not stored.
//
// Nodes live in one array and refer to each other by 32-bit index. A node's children are a run
// in one shared pool behind two words, their count and the node's folder count (a run that must
// grow moves to the pool's end with room to spare); names are bytes in blocks behind a length
// byte, a long name in a list of its own. So a node costs its 32-byte record, one pool slot and
// its name, with no allocation of its own. What can be worked out is not kept: a row's share of
// its parent, a node's level (its parents counted), the folder count of a node without children
// (0).
// Node 0 is an invisible super root whose children are the roots, so roots and children are
// handled alike. Indices stay valid until clear(); removed nodes are marked dead, not reused.
//
// Threads: a ReportTree belongs to one thread. The walk builds whole branches in private trees on
// worker threads and the owner thread moves them in with attachBranch().

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
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
  // Values (sums, shares, text, flags) of these nodes changed; they are siblings.
  virtual void valuesChanged(uint32_t parent, int firstRow, int lastRow) = 0;
};

// The children of a node, in order. Valid until the tree changes.
class ChildList {
 public:
  ChildList(const uint32_t* first, size_t count) : first_(first), count_(count) {}
  const uint32_t* begin() const { return first_; }
  const uint32_t* end() const { return first_ + count_; }
  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  uint32_t operator[](size_t i) const { return first_[i]; }
  uint32_t front() const { return first_[0]; }
  uint32_t back() const { return first_[count_ - 1]; }
  uint32_t at(size_t i) const;
  std::vector<uint32_t> toVector() const;

 private:
  const uint32_t* first_;
  size_t count_;
};

class ReportTree {
 public:
  enum Flag : uint16_t {
    IsFolder = 1,  // a folder, a junction or a root; 0 for the pseudo node
    Junction = 2,  // a link to a folder or a mount point, shown and never entered
    Expanded = 4,
    Faded = 8,  // row drawn in a grey that darkens with the level
    Dead = 16,
    HasFolders = 32  // the folders count is set (the pseudo node has none)
  };

  // Files counted below one node go to 2^55 - 1.
  static constexpr int64_t kMaxFiles = (int64_t{1} << 55) - 1;

  struct Node {
    int64_t size = 0;
    int64_t files : 56 = 0;
    uint64_t flags : 8 = 0;  // Flag bits, and kLongName
    uint32_t parent = kNoNode;
    uint32_t row = 0;         // position among the parent's children
    uint32_t nameOffset = 0;  // of the length byte in the name blocks, or the index of a long name
    uint32_t kidsOffset = 0;  // the children's run in the pool; 0 for none
  };

  ReportTree();

  void setObserver(TreeObserver* observer) { observer_ = observer; }
  bool observed() const { return observer_ != nullptr; }

  // --- structure ---
  uint32_t addRoot(std::string_view text);
  uint32_t addChild(uint32_t parent, std::string_view text, uint16_t flags);
  // Moves the single root of `branch` (and all below it) in as a child of `parent` at `position`
  // among its children. Returns the new index of the branch's root.
  uint32_t attachBranch(uint32_t parent, size_t position, ReportTree&& branch);
  // For a builder that makes nodes bottom-up: a node without a parent yet, and the adoption of
  // finished nodes as a node's children, in order. setChildren is for a node that has no
  // children.
  uint32_t addDetached(std::string_view text, uint16_t flags);
  void setChildren(uint32_t node, const uint32_t* kids, size_t count);
  void removeSubtree(uint32_t node);
  void clearChildren(uint32_t node);
  void clear();

  // --- reading ---
  const Node& node(uint32_t i) const { return nodes_[i]; }
  std::string_view text(uint32_t i) const {
    const Node& n = nodes_[i];
    if (n.flags & kLongName) return longNames_[n.nameOffset];
    return shortName(n.nameOffset);
  }
  ChildList children(uint32_t i) const {
    const uint32_t* run = kids_.data() + nodes_[i].kidsOffset;
    return {run + kRunHead, *run};
  }
  // The folders below a node, all levels down; 0 for a node without children.
  int32_t folders(uint32_t i) const {
    return static_cast<int32_t>(kids_[nodes_[i].kidsOffset + 1]);
  }
  // 0 for a root; the parents are counted, so it costs the depth (or `limit` at most).
  uint32_t level(uint32_t i, uint32_t limit = UINT32_MAX) const {
    uint32_t l = 0;
    for (uint32_t p = nodes_[i].parent; l < limit && p != kSuperRoot && p != kNoNode;
         p = nodes_[p].parent)
      ++l;
    return l;
  }
  ChildList roots() const { return children(kSuperRoot); }
  uint32_t parent(uint32_t i) const { return nodes_[i].parent; }
  bool isRoot(uint32_t i) const { return nodes_[i].parent == kSuperRoot; }
  // The root of the source a live node was found below (the node itself for a root).
  uint32_t rootOf(uint32_t i) const {
    while (!isRoot(i)) i = nodes_[i].parent;
    return i;
  }
  bool isFolder(uint32_t i) const { return nodes_[i].flags & IsFolder; }
  bool hasFlag(uint32_t i, Flag f) const { return nodes_[i].flags & f; }
  size_t liveCount() const { return live_; }
  size_t capacity() const { return nodes_.size(); }
  // The level of the deepest live node; a walk over the whole tree.
  uint32_t deepestLevel() const;
  bool empty() const { return roots().empty(); }
  // Goes up with every clear(): a node index kept from before belongs to a tree that is gone.
  uint64_t generation() const { return generation_; }
  // True when the index names a node of this tree that has not been removed.
  bool isLive(uint32_t i) const {
    return i != kSuperRoot && i < nodes_.size() && !(nodes_[i].flags & Dead);
  }

  // All live nodes in pre-order: the grid's row numbering.
  std::vector<uint32_t> preorder() const;

  // Visits `top` and everything below it depth first, each node before its children, children
  // in order, without recursion. visit(node) returns false to pass over the node's children;
  // leave(node) follows everything below each node for which visit returned true. The visitor
  // may change values and flags, never add or remove nodes. kSuperRoot as top visits it too, then
  // every root.
  template <class Visit, class Leave>
  void forEachPreorder(uint32_t top, Visit&& visit, Leave&& leave) const {
    if (!visit(top)) return;
    std::vector<std::pair<uint32_t, uint32_t>> stack{{top, 0}};  // node, next child
    while (!stack.empty()) {
      auto& [node, next] = stack.back();
      const uint32_t* run = kids_.data() + nodes_[node].kidsOffset;
      if (next == run[0]) {
        const uint32_t done = node;
        stack.pop_back();
        leave(done);
        continue;
      }
      const uint32_t child = run[kRunHead + next++];
      if (visit(child)) stack.emplace_back(child, 0);
    }
  }
  template <class Visit>
  void forEachPreorder(uint32_t top, Visit&& visit) const {
    forEachPreorder(top, std::forward<Visit>(visit), [](uint32_t) {});
  }

  // The path of a node: the texts from its root down, joined with "/".
  std::string fullPath(uint32_t node, bool addSlash = false, bool parentOnly = false) const;

  // --- values ---
  void setText(uint32_t i, std::string_view text);
  void setFlag(uint32_t i, Flag f, bool on);
  void setSizeAndFiles(uint32_t i, int64_t size, int64_t files);
  void setFolders(uint32_t i, int32_t folders);  // at least 0
  // A row's share of its parent's size in percent; a root's is 100 unless set.
  double percent(uint32_t i) const;
  // For a copy whose top rows stand for rows with a parent elsewhere: the share a root shows.
  void setRootPercent(uint32_t root, double percent);
  // Tells an observer that the shares of `node`'s children changed with its size.
  void updatePercent(uint32_t node);

  // --- sorting ---
  SortDefinition& sorter(uint32_t level);
  // Sorts the children of every node by the definition of their level (stable).
  void sortAll();
  // Sorts the children of every node by a value the tree does not hold (a view's column), stably;
  // the levels' definitions stay as they are.
  void sortAllBy(const std::function<int64_t(uint32_t node)>& key, bool descending);

  // Rough bytes held, for the benchmark.
  size_t memoryBytes() const;

 private:
  static constexpr uint32_t kLongName = 64;     // flag: the name is in the list of long names
  static constexpr uint32_t kLongLength = 255;  // names this long and longer are long names
  static constexpr uint32_t kFree = kNoNode;    // a pool slot no run holds
  static constexpr uint32_t kRunHead = 2;       // a run's count and folder count
  static constexpr uint32_t kFlagBits = IsFolder | Junction | Expanded | Faded | Dead | HasFolders;

  uint32_t newNode(uint32_t parent, std::string_view text, uint16_t flags);
  uint32_t newRun(uint32_t node, size_t room);
  void sortKids(uint32_t parent, uint32_t level);
  std::string_view shortName(uint32_t offset) const {
    const char* at = names_.data(offset);
    return {at + 1, static_cast<unsigned char>(*at)};
  }
  void storeName(Node& n, std::string_view text);
  uint32_t kidCount(uint32_t i) const { return kids_[nodes_[i].kidsOffset]; }
  void insertKid(uint32_t parent, size_t position, uint32_t kid);
  void eraseKid(uint32_t parent, size_t position);
  void freeKids(uint32_t node);
  void renumber(uint32_t parent, size_t from);
  void markDead(uint32_t node);

  ChunkedVector<Node, 10> nodes_;
  std::vector<uint32_t> kids_;
  ChunkedVector<char, 12> names_;
  std::vector<std::string> longNames_;
  uint32_t sharedName_ = kNoNode;  // the files rows' name, stored once
  std::vector<std::pair<uint32_t, double>> rootPercents_;  // the roots whose share was set
  std::vector<SortDefinition> sorters_;
  size_t live_ = 0;
  uint64_t generation_ = 0;
  TreeObserver* observer_ = nullptr;
};

}  // namespace ql
