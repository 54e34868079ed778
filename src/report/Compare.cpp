#include "report/Compare.h"

#include <algorithm>
#include <cstdint>

namespace ql {

namespace {

// A child as it is matched: files rows and folders never match each other, whatever their names.
struct Key {
  bool folder;
  std::string_view name;
  uint32_t position;  // among its parent's children
  bool operator<(const Key& o) const {
    return folder != o.folder ? folder < o.folder : name < o.name;
  }
};

void setSide(CompareRow& row, const ReportTree& tree, uint32_t node, bool isNew) {
  const auto& n = tree.node(node);
  (isNew ? row.newNode : row.oldNode) = node;
  (isNew ? row.hasNew : row.hasOld) = true;
  (isNew ? row.newSize : row.oldSize) = n.size;
  (isNew ? row.newFiles : row.oldFiles) = n.files;
}

// What a folder holds beside its subfolders: where a side has no files row for it.
void setOwnFiles(CompareRow& row, const ReportTree& tree, uint32_t folder, bool isNew) {
  int64_t size = tree.node(folder).size, files = tree.node(folder).files;
  for (uint32_t kid : tree.children(folder)) {
    size -= tree.node(kid).size;
    files -= tree.node(kid).files;
  }
  (isNew ? row.hasNew : row.hasOld) = true;
  (isNew ? row.newSize : row.oldSize) = size;
  (isNew ? row.newFiles : row.oldFiles) = files;
}

}  // namespace

std::vector<CompareRow> compareTrees(const ReportTree& oldTree, uint32_t oldRoot,
                                     const ReportTree& newTree, uint32_t newRoot,
                                     uint32_t maxLevel) {
  std::vector<CompareRow> rows;
  std::vector<CompareRow> pending;  // rows still to write, the next one last
  {
    CompareRow root;
    setSide(root, oldTree, oldRoot, false);
    setSide(root, newTree, newRoot, true);
    pending.push_back(root);
  }
  std::vector<Key> olds;
  std::vector<char> matched;
  std::vector<CompareRow> kids;
  while (!pending.empty()) {
    const CompareRow row = pending.back();
    pending.pop_back();
    rows.push_back(row);
    if (row.filesRow || row.level >= maxLevel) continue;

    kids.clear();
    const ChildList oldKids =
        row.oldNode != kNoNode ? oldTree.children(row.oldNode) : ChildList(nullptr, 0);
    const ChildList newKids =
        row.newNode != kNoNode ? newTree.children(row.newNode) : ChildList(nullptr, 0);
    // The old children sorted by name, so that each new child finds its match in log time.
    olds.clear();
    for (uint32_t i = 0; i < oldKids.size(); ++i)
      olds.push_back({oldTree.isFolder(oldKids[i]), oldTree.text(oldKids[i]), i});
    std::sort(olds.begin(), olds.end(), [](const Key& a, const Key& b) {
      return a < b || (!(b < a) && a.position < b.position);
    });
    matched.assign(oldKids.size(), 0);
    size_t newFilesRow = SIZE_MAX;  // among kids
    for (uint32_t n : newKids) {
      CompareRow kid;
      kid.level = row.level + 1;
      kid.filesRow = !newTree.isFolder(n);
      setSide(kid, newTree, n, true);
      const Key key{!kid.filesRow, newTree.text(n), 0};
      // Two children of one name (an export may hold them) pair up in order.
      for (auto it = std::lower_bound(olds.begin(), olds.end(), key);
           it != olds.end() && !(key < *it); ++it) {
        if (matched[it->position]) continue;
        matched[it->position] = 1;
        setSide(kid, oldTree, oldKids[it->position], false);
        break;
      }
      kids.push_back(kid);
      if (kid.filesRow) newFilesRow = kids.size() - 1;
    }
    if (newFilesRow != SIZE_MAX && !kids[newFilesRow].hasOld && row.oldNode != kNoNode)
      setOwnFiles(kids[newFilesRow], oldTree, row.oldNode, false);
    for (uint32_t i = 0; i < oldKids.size(); ++i) {
      if (matched[i]) continue;
      CompareRow kid;
      kid.level = row.level + 1;
      kid.filesRow = !oldTree.isFolder(oldKids[i]);
      setSide(kid, oldTree, oldKids[i], false);
      if (kid.filesRow && row.newNode != kNoNode) setOwnFiles(kid, newTree, row.newNode, true);
      kids.push_back(kid);
    }
    pending.insert(pending.end(), kids.rbegin(), kids.rend());
  }
  return rows;
}

}  // namespace ql
