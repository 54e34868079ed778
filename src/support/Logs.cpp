#include "support/Logs.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLocale>

#include "support/Globals.h"

namespace ql {

namespace {

QString now() {
  return GeneralDate(QDateTime::currentDateTime());
}

// One write call per entry, so that entries of several writers never interleave.
bool append(const QString& name, const QString& entry, QString* error = nullptr) {
  const QString path = logFilePath(name);
  if (path.isEmpty()) {
    if (error) *error = QStringLiteral("no data folder");
    return false;
  }
  QDir().mkpath(globals().DataFolder);
  QFile f(path);
  const QByteArray bytes = entry.toUtf8();
  if (!f.open(QIODevice::WriteOnly | QIODevice::Append) || f.write(bytes) != bytes.size()) {
    if (error) *error = f.errorString();
    return false;
  }
  return true;
}

}  // namespace

QString logFilePath(const QString& name) {
  const QString folder = globals().DataFolder;
  if (folder.isEmpty()) return {};
  return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

bool WriteErrorLog(const QString& text, bool blankLine, bool withTime) {
  QString entry = withTime ? now() + QStringLiteral(" - ") : QString();
  entry += text + QLatin1Char('\n');
  if (blankLine) entry += QLatin1Char('\n');
  return append(QLatin1String(kErrorLog), entry);
}

MaybeFailure LogDebug(const QString& text, const QVariantList& values) {
  QString line = text;
  for (const auto& v : values) line += QStringLiteral(", ") + v.toString();
  QString error;
  if (append(QLatin1String(kDebugLog), now() + QStringLiteral(" - ") + line + QLatin1Char('\n'),
             &error))
    return std::nullopt;
  return Failure{QStringLiteral("LogDebug"), QStringLiteral("modMainInit"), error,
                 {QStringLiteral("FileError")}};
}

QString GeneralDate(const QDateTime& when) {
  return QLocale::system().toString(when.date(), QLocale::ShortFormat) + QLatin1Char(' ') +
         when.time().toString(QStringLiteral("HH:mm:ss"));
}

QString WriteUpdateLog(const QString& text) {
  const QString line = now() + QStringLiteral(" - ") + text;
  append(QLatin1String(kUpdateLog), line + QLatin1Char('\n'));
  return line;
}

}  // namespace ql
