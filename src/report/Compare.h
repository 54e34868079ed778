#pragma once
// Two measurements of one folder side by side: the rows of the union of two report trees, each
// folder and each files row once, matched by its path below its root, byte for byte (the roots
// themselves may have any paths). The silent comparison writes these rows; a view can show them.
// Nothing here is read from the disk.

#include <cstdint>
#include <string_view>
#include <vector>

#include "report/ReportTree.h"

namespace ql {

struct CompareRow {
  // The node on each side, kNoNode where there is none.
  uint32_t oldNode = kNoNode, newNode = kNoNode;
  uint32_t level = 0;  // 0 for the root
  // Whether the row has values on each side. A files row that one side lacks while its folder
  // is there has them without a node: the folder's own files, what its subfolders do not hold.
  bool hasOld = false, hasNew = false;
  bool filesRow = false;
  int64_t oldSize = 0, newSize = 0, oldFiles = 0, newFiles = 0;
  // A side without values counts 0: a folder that is new has grown by all it holds.
  int64_t change() const { return newSize - oldSize; }
};

// The rows of the branch of `oldRoot` against the branch of `newRoot`, in pre-order as the report
// writes them: a folder's children in the new tree's order, then those only the old tree has, in
// its order. Rows deeper than `maxLevel` below the root are left out. A renamed folder is one
// row gone and one new row.
std::vector<CompareRow> compareTrees(const ReportTree& oldTree, uint32_t oldRoot,
                                     const ReportTree& newTree, uint32_t newRoot,
                                     uint32_t maxLevel = UINT32_MAX);

// The row's name: the new side's where it has a node, else the old side's.
inline std::string_view compareName(const CompareRow& row, const ReportTree& oldTree,
                                    const ReportTree& newTree) {
  return row.newNode != kNoNode ? newTree.text(row.newNode) : oldTree.text(row.oldNode);
}

}  // namespace ql
