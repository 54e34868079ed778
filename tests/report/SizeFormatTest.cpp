// Size texts: units, boundaries, separators and padding.

#include <gtest/gtest.h>

#include "report/SizeFormat.h"

namespace ql {
namespace {

const NumberFormat en{QLatin1Char(','), QLatin1Char('.')};
const NumberFormat de{QLatin1Char('.'), QLatin1Char(',')};

TEST(SizeFormat, UnitsBoundariesSeparatorsAndPadding) {
  struct Case {
    int code;
    int64_t value;
    bool withUnit;
    const char* text;
  } cases[] = {
      {0, 0, true, "0 Bytes"},
      {0, 1234567, false, "1,234,567"},
      {1, 1536, true, "1.50 KB"},
      {2, 1048576, true, "1.00 MB"},
      {3, 1610612736, false, "1.50"},
      {5, 1099511627776LL, true, "1.00 TB"},
      {4, 1024, true, "1,024 Bytes"},  // exactly 1024 is still bytes
      {4, 1025, true, "1.00 KB"},
      {4, 1047527424, true, "999.00 MB"},
      {4, 1047527425, true, "0.98 GB"},  // never four digits of MB
      {6, 5, true, ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(xFormatFileSize(c.code, c.value, c.withUnit, false, en), QString::fromUtf8(c.text))
        << c.code << " " << c.value;
  EXPECT_EQ(xFormatFileSize(0, 10, true, true, en), "10 BS");
  EXPECT_EQ(xFormatFileSizeAuto(1099511627777LL, true, en), "1.00 TB");
  EXPECT_EQ(xFormatFileSizeAuto(1099511627776LL, true, en), "1,024.00 GB");
  EXPECT_EQ(xFormatFileSizeAuto(2048, false, en), "2.00");
  EXPECT_EQ(xFormatFileSize(2, 1234567890, true, false, de), "1.177,38 MB");
  // The setting's unit, padding and the bytes word.
  EXPECT_EQ(FormatSize(0, 1000, true, false, false, en), "1,000");
  EXPECT_EQ(FormatSize(0, 1000, true, false, true, en), "1,000 Bytes");
  EXPECT_EQ(FormatSize(1, 1024, true, false, false, en), "1.00 KB");
  EXPECT_EQ(FormatSize(0, 5, false, true, false, en), QString(14, ' ') + "5");
  EXPECT_EQ(FormatSize(3, 0, false, true, false, en), "     0.00");
  EXPECT_EQ(FormatSize(4, 1, true, false, false, en), "");
  // Report columns and plain numbers.
  EXPECT_EQ(xFormatFileSizeWithSpacer(0, 1234, 8, false, 1, en), "   1,234");
  EXPECT_EQ(xFormatFileSizeWithSpacer(0, 1234, 2, true, 1, en), "1,234 Bytes");
  EXPECT_EQ(xFormatFileSizeWithSpacer(1, 1264128, 1, false, 1, en), "1,234.50");
  EXPECT_EQ(xFormatFileSizeWithSpacer(1, 1264128, 1, false, 0, en),
            "1,234");  // rounds half to even
  EXPECT_EQ(xFormatFileSizeWithSpacer(4, 1, 3, false, 1, en), "   ");
  EXPECT_EQ(FormatFileSizeSave(0, 1, 1234567, en), "1234567");
  EXPECT_EQ(FormatFileSizeSave(1, 1, 1264128, en), "1234.50");
  EXPECT_EQ(FormatFileSizeSave(1, 1, 1264128, de), "1234,50");
  EXPECT_EQ(FormatFileSizeSave(2, 0, 3 * 1048576, en), "3");
  EXPECT_EQ(FormatFileSizeSave(4, 1, 1, en), "");
}

}  // namespace
}  // namespace ql
