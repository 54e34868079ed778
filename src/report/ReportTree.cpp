#include "report/ReportTree.h"

#include <QFile>
#include <QString>
#include <algorithm>
#include <stdexcept>

#include "support/Path.h"

namespace ql {

ReportTree::ReportTree() { clear(); }

void ReportTree::clear() {
  if (observer_) observer_->beginReset();
  nodes_.clear();
  children_.clear();
  names_.clear();
  nodes_.push_back(Node{});
  nodes_[0].flags = IsFolder | Expanded;
  children_.emplace_back();
  live_ = 0;
  deepestLevel_ = 0;
  ++generation_;
  if (observer_) observer_->endReset();
}

uint32_t ReportTree::newNode(uint32_t parent, std::string_view text, uint16_t flags) {
  if (nodes_.size() >= kNoNode - 1 || names_.size() + text.size() > UINT32_MAX)
    throw std::length_error("report tree is full");
  const auto index = static_cast<uint32_t>(nodes_.size());
  Node n;
  n.parent = parent;
  n.level = parent == kSuperRoot ? 0 : nodes_[parent].level + 1;
  n.nameOffset = static_cast<uint32_t>(names_.size());
  n.nameLength = static_cast<uint32_t>(text.size());
  n.flags = flags;
  names_.append(text);
  nodes_.push_back(n);
  children_.emplace_back();
  ++live_;
  if (parent != kSuperRoot) deepestLevel_ = std::max(deepestLevel_, n.level);
  return index;
}

uint32_t ReportTree::addRoot(std::string_view text, int image) {
  const int row = static_cast<int>(roots().size());
  if (observer_) observer_->beginInsert(kSuperRoot, row, row);
  const uint32_t i = newNode(kSuperRoot, text, IsFolder | Expanded | HasFolders);
  nodes_[i].row = static_cast<uint32_t>(row);
  nodes_[i].percent = 100;
  if (image >= 0 && image < 9) nodes_[i].image = static_cast<int8_t>(image);
  children_[kSuperRoot].push_back(i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::addChild(uint32_t parent, std::string_view text, uint16_t flags) {
  const int row = static_cast<int>(children_[parent].size());
  if (observer_) observer_->beginInsert(parent, row, row);
  const uint32_t i = newNode(parent, text, flags);
  nodes_[i].row = static_cast<uint32_t>(row);
  children_[parent].push_back(i);
  if (observer_) observer_->endInsert();
  return i;
}

uint32_t ReportTree::attachBranch(uint32_t parent, size_t position, ReportTree&& branch) {
  if (branch.roots().size() != 1) throw std::logic_error("a branch has exactly one root");
  const size_t count = branch.nodes_.size() - 1;
  if (nodes_.size() + count >= kNoNode - 1 || names_.size() + branch.names_.size() > UINT32_MAX)
    throw std::length_error("report tree is full");
  position = std::min(position, children_[parent].size());
  if (observer_)
    observer_->beginInsert(parent, static_cast<int>(position), static_cast<int>(position));

  const uint32_t levelBase = parent == kSuperRoot ? 0 : nodes_[parent].level + 1;
  const auto nameBase = static_cast<uint32_t>(names_.size());
  names_.append(branch.names_);
  // A large branch keeps the memory it was built in: its blocks are taken over whole and its
  // numbers shifted where they stand. Fresh memory costs a page fault per page on first touch,
  // and for a branch of 200,000 folders those faults alone held the window up for 80 ms.
  const bool adopt = count + 1 >= decltype(nodes_)::kBlock;
  if (adopt) {
    Node pad;
    pad.flags = Dead;
    nodes_.padToBlock(pad);
    children_.padToBlock({});
  }
  // Branch index i lands at base + i; a copied branch leaves its super root behind.
  const auto base = static_cast<uint32_t>(nodes_.size()) - (adopt ? 0 : 1);
  const uint32_t top = branch.children_[kSuperRoot][0] + base;
  for (size_t i = 1; i <= count; ++i) {
    Node& n = branch.nodes_[i];
    n.parent = n.parent == kSuperRoot ? parent : n.parent + base;
    n.nameOffset += nameBase;
    n.level += levelBase;
    if (!(n.flags & Dead)) {
      ++live_;
      deepestLevel_ = std::max(deepestLevel_, n.level);
    }
    for (auto& k : branch.children_[i]) k += base;
    if (!adopt) {
      nodes_.push_back(n);
      children_.push_back(std::move(branch.children_[i]));
    }
  }
  if (adopt) {
    branch.nodes_[kSuperRoot] = Node{};
    branch.nodes_[kSuperRoot].flags = Dead;
    branch.children_[kSuperRoot].clear();
    nodes_.adoptBlocks(std::move(branch.nodes_));
    children_.adoptBlocks(std::move(branch.children_));
  }
  auto& siblings = children_[parent];
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(position), top);
  renumber(parent, position);
  branch.clear();
  if (observer_) observer_->endInsert();
  return top;
}

void ReportTree::renumber(uint32_t parent, size_t from) {
  auto& kids = children_[parent];
  for (size_t r = from; r < kids.size(); ++r) nodes_[kids[r]].row = static_cast<uint32_t>(r);
}

void ReportTree::markDead(uint32_t top) {
  std::vector<uint32_t> stack{top};
  while (!stack.empty()) {
    const uint32_t n = stack.back();
    stack.pop_back();
    nodes_[n].flags |= Dead;
    --live_;
    for (uint32_t c : children_[n]) stack.push_back(c);
    children_[n].clear();
    children_[n].shrink_to_fit();
  }
}

void ReportTree::removeSubtree(uint32_t node) {
  if (node == kSuperRoot || node >= nodes_.size() || (nodes_[node].flags & Dead)) return;
  const uint32_t p = nodes_[node].parent;
  const uint32_t row = nodes_[node].row;
  if (observer_) observer_->beginRemove(p, static_cast<int>(row), static_cast<int>(row));
  markDead(node);
  auto& siblings = children_[p];
  siblings.erase(siblings.begin() + row);
  renumber(p, row);
  if (roots().empty()) deepestLevel_ = 0;
  if (observer_) observer_->endRemove();
}

void ReportTree::clearChildren(uint32_t node) {
  auto& kids = children_[node];
  if (kids.empty()) return;
  if (observer_) observer_->beginRemove(node, 0, static_cast<int>(kids.size()) - 1);
  for (uint32_t c : std::vector<uint32_t>(kids)) markDead(c);
  children_[node].clear();
  if (roots().empty()) deepestLevel_ = 0;
  if (observer_) observer_->endRemove();
}

std::vector<uint32_t> ReportTree::preorder() const {
  std::vector<uint32_t> out;
  out.reserve(live_);
  std::vector<uint32_t> stack(roots().rbegin(), roots().rend());
  while (!stack.empty()) {
    const uint32_t n = stack.back();
    stack.pop_back();
    out.push_back(n);
    const auto& kids = children_[n];
    stack.insert(stack.end(), kids.rbegin(), kids.rend());
  }
  return out;
}

std::string ReportTree::Report_GetFullpathOfNode(uint32_t node, bool withSlash, bool parentOnly) const {
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
  if (text.size() <= n.nameLength) {
    names_.replace(n.nameOffset, text.size(), text);
  } else {
    n.nameOffset = static_cast<uint32_t>(names_.size());
    names_.append(text);
  }
  n.nameLength = static_cast<uint32_t>(text.size());
  if (observer_) observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::setFlag(uint32_t i, Flag f, bool on) {
  Node& n = nodes_[i];
  const uint16_t before = n.flags;
  n.flags = on ? (n.flags | f) : (n.flags & ~f);
  if (observer_ && before != n.flags && f != Expanded)
    observer_->valuesChanged(n.parent, static_cast<int>(n.row), static_cast<int>(n.row));
}

void ReportTree::Report_SetNodeSizeAndFilecount(uint32_t i, int64_t size, int64_t files) {
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

void ReportTree::Report_ChangePercentValue(uint32_t node) {
  const auto& kids = children_[node];
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

void ReportTree::Report_Sort() {
  if (observer_) observer_->beginReorder();
  for (uint32_t p = 0; p < nodes_.size(); ++p) {
    auto& kids = children_[p];
    if (kids.size() < 2) continue;
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
  size_t bytes = nodes_.capacityBytes() + names_.capacity() + children_.capacityBytes();
  for (size_t i = 0; i < children_.size(); ++i) bytes += children_[i].capacity() * sizeof(uint32_t);
  return bytes;
}

}  // namespace ql
