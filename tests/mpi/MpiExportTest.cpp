// quorlane-mpi under a real mpirun: the export of any number of ranks is the one quorlane writes,
// its report the one quorlane's walk gives, and a rank that dies fails the run, named with the
// folder it had, while the old export stays.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>
#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>
#include <deque>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"

namespace ql::test {
namespace {

// As root the programs run as nobody, so that a locked folder is locked for them, and mpirun
// needs no leave to run as root.
constexpr uid_t kUser = 65534;

void makeFileOf(const std::string& path, size_t bytes) {
  writeFile(path, QByteArray(static_cast<qsizetype>(bytes), 'x'));
}

// Odd names byte for byte, a hard link, a sparse file, an empty, a locked and an excluded
// folder, a link to a folder, and enough folders that several ranks get some.
void makeOddTree(const std::string& t) {
  makeDir(t);
  makeDir(t + "/it's a b");
  makeFileOf(t + "/it's a b/q\"uote", 3000);
  makeDir(t + "/odd\xff");
  makeFileOf(t + "/odd\xff/f\xfe", 2);
  makeFileOf(t + "/new\nline", 1);
  makeFileOf(t + "/back\\slash", 5);
  ASSERT_EQ(::link((t + "/it's a b/q\"uote").c_str(), (t + "/hard").c_str()), 0);
  makeFile(t + "/sparse", 1 << 20);
  makeDir(t + "/empty");
  makeDir(t + "/cache.tmp");
  makeFileOf(t + "/cache.tmp/never", 9);
  makeDir(t + "/locked");
  makeFileOf(t + "/locked/inside", 7);
  ASSERT_EQ(::chmod((t + "/locked").c_str(), 0), 0);
  ASSERT_EQ(::symlink("it's a b", (t + "/dirlink").c_str()), 0);
  makeDir(t + "/many");
  growTree(t + "/many", 3);  // 258 folders
}

void makeWideFolder(const std::string& t, int files) {
  makeDir(t);
  for (int i = 0; i < files; ++i) makeFile(t + "/f" + std::to_string(i), i % 97);
}

// A tree as disks have them, breadth first: 6 to 18 files a folder and 1 to 6 folders below it,
// until `files` files exist (about one folder for three files).
void makeBushyTree(const std::string& t, int files) {
  uint32_t seed = 7;
  auto next = [&seed](uint32_t n) { return (seed = seed * 1103515245 + 12345) / 65536 % n; };
  makeDir(t);
  std::deque<std::string> open{t};
  for (int made = 0; made < files && !open.empty(); open.pop_front()) {
    const std::string& at = open.front();
    for (uint32_t i = 6 + next(13); i > 0 && made < files; --i, ++made)
      makeFile(at + "/f" + std::to_string(made) + ".dat", next(1u << 20));
    for (uint32_t i = 1 + next(6); i > 0; --i) {
      open.push_back(at + "/d" + std::to_string(i));
      makeDir(open.back());
    }
  }
}

// Folders in a chain, far longer as a path than the system's limit.
void makeChain(const std::string& t, int levels) {
  makeDir(t);
  int fd = ::open(t.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < levels && fd >= 0; ++i) {
    ASSERT_EQ(::mkdirat(fd, "level", 0755), 0);
    const int next = ::openat(fd, "level", O_RDONLY | O_DIRECTORY);
    if (i % 100 == 0) ::close(::openat(next, "file", O_CREAT | O_WRONLY, 0644));
    ::close(fd);
    fd = next;
  }
  ::close(fd);
}

// The export without its time of writing.
QByteArray untimed(QByteArray json) {
  static const QRegularExpression time("\"timestamp\":\\d+");
  return QString::fromLatin1(json).replace(time, "\"timestamp\":0").toLatin1();
}

class MpiExport : public ::testing::Test {
 protected:
  void SetUp() override {
    mpirun_ = QStandardPaths::findExecutable("mpirun");
    if (mpirun_.isEmpty()) GTEST_SKIP() << "mpirun is not installed (scripts/setup installs it)";
    makeDir(d / "out");
    ASSERT_EQ(::chown((d / "out").c_str(), kUser, kUser), 0);
  }
  Outcome run(const QString& program, const QStringList& args,
              QList<std::pair<QString, QString>> env = {}) {
    env += {{"HOME", at("out")}, {"XDG_CONFIG_HOME", at("out")}, {"TMPDIR", at("out")}};
    std::function<void()> asUser;
    if (::geteuid() == 0)
      asUser = [] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(kUser) != 0 || ::setuid(kUser) != 0)
          ::_exit(126);
      };
    return runProgram(program, args, env, {}, asUser);
  }
  Outcome mpi(int ranks, const QStringList& args, QList<std::pair<QString, QString>> env = {}) {
    return run(
        mpirun_,
        QStringList{"--oversubscribe", "-n", QString::number(ranks), QUORLANE_MPI_PATH} + args,
        env);
  }
  // quorlane's own export of `tree`, and then each rank count's.
  void expectSameExports(const QString& tree, const QList<int>& rankCounts,
                         const QStringList& extra = {}) {
    const Outcome single =
        run(QUORLANE_BIN_PATH, extra + QStringList{"--export", at("out/single.json"), tree});
    ASSERT_EQ(single.status, 0) << single.err.toStdString();
    const QByteArray expected = untimed(readFile(at("out/single.json")));
    for (const int n : rankCounts) {
      const Outcome o = mpi(n, extra + QStringList{"--export", at("out/mpi.json"), tree});
      ASSERT_EQ(o.status, 0) << n << " ranks: " << o.err.toStdString();
      EXPECT_TRUE(untimed(readFile(at("out/mpi.json"))) == expected) << n << " ranks";
    }
  }
  QString at(const std::string& name) { return qpath(d / name); }
  // In memory where there is such a place: a disk takes seconds to remove a deep chain.
  TempDir d{::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"};
  QString mpirun_;
};

TEST_F(MpiExport, AnOddTreeIsExportedAndReportedAsByOneProgram) {
  makeOddTree(d / "tree");
  expectSameExports(at("tree"), {1, 2, 4, 7}, {"--exclude", "*.tmp"});
  // Not an empty agreement: the odd entries are there.
  const QByteArray e = readFile(at("out/mpi.json"));
  for (const char* part : {"\"odd\xff\"", "\"new\\nline\"", "\"read_error\":true",
                           "\"excluded\":\"*.tmp\"", "\"dirlink\":true", "\"hlnkc\":true"})
    EXPECT_TRUE(e.contains(part)) << part;

  // A report alone, through an export of its own that does not stay.
  ASSERT_EQ(run(QUORLANE_BIN_PATH, {"-s2", at("out/single.csv"), at("tree")}).status, 0);
  const Outcome o = mpi(3, {"-s2", at("out/mpi.csv"), at("tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  EXPECT_EQ(readFile(at("out/mpi.csv")), readFile(at("out/single.csv")));
  EXPECT_TRUE(readFile(at("out/mpi.csv")).contains("many/d5"));
  EXPECT_EQ(QDir(at("out")).entryList({"quorlane-mpi-*"}, QDir::Files | QDir::Hidden),
            QStringList{});
}

// A tree of the common shape, one folder too large to share and a chain no rank can run ahead in.
TEST_F(MpiExport, ABushyTreeAWideFolderAndADeepChain) {
  makeBushyTree(d / "bushy", 200000);
  expectSameExports(at("bushy"), {1, 2, 4, 7});
  EXPECT_GT(readFile(at("out/mpi.json")).count("\"name\":\"d"), 50000);
  makeWideFolder(d / "wide", 200000);
  expectSameExports(at("wide"), {1, 2, 4, 7});
  makeChain(d / "chain", 10000);
  expectSameExports(at("chain"), {1, 2, 4, 7});
  EXPECT_EQ(readFile(at("out/mpi.json")).count("\"level\""), 10000);
}

TEST_F(MpiExport, ARankThatDiesFailsTheRunAndTheOldExportStays) {
  makeDir(d / "tree");
  growTree(d / "tree", 3);
  // Slow reads, so that the rank gets its share before the others have read everything.
  writeFile(at("out/e.json"), "old export\n");
  ASSERT_EQ(::chown((d / "out/e.json").c_str(), kUser, kUser), 0);
  const Outcome o = mpi(3, {"--export", at("out/e.json"), at("tree")},
                        {{"QUORLANE_MPI_ABORT", "2:3"}, {"QUORLANE_MPI_DELAY_US", "1000"}});
  EXPECT_NE(o.status, 0);
  // mpirun names the rank that died; rank 0 names what each rank had.
  EXPECT_TRUE(o.err.contains("process rank 2")) << o.err.toStdString();
  EXPECT_TRUE(o.err.contains(("quorlane-mpi: rank 2 had " + d.path() + "/tree/").c_str()))
      << o.err.toStdString();
  EXPECT_EQ(readFile(at("out/e.json")), "old export\n");
  EXPECT_EQ(QDir(at("out")).entryList(QDir::Files | QDir::Hidden), QStringList{"e.json"});
}

}  // namespace
}  // namespace ql::test
