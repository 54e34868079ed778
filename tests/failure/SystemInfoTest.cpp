#include "failure/SystemInfo.h"

#include <gtest/gtest.h>

#include <tuple>

#include <QFile>
#include <QTemporaryDir>

#include "TestFiles.h"

using namespace ql;

namespace {

// A file of that content in a folder that lasts the run.
QString writeFile(const char* name, const QByteArray& content) {
  static const QTemporaryDir dir;
  test::writeFile(dir.filePath(QLatin1String(name)), content);
  return dir.filePath(QLatin1String(name));
}

constexpr int64_t kDay = 86400;

}  // namespace

TEST(SystemInfo, UpTimeAndDateDiff) {
  EXPECT_EQ(GetSystemUpTime(writeFile("uptime", "90061.53 12345.00\n")),
            QStringLiteral("1 day 1:01:01"));
  // A missing or malformed file counts as just started.
  EXPECT_EQ(systemUpSeconds(QStringLiteral("/nonexistent/uptime")), 0);
  for (const char* bad : {"", "up 5 days\n", "-3.5 1.0\n"})
    EXPECT_EQ(systemUpSeconds(writeFile("bad", bad)), 0) << bad;
  EXPECT_EQ(formatUpTime(400 * kDay + 3661), QStringLiteral("1year(s) 35 day(s) 1:01:01"));
  // Too short a buffer: cut, but still terminated.
  char buf[] = {'x', 'x', 'x', 'x', 'x', 'x'};
  formatUpTime(400 * kDay, buf, sizeof buf);
  EXPECT_STREQ(buf, "1year");

  const QDateTime start(QDate(2024, 1, 1), QTime(0, 0, 0));
  EXPECT_EQ(GetDateFromDiff(start, start.addSecs(400 * kDay)),
            QStringLiteral("1 Jahr(e) 35 Tag(e) 0:00:00"));
}

TEST(SystemInfo, OsNamesFromOsRelease) {
  OSInfo os = osInfoFrom(QStringLiteral("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                                        "NAME=\"Debian\"\nVERSION_ID=\"12\"\nID=debian\n# c=x\n"),
                         QStringLiteral("6.1.0-18-amd64"));
  EXPECT_EQ(os.longName, QStringLiteral("Debian GNU/Linux 12 (bookworm) (Kernel 6.1.0-18-amd64)"));
  EXPECT_EQ(os.shortName, QStringLiteral("debian 12 K6.1.0-18-amd64"));
  // No PRETTY_NAME, no VERSION_ID, single quotes and escapes.
  os = osInfoFrom(QStringLiteral("NAME='Arch Linux'\nVERSION=\"rolling \\\"x\\\"\"\nID=arch\n"),
                  QStringLiteral("6.7.4-arch1-1"));
  EXPECT_EQ(os.longName, QStringLiteral("Arch Linux rolling \"x\" (Kernel 6.7.4-arch1-1)"));
  EXPECT_EQ(os.shortName, QStringLiteral("arch K6.7.4-arch1-1"));
  EXPECT_EQ(std::tie(os.major, os.minor, os.build, os.servicePack),
            std::make_tuple(6, 7, 4, QStringLiteral("-arch1-1")));
  os = osInfoFrom(QString(), QStringLiteral("5.15.rc"));
  EXPECT_EQ(std::tie(os.major, os.minor, os.build, os.servicePack),
            std::make_tuple(5, 15, 0, QStringLiteral(".rc")));
  EXPECT_EQ(osInfoFrom(QString(), QString()).longName, QStringLiteral("Linux"));
}

TEST(SystemInfo, MemoryAndProcessorFromProcFiles) {
  const MemoryStatus m = GetMemoryStatus(
      writeFile("meminfo",
                "MemTotal: 4096000 kB\nMemFree: 100000 kB\nMemAvailable: 1024000 kB\n"
                "SwapTotal: 2048 kB\nSwapFree: 1000 kB\n"
                "CommitLimit: 4096000 kB\nCommitted_AS: 5000000 kB\n"));
  EXPECT_EQ(m.availPhys, 1024000LL * 1024);
  EXPECT_EQ(m.memoryLoad, 75);
  EXPECT_EQ(m.availVirtual, 0);  // overcommitted
  // Old kernels have no MemAvailable.
  const MemoryStatus old = GetMemoryStatus(writeFile(
      "old", "MemTotal: 1000 kB\nMemFree: 100 kB\nBuffers: 50 kB\nCached: 250 kB\n"));
  EXPECT_EQ(old.availPhys, 400 * 1024);
  // Unreadable values give zeros and no division by zero.
  const MemoryStatus bad = GetMemoryStatus(writeFile("bad", "MemTotal: lots\nMemFree 5 kB\n"));
  EXPECT_EQ(bad.totalPhys + bad.availPhys + bad.memoryLoad, 0);
  EXPECT_EQ(GetProcessMemory(writeFile("status", "VmPeak:\t9000 kB\nVmRSS:\t1234 kB\n")),
            1234 * 1024);

  const QByteArray cpus = "model name\t: A\nphysical id\t: 0\n\nmodel name\t: A\nphysical id\t: 0\n\n"
                          "model name\t: B\nphysical id\t: 1\n";
  EXPECT_EQ(GetProcessorName(writeFile("cpus", cpus)), QStringLiteral("A\tB"));
  // Without package ids (virtual machines) one name stands for all.
  EXPECT_EQ(GetProcessorName(writeFile("vm", "model name\t: G\n\nmodel name\t: G\n")), "G");
}
