#include "failure/SystemInfo.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <QFile>
#include <QLocale>
#include <QStringList>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lang/TL.h"

namespace ql {

namespace {

QByteArray readSmallFile(const QString& path) {
  QFile f(path);
  if (!f.open(QIODevice::ReadOnly)) return {};
  // Files under /proc report size 0, so read until the end rather than by size.
  return f.readAll();
}

// One value of an os-release file: quotes removed, backslash escapes inside double quotes undone.
QString unquoteOsReleaseValue(const QString& raw) {
  const QString v = raw.trimmed();
  if (v.size() >= 2 && v.front() == QLatin1Char('\'') && v.back() == QLatin1Char('\''))
    return v.mid(1, v.size() - 2);
  if (v.size() < 2 || v.front() != QLatin1Char('"') || v.back() != QLatin1Char('"')) return v;
  QString out;
  for (qsizetype i = 1; i + 1 < v.size(); ++i) {
    if (v[i] == QLatin1Char('\\') && i + 2 < v.size()) ++i;
    out += v[i];
  }
  return out;
}

struct Utsname {
  QString release;
  QString machine;
};

Utsname systemName() {
  struct utsname u {};
  if (uname(&u) != 0) return {};
  return {QString::fromUtf8(u.release), QString::fromUtf8(u.machine)};
}

// "MemTotal:   16314512 kB" -> bytes.
int64_t meminfoValue(const QByteArray& content, const char* key, bool* found = nullptr) {
  const QByteArray needle = QByteArray(key) + ':';
  qsizetype at = 0;
  if (!content.startsWith(needle)) {
    at = content.indexOf('\n' + needle);
    if (at < 0) {
      if (found) *found = false;
      return 0;
    }
    ++at;
  }
  const qsizetype end = content.indexOf('\n', at);
  const QList<QByteArray> parts =
      content.mid(at + needle.size(), end < 0 ? -1 : end - at - needle.size())
          .simplified()
          .split(' ');
  bool ok = false;
  int64_t value = parts.isEmpty() ? 0 : parts[0].toLongLong(&ok);
  if (!ok) value = 0;
  if (parts.size() > 1 && parts[1] == "kB") value *= 1024;
  if (found) *found = ok;
  return value;
}

size_t appendText(char* buf, size_t size, size_t at, const char* text) {
  while (*text && at + 1 < size) buf[at++] = *text++;
  if (size) buf[at < size ? at : size - 1] = '\0';
  return at;
}

size_t appendNumber(char* buf, size_t size, size_t at, int64_t value, int minDigits = 1) {
  char digits[24];
  int n = 0;
  uint64_t v = value < 0 ? 0 : static_cast<uint64_t>(value);
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v && n < 24);
  while (n < minDigits && n < 24) digits[n++] = '0';
  char text[25];
  for (int i = 0; i < n; ++i) text[i] = digits[n - 1 - i];
  text[n] = '\0';
  return appendText(buf, size, at, text);
}

size_t appendClock(char* buf, size_t size, size_t at, int64_t seconds) {
  at = appendNumber(buf, size, at, seconds / 3600);
  at = appendText(buf, size, at, ":");
  at = appendNumber(buf, size, at, seconds % 3600 / 60, 2);
  at = appendText(buf, size, at, ":");
  return appendNumber(buf, size, at, seconds % 60, 2);
}

QString clockText(int64_t seconds) {
  char buf[32];
  appendClock(buf, sizeof buf, 0, seconds);
  return QString::fromLatin1(buf);
}

}  // namespace

OSInfo osInfoFrom(const QString& osReleaseContent, const QString& kernelRelease) {
  QString pretty, name, version, id, versionId;
  for (const QString& line : osReleaseContent.split(QLatin1Char('\n'))) {
    const qsizetype eq = line.indexOf(QLatin1Char('='));
    if (eq <= 0 || line.trimmed().startsWith(QLatin1Char('#'))) continue;
    const QString key = line.left(eq).trimmed();
    const QString value = unquoteOsReleaseValue(line.mid(eq + 1));
    if (key == QLatin1String("PRETTY_NAME"))
      pretty = value;
    else if (key == QLatin1String("NAME"))
      name = value;
    else if (key == QLatin1String("VERSION"))
      version = value;
    else if (key == QLatin1String("ID"))
      id = value;
    else if (key == QLatin1String("VERSION_ID"))
      versionId = value;
  }
  if (pretty.isEmpty()) pretty = (name + QLatin1Char(' ') + version).trimmed();
  if (pretty.isEmpty()) pretty = QStringLiteral("Linux");

  OSInfo os;
  os.platformId = id.isEmpty() ? QStringLiteral("linux") : id;
  // "6.1.0-13-amd64": up to three numbers split by dots, and the rest. Read by hand: a pattern
  // here would load the expression library into every run for one line of a report.
  qsizetype at = 0;
  const auto digit = [&](qsizetype i) {
    return i < kernelRelease.size() && kernelRelease[i] >= QLatin1Char('0') &&
           kernelRelease[i] <= QLatin1Char('9');
  };
  const auto number = [&](int& into) {
    const qsizetype from = at;
    while (digit(at)) ++at;
    if (at > from) into = kernelRelease.mid(from, at - from).toInt();
    return at > from;
  };
  if (number(os.major)) {
    for (int* part : {&os.minor, &os.build}) {
      if (at >= kernelRelease.size() || kernelRelease[at] != QLatin1Char('.') || !digit(at + 1)) break;
      ++at;
      number(*part);
    }
    os.servicePack = kernelRelease.mid(at);
  }
  os.versionText = QStringLiteral("%1.%2").arg(os.major).arg(os.minor);

  os.longName = pretty;
  os.shortName = os.platformId;
  if (!versionId.isEmpty()) os.shortName += QLatin1Char(' ') + versionId;
  if (!kernelRelease.isEmpty()) {
    os.longName += QStringLiteral(" (Kernel ") + kernelRelease + QLatin1Char(')');
    os.shortName += QStringLiteral(" K") + kernelRelease;
  }
  return os;
}

OSInfo GetOSInfo(const QString& osReleasePath) {
  QByteArray content = readSmallFile(osReleasePath);
  // The file's documented fallback place.
  if (content.isEmpty() && osReleasePath == QLatin1String("/etc/os-release"))
    content = readSmallFile(QStringLiteral("/usr/lib/os-release"));
  return osInfoFrom(QString::fromUtf8(content), systemName().release);
}

bool Is64BitSystem() {
  const QString machine = systemName().machine;
  return machine.contains(QLatin1String("64")) || machine == QLatin1String("s390x");
}

MemoryStatus GetMemoryStatus(const QString& meminfoPath) {
  const QByteArray c = readSmallFile(meminfoPath);
  MemoryStatus m;
  m.totalPhys = meminfoValue(c, "MemTotal");
  bool haveAvailable = false;
  m.availPhys = meminfoValue(c, "MemAvailable", &haveAvailable);
  if (!haveAvailable)  // kernels before 3.14
    m.availPhys =
        meminfoValue(c, "MemFree") + meminfoValue(c, "Buffers") + meminfoValue(c, "Cached");
  if (m.totalPhys > 0)
    m.memoryLoad = static_cast<int>((m.totalPhys - m.availPhys) * 100 / m.totalPhys);
  m.totalPageFile = meminfoValue(c, "SwapTotal");
  m.availPageFile = meminfoValue(c, "SwapFree");
  m.totalVirtual = meminfoValue(c, "CommitLimit");
  m.availVirtual = std::max<int64_t>(0, m.totalVirtual - meminfoValue(c, "Committed_AS"));
  return m;
}

int64_t GetProcessMemory(const QString& statusPath) {
  return meminfoValue(readSmallFile(statusPath), "VmRSS");
}

QString GetProcessorName(const QString& cpuinfoPath) {
  const QString content = QString::fromUtf8(readSmallFile(cpuinfoPath));
  QStringList names;
  QStringList packages;
  QString name, package;
  bool anyPackage = false;
  auto endBlock = [&] {
    if (!name.isEmpty() && (packages.isEmpty() || (anyPackage && !packages.contains(package)))) {
      names << name;
      packages << package;
    }
    name.clear();
    package.clear();
  };
  for (const QString& line : content.split(QLatin1Char('\n'))) {
    if (line.trimmed().isEmpty()) {
      endBlock();
      continue;
    }
    const qsizetype colon = line.indexOf(QLatin1Char(':'));
    if (colon < 0) continue;
    const QString key = line.left(colon).trimmed();
    const QString value = line.mid(colon + 1).trimmed();
    // Other architectures name the processor differently; the first known key wins.
    if (name.isEmpty() &&
        (key == QLatin1String("model name") || key == QLatin1String("Processor") ||
         key == QLatin1String("cpu model") || key == QLatin1String("cpu")))
      name = value;
    if (key == QLatin1String("physical id")) {
      package = value;
      anyPackage = true;
    }
  }
  endBlock();
  return names.join(QLatin1Char('\t'));
}

bool AdminRightsAvailable() {
  return geteuid() == 0;
}

QString GetCurrentUserName() {
  struct passwd pw {};
  struct passwd* result = nullptr;
  char buf[4096];
  if (getpwuid_r(geteuid(), &pw, buf, sizeof buf, &result) == 0 && result && pw.pw_name)
    return QString::fromLocal8Bit(pw.pw_name);
  return qEnvironmentVariable("USER");
}

QString xGetComputerName() {
  char buf[256] = {};
  if (gethostname(buf, sizeof buf - 1) != 0) return {};
  return QString::fromLocal8Bit(buf);
}

size_t formatUpTime(int64_t seconds, char* buf, size_t size) {
  if (!buf || size == 0) return 0;
  buf[0] = '\0';
  if (seconds < 0) seconds = 0;
  if (seconds < 86400) return appendClock(buf, size, 0, seconds);
  const int64_t days = seconds / 86400;
  size_t at = 0;
  if (days == 1) {
    at = appendText(buf, size, at, "1 day");
  } else if (days < 365) {
    at = appendNumber(buf, size, at, days);
    at = appendText(buf, size, at, " days");
  } else {
    at = appendNumber(buf, size, at, days / 365);
    at = appendText(buf, size, at, "year(s) ");
    at = appendNumber(buf, size, at, days % 365);
    at = appendText(buf, size, at, " day(s)");
  }
  at = appendText(buf, size, at, " ");
  return appendClock(buf, size, at, seconds % 86400);
}

QString formatUpTime(int64_t seconds) {
  char buf[96];
  formatUpTime(seconds, buf, sizeof buf);
  return QString::fromLatin1(buf);
}

int64_t systemUpSeconds(const QString& uptimePath) {
  const QByteArray c = readSmallFile(uptimePath).trimmed();
  bool ok = false;
  const double s = c.left(c.indexOf(' ')).toDouble(&ok);
  return ok && s > 0 ? static_cast<int64_t>(s) : 0;
}

QString GetSystemUpTime(const QString& uptimePath) {
  return formatUpTime(systemUpSeconds(uptimePath));
}

QString GetDateFromDiff(const QDateTime& from, const QDateTime& to) {
  int64_t seconds = from.isValid() && to.isValid() ? from.secsTo(to) : 0;
  if (seconds < 0) seconds = 0;
  if (seconds < 86400) return clockText(seconds);
  const int64_t days = seconds / 86400;
  QString text;
  if (days == 1)
    text = TL(3475, QStringLiteral("1 Tag"));
  else if (days < 365)
    text = TL(3476, QStringLiteral("%1 Tage"), {QString::number(days)});
  else
    text = TL(3477, QStringLiteral("%1 Jahr(e) %2 Tag(e)"),
              {QString::number(days / 365), QString::number(days % 365)});
  return text + QLatin1Char(' ') + clockText(seconds % 86400);
}

}  // namespace ql
