// The walk against real folder trees: sums, rows, links, mounts, depth, stop, threads.

#include <algorithm>

#include "TestFs.h"
#include "output/ReportWriter.h"

namespace ql::test {
namespace {

// Files beside subfolders get a row of their own unless they hold no byte; a folder without
// subfolders never gets one. Every level is sorted largest first. Files over 4 GiB and hard links
// count in full. A files-only walk counts the folder's own files and passes subfolders and links
// to folders over.
TEST(FolderWalk, FilesRowsSumsAndOrder) {
  TempDir d;
  for (const char* dir : {"empty", "zeros", "zeros/sub", "leaf", "big"}) makeDir(d / dir);
  makeFile(d / "zeros/a", 0);
  makeFile(d / "zeros/sub/c", 10);
  makeFile(d / "leaf/x", 5);
  makeFile(d / "top", 7);
  makeFile(d / "big/big", 5'000'000'000LL);
  makeFile(d / "big/exact", 4294967296LL);
  makeFile(d / "big/half", 2147483648LL);
  ASSERT_EQ(::link((d / "big/half").c_str(), (d / "big/half2").c_str()), 0);
  ASSERT_EQ(::symlink("../leaf", (d / "big/dirlink").c_str()), 0);
  constexpr int64_t kBig = 5'000'000'000LL + 4294967296LL + 2 * 2147483648LL;
  Walked w;
  walk(w, d.path());
  const ReportTree& t = w.tree;
  EXPECT_EQ(t.node(w.root).size, 22 + kBig);
  EXPECT_EQ(t.node(w.root).files, 8);
  EXPECT_EQ(t.folders(w.root), 6);
  std::vector<std::string> order;
  for (uint32_t c : t.children(w.root)) order.emplace_back(t.text(c));
  EXPECT_EQ(order, (std::vector<std::string>{"big", "zeros", "Dateien", "leaf", "empty"}));
  auto top = rows(t, w.root);
  EXPECT_EQ(t.node(top["zeros"]).files, 2);
  EXPECT_EQ(rows(t, top["zeros"]).size(), 1u);
  EXPECT_TRUE(t.children(top["leaf"]).empty());
  EXPECT_NEAR(t.percent(top["big"]), kBig * 100.0 / (22 + kBig), 1e-9);
  expectConsistent(t, true);

  for (const auto& [dir, bytes, files] :
       {std::tuple{d.path(), int64_t{7}, 1}, {d / "big", kBig, 4}}) {
    const WalkOutcome o = FolderWalk::scanFilesOnly(dir, test::testStop);
    EXPECT_EQ(o.ownBytes, bytes) << dir;
    EXPECT_EQ(o.ownFiles, files) << dir;
    EXPECT_EQ(o.total.folders, 0) << dir;
  }
  EXPECT_FALSE(FolderWalk::scanFilesOnly(d / "missing", test::testStop).readable);
}

TEST(FolderWalk, LinksToFoldersAreJunctionsAndNeverFollowed) {
  TempDir d;
  makeDir(d / "real");
  makeFile(d / "real/f", 100);
  ASSERT_EQ(::symlink("..", (d / "real/loop").c_str()), 0);
  ASSERT_EQ(::symlink(d.path().c_str(), (d / "up").c_str()), 0);
  ASSERT_EQ(::symlink("real/f", (d / "filelink").c_str()), 0);   // links to files and dangling
  ASSERT_EQ(::symlink("nowhere", (d / "dangling").c_str()), 0);  // ones count as files

  for (bool noHardlinks : {false, true}) {
    SCOPED_TRACE(noHardlinks);
    Walked w;
    walk(w, d.path(), 0, noHardlinks);
    const ReportTree& t = w.tree;
    auto top = rows(t, w.root);
    EXPECT_EQ(t.node(w.root).size, 100 + 6 + 7);  // the file and the two links' targets
    EXPECT_EQ(t.node(w.root).files, 3);
    EXPECT_EQ(t.folders(w.root), noHardlinks ? 1 : 3);  // the links "up" and "real/loop" or none
    EXPECT_TRUE(noHardlinks ||
                (t.hasFlag(top["up"], ReportTree::Junction) && t.children(top["up"]).empty()));
    expectConsistent(t, true);
  }
}

TEST(FolderWalk, MountPointInsideTheSourceIsAJunction) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a file system needs root";
  TempDir d;
  makeDir(d / "mnt");
  makeFile(d / "own", 9);
  const std::string out = inChild([&] {
    if (!privateMounts()) return std::string("skip: no mount namespace");
    if (::mount("none", (d / "mnt").c_str(), "tmpfs", 0, "size=1m") != 0)
      return std::string("skip: mount");
    makeFile(d / "mnt/inside", 1000);
    std::string result;
    for (bool noHardlinks : {false, true}) {
      Walked w;
      walk(w, d.path(), 0, noHardlinks);
      auto top = rows(w.tree, w.root);
      result += std::to_string(w.tree.node(w.root).size) + " " + std::to_string(top.count("mnt")) +
                " " + std::to_string(w.tree.folders(w.root)) + " ";
      if (top.count("mnt"))
        result += w.tree.hasFlag(top["mnt"], ReportTree::Junction) ? "J " : "F ";
    }
    return result;
  });
  if (out.rfind("skip", 0) == 0) GTEST_SKIP() << out;
  EXPECT_EQ(out, "9 1 1 J 9 0 0 ");
}

TEST(FolderWalk, UnreadableFolderCountsAsAnEmptyFolder) {
  TempDir d;
  makeDir(d / "closed");
  makeDir(d / "closed/inner");
  makeFile(d / "closed/inner/f", 50);
  makeFile(d / "open", 4);
  ASSERT_EQ(::chmod((d / "closed").c_str(), 0), 0);
  auto measure = [&] {
    Walked w;
    walk(w, d.path());
    auto top = rows(w.tree, w.root);
    return std::to_string(w.tree.node(w.root).size) + " " + std::to_string(w.tree.folders(w.root)) +
           " " + std::to_string(w.tree.children(top.at("closed")).size());
  };
  // Root reads everything: drop to nobody for the walk.
  const std::string out = ::geteuid() != 0 ? measure() : inChild([&] {
    return dropRoot() ? measure() : std::string("cannot drop privileges");
  });
  EXPECT_EQ(out, "4 1 0");
}

TEST(FolderWalk, TenThousandNestedFolders) {
  TempDir d;
  std::string deep = d.path();
  const int fd = makeChain(deep, 10000, [](int) { return "d"; }, [](int at, int i) {
    if (i % 1000 == 999) ::close(::openat(at, "f", O_CREAT | O_WRONLY, 0644));
  });
  ASSERT_GE(fd, 0);
  ::close(fd);
  Walked w;
  walk(w, d.path(), 4);
  const ReportTree& t = w.tree;
  EXPECT_EQ(t.folders(w.root), 10000);
  EXPECT_EQ(t.node(w.root).files, 10);
  expectConsistent(t, true);
  // The report of all levels has every row (heading, source, folders): no stack limit.
  const std::string csv = ReportWriter::render(t, {}, false);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 1 + 10000);
}

// A feed that asks for a stop after a number of files, to stop a walk at a reproducible point.
class StopAfter : public FileFeed {
 public:
  explicit StopAfter(int files) : left_(files) {}
  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile&) override {
    if (--left_ == 0) test::testStop.request();
  }

 private:
  std::atomic<int> left_;
};

TEST(FolderWalk, StopLeavesSumsThatAddUp) {
  TempDir d;
  growTree(d.path(), 4);
  Walked full;
  walk(full, d.path(), 1);
  for (int threads : {1, 4}) {
    SCOPED_TRACE(threads);
    ensureApp();
    StopAfter feed(300);
    Walked w;
    ScanDriver driver(w.tree, test::testStop);
    driver.setSettings({.threads = threads, .mode = {}, .excludes = {}});
    driver.setFeedFactory([&feed] { return std::shared_ptr<FileFeed>(&feed, [](FileFeed*) {}); });
    driver.sourceQueue() = {d.path(), d.path()};
    driver.runToEnd();
    EXPECT_FALSE(test::testStop.requested());  // the driver is at rest again
    ASSERT_EQ(w.tree.roots().size(), 1u);      // the second source is forgotten
    const uint32_t root = w.tree.roots()[0];
    EXPECT_GT(w.tree.node(root).files, 0);
    EXPECT_LT(w.tree.node(root).size, full.tree.node(full.root).size);
    // The stopped root has no files row, though its own files were read.
    for (uint32_t c : w.tree.children(root)) EXPECT_TRUE(w.tree.isFolder(c));
    expectConsistent(w.tree, false);
  }
}

TEST(FolderWalk, OneThreadAndManyGiveTheSameTree) {
  TempDir d;
  growTree(d.path(), 3);
  ASSERT_EQ(::symlink("d1", (d / "link").c_str()), 0);
  std::string first;
  for (int threads : {1, 2, 16}) {
    Walked w;
    walk(w, d.path(), threads, false, true);
    const std::string text = dump(w.tree);
    if (first.empty()) first = text;
    EXPECT_EQ(text, first) << threads;
  }
}

}  // namespace
}  // namespace ql::test
