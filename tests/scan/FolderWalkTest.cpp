// The walk against real folder trees: sums, rows, links, mounts, odd names, depth, stop, threads.

#include <QFile>
#include <grp.h>
#include <algorithm>
#include <map>
#include <mutex>
#include <sched.h>
#include <sys/mount.h>

#include "TestFs.h"
#include "app/Globals.h"
#include "output/ReportWriter.h"
#include "scan/FolderWalk.h"

namespace ql::test {
namespace {

TEST(FolderWalk, EmptyFolderAndFilesBesideOneSubfolder) {
  TempDir d;
  makeDir(d / "empty");
  makeDir(d / "zeros");
  makeFile(d / "zeros/a", 0);
  makeFile(d / "zeros/b", 0);
  makeDir(d / "zeros/sub");
  makeFile(d / "zeros/sub/c", 10);
  makeDir(d / "leaf");
  makeFile(d / "leaf/x", 5);
  makeFile(d / "top", 7);

  Walked w;
  walk(w, d.path());
  const ReportTree& t = w.tree;
  ASSERT_EQ(t.roots().size(), 1u);
  EXPECT_EQ(t.text(w.root), d.path());
  EXPECT_EQ(t.node(w.root).size, 22);
  EXPECT_EQ(t.node(w.root).files, 5);
  EXPECT_EQ(t.node(w.root).folders, 4);
  EXPECT_EQ(t.node(w.root).percent, 100);

  auto top = rows(t, w.root);
  ASSERT_EQ(top.size(), 4u);  // three folders and the root's own files
  EXPECT_EQ(t.node(top["Dateien"]).size, 7);
  EXPECT_FALSE(t.isFolder(top["Dateien"]));
  // Sorted at the end of the scan: largest first on every level.
  for (size_t i = 1; i < t.children(w.root).size(); ++i)
    EXPECT_GE(t.node(t.children(w.root)[i - 1]).size, t.node(t.children(w.root)[i]).size);
  const uint32_t empty = top["empty"];
  EXPECT_EQ(t.node(empty).size, 0);
  EXPECT_TRUE(t.children(empty).empty());
  EXPECT_EQ(t.node(empty).percent, 0);

  // Only empty files beside a subfolder: counted, but no files row.
  const uint32_t zeros = top["zeros"];
  EXPECT_EQ(t.node(zeros).files, 3);
  EXPECT_EQ(t.node(zeros).size, 10);
  EXPECT_EQ(rows(t, zeros).size(), 1u);
  EXPECT_DOUBLE_EQ(t.node(rows(t, zeros)["sub"]).percent, 100.0);

  // A folder without subfolders never gets a files row.
  EXPECT_TRUE(t.children(top["leaf"]).empty());
  EXPECT_EQ(t.node(top["leaf"]).files, 1);
  EXPECT_NEAR(t.node(top["leaf"]).percent, 5 * 100.0 / 22, 1e-9);
  expectConsistent(t, true);
}

TEST(FolderWalk, FilesOverFourGibAndHardLinksCountInFull) {
  TempDir d;
  makeFile(d / "big", 5'000'000'000LL);
  makeFile(d / "exact", 4294967296LL);
  makeFile(d / "half", 2147483648LL);
  ASSERT_EQ(::link((d / "half").c_str(), (d / "half2").c_str()), 0);
  Walked w;
  walk(w, d.path());
  EXPECT_EQ(w.tree.node(w.root).size, 5'000'000'000LL + 4294967296LL + 2 * 2147483648LL);
  EXPECT_EQ(w.tree.node(w.root).files, 4);
}

TEST(FolderWalk, OddNamesReachTheFileSystemAgainUnchanged) {
  TempDir d;
  const std::vector<std::string> names = {"with blank", "quote\"d", "new\nline", "latin1 \xE9\xFC",
                                          "tab\there", "semi;colon", "-dash"};
  for (const auto& n : names) {
    makeDir(d / n);
    makeDir(d / (n + "/inner"));
    makeFile(d / (n + "/inner/f"), 3);
  }
  Walked w;
  walk(w, d.path());
  auto top = rows(w.tree, w.root);
  for (const auto& n : names) {
    ASSERT_TRUE(top.count(n)) << n;
    const uint32_t inner = w.tree.children(top[n]).at(0);
    const std::string path = w.tree.Report_GetFullpathOfNode(inner);
    struct stat st;
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(w.tree.node(inner).size, 3);
  }
}

TEST(FolderWalk, LinksToFoldersAreJunctionsAndNeverFollowed) {
  TempDir d;
  makeDir(d / "real");
  makeFile(d / "real/f", 100);
  ASSERT_EQ(::symlink("..", (d / "real/loop").c_str()), 0);         // a loop
  ASSERT_EQ(::symlink(d.path().c_str(), (d / "up").c_str()), 0);    // to the source itself
  ASSERT_EQ(::symlink("real/f", (d / "filelink").c_str()), 0);      // to a file: a file
  ASSERT_EQ(::symlink("nowhere", (d / "dangling").c_str()), 0);     // dangling: a file

  for (bool noHardlinks : {false, true}) {
    SCOPED_TRACE(noHardlinks);
    Walked w;
    walk(w, d.path(), 0, noHardlinks);
    const ReportTree& t = w.tree;
    auto top = rows(t, w.root);
    const int64_t linkBytes = static_cast<int64_t>(std::string("real/f").size() + std::string("nowhere").size());
    EXPECT_EQ(t.node(w.root).size, 100 + linkBytes);
    EXPECT_EQ(t.node(w.root).files, 3);
    EXPECT_EQ(top.count("up"), noHardlinks ? 0u : 1u);
    EXPECT_EQ(rows(t, top["real"]).count("loop"), noHardlinks ? 0u : 1u);
    EXPECT_EQ(t.node(w.root).folders, noHardlinks ? 1 : 3);
    if (!noHardlinks) {
      const uint32_t up = top["up"];
      EXPECT_TRUE(t.hasFlag(up, ReportTree::Junction));
      EXPECT_EQ(t.node(up).size, 0);
      EXPECT_TRUE(t.children(up).empty());
    }
    expectConsistent(t, true);
  }
}

TEST(FolderWalk, MountPointInsideTheSourceIsAJunction) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a file system needs root";
  TempDir d;
  makeDir(d / "mnt");
  makeFile(d / "own", 9);
  const std::string out = inChild([&] {
    // A private mount namespace: the mount goes away with the child.
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      return std::string("skip: no mount namespace");
    if (::mount("none", (d / "mnt").c_str(), "tmpfs", 0, "size=1m") != 0) return std::string("skip: mount");
    makeFile(d / "mnt/inside", 1000);
    std::string result;
    for (bool noHardlinks : {false, true}) {
      Walked w;
      walk(w, d.path(), 0, noHardlinks);
      auto top = rows(w.tree, w.root);
      result += std::to_string(w.tree.node(w.root).size) + " " + std::to_string(top.count("mnt")) +
                " " + std::to_string(w.tree.node(w.root).folders) + " ";
      if (top.count("mnt")) result += w.tree.hasFlag(top["mnt"], ReportTree::Junction) ? "J " : "F ";
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
    return std::to_string(w.tree.node(w.root).size) + " " + std::to_string(w.tree.node(w.root).folders) +
           " " + std::to_string(top.count("closed")) + " " +
           std::to_string(w.tree.children(top["closed"]).size());
  };
  std::string out;
  if (::geteuid() == 0) {
    // Root reads everything: drop to nobody for the walk.
    out = inChild([&] {
      if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
        return std::string("cannot drop privileges");
      return measure();
    });
  } else {
    out = measure();
  }
  EXPECT_EQ(out, "4 1 1 0");
}

TEST(FolderWalk, TenThousandNestedFolders) {
  TempDir d;
  // Made relative to descriptors: the full path is far beyond the path limit.
  int fd = ::open(d.path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < 10000; ++i) {
    ASSERT_EQ(::mkdirat(fd, "d", 0755), 0) << i;
    if (i % 1000 == 999) {
      const int f = ::openat(fd, "f", O_CREAT | O_WRONLY, 0644);
      ASSERT_EQ(::ftruncate(f, 1), 0);
      ::close(f);
    }
    const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
    ASSERT_GE(fd, 0);
  }
  ::close(fd);
  Walked w;
  walk(w, d.path(), 4);
  const ReportTree& t = w.tree;
  EXPECT_EQ(t.node(w.root).folders, 10000);
  EXPECT_EQ(t.node(w.root).files, 10);
  EXPECT_EQ(t.deepestLevel(), 10000u);
  expectConsistent(t, true);
  // The report of all levels has every row; the depth costs no stack either.
  ReportSaveOptions o;
  const std::string csv = ReportWriter::render(t, o, false);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 1 + 10000 + 10);  // heading, source, folders, files
}

// A feed that asks for a stop after a number of files, to stop a walk at a reproducible point.
class StopAfter : public FileFeed {
 public:
  explicit StopAfter(int files) : left_(files) {}
  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile&) override {
    if (--left_ == 0) StopWord = FolderWalk::kStop;
  }

 private:
  std::atomic<int> left_;
};

void makeWideTree(const TempDir& d, int folders, int filesPer) {
  for (int a = 0; a < folders; ++a) {
    const std::string fa = d / ("a" + std::to_string(a));
    makeDir(fa);
    for (int b = 0; b < folders; ++b) {
      const std::string fb = fa + "/b" + std::to_string(b);
      makeDir(fb);
      for (int f = 0; f < filesPer; ++f) makeFile(fb + "/f" + std::to_string(f), 1 + a * 100 + b * 10 + f);
      makeFile(fa + "/own" + std::to_string(b), 7);
    }
  }
}

TEST(FolderWalk, StopLeavesSumsThatAddUp) {
  TempDir d;
  makeWideTree(d, 12, 10);
  Walked full;
  walk(full, d.path(), 1);
  for (int threads : {1, 4}) {
    SCOPED_TRACE(threads);
    ensureApp();
    StopAfter feed(300);
    Walked w;
    ScanDriver driver(w.tree, StopWord);
    ScanDriver::Settings s;
    s.threads = threads;
    driver.setSettings(s);
    driver.setFileFeed(&feed);
    driver.sourceQueue() = {d.path(), d.path()};
    driver.runToEnd();
    EXPECT_EQ(StopWord.load(), 0);           // the driver is at rest again
    ASSERT_EQ(w.tree.roots().size(), 1u);    // the second source is forgotten
    const uint32_t root = w.tree.roots()[0];
    EXPECT_GT(w.tree.node(root).files, 0);
    EXPECT_LT(w.tree.node(root).size, full.tree.node(full.root).size);
    // The stopped root has no files row, though its own files were read.
    for (uint32_t c : w.tree.children(root)) EXPECT_TRUE(w.tree.isFolder(c));
    expectConsistent(w.tree, false);
  }
}

TEST(FolderWalk, OneThreadAndManyGiveTheSameTreeAndReport) {
  TempDir d;
  makeWideTree(d, 9, 4);
  ASSERT_EQ(::symlink("a1", (d / "link").c_str()), 0);
  std::string first, firstCsv;
  for (int threads : {1, 2, 16}) {
    Walked w;
    walk(w, d.path(), threads, false, true);
    const std::string text = dump(w.tree);
    ReportSaveOptions o;
    const std::string csv = ReportWriter::render(w.tree, o, false);
    if (first.empty()) {
      first = text;
      firstCsv = csv;
      EXPECT_EQ(w.tree.node(w.root).folders, 9 + 81 + 1);
    } else {
      EXPECT_EQ(text, first) << threads;
      EXPECT_EQ(csv, firstCsv) << threads;
    }
  }
}

TEST(FolderWalk, FilesOnlyCountsTheFolderItselfAndPassesSubfoldersOver) {
  TempDir d;
  makeDir(d / "sub");
  makeFile(d / "sub/deep", 100);
  makeFile(d / "a", 3);
  makeFile(d / "b", 4);
  ASSERT_EQ(::symlink("sub", (d / "dirlink").c_str()), 0);
  const WalkOutcome o = FolderWalk::Report_ScanFilesOnly(d.path(), StopWord);
  EXPECT_EQ(o.ownBytes, 7);
  EXPECT_EQ(o.ownFiles, 2);
  EXPECT_EQ(o.total.folders, 0);
  EXPECT_FALSE(FolderWalk::Report_ScanFilesOnly(d / "missing", StopWord).readable);
}

TEST(FolderWalk, HandsEveryTopFolderOverOnceAndNamesWhatItReads) {
  TempDir d;
  makeWideTree(d, 6, 2);
  std::atomic<int> stop{0};
  WalkOptions options;
  options.threads = 4;
  FolderWalk walk(options, stop);
  class Sink : public WalkSink {
   public:
    explicit Sink(FolderWalk& w) : w_(w) {}
    void branchDone(uint32_t position, ReportTree&& branch) override {
      const std::string now = w_.currentFolder();  // called while other workers are busy
      std::lock_guard lock(m);
      positions.push_back(position);
      names.emplace_back(branch.text(branch.roots()[0]));
      seen.push_back(now);
    }
    void failure(const WalkFailure&) override {}
    FolderWalk& w_;
    std::mutex m;
    std::vector<uint32_t> positions;
    std::vector<std::string> names, seen;
  } sink(walk);
  const WalkOutcome o = walk.Report_ScanFolders(d.path(), sink);
  EXPECT_TRUE(o.readable);
  EXPECT_EQ(o.childRows, 6u);
  EXPECT_EQ(o.total.folders, 6 + 36);
  std::sort(sink.positions.begin(), sink.positions.end());
  EXPECT_EQ(sink.positions, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5}));
  std::sort(sink.names.begin(), sink.names.end());
  EXPECT_EQ(sink.names, (std::vector<std::string>{"a0", "a1", "a2", "a3", "a4", "a5"}));
  for (const auto& s : sink.seen)
    EXPECT_TRUE(s.empty() || s.rfind(d.path(), 0) == 0) << s;
  EXPECT_EQ(walk.currentFolder(), "");
}

}  // namespace
}  // namespace ql::test
