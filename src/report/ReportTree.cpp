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

ReportTree::ReportTree() { clear(); }

void ReportTree::clear() {
  if (observer_) observer_->beginReset();
  nodes_.clear();
  kids_.clear();
  kids_.shrink_to_fit();
  names_.clear();
  longNames_.clear();
  nodes_.push_back(Node{});
  nodes_[0].flags = IsFolder | Expanded;
  live_ = 0;
  deepestLevel_ = 0;
  ++generation_;
  if (observer_) observer_->endReset();
}

void ReportTree::storeName(Node& n, std::string_view text) {
  if (text.size() >= kLongName) {
    n.nameOffset = static_cast<uint32_t>(longNames_.size());
    n.nameLength = kLongName;
    longNames_.emplace_back(text);
    return;
  }
  n.nameOffset = static_cast<uint32_t>(names_.appendRun(text.data(), text.size(), '\0'));
  n.nameLength = static_cast<uint8_t>(text.size());
}

uint32_t ReportTree::newNode(uint32_t parent, std::string_view text, uint16_t flags, uint32_t level) {
  if (nodes_.size() >= kNoNode - 1 || names_.size() + text.size() + decltype(names_)::kBlock > UINT32_MAX ||
      kids_.size() >= kFree - 1)
    throw std::length_error("report tree is full");
  const auto index = static_cast<uint32_t>(nodes_.size());
  Node n;
  n.parent = parent;
  n.level = level;
  n.flags = flags;
  storeName(n, text);
  nodes_.push_back(n);
  ++live_;
  if (parent != kSuperRoot) deepestLevel_ = std::max(deepestLevel_, n.level);
  return index;
}

// Puts `kid` into the parent's run at `position`. A run grows into a free slot behind it or at
// the pool's end; otherwise it moves to the end with as much room again, so growing a run one
// child at a time costs a constant per child.
void ReportTree::insertKid(uint32_t parent, size_t position, uint32_t kid) {
  Node& p = nodes_[parent];
  const uint32_t count = p.kidsCount;
  if (count == 0) {
    p.kidsOffset = static_cast<uint32_t>(kids_.size());
    kids_.push_back(kFree);
  } else if (p.kidsOffset + count == kids_.size()) {
    kids_.push_back(kFree);
  } else if (kids_[p.kidsOffset + count] != kFree) {
    const auto moved = static_cast<uint32_t>(kids_.size());
    kids_.resize(kids_.size() + 2 * size_t{count}, kFree);
    std::copy_n(kids_.begin() + p.kidsOffset, count, kids_.begin() + moved);
    std::fill_n(kids_.begin() + p.kidsOffset, count, kFree);
    p.kidsOffset = moved;
  }
  auto first = kids_.begin() + p.kidsOffset;
  std::copy_backward(first + static_cast<std::ptrdiff_t>(position), first + count, first + count + 1);
  first[static_cast<std::ptrdiff_t>(position)] = kid;
  p.kidsCount = count + 1;
}

void ReportTree::eraseKid(uint32_t parent, size_t position) {
  Node& p = nodes_[parent];
  auto first = kids_.begin() + p.kidsOffset;
  std::copy(first + static_cast<std::ptrdiff_t>(position) + 1, first + p.kidsCount,
            first + static_cast<std::ptrdiff_t>(position));
  first[p.kidsCount - 1] = kFree;
  --p.kidsCount;
}

void ReportTree::freeKids(uint32_t node) {
  Node& n = nodes_[node];
  std::fill_n(kids_.begin() + n.kidsOffset, n.kidsCount, kFree);
  n.kidsCount = 0;
  n.kidsOffset = 0;
}

uint32_t ReportTree::addRoot(std::string_view text, int image) {
  const int row = static_cast<int>(roots().size());
  if (observer_) observer_->beginInsert(kSuperRoot, row, row);
  const uint32_t i = newNode(kSuperRoot, text, IsFolder | Expanded | HasFolders, 0);
  nodes_[i].row = static_cast<uint32_t>(row);
  nodes_[i].percent = 100;
  if (image >= 0 && image < 9) nodes_[i].image = static_cast<int8_t>(image);
  insertKid(kSuperRoot, static_cast<size_t>(row), i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::addChild(uint32_t parent, std::string_view text, uint16_t flags) {
  const int row = static_cast<int>(nodes_[parent].kidsCount);
  if (observer_) observer_->beginInsert(parent, row, row);
  const uint32_t i = newNode(parent, text, flags, parent == kSuperRoot ? 0 : nodes_[parent].level + 1);
  nodes_[i].row = static_cast<uint32_t>(row);
  insertKid(parent, static_cast<size_t>(row), i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::addDetached(std::string_view text, uint16_t flags, uint32_t level) {
  const uint32_t i = newNode(kNoNode, text, flags, level);
  deepestLevel_ = std::max(deepestLevel_, level);
  return i;
}

void ReportTree::setChildren(uint32_t node, const uint32_t* kids, size_t count) {
  if (nodes_[node].kidsCount != 0) throw std::logic_error("the node has children");
  if (count == 0) return;
  if (kids_.size() + count >= kFree - 1) throw std::length_error("report tree is full");
  nodes_[node].kidsOffset = static_cast<uint32_t>(kids_.size());
  nodes_[node].kidsCount = static_cast<uint32_t>(count);
  kids_.insert(kids_.end(), kids, kids + count);
  for (size_t r = 0; r < count; ++r) {
    nodes_[kids[r]].parent = node;
    nodes_[kids[r]].row = static_cast<uint32_t>(r);
  }
}

uint32_t ReportTree::attachBranch(uint32_t parent, size_t position, ReportTree&& branch) {
  if (branch.roots().size() != 1) throw std::logic_error("a branch has exactly one root");
  const size_t count = branch.nodes_.size() - 1;
  if (nodes_.size() + count >= kNoNode - 1 || names_.size() + branch.names_.size() + 2 * decltype(names_)::kBlock > UINT32_MAX ||
      kids_.size() + branch.kids_.size() >= kFree - 1)
    throw std::length_error("report tree is full");
  position = std::min<size_t>(position, nodes_[parent].kidsCount);
  if (observer_)
    observer_->beginInsert(parent, static_cast<int>(position), static_cast<int>(position));

  const uint32_t levelBase = parent == kSuperRoot ? 0 : nodes_[parent].level + 1;
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
  const Node& bs = branch.nodes_[kSuperRoot];
  std::fill_n(kids_.begin() + kidBase + bs.kidsOffset, bs.kidsCount, kFree);
  for (size_t i = kidBase; i < kids_.size(); ++i)
    if (kids_[i] != kFree) kids_[i] += base;
  for (size_t i = 1; i <= count; ++i) {
    Node& n = branch.nodes_[i];
    n.parent = n.parent == kSuperRoot ? parent : n.parent == kNoNode ? kNoNode : n.parent + base;
    if (n.nameLength == kLongName)
      n.nameOffset += longBase;
    else if (adopt)
      n.nameOffset += nameBase;
    n.kidsOffset = n.kidsCount ? n.kidsOffset + kidBase : 0;
    n.level += levelBase;
    if (!(n.flags & Dead)) {
      ++live_;
      deepestLevel_ = std::max(deepestLevel_, n.level);
    }
    if (!adopt) {
      if (n.nameLength != kLongName && n.nameLength != 0) {
        const std::string_view name(branch.names_.data(n.nameOffset), n.nameLength);
        n.nameOffset = static_cast<uint32_t>(names_.appendRun(name.data(), name.size(), '\0'));
      }
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
  forEachPreorder(top, [this](uint32_t n) {
    nodes_[n].flags |= Dead;
    --live_;
    return true;
  }, [this](uint32_t n) { freeKids(n); });
}

void ReportTree::removeSubtree(uint32_t node) {
  if (node == kSuperRoot || node >= nodes_.size() || (nodes_[node].flags & Dead)) return;
  const uint32_t p = nodes_[node].parent;
  const uint32_t row = nodes_[node].row;
  if (observer_) observer_->beginRemove(p, static_cast<int>(row), static_cast<int>(row));
  markDead(node);
  eraseKid(p, row);
  renumber(p, row);
  if (roots().empty()) deepestLevel_ = 0;
  if (observer_) observer_->endRemove();
}

void ReportTree::clearChildren(uint32_t node) {
  const uint32_t count = nodes_[node].kidsCount;
  if (count == 0) return;
  if (observer_) observer_->beginRemove(node, 0, static_cast<int>(count) - 1);
  for (uint32_t c : children(node).toVector()) markDead(c);
  freeKids(node);
  if (roots().empty()) deepestLevel_ = 0;
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
  if (n.nameLength == kLongName && text.size() >= kLongName) {
    longNames_[n.nameOffset] = text;
  } else if (n.nameLength != kLongName && text.size() <= n.nameLength) {
    std::copy(text.begin(), text.end(), names_.data(n.nameOffset));
    n.nameLength = static_cast<uint8_t>(text.size());
  } else {
    storeName(n, text);
  }
  if (observer_) observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::setFlag(uint32_t i, Flag f, bool on) {
  Node& n = nodes_[i];
  const uint16_t before = n.flags;
  n.flags = on ? (n.flags | f) : (n.flags & ~f);
  if (observer_ && before != n.flags && f != Expanded)
    observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::setSizeAndFiles(uint32_t i, int64_t size, int64_t files) {
  nodes_[i].size = size;
  nodes_[i].files = files;
  if (observer_)
    observer_->valuesChanged(nodes_[i].parent, static_cast<int>(nodes_[i].row),
                             static_cast<int>(nodes_[i].row));
}

void ReportTree::setFolders(uint32_t i, int32_t folders) {
  nodes_[i].folders = folders;
  nodes_[i].flags |= HasFolders;
  if (observer_)
    observer_->valuesChanged(nodes_[i].parent, static_cast<int>(nodes_[i].row),
                             static_cast<int>(nodes_[i].row));
}

void ReportTree::setPercent(uint32_t i, double percent) {
  nodes_[i].percent = percent;
  if (observer_)
    observer_->valuesChanged(nodes_[i].parent, static_cast<int>(nodes_[i].row),
                             static_cast<int>(nodes_[i].row));
}

void ReportTree::updatePercent(uint32_t node) {
  const ChildList kids = children(node);
  if (kids.empty()) return;
  const int64_t total = nodes_[node].size;
  for (uint32_t c : kids) {
    const int64_t s = nodes_[c].size;
    nodes_[c].percent = (total == 0 || s == 0) ? 0.0 : static_cast<double>(s) * 100.0 / total;
  }
  if (observer_) observer_->valuesChanged(node, 0, static_cast<int>(kids.size()) - 1);
}

SortDefinition& ReportTree::sorter(uint32_t level) {
  if (level >= sorters_.size()) sorters_.resize(std::max<size_t>(256, level + 1));
  return sorters_[level];
}

void ReportTree::sortAll() {
  if (observer_) observer_->beginReorder();
  for (uint32_t p = 0; p < nodes_.size(); ++p) {
    const Node& parent = nodes_[p];
    if (parent.kidsCount < 2) continue;
    const std::span<uint32_t> kids(kids_.data() + parent.kidsOffset, parent.kidsCount);
    const SortDefinition def = sorter(nodes_[kids[0]].level);
    const bool desc = def.direction == 1;
    auto numeric = [&](uint32_t n) -> int64_t {
      switch (def.field) {
        case SortField::Size: return nodes_[n].size;
        case SortField::Files: return nodes_[n].files;
        case SortField::Folders: return nodes_[n].folders;
        case SortField::Text: break;
      }
      return 0;
    };
    if (def.field == SortField::Text && def.kind == 1) {
      // Text order as a person reads it: decoded, without regard to case.
      std::vector<std::pair<QString, uint32_t>> decorated;
      decorated.reserve(kids.size());
      for (uint32_t k : kids) {
        const auto t = text(k);
        decorated.emplace_back(QFile::decodeName(QByteArray(t.data(), static_cast<int>(t.size()))), k);
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
  if (observer_) observer_->endReorder();
}

size_t ReportTree::memoryBytes() const {
  size_t bytes = nodes_.capacityBytes() + names_.capacityBytes() + kids_.capacity() * sizeof(uint32_t);
  for (const auto& name : longNames_) bytes += sizeof name + name.capacity();
  return bytes;
}

}  // namespace ql
