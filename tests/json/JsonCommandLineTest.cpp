// --export and --import from the command line, where an export may be written, and an export
// stopped by a signal while its walk hangs on a dead mount.

#include <gtest/gtest.h>

#include <iostream>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"

namespace ql::test {
namespace {

class JsonCommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* dir : {"tree", "tree/a", "tree/a/b", "tree/empty", "config"}) makeDir(d / dir);
    makeFile(d / "tree/a/b/f", 5000);
    makeFile(d / "tree/a/g", 700);
    makeFile(d / "tree/h", 30);
    makeFile(d / "tree/a/b/same", 5000);
    ASSERT_EQ(::link((d / "tree/a/g").c_str(), (d / "tree/a/b/g2").c_str()), 0);
    ASSERT_EQ(::symlink("h", (d / "tree/link").c_str()), 0);
  }
  QString at(const std::string& name) { return qpath(d / name); }
  Outcome quorlane(const QStringList& args, const QString& folder = {}) {
    return runProgram(QUORLANE_BIN_PATH, args, {{"XDG_CONFIG_HOME", at("config")}}, folder);
  }
  Outcome sh(const QString& script) { return runProgram("sh", {"-c", script}, {}, at("")); }
  // The report of a silent import of `file`, and that it succeeded.
  QByteArray imported(const QString& file) {
    QFile::remove(at("r.csv"));
    const Outcome r = quorlane({"-s2", at("r.csv"), "--import", file});
    EXPECT_EQ(r.status, 0) << file.toStdString() << ": " << r.err.toStdString();
    return readFile(at("r.csv"));
  }
  TempDir d;
};

// All but the first line, which holds the time.
QByteArray body(const QByteArray& json) { return json.mid(json.indexOf('\n')); }

TEST_F(JsonCommandLine, ExportThenSilentImportGivesTheReportOfAWalk) {
  Outcome o = quorlane({"--export", at("x.json"), at("tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const QByteArray file = readFile(at("x.json"));
  EXPECT_EQ(body(quorlane({"--export", "-", at("tree")}).out), body(file));

  ASSERT_EQ(quorlane({"-s2", at("walked.csv"), at("tree")}).status, 0);
  EXPECT_EQ(imported(at("x.json")), readFile(at("walked.csv")));
  EXPECT_TRUE(readFile(at("walked.csv")).contains("tree/a/b"));

  // A damaged export: exit status 1, the byte named, no report, also beside a folder that reads.
  writeFile(at("cut.json"), file.left(file.size() / 2));
  o = quorlane({"-s", at("cut.csv"), "--import", at("cut.json")});
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.err.contains(QByteArray::number(file.size() / 2))) << o.err.toStdString();
  EXPECT_EQ(o.err.count('\n'), 1) << "only the import's own failure: " << o.err.toStdString();
  o = quorlane({"-s", at("cut.csv"), at("tree"), "--import", at("cut.json")});
  EXPECT_EQ(o.status, 1);
  EXPECT_FALSE(QFile::exists(at("cut.csv")));
}

// An export to a ".zst" name is zstd-compressed; an import knows a compressed file by its first
// bytes, whatever its name, also when ncdu wrote it, and fails on a damaged one.
TEST_F(JsonCommandLine, CompressedExportsAreWrittenReadAndRefusedWhenDamaged) {
  ASSERT_EQ(quorlane({"--export", at("x.json"), at("tree")}).status, 0);
  Outcome o = quorlane({"--export", at("X.ZST"), at("tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  EXPECT_TRUE(readFile(at("X.ZST")).startsWith("\x28\xb5\x2f\xfd"));
  o = runProgram("zstd", {"-dc", at("X.ZST")});
  ASSERT_EQ(o.status, 0) << "zstd: " << o.err.toStdString();
  EXPECT_EQ(body(o.out), body(readFile(at("x.json"))));

  ASSERT_TRUE(QFile::copy(at("X.ZST"), at("packed.json")));
  ASSERT_TRUE(QFile::copy(at("x.json"), at("plain.zst")));
  const QByteArray expected = imported(at("x.json"));
  ASSERT_TRUE(expected.contains("tree/a/b"));
  for (const char* file : {"X.ZST", "packed.json", "plain.zst"})
    EXPECT_EQ(imported(at(file)), expected) << file;

  // One cut short, or one whose frame asks for a window of a gigabyte, fails, says where in the
  // compressed file (a refused frame: where it begins), and leaves the old report.
  const QByteArray packed = readFile(at("X.ZST"));
  QByteArray huge("\x28\xb5\x2f\xfd\x00\xa0", 6);  // no content size; window 2^(10 + 20)
  const QByteArray text = R"([1,2,{},[{"name":"/r"},{"name":"f","asize":1}]])";
  const int raw = 1 | (static_cast<int>(text.size()) << 3);  // the last block, stored as it is
  for (const int shift : {0, 8, 16}) huge += char((raw >> shift) & 0xff);
  huge += text;
  const struct {
    const char* name;
    QByteArray bytes, said;
  } cases[] = {
      {"cut.zst", packed.left(packed.size() / 2),
       "byte " + QByteArray::number(packed.size() / 2) +
           " of the compressed file: The compressed file ends"},
      {"huge.json", huge,
       "byte 0 of the compressed file: The compressed frame needs a window of more than 128 MiB"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    writeFile(at(c.name), c.bytes);
    writeFile(at("r.csv"), "old");
    o = quorlane({"-s", at("r.csv"), "--import", at(c.name)});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(o.err.contains(c.said)) << o.err.toStdString();
    EXPECT_EQ(readFile(at("r.csv")), "old");
  }

  if (QStandardPaths::findExecutable("ncdu").isEmpty()) {
    std::cout << "[  SKIPPED ] ncdu is not installed: its compressed export is not tried\n";
  } else {
    ASSERT_EQ(sh("ncdu -o- tree | zstd -q > y.zst && ncdu -o y.json tree").status, 0);
    EXPECT_EQ(imported(at("y.zst")), imported(at("y.json")));
  }
}

// Out of descriptors the export fails and says why, the file there stays as it was, and no
// temporary file is left. A limit that lets the walk through gives the whole export.
TEST_F(JsonCommandLine, AnExportOutOfDescriptorsKeepsTheOldFile) {
  makeDir(d / "big");
  growTree(d / "big", 3);
  ASSERT_EQ(quorlane({"--export", at("full.json"), at("big")}).status, 0);
  const QByteArray full = readFile(at("full.json"));
  int shortages = 0;
  for (int limit = 5; limit <= 12; ++limit) {
    SCOPED_TRACE(limit);
    writeFile(at("x.json"), "old");
    const Outcome o = runProgram("sh", {"-c", QString("ulimit -n %1 && exec \"$0\" \"$@\"").arg(limit),
                                        QUORLANE_BIN_PATH, "--export", at("x.json"), at("big")});
    EXPECT_TRUE(QDir(at("")).entryList({".x.json.*"}, QDir::Files | QDir::Hidden).isEmpty());
    if (o.status == 0) {
      EXPECT_TRUE(body(readFile(at("x.json"))) == body(full)) << "differs from the export with no limit";
      continue;
    }
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(readFile(at("x.json")), "old");
    shortages += o.err.contains("Too many open files");
  }
  EXPECT_GT(shortages, 0) << "no limit was low enough to test";
}

TEST_F(JsonCommandLine, FailuresAndUsage) {
  Outcome o = quorlane({"--export", at("x.json"), at("missing")});
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.err.contains("missing"));
  EXPECT_FALSE(QFile::exists(at("x.json")));
  EXPECT_EQ(quorlane({"--export", at("no/x.json"), at("tree")}).status, 1);
  for (const QStringList& args : {QStringList{"--export", at("x.json")},
                                  QStringList{"--export", at("x.json"), at("tree"), at("tree")},
                                  QStringList{"--export"}, QStringList{"-s", at("r.csv"), "--import"},
                                  QStringList{"-s", at("r.csv"), "--export", "-", at("tree")}})
    EXPECT_EQ(quorlane(args).status, 2) << args.join(' ').toStdString();
}

// "-" is standard output (where a target may be and what it may be is the output file's own
// test, in ReportWriterTest: the export writes through the same file).
TEST_F(JsonCommandLine, ReportToStandardOutput) {
  const Outcome o = quorlane({"-s1", "-", at("tree")}, at(""));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  ASSERT_EQ(quorlane({"-s1", at("r.csv"), at("tree")}).status, 0);
  EXPECT_TRUE(o.out.contains("tree/a\";"));  // the CSV layout
  EXPECT_EQ(o.out, readFile(at("r.csv")));
}

// A dead FUSE mount (see mountDeadFuse) for one scope; abort() ends the connection, and with it
// every wait on the mount.
struct DeadMount {
  explicit DeadMount(const std::string& path) : at(path), fuse(mountDeadFuse(path)) {}
  void abort() {
    if (fuse >= 0) ::close(fuse);
    fuse = -1;
  }
  ~DeadMount() {
    abort();
    if (mounted) ::umount2(at.c_str(), MNT_DETACH);
  }
  std::string at;
  int fuse;
  bool mounted = fuse >= 0;
};

// The names in a folder, read without looking at any of them (a look at the mount would hang).
QStringList names(const std::string& folder) {
  QStringList all;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (const dirent* e = ::readdir(dir))
      if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) all << e->d_name;
    ::closedir(dir);
  }
  all.sort();
  return all;
}

// Waits at most 20 s until `folder` holds a name other than `name` that contains it.
bool waitForTemporary(const std::string& folder, const QString& name) {
  const int watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ::inotify_add_watch(watch, folder.c_str(), IN_CREATE);
  QElapsedTimer clock;
  clock.start();
  bool found = false;
  while (!found && clock.elapsed() < 20000) {
    for (const QString& n : names(folder)) found = found || (n != name && n.contains(name));
    pollfd p{watch, POLLIN, 0};
    char events[4096];
    if (!found && ::poll(&p, 1, static_cast<int>(20000 - clock.elapsed())) > 0)
      while (::read(watch, events, sizeof events) > 0) {
      }
  }
  ::close(watch);
  return found;
}

// SIGTERM and SIGINT end an export at once, even while its walk hangs in the kernel on a dead
// mount: the temporary file goes, the old export stays, and the run ends by the signal.
TEST_F(JsonCommandLine, AnInterruptEndsAnExportThatHangsOnADeadMount) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount";
  makeDir(d / "dead");
  for (const int sig : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(::strsignal(sig));
    DeadMount mount(d / "dead");
    if (!mount.mounted) GTEST_SKIP() << "FUSE cannot be mounted here";
    writeFile(at("e.json"), "old export\n");
    const std::string program = QUORLANE_BIN_PATH, file = d / "e.json", source = d / "dead";
    char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>("--export"),
                    const_cast<char*>(file.c_str()), const_cast<char*>(source.c_str()), nullptr};
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, argv[0], &quiet, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&quiet);

    // The temporary file is there once the run has come to its walk, which then hangs.
    EXPECT_TRUE(waitForTemporary(d.path(), "e.json"));
    ::kill(pid, sig);
    const int ended = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    pollfd p{ended, POLLIN, 0};
    EXPECT_EQ(::poll(&p, 1, 20000), 1) << "the signal was not heeded within 20 s";
    ::close(ended);
    mount.abort();  // a run that did not end goes on now, and can be reaped
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == sig) << "status " << status;
    EXPECT_EQ(readFile(at("e.json")), "old export\n");
    EXPECT_EQ(names(d.path()), (QStringList{"config", "dead", "e.json", "tree"}));
  }
}

}  // namespace
}  // namespace ql::test
