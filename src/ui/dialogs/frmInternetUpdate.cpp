#include "ui/dialogs/frmInternetUpdate.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QStandardPaths>
#include <QStyle>
#include <QTabWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Globals.h"
#include "support/Logs.h"
#include "failure/FailureReport.h"
#include "ui/Desktop.h"
#include "lang/TL.h"
#include "ui/TranslateControls.h"
#include "report/SizeFormat.h"

namespace ql {

namespace {

// The property that marks a version label as offering something new (drawn blue).
constexpr char kNew[] = "newVersion";
constexpr int kLogLimit = 60000;

constexpr char kOpener[] = "xdg-open";

// The one the dialog named: xdg-open, which hands the file to the program the desktop chose.
std::function<bool(const QUrl&)>& installerOpener() {
  static std::function<bool(const QUrl&)> opener = [](const QUrl& url) {
    const QString program = QStandardPaths::findExecutable(QLatin1String(kOpener));
    return !program.isEmpty() && QProcess::startDetached(program, {url.toLocalFile()});
  };
  return opener;
}

QString tag(int caption, int tip = -1) {
  return QStringLiteral("%1T%2").arg(caption < 0 ? QStringLiteral("-") : QString::number(caption),
                                     tip < 0 ? QStringLiteral("-") : QString::number(tip));
}

template <class W>
W* tagged(W* w, const char* name, int caption, int tip = -1) {
  w->setObjectName(QLatin1String(name));
  w->setProperty("tag", tag(caption, tip));
  return w;
}

QLabel* caption(int id, const QString& text, QWidget* parent) {
  auto* l = new QLabel(text, parent);
  l->setProperty("tag", tag(id));
  return l;
}

QLabel* buddy(QLabel* label, QWidget* field) {
  label->setBuddy(field);
  return label;
}

void setNew(QLabel* label, bool isNew) {
  label->setProperty(kNew, isNew);
  QPalette p = label->palette();
  p.setColor(QPalette::WindowText, isNew ? QColor(0, 0, 255) : QApplication::palette().color(QPalette::WindowText));
  label->setPalette(p);
}

bool isNew(const QLabel* label) { return label->property(kNew).toBool(); }

}  // namespace

PendingUpdate& pendingUpdate() {
  static PendingUpdate p;
  return p;
}

void setInstallerOpener(std::function<bool(const QUrl&)> opener) {
  installerOpener() = std::move(opener);
}

InstallerOpener installerOpenerFor(const QString& path) {
  InstallerOpener o;
  o.type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension).name();
  const QString opener = QStandardPaths::findExecutable(QLatin1String(kOpener));
  const QString query = QStandardPaths::findExecutable(QStringLiteral("xdg-mime"));
  if (opener.isEmpty() || query.isEmpty()) return o;
  o.program = QLatin1String(kOpener);
  QProcess p;
  p.start(query, {QStringLiteral("query"), QStringLiteral("default"), o.type});
  if (!p.waitForFinished(5000)) {
    p.kill();
    p.waitForFinished(1000);
    return o;
  }
  o.handler =
      QString::fromLocal8Bit(p.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
  if (o.handler.endsWith(QLatin1String(".desktop"))) o.handler.chop(8);
  return o;
}

void StartPendingInstaller() {
  PendingUpdate& p = pendingUpdate();
  if (p.UpdateMode == 0 || p.InstallerPath.isEmpty()) return;
  const QString path = p.InstallerPath;
  p = PendingUpdate{};
  // Never run here: the desktop decides what opening the file means.
  const bool handed = installerOpener()(QUrl::fromLocalFile(path));
  WriteUpdateLog(
      handed ? TL(4369, QStringLiteral("%1 an %2 übergeben."), {path, QLatin1String(kOpener)})
             : TL(4370, QStringLiteral("%1 konnte nicht an %2 übergeben werden."),
                  {path, QLatin1String(kOpener)}));
}

frmInternetUpdate::frmInternetUpdate(QWidget* parent)
    : QDialog(parent), guard_([this] { setBusy(false); }) {
  setObjectName(QStringLiteral("frmInternetUpdate"));
  setModal(true);
  ProgramName = globals().Apptitle;
  const UpdateUrls urls = updateUrls(updateBaseUrl(), language());
  VersionURL = urls.version;
  HistoryURL = urls.history;
  DownloadURL = urls.download;

  // Form_Load
  setWindowTitle(TL(1481, QStringLiteral("Internet Update ")) + ProgramName);

  Label = new QLabel(this);
  Label->setObjectName(QStringLiteral("Label"));
  Label->setWordWrap(true);

  auto* versions = tagged(new QGroupBox(QStringLiteral("Version"), this), "fraVersion", 3021);
  lblVersionInstall = new QLabel(threePartVersion(globals().AppVersion), versions);
  lblVersionInternet = new QLabel(QStringLiteral("?"), versions);
  lblVersionBeta = new QLabel(QStringLiteral("?"), versions);
  lblVersionInstall->setObjectName(QStringLiteral("lblVersionInstall"));
  lblVersionInternet->setObjectName(QStringLiteral("lblVersionInternet"));
  lblVersionBeta->setObjectName(QStringLiteral("lblVersionBeta"));
  cmdUPDATE = tagged(new QPushButton(QStringLiteral("&Prüfen"), versions), "cmdUPDATE", 1150);
  auto* vg = new QGridLayout(versions);
  vg->addWidget(caption(1147, QStringLiteral("Installiert:"), versions), 0, 0);
  vg->addWidget(lblVersionInstall, 0, 1);
  vg->addWidget(caption(1838, QStringLiteral("Update:"), versions), 1, 0);
  vg->addWidget(lblVersionInternet, 1, 1);
  vg->addWidget(caption(1837, QStringLiteral("Beta:"), versions), 2, 0);
  vg->addWidget(lblVersionBeta, 2, 1);
  vg->setColumnStretch(1, 1);
  vg->addWidget(cmdUPDATE, 0, 2, 3, 1, Qt::AlignRight | Qt::AlignVCenter);

  tabInfo = new QTabWidget(this);
  tabInfo->setObjectName(QStringLiteral("tabInfo"));
  const std::pair<int, const char*> tabs[] = {
      {1847, "Protokoll"}, {1848, "Update"}, {1849, "Beta"}};
  for (int i = 0; i < 3; ++i) {
    txtInfo[i] = new QPlainTextEdit(tabInfo);
    txtInfo[i]->setObjectName(QStringLiteral("txtInfo%1").arg(i));
    txtInfo[i]->setReadOnly(true);
    txtInfo[i]->setProperty("tag", tag(tabs[i].first));
    tabInfo->addTab(txtInfo[i], QString::fromUtf8(tabs[i].second));
  }
  QWidget* options = buildOptions();
  options->setProperty("tag", tag(1850));
  tabInfo->addTab(options, QStringLiteral("Optionen"));

  auto* download = tagged(new QGroupBox(QStringLiteral("Download"), this), "fraDownload", 3020);
  optUpdate[0] = tagged(new QRadioButton(QStringLiteral("Update"), download), "optUpdate0", 1834);
  optUpdate[1] = tagged(new QRadioButton(QStringLiteral("Beta"), download), "optUpdate1", 1835);
  cmdDownload = tagged(new QPushButton(QStringLiteral("&Start"), download), "cmdDownload", 1140);
  cmdAbbrechen = tagged(new QPushButton(QStringLiteral("&Abbrechen"), download), "cmdAbbrechen", 1139, 1690);
  cmdAbbrechen->setToolTip(QStringLiteral("Download abbrechen"));
  lblFortschritt = tagged(new QLabel(QStringLiteral("Fortschritt:"), download), "lblFortschritt", 1142);
  lblFortschrittWert = new QLabel(download);
  lblFortschrittWert->setObjectName(QStringLiteral("lblFortschrittWert"));
  barFortschritt = new QProgressBar(download);
  barFortschritt->setObjectName(QStringLiteral("barFortschritt"));
  barFortschritt->setRange(0, 1000);
  barFortschritt->setValue(0);
  barFortschritt->setTextVisible(false);
  auto* dg = new QGridLayout(download);
  dg->addWidget(caption(1836, QStringLiteral("Version:"), download), 0, 0);
  auto* choice = new QHBoxLayout;
  choice->addWidget(optUpdate[0]);
  choice->addWidget(optUpdate[1]);
  choice->addStretch(1);
  dg->addLayout(choice, 0, 1);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cmdDownload);
  buttons->addWidget(cmdAbbrechen);
  dg->addLayout(buttons, 0, 2);
  dg->addWidget(lblFortschritt, 1, 0);
  dg->addWidget(barFortschritt, 1, 1);
  dg->addWidget(lblFortschrittWert, 1, 2);
  dg->setColumnStretch(1, 1);
  optUpdate[0]->setChecked(true);

  auto* close = new QDialogButtonBox(QDialogButtonBox::Close, this);
  close->button(QDialogButtonBox::Close)->setText(TL(4160, QStringLiteral("Schließen")));
  connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(Label);
  layout->addWidget(versions);
  layout->addWidget(tabInfo, 1);
  layout->addWidget(download);
  layout->addWidget(close);
  resize(560, 520);

  TranslateControls(this);

  const UpdateSettings s = loadUpdateSettings();
  chkPrgStartVersionPruefen->setChecked(s.checkWhenOpened);
  chkUpdateOberflaeche->setChecked(s.installerDialogs);
  chkUseProxy->setChecked(s.proxy.use);
  txtProxyName->setText(s.proxy.name);
  txtProxyPort->setText(s.proxy.port);
  txtProxyUser->setText(s.proxy.user);
  txtProxyPW->setText(s.proxy.password);
  txtDownloadPath->setText(s.downloadFolder);
  showDownloadControls(false);

  connect(cmdUPDATE, &QPushButton::clicked, this, guard_.wrap("cmdUPDATE_Click", [this] { cmdUPDATE_Click(); }));
  connect(cmdDownload, &QPushButton::clicked, this,
          guard_.wrap("cmdDownload_Click", [this] { cmdDownload_Click(); }));
  connect(cmdAbbrechen, &QPushButton::clicked, this,
          guard_.wrap("cmdAbbrechen_Click", [this] { cmdAbbrechen_Click(); }));
}

QWidget* frmInternetUpdate::buildOptions() {
  auto* page = new QWidget(tabInfo);
  page->setObjectName(QStringLiteral("fraOptionen"));
  chkPrgStartVersionPruefen = tagged(
      new QCheckBox(QStringLiteral("Bei Programmstart auf neue Version prüfen"), page),
      "chkPrgStartVersionPruefen", 1833);
  chkUpdateOberflaeche = tagged(
      new QCheckBox(QStringLiteral("Setupdialog beim Installieren des Updates anzeigen"), page),
      "chkUpdateOberflaeche", 1917);
  chkUseProxy = tagged(new QCheckBox(QStringLiteral("Proxyserver verwenden:"), page), "chkUseProxy", 1799);
  txtProxyName = new QLineEdit(page);
  txtProxyPort = new QLineEdit(page);
  txtProxyPort->setValidator(new QIntValidator(0, 65535, txtProxyPort));  // digits only
  txtProxyPort->setMaximumWidth(80);
  txtProxyUser = new QLineEdit(page);
  txtProxyPW = new QLineEdit(page);
  txtProxyPW->setEchoMode(QLineEdit::Password);
  chkPasswortKlartext = tagged(new QCheckBox(QStringLiteral("Passwort im Klartext anzeigen"), page),
                               "chkPasswortKlartext", 2990);
  txtDownloadPath = new QLineEdit(page);
  cmdOrdnerOffnen = tagged(new QPushButton(page), "cmdOrdnerOffnen", -1, 3099);
  cmdOrdnerOffnen->setIcon(QIcon::fromTheme(QStringLiteral("document-open-folder"),
                                            style()->standardIcon(QStyle::SP_DirOpenIcon)));
  cmdOrdnerOffnen->setToolTip(QStringLiteral("Ordner öffnen"));
  cmdOrdnerNeu = tagged(new QPushButton(QStringLiteral("..."), page), "cmdOrdnerNeu", -1, 3100);
  cmdOrdnerNeu->setToolTip(QStringLiteral("Ordner auswählen"));
  cmdOrdnerNeu->setFixedWidth(cmdOrdnerOffnen->sizeHint().width() + 8);
  const std::pair<QLineEdit*, const char*> names[] = {{txtProxyName, "txtProxyName"},
                                                      {txtProxyPort, "txtProxyPort"},
                                                      {txtProxyUser, "txtProxyUser"},
                                                      {txtProxyPW, "txtProxyPW"},
                                                      {txtDownloadPath, "txtDownloadPath"}};
  for (auto [e, n] : names) e->setObjectName(QLatin1String(n));

  auto* proxy = new QGridLayout;
  proxy->addWidget(buddy(caption(2991, QStringLiteral("Adresse:"), page), txtProxyName), 0, 0);
  proxy->addWidget(txtProxyName, 0, 1);
  proxy->addWidget(buddy(caption(1802, QStringLiteral("Port:"), page), txtProxyPort), 0, 2);
  proxy->addWidget(txtProxyPort, 0, 3);
  proxy->addWidget(buddy(caption(2993, QStringLiteral("Benutzer:"), page), txtProxyUser), 1, 0);
  proxy->addWidget(txtProxyUser, 1, 1, 1, 3);
  proxy->addWidget(buddy(caption(2992, QStringLiteral("Passwort:"), page), txtProxyPW), 2, 0);
  proxy->addWidget(txtProxyPW, 2, 1, 1, 3);
  proxy->addWidget(chkPasswortKlartext, 3, 1, 1, 3);
  proxy->setContentsMargins(20, 0, 0, 0);
  auto* path = new QHBoxLayout;
  path->addWidget(txtDownloadPath, 1);
  path->addWidget(cmdOrdnerOffnen);
  path->addWidget(cmdOrdnerNeu);

  auto* layout = new QVBoxLayout(page);
  layout->addWidget(chkPrgStartVersionPruefen);
  layout->addWidget(chkUpdateOberflaeche);
  layout->addWidget(chkUseProxy);
  layout->addLayout(proxy);
  layout->addWidget(caption(3022, QStringLiteral("Speicherort für Download:"), page));
  layout->addLayout(path);
  layout->addStretch(1);

  // The proxy's fields only mean something while the proxy is used.
  const auto proxyFields = [this, page](bool on) {
    for (QWidget* w : {static_cast<QWidget*>(txtProxyName), static_cast<QWidget*>(txtProxyPort),
                       static_cast<QWidget*>(txtProxyUser), static_cast<QWidget*>(txtProxyPW),
                       static_cast<QWidget*>(chkPasswortKlartext)})
      w->setEnabled(on);
    for (QLabel* l : page->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly))
      if (l->buddy()) l->setEnabled(on);
  };
  connect(chkUseProxy, &QCheckBox::toggled, this, guard_.wrap("chkUseProxy_Click", proxyFields));
  proxyFields(false);
  connect(chkPasswortKlartext, &QCheckBox::toggled, this,
          guard_.wrap("chkPasswortKlartext_Click", [this](bool plain) {
            txtProxyPW->setEchoMode(plain ? QLineEdit::Normal : QLineEdit::Password);
          }));
  connect(cmdOrdnerOffnen, &QPushButton::clicked, this, guard_.wrap("cmdOrdnerOffnen_Click", [this] {
            const QString folder = expandSystemVariables(txtDownloadPath->text());
            // A folder the desktop cannot show is said in the dialog's log, where the user looks.
            if (const QString failed = openFolder(QFile::encodeName(folder).toStdString()); !failed.isEmpty())
              LogHinweise(failed);
          }));
  connect(cmdOrdnerNeu, &QPushButton::clicked, this, guard_.wrap("cmdOrdnerNeu_Click", [this] {
            const QString folder = QFileDialog::getExistingDirectory(
                this, QString(), expandSystemVariables(txtDownloadPath->text()));
            if (!folder.isEmpty()) txtDownloadPath->setText(folder);
          }));
  return page;
}

QString frmInternetUpdate::logText() const { return txtInfo[0]->toPlainText(); }
QString frmInternetUpdate::historyText(int row) const { return txtInfo[row]->toPlainText(); }

void frmInternetUpdate::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  if (activated_) return;
  activated_ = true;
  // After the window is up, so that a check on opening shows its progress.
  QMetaObject::invokeMethod(this, [this] { guard_.run("Form_Activate", [this] { Form_Activate(); }); },
                            Qt::QueuedConnection);
}

void frmInternetUpdate::Form_Activate() {
  pendingUpdate().UpdateMode = 0;
  setWindowTitle(ProgramName + QStringLiteral(" Internet Update"));
  Label->setText(TL(1158,
                    QStringLiteral("Mit dem Internet Update können Sie überprüfen, ob eine neue "
                                   "Version der Software %1 zum Download zur Verfügung steht."),
                    {ProgramName}));
  if (chkPrgStartVersionPruefen->isChecked() || Silent) cmdUPDATE_Click();
}

void frmInternetUpdate::LogHinweise(const QString& text) {
  const QString line = WriteUpdateLog(text);
  QPlainTextEdit* box = txtInfo[0];
  QString shown = box->toPlainText();
  // The tab keeps the newer half when it grows too long; the file keeps everything.
  if (shown.size() + line.size() > kLogLimit) {
    const qsizetype cut = shown.indexOf(QLatin1Char('\n'), shown.size() / 2);
    shown = cut < 0 ? QString() : shown.mid(cut + 1);
    box->setPlainText(shown);
  }
  box->appendPlainText(line);
  box->verticalScrollBar()->setValue(box->verticalScrollBar()->maximum());
}

void frmInternetUpdate::setBusy(bool busy) {
  busy_ = busy;
  cmdUPDATE->setEnabled(!busy);
  if (busy) QApplication::setOverrideCursor(Qt::WaitCursor);
  else
    while (QApplication::overrideCursor()) QApplication::restoreOverrideCursor();
}

void frmInternetUpdate::showDownloadControls(bool show) {
  for (QWidget* w : {static_cast<QWidget*>(optUpdate[0]), static_cast<QWidget*>(optUpdate[1]),
                     static_cast<QWidget*>(cmdDownload), static_cast<QWidget*>(lblFortschritt),
                     static_cast<QWidget*>(lblFortschrittWert), static_cast<QWidget*>(barFortschritt)})
    w->setEnabled(show);
  cmdAbbrechen->setEnabled(false);
}

ProxySettings frmInternetUpdate::proxyFromForm() const {
  return {chkUseProxy->isChecked(), txtProxyName->text(), txtProxyPort->text(), txtProxyUser->text(),
          txtProxyPW->text()};
}

void frmInternetUpdate::cmdUPDATE_Click() {
  if (busy_) return;
  LogHinweise(TL(1843, QStringLiteral("Versionsüberprüfung gestartet.")));
  setBusy(true);
  for (QLabel* l : {lblVersionInternet, lblVersionBeta}) {
    l->setText(QStringLiteral("?"));
    setNew(l, false);
    l->hide();
  }
  tabInfo->setCurrentIndex(0);
  bool closeAtEnd = false;

  const QString error = GetVersionFromInternet();
  if (!error.isEmpty()) {
    LogHinweise(TL(1155, QStringLiteral("Bei der Überprüfung ist ein Fehler aufgetreten: %1"), {error}));
  } else {
    CompareVersions();
    if (!isNew(lblVersionInternet) && !isNew(lblVersionBeta)) {
      LogHinweise(TL(1844, QStringLiteral("Es ist keine neue Version im Internet vorhanden.")));
      closeAtEnd = Silent;
      lblVersionInternet->setText(QStringLiteral("-"));
      lblVersionBeta->setText(QStringLiteral("-"));
      showDownloadControls(false);
    } else {
      struct Channel {
        QLabel* label;
        int row;
        const QString& history;
      };
      const Channel channels[] = {{lblVersionInternet, 0, HistoryURL}, {lblVersionBeta, 1, BetaHistoryURL}};
      for (const Channel& c : channels) {
        if (!isNew(c.label)) {
          c.label->setText(QStringLiteral("-"));
          optUpdate[c.row]->setEnabled(false);
          optUpdate[1 - c.row]->setChecked(true);
          continue;
        }
        if (c.row == 0) {
          LogHinweise(TL(1845, QStringLiteral("NEU: %1 Update %2"), {ProgramName, c.label->text()}));
          LogHinweise(TL(2904, QStringLiteral("Beachten Sie bitte die Informationen zur neuen Version. "
                                              "Siehe Kartenreiter 'Update'.")));
        } else {
          LogHinweise(TL(1846, QStringLiteral("NEU: %1 Beta %2"), {ProgramName, c.label->text()}));
          LogHinweise(TL(2905, QStringLiteral("Beachten Sie bitte die Informationen zur neuen Version. "
                                              "Siehe Kartenreiter 'Beta'.")));
        }
        const FetchResult history = HttpClient(proxyFromForm(), limits_).DownloadFileToDiskOrString(c.history);
        txtInfo[c.row + 1]->setPlainText(history.failed ? history.text
                                                        : normaliseHistory(history.text).replace(
                                                              QStringLiteral("\r\n"), QStringLiteral("\n")));
        showDownloadControls(true);
      }
      for (int row = 0; row < 2; ++row)
        optUpdate[row]->setEnabled(isNew(row == 0 ? lblVersionInternet : lblVersionBeta));
    }
  }

  lblVersionInternet->show();
  lblVersionBeta->show();
  setBusy(false);
  if (closeAtEnd) reject();  // a silent check that found nothing leaves no trace
}

QString frmInternetUpdate::GetVersionFromInternet() {
  const HttpClient client(proxyFromForm(), limits_);
  const FetchResult v = client.DownloadFileToDiskOrString(VersionURL);
  if (v.failed) return v.text;
  lblVersionInternet->setText(acceptedVersion(versionFromFile(v.text)));
  if (!BetaVersionURL.isEmpty()) {
    const FetchResult b = client.DownloadFileToDiskOrString(BetaVersionURL);
    if (b.failed) return b.text;
    lblVersionBeta->setText(acceptedVersion(versionFromFile(b.text)));
  }
  return {};
}

QString frmInternetUpdate::acceptedVersion(const QString& offered) {
  if (offered.isEmpty()) return {};
  if (const auto numbers = offeredVersion(offered)) return numbers->text();
  LogHinweise(refusedText(offered));
  return {};  // shown as "-", and nothing is offered
}

QString frmInternetUpdate::refusedText(const QString& offered) {
  return TL(4298,
            QStringLiteral("Die Versionsangabe des Servers wird nicht angenommen: '%1' (erwartet "
                           "sind drei Zahlen mit Punkten, etwa 2.4.0)."),
            {quotedServerText(offered)});
}

void frmInternetUpdate::CompareVersions() {
  if (compareLabel(lblVersionInternet)) compareLabel(lblVersionBeta);
}

// False when the label held no version of three numbers: that is reported, and nothing is new.
bool frmInternetUpdate::compareLabel(QLabel* label) {
  const QString v = label->text();
  if (v.isEmpty() || v == QLatin1String("?")) {
    label->setText(QStringLiteral("-"));
    return true;
  }
  try {
    setNew(label, isNewerVersion(lblVersionInstall->text(), v));
    return true;
  } catch (const std::exception& e) {
    setNew(label, false);
    FailureReport(QStringLiteral("CompareVersions"), QStringLiteral("frmInternetUpdate"), 0,
                  QString::fromLocal8Bit(e.what()), {lblVersionInstall->text(), v.left(200)});
    return false;
  }
}

void frmInternetUpdate::cmdDownload_Click() {
  if (busy_) return;
  LogHinweise(TL(1839, QStringLiteral("Download gestartet.")));
  const bool update = optUpdate[0]->isChecked();
  const QString version = update ? lblVersionInternet->text() : lblVersionBeta->text();
  const QString url = update ? DownloadURL : BetaDownloadURL;
  // The file is named by the version's numbers alone, never by the server's text.
  const std::optional<VersionNumbers> numbers = offeredVersion(version);
  downloadPath_ =
      numbers ? downloadPath(txtDownloadPath->text(), ProgramName, *numbers) : QString();
  if (downloadPath_.isEmpty()) {
    LogHinweise(refusedText(version));
    LogHinweise(TL(1840, QStringLiteral("Der Download konnte nicht durchgeführt werden.")));
    return;
  }
  QDir().mkpath(QFileInfo(downloadPath_).absolutePath());

  barFortschritt->setValue(0);
  lblFortschrittWert->clear();
  // A file of that name stays from an earlier download (the user said "No" then, say): the one
  // the server offers is used as it is, anything else only goes when the user agrees.
  const QByteArray file = QFile::encodeName(downloadPath_);
  struct stat st;
  if (::lstat(file.constData(), &st) == 0) {
    setBusy(true);
    const QString differs = HttpClient(proxyFromForm(), limits_).matchesOffered(url, downloadPath_);
    setBusy(false);
    if (differs.isEmpty()) {
      LogHinweise(
          TL(4361,
             QStringLiteral("%1 ist schon da, mit der Länge und der Prüfsumme, die der Server "
                            "nennt; die Datei wird nicht noch einmal geladen."),
             {downloadPath_}));
      barFortschritt->setValue(barFortschritt->maximum());
      offerInstall();
      return;
    }
    LogHinweise(TL(4362, QStringLiteral("%1 ist schon da, ist aber nicht die angebotene Datei: %2"),
                   {downloadPath_, differs}));
    if (!ask(TL(4363,
                QStringLiteral(
                    "%1 ist schon da. Soll die Datei durch den neuen Download ersetzt werden?"),
                {downloadPath_}))) {
      LogHinweise(TL(4364, QStringLiteral("%1 bleibt, wie sie ist; es wurde nichts geladen."),
                     {downloadPath_}));
      return;
    }
    if (::unlink(file.constData()) != 0) {
      LogHinweise(QStringLiteral("ERROR: DeleteFile ") +
                  QString::fromLocal8Bit(std::strerror(errno)));
      LogHinweise(TL(1840, QStringLiteral("Der Download konnte nicht durchgeführt werden.")));
      return;
    }
  }

  setBusy(true);
  cmdDownload->setEnabled(false);
  cmdAbbrechen->setEnabled(true);
  cancel_ = false;
  const auto progress = [this](qint64 done, qint64 total) {
    lblFortschrittWert->setText(groupedInteger(done) + QStringLiteral(" / ") + groupedInteger(total) +
                                QStringLiteral(" Bytes"));
    barFortschritt->setValue(total > 0 ? static_cast<int>(done * 1000 / total) : 0);
  };
  const auto cancelled = [this] {
    if (!cancel_) return false;
    cancel_ = false;
    lblFortschrittWert->setText(QStringLiteral("-"));
    return true;
  };
  QString error =
      HttpClient(proxyFromForm(), limits_).DLandFilesize(url, downloadPath_, progress, cancelled);
  if (lblFortschrittWert->text() == QLatin1String("-") && error.isEmpty())
    error = TL(2677, QStringLiteral("Ein unbekannter Fehler ist aufgetreten."));
  cmdAbbrechen->setEnabled(false);  // nothing runs any more that it could stop
  setBusy(false);
  cmdDownload->setEnabled(true);

  if (error.isEmpty()) {
    LogHinweise(TL(1842, QStringLiteral("Download beendet: %1"), {downloadPath_}));
    offerInstall();
    return;
  }
  barFortschritt->setValue(0);  // no file stays behind, so no share of it stands either
  if (error.left(6) == QLatin1String("Cancel")) {
    LogHinweise(TL(1841, QStringLiteral("Download vom Anwender abgebrochen.")));
  } else {
    LogHinweise(QStringLiteral("ERROR: ") + error);
    LogHinweise(TL(1840, QStringLiteral("Der Download konnte nicht durchgeführt werden.")));
  }
}

bool frmInternetUpdate::ask(const QString& question) {
  return ask_ ? ask_(question)
              : QMessageBox::question(this, ProgramName, question,
                                      QMessageBox::Yes | QMessageBox::No) == QMessageBox::Yes;
}

void frmInternetUpdate::offerInstall() {
  const InstallerOpener opener = installerOpenerFor(downloadPath_);
  if (opener.handler.isEmpty()) {
    // Closing would leave the user with nothing happening at all.
    LogHinweise(TL(
        4365,
        QStringLiteral("Auf diesem Desktop öffnet nichts die Datei (gebraucht werden xdg-open und "
                       "ein Programm für %1). Installieren Sie sie von Hand, etwa mit: sudo apt "
                       "install %2"),
        {opener.type, downloadPath_}));
    return;
  }
  const QString by = TL(4366, QStringLiteral("%1 mit %2"), {opener.program, opener.handler});
  const QString question =
      TL(1151, QStringLiteral("Soll %1 jetzt beendet und die neue Version installiert werden?"),
         {ProgramName}) +
      QStringLiteral("\n\n") + TL(4367, QStringLiteral("Die Datei wird geöffnet von: %1."), {by});
  if (!ask(question)) return;
  LogHinweise(
      TL(4368, QStringLiteral("Beim Beenden wird %1 geöffnet von: %2."), {downloadPath_, by}));
  pendingUpdate() = {chkUpdateOberflaeche->isChecked() ? 2 : 1, downloadPath_};
  accept();  // through Form_QueryUnload, which keeps the options
}

bool frmInternetUpdate::Form_QueryUnload() {
  if (busy_) return false;
  UpdateSettings s;
  s.proxy = proxyFromForm();
  s.downloadFolder = txtDownloadPath->text();
  s.checkWhenOpened = chkPrgStartVersionPruefen->isChecked();
  s.installerDialogs = chkUpdateOberflaeche->isChecked();
  saveUpdateSettings(s);
  return true;
}

void frmInternetUpdate::done(int result) {
  bool allowed = false;
  guard_.run("Form_QueryUnload", [&] { allowed = Form_QueryUnload(); });
  if (allowed) QDialog::done(result);
}

}  // namespace ql
