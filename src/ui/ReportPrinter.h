#pragma once
// Draws a report on pages: on the first a heading (what was measured, the program and the date),
// then a table across the page's width with the report's visible columns (the numbers fitted to
// their contents with air between them, the names taking the rest), names indented by level, the
// column titles at the top of every page and the page number at the bottom. Sizes appear in the
// unit and with the decimals of the screen.
//
// Threads: the user-interface thread (it paints with the application's fonts).

#include <QFont>
#include <functional>
#include <vector>

#include "ui/dialogs/ReportOutputDialog.h"
#include "report/ReportTree.h"

class QPagedPaintDevice;

namespace ql {

class ReportPrinter {
 public:
  // Every row of `rows` is printed, in its order; levels count from its top rows.
  ReportPrinter(const ReportTree& rows, const ReportLook& look);

  // Draws every page; `zoom` in percent scales the text. `afterPage` runs after each page (the
  // caller keeps its window alive there). False when the device cannot be painted on.
  bool print(QPagedPaintDevice& device, int zoom, const std::function<void(int page, int pages)>& afterPage = {});

  // The heading of the first page: what the report is of (a folder, or the sources), and the
  // line below it with the program's name and the time of printing.
  void setHeading(const QString& title, const QString& subtitle) {
    title_ = title;
    subtitle_ = subtitle;
  }

  int pages() const { return pages_; }
  // The text of a cell as the screen shows it; empty for a files row's folders.
  QString cellText(uint32_t node, int column) const;

 private:
  const ReportTree& tree_;
  const ReportLook& look_;
  std::vector<uint32_t> rows_;
  int pages_ = 0;
  QString title_, subtitle_;
};

}  // namespace ql
