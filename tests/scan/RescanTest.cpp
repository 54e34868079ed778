// Measuring one folder again: both strengths, the corrections above it, and removing a source.

#include <QSignalSpy>
#include <climits>
#include <fcntl.h>
#include <unistd.h>

#include "TestFs.h"
#include "support/Globals.h"
#include "report/ReportEdit.h"

namespace ql::test {
namespace {

uint32_t child(const ReportTree& t, uint32_t n, const std::string& name) {
  for (uint32_t c : t.children(n))
    if (t.text(c) == name) return c;
  return kNoNode;
}

// /src: a (a/x 100, a/deep/y 10), b (b/z 5), own file 1.
struct Fixture {
  TempDir d;
  Walked w;
  ScanDriver* driver = nullptr;
  Fixture() {
    makeDir(d / "a");
    makeDir(d / "a/deep");
    makeFile(d / "a/x", 100);
    makeFile(d / "a/deep/y", 10);
    makeDir(d / "b");
    makeFile(d / "b/z", 5);
    makeFile(d / "own", 1);
    ensureApp();
    driver = new ScanDriver(w.tree, test::testStop);
    driver->sourceQueue().push_back(d.path());
    driver->runToEnd();
    w.root = driver->lastRoot();
  }
  ~Fixture() { delete driver; }
  uint32_t a() const { return child(w.tree, w.root, "a"); }
  const ReportTree::Node& node(uint32_t n) const { return w.tree.node(n); }
  int32_t folders(uint32_t n) const { return w.tree.folders(n); }
};

TEST(Rescan, FullRescanMovesEverySumAboveByTheDifference) {
  Fixture f;
  const uint32_t a = f.a();
  ASSERT_EQ(f.node(f.w.root).size, 116);
  makeFile(f.d / "a/deep/new", 1000);
  makeDir(f.d / "a/more");
  f.driver->rescan(child(f.w.tree, a, "deep"), true, true);
  EXPECT_EQ(f.node(f.w.root).size, 1116);
  EXPECT_EQ(f.node(f.w.root).files, 5);
  EXPECT_EQ(f.node(a).size, 1110);
  EXPECT_EQ(f.folders(a), 1);  // "more" is not seen: only "deep" was measured again
  // Percentages are new on the way up, and the order follows the new sizes.
  EXPECT_EQ(f.w.tree.children(a)[0], child(f.w.tree, a, "deep"));
  EXPECT_NEAR(f.w.tree.percent(a), 1110 * 100.0 / 1116, 1e-9);
  EXPECT_FALSE(test::testStop.requested());
  EXPECT_FALSE(f.driver->busy());

  // Now the whole source, from its files row: the row stands for its folder.
  f.driver->rescan(child(f.w.tree, f.w.root, "Dateien"), true, true);
  EXPECT_EQ(f.folders(f.w.root), 4);
  EXPECT_EQ(f.w.tree.percent(f.w.root), 100);
}

TEST(Rescan, FilesOnlyKeepsSubfolderRowsAndCorrectsUpward) {
  Fixture f;
  const uint32_t a = f.a();
  const uint32_t deep = child(f.w.tree, a, "deep");
  makeFile(f.d / "a/x2", 50);
  f.driver->rescan(a, false, true);
  EXPECT_EQ(child(f.w.tree, a, "deep"), deep);  // the same row, untouched
  EXPECT_EQ(f.node(child(f.w.tree, a, "Dateien")).size, 150);
  EXPECT_EQ(f.node(a).size, 160);
  EXPECT_EQ(f.node(f.w.root).size, 166);
  EXPECT_EQ(f.node(f.w.root).files, 5);

  // No files left: the row goes and the sums fall by what it held.
  ASSERT_EQ(::unlink((f.d / "a/x").c_str()), 0);
  ASSERT_EQ(::unlink((f.d / "a/x2").c_str()), 0);
  f.driver->rescan(a, false, true);
  EXPECT_EQ(child(f.w.tree, a, "Dateien"), kNoNode);
  EXPECT_EQ(f.node(a).size, 10);
  EXPECT_EQ(f.node(f.w.root).size, 16);
}

TEST(Rescan, FilesOnlyOfALeafCountsItsFilesTwiceUntilTheParentIsRead) {
  Fixture f;
  const uint32_t b = child(f.w.tree, f.w.root, "b");
  f.driver->rescan(b, false, true);
  EXPECT_EQ(f.node(child(f.w.tree, b, "Dateien")).size, 5);
  EXPECT_EQ(f.node(b).size, 10);
  EXPECT_EQ(f.node(f.w.root).size, 121);
  f.driver->rescan(f.w.root, true, true);
  EXPECT_EQ(f.node(f.w.root).size, 116);
  EXPECT_TRUE(f.w.tree.children(child(f.w.tree, f.w.root, "b")).empty());
}

TEST(Rescan, AVanishedFolderBecomesAnEmptyRow) {
  Fixture f;
  ASSERT_EQ(std::system(("rm -rf '" + f.d / "a" + "'").c_str()), 0);
  const uint32_t a = f.a();
  f.driver->rescan(a, true, true);
  EXPECT_EQ(f.node(a).size, 0);
  EXPECT_TRUE(f.w.tree.children(a).empty());
  EXPECT_EQ(f.node(f.w.root).size, 6);
  EXPECT_EQ(f.folders(f.w.root), 1 + 0 + 1);  // a stays as a row, deep is gone
}

TEST(Rescan, RemovingTakesTheWholeSource) {
  Fixture f;
  f.driver->sourceQueue().push_back(f.d / "b");
  f.driver->runToEnd();
  ASSERT_EQ(f.w.tree.roots().size(), 2u);
  f.driver->removeSource(child(f.w.tree, f.a(), "deep"));
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

TEST(Rescan, ALinkOrMountRowIsNeverEntered) {
  TempDir d;
  makeDir(d / "target");
  makeFile(d / "target/big", 1000);
  ASSERT_EQ(::symlink((d / "target").c_str(), (d / "link").c_str()), 0);
  Walked w;
  ScanDriver driver(w.tree, test::testStop);
  driver.sourceQueue().push_back(d.path());
  driver.runToEnd();
  const uint32_t root = driver.lastRoot();
  const uint32_t link = child(w.tree, root, "link");
  ASSERT_TRUE(w.tree.hasFlag(link, ReportTree::Junction));
  EXPECT_FALSE(driver.rescan(link, true, true));
  EXPECT_FALSE(driver.rescan(link, false, true));
  EXPECT_EQ(w.tree.node(link).size, 0);
  EXPECT_EQ(w.tree.node(root).size, 1000);  // counted once, in "target"
  EXPECT_FALSE(driver.busy());
}

TEST(Rescan, AFolderDeeperThanAnyPathIsMeasuredAgain) {
  TempDir d;
  // 24 levels of 200-byte names: well past the longest path the system takes in one go.
  int fd = ::open(d.path().c_str(), O_RDONLY | O_DIRECTORY);
  const std::string name(200, 'n');
  for (int i = 0; i < 24; ++i) {
    ASSERT_EQ(::mkdirat(fd, name.c_str(), 0755), 0);
    const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
  }
  const auto put = [&](const char* file, off_t size) {
    const int f = ::openat(fd, file, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(f, 0);
    ASSERT_EQ(::ftruncate(f, size), 0);
    ::close(f);
  };
  put("a", 100);
  Walked w;
  ScanDriver driver(w.tree, test::testStop);
  driver.sourceQueue().push_back(d.path());
  driver.runToEnd();
  const uint32_t root = driver.lastRoot();
  ASSERT_EQ(w.tree.node(root).size, 100);
  uint32_t deepest = root;
  while (!w.tree.children(deepest).empty()) deepest = w.tree.children(deepest)[0];
  ASSERT_GT(w.tree.fullPath(deepest).size(), 4096u);

  put("b", 50);
  ASSERT_TRUE(driver.rescan(deepest, true, true));
  EXPECT_EQ(w.tree.node(deepest).size, 150);
  EXPECT_EQ(w.tree.node(root).size, 150);
  EXPECT_EQ(w.tree.node(root).files, 2);
  ::close(fd);
}

TEST(Rescan, AFilesOnlyRescanRunsOffTheCallingThread) {
  Fixture f;
  const uint32_t a = f.a();
  makeFile(f.d / "a/x2", 50);
  QSignalSpy done(f.driver, &ScanDriver::rescanFinished);
  ASSERT_TRUE(f.driver->rescan(a, false));
  EXPECT_TRUE(f.driver->busy());  // returned at once; the answer comes through the event loop
  ASSERT_TRUE(done.wait(10000));
  EXPECT_EQ(f.node(a).size, 160);
  EXPECT_EQ(f.node(f.w.root).size, 166);
  EXPECT_FALSE(f.driver->busy());
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
