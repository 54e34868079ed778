#include "ui/dialogs/frmSave.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QThread>
#include <memory>

#include "lang/TL.h"
#include "ui/TranslateControls.h"
#include "output/ReportWriter.h"

namespace ql {

frmSave::frmSave(ReportTree& tree, QAbstractItemModel* watch, uint32_t selected, const ReportLook& look,
                 QWidget* parent)
    : ReportOutputDialog("frmSave", tree, watch, selected, look, false, parent) {
  setObjectName(QStringLiteral("frmSave"));
  auto* label = new QLabel(QStringLiteral("Dateiformat:"), this);
  label->setProperty("tag", QStringLiteral("3647"));
  cboFormat_ = new QComboBox(this);
  cboFormat_->setObjectName(QStringLiteral("cboFormat"));
  cboFormat_->addItems({QStringLiteral("TXT"), QStringLiteral("CSV")});
  cboFormat_->setCurrentIndex(0);
  label->setBuddy(cboFormat_);
  extra_->addWidget(label, 0, 0);
  extra_->addWidget(cboFormat_, 0, 1);
  extra_->setColumnStretch(2, 1);
  TranslateControls(this);
  setWindowTitle(TL(3612, "Speichern"));
  connect(OKButton(), &QPushButton::clicked, this,
          guard_.wrap("OKButton_Click", [this] { SPEICHERN(std::string(), -1); }));
}

bool frmSave::SPEICHERN(std::string FileName, int Levels) {
  if (busy()) return false;
  if (Levels != -1) {
    if (Levels == 0) {
      optLevels()->button(0)->setChecked(true);
    } else {
      optLevels()->button(1)->setChecked(true);
      txtLevels()->setText(QString::number(Levels));
    }
  }
  ReportSaveOptions options;
  options.unit = look_.unit;
  options.decimals = look_.decimals;
  options.allocated = look_.allocated;
  options.linksOnce = look_.linksOnce;
  BranchCopy::Depth depth = BranchCopy::Depth::All;
  switch (optLevels()->checkedId()) {
    case 1:
      options.levels = ReportSaveOptions::Levels::Count;
      options.levelCount = levelsNumber();
      depth = BranchCopy::Depth::Levels;
      break;
    case 2:
      options.levels = ReportSaveOptions::Levels::CurrentView;
      depth = BranchCopy::Depth::Expanded;
      break;
    default: break;
  }

  setBusy(true);
  bool written = false;
  guard_.run("SPEICHERN", [&] {
    // The copy is made as the choice stands now, before the file is asked for.
    BranchCopy copy(tree_, chosenBranch(), depth, options.levelCount);
    if (!copyBranch(copy)) return;
    auto branch = std::make_shared<ReportTree>(copy.take());

    if (FileName.empty()) {
      const bool text = cboFormat_->currentIndex() == 0;
      cCommonDialog::SaveRequest request;
      request.OverWritePrompt = true;
      request.Filter = text ? QStringLiteral("TXT (*.txt)|*.txt") : QStringLiteral("CSV (*.csv)|*.csv");
      request.DefaultExt = text ? QStringLiteral("txt") : QStringLiteral("csv");
      request.InitDir = lastFolder_;
      request.DlgTitle = TL(3612, "Speichern");
      setBusy(false);
      const bool chosen = dialog_.VBGetSaveFileName(request, this);
      setBusy(true);
      if (!chosen || request.FileName.isEmpty()) return;
      FileName = QFile::encodeName(request.FileName).toStdString();
      lastFolder_ = QFileInfo(request.FileName).absolutePath();
    }

    // The write runs on a thread of its own from the copy; this loop keeps the window alive.
    QString error;
    int code = 0;
    bool ok = false;
    QEventLoop loop;
    std::unique_ptr<QThread> worker(
        QThread::create([&ok, &error, &code, branch, FileName, options] {
          ok = ReportWriter::SPEICHERN(*branch, FileName, options, error, NumberFormat::system(),
                                       &code);
        }));
    connect(worker.get(), &QThread::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    worker->start();
    loop.exec();
    worker->wait();
    if (!ok) {
      // The old file is kept; what stood in the way is the user's to mend.
      tellNotWritten(QFile::decodeName(QByteArray::fromStdString(FileName)),
                     code ? ReportWriter::failureReason(code) : error);
      return;
    }
    written = true;
  });
  setBusy(false);
  // Done, failed or cancelled: the dialog goes.
  QDialog::done(written ? Accepted : Rejected);
  return written;
}

}  // namespace ql
