#pragma once
// The program's logs: append-only text files in the data folder, one line per entry,
// the time, " - " and the text.

#include <QString>

namespace ql {

void WriteErrorLog(const QString& text);

}  // namespace ql
