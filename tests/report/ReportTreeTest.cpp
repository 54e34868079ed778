// The report tree's structure operations, paths, percentages and per-level sorting.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "output/BranchCopy.h"
#include "report/ReportCommands.h"
#include "report/ReportTree.h"

namespace ql {
namespace {

// A one-root branch: name with children of the given sizes.
ReportTree branch(const std::string& name, std::vector<std::pair<std::string, int64_t>> kids) {
  ReportTree b;
  const uint32_t top = b.addChild(kSuperRoot, name, ReportTree::IsFolder);
  int64_t total = 0;
  for (auto& [n, s] : kids) {
    const uint32_t c = b.addChild(top, n, ReportTree::IsFolder);
    b.setSizeAndFiles(c, s, 1);
    total += s;
  }
  b.setSizeAndFiles(top, total, static_cast<int64_t>(kids.size()));
  return b;
}

std::vector<std::string> names(const ReportTree& t, uint32_t n) {
  std::vector<std::string> out;
  for (uint32_t c : t.children(n)) out.emplace_back(t.text(c));
  return out;
}

TEST(ReportTree, BranchesLandAtTheirPlaceWithLevelsAndPaths) {
  ReportTree t;
  const uint32_t root = t.addRoot("/");
  t.attachBranch(root, 0, branch("usr", {{"lib", 5}, {"bin", 3}}));
  t.attachBranch(root, 0, branch("etc", {}));
  const uint32_t var = t.attachBranch(root, 1, branch("var", {{"log", 7}}));
  EXPECT_EQ(names(t, root), (std::vector<std::string>{"etc", "var", "usr"}));
  for (size_t i = 0; i < t.children(root).size(); ++i) EXPECT_EQ(t.node(t.children(root)[i]).row, i);
  const uint32_t log = t.children(var)[0];
  EXPECT_EQ(t.level(log), 2u);
  EXPECT_EQ(t.parent(log), var);
  EXPECT_EQ(t.deepestLevel(), 2u);
  // Children of "/" are "/var", not "//var".
  EXPECT_EQ(t.fullPath(log), "/var/log");
  EXPECT_EQ(t.fullPath(log, true), "/var/log/");
  EXPECT_EQ(t.fullPath(log, true, true), "/var/");
  EXPECT_EQ(t.fullPath(root, true), "/");
  EXPECT_EQ(t.liveCount(), 7u);
  EXPECT_EQ(t.preorder().size(), 7u);
  EXPECT_EQ(t.preorder()[3], log);  // "/", etc, var, log

  const uint32_t home = t.addRoot("/home/anna");
  const uint32_t docs = t.addChild(home, "docs", ReportTree::IsFolder);
  EXPECT_EQ(t.fullPath(docs), "/home/anna/docs");
  EXPECT_EQ(t.level(docs), 1u);
}

TEST(ReportTree, ALargeBranchIsTakenOverWithTheSameShapeAsACopiedOne) {
  ReportTree t;
  const uint32_t root = t.addRoot("/r");
  t.attachBranch(root, 0, branch("small", {{"a", 1}}));
  std::vector<std::pair<std::string, int64_t>> many;
  for (int i = 0; i < 5000; ++i) many.emplace_back("d" + std::to_string(i), i);
  const uint32_t big = t.attachBranch(root, 0, branch("big", many));
  t.attachBranch(root, 2, branch("after", {{"z", 9}}));
  EXPECT_EQ(names(t, root), (std::vector<std::string>{"big", "small", "after"}));
  ASSERT_EQ(t.children(big).size(), 5000u);
  const uint32_t last = t.children(big)[4999];
  EXPECT_EQ(t.text(last), "d4999");
  EXPECT_EQ(t.node(last).size, 4999);
  EXPECT_EQ(t.parent(last), big);
  EXPECT_EQ(t.level(last), 2u);
  EXPECT_EQ(t.fullPath(t.children(t.children(root)[2])[0]), "/r/after/z");
  EXPECT_EQ(t.liveCount(), 1u + 2 + 5001 + 2);
  EXPECT_EQ(t.preorder().size(), t.liveCount());  // the blocks' filler is never a row
}

// A folder count lives with the children's run: it must survive the run being made, moved by
// growth, emptied and cleared, and a node without children holds one too.
TEST(ReportTree, FolderCountsSurviveEveryChangeOfTheRun) {
  ReportTree t;
  const uint32_t top = t.addDetached("top", ReportTree::IsFolder);
  t.setFolders(top, 7);  // before its children, as the walk does
  const uint32_t kid = t.addDetached("kid", ReportTree::IsFolder);
  t.setFolders(kid, 3);  // no children of its own
  t.setChildren(top, &kid, 1);
  EXPECT_EQ(t.folders(top), 7);
  EXPECT_EQ(t.folders(kid), 3);
  const uint32_t root = t.addRoot("/r");
  t.setFolders(root, 5);
  const uint32_t other = t.addRoot("/o");
  for (int i = 0; i < 40; ++i) t.addChild(other, "c" + std::to_string(i), ReportTree::IsFolder);
  for (int i = 0; i < 40; ++i) t.addChild(root, "d" + std::to_string(i), ReportTree::IsFolder);
  EXPECT_EQ(t.folders(root), 5);  // the runs grew past each other and moved
  EXPECT_EQ(t.folders(other), 0);
  for (uint32_t c : t.children(root).toVector()) t.removeSubtree(c);
  EXPECT_EQ(t.folders(root), 5);  // kept until counted again
  t.addChild(root, "again", ReportTree::IsFolder);
  t.clearChildren(root);
  EXPECT_EQ(t.folders(root), 5);
  t.setFolders(root, 0);
  EXPECT_EQ(t.folders(root), 0);
  EXPECT_EQ(t.children(other).size(), 40u);
  EXPECT_EQ(t.text(t.children(other).back()), "c39");
}

TEST(ReportTree, RemovalKeepsRowsAndTheDepthFollowsWhatIsLeft) {
  ReportTree t;
  const uint32_t a = t.addRoot("/a");
  const uint32_t b = t.addRoot("/b");
  t.attachBranch(a, 0, branch("x", {{"y", 1}}));
  t.attachBranch(b, 0, branch("z", {}));
  t.removeSubtree(a);
  EXPECT_EQ(t.roots().toVector(), std::vector<uint32_t>{b});
  EXPECT_EQ(t.node(b).row, 0u);
  EXPECT_EQ(t.liveCount(), 2u);
  EXPECT_EQ(t.deepestLevel(), 1u);  // b/z; a/x/y went with a
  t.clearChildren(b);
  EXPECT_TRUE(t.children(b).empty());
  t.removeSubtree(b);
  EXPECT_TRUE(t.empty());
  EXPECT_EQ(t.deepestLevel(), 0u);
  EXPECT_EQ(t.liveCount(), 0u);
}

TEST(ReportTree, PercentIsAShareOfTheParentAndNeverDividesByZero) {
  ReportTree t;
  const uint32_t r = t.addRoot("/r");
  const uint32_t a = t.addChild(r, "a", ReportTree::IsFolder);
  const uint32_t b = t.addChild(r, "b", ReportTree::IsFolder);
  const uint32_t z = t.addChild(r, "z", ReportTree::IsFolder);
  t.setSizeAndFiles(a, 1, 1);
  t.setSizeAndFiles(b, 3, 1);
  t.setSizeAndFiles(r, 4, 2);
  t.updatePercent(r);
  EXPECT_DOUBLE_EQ(t.percent(a), 25.0);
  EXPECT_DOUBLE_EQ(t.percent(b), 75.0);
  EXPECT_DOUBLE_EQ(t.percent(z), 0.0);
  EXPECT_DOUBLE_EQ(t.percent(r), 100.0);
  // A copy of one branch shows its top row's share of the parent left behind.
  BranchCopy copy(t, b, BranchCopy::Depth::All);
  ASSERT_TRUE(copy.step(100));
  const ReportTree alone = copy.take();
  EXPECT_DOUBLE_EQ(alone.percent(alone.roots()[0]), 75.0);
  t.setSizeAndFiles(r, 0, 0);
  t.updatePercent(r);
  EXPECT_DOUBLE_EQ(t.percent(b), 0.0);
}

TEST(ReportTree, EachLevelSortsByItsOwnDefinitionAndKeepsTies) {
  ReportTree t;
  const uint32_t r1 = t.addRoot("/b");
  const uint32_t r2 = t.addRoot("/A");
  t.attachBranch(r1, 0, branch("x", {}));
  for (auto [name, size] : std::vector<std::pair<std::string, int64_t>>{{"m", 5}, {"k", 9}, {"e", 5}, {"Q", 1}}) {
    const uint32_t c = t.addChild(r2, name, ReportTree::IsFolder);
    t.setSizeAndFiles(c, size, 0);
  }
  // Default: size, largest first, on every level; equal sizes keep their order.
  t.sortAll();
  EXPECT_EQ(names(t, r2), (std::vector<std::string>{"k", "m", "e", "Q"}));
  // Level 0 by text without regard to case, level 1 by size smallest first.
  t.sorter(0) = {SortField::Text, 0, 1};
  t.sorter(1) = {SortField::Size, 0, 2};
  t.sortAll();
  EXPECT_EQ(t.text(t.roots()[0]), "/A");
  EXPECT_EQ(names(t, r2), (std::vector<std::string>{"Q", "m", "e", "k"}));
  t.sorter(1) = {SortField::Text, 1, 1};
  t.sortAll();
  EXPECT_EQ(names(t, r2), (std::vector<std::string>{"Q", "m", "k", "e"}));
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(t.node(t.children(r2)[i]).row, i);
}

TEST(ReportTree, TextsCanBeRenamedLongerAndShorter) {
  ReportTree t;
  const uint32_t r = t.addRoot("/r");
  const uint32_t a = t.addChild(r, "abc", ReportTree::IsFolder);
  const uint32_t b = t.addChild(r, "def", ReportTree::IsFolder);
  t.setText(a, "a much longer name");
  EXPECT_EQ(t.text(a), "a much longer name");
  EXPECT_EQ(t.text(b), "def");
  t.setText(a, "z");
  EXPECT_EQ(t.text(a), "z");
  // Names of 255 bytes and more are kept apart; they move with a branch, small or taken over.
  const std::string longName(300, 'x');
  t.setText(b, longName);
  EXPECT_EQ(t.text(b), longName);
  t.setText(b, "short again");
  EXPECT_EQ(t.text(b), "short again");
  for (const int size : {1, 5000}) {
    std::vector<std::pair<std::string, int64_t>> kids(static_cast<size_t>(size), {"k", 1});
    kids.back().first = longName + std::to_string(size);
    const uint32_t top = t.attachBranch(r, 0, branch(longName, kids));
    EXPECT_EQ(t.text(top), longName);
    EXPECT_EQ(t.text(t.children(top).back()), longName + std::to_string(size));
    EXPECT_EQ(t.text(t.children(top).front()), size == 1 ? longName + "1" : "k");
  }
}

// Children of many parents share one pool: runs that grow, move, shrink and come in with
// branches must keep every list and row right, against a plain model of the same edits.
TEST(ReportTree, ChildListsStayRightThroughInterleavedEditsAndStaySmall) {
  ReportTree t;
  std::vector<uint32_t> parents{t.addRoot("/a"), t.addRoot("/b")};
  std::map<uint32_t, std::vector<std::string>> model;
  std::mt19937 random(7);
  for (int step = 0; step < 3000; ++step) {
    const uint32_t p = parents[random() % parents.size()];
    auto& kids = model[p];
    const unsigned what = random() % 10;
    if (what < 6 || kids.empty()) {
      const std::string name = "n" + std::to_string(step);
      const uint32_t c = t.addChild(p, name, ReportTree::IsFolder);
      kids.push_back(name);
      if (what == 0) parents.push_back(c);
    } else if (what < 8) {
      const size_t at = random() % (kids.size() + 1);
      const std::string name = "b" + std::to_string(step);
      t.attachBranch(p, at, branch(name, {{"x", 1}}));
      kids.insert(kids.begin() + static_cast<std::ptrdiff_t>(at), name);
    } else {
      const size_t at = random() % kids.size();
      const uint32_t gone = t.children(p)[at];
      t.removeSubtree(gone);
      kids.erase(kids.begin() + static_cast<std::ptrdiff_t>(at));
      std::erase_if(parents, [&](uint32_t x) {
        if (t.isLive(x)) return false;
        model.erase(x);
        return true;
      });
    }
  }
  for (uint32_t p : parents) {
    EXPECT_EQ(names(t, p), model[p]) << t.text(p);
    for (size_t r = 0; r < t.children(p).size(); ++r) EXPECT_EQ(t.node(t.children(p)[r]).row, r);
  }

  // A folder costs its record, a slot in the pool and its name, with no allocation of its own:
  // under 64 bytes all told.
  ReportTree big;
  const uint32_t root = big.addRoot("/big");
  std::vector<uint32_t> level{root};
  for (int i = 0; big.liveCount() < 100000; ++i) {
    const uint32_t c = big.addChild(level[static_cast<size_t>(i) / 3], "dir" + std::to_string(i % 1000),
                                    ReportTree::IsFolder);
    level.push_back(c);
  }
  EXPECT_LT(big.memoryBytes() / big.liveCount(), 64u);
}

TEST(ReportTree, PreorderVisitsParentsFirstSkipsOnRequestAndTellsWhenLeft) {
  ReportTree t;
  const uint32_t r = t.addRoot("r");
  const uint32_t a = t.addChild(r, "a", ReportTree::IsFolder);
  t.addChild(a, "a1", ReportTree::IsFolder);
  const uint32_t b = t.addChild(r, "b", ReportTree::IsFolder);
  t.addChild(b, "b1", ReportTree::IsFolder);
  t.addChild(r, "c", ReportTree::IsFolder);
  std::string trace;
  t.forEachPreorder(
      kSuperRoot,
      [&](uint32_t n) {
        trace += n == kSuperRoot ? std::string("*") : "+" + std::string(t.text(n));
        return n != b;
      },
      [&](uint32_t n) { trace += n == kSuperRoot ? std::string("-*") : "-" + std::string(t.text(n)); });
  EXPECT_EQ(trace, "*+r+a+a1-a1-a+b+c-c-r-*");
}

}  // namespace
}  // namespace ql

namespace ql {
namespace {

TEST(ReportCommands, TitleClicksFollowTheKeyMapAndTurnEachLevelOver) {
  ReportTree t;
  const uint32_t r = t.addRoot("/r");
  struct Row {
    const char* name;
    int64_t size, files;
    int32_t folders;
  } rows[] = {{"b", 30, 1, 7}, {"C", 10, 3, 5}, {"a", 20, 2, 6}};
  for (const auto& row : rows) {
    const uint32_t c = t.addChild(r, row.name, ReportTree::IsFolder);
    t.setSizeAndFiles(c, row.size, row.files);
    t.setFolders(c, row.folders);
  }
  // Fresh levels sort largest first, so the first click gives smallest first.
  sortByColumnTitle(t, 2);
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"C", "a", "b"}));
  sortByColumnTitle(t, 2);
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"b", "a", "C"}));
  sortByColumnTitle(t, 3);  // the percent title sorts by file count
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"b", "a", "C"}));
  sortByColumnTitle(t, 4);  // the file-count title sorts by folder count
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"b", "a", "C"}));
  sortByColumnTitle(t, 1);  // by name without regard to case
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"a", "b", "C"}));
  // A level made after an odd number of clicks starts from its own default, largest first,
  // so the next click turns it the other way than the levels above it.
  const uint32_t deep = t.addChild(t.children(r)[0], "x", ReportTree::IsFolder);
  t.addChild(deep, "y1", ReportTree::IsFolder);
  t.addChild(deep, "y2", ReportTree::IsFolder);
  sortByColumnTitle(t, 5);  // the folder-count title: by the bytes of the name
  EXPECT_EQ(names(t, r), (std::vector<std::string>{"b", "a", "C"}));
  EXPECT_EQ(t.sorter(1).kind, 0);
  EXPECT_EQ(t.sorter(1).direction, 1);
  EXPECT_EQ(t.sorter(3).direction, 0);
  EXPECT_EQ(names(t, deep), (std::vector<std::string>{"y1", "y2"}));
}

}  // namespace
}  // namespace ql
