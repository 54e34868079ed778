#include "failure/FailureReport.h"

#include <atomic>
#include <cstdio>

#include "app/Globals.h"
#include "app/Logs.h"

namespace ql {

namespace {
std::atomic<int> g_failures{0};
}

void FailureReport(const QString& proc, const QString& module, int line, const QString& error,
                   const QStringList& debugValues) {
  ++g_failures;
  ++globals().Errcount;
  QString text = module + QLatin1Char('.') + proc;
  if (line > 0) text += QStringLiteral(" (%1)").arg(line);
  text += QStringLiteral(": ") + error;
  if (!debugValues.isEmpty()) text += QStringLiteral(" [") + debugValues.join(QStringLiteral("; ")) + ']';
  WriteErrorLog(text);
  std::fprintf(stderr, "quorlane: %s\n", text.toLocal8Bit().constData());
}

int failureCount() { return g_failures.load(); }

}  // namespace ql
