// The silent run end to end: the real program, a real tree, the report file and the exit status.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <functional>

#include <fcntl.h>
#include <unistd.h>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"

namespace ql::test {
namespace {

struct Ran {
  int status = -1;
  QString out, err;
};

// Runs the program with its own settings folder, in a German environment unless told otherwise;
// with a descriptor limit, on 16 walk threads.
Ran quorlane(const QStringList& args, const QString& config, const QString& lang = "de_DE.UTF-8",
             int fdLimit = 0) {
  QList<std::pair<QString, QString>> env{{"XDG_CONFIG_HOME", config}, {"LC_ALL", lang}};
  QString program = QStringLiteral(QUORLANE_BIN_PATH);
  QStringList all = args;
  if (fdLimit > 0) {
    env.append({QStringLiteral("QUORLANE_THREADS"), QStringLiteral("16")});
    all = QStringList{"-c", QString("ulimit -n %1 && exec \"$0\" \"$@\"").arg(fdLimit), program} + args;
    program = "sh";
  }
  const Outcome o = runProgram(program, all, env);
  return {o.status, QString::fromUtf8(o.out), QString::fromUtf8(o.err)};
}

QByteArray read(const QString& file) { return readFile(file); }

class SilentRun : public ::testing::Test {
 protected:
  void SetUp() override {
    makeDir(a / "sub");
    makeFile(a / "sub/f", 2048);
    makeFile(a / "own", 1024);
    ASSERT_EQ(::symlink("sub", (a / "link").c_str()), 0);
    makeDir(b / "X ");
    makeFile(b / "X /f", 100);
    makeDir(b / "X");
    makeFile(b / "X/f", 7);
  }
  QString q(const std::string& s) { return QString::fromStdString(s); }
  TempDir a, b;
  QTemporaryDir work;
};

// Every source there is, taken exactly as given: "X " is not "X".
TEST_F(SilentRun, WritesTheReportOfAllSourcesAndEndsWithZero) {
  const QString out = work.filePath("report.csv");
  const Ran r = quorlane({"-s1", out, "--", q(a.path()), q(b / "X "), q(a / "missing")}, work.path());
  EXPECT_TRUE(r.status == 0 && r.err.isEmpty()) << r.status << " " << r.err.toStdString();
  const QByteArray csv = read(out);
  // The larger source first; a link is a row of its own with nothing in it.
  EXPECT_TRUE(csv.contains(("\"" + a.path() + "\";\"3072\";2;2\r\n").c_str())) << csv.toStdString();
  EXPECT_TRUE(csv.contains(("\"" + a.path() + "/sub\";\"2048\";1;0\r\n").c_str()));
  EXPECT_TRUE(csv.contains(("\"" + a.path() + "/link\";\"0\";0;0\r\n").c_str()));
  EXPECT_TRUE(csv.contains(("\"" + b / "X " + "\";\"100\";1;0\r\n").c_str()));
  EXPECT_LT(csv.indexOf(a.path().c_str()), csv.indexOf(b.path().c_str()));
}

TEST_F(SilentRun, ReadsLanguageUnitDecimalsAndLinksFromTheSettings) {
  // No language chosen yet: the environment's, which is then kept in the settings.
  const QString out = work.filePath("r.csv");
  ASSERT_EQ(quorlane({"-s", out, q(a.path())}, work.path(), "ru_RU.UTF-8").status, 0);
  EXPECT_TRUE(read(out).startsWith("\"Путь\";")) << read(out).toStdString();
  EXPECT_TRUE(read(work.filePath("Quorlane/Quorlane.ini")).contains("Lang=25"));
  // A language in the settings wins over the environment.
  writeFile(work.filePath("Quorlane/Quorlane.ini"), "[optionen]\nfilesizeformat=1\nSizeFormatNachkommastellenFolders=0\nNoHardlinks=1\n"
           "[Allgemein]\nLang=9\n");
  const QString txt = work.filePath("r.TXT");
  ASSERT_EQ(quorlane({"-s", txt, q(a.path())}, work.path(), "ru_RU.UTF-8").status, 0);
  const QByteArray got = read(txt);
  EXPECT_TRUE(got.startsWith("Size (KB)\tFiles\tFolders\tPath\r\n")) << got.toStdString();
  EXPECT_TRUE(got.contains(("        3\t    2\t      1\t" + a.path() + "\r\n").c_str())) << got.toStdString();
  EXPECT_TRUE(got.contains("/[Files]\r\n"));
  EXPECT_FALSE(got.contains("link"));
}

// Usage errors end with 2 before anything is touched; a run that fails ends with 1 and says why
// in one line, on standard error and in the log.
TEST_F(SilentRun, UsageErrorsAndFailuresEndNonZero) {
  const QString out = work.filePath("r.csv");
  for (const QStringList& args : {QStringList{"-s", out}, QStringList{"-s", out, "-x", "/tmp"},
                                  QStringList{"-x", q(a.path())}}) {
    const Ran r = quorlane(args, work.path());
    EXPECT_EQ(r.status, 2) << args.join(' ').toStdString();
    EXPECT_TRUE(r.err.split('\n', Qt::SkipEmptyParts).value(1).startsWith("Usage: quorlane"))
        << r.err.toStdString();
  }
  EXPECT_FALSE(QFile::exists(work.filePath("Quorlane")));  // no settings read or made
  EXPECT_EQ(quorlane({"--help"}, work.path()).status, 0);

  // No source there at all is a failed run too, not a silent nothing.
  const std::pair<QStringList, QString> failed[] = {
      {{"-s", out, q(a / "gone")}, "Keiner der angegebenen Ordner"},
      {{"-s", work.filePath("no/r.csv"), q(a.path())}, "no/r.csv"},
      {{"-s", out, q(a / "own")}, "kann nicht gelesen werden"}};  // there, but no folder
  for (const auto& [args, says] : failed) {
    const Ran r = quorlane(args, work.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(says)) << r.err.toStdString();
  }
  EXPECT_FALSE(read(work.filePath("Quorlane/error.log")).isEmpty());
}

// Out of descriptors the run fails and says why; the report there stays as it was, and no
// temporary file is left beside it. A limit that lets the walk through gives the whole report.
TEST_F(SilentRun, ARunOutOfDescriptorsKeepsTheOldReport) {
  TempDir t;
  growTree(t.path(), 3);
  const QString full = work.filePath("full.csv"), out = work.filePath("keep.csv");
  ASSERT_EQ(quorlane({"-s0", full, q(t.path())}, work.path()).status, 0);
  int shortages = 0;
  for (int limit = 5; limit <= 12; ++limit) {
    SCOPED_TRACE(limit);
    writeFile(out, "old");
    const Ran r = quorlane({"-s0", out, q(t.path())}, work.path(), "de_DE.UTF-8", limit);
    if (r.status == 0) {
      EXPECT_EQ(read(out), read(full));
      continue;
    }
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(read(out), "old");
    EXPECT_EQ(QDir(work.path()).entryList(QDir::Files), (QStringList{"full.csv", "keep.csv"}));
    shortages += r.err.contains("Zu viele offene Dateien");
  }
  EXPECT_GT(shortages, 0) << "no limit was low enough to test";
}

// A source longer than any path the system takes in one go is measured like any other.
TEST_F(SilentRun, ASourceOfAnyLengthIsRead) {
  std::string deep = a.path();  // 24 names of 200 bytes
  const int fd = makeChain(deep, 24, [](int i) { return std::string(200, char('a' + i)); });
  ASSERT_GE(fd, 0);
  const int f = ::openat(fd, "f", O_WRONLY | O_CREAT, 0644);
  ASSERT_EQ(::ftruncate(f, 300), 0);
  ::close(f);
  ::close(fd);
  const QString out = work.filePath("r.csv");
  const Ran r = quorlane({"-s", out, q(deep)}, work.path());
  ASSERT_EQ(r.status, 0) << r.err.toStdString();
  EXPECT_TRUE(read(out).split('\n').value(1).endsWith(";\"300\";1;0\r")) << read(out).left(200).toStdString();
}

}  // namespace
}  // namespace ql::test
