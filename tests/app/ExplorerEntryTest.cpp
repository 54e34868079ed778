// The file-manager entry on disk: written for awkward program paths so that a launcher gets the
// path back, valid as a desktop entry, found in the desktop database, and removed again.

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include "TestFiles.h"
#include "TestFs.h"
#include "app/ExplorerEntry.h"
#include "support/Globals.h"

namespace ql::test {
namespace {

// How a launcher reads the Exec line back: the value's escapes first, then the quoting of the
// arguments; "%%" is a literal percent sign and field codes stay as they are.
QStringList execArguments(QString value) {
  QString plain;
  for (int i = 0; i < value.size(); ++i) {
    if (value[i] == QLatin1Char('\\') && i + 1 < value.size() && value[i + 1] == QLatin1Char('\\')) ++i;
    plain += value[i];
  }
  QStringList args;
  QString cur;
  bool quoted = false, any = false;
  for (int i = 0; i < plain.size(); ++i) {
    const QChar c = plain[i];
    if (c == QLatin1Char('"')) {
      quoted = !quoted;
      any = true;
    } else if (quoted && c == QLatin1Char('\\') && i + 1 < plain.size()) {
      cur += plain[++i];
    } else if (!quoted && c == QLatin1Char(' ')) {
      if (any || !cur.isEmpty()) args << cur;
      cur.clear();
      any = false;
    } else if (c == QLatin1Char('%') && i + 1 < plain.size() && plain[i + 1] == QLatin1Char('%')) {
      cur += plain[++i];
    } else {
      cur += c;
    }
  }
  if (any || !cur.isEmpty()) args << cur;
  return args;
}

QString readAll(const QString& path) { return QString::fromUtf8(readFile(path)); }

QString execValue(const QString& entry) {
  for (const QString& line : entry.split(QLatin1Char('\n')))
    if (line.startsWith(QLatin1String("Exec="))) return line.mid(5);
  return {};
}

TEST(ExplorerEntry, AwkwardProgramPathsComeBackWholeAndValidate) {
  ensureApp();
  TempDir d;
  const QString folder = QString::fromStdString(d / "applications");
  const bool validator = !QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate")).isEmpty();
  for (const QString& program :
       {QStringLiteral("/opt/quorlane/bin/quorlane"), QStringLiteral("/home/a b/Mein \"Programm\"/quorlane"),
        QStringLiteral("/x/it's $HOME `id` 100% back\\slash/quor lane"), QStringLiteral("/x/ä ö/#(;)|&*?<>~")}) {
    SCOPED_TRACE(program.toStdString());
    ASSERT_TRUE(SetExplorerEntry(1, program, folder));
    const QString entry = readAll(folder + QStringLiteral("/quorlane-folder.desktop"));
    EXPECT_TRUE(entry.contains(QLatin1String("\nMimeType=inode/directory;\n")));
    EXPECT_EQ(execArguments(execValue(entry)), (QStringList{program, QStringLiteral("%f")}));
    if (validator) {
      QProcess p;
      p.setProcessChannelMode(QProcess::MergedChannels);
      p.start(QStringLiteral("desktop-file-validate"), {folder + QStringLiteral("/quorlane-folder.desktop")});
      ASSERT_TRUE(p.waitForFinished(10000));
      EXPECT_EQ(p.exitCode(), 0) << p.readAll().toStdString();
    }
  }
  if (!validator) GTEST_SKIP() << "desktop-file-validate is not installed";
}

TEST(ExplorerEntry, WrittenIntoTheDatabaseAndRemovedHarmlessly) {
  ensureApp();
  TempDir d;
  globals().DataFolder = QString::fromStdString(d.path());  // the failures below are logged there
  const QString folder = QString::fromStdString(d / "deep/applications");  // made on the way
  const QString file = folder + QStringLiteral("/quorlane-folder.desktop");
  ASSERT_TRUE(SetExplorerEntry(1, QStringLiteral("/usr/bin/quorlane"), folder));
  EXPECT_TRUE(QFile::exists(file));
  if (!QStandardPaths::findExecutable(QStringLiteral("update-desktop-database")).isEmpty()) {
    const QString cache = readAll(folder + QStringLiteral("/mimeinfo.cache"));
    EXPECT_TRUE(cache.contains(QLatin1String("inode/directory=quorlane-folder.desktop;"))) << cache.toStdString();
  }
  // Any value but 1 removes; a second removal finds nothing and is no failure.
  for (int value : {0, 99, 0}) {
    EXPECT_TRUE(SetExplorerEntry(value, QStringLiteral("/usr/bin/quorlane"), folder)) << value;
    EXPECT_FALSE(QFile::exists(file));
  }
  EXPECT_FALSE(readAll(folder + QStringLiteral("/mimeinfo.cache")).contains(QLatin1String("quorlane")));

  // A path no entry can hold, and a folder that cannot be made: nothing is written, false comes back.
  EXPECT_FALSE(SetExplorerEntry(1, QStringLiteral("/x/two\nlines/quorlane"), folder));
  EXPECT_FALSE(SetExplorerEntry(1, QStringLiteral("relative/quorlane"), folder));
  EXPECT_FALSE(QFile::exists(file));
  makeFile(d / "plain", 0);
  EXPECT_FALSE(SetExplorerEntry(1, QStringLiteral("/usr/bin/quorlane"), QString::fromStdString(d / "plain/apps")));
  EXPECT_TRUE(readAll(QString::fromStdString(d / "debug.log")).contains(QLatin1String("SetExplorerEntry\\mkpath")));
  globals().DataFolder.clear();
}

}  // namespace
}  // namespace ql::test
