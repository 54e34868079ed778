#include "report/ReportTree.h"

#include <QFile>
#include <QString>
#include <algorithm>
#include <span>
#include <stdexcept>

#include "support/Path.h"

namespace ql {

uint32_t ChildList::at(size_t i) const {
  if (i >= count_) throw std::out_of_range("child row");
  return first_[i];
}

static_assert(sizeof(ReportTree::Node) == 32, "a node record is read for every row: keep it small");

// Out of line: inlined next to children(), GCC 12 takes the run's count for a wild offset and
// warns of a free of a pointer that is not a block's start.
std::vector<uint32_t> ChildList::toVector() const {
  return {begin(), end()};
}

ReportTree::ReportTree() {
  clear();
}

void ReportTree::clear() {
  if (observer_) observer_->beginReset();
  nodes_.clear();
  kids_.clear();
  kids_.shrink_to_fit();
  kids_.assign(kRunHead, 0);  // the empty run every node without children points at
  names_.clear();
  sharedName_ = kNoNode;
  longNames_.clear();
  rootPercents_.clear();
  nodes_.push_back(Node{});
  storeName(nodes_[0], {});
  nodes_[0].flags = IsFolder | Expanded;
  live_ = 0;
  ++generation_;
  if (observer_) observer_->endReset();
}

void ReportTree::storeName(Node& n, std::string_view text) {
  if (text.size() >= kLongLength) {
    n.nameOffset = static_cast<uint32_t>(longNames_.size());
    n.flags |= kLongName;
    longNames_.emplace_back(text);
    return;
  }
  n.flags &= ~kLongName;
  // The files rows of a tree all bear one name: it is kept once, and never changed in place.
  const bool filesRow = !(n.flags & IsFolder);
  if (filesRow && sharedName_ != kNoNode && text == shortName(sharedName_)) {
    n.nameOffset = sharedName_;
    return;
  }
  char run[kLongLength];
  run[0] = static_cast<char>(text.size());
  std::copy(text.begin(), text.end(), run + 1);
  n.nameOffset = static_cast<uint32_t>(names_.appendRun(run, text.size() + 1, '\0'));
  if (filesRow) sharedName_ = n.nameOffset;
}

uint32_t ReportTree::newNode(uint32_t parent, std::string_view text, uint16_t flags) {
  if (nodes_.size() >= kNoNode - 1 ||
      names_.size() + text.size() + decltype(names_)::kBlock > UINT32_MAX ||
      kids_.size() >= kFree - 1)
    throw std::length_error("report tree is full");
  const auto index = static_cast<uint32_t>(nodes_.size());
  Node n;
  n.parent = parent;
  n.flags = flags & kFlagBits;
  storeName(n, text);
  nodes_.push_back(n);
  ++live_;
  return index;
}

// Gives `node` a run of its own at the pool's end with `room` free slots behind what it holds,
// and frees the run it had.
uint32_t ReportTree::newRun(uint32_t node, size_t room) {
  const uint32_t old = nodes_[node].kidsOffset;
  const size_t used = kRunHead + kids_[old];
  if (kids_.size() + used + room >= kFree - 1) throw std::length_error("report tree is full");
  const auto moved = static_cast<uint32_t>(kids_.size());
  kids_.resize(kids_.size() + used + room, kFree);
  std::copy_n(kids_.begin() + old, used, kids_.begin() + moved);
  if (old != 0) std::fill_n(kids_.begin() + old, used, kFree);
  nodes_[node].kidsOffset = moved;
  return moved;
}

// Puts `kid` into the parent's run at `position`. A run grows into a free slot behind it or at
// the pool's end; otherwise it moves to the end with as much room again, so growing a run one
// child at a time costs a constant per child.
void ReportTree::insertKid(uint32_t parent, size_t position, uint32_t kid) {
  uint32_t run = nodes_[parent].kidsOffset;
  const uint32_t count = kids_[run];
  const size_t behind = size_t{run} + kRunHead + count;
  if (run == 0 || (behind < kids_.size() && kids_[behind] != kFree))
    run = newRun(parent, 1 + size_t{count});
  else if (behind == kids_.size())
    kids_.push_back(kFree);
  auto first = kids_.begin() + run + kRunHead;
  std::copy_backward(first + static_cast<std::ptrdiff_t>(position), first + count,
                     first + count + 1);
  first[static_cast<std::ptrdiff_t>(position)] = kid;
  kids_[run] = count + 1;
}

void ReportTree::eraseKid(uint32_t parent, size_t position) {
  const uint32_t count = kidCount(parent);
  if (count == 1 && folders(parent) == 0) return freeKids(parent);
  auto first = kids_.begin() + nodes_[parent].kidsOffset + kRunHead;
  std::copy(first + static_cast<std::ptrdiff_t>(position) + 1, first + count,
            first + static_cast<std::ptrdiff_t>(position));
  first[count - 1] = kFree;
  kids_[nodes_[parent].kidsOffset] = count - 1;
}

void ReportTree::freeKids(uint32_t node) {
  Node& n = nodes_[node];
  if (n.kidsOffset == 0) return;
  std::fill_n(kids_.begin() + n.kidsOffset, kRunHead + kids_[n.kidsOffset], kFree);
  n.kidsOffset = 0;
}

uint32_t ReportTree::addRoot(std::string_view text) {
  const int row = static_cast<int>(roots().size());
  if (observer_) observer_->beginInsert(kSuperRoot, row, row);
  const uint32_t i = newNode(kSuperRoot, text, IsFolder | Expanded | HasFolders);
  nodes_[i].row = static_cast<uint32_t>(row);
  insertKid(kSuperRoot, static_cast<size_t>(row), i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::addChild(uint32_t parent, std::string_view text, uint16_t flags) {
  const int row = static_cast<int>(kidCount(parent));
  if (observer_) observer_->beginInsert(parent, row, row);
  const uint32_t i = newNode(parent, text, flags);
  nodes_[i].row = static_cast<uint32_t>(row);
  insertKid(parent, static_cast<size_t>(row), i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::addDetached(std::string_view text, uint16_t flags) {
  return newNode(kNoNode, text, flags);
}

void ReportTree::setChildren(uint32_t node, const uint32_t* kids, size_t count) {
  if (kidCount(node) != 0) throw std::logic_error("the node has children");
  if (count == 0) return;
  const uint32_t run = newRun(node, 0);  // keeps a folder count set before
  kids_[run] = static_cast<uint32_t>(count);
  kids_.insert(kids_.end(), kids, kids + count);
  for (size_t r = 0; r < count; ++r) {
    nodes_[kids[r]].parent = node;
    nodes_[kids[r]].row = static_cast<uint32_t>(r);
  }
}

uint32_t ReportTree::attachBranch(uint32_t parent, size_t position, ReportTree&& branch) {
  if (branch.roots().size() != 1) throw std::logic_error("a branch has exactly one root");
  const size_t count = branch.nodes_.size() - 1;
  if (nodes_.size() + count >= kNoNode - 1 ||
      names_.size() + branch.names_.size() + 2 * decltype(names_)::kBlock > UINT32_MAX ||
      kids_.size() + branch.kids_.size() >= kFree - 1)
    throw std::length_error("report tree is full");
  position = std::min<size_t>(position, kidCount(parent));
  if (observer_)
    observer_->beginInsert(parent, static_cast<int>(position), static_cast<int>(position));

  // A large branch keeps the memory it was built in: its blocks are taken over whole and its
  // numbers shifted where they stand. Fresh memory costs a page fault per page on first touch,
  // and for a branch of 200,000 folders those faults alone held the window up for 80 ms.
  const bool adopt = count + 1 >= decltype(nodes_)::kBlock;
  if (adopt) {
    Node pad;
    pad.flags = Dead;
    nodes_.padToBlock(pad);
    names_.padToBlock('\0');
  }
  const auto nameBase = static_cast<uint32_t>(names_.size());
  const auto longBase = static_cast<uint32_t>(longNames_.size());
  for (auto& name : branch.longNames_) longNames_.push_back(std::move(name));
  const auto kidBase = static_cast<uint32_t>(kids_.size());
  kids_.insert(kids_.end(), branch.kids_.begin(), branch.kids_.end());
  // Branch index i lands at base + i; a copied branch leaves its super root behind.
  const auto base = static_cast<uint32_t>(nodes_.size()) - (adopt ? 0 : 1);
  const uint32_t top = branch.roots()[0] + base;
  // The branch's super root leaves its run and its empty run behind as free slots.
  const Node& bs = branch.nodes_[kSuperRoot];
  std::fill_n(kids_.begin() + kidBase + bs.kidsOffset, kRunHead + branch.kids_[bs.kidsOffset],
              kFree);
  std::fill_n(kids_.begin() + kidBase, kRunHead, kFree);
  for (size_t i = 1; i <= count; ++i) {
    Node& n = branch.nodes_[i];
    n.parent = n.parent == kSuperRoot ? parent : n.parent == kNoNode ? kNoNode : n.parent + base;
    if (n.flags & kLongName)
      n.nameOffset += longBase;
    else if (adopt)
      n.nameOffset += nameBase;
    if (n.kidsOffset != 0) {
      n.kidsOffset += kidBase;
      auto run = kids_.begin() + n.kidsOffset;
      for (auto k = run + kRunHead, end = run + kRunHead + *run; k != end; ++k) *k += base;
    }
    if (!(n.flags & Dead)) ++live_;
    if (!adopt) {
      if (!(n.flags & kLongName)) storeName(n, branch.shortName(n.nameOffset));
      nodes_.push_back(n);
    }
  }
  if (adopt) {
    names_.adoptBlocks(std::move(branch.names_));
    branch.nodes_[kSuperRoot] = Node{};
    branch.nodes_[kSuperRoot].flags = Dead;
    nodes_.adoptBlocks(std::move(branch.nodes_));
  }
  insertKid(parent, position, top);
  renumber(parent, position);
  branch.clear();
  if (observer_) observer_->endInsert();
  return top;
}

void ReportTree::renumber(uint32_t parent, size_t from) {
  const ChildList kids = children(parent);
  for (size_t r = from; r < kids.size(); ++r) nodes_[kids[r]].row = static_cast<uint32_t>(r);
}

void ReportTree::markDead(uint32_t top) {
  forEachPreorder(
      top,
      [this](uint32_t n) {
        nodes_[n].flags |= Dead;
        --live_;
        return true;
      },
      [this](uint32_t n) { freeKids(n); });
}

void ReportTree::removeSubtree(uint32_t node) {
  if (node == kSuperRoot || node >= nodes_.size() || (nodes_[node].flags & Dead)) return;
  const uint32_t p = nodes_[node].parent;
  const uint32_t row = nodes_[node].row;
  if (observer_) observer_->beginRemove(p, static_cast<int>(row), static_cast<int>(row));
  markDead(node);
  eraseKid(p, row);
  renumber(p, row);
  if (observer_) observer_->endRemove();
}

void ReportTree::clearChildren(uint32_t node) {
  const uint32_t count = kidCount(node);
  if (count == 0) return;
  if (observer_) observer_->beginRemove(node, 0, static_cast<int>(count) - 1);
  for (uint32_t c : children(node).toVector()) markDead(c);
  // The folder count stays until the node is counted again.
  const int32_t kept = folders(node);
  freeKids(node);
  if (kept != 0) kids_[newRun(node, 0) + 1] = static_cast<uint32_t>(kept);
  if (observer_) observer_->endRemove();
}

std::vector<uint32_t> ReportTree::preorder() const {
  std::vector<uint32_t> out;
  out.reserve(live_);
  forEachPreorder(kSuperRoot, [&out](uint32_t n) {
    if (n != kSuperRoot) out.push_back(n);
    return true;
  });
  return out;
}

std::string ReportTree::fullPath(uint32_t node, bool withSlash, bool parentOnly) const {
  std::vector<std::string_view> parts;
  if (!parentOnly) parts.push_back(text(node));
  for (uint32_t p = nodes_[node].parent; p != kSuperRoot && p != kNoNode; p = nodes_[p].parent)
    parts.push_back(text(p));
  // One buffer, filled from the root down: joining a copy per level costs the depth squared.
  std::string path;
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
    if (it != parts.rbegin() && (path.empty() || path.back() != '/')) path.push_back('/');
    path.append(*it);
  }
  if (withSlash && (path.empty() || path.back() != '/')) path.push_back('/');
  return path;
}

void ReportTree::setText(uint32_t i, std::string_view text) {
  Node& n = nodes_[i];
  // A short name is never changed in place: files rows share theirs. A rename is rare, and
  // the old bytes stay behind until the tree is cleared.
  if ((n.flags & kLongName) && text.size() >= kLongLength)
    longNames_[n.nameOffset] = text;
  else
    storeName(n, text);
  if (observer_)
    observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::setFlag(uint32_t i, Flag f, bool on) {
  Node& n = nodes_[i];
  const uint32_t before = n.flags;
  n.flags = on ? (n.flags | f) : (n.flags & ~uint32_t{f});
  if (observer_ && before != n.flags && f != Expanded)
    observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::setSizeAndFiles(uint32_t i, int64_t size, int64_t files) {
  nodes_[i].size = size;
  nodes_[i].files = std::clamp<int64_t>(files, -kMaxFiles, kMaxFiles);
  if (observer_)
    observer_->valuesChanged(nodes_[i].parent, static_cast<int>(nodes_[i].row),
                             static_cast<int>(nodes_[i].row));
}

void ReportTree::setFolders(uint32_t i, int32_t folders) {
  const auto count = static_cast<uint32_t>(std::max(folders, 0));
  // A node without children holds a count other than 0 in an empty run of its own.
  if (nodes_[i].kidsOffset != 0 || count != 0) {
    const uint32_t run = nodes_[i].kidsOffset != 0 ? nodes_[i].kidsOffset : newRun(i, 0);
    kids_[run + 1] = count;
  }
  nodes_[i].flags |= HasFolders;
  if (observer_)
    observer_->valuesChanged(nodes_[i].parent, static_cast<int>(nodes_[i].row),
                             static_cast<int>(nodes_[i].row));
}

double ReportTree::percent(uint32_t i) const {
  const uint32_t p = nodes_[i].parent;
  if (p == kSuperRoot) {
    for (const auto& [root, share] : rootPercents_)
      if (root == i) return share;
    return 100;
  }
  if (p == kNoNode) return 0;
  const int64_t total = nodes_[p].size, s = nodes_[i].size;
  return (total == 0 || s == 0) ? 0.0 : static_cast<double>(s) * 100.0 / static_cast<double>(total);
}

void ReportTree::setRootPercent(uint32_t root, double percent) {
  for (auto& [node, share] : rootPercents_)
    if (node == root) return void(share = percent);
  rootPercents_.emplace_back(root, percent);
  if (observer_)
    observer_->valuesChanged(kSuperRoot, static_cast<int>(nodes_[root].row),
                             static_cast<int>(nodes_[root].row));
}

void ReportTree::updatePercent(uint32_t node) {
  const ChildList kids = children(node);
  if (kids.empty()) return;
  if (observer_) observer_->valuesChanged(node, 0, static_cast<int>(kids.size()) - 1);
}

SortDefinition& ReportTree::sorter(uint32_t level) {
  if (level >= sorters_.size()) sorters_.resize(std::max<size_t>(256, level + 1));
  return sorters_[level];
}

uint32_t ReportTree::deepestLevel() const {
  uint32_t deepest = 0, depth = 0;  // depth: the nodes entered, the super root among them
  forEachPreorder(
      kSuperRoot,
      [&](uint32_t n) {
        if (n != kSuperRoot) deepest = std::max(deepest, depth - 1);
        ++depth;
        return true;
      },
      [&](uint32_t) { --depth; });
  return deepest;
}

void ReportTree::sortAll() {
  if (observer_) observer_->beginReorder();
  // Depth first, so that each run is sorted by its level's definition before it is walked.
  uint32_t depth = 0;  // the level of the visited node's children
  forEachPreorder(
      kSuperRoot,
      [&](uint32_t p) {
        sortKids(p, depth);
        ++depth;
        return true;
      },
      [&](uint32_t) { --depth; });
  if (observer_) observer_->endReorder();
}

void ReportTree::sortAllBy(const std::function<int64_t(uint32_t)>& key, bool descending) {
  if (observer_) observer_->beginReorder();
  std::vector<std::pair<int64_t, uint32_t>> decorated;
  forEachPreorder(kSuperRoot, [&](uint32_t p) {
    const uint32_t count = kids_[nodes_[p].kidsOffset];
    if (count < 2) return true;
    uint32_t* kids = kids_.data() + nodes_[p].kidsOffset + kRunHead;
    decorated.clear();
    for (uint32_t r = 0; r < count; ++r) decorated.emplace_back(key(kids[r]), kids[r]);
    std::stable_sort(decorated.begin(), decorated.end(),
                     [descending](const auto& a, const auto& b) {
                       return descending ? a.first > b.first : a.first < b.first;
                     });
    for (uint32_t r = 0; r < count; ++r) kids[r] = decorated[r].second;
    renumber(p, 0);
    return true;
  });
  if (observer_) observer_->endReorder();
}

void ReportTree::sortKids(uint32_t p, uint32_t level) {
  const Node& parent = nodes_[p];
  if (kids_[parent.kidsOffset] < 2) return;
  const std::span<uint32_t> kids(kids_.data() + parent.kidsOffset + kRunHead,
                                 kids_[parent.kidsOffset]);
  const SortDefinition def = sorter(level);
  const bool desc = def.direction == 1;
  auto numeric = [&](uint32_t n) -> int64_t {
    switch (def.field) {
      case SortField::Size:
        return nodes_[n].size;
      case SortField::Files:
        return nodes_[n].files;
      case SortField::Folders:
        return folders(n);
      case SortField::Text:
        break;
    }
    return 0;
  };
  if (def.field == SortField::Text && def.kind == 1) {
    // Text order as a person reads it: decoded, without regard to case.
    std::vector<std::pair<QString, uint32_t>> decorated;
    decorated.reserve(kids.size());
    for (uint32_t k : kids) {
      const auto t = text(k);
      decorated.emplace_back(QFile::decodeName(QByteArray(t.data(), static_cast<int>(t.size()))),
                             k);
    }
    std::stable_sort(decorated.begin(), decorated.end(), [desc](const auto& a, const auto& b) {
      const int c = QString::compare(a.first, b.first, Qt::CaseInsensitive);
      return desc ? c > 0 : c < 0;
    });
    for (size_t r = 0; r < kids.size(); ++r) kids[r] = decorated[r].second;
  } else if (def.field == SortField::Text) {
    std::stable_sort(kids.begin(), kids.end(), [&](uint32_t a, uint32_t b) {
      return desc ? text(a) > text(b) : text(a) < text(b);
    });
  } else {
    std::stable_sort(kids.begin(), kids.end(), [&](uint32_t a, uint32_t b) {
      return desc ? numeric(a) > numeric(b) : numeric(a) < numeric(b);
    });
  }
  renumber(p, 0);
}

size_t ReportTree::memoryBytes() const {
  size_t bytes =
      nodes_.capacityBytes() + names_.capacityBytes() + kids_.capacity() * sizeof(uint32_t);
  for (const auto& name : longNames_) bytes += sizeof name + name.capacity();
  return bytes;
}

}  // namespace ql
