#include "ui/dialogs/frmPrint.h"

#include <QButtonGroup>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPrintDialog>
#include <QPushButton>
#include <QRadioButton>
#include <algorithm>
#include <cmath>

#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "lists/FileRow.h"
#include "output/OutputFile.h"
#include "output/ReportWriter.h"
#include "support/Globals.h"
#include "support/PathText.h"
#include "ui/ReportPrinter.h"
#include "ui/TranslateControls.h"

namespace ql {

frmPrint::frmPrint(ReportTree& tree, QAbstractItemModel* watch, uint32_t selected, const ReportLook& look,
                   QWidget* parent)
    : ReportOutputDialog("frmPrint", tree, watch, selected, look, true, parent) {
  setObjectName(QStringLiteral("frmPrint"));
  auto* label = new QLabel(QStringLiteral("Zoom:"), this);
  label->setProperty("tag", QStringLiteral("3620"));
  txtZoom_ = new QLineEdit(QStringLiteral("100"), this);
  txtZoom_->setObjectName(QStringLiteral("txtZoom"));
  txtZoom_->setFixedWidth(txtZoom_->fontMetrics().horizontalAdvance(QStringLiteral("0000000")));
  txtZoom_->setAlignment(Qt::AlignRight);
  label->setBuddy(txtZoom_);
  extra_->addWidget(label, 0, 0);
  extra_->addWidget(txtZoom_, 0, 1);
  extra_->addWidget(new QLabel(QStringLiteral("%"), this), 0, 2);
  extra_->setColumnStretch(3, 1);
  TranslateControls(this);
  caption_ = TL(3619, "Drucken");
  expandingNote_ = TL(3622, " - Ordner werden aufgeklappt...(");
  setWindowTitle(caption_);
  connect(OKButton(), &QPushButton::clicked, this, guard_.wrap("OKButton_Click", [this] { Report_print(); }));
}

int frmPrint::zoomOf(const QString& text) {
  bool ok = false;
  const double z = text.trimmed().toDouble(&ok);
  if (!ok || !std::isfinite(z)) return 100;
  return static_cast<int>(std::clamp(std::round(z), 10.0, 1000.0));
}

void frmPrint::Report_print() {
  if (busy()) return;
  printedPages_ = 0;
  const int zoom = zoomOf(txtZoom_->text());
  // Which rows: all levels, a number of levels below the top rows (as it stands), or what is
  // open on the screen.
  BranchCopy::Depth depth = BranchCopy::Depth::All;
  if (optLevels()->checkedId() == 1) depth = BranchCopy::Depth::Levels;
  if (optLevels()->checkedId() == 2) depth = BranchCopy::Depth::Expanded;

  setBusy(true);
  guard_.run("Report_print", [&] {
    BranchCopy copy(tree_, chosenBranch(), depth, levelsNumber());
    const bool copied = copyBranch(copy, [this](size_t expanded) {
      setWindowTitle(caption_ + expandingNote_ + QString::number(expanded) + QLatin1Char(')'));
    });
    setWindowTitle(caption_);
    if (!copied) return;
    const ReportTree rows = copy.take();
    // What was measured names the document: the folder chosen, or the sources.
    QString source;
    if (const uint32_t branch = chosenBranch(); branch != kNoNode) {
      source = pathText(tree_.fullPath(branch));
    } else {
      QStringList roots;
      for (uint32_t r : tree_.roots()) roots << pathText(tree_.text(r));
      source = roots.join(QStringLiteral(", "));
    }

    QPrinter printer(QPrinter::HighResolution);
    printer.setDocName(source.isEmpty() ? globals().Apptitle : source);
    printer.setCreator(globals().Apptitle);
    printer.setPageMargins(QMarginsF(12, 12, 12, 12), QPageLayout::Millimeter);
    const bool chosen = chooser_ ? chooser_(printer, this) : [&] {
      QPrintDialog dialog(&printer, this);
      return dialog.exec() == QDialog::Accepted;
    }();
    if (!chosen) return;

    ReportPrinter report(rows, look_);
    report.setHeading(source,
                      TL(4411, "%1, gedruckt am %2",
                         {globals().Apptitle, listDate(QDateTime::currentSecsSinceEpoch())}));
    if (!report.print(printer, zoom, [](int, int) { QCoreApplication::processEvents(); })) {
      // A PDF file that cannot be written is the user's to mend, as a report file is; what
      // stood in the way is found the way the report's own file would find it.
      if (const QString file = printer.outputFileName();
          printer.outputFormat() == QPrinter::PdfFormat && !file.isEmpty()) {
        OutputFile probe;
        if (!probe.open(QFile::encodeName(file).toStdString())) {
          tellNotWritten(file, probe.errorCode() ? ReportWriter::failureReason(probe.errorCode())
                                                 : QString::fromStdString(probe.error()));
          return;
        }
      }
      FailureReport(QStringLiteral("Report_print"), QStringLiteral("frmPrint"), 0,
                    TL(4181, "Der Drucker kann nicht verwendet werden."),
                    {printer.printerName(), printer.outputFileName()});
      return;
    }
    printedPages_ = report.pages();
  });
  setBusy(false);
  QDialog::done(printedPages_ > 0 ? Accepted : Rejected);
}

}  // namespace ql
