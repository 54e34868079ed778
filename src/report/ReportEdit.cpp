#include "report/ReportEdit.h"

#include <climits>
#include <vector>

namespace ql {

namespace {
bool add(int64_t a, int64_t b, int64_t& out) { return !__builtin_add_overflow(a, b, &out); }
}  // namespace

bool adjustUp(ReportTree& tree, uint32_t from, const SumChange& change) {
  struct NewSums {
    uint32_t node;
    int64_t size, files, folders;
  };
  std::vector<NewSums> sums;
  // Every folder is checked before the first one changes.
  for (uint32_t n = from; n != kSuperRoot && n != kNoNode; n = tree.parent(n)) {
    const auto& node = tree.node(n);
    NewSums s{n, 0, 0, 0};
    if (!add(node.size, change.size, s.size) || !add(node.files, change.files, s.files) ||
        !add(tree.folders(n), change.folders, s.folders) || s.folders > INT32_MAX || s.folders < INT32_MIN)
      return false;
    sums.push_back(s);
  }
  for (const NewSums& s : sums) {
    tree.setSizeAndFiles(s.node, s.size, s.files);
    if (change.folders != 0 && tree.hasFlag(s.node, ReportTree::HasFolders))
      tree.setFolders(s.node, static_cast<int32_t>(s.folders));
  }
  refreshPercentsUp(tree, from);
  return true;
}

bool removeWithSums(ReportTree& tree, uint32_t node) {
  if (!tree.isLive(node)) return true;
  const uint32_t parent = tree.parent(node);
  if (parent != kSuperRoot) {
    const auto& n = tree.node(node);
    const int64_t folders = tree.isFolder(node) ? 1 + int64_t{tree.folders(node)} : 0;
    if (!adjustUp(tree, parent, SumChange{-n.size, -n.files, -folders})) return false;
  }
  tree.removeSubtree(node);
  return true;
}

uint32_t filesRowOf(const ReportTree& tree, uint32_t folder) {
  for (uint32_t c : tree.children(folder))
    if (!tree.isFolder(c)) return c;
  return kNoNode;
}

void refreshPercentsUp(ReportTree& tree, uint32_t node) {
  for (uint32_t n = node; n != kSuperRoot && n != kNoNode; n = tree.parent(n)) tree.updatePercent(n);
}

}  // namespace ql
