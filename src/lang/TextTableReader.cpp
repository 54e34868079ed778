#include "lang/TextTableReader.h"

#include <cmath>
#include <limits>

namespace ql {

namespace {

bool isLineEnd(QChar c) { return c == QLatin1Char('\n') || c == QLatin1Char('\r'); }
bool isBlank(QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); }

class FieldReader {
 public:
  explicit FieldReader(const QString& text) : s_(text) {}

  bool atEnd() const { return pos_ >= s_.size(); }

  // False when there is no field left: input past the end.
  bool read(QString& field) {
    if (atEnd()) return false;
    while (!atEnd() && isBlank(s_[pos_])) ++pos_;
    if (!atEnd() && s_[pos_] == QLatin1Char('"')) {
      const qsizetype close = s_.indexOf(QLatin1Char('"'), pos_ + 1);
      if (close < 0) {  // an open quote runs to the end
        field = s_.mid(pos_ + 1);
        pos_ = s_.size();
        return true;
      }
      field = s_.mid(pos_ + 1, close - pos_ - 1);
      pos_ = close + 1;
      // Whatever stands between the closing quote and the delimiter is not part of the field.
      while (!atEnd() && s_[pos_] != QLatin1Char(',') && !isLineEnd(s_[pos_])) ++pos_;
    } else {
      const qsizetype start = pos_;
      while (!atEnd() && s_[pos_] != QLatin1Char(',') && !isLineEnd(s_[pos_])) ++pos_;
      qsizetype end = pos_;
      while (end > start && isBlank(s_[end - 1])) --end;
      field = s_.mid(start, end - start);
    }
    skipDelimiter();
    return true;
  }

 private:
  void skipDelimiter() {
    if (atEnd()) return;
    if (s_[pos_] == QLatin1Char('\r') && pos_ + 1 < s_.size() && s_[pos_ + 1] == QLatin1Char('\n'))
      pos_ += 2;
    else
      ++pos_;
  }

  const QString& s_;
  qsizetype pos_ = 0;
};

}  // namespace

double leadingNumber(const QString& field) {
  QString t;
  t.reserve(field.size());
  for (QChar c : field)
    if (!isBlank(c) && !isLineEnd(c)) t += c;
  qsizetype i = 0;
  const auto digits = [&] {
    const qsizetype from = i;
    while (i < t.size() && t[i].isDigit() && t[i].unicode() < 128) ++i;
    return i > from;
  };
  if (i < t.size() && (t[i] == QLatin1Char('+') || t[i] == QLatin1Char('-'))) ++i;
  bool any = digits();
  if (i < t.size() && t[i] == QLatin1Char('.')) {
    ++i;
    any = digits() || any;
  }
  if (!any) return 0;
  qsizetype end = i;
  if (i < t.size() && QStringLiteral("eEdD").contains(t[i])) {
    ++i;
    if (i < t.size() && (t[i] == QLatin1Char('+') || t[i] == QLatin1Char('-'))) ++i;
    if (digits()) end = i;
  }
  QString number = t.left(end);
  number.replace(QLatin1Char('d'), QLatin1Char('e')).replace(QLatin1Char('D'), QLatin1Char('e'));
  return number.toDouble();
}

QString readTextRecords(const QByteArray& data,
                        const std::function<void(int id, const QString& text)>& record) {
  QString text = QString::fromUtf8(data);
  if (text.startsWith(QChar(0xFEFF))) text.remove(0, 1);
  FieldReader reader(text);
  QString first, reference, translation;
  while (!reader.atEnd()) {
    reader.read(first);
    if (first.isEmpty() || first.startsWith(QLatin1Char('#'))) continue;
    // Ids are rounded half to even, and one that does not fit 32 bits ends the reading.
    const double value = std::nearbyint(leadingNumber(first));
    if (!(value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max()))
      return QStringLiteral("Overflow: id '%1'").arg(first);
    if (!reader.read(reference) || !reader.read(translation)) continue;  // cut off by the end
    record(static_cast<int>(value), translation);
  }
  return {};
}

TextTable readTextTable(const QByteArray& data) {
  TextTable table;
  table.error = readTextRecords(data, [&](int id, const QString& text) { table.texts.insert(id, text); });
  return table;
}

}  // namespace ql
