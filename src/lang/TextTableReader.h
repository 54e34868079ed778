#pragma once
// The reader of the translators' record format, shared by the built-in English and Russian tables
// and by the translators' file "QuorlaneTL.txt".
//
// The text is a stream of fields separated by commas or line ends; a field in double quotes keeps
// its commas and line ends, and the quotes are not part of it. A record is three fields: the id,
// a reference text that is ignored (translators keep the German text there), and the translation.
// A first field that is empty or begins with "#" is skipped on its own, so a comment with an
// unquoted comma hands the rest of its line to the next record. A record cut off by the end of
// the text is dropped, and the last record of an id wins.

#include <QByteArray>
#include <QHash>
#include <QString>
#include <functional>

namespace ql {

struct TextTable {
  QHash<int, QString> texts;
  QString error;  // not empty when a bad id ended the reading early; what came before is kept
};

// `data` is UTF-8, with or without a byte order mark.
TextTable readTextTable(const QByteArray& data);
// The same, handing each record to `record` in the order of the text (a later record of an id
// comes later); returns the error.
QString readTextRecords(const QByteArray& data,
                        const std::function<void(int id, const QString& text)>& record);

// The leading number of a field the way the record format has always read it: blanks are
// ignored, reading stops at the first character that is not part of a decimal number, and
// no number at all is 0.
double leadingNumber(const QString& field);

}  // namespace ql
