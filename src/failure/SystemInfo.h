#pragma once
// Facts about the machine for the error report and a few other places: the operating system
// under a long and a short name, memory, uptimes, processor, user and computer, and the text of a
// system error number. Every query fails to an empty value instead of an error. The readers take
// their source file as a parameter so that tests can feed fixed content.

#include <QDateTime>
#include <QString>
#include <cstddef>
#include <cstdint>

namespace ql {

// The operating system record. Long name like "Debian GNU/Linux 12 (bookworm) (Kernel 6.1.0-18)",
// short name like "debian 12 K6.1.0-18"; the numbers are those of the kernel release.
struct OSInfo {
  QString longName;
  QString shortName;
  QString platformId;  // the distribution's ID ("debian"), "linux" when none is given
  int major = 0;
  int minor = 0;
  int build = 0;
  QString servicePack;  // what follows the three numbers of the kernel release ("-18-amd64")
  QString versionText;  // "major.minor"
};

OSInfo osInfoFrom(const QString& osReleaseContent, const QString& kernelRelease);
OSInfo GetOSInfo(const QString& osReleasePath = QStringLiteral("/etc/os-release"));

bool Is64BitSystem();

// Sizes in bytes. Pagefile is the swap; VirtualMem is the commit limit and what is left of it,
// the nearest thing to the address space the report was written for.
struct MemoryStatus {
  int64_t totalPhys = 0;
  int64_t availPhys = 0;
  int memoryLoad = 0;  // percent of the physical memory in use
  int64_t totalPageFile = 0;
  int64_t availPageFile = 0;
  int64_t totalVirtual = 0;
  int64_t availVirtual = 0;
};

MemoryStatus GetMemoryStatus(const QString& meminfoPath = QStringLiteral("/proc/meminfo"));
// Resident memory of this process in bytes, 0 when unknown.
int64_t GetProcessMemory(const QString& statusPath = QStringLiteral("/proc/self/status"));

// "model name" of each processor package, the later ones with a tab in front.
QString GetProcessorName(const QString& cpuinfoPath = QStringLiteral("/proc/cpuinfo"));

bool AdminRightsAvailable();  // the effective user is root
QString GetCurrentUserName();
QString xGetComputerName();  // "" on failure

// The machine's uptime in English: "1:02:05", "1 day 1:01:01", "1year(s) 35 day(s) 0:00:00".
QString formatUpTime(int64_t seconds);
// The same into a caller's buffer, without allocating: usable from a signal handler.
size_t formatUpTime(int64_t seconds, char* buf, size_t size);
int64_t systemUpSeconds(const QString& uptimePath = QStringLiteral("/proc/uptime"));
QString GetSystemUpTime(const QString& uptimePath = QStringLiteral("/proc/uptime"));
// The time between two dates in the user's language (days and years through the text table).
QString GetDateFromDiff(const QDateTime& from, const QDateTime& to);

}  // namespace ql
