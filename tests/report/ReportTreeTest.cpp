// The report tree's structure operations, paths, percentages and per-level sorting.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "output/BranchCopy.h"
#include "report/ReportCommands.h"
#include "report/ReportTree.h"

namespace ql {
namespace {

using Kids = std::vector<std::pair<std::string, int64_t>>;
using Names = std::vector<std::string>;

// A one-root branch: name with children of the given sizes.
ReportTree branch(const std::string& name, const Kids& kids) {
  ReportTree b;
  const uint32_t top = b.addChild(kSuperRoot, name, ReportTree::IsFolder);
  int64_t total = 0;
  for (auto& [n, s] : kids) {
    b.setSizeAndFiles(b.addChild(top, n, ReportTree::IsFolder), s, 1);
    total += s;
  }
  b.setSizeAndFiles(top, total, static_cast<int64_t>(kids.size()));
  return b;
}

Names names(const ReportTree& t, uint32_t n) {
  Names out;
  for (uint32_t c : t.children(n)) out.emplace_back(t.text(c));
  return out;
}

void expectRows(const ReportTree& t, uint32_t n) {
  for (size_t i = 0; i < t.children(n).size(); ++i) EXPECT_EQ(t.node(t.children(n)[i]).row, i);
}

// Small branches are copied in, a large one is taken over whole: both land with the same shape.
// Removal keeps the rows and the depth follows what is left.
TEST(ReportTree, BranchesLandAtTheirPlaceWithLevelsAndPathsAndGoAgain) {
  ReportTree t;
  const uint32_t root = t.addRoot("/");
  t.attachBranch(root, 0, branch("usr", {{"lib", 5}, {"bin", 3}}));
  t.attachBranch(root, 0, branch("etc", {}));
  const uint32_t var = t.attachBranch(root, 1, branch("var", {{"log", 7}}));
  EXPECT_EQ(names(t, root), (Names{"etc", "var", "usr"}));
  expectRows(t, root);
  const uint32_t log = t.children(var)[0];
  EXPECT_EQ(t.level(log), 2u);
  EXPECT_EQ(t.parent(log), var);
  // Children of "/" are "/var", not "//var".
  EXPECT_EQ(t.fullPath(log), "/var/log");
  EXPECT_EQ(t.fullPath(log, true), "/var/log/");
  EXPECT_EQ(t.fullPath(log, true, true), "/var/");
  EXPECT_EQ(t.fullPath(root, true), "/");
  EXPECT_EQ(t.preorder()[3], log);  // "/", etc, var, log

  // Names of 255 bytes and more are kept apart; they move with a branch, small or taken over,
  // and a text can be set longer and shorter.
  const std::string longName(300, 'x');
  const uint32_t home = t.addRoot("/home/anna");
  Kids many;
  for (int i = 0; i < 5000; ++i)
    many.emplace_back(i < 4999 ? "d" + std::to_string(i) : longName, i);
  const uint32_t big = t.attachBranch(home, 0, branch("big", many));
  t.attachBranch(home, 0, branch(longName + "s", {{longName + "a", 1}}));
  EXPECT_EQ(names(t, home), (Names{longName + "s", "big"}));
  EXPECT_EQ(t.text(t.children(t.children(home)[0])[0]), longName + "a");
  ASSERT_EQ(t.children(big).size(), 5000u);
  const uint32_t last = t.children(big)[4999];
  EXPECT_EQ(t.text(t.children(big)[4998]), "d4998");
  EXPECT_EQ(t.node(last).size, 4999);
  EXPECT_EQ(t.parent(last), big);
  EXPECT_EQ(t.fullPath(last), "/home/anna/big/" + longName);
  for (const std::string& text : {longName, std::string("d")}) {
    t.setText(big, text);
    EXPECT_EQ(t.text(big), text);
  }
  EXPECT_EQ(t.deepestLevel(), 2u);
  EXPECT_EQ(t.liveCount(), 7u + 1 + 5001 + 2);
  EXPECT_EQ(t.preorder().size(), t.liveCount());  // the blocks' filler is never a row

  t.removeSubtree(root);
  EXPECT_EQ(t.roots().toVector(), std::vector<uint32_t>{home});
  EXPECT_EQ(t.node(home).row, 0u);
  t.clearChildren(big);
  EXPECT_EQ(t.deepestLevel(), 2u);  // home/small/a
  t.removeSubtree(t.children(home)[0]);
  EXPECT_EQ(t.deepestLevel(), 1u);
  t.removeSubtree(home);
  EXPECT_TRUE(t.empty());
  EXPECT_EQ(t.deepestLevel(), 0u);
  EXPECT_EQ(t.liveCount(), 0u);
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
  EXPECT_EQ(t.children(other).size(), 40u);
  EXPECT_EQ(t.text(t.children(other).back()), "c39");
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
  for (auto [name, size] : Kids{{"m", 5}, {"k", 9}, {"e", 5}, {"Q", 1}})
    t.setSizeAndFiles(t.addChild(r2, name, ReportTree::IsFolder), size, 0);
  // Default: size, largest first, on every level; equal sizes keep their order.
  t.sortAll();
  EXPECT_EQ(names(t, r2), (Names{"k", "m", "e", "Q"}));
  // Level 0 by text without regard to case, level 1 by size smallest first.
  t.sorter(0) = {SortField::Text, 0, 1};
  t.sorter(1) = {SortField::Size, 0, 2};
  t.sortAll();
  EXPECT_EQ(t.text(t.roots()[0]), "/A");
  EXPECT_EQ(names(t, r2), (Names{"Q", "m", "e", "k"}));
  t.sorter(1) = {SortField::Text, 1, 1};
  t.sortAll();
  EXPECT_EQ(names(t, r2), (Names{"Q", "m", "k", "e"}));
  expectRows(t, r2);
}

// Children of many parents share one pool: runs that grow, move, shrink and come in with
// branches must keep every list and row right, against a plain model of the same edits.
TEST(ReportTree, ChildListsStayRightThroughInterleavedEditsAndStaySmall) {
  ReportTree t;
  std::vector<uint32_t> parents{t.addRoot("/a"), t.addRoot("/b")};
  std::map<uint32_t, Names> model;
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
      t.removeSubtree(t.children(p)[at]);
      kids.erase(kids.begin() + static_cast<std::ptrdiff_t>(at));
      std::erase_if(parents, [&](uint32_t x) { return !t.isLive(x) && (model.erase(x), true); });
    }
  }
  for (uint32_t p : parents) {
    EXPECT_EQ(names(t, p), model[p]) << t.text(p);
    expectRows(t, p);
  }

  // A folder costs its record, a slot in the pool and its name, with no allocation of its own:
  // under 64 bytes all told.
  ReportTree big;
  std::vector<uint32_t> level{big.addRoot("/big")};
  for (int i = 0; big.liveCount() < 100000; ++i)
    level.push_back(big.addChild(level[static_cast<size_t>(i) / 3],
                                 "dir" + std::to_string(i % 1000), ReportTree::IsFolder));
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
  const auto note = [&](const char* sign, uint32_t n) {
    trace += sign + (n == kSuperRoot ? std::string("*") : std::string(t.text(n)));
  };
  t.forEachPreorder(
      kSuperRoot, [&](uint32_t n) { return note("+", n), n != b; },
      [&](uint32_t n) { note("-", n); });
  EXPECT_EQ(trace, "+*+r+a+a1-a1-a+b+c-c-r-*");
}

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
  // Fresh levels sort largest first, so the first click gives smallest first. The percent title
  // sorts by file count, the file-count title by folder count, the name title without regard to
  // case.
  const std::pair<int, Names> clicks[] = {{2, {"C", "a", "b"}},
                                          {2, {"b", "a", "C"}},
                                          {3, {"b", "a", "C"}},
                                          {4, {"b", "a", "C"}},
                                          {1, {"a", "b", "C"}}};
  for (const auto& [title, order] : clicks) {
    sortByColumnTitle(t, title);
    EXPECT_EQ(names(t, r), order) << title;
  }
  // A level made after an odd number of clicks starts from its own default, largest first,
  // so the next click turns it the other way than the levels above it.
  const uint32_t deep = t.addChild(t.children(r)[0], "x", ReportTree::IsFolder);
  t.addChild(deep, "y1", ReportTree::IsFolder);
  t.addChild(deep, "y2", ReportTree::IsFolder);
  sortByColumnTitle(t, 5);  // the folder-count title: by the bytes of the name
  EXPECT_EQ(names(t, r), (Names{"b", "a", "C"}));
  EXPECT_EQ(t.sorter(1).kind, 0);
  EXPECT_EQ(t.sorter(1).direction, 1);
  EXPECT_EQ(t.sorter(3).direction, 0);
  EXPECT_EQ(names(t, deep), (Names{"y1", "y2"}));
}

}  // namespace
}  // namespace ql
