#pragma once
// The one road of every failure: a procedure that fails hands its name, module, line and values
// here and goes on with what it has.

#include <QString>
#include <QStringList>

namespace ql {

void FailureReport(const QString& proc, const QString& module, int line, const QString& error,
                   const QStringList& debugValues = {});

// Failures reported in this run; a silent run ends with a non-zero status when there were any.
int failureCount();

}  // namespace ql
