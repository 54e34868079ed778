#include <gtest/gtest.h>
#include <QDesktopServices>
#include <QFile>
#include <QRegularExpression>
#include <QUrl>

#include "TestApp.h"
#include "TestFiles.h"
#include "TestFs.h"
#include "support/Globals.h"
#include "support/Logs.h"
#include "ui/Desktop.h"
#include "ui/dialogs/ShowLog.h"

namespace ql {

namespace {

class LogsTest : public ::testing::Test {
 protected:
  QString log(const char* name) { return QString::fromUtf8(test::readFile(dir / name)); }
  test::TempDir dir;
};

// Each write appends to its file in the data folder, whether or not that ends in a slash.
TEST_F(LogsTest, LinesAreAppendedWithTimeAndBlankLineOnRequest) {
  globals().DataFolder.clear();
  EXPECT_FALSE(WriteErrorLog("lost"));
  globals().DataFolder = QString::fromStdString(dir.path() + "/");
  ASSERT_TRUE(WriteErrorLog("first"));
  globals().DataFolder = QString::fromStdString(dir.path());
  ASSERT_TRUE(WriteErrorLog("Fehler in X\nzweite Zeile", true, true));
  ASSERT_TRUE(WriteErrorLog("bare", false, false));
  static const QRegularExpression error("^\\S.* - first\n\\S.* - Fehler in X\nzweite Zeile\n\nbare\n$");
  EXPECT_TRUE(error.match(log("error.log")).hasMatch()) << log("error.log").toStdString();

  EXPECT_FALSE(LogDebug("a", {1, "b"}));
  EXPECT_FALSE(LogDebug("ohne"));
  static const QRegularExpression debug("^\\S.* - a, 1, b\n\\S.* - ohne\n$");
  EXPECT_TRUE(debug.match(log("debug.log")).hasMatch()) << log("debug.log").toStdString();
  const QString line = WriteUpdateLog("Versionsüberprüfung gestartet.");
  EXPECT_TRUE(line.endsWith(" - Versionsüberprüfung gestartet."));
  EXPECT_EQ(log("internetupdate.log"), line + "\n");
}

TEST_F(LogsTest, ShowLogOpensTheLogOnlyWhenItIsThere) {
  test::guiApp();
  globals().DataFolder = QString::fromStdString(dir.path());
  test::UrlCatcher catcher;
  QDesktopServices::setUrlHandler("file", &catcher, "open");
  QString failed;
  EXPECT_FALSE(Show_Log(failed));
  EXPECT_TRUE(failed.isEmpty());
  test::writeFile(dir / "Quorlane.log", "");
  EXPECT_TRUE(Show_Log(failed));
  QDesktopServices::unsetUrlHandler("file");
  EXPECT_EQ(catcher.urls, QList<QUrl>{QUrl::fromLocalFile(QString::fromStdString(dir / "Quorlane.log"))});
  // A desktop that refuses it: the caller gets the line that says so.
  setUrlOpener([](const QUrl&) { return false; });
  EXPECT_FALSE(Show_Log(failed));
  setUrlOpener(nullptr);
  EXPECT_TRUE(failed.contains(QString::fromStdString(dir / "Quorlane.log"))) << failed.toStdString();
}

}  // namespace
}  // namespace ql
