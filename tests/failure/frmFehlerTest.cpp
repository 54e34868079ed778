#include "ui/dialogs/frmFehler.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include "TestApp.h"
#include "support/Globals.h"
#include "failure/FailureReport.h"

using namespace ql;

namespace {

// Answers every message box ("title|text") and report (its text, then "go on") but `keep` that
// opens while it lives, and notes what they said.
struct Answerer {
  QTimer timer;
  QStringList seen;
  explicit Answerer(QWidget* keep) {
    QObject::connect(&timer, &QTimer::timeout, [this, keep] {
      for (QWidget* w : QApplication::topLevelWidgets()) {
        if (!w->isVisible() || w == keep) continue;
        if (auto* box = qobject_cast<QMessageBox*>(w)) {
          seen << box->windowTitle() + QLatin1Char('|') + box->text();
          box->done(QMessageBox::Ok);
        } else if (auto* report = qobject_cast<frmFehler*>(w)) {
          seen << report->findChild<QPlainTextEdit*>(QStringLiteral("txtInfo"))->toPlainText();
          report->findChild<QPushButton*>(QStringLiteral("cmdWeiter"))->click();
        }
      }
    });
    timer.start(10);
  }
};

const QString kReport = QStringLiteral("Time: 01.02.2024 10:11:12\r\nFunc: x\r\nComp: box\r\n");

struct Fixture {
  QApplication& a = test::guiApp();  // before the dialog
  QTemporaryDir dir;
  frmFehler dialog;
  Fixture() {
    globals().DataFolder = dir.path();
    dialog.setReport(kReport);
    dialog.show();
  }
  ~Fixture() { globals().DataFolder.clear(); }
  QPushButton* button(const char* name) { return dialog.findChild<QPushButton*>(name); }
};

}  // namespace

// Save leaves the dialog open, writes the report and says where.
TEST(frmFehler, SaveWritesTheReport) {
  Fixture f;
  Answerer boxes(&f.dialog);
  f.button("cmdSpeichern")->click();
  EXPECT_TRUE(f.dialog.isVisible());
  const QStringList files = QDir(f.dir.path()).entryList({QStringLiteral("ERR*.txt")}, QDir::Files);
  ASSERT_EQ(files.size(), 1);
  QFile saved(f.dir.filePath(files[0]));
  ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
  EXPECT_EQ(saved.readAll(), kReport.toUtf8());
  ASSERT_EQ(boxes.seen.size(), 1);
  EXPECT_TRUE(boxes.seen[0].endsWith(QLatin1Char('|') + saved.fileName()));
}

TEST(frmFehler, FailureReportShowsTheDialog) {
  Fixture f;
  globals().SilentMode = false;
  installFailureDialog();
  Answerer answer(&f.dialog);
  FailureReport(QStringLiteral("Report_Rescan"), QStringLiteral("frmMain"), 0,
                QStringLiteral("boom"));
  setFailureDialogHandler({});

  ASSERT_EQ(answer.seen.size(), 1);
  EXPECT_TRUE(answer.seen[0].contains(QStringLiteral("\nFunc: Report_Rescan\nLine: 0\nErr: boom\n")));
  EXPECT_TRUE(answer.seen[0].contains(QRegularExpression(QStringLiteral("\nScreen: \\d+x\\d+\n"))));
}
