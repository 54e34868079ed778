#include "failure/FailureReport.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QThread>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "support/Globals.h"
#include "support/Logs.h"
#include "support/Profile.h"
#include "failure/FatalSignals.h"
#include "failure/SystemInfo.h"
#include "lang/TL.h"
#include "report/SizeFormat.h"
#include "support/Version.h"

namespace ql {

namespace {

// Release markers of this build: 1 marks a beta, a number above 0 a release candidate.
constexpr int kBeta = 0;
constexpr int kReleaseCandidate = 0;
// Where reports are mailed unless the settings name another address (Allgemein/SupportMail).
constexpr const char* kDefaultSupportMail = "support@quorlane.example";

std::atomic<int> g_failures{0};
std::atomic<int> g_busy{0};
std::atomic<const Stop*> g_stop{nullptr};

struct HookState {
  std::mutex mutex;
  QString commandLine;
  std::function<QString()> screen;
  FailureDialogHandler dialog;
};

HookState& hooks() {
  static HookState h;
  return h;
}

// Only one report is composed at a time; the dialog runs outside this lock, so a failure while
// it is open can stack another dialog on it.
std::mutex& reportMutex() {
  static std::mutex m;
  return m;
}

QString mb(int64_t bytes) {
  return xFormatFileSize(MB, bytes, false);
}

QString programPath() {
  if (QCoreApplication::instance()) return QCoreApplication::applicationFilePath();
  return QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
}

QString errorPart(const FailureError& error) {
  if (error.number == 0) return error.description;
  return QString::number(error.number) + QStringLiteral(" - ") + error.description;
}

// One line for standard error: what failed and where.
QString shortLine(const QString& proc, const QString& module, int line, const FailureError& error,
                  const QStringList& debugValues) {
  QString text = module + QLatin1Char('.') + proc;
  if (line > 0) text += QStringLiteral(" (%1)").arg(line);
  text += QStringLiteral(": ") + errorPart(error);
  if (!debugValues.isEmpty())
    text += QStringLiteral(" [") + debugValues.join(QStringLiteral("; ")) + QLatin1Char(']');
  text.replace(QLatin1String("\r\n"), QLatin1String(" "));
  text.replace(QLatin1Char('\n'), QLatin1Char(' '));
  text.replace(QLatin1Char('\r'), QLatin1Char(' '));
  return text;
}

}  // namespace

ErrorTextFacts collectErrorTextFacts() {
  const Globals& g = globals();
  const QDateTime now = QDateTime::currentDateTime();
  ErrorTextFacts f;
  f.time = GeneralDate(now);
  f.appName = g.Apptitle;
  f.appVersion = threePartVersion(g.AppVersion);
  f.beta = kBeta;
  f.releaseCandidate = kReleaseCandidate;
  f.programPath = programPath();
  f.appUp = GetDateFromDiff(g.StartTime, now);
  f.sysUp = GetSystemUpTime();
  const OSInfo os = GetOSInfo();
  f.osName = os.longName;
  f.osVersion = os.versionText;
  f.osBuild = QString::number(os.build);
  f.osPlatformId = os.platformId;
  f.is64bit = Is64BitSystem() ? QStringLiteral("True") : QStringLiteral("False");
  f.browser = QStringLiteral("-");
  const MemoryStatus m = GetMemoryStatus();
  f.physFree = mb(m.availPhys);
  f.physTotal = mb(m.totalPhys);
  f.memLoad = QString::number(m.memoryLoad);
  f.ramUsed = mb(GetProcessMemory());
  f.pageFree = mb(m.availPageFile);
  f.pageTotal = mb(m.totalPageFile);
  f.virtFree = mb(m.availVirtual);
  f.virtTotal = mb(m.totalVirtual);
  f.cpu = GetProcessorName();
  {
    HookState& h = hooks();
    std::lock_guard lock(h.mutex);
    f.screen = h.screen ? h.screen() : QString();
    f.commandLine = h.commandLine;
  }
  if (f.screen.isEmpty()) f.screen = QStringLiteral("-");
  f.user = GetCurrentUserName();
  f.computer = xGetComputerName();
  return f;
}

ReportState collectReportState(int errcount) {
  const Globals& g = globals();
  ReportState s;
  s.apptitle = g.Apptitle;
  s.datapath = g.DataFolder;
  s.admin = AdminRightsAvailable() ? QStringLiteral("True") : QStringLiteral("False");
  s.errcount = QString::number(errcount);
  s.lang = QString::number(g.Lang);
  s.stop = QString::number(failureStopWord()) + QLatin1Char(',') + QString::number(g_busy.load());
  return s;
}

QString composeErrorText(const ErrorTextFacts& f, const QString& proc, const QString& module,
                         int line, const FailureError& error) {
  const QString crlf = QStringLiteral("\r\n");
  QString t;
  if (error.number == 429)
    t += TL(2412, QStringLiteral("Eine benötigte Programmbibliothek fehlt,%! ist veraltet oder "
                                 "ungültig. Bitte die Anwendung erneut installieren, um den Fehler "
                                 "zu beheben.")) +
         crlf + crlf;
  auto add = [&](const QString& text) { t += text + crlf; };
  add(QStringLiteral("Time: ") + f.time);
  QString app = QStringLiteral("App: ") + f.appName + QLatin1Char(' ') + f.appVersion;
  if (f.beta == 1)
    app += QStringLiteral(" [BETA]");
  else if (f.releaseCandidate > 0)
    app += QStringLiteral(" RC") + QString::number(f.releaseCandidate);
  add(app);
  add(QStringLiteral("Modul: ") + module);
  add(QStringLiteral("Func: ") + proc);
  add(QStringLiteral("Line: ") + QString::number(line));
  add(QStringLiteral("Err: ") + errorPart(error));
  add(QStringLiteral("Path: ") + f.programPath);
  add(QStringLiteral("AppUp: ") + f.appUp);
  add(QStringLiteral("SysUp: ") + f.sysUp);
  add(QStringLiteral("OS: ") + f.osName + QStringLiteral(" Version: ") + f.osVersion +
      QStringLiteral(" Build: ") + f.osBuild + QStringLiteral(" ID: ") + f.osPlatformId);
  add(QStringLiteral("64bit: ") + f.is64bit);
  add(QStringLiteral("IE: ") + f.browser);
  add(QStringLiteral("PhysicalRAM: ") + f.physFree + QStringLiteral(" Free / ") + f.physTotal +
      QStringLiteral(" Total"));
  add(QStringLiteral("MemLoad: ") + f.memLoad + QLatin1Char('%'));
  add(QStringLiteral("RAM used: ") + f.ramUsed);
  add(QStringLiteral("Pagefile: ") + f.pageFree + QStringLiteral(" Free / ") + f.pageTotal +
      QStringLiteral(" Total"));
  add(QStringLiteral("VirtualMem: ") + f.virtFree + QStringLiteral(" Free / ") + f.virtTotal +
      QStringLiteral(" Total"));
  add(QStringLiteral("CPU: ") + f.cpu);
  add(QStringLiteral("Screen: ") + f.screen);
  if (!f.commandLine.isEmpty()) add(QStringLiteral("Command: ") + f.commandLine);
  add(QStringLiteral("User: ") + f.user);
  t += QStringLiteral("Comp: ") + f.computer;
  return t;
}

QString composeFailureReport(const QString& errorText, const ReportState& s,
                             const QStringList& debugValues) {
  const QString crlf = QStringLiteral("\r\n");
  QString t = errorText + crlf;
  t += QStringLiteral("Apptitle: ") + s.apptitle + crlf;
  t += QStringLiteral("Datapath: ") + s.datapath + crlf;
  t += QStringLiteral("Admin: ") + s.admin + crlf;
  t += QStringLiteral("Errcount: ") + s.errcount + crlf;
  t += QStringLiteral("Lang: ") + s.lang + crlf;
  t += QStringLiteral("Stop:") + s.stop + crlf;
  for (int i = 0; i < debugValues.size(); ++i)
    t +=
        QStringLiteral("Debug") + QString::number(i) + QStringLiteral(": ") + debugValues[i] + crlf;
  return t;
}

QString BuildErrorText(const QString& proc, const QString& module, int line,
                       const FailureError& error) {
  return composeErrorText(collectErrorTextFacts(), proc, module, line, error);
}

void FailureReport(const QString& proc, const QString& module, int line, const QString& error,
                   const QStringList& debugValues) {
  FailureReport(proc, module, line, FailureError{0, error}, debugValues);
}

void FailureReport(const QString& proc, const QString& module, int line, const FailureError& error,
                   const QStringList& debugValues) {
  QString report;
  {
    std::lock_guard lock(reportMutex());
    ++g_failures;
    const int errcount = ++globals().Errcount;
    const QString errorText = BuildErrorText(proc, module, line, error);
    report = composeFailureReport(errorText, collectReportState(errcount), debugValues);
    // The log takes the platform's line ends; one blank line closes the block.
    QString logText = report;
    logText.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    if (logText.endsWith(QLatin1Char('\n'))) logText.chop(1);
    WriteErrorLog(logText, true, true);
  }

  FailureDialogHandler dialog;
  {
    HookState& h = hooks();
    std::lock_guard lock(h.mutex);
    dialog = h.dialog;
  }
  if (globals().SilentMode || !dialog) {
    const QString text = shortLine(proc, module, line, error, debugValues);
    std::fprintf(stderr, "quorlane: %s\n", text.toLocal8Bit().constData());
    std::fflush(stderr);
    return;
  }
  QCoreApplication* app = QCoreApplication::instance();
  if (app && QThread::currentThread() != app->thread())
    QMetaObject::invokeMethod(
        app, [dialog, report] { dialog(report); }, Qt::QueuedConnection);
  else
    dialog(report);
}

int failureCount() {
  return g_failures.load();
}

void setFailureCommandLine(const QString& commandLine) {
  {
    HookState& h = hooks();
    std::lock_guard lock(h.mutex);
    h.commandLine = commandLine;
  }
  refreshFatalSignalReport();
}

QString failureCommandLine() {
  HookState& h = hooks();
  std::lock_guard lock(h.mutex);
  return h.commandLine;
}

void setFailureBusyWord(int busy) {
  g_busy.store(busy);
}

int failureBusyWord() {
  return g_busy.load();
}

void setFailureStop(const Stop* stop) { g_stop.store(stop); }

int failureStopWord() {
  const Stop* stop = g_stop.load();
  return stop ? static_cast<int>(stop->state()) : 0;
}

void setFailureScreenSizeProvider(std::function<QString()> provider) {
  {
    HookState& h = hooks();
    std::lock_guard lock(h.mutex);
    h.screen = std::move(provider);
  }
  refreshFatalSignalReport();
}

void setFailureDialogHandler(FailureDialogHandler handler) {
  HookState& h = hooks();
  std::lock_guard lock(h.mutex);
  h.dialog = std::move(handler);
}

void FailureReport(const Failure& failure) {
  FailureReport(failure.procedure, failure.module, 0, failure.error, failure.values);
}

void FailureReport(const MaybeFailure& failure) {
  if (failure) FailureReport(*failure);
}

void FailureReport(const std::vector<Failure>& failures) {
  for (const Failure& f : failures) FailureReport(f);
}

QString supportMailAddress() {
  const QString file = globals().IniFile;
  const QString deflt = QString::fromLatin1(kDefaultSupportMail);
  if (file.isEmpty()) return deflt;
  const QString address =
      ProfileGetItem(QStringLiteral("Allgemein"), QStringLiteral("SupportMail"), deflt, file);
  return address.trimmed().isEmpty() ? deflt : address.trimmed();
}

QString urlEncodeMailText(const QString& text) {
  // Whole-text replacements in this order; "%" goes first so that nothing inserted later is
  // touched again, and it is doubled on purpose.
  static const struct {
    const char16_t* from;
    const char* to;
  } kSteps[] = {
      {u"%", "%25%25"}, {u"\r\n", "%0A"}, {u"\r", "%0A"}, {u"\n", "%0A"}, {u" ", "%20"},
      {u"!", "%21"},    {u"#", "%23"},    {u"*", "%2A"},  {u"/", "%2F"},  {u"?", "%3F"},
      {u"Ä", "%C4"},    {u"Ö", "%D6"},    {u"Ü", "%DC"},  {u"ß", "%DF"},  {u"ä", "%E4"},
      {u"ö", "%F6"},    {u"ü", "%FC"},    {u"&", "%26"},  {u"\"", "%22"},
  };
  QString t = text;
  for (const auto& step : kSteps) t.replace(QString::fromUtf16(step.from), QLatin1String(step.to));
  return t;
}

QString failureMailUrl(const QString& note) {
  const Globals& g = globals();
  const QString body = QStringLiteral("*** ") + note + QStringLiteral(" ***\r\n\r\n");
  return QStringLiteral("mailto:") + supportMailAddress() + QStringLiteral("?subject=Bugreport_") +
         g.Apptitle + QLatin1Char('_') + g.AppVersion + QStringLiteral("&body=") +
         urlEncodeMailText(body);
}

QString SaveErrorReport(const QString& folder, const QString& text, QString* error) {
  auto fail = [error](const QString& message) {
    if (error) *error = message;
    return QString();
  };
  QDir().mkpath(folder);
  const QString base = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
  // A fresh "ERRxxxx.tmp" whose ".txt" does not exist yet either; the number starts from the
  // clock, as the system's temporary names do.
  QString tmpPath;
  QFile file;
  const unsigned seed = static_cast<unsigned>(QDateTime::currentMSecsSinceEpoch());
  for (unsigned i = 0; i < 0x10000 && tmpPath.isEmpty(); ++i) {
    const unsigned unique = (seed + i) & 0xFFFF;
    if (unique == 0) continue;
    const QString stem = base + QStringLiteral("ERR") +
                         QStringLiteral("%1").arg(unique, 4, 16, QLatin1Char('0')).toUpper();
    if (QFile::exists(stem + QStringLiteral(".txt"))) continue;
    file.setFileName(stem + QStringLiteral(".tmp"));
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
      tmpPath = file.fileName();
    else if (!file.exists())
      break;  // not a name clash: the folder itself fails
  }
  if (tmpPath.isEmpty()) {
    tmpPath = base + QStringLiteral("ERR.tmp");
    file.setFileName(tmpPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return fail(file.errorString());
  }
  const QByteArray bytes = text.toUtf8();
  if (file.write(bytes) != bytes.size()) {
    const QString message = file.errorString();
    file.close();
    QFile::remove(tmpPath);
    return fail(message);
  }
  file.close();
  QString txtPath = tmpPath;
  txtPath.replace(txtPath.size() - 4, 4, QStringLiteral(".txt"));
  QFile::remove(txtPath);  // only the fixed fallback name can exist already
  if (!QFile::rename(tmpPath, txtPath)) {
    QFile::remove(tmpPath);
    return fail(QStringLiteral("Cannot rename %1").arg(tmpPath));
  }
  return txtPath;
}

}  // namespace ql
