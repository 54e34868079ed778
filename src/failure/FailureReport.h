#pragma once
// The one road of every failure: a procedure that fails hands its name, module, line and values
// here and goes on with what it has. The report is a plain text of the failure and the machine's
// state; it is appended to "error.log" and shown by the dialog the window registers. In a silent
// run, or with no dialog registered, one line goes to standard error instead and the caller ends
// the run with a non-zero status (see failureCount()).

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include "support/Failure.h"
#include "support/Stop.h"

namespace ql {

// A failure: a number (0 when there is none) and its description.
struct FailureError {
  int number = 0;
  QString description;
};

void FailureReport(const QString& proc, const QString& module, int line, const QString& error,
                   const QStringList& debugValues = {});
void FailureReport(const QString& proc, const QString& module, int line, const FailureError& error,
                   const QStringList& debugValues = {});
// A failure a lower piece handed back; none, or each of several, alike.
void FailureReport(const Failure& failure);
void FailureReport(const MaybeFailure& failure);
void FailureReport(const std::vector<Failure>& failures);

// Failures reported in this run; a silent run ends with a non-zero status when there were any.
int failureCount();

// The first part of the report: the failure and the machine's state.
QString BuildErrorText(const QString& proc, const QString& module, int line,
                       const FailureError& error);

// What the report prints besides the failure. Shows the command line from the start on.
void setFailureCommandLine(const QString& commandLine);
QString failureCommandLine();
// The window's busy state and the stop of the work under way, printed as the stop word (mirrors,
// so that the fatal-signal report can read them too). The stop must outlive its registration.
void setFailureBusyWord(int busy);
int failureBusyWord();
void setFailureStop(const Stop* stop);
int failureStopWord();
// The window side gives the screen size ("1920x1080"); without it the report shows "-".
void setFailureScreenSizeProvider(std::function<QString()> provider);

// Shows a report in the dialog; called on the user-interface thread. An empty handler removes it.
using FailureDialogHandler = std::function<void(const QString& report)>;
void setFailureDialogHandler(FailureDialogHandler handler);

// Mail hand-off: the address, the text encoding of the mail body, the whole "mailto:" URL.
QString supportMailAddress();
QString urlEncodeMailText(const QString& text);
QString failureMailUrl(const QString& note);

// Writes the report to a new "ERRxxxx.txt" in `folder` (CR LF kept) and returns its path; on
// failure returns "" and sets `error`.
QString SaveErrorReport(const QString& folder, const QString& text, QString* error = nullptr);

// Building blocks of the report text, shared with the fatal-signal report, which fills some of
// the values with place-holders. Every value is already text.
struct ErrorTextFacts {
  QString time;
  QString appName;
  QString appVersion;  // "major.minor.revision"
  int beta = 0;        // 1: a beta build
  int releaseCandidate = 0;
  QString programPath;
  QString appUp;
  QString sysUp;
  QString osName, osVersion, osBuild, osPlatformId;
  QString is64bit;
  QString browser;
  QString physFree, physTotal, memLoad, ramUsed, pageFree, pageTotal, virtFree, virtTotal;
  QString cpu;
  QString screen;
  QString commandLine;
  QString user;
  QString computer;
};

struct ReportState {
  QString apptitle, datapath, admin, errcount, lang, stop;
};

ErrorTextFacts collectErrorTextFacts();
ReportState collectReportState(int errcount);
QString composeErrorText(const ErrorTextFacts& facts, const QString& proc, const QString& module,
                         int line, const FailureError& error);
QString composeFailureReport(const QString& errorText, const ReportState& state,
                             const QStringList& debugValues);

}  // namespace ql
