// The walk against file systems that fight back: dead mounts, sums beyond 64 bits, a descriptor
// limit, paths beyond PATH_MAX, folders that come and go while it reads.

#include <limits.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <QSignalSpy>
#include <cstring>
#include <filesystem>
#include <functional>
#include <thread>

#include "TestFs.h"
#include "failure/FailureReport.h"
#include "scan/FileOps.h"
#include "scan/FolderWalk.h"

namespace ql::test {
namespace {

using Kind = WalkFailure::Kind;
const Stop kNoStop;

WalkOutcome walkDirect(const std::string& path, CollectingSink& sink, int threads = 4) {
  Stop stop;
  FolderWalk walk({.threads = threads, .mode = {}, .excludes = {}}, stop);
  return walk.scanFolder(path, sink);
}

// Runs `fn` in a child process, in a mount namespace of its own, with a dead FUSE mount at `dir`.
// A call that still hangs after 20 s is freed by taking the mount away (detaching it and closing
// the server's end aborts the connection); the answer says so.
std::string withDeadMount(const std::string& dir, const std::function<std::string()>& fn) {
  return inChild([&]() -> std::string {
    if (!privateMounts()) return "skip: no mount namespace";
    const int fuse = mountDeadFuse(dir);
    if (fuse < 0) return "skip: no FUSE mount";
    const auto release = [&] {
      ::umount2(dir.c_str(), MNT_DETACH);
      ::close(fuse);
    };
    bool hung = false;
    std::string result;
    {
      const std::jthread guard = watchdog(20, [&] { hung = true, release(); });
      result = fn();
    }
    if (hung) return "hung on the dead mount";
    release();  // frees a walk left behind in the kernel
    return result;
  });
}

TEST(HostileWalk, DeadFuseMountIsAJunctionAndNeverTouched) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting FUSE needs root";
  TempDir d;
  makeDir(d / "dead");
  makeDir(d / "real");
  makeFile(d / "real/f", 30);
  makeFile(d / "own", 5);
  ASSERT_EQ(::symlink("dead", (d / "toDead").c_str()), 0);
  const std::string dead = d / "dead";

  const std::string out = withDeadMount(dead, [&] {
    CollectingSink sink;
    const WalkOutcome o = walkDirect(d.path(), sink);
    std::string r = std::to_string(o.total.size) + " " + std::to_string(o.total.files) + " " +
                    std::to_string(o.total.folders);
    for (const auto& [name, row] : sink.branches)
      r += " " + name + (row.junction ? ":J" : ":" + std::to_string(row.size));
    return r + " failures=" + std::to_string(sink.failures.size());
  });
  if (out.rfind("skip", 0) == 0) GTEST_SKIP() << out;
  EXPECT_EQ(out, "35 2 3 dead:J real:30 toDead:J failures=0");
}

// A walk blocked in the kernel (here: the source itself is the dead mount) never holds up a
// stop: the driver leaves it behind and is ready again.
TEST(HostileWalk, StopDoesNotWaitForAWalkBlockedInTheKernel) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting FUSE needs root";
  ensureApp();
  TempDir d;
  makeDir(d / "dead");
  const std::string out = withDeadMount(d / "dead", [&] {
    ReportTree tree;
    ScanDriver driver(tree, test::testStop);
    QSignalSpy finished(&driver, &ScanDriver::finished);
    driver.sourceQueue().push_back(d / "dead");
    driver.start();
    test::testStop.request();
    const bool ended = finished.wait(10000);
    return std::string(ended ? "finished" : "still busy") + (driver.busy() ? " busy" : " idle") +
           " roots=" + std::to_string(tree.roots().size()) +
           " stop=" + std::to_string(static_cast<int>(test::testStop.state()));
  });
  if (out.rfind("skip", 0) == 0) GTEST_SKIP() << out;
  EXPECT_EQ(out, "finished idle roots=1 stop=0");
}

TEST(HostileWalk, OverflowingSumsKeepTheirLastValueAndAreReported) {
  TempDir d("/dev/shm");  // tmpfs allows sizes up to 2^63-1
  if (!d.made()) GTEST_SKIP() << "no /dev/shm";
  constexpr int64_t kHuge = int64_t{1} << 62;
  const std::vector<std::string> files = {"files/a", "files/b", "folders/x/a", "folders/y/a"};
  for (const char* dir : {"files", "folders", "folders/x", "folders/y"}) makeDir(d / dir);
  for (const auto& f : files) {
    const int fd = ::open((d / f).c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    const int r = ::ftruncate(fd, kHuge);
    ::close(fd);
    if (r != 0) GTEST_SKIP() << "no sparse files of 2^62 bytes here: " << std::strerror(errno);
  }
  // Two files in one listing, and two folders summed in their parent.
  for (const char* dir : {"files", "folders"}) {
    SCOPED_TRACE(dir);
    CollectingSink sink;
    const WalkOutcome o = walkDirect(d / dir, sink);
    EXPECT_EQ(o.total.size, kHuge);
    EXPECT_TRUE(o.interrupted);
    EXPECT_EQ(sink.count(Kind::SumOverflow), 1);
  }
  CollectingSink sink;
  const WalkOutcome o = FolderWalk::scanFilesOnly(d / "files", kNoStop, &sink);
  EXPECT_EQ(o.ownBytes, kHuge);
  EXPECT_TRUE(o.interrupted);
  EXPECT_EQ(sink.count(Kind::SumOverflow), 1);
}

// The soft descriptor limit lowered for one scope.
struct SoftFdLimit {
  rlimit old{};
  bool ok = ::getrlimit(RLIMIT_NOFILE, &old) == 0;
  explicit SoftFdLimit(rlim_t soft) {
    rlimit l = old;
    l.rlim_cur = soft;
    ok = ok && ::setrlimit(RLIMIT_NOFILE, &l) == 0;
  }
  ~SoftFdLimit() { ::setrlimit(RLIMIT_NOFILE, &old); }
};

// Descriptors open now. The limit counts descriptor numbers, and those above it stay usable,
// so the limits below are set from this count, not from the highest number.
int openCount() {
  int n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
  return n - 1;  // the listing's own
}

TEST(HostileWalk, DescriptorLimitIsRespectedAndShortageReported) {
  TempDir d;
  growTree(d.path(), 3);
  // A chain deeper than the folders the walk may keep open, with leaves beside each link (names
  // differ per level, so the chain comes before some leaves in most listings).
  std::string chain = d.path();
  for (int i = 0; i < 40; ++i) {
    for (int k = 0; k < 6; ++k) {
      const std::string leaf = chain + "/l" + std::to_string(i) + "_" + std::to_string(k);
      makeDir(leaf);
      makeFile(leaf + "/f", i + k + 1);
    }
    makeDir(chain += "/c" + std::to_string(i));
  }
  Walked full;
  walk(full, d.path(), 4);
  ASSERT_EQ(full.tree.folders(full.root), 6 + 36 + 216 + 40 * 7);

  // Room for the workers, the walked folder, the reserve and only a few folders kept open: the
  // walk reopens folders from the top instead, and the result is the same.
  for (int threads : {2, 0}) {
    SCOPED_TRACE(threads);
    const int workers = threads ? threads : FolderWalk::kMaxThreads;
    SoftFdLimit limit(static_cast<rlim_t>(openCount() + 2 * workers + 1 + 8 + 4));
    ASSERT_TRUE(limit.ok);
    Walked w;
    walk(w, d.path(), threads);
    EXPECT_EQ(dump(w.tree), dump(full.tree));
  }

  // Two descriptors left: the walked folder opens, its subfolders cannot.
  SoftFdLimit tight(static_cast<rlim_t>(openCount() + 64));
  ASSERT_TRUE(tight.ok);
  std::vector<int> dummies;
  for (int fd; (fd = ::dup(0)) >= 0;) dummies.push_back(fd);
  ASSERT_EQ(errno, EMFILE);
  for (int i = 0; i < 2; ++i) {
    ::close(dummies.back());
    dummies.pop_back();
  }
  CollectingSink sink;
  const WalkOutcome o = walkDirect(d.path(), sink);
  for (int fd : dummies) ::close(fd);
  EXPECT_TRUE(o.interrupted);
  EXPECT_LT(o.total.folders, full.tree.folders(full.root));
  ASSERT_EQ(sink.count(Kind::OutOfDescriptors), 1) << "told once per walk";
  EXPECT_EQ(sink.failures.at(0).error, EMFILE);
}

// A source deeper than PATH_MAX is walked and probed; a folder that deep below a short source is
// measured again.
TEST(HostileWalk, FoldersDeeperThanPathMaxAreMeasured) {
  TempDir d;
  const std::string name(200, 'n');
  std::string deep = d.path();
  const int fd = makeChain(deep, 25, [&](int) { return name; });
  ASSERT_GE(fd, 0);
  ASSERT_GT(deep.size(), size_t{PATH_MAX});
  auto put = [&](const char* file, int64_t size) {
    const int f = ::openat(fd, file, O_CREAT | O_WRONLY, 0644);
    ASSERT_EQ(::ftruncate(f, size), 0);
    ::close(f);
  };
  put("a", 1000);
  put("b", 24);
  ASSERT_EQ(::mkdirat(fd, "sub", 0755), 0);
  put("sub/c", 100);

  for (const std::string& path : {deep, deep + "/"}) {
    CollectingSink sink;
    const WalkOutcome o = walkDirect(path, sink);
    EXPECT_TRUE(o.readable);
    EXPECT_EQ(o.total.size, 1124);
    EXPECT_EQ(o.total.files, 3);
    EXPECT_EQ(o.total.folders, 1);
    EXPECT_EQ(sink.branches["sub"].size, 100);
    const WalkOutcome own = FolderWalk::scanFilesOnly(path, kNoStop);
    EXPECT_EQ(own.ownBytes, 1024);
    EXPECT_EQ(own.ownFiles, 2);
  }
  EXPECT_EQ(probePath(deep), 0);
  EXPECT_EQ(probePath(deep + "/sub/c"), 0);
  EXPECT_EQ(probePath(deep + "/missing"), ENOENT);
  EXPECT_EQ(probePath(deep + "/a/x"), ENOTDIR);
  const int opened = openFolderPath(deep + "/sub");
  EXPECT_GE(opened, 0);
  if (opened >= 0) ::close(opened);
  EXPECT_EQ(openFolderPath(deep + "/a"), -ENOTDIR);
  const WalkOutcome missing = FolderWalk::scanFilesOnly(deep + "/missing", kNoStop);
  EXPECT_FALSE(missing.readable);
  EXPECT_EQ(missing.openError, ENOENT);

  ensureApp();
  ReportTree tree;
  ScanDriver driver(tree, test::testStop);
  driver.sourceQueue().push_back(d.path());
  driver.runToEnd();
  uint32_t deepest = driver.lastRoot();
  for (int i = 0; i < 25; ++i) deepest = rows(tree, deepest).at(name);
  put("e", 50);
  ASSERT_TRUE(driver.rescan(deepest, true, true));
  EXPECT_EQ(tree.node(deepest).size, 1174);
  EXPECT_EQ(tree.node(driver.lastRoot()).size, 1174);
  EXPECT_EQ(tree.node(driver.lastRoot()).files, 4);
  ::close(fd);
}

// With no thread to be had (here: a process limit on an unused uid), the walk reads on the
// thread that asked for it, and the tree is the same.
TEST(HostileWalk, NoThreadToBeHadGivesTheSameTree) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to take an unused uid";
  TempDir d;
  growTree(d.path(), 2);
  Walked full;
  walk(full, d.path(), 4);
  const std::string out = inChild([&] {
    const rlimit one{1, 1};
    if (!dropRoot(54321) || ::setrlimit(RLIMIT_NPROC, &one) != 0)
      return std::string("cannot drop privileges");
    pthread_t t;
    if (::pthread_create(
            &t, nullptr, [](void*) -> void* { return nullptr; }, nullptr) == 0)
      return std::string("threads still start");
    try {  // an exception must not run the rest of the tests in the child
      Walked w;
      walk(w, d.path(), 4);
      return dump(w.tree);
    } catch (const std::exception& e) {
      return std::string("threw: ") + e.what();
    }
  });
  EXPECT_EQ(out, dump(full.tree));
}

// Another process makes and takes away folders while 16 threads walk: a folder that vanishes
// was there and is gone, which is no failure, and whatever it met, every sum is that of its rows.
TEST(HostileWalk, FoldersComingAndGoingLeaveSumsThatAddUp) {
  TempDir d, spare;
  growTree(d.path(), 2);
  makeFile(d / "own", 5);
  makeDir(d / "churn");
  makeFile(d / "churn/own", 3);
  makeFile(spare / "f", 100);  // linked in, so no file is ever seen before it has its size
  Walked still;
  walk(still, d.path(), 1);
  const int64_t stillSize = still.tree.node(still.root).size;
  std::atomic<bool> run{true};
  std::thread churn([&] {
    const int base = ::open((d / "churn").c_str(), O_RDONLY | O_DIRECTORY);
    const int from = ::open(spare.path().c_str(), O_RDONLY | O_DIRECTORY);
    for (unsigned i = 0; run; ++i) {
      const std::string c = "c" + std::to_string(i % 40);
      if (::mkdirat(base, c.c_str(), 0755) == 0) {
        ::mkdirat(base, (c + "/in").c_str(), 0755);
        for (const std::string& f : {c + "/f", c + "/in/f"})
          ::linkat(from, "f", base, f.c_str(), 0);
      } else {
        ::unlinkat(base, (c + "/in/f").c_str(), 0);
        ::unlinkat(base, (c + "/in").c_str(), AT_REMOVEDIR);
        ::unlinkat(base, (c + "/f").c_str(), 0);
        ::unlinkat(base, c.c_str(), AT_REMOVEDIR);
      }
    }
    ::close(from);
    ::close(base);
  });
  // Many short walks: a folder taken away between its open and its listing is rare in one.
  const int failuresBefore = failureCount();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  int walks = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    Walked w;
    walk(w, d.path(), 16);
    ++walks;
    auto top = rows(w.tree, w.root);
    ASSERT_TRUE(top.count("churn"));
    EXPECT_EQ(w.tree.node(w.root).size - w.tree.node(top["churn"]).size, stillSize - 3);
    expectConsistent(w.tree, true);  // every file here holds bytes, so every folder has its rows
    if (HasFailure() || failureCount() != failuresBefore) break;
  }
  run = false;
  churn.join();
  EXPECT_EQ(failureCount(), failuresBefore) << "a vanished folder is no failure";
  EXPECT_GT(walks, 10);
}

}  // namespace
}  // namespace ql::test
