#pragma once
// The print dialog: the same choices as the save dialog, and a zoom. The chosen rows are copied
// out of the report (the open folders of the screen, or a branch down to a number of levels),
// then the printer is asked for and the copy printed as a table, page by page, with the window
// alive between pages.
//
// Threads: the user-interface thread.

#include <QPrinter>
#include <functional>

#include "ui/dialogs/ReportOutputDialog.h"

namespace ql {

class frmPrint : public ReportOutputDialog {
  Q_OBJECT
 public:
  frmPrint(ReportTree& tree, QAbstractItemModel* watch, uint32_t selected, const ReportLook& look,
           QWidget* parent = nullptr);

  // Runs on OK: copies, asks for the printer, prints, and closes the dialog.
  void Report_print();

  // Sets up the printer (the system's print dialog unless replaced); false: do not print.
  using PrinterChooser = std::function<bool(QPrinter& printer, QWidget* owner)>;
  void setPrinterChooser(PrinterChooser chooser) { chooser_ = std::move(chooser); }

  QLineEdit* txtZoom() const { return txtZoom_; }
  // The zoom of a text: a number rounded, else 100; kept to what a page can take.
  static int zoomOf(const QString& text);
  // Pages printed by the last run; 0 when nothing was printed.
  int printedPages() const { return printedPages_; }

 private:
  QLineEdit* txtZoom_ = nullptr;
  QString caption_;
  QString expandingNote_;
  PrinterChooser chooser_;
  int printedPages_ = 0;
};

}  // namespace ql
