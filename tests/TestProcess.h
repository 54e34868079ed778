#pragma once
// Another program run to its end, for the tests that drive the program (or a tool beside it)
// from outside.

#include <gtest/gtest.h>
#include <QProcess>
#include <QStringList>
#include <functional>
#include <utility>

#include "TestFs.h"

namespace ql::test {

struct Outcome {
  int status = -1;  // -1 when the program did not end by itself
  QByteArray out, err;
};

// Runs `program` under LC_ALL=C.UTF-8 with the environment entries `env`, in `folder` when one is
// given, for a minute at most. `inChild` runs in the child before the program starts.
inline Outcome runProgram(const QString& program, const QStringList& args,
                          const QList<std::pair<QString, QString>>& env = {},
                          const QString& folder = {}, std::function<void()> inChild = {}) {
  ensureApp();
  QProcess p;
  p.setWorkingDirectory(folder);
  QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
  e.insert("LC_ALL", "C.UTF-8");
  for (const auto& [key, value] : env) e.insert(key, value);
  p.setProcessEnvironment(e);
  if (inChild) p.setChildProcessModifier(inChild);
  p.start(program, args);
  EXPECT_TRUE(p.waitForFinished(60000)) << program.toStdString();
  return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
          p.readAllStandardError()};
}

}  // namespace ql::test
