// The translators' record format: fields, quotes, comments, cut-off records.

#include <gtest/gtest.h>

#include <QMap>

#include "lang/TextTableReader.h"

namespace ql {
namespace {

QMap<int, QString> read(const char* text) {
  const TextTable t = readTextTable(QByteArray(text));
  QMap<int, QString> sorted;
  for (auto it = t.texts.begin(); it != t.texts.end(); ++it) sorted.insert(it.key(), it.value());
  return sorted;
}

using Texts = QMap<int, QString>;

TEST(TextTableReader, ReadsRecordsOfThreeFields) {
  const struct {
    const char* name;
    const char* input;
    Texts expected;
  } cases[] = {
      {"quoted commas", "1,\"a, b\",\"c, d\"\n", {{1, "c, d"}}},
      {"unquoted fields trimmed", "2 , ref ,  text here  \n", {{2, "text here"}}},
      {"quoted blanks kept", "3,\"x\",\" - y - \"\n", {{3, " - y - "}}},
      {"no line end at the end", "4,\"x\",\"y\"", {{4, "y"}}},
      {"crlf and empty lines", "1,\"a\",\"b\"\r\n\r\n\r\n2,\"c\",\"d\"\r\n", {{1, "b"}, {2, "d"}}},
      {"line break inside quotes", "5,\"x\",\"one\ntwo\"\n", {{5, "one\ntwo"}}},
      {"text after a closing quote dropped", "6,\"x\"junk,\"y\"\n", {{6, "y"}}},
      {"one record over three lines", "7\n\"x\"\n\"y\"\n", {{7, "y"}}},
      {"last record of an id wins", "8,\"a\",\"old\"\n8,\"a\",\"new\"\n", {{8, "new"}}},
      {"utf-8 with byte order mark", "\xEF\xBB\xBF" "9,\"x\",\"Сохранить\"\n",
       {{9, QStringLiteral("Сохранить")}}},
      {"empty text", "", {}},
      {"an open quote runs to the end", "10,\"x\",\"y, z\n", {{10, "y, z\n"}}},
      {"a stray quote pairs with the next", "1,\"x\",\"y\n2,\"z\",\"w\"\n", {{1, "y\n2,"}}},
      {"a record cut off by the end", "1,\"a\",\"b\"\n2,\"c\"", {{1, "b"}}},
      {"a record of one field", "1,\"a\",\"b\"\n2\n", {{1, "b"}}},
      {"a quoted comment is one field", "\"# note, with\"\n3,\"S\",\"Save\"\n", {{3, "Save"}}},
      {"a plain comment", "#plain note\n3,\"S\",\"Save\"\n", {{3, "Save"}}},
      // The unquoted comma makes " with" the next record's id (0), which eats the record below.
      {"a comma in a plain comment", "# note, with\n3,\"S\",\"Save\"\n", {{0, "S"}}},
      // Ids are the leading number, rounded half to even.
      {"id 2.5", "2.5,x,y\n", {{2, "y"}}},
      {"id 12abc", "12abc,x,y\n", {{12, "y"}}},
  };
  for (const auto& c : cases) EXPECT_EQ(read(c.input), c.expected) << c.name;
  EXPECT_EQ(leadingNumber(QStringLiteral("1e3x")), 1000.0);
  EXPECT_EQ(leadingNumber(QStringLiteral("-7")), -7.0);
}

}  // namespace
}  // namespace ql
