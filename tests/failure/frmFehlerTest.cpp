#include "failure/frmFehler.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QEnterEvent>
#include <QFile>
#include <QLineEdit>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>

#include "app/Globals.h"
#include "failure/FailureReport.h"

using namespace ql;

namespace {

QApplication& app() {
  static int argc = 1;
  static char arg0[] = "frmFehlerTest";
  static char* argv[] = {arg0, nullptr};
  // Never destroyed: a QApplication torn down among the other statics at exit crashes.
  static QApplication* a = new QApplication(argc, argv);
  return *a;
}

void click(QAbstractButton* button) {
  const QPointF at = QRectF(button->rect()).center();
  const QPointF global = button->mapToGlobal(at);
  QMouseEvent press(QEvent::MouseButtonPress, at, global, Qt::LeftButton, Qt::LeftButton,
                    Qt::NoModifier);
  QMouseEvent release(QEvent::MouseButtonRelease, at, global, Qt::LeftButton, Qt::NoButton,
                      Qt::NoModifier);
  QApplication::sendEvent(button, &press);
  QApplication::sendEvent(button, &release);
}

// Answers every message box that opens while it lives, and notes what it said.
struct BoxAnswerer {
  QTimer timer;
  QStringList titles;
  QStringList texts;
  QList<QMessageBox::Icon> icons;
  BoxAnswerer() {
    timer.setInterval(10);
    QObject::connect(&timer, &QTimer::timeout, [this] {
      for (QWidget* w : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(w);
        if (!box || !box->isVisible()) continue;
        titles << box->windowTitle();
        texts << box->text();
        icons << box->icon();
        box->done(QMessageBox::Ok);
      }
    });
    timer.start();
  }
};

const QString kReport = QStringLiteral("Time: 01.02.2024 10:11:12\r\nFunc: x\r\nComp: box\r\n");

struct Fixture {
  QTemporaryDir dir;
  frmFehler dialog;
  Fixture() {
    globals().Datapath = dir.path();
    dialog.setReport(kReport);
    dialog.show();
  }
  ~Fixture() { globals().Datapath.clear(); }
  QPushButton* button(const char* name) {
    return dialog.findChild<QPushButton*>(QLatin1String(name));
  }
};

}  // namespace

class UrlCatcher : public QObject {
  Q_OBJECT
 public:
  QList<QUrl> urls;
 public Q_SLOTS:
  void open(const QUrl& url) { urls << url; }
};

TEST(frmFehler, SaveButtonWritesTheReportToAnErrFile) {
  app();
  Fixture f;
  BoxAnswerer boxes;
  click(f.button("cmdSpeichern"));

  const QStringList files = QDir(f.dir.path()).entryList({QStringLiteral("ERR*.txt")}, QDir::Files);
  ASSERT_EQ(files.size(), 1);
  QFile saved(f.dir.filePath(files[0]));
  ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
  EXPECT_EQ(saved.readAll(), kReport.toUtf8());
  ASSERT_EQ(boxes.texts.size(), 1);
  EXPECT_EQ(boxes.texts[0], saved.fileName());
  EXPECT_EQ(boxes.icons[0], QMessageBox::Information);
  EXPECT_TRUE(f.dialog.isVisible());
}

TEST(frmFehler, HoverShowsEachButtonsOwnHelp) {
  app();
  Fixture f;
  auto* help = f.dialog.findChild<QLineEdit*>(QStringLiteral("txtHelp"));
  ASSERT_TRUE(help);
  QStringList shown;
  for (const char* name : {"cmdDrucken", "cmdEmail", "cmdWeiter", "cmdBeenden", "cmdSpeichern"}) {
    QPushButton* b = f.button(name);
    ASSERT_TRUE(b) << name;
    const QPointF at(2, 2);
    QEnterEvent enter(at, at, b->mapToGlobal(at));
    QApplication::sendEvent(b, &enter);
    EXPECT_EQ(help->text(), b->toolTip()) << name;
    shown << help->text();
  }
  shown.removeDuplicates();
  shown.removeAll(QString());
  EXPECT_EQ(shown.size(), 5);
}

TEST(frmFehler, ContinueAndEndPutTheReportOnTheClipboard) {
  app();
  {
    Fixture f;
    QGuiApplication::clipboard()->setText(QStringLiteral("old"));
    click(f.button("cmdWeiter"));
    EXPECT_FALSE(f.dialog.isVisible());
    EXPECT_EQ(f.dialog.result(), QDialog::Accepted);
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              QStringLiteral("Time: 01.02.2024 10:11:12\nFunc: x\nComp: box\n"));
  }
  {
    Fixture f;
    QGuiApplication::clipboard()->setText(QStringLiteral("old"));
    bool ended = false;
    f.dialog.setEndProcess([&ended] { ended = true; });
    click(f.button("cmdBeenden"));
    EXPECT_TRUE(ended);
    EXPECT_TRUE(QGuiApplication::clipboard()->text().startsWith(QStringLiteral("Time: ")));
  }
}

TEST(frmFehler, PrintsOneDocument) {
  app();
  Fixture f;
  const QString pdf = f.dir.filePath(QStringLiteral("report.pdf"));
  f.dialog.setPrintOutputFile(pdf);
  click(f.button("cmdDrucken"));
  QFile out(pdf);
  ASSERT_TRUE(out.open(QIODevice::ReadOnly));
  EXPECT_TRUE(out.read(5).startsWith("%PDF-"));
}

TEST(frmFehler, EmailOpensTheMailUrlAndTellsToPaste) {
  app();
  Fixture f;
  UrlCatcher catcher;
  QDesktopServices::setUrlHandler(QStringLiteral("mailto"), &catcher, "open");
  BoxAnswerer boxes;
  click(f.button("cmdEmail"));
  QDesktopServices::unsetUrlHandler(QStringLiteral("mailto"));

  ASSERT_EQ(catcher.urls.size(), 1);
  const QByteArray url = catcher.urls[0].toEncoded();
  EXPECT_TRUE(url.startsWith("mailto:" + supportMailAddress().toUtf8() + "?subject=Bugreport_"))
      << url.toStdString();
  EXPECT_TRUE(url.contains("&body=%2A%2A%2A%20Bitte%20die%20Fehlerinformationen"))
      << url.toStdString();
  EXPECT_TRUE(url.contains("Kontextmen%FC%20der")) << url.toStdString();
  EXPECT_TRUE(url.endsWith("%2A%2A%2A%0A%0A")) << url.toStdString();
  ASSERT_EQ(boxes.titles.size(), 1);
  EXPECT_EQ(boxes.titles[0], QStringLiteral("WICHTIGER HINWEIS"));
  EXPECT_TRUE(boxes.texts[0].startsWith(QStringLiteral("Bitte die Fehlerinformationen")));
  EXPECT_TRUE(QGuiApplication::clipboard()->text().contains(QStringLiteral("Func: x")));
}

TEST(frmFehler, FailureReportShowsTheDialog) {
  app();
  QTemporaryDir dir;
  globals().Datapath = dir.path();
  globals().SilentMode = false;
  installFailureDialog();

  QString shown;
  QTimer answer;
  answer.setInterval(10);
  QObject::connect(&answer, &QTimer::timeout, [&shown] {
    for (QWidget* w : QApplication::topLevelWidgets()) {
      auto* dialog = qobject_cast<frmFehler*>(w);
      if (!dialog || !dialog->isVisible()) continue;
      shown = dialog->findChild<QPlainTextEdit*>(QStringLiteral("txtInfo"))->toPlainText();
      click(dialog->findChild<QPushButton*>(QStringLiteral("cmdWeiter")));
    }
  });
  answer.start();
  FailureReport(QStringLiteral("Report_Rescan"), QStringLiteral("frmMain"), 0,
                QStringLiteral("boom"));
  setFailureDialogHandler({});
  globals().Datapath.clear();

  EXPECT_TRUE(shown.contains(QStringLiteral("\nFunc: Report_Rescan\nLine: 0\nErr: boom\n")));
  EXPECT_TRUE(shown.contains(QRegularExpression(QStringLiteral("\nScreen: \\d+x\\d+\n"))));
  EXPECT_TRUE(QFile::exists(dir.filePath(QStringLiteral("error.log"))));
}

#include "frmFehlerTest.moc"
