#include "ui/ReportPrinter.h"

#include <QApplication>
#include <QFile>
#include <QFontMetricsF>
#include <QPagedPaintDevice>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "lang/TL.h"
#include "report/SizeFormat.h"

namespace ql {

ReportPrinter::ReportPrinter(const ReportTree& rows, const ReportLook& look)
    : tree_(rows), look_(look), rows_(rows.preorder()) {}

QString ReportPrinter::cellText(uint32_t n, int column) const {
  const auto& node = tree_.node(n);
  switch (column) {
    case ReportModel::ColName: {
      const auto t = tree_.text(n);
      return QFile::decodeName(QByteArray(t.data(), static_cast<qsizetype>(t.size())));
    }
    case ReportModel::ColSize:
      if (look_.unit == 0) return groupedInteger(node.size);
      return groupedFixed(static_cast<double>(node.size) / unitDivisor(look_.unit), look_.decimals ? 2 : 0);
    case ReportModel::ColPercent: return groupedFixed(tree_.percent(n), look_.decimals ? 2 : 0) + QLatin1String(" %");
    case ReportModel::ColFiles: return groupedInteger(node.files);
    case ReportModel::ColFolders:
      return (node.flags & ReportTree::HasFolders) ? groupedInteger(tree_.folders(n)) : QString();
  }
  return {};
}

bool ReportPrinter::print(QPagedPaintDevice& device, int zoom, const std::function<void(int, int)>& afterPage) {
  QPainter p;
  if (!p.begin(&device)) return false;

  QFont font = QApplication::font();
  font.setPointSizeF(9.0 * std::clamp(zoom, 10, 1000) / 100.0);
  QFont bold = font;
  bold.setBold(true);
  const QFontMetricsF fm(font, &device), fmBold(bold, &device);
  const double air = fm.averageCharWidth() * 2;
  const double indent = fm.averageCharWidth() * 2.5;
  const double line = fm.height() * 1.2;

  // Column widths: the widest text of each number column, and the name column as wide as its
  // deepest or longest name needs. Numbers of equal length are about equally wide, so only the
  // longest are measured.
  std::vector<int> columns;
  for (int c = 0; c < ReportModel::ColumnCount; ++c)
    if (c == ReportModel::ColName || look_.visible[c]) columns.push_back(c);
  std::vector<double> width(columns.size(), 0);
  std::vector<qsizetype> longest(columns.size(), -1);
  for (size_t i = 0; i < columns.size(); ++i) width[i] = fmBold.horizontalAdvance(look_.titles[columns[i]]);
  const double pageWidth = device.width();
  for (uint32_t n : rows_) {
    for (size_t i = 0; i < columns.size(); ++i) {
      if (columns[i] == ReportModel::ColName) {
        if (width[i] >= pageWidth) continue;
        width[i] = std::max(width[i], tree_.level(n) * indent + fm.horizontalAdvance(cellText(n, columns[i])));
      } else {
        const QString text = cellText(n, columns[i]);
        if (text.size() < longest[i]) continue;
        longest[i] = text.size();
        width[i] = std::max(width[i], fm.horizontalAdvance(text));
      }
    }
  }
  double numbers = 0;
  for (size_t i = 1; i < columns.size(); ++i) numbers += (width[i] += air);
  width[0] += air;
  // The names take what the numbers leave of the page, but keep at least as much room as the
  // numbers take together; when that does not fit, everything is drawn smaller until it does.
  double scale = 1;
  width[0] = std::max(pageWidth - numbers, std::min(width[0], numbers));
  if (width[0] + numbers > pageWidth) scale = pageWidth / (width[0] + numbers);
  const double pageHeight = device.height() / scale;
  const double head = line * 1.5, foot = line * 1.5;
  // The heading takes the room of three rows on the first page.
  const bool heading = !title_.isEmpty() || !subtitle_.isEmpty();
  const double headingHeight = heading ? line * 3 : 0;
  const int perPage = std::max(1, static_cast<int>(std::floor((pageHeight - head - foot) / line)));
  const int onFirst =
      std::max(1, static_cast<int>(std::floor((pageHeight - headingHeight - head - foot) / line)));
  const size_t later = rows_.size() > static_cast<size_t>(onFirst) ? rows_.size() - onFirst : 0;
  pages_ = 1 + static_cast<int>((later + perPage - 1) / perPage);
  const double tableWidth = width[0] + numbers;
  QFont big = bold;
  big.setPointSizeF(bold.pointSizeF() * 1.3);
  const QFontMetricsF fmBig(big, &device);

  p.scale(scale, scale);
  for (int page = 0; page < pages_; ++page) {
    if (page > 0 && !device.newPage()) return false;
    double top = 0;
    if (page == 0 && heading) {
      p.setFont(big);
      p.drawText(QRectF(0, 0, tableWidth, line * 1.6), Qt::AlignLeft | Qt::AlignVCenter,
                 fmBig.elidedText(title_, Qt::ElideMiddle, tableWidth));
      p.setFont(font);
      p.drawText(QRectF(0, line * 1.6, tableWidth, line), Qt::AlignLeft | Qt::AlignVCenter,
                 subtitle_);
      top = headingHeight;
    }
    // Column titles on every page, then a rule.
    p.setFont(bold);
    double x = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
      const QRectF cell(x, top, width[i] - (i == 0 ? air : 0), line);
      p.drawText(cell, (i == 0 ? Qt::AlignLeft : Qt::AlignRight) | Qt::AlignVCenter, look_.titles[columns[i]]);
      x += width[i];
    }
    p.drawLine(QPointF(0, top + line * 1.2), QPointF(tableWidth, top + line * 1.2));

    p.setFont(font);
    const size_t first =
        page == 0 ? 0 : static_cast<size_t>(onFirst) + static_cast<size_t>(page - 1) * perPage;
    const size_t last = std::min(rows_.size(), first + (page == 0 ? onFirst : perPage));
    for (size_t r = first; r < last; ++r) {
      const uint32_t n = rows_[r];
      const double y = top + head + static_cast<double>(r - first) * line;
      const double in = tree_.level(n) * indent;
      x = 0;
      for (size_t i = 0; i < columns.size(); ++i) {
        if (i == 0) {
          const double room = std::max(0.0, width[0] - air - in);
          p.drawText(QRectF(in, y, room, line), Qt::AlignLeft | Qt::AlignVCenter,
                     fm.elidedText(cellText(n, columns[0]), Qt::ElideRight, room));
        } else {
          p.drawText(QRectF(x, y, width[i], line), Qt::AlignRight | Qt::AlignVCenter, cellText(n, columns[i]));
        }
        x += width[i];
      }
    }
    p.drawText(QRectF(0, pageHeight - line, pageWidth / scale, line), Qt::AlignHCenter | Qt::AlignVCenter,
               TL(4180, "Seite %1 von %2", {QString::number(page + 1), QString::number(pages_)}));
    if (afterPage) afterPage(page + 1, pages_);
  }
  return p.end();
}

}  // namespace ql
