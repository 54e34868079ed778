#pragma once
// Draws a report on pages: a table with the report's visible columns fitted to their contents
// with air between them, names indented by level, the column titles at the top of every page and
// the page number at the bottom. Sizes appear in the unit and with the decimals of the screen.
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

  int pages() const { return pages_; }
  // The text of a cell as the screen shows it; empty for a files row's folders.
  QString cellText(uint32_t node, int column) const;

 private:
  const ReportTree& tree_;
  const ReportLook& look_;
  std::vector<uint32_t> rows_;
  int pages_ = 0;
};

}  // namespace ql
