// Measuring one folder again: both strengths, the corrections above it, and removing a source.

#include <QSignalSpy>
#include <climits>

#include "TestFs.h"
#include "report/ReportEdit.h"

namespace ql::test {
namespace {

uint32_t child(const ReportTree& t, uint32_t n, const std::string& name) {
  for (uint32_t c : t.children(n))
    if (t.text(c) == name) return c;
  return kNoNode;
}

// /src: a (a/x 100, a/deep/y 10), b (b/z 5), own file 1, and "link", a link to a.
struct Fixture {
  TempDir d;
  Walked w;
  std::unique_ptr<ScanDriver> driver;
  Fixture() {
    for (const char* dir : {"a", "a/deep", "b"}) makeDir(d / dir);
    makeFile(d / "a/x", 100);
    makeFile(d / "a/deep/y", 10);
    makeFile(d / "b/z", 5);
    makeFile(d / "own", 1);
    EXPECT_EQ(::symlink("a", (d / "link").c_str()), 0);
    ensureApp();
    driver = std::make_unique<ScanDriver>(w.tree, test::testStop);
    driver->sourceQueue().push_back(d.path());
    driver->runToEnd();
    w.root = driver->lastRoot();
  }
  uint32_t row(const std::string& name, uint32_t in = kNoNode) const {
    return child(w.tree, in == kNoNode ? w.root : in, name);
  }
  int64_t size(uint32_t n) const { return w.tree.node(n).size; }
};

TEST(Rescan, FullRescanMovesEverySumAboveByTheDifference) {
  Fixture f;
  const uint32_t a = f.row("a");
  ASSERT_EQ(f.size(f.w.root), 116);
  makeFile(f.d / "a/deep/new", 1000);
  makeDir(f.d / "a/more");
  f.driver->rescan(f.row("deep", a), true, true);
  EXPECT_EQ(f.size(f.w.root), 1116);
  EXPECT_EQ(f.w.tree.node(f.w.root).files, 5);
  EXPECT_EQ(f.size(a), 1110);
  EXPECT_EQ(f.w.tree.folders(a), 1);  // "more" is not seen: only "deep" was measured again
  // Percentages are new on the way up, and the order follows the new sizes.
  EXPECT_EQ(f.w.tree.children(a)[0], f.row("deep", a));
  EXPECT_NEAR(f.w.tree.percent(a), 1110 * 100.0 / 1116, 1e-9);
  EXPECT_FALSE(test::testStop.requested());
  EXPECT_FALSE(f.driver->busy());

  // Now the whole source, from its files row: the row stands for its folder.
  f.driver->rescan(f.row("Dateien"), true, true);
  EXPECT_EQ(f.w.tree.folders(f.w.root), 5);
  EXPECT_EQ(f.w.tree.percent(f.w.root), 100);
}

// The files-only rescan runs off the calling thread and answers through the event loop.
TEST(Rescan, FilesOnlyKeepsSubfolderRowsAndCorrectsUpward) {
  Fixture f;
  const uint32_t a = f.row("a");
  const uint32_t deep = f.row("deep", a);
  makeFile(f.d / "a/x2", 50);
  QSignalSpy done(f.driver.get(), &ScanDriver::rescanFinished);
  ASSERT_TRUE(f.driver->rescan(a, false));
  EXPECT_TRUE(f.driver->busy());
  ASSERT_TRUE(done.wait(10000));
  EXPECT_FALSE(f.driver->busy());
  EXPECT_EQ(f.row("deep", a), deep);  // the same row, untouched
  EXPECT_EQ(f.size(f.row("Dateien", a)), 150);
  EXPECT_EQ(f.size(a), 160);
  EXPECT_EQ(f.size(f.w.root), 166);
  EXPECT_EQ(f.w.tree.node(f.w.root).files, 5);

  // No files left: the row goes and the sums fall by what it held.
  ASSERT_EQ(::unlink((f.d / "a/x").c_str()), 0);
  ASSERT_EQ(::unlink((f.d / "a/x2").c_str()), 0);
  f.driver->rescan(a, false, true);
  EXPECT_EQ(f.row("Dateien", a), kNoNode);
  EXPECT_EQ(f.size(a), 10);
  EXPECT_EQ(f.size(f.w.root), 16);
}

// A leaf's files-only rescan counts its files twice until the parent is read again; a link row
// is never entered; a folder gone since the scan becomes an empty row.
TEST(Rescan, LeavesLinksAndVanishedFolders) {
  Fixture f;
  const uint32_t b = f.row("b");
  f.driver->rescan(b, false, true);
  EXPECT_EQ(f.size(f.row("Dateien", b)), 5);
  EXPECT_EQ(f.size(b), 10);
  EXPECT_EQ(f.size(f.w.root), 121);
  f.driver->rescan(f.w.root, true, true);
  EXPECT_EQ(f.size(f.w.root), 116);
  EXPECT_TRUE(f.w.tree.children(f.row("b")).empty());

  const uint32_t link = f.row("link");
  ASSERT_TRUE(f.w.tree.hasFlag(link, ReportTree::Junction));
  EXPECT_FALSE(f.driver->rescan(link, true, true));
  EXPECT_FALSE(f.driver->rescan(link, false, true));
  EXPECT_EQ(f.size(link), 0);
  EXPECT_EQ(f.size(f.w.root), 116);  // counted once, in "a"
  EXPECT_FALSE(f.driver->busy());

  ASSERT_EQ(std::system(("rm -rf '" + f.d / "a" + "'").c_str()), 0);
  const uint32_t a = f.row("a");
  f.driver->rescan(a, true, true);
  EXPECT_EQ(f.size(a), 0);
  EXPECT_TRUE(f.w.tree.children(a).empty());
  EXPECT_EQ(f.size(f.w.root), 6);
  EXPECT_EQ(f.w.tree.folders(f.w.root), 1 + 0 + 1 + 1);  // a and link stay as rows, deep is gone
}

TEST(Rescan, RemovingTakesTheWholeSource) {
  Fixture f;
  f.driver->sourceQueue().push_back(f.d / "b");
  f.driver->runToEnd();
  ASSERT_EQ(f.w.tree.roots().size(), 2u);
  f.driver->removeSource(f.row("deep", f.row("a")));
  ASSERT_EQ(f.w.tree.roots().size(), 1u);
  EXPECT_EQ(f.w.tree.text(f.w.tree.roots()[0]), f.d / "b");
  f.driver->removeSource(f.w.tree.roots()[0]);
  EXPECT_TRUE(f.w.tree.empty());
  EXPECT_EQ(f.w.tree.deepestLevel(), 0u);
  // Nothing the driver keeps points into a tree that was cleared.
  f.driver->clearAll();
  EXPECT_EQ(f.driver->lastRoot(), kNoNode);
  EXPECT_FALSE(f.driver->rescan(f.w.root, true, true));
}

TEST(Rescan, SumCorrectionsNeverStoreAWrappedValue) {
  ReportTree t;
  const uint32_t root = t.addRoot("/r");
  const uint32_t a = t.addChild(root, "a", ReportTree::IsFolder);
  t.setSizeAndFiles(root, INT64_MAX - 10, 3);
  t.setSizeAndFiles(a, 5, 1);
  EXPECT_FALSE(adjustUp(t, a, SumChange{100, 1, 0}));
  EXPECT_EQ(t.node(root).size, INT64_MAX - 10);  // neither the root nor the row below moved
  EXPECT_EQ(t.node(a).size, 5);
  EXPECT_TRUE(adjustUp(t, a, SumChange{10, 1, 0}));
  EXPECT_EQ(t.node(root).size, INT64_MAX);
  EXPECT_TRUE(removeWithSums(t, a));
  EXPECT_EQ(t.node(root).size, INT64_MAX - 15);
  EXPECT_EQ(t.node(root).files, 2);
}

}  // namespace
}  // namespace ql::test
