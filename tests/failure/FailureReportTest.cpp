#include "failure/FailureReport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "support/Globals.h"

using namespace ql;

TEST(FailureReport, ComponentMessageAndReleaseMarkers) {
  ErrorTextFacts f;
  f.appName = QStringLiteral("Quorlane");
  f.appVersion = QStringLiteral("0.1.0");
  const QString text =
      composeErrorText(f, QStringLiteral("p"), QStringLiteral("m"), 7, {429, QStringLiteral("x")});
  EXPECT_TRUE(text.startsWith(QStringLiteral("Eine benötigte Programmbibliothek fehlt,")));
  EXPECT_TRUE(text.contains(QStringLiteral("\r\nLine: 7\r\nErr: 429 - x\r\n")));
  f.releaseCandidate = 3;
  f.beta = 1;  // a beta is marked so whatever its candidate number
  EXPECT_TRUE(composeErrorText(f, {}, {}, 0, {}).contains(QStringLiteral("0.1.0 [BETA]\r\n")));
}

TEST(FailureReport, ReportNamesThePlaceTheMessageAndTheValues) {
  QTemporaryDir dir;
  globals().DataFolder = dir.path();
  globals().Errcount = 0;
  Stop stop;
  stop.request();
  setFailureStop(&stop);
  globals().SilentMode = false;
  QStringList reports;
  setFailureDialogHandler([&reports](const QString& r) { reports << r; });
  FailureReport(QStringLiteral("Report_Rescan"), QStringLiteral("frmMain"), 0,
                QStringLiteral("boom"), {QStringLiteral("/data"), QStringLiteral("7")});
  setFailureCommandLine(QStringLiteral("\"/home\""));
  FailureReport(QStringLiteral("p2"), QStringLiteral("m2"), 12,
                FailureError{53, QStringLiteral("x")});
  setFailureDialogHandler({});
  setFailureCommandLine(QString());
  setFailureStop(nullptr);
  globals().DataFolder.clear();
  ASSERT_EQ(reports.size(), 2);

  const std::pair<int, const char*> parts[] = {
      {0, "\r\nModul: frmMain\r\nFunc: Report_Rescan\r\nLine: 0\r\nErr: boom\r\n"},
      {0, "\r\nErrcount: 1\r\n"}, {0, "\r\nStop:3,0\r\nDebug0: /data\r\nDebug1: 7\r\n"},
      {1, "\r\nModul: m2\r\nFunc: p2\r\nLine: 12\r\nErr: 53 - x\r\n"},
      {1, "\r\nCommand: \"/home\"\r\nUser: "}, {1, "\r\nErrcount: 2\r\n"}};
  for (const auto& [i, part] : parts) EXPECT_TRUE(reports[i].contains(QLatin1String(part))) << part;
  EXPECT_FALSE(reports[0].contains(QStringLiteral("Command: ")));
  EXPECT_FALSE(reports[1].contains(QStringLiteral("Debug0")));
}

TEST(FailureReport, SilentRunAppendsToErrorLogAndCounts) {
  QTemporaryDir dir;
  globals().DataFolder = dir.path();
  globals().SilentMode = true;
  // Even with a dialog registered, a silent run shows nothing.
  bool shown = false;
  setFailureDialogHandler([&shown](const QString&) { shown = true; });
  const int before = failureCount();
  testing::internal::CaptureStderr();
  FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0,
                QStringLiteral("Cannot write\r\nthe file"), {QStringLiteral("/out.csv")});
  FailureReport(QStringLiteral("Second"), QStringLiteral("frmSave"), 3, QStringLiteral("again"));
  const std::string err = testing::internal::GetCapturedStderr();
  setFailureDialogHandler({});
  globals().SilentMode = false;
  globals().DataFolder.clear();

  EXPECT_FALSE(shown);
  EXPECT_EQ(failureCount(), before + 2);
  EXPECT_EQ(err,
            "quorlane: frmSave.SPEICHERN: Cannot write the file [/out.csv]\n"
            "quorlane: frmSave.Second (3): again\n");
  QFile log(dir.filePath(QStringLiteral("error.log")));
  ASSERT_TRUE(log.open(QIODevice::ReadOnly));
  const QString text = QString::fromUtf8(log.readAll());
  // Two blocks, each opened by the time and closed by a blank line, with LF line ends.
  const QStringList blocks = text.split(QStringLiteral("\n\n"), Qt::SkipEmptyParts);
  ASSERT_EQ(blocks.size(), 2);
  EXPECT_TRUE(blocks[0].contains(QStringLiteral(" - Time: ")));
  EXPECT_TRUE(blocks[0].endsWith(QStringLiteral("\nDebug0: /out.csv")));
  EXPECT_TRUE(blocks[1].contains(QStringLiteral("\nModul: frmSave\nFunc: Second\nLine: 3\nErr: again\n")));
  EXPECT_TRUE(text.endsWith(QStringLiteral("\n\n")) && !text.contains(QLatin1Char('\r')));
}

TEST(FailureReport, SaveMakesANewFileEachTimeAndReportsAFolderItCannotMake) {
  QTemporaryDir dir;
  const QString report = QStringLiteral("Time: x\r\nComp: y\r\n");
  QString error;
  const QString first = SaveErrorReport(dir.path(), report, &error);
  ASSERT_FALSE(first.isEmpty()) << error.toStdString();
  EXPECT_NE(SaveErrorReport(dir.path(), report, &error), first);
  // Two reports and nothing else: no temporary file is left behind.
  const QStringList files = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
  EXPECT_EQ(files, QDir(dir.path()).entryList({QStringLiteral("ERR*.txt")}, QDir::Files));
  EXPECT_EQ(files.size(), 2);

  QFile blocker(dir.filePath(QStringLiteral("file")));
  ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
  EXPECT_TRUE(SaveErrorReport(dir.filePath(QStringLiteral("file/sub")), report, &error).isEmpty());
  EXPECT_FALSE(error.isEmpty());
}
