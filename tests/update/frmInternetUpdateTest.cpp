// The update dialog as a user meets it: check, history, download with Cancel, and the hand-over
// of the file when the user agrees.

#include "ui/dialogs/frmInternetUpdate.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QLabel>
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
    desktop("test-installer");
  }
  void TearDown() override {
    qputenv("PATH", path);
    setFailureDialogHandler({});
    qunsetenv(kUpdateUrlVariable);
    globals().IniFile.clear();
    globals().DataFolder.clear();
  }
  // A dialog as the main window opens it, shown and activated.
  std::unique_ptr<frmInternetUpdate> open() {
    auto d = std::make_unique<frmInternetUpdate>();
    d->setHttpLimits({.idleTimeoutMs = 2000});
    d->show();
    QCoreApplication::processEvents();
    return d;
  }
  void serveVersion(const char* v) { server.text("/version/Version_Quorlane.txt", v); }
  // What the dialog finds to open the package with: xdg-open and the program xdg-mime names for
  // the type, or (nullptr) neither.
  void desktop(const char* handler) {
    const QString bin = dir.filePath(handler ? "desktop" : "bare");
    QDir().mkpath(bin);
    if (handler) {
      writeFile(bin + "/xdg-open", "#!/bin/sh\n");
      writeFile(bin + "/xdg-mime", QByteArray("#!/bin/sh\n[ \"$*\" = 'query default "
                                              "application/vnd.debian.binary-package' ] && echo ") +
                                       handler + ".desktop\n");
      for (const char* tool : {"/xdg-open", "/xdg-mime"})
        QFile::setPermissions(bin + tool, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    qputenv("PATH", bin.toUtf8());
  }

  struct App {
    App() { guiApp(); }
  } app;  // before the server, whose sockets need the application's event dispatcher
  const QByteArray path = qgetenv("PATH");
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
  EXPECT_EQ(d->historyText(1), QStringLiteral("2.4.0\nfaster\nsmaller"));
  EXPECT_TRUE(d->logText().contains(QStringLiteral("NEU: Quorlane Update 2.4.0")));
  EXPECT_TRUE(d->cmdDownload->isEnabled());
  EXPECT_TRUE(d->optUpdate[0]->isChecked() && !d->optUpdate[1]->isEnabled());
  EXPECT_FALSE(d->busy());

  QString asked;
  bool cancelWhenAsked = true;
  d->setInstallQuestion([&](const QString& q) {
    return asked = q, cancelWhenAsked = d->cmdAbbrechen->isEnabled(), true;
  });
  d->cmdDownload->click();
  const QString file = dir.filePath(QStringLiteral("Quorlane_Update_2.4.0.deb"));
  for (const char* said : {"Quorlane", "xdg-open mit test-installer"})
    EXPECT_TRUE(asked.contains(QString::fromUtf8(said))) << asked.toStdString();
  EXPECT_FALSE(cancelWhenAsked);
  EXPECT_EQ(d->result(), QDialog::Accepted);
  EXPECT_EQ(readFile(file), installer);
  EXPECT_EQ(pendingUpdate().UpdateMode, 2);

  QList<QUrl> opened;
  setInstallerOpener([&](const QUrl& u) { return opened << u, true; });
  StartPendingInstaller();
  StartPendingInstaller();  // once only
  EXPECT_EQ(opened, QList<QUrl>{QUrl::fromLocalFile(file)});
  EXPECT_EQ(pendingUpdate().UpdateMode, 0);

}

TEST_F(UpdateDialog, NothingNewFailuresAndAMissingHistory) {
  const struct {
    const char* file;
    const char* logged;
  } cases[] = {{"v2.3.0", "Es ist keine neue Version im Internet vorhanden."},
               {nullptr, "Bei der Überprüfung ist ein Fehler aufgetreten: HttpQueryStatusCode: 404"}};
  for (const auto& c : cases) {
    server.set("/version/Version_Quorlane.txt", c.file ? Route::ok(c.file) : Route::code(404));
    auto d = open();
    d->cmdUPDATE->click();
    EXPECT_TRUE(d->logText().contains(QString::fromUtf8(c.logged))) << d->logText().toStdString();
    EXPECT_FALSE(d->cmdDownload->isEnabled()) << c.logged;
    EXPECT_TRUE(d->isVisible()) << "only a silent check closes by itself";
  }
  EXPECT_TRUE(reports.isEmpty());

  auto d = open();
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
  EXPECT_EQ(d->barFortschritt->value(), 0);
  EXPECT_TRUE(d->logText().contains(QStringLiteral("Download vom Anwender abgebrochen.")));
  EXPECT_FALSE(d->logText().contains(QStringLiteral("ERROR: ")));
  EXPECT_FALSE(QFile::exists(d->downloadPathShown()));
  EXPECT_EQ(pendingUpdate().UpdateMode, 0);
  EXPECT_TRUE(d->cmdDownload->isEnabled());
}

// A file left by an earlier download ("No" to installing, say): the one the server offers is
// taken as it is, another one goes only on the user's word. With nothing to open the file the
// dialog says so and the program stays.
TEST_F(UpdateDialog, AFileLeftFromBeforeAndADesktopWithoutAnOpener) {
  serveVersion("v2.4.0");
  const QByteArray installer(300000, 'i'), other(300000, 'x');
  server.set("/asp/fdl.asp?P=30", Route::ok(installer).pieces(30000));
  server.text("/asp/fdl.asp.sha256",
              QCryptographicHash::hash(installer, QCryptographicHash::Sha256).toHex());
  const QString file = dir.filePath(QStringLiteral("Quorlane_Update_2.4.0.deb"));
  auto d = open();
  d->cmdUPDATE->click();
  QStringList asked;
  QList<bool> answers;
  d->setInstallQuestion(
      [&](const QString& q) { return asked << q, !answers.isEmpty() && answers.takeFirst(); });
  const auto start = [&](QList<bool> say) {
    asked.clear(), answers = say;
    d->cmdDownload->click();
  };

  start({false});  // not now
  start({false});  // and again: the same file, offered as it is
  EXPECT_EQ(readFile(file), installer);
  EXPECT_TRUE(d->logText().contains(
      QStringLiteral("mit der Länge und der Prüfsumme, die der Server nennt")))
      << d->logText().toStdString();
  ASSERT_EQ(asked.size(), 1);
  EXPECT_TRUE(asked[0].contains(QStringLiteral("installiert werden?")));

  writeFile(file, other);
  start({false});  // kept
  EXPECT_EQ(readFile(file), other);
  ASSERT_EQ(asked.size(), 1);
  EXPECT_TRUE(asked[0].contains(QStringLiteral("ersetzt werden?"))) << asked[0].toStdString();
  start({true, true});  // replaced, then installed
  EXPECT_EQ(readFile(file), installer);
  EXPECT_EQ(asked.size(), 2);
  EXPECT_EQ(d->result(), QDialog::Accepted);
  EXPECT_NE(pendingUpdate().UpdateMode, 0);

  desktop(nullptr);
  d = open();
  d->cmdUPDATE->click();
  d->setInstallQuestion([&](const QString& q) { return asked << q, true; });
  start({});
  EXPECT_TRUE(asked.isEmpty());
  EXPECT_TRUE(d->logText().contains(QStringLiteral("sudo apt install ") + file))
      << d->logText().toStdString();
  EXPECT_TRUE(d->isVisible());
  EXPECT_EQ(pendingUpdate().UpdateMode, 0);
  EXPECT_TRUE(d->cmdDownload->isEnabled());
}

}  // namespace
}  // namespace ql::test
