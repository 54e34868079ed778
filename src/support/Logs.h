#pragma once
// The program's logs: append-only UTF-8 text files in the data folder (globals().DataFolder),
// "error.log", "debug.log" and "internetupdate.log". A line is the time in the general date
// form, " - " and the text. There are no levels and no rotation; every write opens, appends in
// one piece and closes, so several instances can share a file. A missing file is made by the
// first write; without a data folder nothing is written.
//
// Callable from any thread.

#include <QDateTime>
#include <QString>
#include <QVariantList>

#include "support/Failure.h"

namespace ql {

inline constexpr char kErrorLog[] = "error.log";
inline constexpr char kDebugLog[] = "debug.log";
inline constexpr char kUpdateLog[] = "internetupdate.log";
// Not written by this program; Show_Log (ShowLog.h) only opens it when it is there.
inline constexpr char kShownLog[] = "Quorlane.log";

// The data folder and the name with one "/" between them; empty without a data folder.
QString logFilePath(const QString& name);

// Appends `text`, with the time and " - " in front when `withTime`, and an empty line after it
// when `blankLine`. A failure here only returns false: reporting it would come back here.
bool WriteErrorLog(const QString& text, bool blankLine = false, bool withTime = true);

// Appends time, " - ", `text` and ", " with each value; a file that cannot be written is handed
// back for the caller to report.
[[nodiscard]] MaybeFailure LogDebug(const QString& text, const QVariantList& values = {});

// The date and time in the system's general form, as the logs and the error report write it.
QString GeneralDate(const QDateTime& when);

// Appends time, " - ", `text` to the update log and returns that line, which the update
// dialog also shows on its log tab.
QString WriteUpdateLog(const QString& text);

}  // namespace ql
