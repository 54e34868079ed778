#include <gtest/gtest.h>
#include <QFile>
#include <QRegularExpression>

#include "TestFiles.h"
#include "TestFs.h"
#include "support/Globals.h"
#include "support/Logs.h"

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

}  // namespace
}  // namespace ql
