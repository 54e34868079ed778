#include <gtest/gtest.h>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QUrl>

#include "TestFs.h"
#include "app/Globals.h"
#include "app/Logs.h"
#include "app/ShowLog.h"

namespace ql {

// Stands in for the desktop's default handler.
class UrlCatcher : public QObject {
  Q_OBJECT
 public:
  QList<QUrl> urls;
 public Q_SLOTS:
  void open(const QUrl& url) { urls << url; }
};

namespace {

void ensureGuiApp() {
  static int argc = 1;
  static char arg0[] = "test";
  static char* argv[] = {arg0, nullptr};
  if (QCoreApplication::instance()) return;
  qputenv("QT_QPA_PLATFORM", "offscreen");
  new QGuiApplication(argc, argv);
}

class LogsTest : public ::testing::Test {
 protected:
  void SetUp() override { globals().Datapath = QString::fromStdString(dir.path()); }
  QString log(const char* name) {
    QFile f(QString::fromStdString(dir / name));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QStringLiteral("<none>");
  }
  test::TempDir dir;
};

TEST_F(LogsTest, TheFolderIsJoinedWithOneSlash) {
  for (const QString& folder :
       {QString::fromStdString(dir.path()), QString::fromStdString(dir.path() + "/")}) {
    globals().Datapath = folder;
    EXPECT_EQ(logFilePath("error.log"), QString::fromStdString(dir / "error.log"));
    ASSERT_TRUE(WriteErrorLog("x", false, false));
  }
  EXPECT_EQ(log("error.log"), "x\nx\n");  // appended, never truncated
}

TEST_F(LogsTest, ErrorLogLinesCarryTimeAndBlankLineOnRequest) {
  ASSERT_TRUE(WriteErrorLog("first"));
  ASSERT_TRUE(WriteErrorLog("Fehler in X\nzweite Zeile", true, true));
  ASSERT_TRUE(WriteErrorLog("bare", false, false));
  static const QRegularExpression re(
      "^\\S.* - first\n\\S.* - Fehler in X\nzweite Zeile\n\nbare\n$");
  EXPECT_TRUE(re.match(log("error.log")).hasMatch()) << log("error.log").toStdString();
}

TEST_F(LogsTest, DebugAndUpdateLinesHaveTimeTextAndValues) {
  LogDebug("a", {1, "b"});
  LogDebug("ohne");
  static const QRegularExpression debug("^\\S.* - a, 1, b\n\\S.* - ohne\n$");
  EXPECT_TRUE(debug.match(log("debug.log")).hasMatch()) << log("debug.log").toStdString();

  const QString line = WriteUpdateLog("Versionsüberprüfung gestartet.");
  EXPECT_TRUE(line.endsWith(" - Versionsüberprüfung gestartet."));
  EXPECT_FALSE(line.startsWith(" - "));
  EXPECT_EQ(log("internetupdate.log"), line + "\n");
}

TEST_F(LogsTest, NothingIsWrittenWithoutADataFolder) {
  globals().Datapath.clear();
  EXPECT_FALSE(WriteErrorLog("x"));
  EXPECT_EQ(logFilePath("error.log"), "");
}

TEST_F(LogsTest, ShowLogOpensTheLogOnlyWhenItIsThere) {
  ensureGuiApp();
  UrlCatcher catcher;
  QDesktopServices::setUrlHandler("file", &catcher, "open");
  EXPECT_FALSE(Show_Log());
  EXPECT_TRUE(catcher.urls.isEmpty());

  QFile f(QString::fromStdString(dir / "Quorlane.log"));
  ASSERT_TRUE(f.open(QIODevice::WriteOnly));
  f.close();
  EXPECT_TRUE(Show_Log());
  EXPECT_EQ(catcher.urls,
            QList<QUrl>{QUrl::fromLocalFile(QString::fromStdString(dir / "Quorlane.log"))});
  QDesktopServices::unsetUrlHandler("file");
}

}  // namespace
}  // namespace ql

#include "LogsTest.moc"
