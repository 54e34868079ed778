#include "app/Logs.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include "app/Globals.h"

namespace ql {

namespace {
void appendLine(const QString& fileName, const QString& text) {
  const QString folder = globals().Datapath;
  if (folder.isEmpty()) return;
  QDir().mkpath(folder);
  QFile f(folder + QLatin1Char('/') + fileName);
  if (!f.open(QIODevice::Append | QIODevice::WriteOnly)) return;
  const QString line =
      QDateTime::currentDateTime().toString(QStringLiteral("dd.MM.yyyy HH:mm:ss")) +
      QStringLiteral(" - ") + text + QLatin1Char('\n');
  f.write(line.toUtf8());
}
}  // namespace

void WriteErrorLog(const QString& text) { appendLine(QStringLiteral("error.log"), text); }

}  // namespace ql
