#pragma once
// How sizes and counts become text: the formatters for status lines and reports, and the
// separators they use. Unit codes: 0 Bytes, 1 KB, 2 MB, 3 GB, 4 automatic, 5 TB; all powers of
// 1024. Grids do not use these texts: they format the stored number in the unit chosen for them.

#include <QChar>
#include <QLocale>
#include <QString>
#include <cstdint>

namespace ql {

// Thousands separator and decimal point, taken from a locale once.
struct NumberFormat {
  QChar group = QLatin1Char(',');
  QChar decimal = QLatin1Char('.');
  static NumberFormat fromLocale(const QLocale& locale);
  static const NumberFormat& system();  // the user's locale, read on first use
};

enum Unit : int { Bytes = 0, KB = 1, MB = 2, GB = 3, Auto = 4, TB = 5 };

double unitDivisor(int code);  // 0 for codes without a divisor
QString unitSuffix(int code);  // " Bytes", " KB", ...; "" for others

// "###,###,##0": whole number with thousands separators.
QString groupedInteger(int64_t value, const NumberFormat& nf = NumberFormat::system());
// "###,##0.00" (decimals 2) or "###,##0" (decimals 0).
QString groupedFixed(double value, int decimals, const NumberFormat& nf = NumberFormat::system());
// "#####0.00" or "########0": no separators, for tables that are read as numbers.
QString plainFixed(double value, int decimals, const NumberFormat& nf = NumberFormat::system());

QString xFormatFileSize(int code, int64_t value, bool withUnit, bool shortBytes = false,
                        const NumberFormat& nf = NumberFormat::system());
QString xFormatFileSizeAuto(int64_t value, bool withUnit,
                            const NumberFormat& nf = NumberFormat::system());
QString xFormatFileSizeWithSpacer(int code, int64_t value, int width, bool withUnit, int decimals,
                                  const NumberFormat& nf = NumberFormat::system());
// In the unit of a list's setting (FileSizeFormat for the report, FileSizeFormatFiles for files).
QString FormatSize(int unitSetting, int64_t value, bool withUnit, bool pad, bool bytesWord,
                   const NumberFormat& nf = NumberFormat::system());
// The size as a plain number for the semicolon table.
QString FormatFileSizeSave(int unit, int decimals, int64_t value,
                           const NumberFormat& nf = NumberFormat::system());

}  // namespace ql
