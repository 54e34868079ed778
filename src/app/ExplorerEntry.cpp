#include "app/ExplorerEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

#include "failure/FailureReport.h"
#include "support/Logs.h"

namespace ql {

namespace {

// Characters that make an argument of an Exec line need quotes.
bool reserved(QChar c) {
  static const QString kReserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
  return kReserved.contains(c);
}

void logFailure(const QString& step, const QString& error) {
  FailureReport(LogDebug(QStringLiteral("SetExplorerEntry\\") + step + QStringLiteral(": ") + error));
}

// Lets the file managers' caches know; a desktop without the tool finds the entry by itself.
void updateDatabase(const QString& folder) {
  const QString tool = QStandardPaths::findExecutable(QStringLiteral("update-desktop-database"));
  if (tool.isEmpty()) return;
  QProcess p;
  p.setProcessChannelMode(QProcess::MergedChannels);
  p.start(tool, {QStringLiteral("-q"), folder});
  if (!p.waitForFinished(10000)) {
    p.kill();
    p.waitForFinished(1000);
    logFailure(QStringLiteral("update-desktop-database"), QStringLiteral("no answer"));
  }
}

}  // namespace

QString userApplicationsFolder() {
  QString base = qEnvironmentVariable("XDG_DATA_HOME");
  if (base.isEmpty() || !QDir::isAbsolutePath(base)) base = QDir::homePath() + QStringLiteral("/.local/share");
  return QDir::cleanPath(base + QStringLiteral("/applications"));
}

QString folderEntryPath() { return userApplicationsFolder() + QLatin1Char('/') + QLatin1String(kFolderEntryName); }

QString desktopExecArgument(const QString& argument) {
  if (argument.isEmpty()) return {};
  bool quote = false;
  for (QChar c : argument) {
    if (c.unicode() < 0x20 || c.unicode() == 0x7f) return {};
    quote = quote || reserved(c);
  }
  QString out;
  if (quote) out += QLatin1Char('"');
  for (QChar c : argument) {
    if (quote && (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\')))
      out += QLatin1Char('\\');
    out += c;
    if (c == QLatin1Char('%')) out += QLatin1Char('%');
  }
  if (quote) out += QLatin1Char('"');
  return out;
}

QString desktopValue(const QString& value) {
  QString out = value;
  out.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
  return out;
}

QString folderEntryText(const QString& program) {
  if (!QDir::isAbsolutePath(program)) return {};
  const QString exec = desktopExecArgument(program);
  if (exec.isEmpty()) return {};
  // Hidden from the menus: the program's own entry stands there; this one only offers itself
  // for folders.
  return QStringLiteral(
             "[Desktop Entry]\n"
             "Type=Application\n"
             "Name=Quorlane\n"
             "GenericName=Disk usage\n"
             "GenericName[de]=Speicherplatzbelegung\n"
             "Comment=Shows where the space on a disk has gone\n"
             "Comment[de]=Zeigt, wo der Platz auf einem Datenträger geblieben ist\n"
             "Icon=quorlane\n"
             "Exec=") +
         desktopValue(exec) +
         QStringLiteral(
             " %f\n"
             "Terminal=false\n"
             "NoDisplay=true\n"
             "MimeType=inode/directory;\n");
}

bool SetExplorerEntry(int value, const QString& program, const QString& folder) {
  const QString dir = folder.isEmpty() ? userApplicationsFolder() : folder;
  const QString path = dir + QLatin1Char('/') + QLatin1String(kFolderEntryName);
  bool ok = true;
  if (value == 1) {
    const QString exe = program.isEmpty() ? QCoreApplication::applicationFilePath() : program;
    const QString text = folderEntryText(exe);
    QSaveFile file(path);
    if (text.isEmpty()) {
      logFailure(QStringLiteral("Exec"), exe);
      ok = false;
    } else if (!QDir().mkpath(dir)) {
      logFailure(QStringLiteral("mkpath"), dir);
      ok = false;
    } else if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0 || !file.commit()) {
      logFailure(QStringLiteral("write"), path + QStringLiteral(", ") + file.errorString());
      ok = false;
    }
  } else if (QFile::exists(path) && !QFile::remove(path)) {
    logFailure(QStringLiteral("remove"), path);
    ok = false;
  }
  if (QDir(dir).exists()) updateDatabase(dir);
  return ok;
}

}  // namespace ql
