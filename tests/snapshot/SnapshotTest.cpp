// The snapshot store: retention and the budget across sources, damaged snapshots, writes under a
// full disk, the command line, the window's snapshot after a completed scan, and snapshots made
// from the walk's own files.

#include <gtest/gtest.h>
#include <grp.h>
#include <sys/mount.h>
#include <QTest>
#include <cstdlib>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"
#include "json/JsonImport.h"
#include "lang/TL.h"
#include "snapshot/SnapshotFeed.h"
#include "snapshot/SnapshotStore.h"
#include "ui/ScanSession.h"

namespace ql::test {
namespace {

class Snapshots : public ::testing::Test {
 protected:
  void SetUp() override {
    makeDir(d / "data");
    for (const char* dir : {"a", "a/sub", "b"}) makeDir(d / dir);
    makeFile(d / "a/f", 1000);
    makeFile(d / "a/sub/g", 30);
    makeFile(d / "b/h", 7);
    ::setenv("XDG_DATA_HOME", (d / "data").c_str(), 1);
  }
  void TearDown() override { ::setenv("XDG_DATA_HOME", saved_.c_str(), 1); }

  // "<source letter>@<seconds>" of each listed snapshot, newest first.
  static std::vector<std::string> names(const std::vector<SnapshotInfo>& list) {
    std::vector<std::string> out;
    for (const SnapshotInfo& s : list)
      out.push_back(s.source.substr(s.source.size() - 1) + "@" + std::to_string(s.time));
    return out;
  }
  void write(const std::string& source, int64_t seconds) {
    const SnapshotResult r = writeSnapshot(d / source, 2, nullptr, {}, seconds * 1000);
    ASSERT_TRUE(r.ok) << r.error;
  }

  TempDir d;
  std::string saved_ = std::getenv("XDG_DATA_HOME") ? std::getenv("XDG_DATA_HOME") : "";
};

// The last N of each source stay; then the oldest go across sources until the budget holds, but
// the newest of all stays even over it; a source with none left leaves no folder behind.
TEST_F(Snapshots, RetentionThenBudgetTakeTheOldestAcrossSources) {
  for (int64_t t : {1000, 2000, 3000}) write("a", t);
  for (int64_t t : {1500, 2500}) write("b", t);
  const std::vector<SnapshotInfo> a = listSnapshots(d / "a");
  ASSERT_EQ(a.size(), 3u);
  EXPECT_EQ(a[0].bytes, 1030);
  EXPECT_EQ(a[0].files, 2);
  EXPECT_EQ(a[0].source, d / "a");

  EXPECT_EQ(pruneSnapshots(2, 0).removed, 1);
  EXPECT_EQ(names(listAllSnapshots()),
            (std::vector<std::string>{"a@3000", "b@2500", "a@2000", "b@1500"}));
  int64_t total = 0;
  for (const SnapshotInfo& s : listAllSnapshots()) total += s.stored;
  pruneSnapshots(0, total - 1);
  EXPECT_EQ(names(listAllSnapshots()), (std::vector<std::string>{"a@3000", "b@2500", "a@2000"}));
  pruneSnapshots(0, 1);
  EXPECT_EQ(names(listAllSnapshots()), (std::vector<std::string>{"a@3000"}));
  EXPECT_EQ(::access(snapshotFolder(d / "a").c_str(), F_OK), 0);
  EXPECT_NE(::access(snapshotFolder(d / "b").c_str(), F_OK), 0);
}

// A snapshot cut short and a stranger in the folder are named and left out; the rest are listed
// and read back as the export they are.
TEST_F(Snapshots, DamagedSnapshotIsNamedAndLeftOut) {
  write("a", 1000);
  write("a", 2000);
  std::vector<SnapshotInfo> list = listSnapshots(d / "a");
  ASSERT_EQ(list.size(), 2u);
  const std::string cut = list[0].file;
  ASSERT_EQ(::truncate(cut.c_str(), 3), 0);
  writeFile(snapshotFolder(d / "a") + "/notes.txt", "x");
  std::string error;
  list = listSnapshots(d / "a", &error);
  ASSERT_EQ(names(list), std::vector<std::string>{"a@1000"});
  EXPECT_NE(error.find(cut), std::string::npos) << error;
  EXPECT_NE(error.find("notes.txt"), std::string::npos) << error;

  ReportTree tree;
  const ImportResult r = importJsonFile(list[0].file, tree);
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(r.size, 1030);
  EXPECT_EQ(tree.text(r.root), d / "a");
}

// A full disk: the snapshot fails with the system's reason, the older one stays whole and
// nothing half-written is left beside it; with room again the next one is kept.
TEST_F(Snapshots, FullDiskLeavesOlderSnapshotsAndNoHalfFile) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small file system needs root";
  if (::mount("tmpfs", (d / "data").c_str(), "tmpfs", 0, "size=512k") != 0)
    GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
  struct Unmount {
    std::string at;
    ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
  } unmount{d / "data"};
  write("a", 1000);
  const std::string folder = snapshotFolder(d / "a");
  const auto entries = [&] {
    const Outcome ls = runProgram("ls", {"-A", qpath(folder)});
    return ls.out.split('\n').size() - 1;
  };
  ASSERT_EQ(entries(), 2);  // the source and the snapshot
  const int fill = ::open((d / "data/fill").c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fill, 0);
  const std::string block(65536, 'x');
  while (::write(fill, block.data(), block.size()) > 0) {
  }
  ::close(fill);

  const SnapshotResult full = writeSnapshot(d / "a", 2, nullptr, {}, 2000'000);
  EXPECT_FALSE(full.ok);
  EXPECT_NE(full.error.find(std::strerror(ENOSPC)), std::string::npos) << full.error;
  EXPECT_EQ(names(listSnapshots(d / "a")), std::vector<std::string>{"a@1000"});
  EXPECT_EQ(entries(), 2);

  ::unlink((d / "data/fill").c_str());
  write("a", 3000);
  EXPECT_EQ(names(listSnapshots(d / "a")), (std::vector<std::string>{"a@3000", "a@1000"}));
}

// --snapshot with the silent run and with --export; --snapshots lists them, newest first, and
// nothing (status 0) for a folder without snapshots; a snapshot is read by --import.
TEST_F(Snapshots, CommandLineKeepsAndListsSnapshots) {
  const QList<std::pair<QString, QString>> env{{"XDG_DATA_HOME", qpath(d / "data")},
                                               {"XDG_CONFIG_HOME", qpath(d / "config")}};
  const auto quorlane = [&](const QStringList& args) {
    return runProgram(QUORLANE_BIN_PATH, args, env, qpath(d.path()));
  };
  Outcome r = quorlane({"-s", "r.txt", "--snapshot", "a"});
  ASSERT_EQ(r.status, 0) << r.err.toStdString();
  r = quorlane({"--export", "e.json.zst", "--snapshot", qpath(d / "a/")});
  ASSERT_EQ(r.status, 0) << r.err.toStdString();

  r = quorlane({"--snapshots", qpath(d / "a")});
  ASSERT_EQ(r.status, 0) << r.err.toStdString();
  const QList<QByteArray> lines = r.out.trimmed().split('\n');
  ASSERT_EQ(lines.size(), 2) << r.out.toStdString();
  for (const QByteArray& line : lines) {
    const QList<QByteArray> cells = line.split('\t');
    ASSERT_EQ(cells.size(), 4) << line.toStdString();
    EXPECT_EQ(cells[1], "1030");
    EXPECT_EQ(cells[2], "2");
    EXPECT_EQ(readFile(cells[3]).left(4), QByteArray("\x28\xb5\x2f\xfd"));
  }
  EXPECT_GT(lines[0], lines[1]);  // newest first
  EXPECT_EQ(readFile(lines[0].split('\t')[3]), readFile(d / "e.json.zst"));

  r = quorlane({"-s", "i.csv", "--import", QString::fromUtf8(lines[1].split('\t')[3])});
  EXPECT_EQ(r.status, 0) << r.err.toStdString();
  EXPECT_TRUE(readFile(d / "i.csv").contains("sub")) << readFile(d / "i.csv").toStdString();

  r = quorlane({"--snapshots", qpath(d / "b")});
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(r.out.isEmpty());
  EXPECT_EQ(quorlane({"--snapshot", "a"}).status, 2);
}

// The window keeps one after a completed scan of a source, on its own thread, and none for an
// import.
TEST_F(Snapshots, WindowKeepsOneAfterACompletedScanNotAfterAnImport) {
  ensureApp();
  Guard guard;
  ScanSession s(guard);
  MainOptions o;
  o.Snapshots = 1;
  o.SnapshotKeep = 12;
  s.applyOptions(o);
  s.ready();
  s.readSources({d / "a"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return listSnapshots(d / "a").size() == 1; }, 20000));
  const std::string file = listSnapshots(d / "a")[0].file;
  ASSERT_TRUE(QTest::qWaitFor([&] { return !s.busy(); }, 20000));
  s.importFile(file);
  ASSERT_TRUE(QTest::qWaitFor([&] { return !s.busy(); }, 20000));
  EXPECT_EQ(s.tree().roots().size(), 2u);
  EXPECT_EQ(listAllSnapshots().size(), 1u);
}

// Every row of a tree as one line (path, sums, flags), sorted: the walk lists rows of equal size
// in the listing's order, a snapshot in its own.
std::vector<std::string> reportLines(const ReportTree& t) {
  std::vector<std::string> lines;
  for (uint32_t n : t.preorder()) {
    const ReportTree::Node& node = t.node(n);
    lines.push_back(t.fullPath(n) + " size=" + std::to_string(node.size) +
                    " files=" + std::to_string(node.files) + " folders=" +
                    std::to_string(t.folders(n)) + " flags=" + std::to_string(node.flags));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

// A file of `size` bytes, its name taken byte for byte.
void writeBytes(const std::string& path, size_t size) {
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
  ASSERT_GE(fd, 0) << path;
  const std::string data(size, 'x');
  ASSERT_EQ(::write(fd, data.data(), size), static_cast<ssize_t>(size));
  ::close(fd);
}

// Odd names, two names of one file (one beside it, one elsewhere), a link to a folder and one to
// a file, an empty folder, a folder left out by a pattern.
void makeCraftedTree(const std::string& t) {
  makeDir(t);
  makeDir(t + "/odd\xff \"quoted\"\nline");
  writeBytes(t + "/odd\xff \"quoted\"\nline/f\xfe\\", 3000);
  makeDir(t + "/sub");
  makeDir(t + "/sub/deeper");
  writeBytes(t + "/sub/deeper/data", 9000);
  ASSERT_EQ(::link((t + "/sub/deeper/data").c_str(), (t + "/sub/hard").c_str()), 0);
  ASSERT_EQ(::link((t + "/sub/deeper/data").c_str(), (t + "/sub/deeper/again").c_str()), 0);
  makeFile(t + "/sparse", 1 << 20);
  makeFile(t + "/zero", 0);
  makeDir(t + "/empty");
  makeDir(t + "/skipped");
  makeFile(t + "/skipped/f", 5);
  ASSERT_EQ(::symlink("sub", (t + "/dirlink").c_str()), 0);
  ASSERT_EQ(::symlink("sparse", (t + "/filelink").c_str()), 0);
}

// The snapshot comes from the walk itself: changes on the disk after the walk are not in it, and
// its import gives the walk's report, in each way of counting.
TEST_F(Snapshots, SnapshotFromTheWalkImportsAsTheWalksReport) {
  ensureApp();
  const std::string t = d / "t";
  makeCraftedTree(t);
  const std::vector<std::string> excludes{"skip*"};
  for (const SizeMode mode : {SizeMode{false, false}, SizeMode{true, false}, SizeMode{false, true}}) {
    SCOPED_TRACE(std::to_string(mode.allocated) + std::to_string(mode.linksOnce));
    ReportTree walked;
    ScanDriver driver(walked, testStop);
    ScanDriver::Settings settings;
    settings.mode = mode;
    settings.excludes = excludes;
    driver.setSettings(settings);
    std::shared_ptr<SnapshotFeed> feed;
    driver.setFeedFactory([&] { return feed = std::make_shared<SnapshotFeed>(t); });
    driver.sourceQueue().push_back(t);
    driver.runToEnd();
    ASSERT_TRUE(feed && feed->ok());
    feed->takeFolders(walked, driver.lastRoot());
    // The disk changes before the snapshot is written.
    writeBytes(t + "/sub/deeper/data", 100);
    makeDir(t + "/later" + std::to_string(mode.allocated + 2 * mode.linksOnce));

    const SnapshotResult r = feed->keep(t, excludes, nullptr);
    ASSERT_TRUE(r.ok) << r.error;
    ReportTree imported;
    ImportOptions io;
    io.filesLabel = TL(3514, "Dateien").toStdString();
    io.allocated = mode.allocated;
    io.linksOnce = mode.linksOnce;
    const ImportResult i = importJsonFile(r.info.file, imported, io);
    ASSERT_TRUE(i.ok) << i.error.toStdString();
    EXPECT_EQ(reportLines(imported), reportLines(walked));
    writeBytes(t + "/sub/deeper/data", 9000);
  }
}

// The silent run's --snapshot, read back with --import, writes the walk's report, here with a
// folder the user cannot read (the runs go as nobody).
TEST_F(Snapshots, SilentRunSnapshotImportsAsItsReport) {
  const std::string t = d / "t";
  makeCraftedTree(t);
  makeDir(t + "/locked");
  makeFile(t + "/locked/inside", 7);
  ASSERT_EQ(::chmod((t + "/locked").c_str(), 0), 0);
  makeDir(d / "home");
  ASSERT_EQ(::chmod((d / "home").c_str(), 0777), 0);
  std::function<void()> asUser;
  if (::geteuid() == 0)
    asUser = [] {
      if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(126);
    };
  const auto quorlane = [&](const QStringList& args) {
    return runProgram(QUORLANE_BIN_PATH, args,
                      {{"XDG_DATA_HOME", qpath(d / "home")}, {"XDG_CONFIG_HOME", qpath(d / "home")},
                       {"HOME", qpath(d / "home")}},
                      qpath(d / "home"), asUser);
  };
  for (const char* size : {"logical", "allocated"}) {
    SCOPED_TRACE(size);
    Outcome r = quorlane({"-s0", "walk.csv", "--size", size, "--snapshot", qpath(t)});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    r = quorlane({"--snapshots", qpath(t)});
    const QByteArray file = r.out.split('\n')[0].split('\t').value(3);
    ASSERT_FALSE(file.isEmpty()) << r.out.toStdString() << r.err.toStdString();
    r = quorlane({"-s0", "import.csv", "--size", size, "--import", QString::fromUtf8(file)});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QByteArray walked = readFile(d / "home/walk.csv");
    EXPECT_TRUE(walked.contains("locked")) << walked.toStdString();
    EXPECT_EQ(readFile(d / "home/import.csv"), walked);
  }
}

}  // namespace
}  // namespace ql::test
