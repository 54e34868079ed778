#pragma once
// The internet update dialog: asks the update server for the latest version, shows its history,
// downloads it with progress and Cancel, and on the user's word hands the file to the desktop
// (xdg-open) when the program ends; without anything to open it the program stays. The program
// never runs what it downloaded itself.
//
// Opened modally by the main window's Update command; "check at program start" only means that
// the check runs each time this dialog opens. While a check or a download runs the dialog is
// busy and cannot be closed.
//
// User-interface thread only.

#include <QDialog>
#include <QString>
#include <functional>

#include "failure/Guard.h"
#include "update/HttpClient.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;
class QTabWidget;
class QUrl;

namespace ql {

// What the user chose after a finished download: 0 nothing to install, 1 install quietly,
// 2 with the installer's dialogs, and the file. Set by the dialog, read when the program ends.
struct PendingUpdate {
  int UpdateMode = 0;
  QString InstallerPath;
};
PendingUpdate& pendingUpdate();
// Hands the pending file to xdg-open (once), clears the mode and writes the hand-over to the
// update log.
void StartPendingInstaller();
// The hand-over; xdg-open started beside the program unless replaced (tests).
void setInstallerOpener(std::function<bool(const QUrl&)> opener);

// What would open a downloaded file: xdg-open, and the program the desktop set for the file's
// type (`xdg-mime query default`, its desktop entry's name without ".desktop"). `handler` is
// empty when either is missing: nothing visible would happen.
struct InstallerOpener {
  QString type, program, handler;
};
InstallerOpener installerOpenerFor(const QString& path);

class frmInternetUpdate : public QDialog {
  Q_OBJECT
 public:
  explicit frmInternetUpdate(QWidget* parent = nullptr);

  // What the dialog is given before it opens.
  QString ProgramName;
  QString VersionURL, HistoryURL, DownloadURL;
  QString BetaVersionURL, BetaHistoryURL, BetaDownloadURL;  // empty: no beta channel
  bool Silent = false;  // check on opening and close by itself when nothing is new

  // Test seams: limits of the client, and the user's answers ("install now?", "replace the file?").
  void setHttpLimits(const HttpLimits& limits) { limits_ = limits; }
  void setInstallQuestion(std::function<bool(const QString&)> ask) { ask_ = std::move(ask); }

  bool busy() const { return busy_; }
  QString logText() const;
  QString historyText(int row) const;
  QString downloadPathShown() const { return downloadPath_; }

  void cmdUPDATE_Click();
  void cmdDownload_Click();
  void cmdAbbrechen_Click() { cancel_ = true; }
  void LogHinweise(const QString& text);

  // Controls, named as the program has always named them.
  QLabel* lblVersionInstall = nullptr;
  QLabel* lblVersionInternet = nullptr;
  QLabel* lblVersionBeta = nullptr;
  QLabel* Label = nullptr;
  QPushButton* cmdUPDATE = nullptr;
  QTabWidget* tabInfo = nullptr;
  QPlainTextEdit* txtInfo[3] = {};
  QRadioButton* optUpdate[2] = {};
  QPushButton* cmdDownload = nullptr;
  QPushButton* cmdAbbrechen = nullptr;
  QLabel* lblFortschritt = nullptr;
  QLabel* lblFortschrittWert = nullptr;
  QProgressBar* barFortschritt = nullptr;
  QCheckBox* chkPrgStartVersionPruefen = nullptr;
  QCheckBox* chkUpdateOberflaeche = nullptr;
  QCheckBox* chkUseProxy = nullptr;
  QLineEdit* txtProxyName = nullptr;
  QLineEdit* txtProxyPort = nullptr;
  QLineEdit* txtProxyUser = nullptr;
  QLineEdit* txtProxyPW = nullptr;
  QCheckBox* chkPasswortKlartext = nullptr;
  QLineEdit* txtDownloadPath = nullptr;
  QPushButton* cmdOrdnerOffnen = nullptr;
  QPushButton* cmdOrdnerNeu = nullptr;

 protected:
  void showEvent(QShowEvent* event) override;
  // Every way of closing comes here; while busy the close is refused.
  void done(int result) override;

 private:
  QWidget* buildOptions();
  void Form_Activate();
  bool Form_QueryUnload();  // false: the close is refused
  QString GetVersionFromInternet();
  // The server's version as the dialog shows it, or "" after a message when it is no version.
  QString acceptedVersion(const QString& offered);
  static QString refusedText(const QString& offered);
  void CompareVersions();
  bool compareLabel(QLabel* label);
  void setBusy(bool busy);
  void showDownloadControls(bool show);
  // The user's answer: the test seam's when set, else a message box.
  bool ask(const QString& question);
  // After the file is there: asks to end and hand it over, or says that nothing could open it.
  void offerInstall();
  ProxySettings proxyFromForm() const;

  Guard guard_;
  HttpLimits limits_;
  std::function<bool(const QString&)> ask_;
  bool activated_ = false;
  bool busy_ = false;
  bool cancel_ = false;
  QString downloadPath_;
};

}  // namespace ql
