#include "failure/FatalSignals.h"

#include <fcntl.h>
#include <unistd.h>
#include <QByteArray>
#include <QDateTime>
#include <QLocale>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <mutex>

#include "support/Globals.h"
#include "failure/FailureReport.h"
#include "failure/SystemInfo.h"
#include "report/SizeFormat.h"

namespace ql {

namespace {

// Error number of an unhandled exception turned into an ordinary error (0x80040201).
constexpr int kUnhandledExceptionError = static_cast<int>(0x80040201u);
constexpr char kMarker = '\x01';
constexpr size_t kTemplateSize = 32768;

// Everything the handler needs, made before any signal arrives. Two slots, so that a refresh
// never writes the text a handler may be reading.
struct Prepared {
  char logPath[4096];
  char text[kTemplateSize];
  int64_t startEpoch;
  int64_t utcOffset;
  char group[8];
  char decimal[8];
  char dateFormat[64];         // the locale's short date form, as GeneralDate uses it
  char monthNames[2][12][48];  // short and long
  char dayNames[2][7][48];     // short and long, Monday first
};

Prepared g_prepared[2];
std::atomic<int> g_current{-1};
std::atomic<bool> g_installed{false};
std::atomic<bool> g_handling{false};
alignas(16) char g_altStack[65536];

void copyUtf8(char* to, size_t size, const QString& text) {
  const QByteArray bytes = text.toUtf8();
  const size_t n = std::min(static_cast<size_t>(bytes.size()), size - 1);
  std::memcpy(to, bytes.constData(), n);
  to[n] = '\0';
}

// Output collected in a fixed buffer and written in one go.
struct Out {
  char buf[kTemplateSize + 8192];
  size_t n = 0;
  void put(const char* s) {
    while (*s && n < sizeof buf) buf[n++] = *s++;
  }
  void put(char c) {
    if (n < sizeof buf) buf[n++] = c;
  }
  void number(uint64_t v, int minDigits = 1) {
    char d[24];
    int k = 0;
    do {
      d[k++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v);
    while (k < minDigits && k < 24) d[k++] = '0';
    while (k) put(d[--k]);
  }
};

Out g_out;

// Reads a small /proc file into `buf`; the length, 0 on failure.
size_t readProc(const char* path, char* buf, size_t size) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  size_t n = 0;
  while (n + 1 < size) {
    const ssize_t r = read(fd, buf + n, size - 1 - n);
    if (r <= 0) break;
    n += static_cast<size_t>(r);
  }
  close(fd);
  buf[n] = '\0';
  return n;
}

// "Key:   1234 kB" -> bytes; 0 when missing.
uint64_t procValue(const char* content, const char* key) {
  const size_t keyLen = std::strlen(key);
  const char* p = content;
  while (*p) {
    if (std::strncmp(p, key, keyLen) == 0 && p[keyLen] == ':') {
      p += keyLen + 1;
      while (*p == ' ' || *p == '\t') ++p;
      uint64_t v = 0;
      while (*p >= '0' && *p <= '9') v = v * 10 + static_cast<uint64_t>(*p++ - '0');
      while (*p == ' ') ++p;
      return p[0] == 'k' && p[1] == 'B' ? v * 1024 : v;
    }
    while (*p && *p != '\n') ++p;
    if (*p) ++p;
  }
  return 0;
}

// Megabytes with two decimals and the locale's separators, as the report shows them.
void putMegabytes(Out& out, const Prepared& p, uint64_t bytes) {
  const uint64_t cents = (bytes * 100 + 524288) / 1048576;
  const uint64_t whole = cents / 100;
  char d[24];
  int k = 0;
  uint64_t v = whole;
  do {
    d[k++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  while (k) {
    out.put(d[--k]);
    if (k && k % 3 == 0) out.put(p.group);
  }
  out.put(p.decimal);
  out.number(cents % 100, 2);
}

void putTime(Out& out, const Prepared& p) {
  struct timespec ts {};
  clock_gettime(CLOCK_REALTIME, &ts);
  const int64_t local = static_cast<int64_t>(ts.tv_sec) + p.utcOffset;
  int64_t days = local / 86400;
  int64_t secs = local % 86400;
  if (secs < 0) {
    secs += 86400;
    --days;
  }
  const int64_t weekday = (days % 7 + 7 + 3) % 7;  // Monday 0; 1970-01-01 was a Thursday
  // Civil date from days since 1970-01-01 (proleptic Gregorian).
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t doe = days - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int64_t day = doy - (153 * mp + 2) / 5 + 1;
  const int64_t month = mp < 10 ? mp + 3 : mp - 9;
  const int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
  // Day, month and year fields of the format, with the locale's names of days and months.
  for (const char* f = p.dateFormat; *f;) {
    const char c = *f;
    if (c == '\'') {
      for (++f; *f && *f != '\''; ++f) out.put(*f);
      if (*f) ++f;
      continue;
    }
    if (c != 'd' && c != 'M' && c != 'y') {
      out.put(c);
      ++f;
      continue;
    }
    int run = 0;
    while (*f == c) ++f, ++run;
    if (c == 'M' && run >= 3)
      out.put(p.monthNames[run == 3 ? 0 : 1][month - 1]);
    else if (c == 'd' && run >= 3)
      out.put(p.dayNames[run == 3 ? 0 : 1][weekday]);
    else if (c == 'y' && run == 2)
      out.number(static_cast<uint64_t>(year % 100), 2);
    else if (c == 'y')
      out.number(static_cast<uint64_t>(year), 4);
    else
      out.number(static_cast<uint64_t>(c == 'd' ? day : month), run >= 2 ? 2 : 1);
  }
  out.put(' ');
  out.number(static_cast<uint64_t>(secs / 3600), 2);
  out.put(':');
  out.number(static_cast<uint64_t>(secs % 3600 / 60), 2);
  out.put(':');
  out.number(static_cast<uint64_t>(secs % 60), 2);
}

void putUpTime(Out& out, int64_t seconds) {
  char buf[96];
  formatUpTime(seconds, buf, sizeof buf);
  out.put(buf);
}

const char* signalName(int sig) {
  switch (sig) {
    case SIGSEGV:
      return "SIGSEGV";
    case SIGFPE:
      return "SIGFPE";
    case SIGILL:
      return "SIGILL";
    case SIGBUS:
      return "SIGBUS";
    case SIGABRT:
      return "SIGABRT";
    default:
      return "signal";
  }
}

// Appends the prepared report to the log and says so on standard error: "quorlane: <headline>
// (<name>)". Only reads /proc files and calls write(2). A second thread that fails meanwhile
// waits for the first to end the process.
void writeFatalReport(const char* headline, const char* func, const char* name, uintptr_t address) {
  if (g_handling.exchange(true)) {
    for (;;) pause();
  }
  const int slot = g_current.load();

  Out& out = g_out;
  out.n = 0;
  if (slot >= 0) {
    const Prepared& p = g_prepared[slot];
    static char meminfo[8192];
    static char status[8192];
    readProc("/proc/meminfo", meminfo, sizeof meminfo);
    readProc("/proc/self/status", status, sizeof status);
    const uint64_t total = procValue(meminfo, "MemTotal");
    const uint64_t avail = std::min(procValue(meminfo, "MemAvailable"), total);
    const uint64_t commit = procValue(meminfo, "CommitLimit");
    const uint64_t committed = procValue(meminfo, "Committed_AS");
    for (const char* c = p.text; *c; ++c) {
      if (*c != kMarker || !c[1]) {
        out.put(*c);
        continue;
      }
      switch (*++c) {
        case 'T':
          putTime(out, p);
          break;
        case 'F':
          out.put(func);
          break;
        case 'N':
          out.put(name);
          break;
        case 'D':
          out.number(address);
          break;
        case 'A': {
          struct timespec ts {};
          clock_gettime(CLOCK_REALTIME, &ts);
          putUpTime(out, p.startEpoch > 0 ? static_cast<int64_t>(ts.tv_sec) - p.startEpoch : 0);
          break;
        }
        case 'S': {
          char up[64];
          readProc("/proc/uptime", up, sizeof up);
          int64_t s = 0;
          for (const char* u = up; *u >= '0' && *u <= '9'; ++u) s = s * 10 + (*u - '0');
          putUpTime(out, s);
          break;
        }
        case 'a':
          putMegabytes(out, p, avail);
          break;
        case 'b':
          putMegabytes(out, p, total);
          break;
        case 'c':
          out.number(total ? (total - avail) * 100 / total : 0);
          break;
        case 'd':
          putMegabytes(out, p, procValue(status, "VmRSS"));
          break;
        case 'e':
          putMegabytes(out, p, procValue(meminfo, "SwapFree"));
          break;
        case 'f':
          putMegabytes(out, p, procValue(meminfo, "SwapTotal"));
          break;
        case 'g':
          putMegabytes(out, p, commit > committed ? commit - committed : 0);
          break;
        case 'h':
          putMegabytes(out, p, commit);
          break;
        case 'E':
          out.number(static_cast<uint64_t>(globals().Errcount) + 1);
          break;
        case 'W': {
          const int stop = failureStopWord();
          if (stop < 0) out.put('-');
          out.number(static_cast<uint64_t>(stop < 0 ? -static_cast<int64_t>(stop) : stop));
          out.put(',');
          out.number(static_cast<uint64_t>(failureBusyWord() < 0 ? 0 : failureBusyWord()));
          break;
        }
        default:
          break;
      }
    }
    if (p.logPath[0]) {
      const int fd = open(p.logPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
      if (fd >= 0) {
        size_t done = 0;
        while (done < out.n) {
          const ssize_t w = write(fd, out.buf + done, out.n - done);
          if (w <= 0) break;
          done += static_cast<size_t>(w);
        }
        close(fd);
      }
    }
  }

  out.n = 0;
  out.put("quorlane: ");
  out.put(headline);
  out.put(" (");
  out.put(name);
  out.put(")");
  if (slot >= 0 && g_prepared[slot].logPath[0]) {
    out.put(", report in ");
    out.put(g_prepared[slot].logPath);
  }
  out.put('\n');
  [[maybe_unused]] const ssize_t w = write(STDERR_FILENO, out.buf, out.n);
}

void onFatalSignal(int sig, siginfo_t* info, void*) {
  static char headline[64];
  std::strcpy(headline, "fatal signal ");
  std::strcat(headline, signalName(sig));
  writeFatalReport(headline, signalName(sig),
                   exceptionName(exceptionCodeForSignal(sig, info ? info->si_code : 0)),
                   info ? reinterpret_cast<uintptr_t>(info->si_addr) : 0);
  // The handler was reset on entry: the signal now takes its default action.
  raise(sig);
  _exit(128 + sig);
}

// An exception that nobody caught: the same report, named by what was thrown, then the end.
[[noreturn]] void onTerminate() {
  static char name[512];
  std::strcpy(name, "C++ exception");
  if (const std::exception_ptr thrown = std::current_exception()) {
    try {
      std::rethrow_exception(thrown);
    } catch (const std::exception& e) {
      std::strcat(name, ": ");
      std::strncat(name, e.what(), sizeof name - std::strlen(name) - 1);
    } catch (...) {
    }
  } else {
    std::strcpy(name, "std::terminate without an exception");
  }
  writeFatalReport("uncaught exception", "std::terminate", name, 0);
  signal(SIGABRT, SIG_DFL);
  std::abort();
}

}  // namespace

uint32_t exceptionCodeForSignal(int sig, int siCode) {
  switch (sig) {
    case SIGSEGV:
    case SIGBUS:
      return 0xC0000005;
    case SIGTRAP:
      return 0x80000003;
    case SIGILL:
      return siCode == ILL_PRVOPC || siCode == ILL_PRVREG ? 0xC0000096 : 0xC000001D;
    case SIGFPE:
      switch (siCode) {
        case FPE_INTDIV:
          return 0xC0000094;
        case FPE_INTOVF:
          return 0xC0000095;
        case FPE_FLTDIV:
          return 0xC000008E;
        case FPE_FLTOVF:
          return 0xC0000091;
        case FPE_FLTINV:
          return 0xC0000090;
        case FPE_FLTSUB:
          return 0xC000008C;
        default:
          return 0;
      }
    default:
      return 0;
  }
}

const char* exceptionName(uint32_t code) {
  switch (code) {
    case 0xC0000005:
      return "EXCEPTION_ACCESS_VIOLATION";
    case 0x80000003:
      return "EXCEPTION_BREAKPOINT";
    case 0xC000001D:
      return "EXCEPTION_ILLEGAL_INSTRUCTION";
    case 0xC000008E:
      return "EXCEPTION_FLT_DIVIDE_BY_ZERO";
    case 0xC000008C:
      return "EXCEPTION_ARRAY_BOUNDS_EXCEEDED";
    case 0xC0000090:
      return "EXCEPTION_FLT_INVALID_OPERATION";
    case 0xC0000091:
      return "EXCEPTION_FLT_OVERFLOW";
    case 0xC0000094:
      return "EXCEPTION_INT_DIVIDE_BY_ZERO";
    case 0xC0000095:
      return "EXCEPTION_INT_OVERFLOW";
    case 0xC0000096:
      return "EXCEPTION_PRIV_INSTRUCTION";
    default:
      return "Unknown exception type";
  }
}

const char* continuationText(uint32_t flags) {
  if (flags == 0) return "Ok to continue.";
  if (flags == 1) return "NOT ok to continue.";
  return "Probably safe to continue, but better not.";
}

void refreshFatalSignalReport() {
  if (!g_installed.load()) return;
  static std::mutex refreshMutex;
  std::lock_guard lock(refreshMutex);

  auto marker = [](char c) { return QString(QChar(kMarker)) + QLatin1Char(c); };
  ErrorTextFacts f = collectErrorTextFacts();
  f.commandLine.remove(QChar(kMarker));
  f.time = marker('T');
  f.appUp = marker('A');
  f.sysUp = marker('S');
  f.physFree = marker('a');
  f.physTotal = marker('b');
  f.memLoad = marker('c');
  f.ramUsed = marker('d');
  f.pageFree = marker('e');
  f.pageTotal = marker('f');
  f.virtFree = marker('g');
  f.virtTotal = marker('h');
  // A fatal signal never lets the program go on.
  const FailureError error{kUnhandledExceptionError,
                           QStringLiteral("An unhandled error (") + marker('N') +
                               QStringLiteral(") \r\noccurred at: ") + marker('D') +
                               QStringLiteral(". ") + QLatin1String(continuationText(1))};
  ReportState state = collectReportState(0);
  state.errcount = marker('E');
  state.stop = marker('W');
  QString text = composeFailureReport(
      composeErrorText(f, marker('F'), QStringLiteral("Exception Handler"), 0, error), state, {});
  // As the error log holds it: time and " - " in front, LF line ends, a blank line after.
  text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
  text = marker('T') + QStringLiteral(" - ") + text + QLatin1Char('\n');

  const int next = g_current.load() == 0 ? 1 : 0;
  Prepared& p = g_prepared[next];
  const Globals& g = globals();
  copyUtf8(p.logPath, sizeof p.logPath,
           g.DataFolder.isEmpty() ? QString() : g.DataFolder + QStringLiteral("/error.log"));
  copyUtf8(p.text, sizeof p.text, text);
  p.startEpoch = g.StartTime.isValid() ? g.StartTime.toSecsSinceEpoch() : 0;
  p.utcOffset = QDateTime::currentDateTime().offsetFromUtc();
  const NumberFormat& nf = NumberFormat::system();
  copyUtf8(p.group, sizeof p.group, QString(nf.group));
  copyUtf8(p.decimal, sizeof p.decimal, QString(nf.decimal));
  const QLocale locale = QLocale::system();
  for (int i = 0; i < 12; ++i) {
    copyUtf8(p.monthNames[0][i], sizeof p.monthNames[0][i],
             locale.monthName(i + 1, QLocale::ShortFormat));
    copyUtf8(p.monthNames[1][i], sizeof p.monthNames[1][i],
             locale.monthName(i + 1, QLocale::LongFormat));
  }
  for (int i = 0; i < 7; ++i) {
    copyUtf8(p.dayNames[0][i], sizeof p.dayNames[0][i],
             locale.dayName(i + 1, QLocale::ShortFormat));
    copyUtf8(p.dayNames[1][i], sizeof p.dayNames[1][i], locale.dayName(i + 1, QLocale::LongFormat));
  }
  const QString dateFormat = locale.dateFormat(QLocale::ShortFormat);
  copyUtf8(p.dateFormat, sizeof p.dateFormat,
           dateFormat.isEmpty() ? QStringLiteral("dd.MM.yyyy") : dateFormat);
  g_current.store(next);
}

bool installFatalSignalHandlers() {
  if (g_installed.exchange(true)) return false;
  refreshFatalSignalReport();

  // Its own stack, so that a stack overflow can still be reported.
  stack_t ss{};
  ss.ss_sp = g_altStack;
  ss.ss_size = sizeof g_altStack;
  sigaltstack(&ss, nullptr);

  struct sigaction sa {};
  sa.sa_sigaction = onFatalSignal;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_SIGINFO | SA_RESETHAND | SA_NODEFER | SA_ONSTACK;
  for (const int sig : {SIGSEGV, SIGFPE, SIGILL, SIGBUS, SIGABRT}) sigaction(sig, &sa, nullptr);
  std::set_terminate(onTerminate);
  return true;
}

}  // namespace ql
