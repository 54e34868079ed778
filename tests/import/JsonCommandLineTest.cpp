// --export and --import from the command line, and the exports of the other tools that read and
// write the format (when they are installed).

#include <gtest/gtest.h>

#include <functional>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

#include "TestFs.h"
#include "import/JsonImport.h"

namespace ql::test {
namespace {

struct Outcome {
  int status = -1;
  QByteArray out, err;
};

Outcome run(const QString& program, const QStringList& args, const QString& config = {}) {
  ensureApp();
  QProcess p;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  if (!config.isEmpty()) env.insert("XDG_CONFIG_HOME", config);
  env.insert("LC_ALL", "C.UTF-8");
  p.setProcessEnvironment(env);
  p.start(program, args);
  EXPECT_TRUE(p.waitForFinished(60000));
  return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
          p.readAllStandardError()};
}

Outcome quorlane(const QStringList& args, const QString& config = {}) {
  return run(QStringLiteral(QUORLANE_BIN_PATH), args, config);
}

QByteArray read(const QString& file) {
  QFile f(file);
  return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
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
  const QByteArray file = read(q(d / "x.json"));
  EXPECT_EQ(toStdout.out.mid(toStdout.out.indexOf('\n')), file.mid(file.indexOf('\n')));

  o = quorlane({"-s2", q(d / "imported.csv"), "--import", q(d / "x.json")}, q(d / "config"));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  o = quorlane({"-s2", q(d / "walked.csv"), q(d / "tree")}, q(d / "config"));
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  EXPECT_EQ(read(q(d / "imported.csv")), read(q(d / "walked.csv")));
  EXPECT_TRUE(read(q(d / "walked.csv")).contains("tree/a/b"));

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

// Out of descriptors the export fails and says why, the file there stays as it was, and no
// temporary file is left. A limit that lets the walk through gives the whole export.
TEST_F(JsonCommandLine, AnExportOutOfDescriptorsKeepsTheOldFile) {
  std::function<void(const std::string&, int)> grow = [&](const std::string& base, int depth) {
    for (int i = 0; i < 6; ++i) {
      const std::string sub = base + "/d" + std::to_string(i);
      makeDir(sub);
      makeFile(sub + "/f", 10 * depth + i + 1);
      if (depth > 1) grow(sub, depth - 1);
    }
  };
  makeDir(d / "big");
  grow(d / "big", 3);
  ASSERT_EQ(quorlane({"--export", q(d / "full.json"), q(d / "big")}).status, 0);
  const QByteArray full = read(q(d / "full.json"));
  const QString x = q(d / "x.json");
  int shortages = 0;
  for (int limit = 5; limit <= 12; ++limit) {
    SCOPED_TRACE(limit);
    QFile old(x);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();
    const Outcome o = run("sh", {"-c", QString("ulimit -n %1 && exec \"$0\" \"$@\"").arg(limit),
                                 QStringLiteral(QUORLANE_BIN_PATH), "--export", x, q(d / "big")});
    EXPECT_TRUE(QDir(q(d.path())).entryList({"x.json.*"}).isEmpty());
    if (o.status == 0) {
      const QByteArray got = read(x);
      EXPECT_TRUE(got.mid(got.indexOf('\n')) == full.mid(full.indexOf('\n')))  // all but the time
          << "differs from the export with no limit";
      continue;
    }
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(read(x), "old");
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

}  // namespace
}  // namespace ql::test
