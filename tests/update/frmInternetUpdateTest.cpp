// The update dialog as a user meets it: check, history, download with Cancel, the option that
// checks on opening, and the hand-over of the file when the user agrees.

#include "ui/dialogs/frmInternetUpdate.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "TestApp.h"
#include "TestFiles.h"
#include "TestHttpServer.h"
#include "support/Globals.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"
#include "report/SizeFormat.h"
#include "update/UpdateRules.h"

namespace ql::test {
namespace {

class UpdateDialog : public ::testing::Test {
 protected:
  void SetUp() override {
    globals().IniFile = dir.filePath(QStringLiteral("Quorlane.ini"));
    globals().DataFolder = dir.path();
    globals().AppVersion = QStringLiteral("2.3");
    qputenv(kUpdateUrlVariable, server.base().toUtf8());
    StoreSettings(QStringLiteral("InternetUpdate"), QStringLiteral("Dpath"), dir.path());
    setFailureDialogHandler([this](const QString& r) { reports << r; });
  }
  void TearDown() override {
    setFailureDialogHandler({});
    qunsetenv(kUpdateUrlVariable);
    globals().IniFile.clear();
    globals().DataFolder.clear();
  }
  // A dialog as the main window opens it, shown and activated.
  std::unique_ptr<frmInternetUpdate> open() {
    auto d = std::make_unique<frmInternetUpdate>();
    HttpLimits l;
    l.idleTimeoutMs = 2000;
    d->setHttpLimits(l);
    d->show();
    QCoreApplication::processEvents();
    return d;
  }
  void serveVersion(const char* v) { server.text("/version/Version_Quorlane.txt", v); }

  struct App {
    App() { guiApp(); }
  } app;  // before the server, whose sockets need the application's event dispatcher
  QTemporaryDir dir;
  TestHttpServer server;
  QStringList reports;
};

TEST_F(UpdateDialog, NewerVersionIsOfferedWithItsHistoryAndDownloadedOnTheUsersWord) {
  serveVersion("v2.4.0\r\n");
  server.text("/version/History_Quorlane_eng.txt", "2.4.0\nfaster\nsmaller");
  const QByteArray installer(300000, 'i');
  server.set("/asp/fdl.asp?P=30", Route::ok(installer).pieces(30000));
  auto d = open();
  d->chkUpdateOberflaeche->setChecked(true);
  d->cmdUPDATE->click();

  EXPECT_EQ(d->lblVersionInternet->text(), QStringLiteral("2.4.0"));
  EXPECT_EQ(d->lblVersionBeta->text(), QStringLiteral("-"));
  EXPECT_EQ(d->historyText(1), QStringLiteral("2.4.0\nfaster\nsmaller"));
  EXPECT_TRUE(d->logText().contains(QStringLiteral("NEU: Quorlane Update 2.4.0")));
  EXPECT_TRUE(d->cmdDownload->isEnabled());
  EXPECT_TRUE(d->optUpdate[0]->isChecked() && !d->optUpdate[1]->isEnabled());
  EXPECT_FALSE(d->busy());

  QString asked;
  d->setInstallQuestion([&](const QString& q) { return asked = q, true; });
  d->cmdDownload->click();
  const QString file = dir.filePath(QStringLiteral("Quorlane_Update_2.4.0.deb"));
  EXPECT_TRUE(asked.contains(QStringLiteral("Quorlane"))) << asked.toStdString();
  EXPECT_EQ(d->result(), QDialog::Accepted);
  EXPECT_EQ(readFile(file), installer);
  EXPECT_EQ(pendingUpdate().UpdateMode, 2);
  EXPECT_EQ(d->lblFortschrittWert->text(), groupedInteger(300000) + QStringLiteral(" / ") +
                                               groupedInteger(300000) + QStringLiteral(" Bytes"));

  QList<QUrl> opened;
  setInstallerOpener([&](const QUrl& u) { return opened << u, true; });
  StartPendingInstaller();
  StartPendingInstaller();  // once only
  EXPECT_EQ(opened, QList<QUrl>{QUrl::fromLocalFile(file)});
  EXPECT_EQ(pendingUpdate().UpdateMode, 0);

  const QString logged = QString::fromUtf8(readFile(dir.filePath("internetupdate.log")));
  for (const char* line : {" - Versionsüberprüfung gestartet.\n", " - Download gestartet.\n",
                           " - Download beendet: "})
    EXPECT_TRUE(logged.contains(QString::fromUtf8(line))) << line;
}

TEST_F(UpdateDialog, NothingNewFailuresAndAMissingHistory) {
  const struct {
    const char* file;
    const char* logged;
  } cases[] = {{"v2.3.0", "Es ist keine neue Version im Internet vorhanden."},
               {"", "Es ist keine neue Version im Internet vorhanden."},
               {nullptr, "Bei der Überprüfung ist ein Fehler aufgetreten: HttpQueryStatusCode: 404"}};
  for (const auto& c : cases) {
    server.set("/version/Version_Quorlane.txt", c.file ? Route::ok(c.file) : Route::code(404));
    auto d = open();
    d->cmdUPDATE->click();
    EXPECT_TRUE(d->logText().contains(QString::fromUtf8(c.logged))) << d->logText().toStdString();
    EXPECT_FALSE(d->cmdDownload->isEnabled()) << c.logged;
    EXPECT_TRUE(d->isVisible()) << "only a silent check closes by itself";
  }

  // A version that is no version is refused with a message, and nothing is offered.
  serveVersion("#2.4\r\n");
  auto d = open();
  d->cmdUPDATE->click();
  EXPECT_TRUE(d->logText().contains(QStringLiteral("wird nicht angenommen: '2.4'")))
      << d->logText().toStdString();
  EXPECT_TRUE(reports.isEmpty());
  EXPECT_FALSE(d->cmdDownload->isEnabled());
  EXPECT_FALSE(d->busy());

  // The history may be missing: its error stands in the tab, the version is still offered.
  serveVersion("v3.0.0");
  d->cmdUPDATE->click();
  EXPECT_EQ(d->historyText(1), QStringLiteral("HttpQueryStatusCode: 404"));
  EXPECT_TRUE(d->cmdDownload->isEnabled());

  // A silent check that finds nothing closes the dialog.
  serveVersion("v2.3.0");
  auto silent = std::make_unique<frmInternetUpdate>();
  silent->Silent = true;
  silent->show();
  QTRY_VERIFY_WITH_TIMEOUT(!silent->isVisible(), 5000);
}

// The server's version names the downloaded file: a way out of the download folder is refused
// before anything is fetched, and says so in the dialog and in the log.
TEST_F(UpdateDialog, AVersionThatLeadsOutOfTheDownloadFolderIsRefused) {
  const QString folder = dir.filePath(QStringLiteral("dl"));
  StoreSettings(QStringLiteral("InternetUpdate"), QStringLiteral("Dpath"), folder);
  serveVersion("v9.9.9./../../escaped");
  server.set("/asp/fdl.asp?P=30", Route::ok(QByteArray(1000, 'x')));
  auto d = open();
  d->setInstallQuestion([](const QString&) { return false; });
  d->cmdUPDATE->click();
  const QString refused = QStringLiteral(
      "Die Versionsangabe des Servers wird nicht angenommen: '9.9.9./../../escaped' (erwartet sind "
      "drei Zahlen mit Punkten, etwa 2.4.0).");
  EXPECT_TRUE(d->logText().contains(refused)) << d->logText().toStdString();
  EXPECT_EQ(d->lblVersionInternet->text(), QStringLiteral("-"));
  EXPECT_FALSE(d->cmdDownload->isEnabled());

  d->cmdDownload_Click();  // even when asked for, nothing is fetched
  EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("escaped.deb"))));
  EXPECT_TRUE(
      d->logText().contains(QStringLiteral("Der Download konnte nicht durchgeführt werden.")));
  EXPECT_EQ(server.requestLines.size(), 1) << "only the version file";
  EXPECT_TRUE(QString::fromUtf8(readFile(dir.filePath("internetupdate.log"))).contains(refused));
}

TEST_F(UpdateDialog, CancelHalfWayRemovesTheFileAndCloseWaitsForIt) {
  serveVersion("v2.4.0");
  server.set("/asp/fdl.asp?P=30", Route::ok(QByteArray(400000, 'x')).stall(200000));
  auto d = open();
  d->cmdUPDATE->click();
  bool closedWhileBusy = true;
  QTimer watch;
  QObject::connect(&watch, &QTimer::timeout, [&] {
    if (d->barFortschritt->value() < 500) return;
    watch.stop();
    d->close();  // refused: the download runs
    closedWhileBusy = !d->isVisible();
    d->cmdAbbrechen->click();
  });
  watch.start(10);
  d->cmdDownload->click();
  EXPECT_FALSE(closedWhileBusy);
  EXPECT_EQ(d->lblFortschrittWert->text(), QStringLiteral("-"));
  EXPECT_TRUE(d->logText().contains(QStringLiteral("Download vom Anwender abgebrochen.")));
  EXPECT_FALSE(d->logText().contains(QStringLiteral("ERROR: ")));
  EXPECT_FALSE(QFile::exists(d->downloadPathShown()));
  EXPECT_EQ(pendingUpdate().UpdateMode, 0);
  EXPECT_TRUE(d->cmdDownload->isEnabled());
}

TEST_F(UpdateDialog, CheckOnOpeningAndOptionsKeptScrambled) {
  serveVersion("v2.3.0");
  {
    auto d = open();
    QCoreApplication::processEvents();
    EXPECT_TRUE(server.requestLines.isEmpty()) << "no check unless asked for";
    d->chkPrgStartVersionPruefen->setChecked(true);
    d->txtProxyPW->setText(QStringLiteral("geheim"));
    d->close();
  }
  EXPECT_EQ(GetSettings(QStringLiteral("InternetUpdate"), QStringLiteral("ProxyPasswort")),
            CryptIt(QStringLiteral("geheim"), true));
  auto d = open();
  QTRY_COMPARE_WITH_TIMEOUT(server.requestLines.size(), 1, 5000);
  EXPECT_EQ(d->txtProxyPW->text(), QStringLiteral("geheim"));
}

}  // namespace
}  // namespace ql::test
