// --export and --import from the command line, where a report or an export may be written, and
// an export stopped by a signal while its walk hangs on a dead mount.

#include <gtest/gtest.h>

#include <functional>
#include <iostream>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <poll.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"
#include "json/JsonImport.h"

namespace ql::test {
namespace {

Outcome run(const QString& program, const QStringList& args, const QString& config = {},
            const QString& folder = {}) {
  QList<std::pair<QString, QString>> env;
  if (!config.isEmpty()) env.append({"XDG_CONFIG_HOME", config});
  return runProgram(program, args, env, folder);
}

Outcome quorlane(const QStringList& args, const QString& config = {}, const QString& folder = {}) {
  return run(QStringLiteral(QUORLANE_BIN_PATH), args, config, folder);
}

QString q(const std::string& s) { return QString::fromStdString(s); }

class JsonCommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    makeDir(d / "tree");
    makeDir(d / "tree/a");
    makeDir(d / "tree/a/b");
    makeDir(d / "tree/empty");
    makeFile(d / "tree/a/b/f", 5000);
    makeFile(d / "tree/a/g", 700);
    makeFile(d / "tree/h", 30);
    makeFile(d / "tree/a/b/same", 5000);
    ASSERT_EQ(::link((d / "tree/a/g").c_str(), (d / "tree/a/b/g2").c_str()), 0);
    ASSERT_EQ(::symlink("h", (d / "tree/link").c_str()), 0);
    makeDir(d / "config");
  }
  TempDir d;
};

TEST_F(JsonCommandLine, ExportThenSilentImportGivesTheReportOfAWalk) {
  Outcome o = quorlane({"--export", q(d / "x.json"), q(d / "tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const Outcome toStdout = quorlane({"--export", "-", q(d / "tree")});
  EXPECT_EQ(toStdout.status, 0);
  const QByteArray file = readFile(q(d / "x.json"));
  EXPECT_EQ(toStdout.out.mid(toStdout.out.indexOf('\n')), file.mid(file.indexOf('\n')));

  o = quorlane({"-s2", q(d / "imported.csv"), "--import", q(d / "x.json")}, q(d / "config"));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  o = quorlane({"-s2", q(d / "walked.csv"), q(d / "tree")}, q(d / "config"));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  EXPECT_EQ(readFile(q(d / "imported.csv")), readFile(q(d / "walked.csv")));
  EXPECT_TRUE(readFile(q(d / "walked.csv")).contains("tree/a/b"));

  // A damaged export: exit status 1, the byte named, no report.
  QFile cut(q(d / "cut.json"));
  ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
  cut.write(file.left(file.size() / 2));
  cut.close();
  o = quorlane({"-s", q(d / "cut.csv"), "--import", q(d / "cut.json")}, q(d / "config"));
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.err.contains(QByteArray::number(file.size() / 2))) << o.err.toStdString();
  EXPECT_EQ(o.err.count('\n'), 1) << "only the import's own failure: " << o.err.toStdString();
  EXPECT_FALSE(QFile::exists(q(d / "cut.csv")));
  // Beside a folder that reads well it still leaves a hole: no report either.
  o = quorlane({"-s", q(d / "cut.csv"), q(d / "tree"), "--import", q(d / "cut.json")}, q(d / "config"));
  EXPECT_EQ(o.status, 1);
  EXPECT_FALSE(QFile::exists(q(d / "cut.csv")));
}

// An export to a ".zst" name is zstd-compressed; an import knows a compressed file by its first
// bytes, whatever its name, also when it is what ncdu and zstd wrote or several frames in a row.
TEST_F(JsonCommandLine, CompressedExportsAreWrittenAndRead) {
  ASSERT_EQ(quorlane({"--export", q(d / "x.json"), q(d / "tree")}).status, 0);
  Outcome o = quorlane({"--export", q(d / "X.ZST"), q(d / "tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const QByteArray plain = readFile(q(d / "x.json")), packed = readFile(q(d / "X.ZST"));
  EXPECT_TRUE(packed.startsWith("\x28\xb5\x2f\xfd"));
  o = run("zstd", {"-dc", q(d / "X.ZST")});
  ASSERT_EQ(o.status, 0) << "zstd: " << o.err.toStdString();
  EXPECT_EQ(o.out.mid(o.out.indexOf('\n')), plain.mid(plain.indexOf('\n')));  // all but the time

  // Concatenated frames: the plain export cut in two, each half compressed on its own.
  const QString half = QString::number(plain.size() / 2),
                rest = QString::number(plain.size() / 2 + 1);
  ASSERT_EQ(run("sh",
                {"-c", "head -c " + half + " x.json | zstd -q > two.zst && tail -c +" + rest +
                           " x.json | zstd -q >> two.zst"},
                {}, q(d.path()))
                .status,
            0);
  ASSERT_TRUE(QFile::copy(q(d / "X.ZST"), q(d / "packed.json")));
  ASSERT_TRUE(QFile::copy(q(d / "x.json"), q(d / "plain.zst")));
  auto report = [&](const QString& file) {
    const QString csv = q(d / "r.csv");
    QFile::remove(csv);
    const Outcome r = quorlane({"-s2", csv, "--import", file}, q(d / "config"));
    EXPECT_EQ(r.status, 0) << file.toStdString() << ": " << r.err.toStdString();
    return readFile(csv);
  };
  const QByteArray expected = report(q(d / "x.json"));
  ASSERT_TRUE(expected.contains("tree/a/b"));
  for (const char* file : {"X.ZST", "packed.json", "plain.zst", "two.zst"})
    EXPECT_EQ(report(q(d / file)), expected) << file;

  if (QStandardPaths::findExecutable("ncdu").isEmpty()) {
    std::cout << "[  SKIPPED ] ncdu is not installed: its compressed export is not tried\n";
  } else {
    ASSERT_EQ(
        run("sh", {"-c", "ncdu -o- tree | zstd -q > y.zst && ncdu -o y.json tree"}, {}, q(d.path()))
            .status,
        0);
    EXPECT_EQ(report(q(d / "y.zst")), report(q(d / "y.json")));
  }
}

// A compressed export cut short, or one whose frame asks for a window of a gigabyte, fails,
// says where in the compressed file (a refused frame: where it begins), and leaves the old report
// as it was.
TEST_F(JsonCommandLine, DamagedCompressedExportsFail) {
  ASSERT_EQ(quorlane({"--export", q(d / "x.zst"), q(d / "tree")}).status, 0);
  const QByteArray packed = readFile(q(d / "x.zst"));
  QByteArray huge("\x28\xb5\x2f\xfd\x00\xa0", 6);  // no content size; window 2^(10 + 20)
  const QByteArray text = R"([1,2,{},[{"name":"/r"},{"name":"f","asize":1}]])";
  const int raw = 1 | (static_cast<int>(text.size()) << 3);  // the last block, stored as it is
  huge += char(raw & 0xff);
  huge += char((raw >> 8) & 0xff);
  huge += char(raw >> 16);
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
    QFile f(q(d / c.name)), old(q(d / "r.csv"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly) && f.write(c.bytes) == c.bytes.size());
    f.close();
    ASSERT_TRUE(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();
    const Outcome o = quorlane({"-s", q(d / "r.csv"), "--import", q(d / c.name)}, q(d / "config"));
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(o.err.contains(c.said)) << o.err.toStdString();
    EXPECT_EQ(readFile(q(d / "r.csv")), "old");
  }
}

// Out of descriptors the export fails and says why, the file there stays as it was, and no
// temporary file is left. A limit that lets the walk through gives the whole export.
TEST_F(JsonCommandLine, AnExportOutOfDescriptorsKeepsTheOldFile) {
  makeDir(d / "big");
  growTree(d / "big", 3);
  ASSERT_EQ(quorlane({"--export", q(d / "full.json"), q(d / "big")}).status, 0);
  const QByteArray full = readFile(q(d / "full.json"));
  const QString x = q(d / "x.json");
  int shortages = 0;
  for (int limit = 5; limit <= 12; ++limit) {
    SCOPED_TRACE(limit);
    QFile old(x);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();
    const Outcome o = run("sh", {"-c", QString("ulimit -n %1 && exec \"$0\" \"$@\"").arg(limit),
                                 QStringLiteral(QUORLANE_BIN_PATH), "--export", x, q(d / "big")});
    EXPECT_TRUE(QDir(q(d.path())).entryList({".x.json.*"}, QDir::Files | QDir::Hidden).isEmpty());
    if (o.status == 0) {
      const QByteArray got = readFile(x);
      EXPECT_TRUE(got.mid(got.indexOf('\n')) == full.mid(full.indexOf('\n')))  // all but the time
          << "differs from the export with no limit";
      continue;
    }
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(readFile(x), "old");
    shortages += o.err.contains("Too many open files");
  }
  EXPECT_GT(shortages, 0) << "no limit was low enough to test";
}

TEST_F(JsonCommandLine, FailuresAndUsage) {
  Outcome o = quorlane({"--export", q(d / "x.json"), q(d / "missing")});
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.err.contains("missing"));
  EXPECT_FALSE(QFile::exists(q(d / "x.json")));
  o = quorlane({"--export", q(d / "no/x.json"), q(d / "tree")});
  EXPECT_EQ(o.status, 1);
  for (const QStringList& args : {QStringList{"--export", q(d / "x.json")},
                                  QStringList{"--export", q(d / "x.json"), q(d / "tree"), q(d / "tree")},
                                  QStringList{"--export"}, QStringList{"-s", q(d / "r.csv"), "--import"},
                                  QStringList{"-s", q(d / "r.csv"), "--export", "-", q(d / "tree")}}) {
    o = quorlane(args);
    EXPECT_EQ(o.status, 2) << args.join(' ').toStdString();
  }
}

// Where a report or an export may go: "-" is standard output, a device stays a device, and a link
// that another user planted in a sticky world-writable folder is refused.
TEST_F(JsonCommandLine, ReportAndExportTargets) {
  Outcome o = quorlane({"-s1", "-", q(d / "tree")}, q(d / "config"), q(d.path()));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  ASSERT_EQ(quorlane({"-s1", q(d / "r.csv"), q(d / "tree")}, q(d / "config")).status, 0);
  EXPECT_TRUE(o.out.contains("tree/a\";"));  // the CSV layout
  EXPECT_EQ(o.out, readFile(q(d / "r.csv")));

  if (::geteuid() != 0) GTEST_SKIP() << "needs root for a device node and another user's link";
  // A null device of our own: were the fault back, /dev/null of the machine would be replaced.
  const std::string null = d / "null";
  ASSERT_EQ(::mknod(null.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
  for (const char* option : {"--export", "-s1"}) {
    o = quorlane({option, q(null), q(d / "tree")}, q(d / "config"));
    EXPECT_EQ(o.status, 0) << option << ": " << o.err.toStdString();
    struct stat st {};
    ASSERT_EQ(::stat(null.c_str(), &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode)) << option;
  }

  makeDir(d / "box");
  ASSERT_EQ(::chmod((d / "box").c_str(), 01777), 0);
  const std::string link = d / "box/r.csv", victim = d / "victim";
  QFile v(q(victim));
  ASSERT_TRUE(v.open(QIODevice::WriteOnly));
  v.write("precious\n");
  v.close();
  ASSERT_EQ(::symlink(victim.c_str(), link.c_str()), 0);
  ASSERT_EQ(::lchown(link.c_str(), 4242, 4242), 0);
  for (const char* option : {"--export", "-s1"}) {
    o = quorlane({option, q(link), q(d / "tree")}, q(d / "config"));
    EXPECT_EQ(o.status, 1) << option;
    EXPECT_TRUE(o.err.contains(link.c_str())) << o.err.toStdString();
    EXPECT_EQ(readFile(q(victim)), "precious\n") << option;
  }
  // Our own link there is followed by the export as by the report, and stays a link.
  ASSERT_EQ(::lchown(link.c_str(), 0, 0), 0);
  o = quorlane({"--export", q(link), q(d / "tree")});
  EXPECT_EQ(o.status, 0) << o.err.toStdString();
  EXPECT_TRUE(readFile(q(victim)).startsWith("[1,2,"));
  struct stat st {};
  ASSERT_EQ(::lstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
}

// A FUSE mount whose daemon never answers: every look into it blocks in the kernel, as on a dead
// network mount. abort() ends the connection, and with it every wait on the mount.
struct DeadMount {
  explicit DeadMount(const std::string& path) : at(path) {
    fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(fuse) + ",rootmode=40000,user_id=0,group_id=0";
    mounted = fuse >= 0 && ::mount("dead", at.c_str(), "fuse", 0, options.c_str()) == 0;
  }
  void abort() {
    if (fuse >= 0) ::close(fuse);
    fuse = -1;
  }
  ~DeadMount() {
    abort();
    if (mounted) ::umount2(at.c_str(), MNT_DETACH);
  }
  std::string at;
  int fuse = -1;
  bool mounted = false;
};

// The names in a folder, read without looking at any of them.
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
    if (!found && ::poll(&p, 1, static_cast<int>(20000 - clock.elapsed())) > 0) {
      char events[4096];
      while (::read(watch, events, sizeof events) > 0) {
      }
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
    QFile old(q(d / "e.json"));
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("old export\n");
    old.close();

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
    EXPECT_EQ(readFile(q(d / "e.json")), "old export\n");
    EXPECT_EQ(names(d.path()), (QStringList{"config", "dead", "e.json", "tree"}));
  }
}

}  // namespace
}  // namespace ql::test
