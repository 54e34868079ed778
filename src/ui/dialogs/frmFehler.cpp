#include "ui/dialogs/frmFehler.h"

#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPrintDialog>
#include <QPrinter>
#include <QPrinterInfo>
#include <QPushButton>
#include <QScreen>
#include <QTextDocument>
#include <QThread>
#include <QUrl>
#include <QVBoxLayout>
#include <cstdlib>
#include <mutex>

#include "support/Globals.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "ui/Desktop.h"
#include "ui/TranslateControls.h"

namespace ql {

namespace {

// The German caption stands in the code; the tag names the caption's and the help text's ids,
// which TranslateControls replaces in other languages.
QPushButton* makeButton(QWidget* parent, const char* name, int captionId, const QString& caption,
                        int helpId) {
  auto* b = new QPushButton(caption, parent);
  b->setObjectName(QLatin1String(name));
  b->setProperty("tag", QStringLiteral("%1T%2").arg(captionId).arg(helpId));
  return b;
}

}  // namespace

frmFehler::frmFehler(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("frmFehler"));
  setWindowTitle(globals().Apptitle);
  setModal(true);

  lblEinleitung = new QLabel(this);
  lblEinleitung->setObjectName(QStringLiteral("lblEinleitung"));
  lblEinleitung->setWordWrap(true);

  txtInfo = new QPlainTextEdit(this);
  txtInfo->setObjectName(QStringLiteral("txtInfo"));
  txtInfo->setReadOnly(true);
  txtInfo->setLineWrapMode(QPlainTextEdit::NoWrap);
  txtInfo->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

  txtHelp = new QLineEdit(this);
  txtHelp->setObjectName(QStringLiteral("txtHelp"));
  txtHelp->setReadOnly(true);
  txtHelp->setFocusPolicy(Qt::NoFocus);

  cmdEmail = makeButton(this, "cmdEmail", 441, QStringLiteral("&Email"), 449);
  cmdDrucken = makeButton(this, "cmdDrucken", 442, QStringLiteral("&Drucken"), 448);
  cmdSpeichern = makeButton(this, "cmdSpeichern", 2771, QStringLiteral("&Speichern"), 3007);
  cmdWeiter = makeButton(this, "cmdWeiter", 443, QStringLiteral("&Weiter"), 450);
  cmdBeenden = makeButton(this, "cmdBeenden", 444, QStringLiteral("&Beenden"), 451);
  cmdWeiter->setDefault(true);

  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cmdEmail);
  buttons->addWidget(cmdDrucken);
  buttons->addWidget(cmdSpeichern);
  buttons->addStretch(1);
  buttons->addWidget(cmdWeiter);
  buttons->addWidget(cmdBeenden);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(lblEinleitung);
  layout->addWidget(txtInfo, 1);
  layout->addWidget(txtHelp);
  layout->addLayout(buttons);
  resize(680, 520);

  TranslateControls(this);
  lblEinleitung->setText(
      TL(447,
         QStringLiteral("Ein unerwarteter Fehler ist aufgetreten und wurde von der Anwendung "
                        "abgefangen. Senden Sie uns bitte den Fehlerreport an die Emailadresse "
                        "'%1', damit der Fehler analysiert und behoben werden kann."),
         {supportMailAddress()}));

  helpTexts_[0] = TL(449, QStringLiteral("Hiermit wird Ihr Emailprogramm aufgerufen und eine neue "
                                         "Email geöffnet."));
  helpTexts_[1] = TL(448, QStringLiteral("Hiermit können Sie den Fehlerreport ausdrucken."));
  helpTexts_[2] =
      TL(3007, QStringLiteral("Hiermit wird der Fehlerreport in eine Datei gespeichert."));
  helpTexts_[3] = TL(450, QStringLiteral("Das Fortsetzen der Anwendung kann unter Umständen zu "
                                         "unvorhersehbaren Problemen und weiteren Fehlermeldungen "
                                         "führen."));
  helpTexts_[4] = TL(451, QStringLiteral("Hiermit wird die Anwendung beendet. Es können unter "
                                         "Umständen weitere Fehlermeldungen auftreten."));
  QPushButton* const all[5] = {cmdEmail, cmdDrucken, cmdSpeichern, cmdWeiter, cmdBeenden};
  for (int i = 0; i < 5; ++i) {
    all[i]->setToolTip(helpTexts_[i]);
    all[i]->setStatusTip(helpTexts_[i]);
    all[i]->installEventFilter(this);
  }

  connect(cmdEmail, &QPushButton::clicked, this, &frmFehler::cmdEmail_Click);
  connect(cmdDrucken, &QPushButton::clicked, this, &frmFehler::cmdDrucken_Click);
  connect(cmdSpeichern, &QPushButton::clicked, this, &frmFehler::cmdSpeichern_Click);
  connect(cmdWeiter, &QPushButton::clicked, this, &frmFehler::cmdWeiter_Click);
  connect(cmdBeenden, &QPushButton::clicked, this, &frmFehler::cmdBeenden_Click);

  endProcess_ = [] { std::_Exit(1); };
}

void frmFehler::setReport(const QString& report) {
  report_ = report;
  QString shown = report;
  shown.replace(QLatin1String("\r\n"), QLatin1String("\n"));
  txtInfo->setPlainText(shown);
}

bool frmFehler::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Enter || event->type() == QEvent::HoverEnter) {
    QPushButton* const all[5] = {cmdEmail, cmdDrucken, cmdSpeichern, cmdWeiter, cmdBeenden};
    for (int i = 0; i < 5; ++i)
      if (watched == all[i]) txtHelp->setText(helpTexts_[i]);
  }
  return QDialog::eventFilter(watched, event);
}

void frmFehler::copyToClipboard() {
  QClipboard* clipboard = QGuiApplication::clipboard();
  if (!clipboard) return;
  clipboard->clear();
  clipboard->setText(txtInfo->toPlainText());
}

void frmFehler::cmdEmail_Click() {
  const QString note =
      TL(3005, QStringLiteral("Bitte die Fehlerinformationen aus der Zwischenablage mit der "
                              "Tastenkombination STRG+V oder per Kontextmenü der rechten "
                              "Maustaste in die neue Email einfügen."));
  copyToClipboard();
  // The text is encoded already; the report itself goes by the clipboard, not the URL.
  QString why, text = note;
  if (!openUrl(QUrl::fromEncoded(failureMailUrl(note).toUtf8(), QUrl::TolerantMode), why))
    // No new mail to paste into: the user is told so, and where the report may go by hand.
    text = cannotOpenText(TL(4420, QStringLiteral("Das Emailprogramm")), why) +
           QStringLiteral("\n\n") +
           TL(4421,
              QStringLiteral(
                  "Der Fehlerreport steht in der Zwischenablage. Senden Sie ihn bitte an '%1'."),
              {supportMailAddress()});
  QMessageBox box(QMessageBox::Information, TL(3006, QStringLiteral("WICHTIGER HINWEIS")), text,
                  QMessageBox::Ok, this);
  box.exec();
}

void frmFehler::cmdDrucken_Click() {
  QPrinter printer;
  printer.setDocName(globals().Apptitle + QStringLiteral(" Bugreport"));
  if (!printFile_.isEmpty()) {
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(printFile_);
  } else if (QPrinterInfo::defaultPrinterName().isEmpty()) {
    // No default printer: let the user pick one, or a file.
    QPrintDialog dialog(&printer, this);
    if (dialog.exec() != QDialog::Accepted) return;
  }
  QTextDocument document;
  document.setDefaultFont(txtInfo->font());
  document.setPlainText(txtInfo->toPlainText());
  document.print(&printer);
}

void frmFehler::cmdSpeichern_Click() {
  QString error;
  const QString path = SaveErrorReport(globals().DataFolder, report_, &error);
  QMessageBox box(path.isEmpty() ? QMessageBox::Warning : QMessageBox::Information,
                  globals().Apptitle, path.isEmpty() ? error : path, QMessageBox::Ok, this);
  box.exec();
}

void frmFehler::cmdWeiter_Click() {
  copyToClipboard();
  accept();
}

void frmFehler::cmdBeenden_Click() {
  copyToClipboard();
  if (endProcess_) endProcess_();
}

void installFailureDialog() {
  // The size is read on the user-interface thread; a report composed on another thread takes
  // the last size seen.
  setFailureScreenSizeProvider([] {
    static std::mutex m;
    static QString last;
    std::lock_guard lock(m);
    QCoreApplication* app = QCoreApplication::instance();
    if (app && QThread::currentThread() == app->thread()) {
      if (const QScreen* s = QGuiApplication::primaryScreen())
        last = QStringLiteral("%1x%2").arg(s->size().width()).arg(s->size().height());
    }
    return last;
  });
  setFailureDialogHandler([](const QString& report) {
    frmFehler dialog(QApplication::activeWindow());
    dialog.setReport(report);
    dialog.exec();
  });
}

}  // namespace ql
