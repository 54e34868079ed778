#pragma once
// A failure found by a piece that sits below the error report (settings file, logs, text
// tables): it is handed back to the caller, which reports it. The fields are what the error
// report names: the procedure and module where it happened, the text, and values that go with it.

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace ql {

struct Failure {
  QString procedure;
  QString module;
  QString error;
  QStringList values;
};

using MaybeFailure = std::optional<Failure>;

}  // namespace ql
