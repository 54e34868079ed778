#include "report/SizeFormat.h"

#include <cmath>
#include <cstdio>

namespace ql {

NumberFormat NumberFormat::fromLocale(const QLocale& locale) {
  NumberFormat nf;
  const QString g = locale.groupSeparator();
  const QString d = locale.decimalPoint();
  if (g.size() == 1) nf.group = g[0];
  if (d.size() == 1) nf.decimal = d[0];
  return nf;
}

const NumberFormat& NumberFormat::system() {
  static const NumberFormat nf = fromLocale(QLocale::system());
  return nf;
}

double unitDivisor(int code) {
  switch (code) {
    case Bytes: return 1.0;
    case KB: return 1024.0;
    case MB: return 1048576.0;
    case GB: return 1073741824.0;
    case TB: return 1099511627776.0;
    default: return 0.0;
  }
}

QString unitSuffix(int code) {
  switch (code) {
    case Bytes: return QStringLiteral(" Bytes");
    case KB: return QStringLiteral(" KB");
    case MB: return QStringLiteral(" MB");
    case GB: return QStringLiteral(" GB");
    case TB: return QStringLiteral(" TB");
    default: return {};
  }
}

namespace {
// Inserts separators into a run of digits (with an optional leading minus).
QString group(const char* digits, int len, QChar sep) {
  QString out;
  int start = 0;
  if (len > 0 && digits[0] == '-') {
    out += QLatin1Char('-');
    start = 1;
  }
  const int n = len - start;
  for (int i = 0; i < n; ++i) {
    if (i > 0 && (n - i) % 3 == 0) out += sep;
    out += QLatin1Char(digits[start + i]);
  }
  return out;
}

QString fixed(double value, int decimals, const NumberFormat& nf, bool grouped) {
  if (!std::isfinite(value)) value = 0;
  char buf[64];
  const int len = std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
  const char* dot = static_cast<const char*>(std::memchr(buf, '.', static_cast<size_t>(len)));
  const int intLen = dot ? static_cast<int>(dot - buf) : len;
  QString out = grouped ? group(buf, intLen, nf.group) : QString::fromLatin1(buf, intLen);
  if (dot) {
    out += nf.decimal;
    out += QLatin1String(dot + 1, len - intLen - 1);
  }
  return out;
}

QString padLeft(QString text, int width) {
  if (text.size() < width) text.prepend(QString(width - text.size(), QLatin1Char(' ')));
  return text;
}
}  // namespace

QString groupedInteger(int64_t value, const NumberFormat& nf) {
  char buf[32];
  const int len = std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(value));
  return group(buf, len, nf.group);
}

QString groupedFixed(double value, int decimals, const NumberFormat& nf) {
  return fixed(value, decimals, nf, true);
}

QString plainFixed(double value, int decimals, const NumberFormat& nf) {
  return fixed(value, decimals, nf, false);
}

QString xFormatFileSize(int code, int64_t value, bool withUnit, bool shortBytes,
                        const NumberFormat& nf) {
  switch (code) {
    case Bytes: {
      QString t = groupedInteger(value, nf);
      if (withUnit) t += shortBytes ? QStringLiteral(" BS") : unitSuffix(Bytes);
      return t;
    }
    case KB:
    case MB:
    case GB:
    case TB: {
      QString t = groupedFixed(static_cast<double>(value) / unitDivisor(code), 2, nf);
      if (withUnit) t += unitSuffix(code);
      return t;
    }
    case Auto:
      if (value > 1047527424) return xFormatFileSize(GB, value, true, false, nf);
      if (value > 1048576) return xFormatFileSize(MB, value, true, false, nf);
      if (value > 1024) return xFormatFileSize(KB, value, true, false, nf);
      return xFormatFileSize(Bytes, value, true, shortBytes, nf);
    default: return {};
  }
}

QString xFormatFileSizeAuto(int64_t value, bool withUnit, const NumberFormat& nf) {
  int code = Bytes;
  if (value > 1099511627776LL)
    code = TB;
  else if (value > 1047527424)
    code = GB;
  else if (value > 1048576)
    code = MB;
  else if (value > 1024)
    code = KB;
  return xFormatFileSize(code, value, withUnit, false, nf);
}

QString xFormatFileSizeWithSpacer(int code, int64_t value, int width, bool withUnit, int decimals,
                                  const NumberFormat& nf) {
  QString t;
  switch (code) {
    case Bytes: t = groupedInteger(value, nf); break;
    case KB:
    case MB:
    case GB:
    case TB:
      t = groupedFixed(static_cast<double>(value) / unitDivisor(code), decimals == 1 ? 2 : 0, nf);
      break;
    default: return padLeft(QString(), width);
  }
  if (withUnit) t += unitSuffix(code);
  return padLeft(t, width);
}

QString FormatSize(int unitSetting, int64_t value, bool withUnit, bool pad, bool bytesWord,
                   const NumberFormat& nf) {
  static const int widths[] = {15, 17, 13, 9};
  if (unitSetting < Bytes || unitSetting > GB) return {};
  QString t;
  if (unitSetting == Bytes) {
    t = groupedInteger(value, nf);
    if (withUnit && bytesWord) t += unitSuffix(Bytes);
  } else {
    t = groupedFixed(static_cast<double>(value) / unitDivisor(unitSetting), 2, nf);
    if (withUnit) t += unitSuffix(unitSetting);
  }
  return pad ? padLeft(t, widths[unitSetting]) : t;
}

QString FormatFileSizeSave(int unit, int decimals, int64_t value, const NumberFormat& nf) {
  switch (unit) {
    case Bytes: return QString::number(value);
    case KB:
    case MB:
    case GB:
    case TB:
      return plainFixed(static_cast<double>(value) / unitDivisor(unit), decimals == 1 ? 2 : 0, nf);
    default: return {};
  }
}

}  // namespace ql
