#pragma once
// The error report dialog: shows the report and lets the user mail, print or save it, go on, or
// end the program at once. Its own handlers never report failures, so that reporting cannot fail
// into itself.

#include <QDialog>
#include <QString>
#include <functional>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace ql {

class frmFehler : public QDialog {
  Q_OBJECT

 public:
  explicit frmFehler(QWidget* parent = nullptr);

  void setReport(const QString& report);  // the text with its CR LF line ends
  QString report() const { return report_; }

  // Prints into this PDF file instead of on the default printer (tests).
  void setPrintOutputFile(const QString& pdfPath) { printFile_ = pdfPath; }
  // What "Beenden" does once the report is on the clipboard; ends the process at once by default.
  void setEndProcess(std::function<void()> endProcess) { endProcess_ = std::move(endProcess); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void cmdEmail_Click();
  void cmdDrucken_Click();
  void cmdSpeichern_Click();
  void cmdWeiter_Click();
  void cmdBeenden_Click();
  void copyToClipboard();

  QLabel* lblEinleitung;
  QPlainTextEdit* txtInfo;
  QLineEdit* txtHelp;
  QPushButton* cmdEmail;
  QPushButton* cmdDrucken;
  QPushButton* cmdWeiter;
  QPushButton* cmdBeenden;
  QPushButton* cmdSpeichern;
  QString helpTexts_[5];  // in the order of the buttons above

  QString report_;
  QString printFile_;
  std::function<void()> endProcess_;
};

// Registers the dialog as the way the window shows failure reports, and the screen size.
void installFailureDialog();

}  // namespace ql
