#include "failure/SystemInfo.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <cstdlib>
#include <cstring>

using namespace ql;

namespace {

QString writeFile(const QTemporaryDir& dir, const char* name, const QByteArray& content) {
  const QString path = dir.filePath(QLatin1String(name));
  QFile f(path);
  EXPECT_TRUE(f.open(QIODevice::WriteOnly));
  f.write(content);
  return path;
}

constexpr int64_t kDay = 86400;

}  // namespace

TEST(SystemInfo, UpTimeFromProcFile) {
  QTemporaryDir dir;
  const QString path = writeFile(dir, "uptime", "90061.53 12345.00\n");
  EXPECT_EQ(systemUpSeconds(path), 90061);
  EXPECT_EQ(GetSystemUpTime(path), QStringLiteral("1 day 1:01:01"));
  // A missing or malformed file counts as just started.
  EXPECT_EQ(systemUpSeconds(dir.filePath(QStringLiteral("missing"))), 0);
  for (const char* bad : {"", "up 5 days\n", "-3.5 1.0\n"})
    EXPECT_EQ(systemUpSeconds(writeFile(dir, "bad", bad)), 0) << bad;

  EXPECT_EQ(formatUpTime(2 * kDay + 59), QStringLiteral("2 days 0:00:59"));
  EXPECT_EQ(formatUpTime(400 * kDay + 3661), QStringLiteral("1year(s) 35 day(s) 1:01:01"));
  // Too short a buffer: cut, but still terminated.
  char buf[6];
  std::memset(buf, 'x', sizeof buf);
  formatUpTime(400 * kDay, buf, sizeof buf);
  EXPECT_STREQ(buf, "1year");
}

TEST(SystemInfo, DateDiffUsesTheUsersLanguage) {
  const QDateTime start(QDate(2024, 1, 1), QTime(0, 0, 0));
  EXPECT_EQ(GetDateFromDiff(start, start.addSecs(5 * kDay + 3600)), QStringLiteral("5 Tage 1:00:00"));
  EXPECT_EQ(GetDateFromDiff(start, start.addSecs(400 * kDay)),
            QStringLiteral("1 Jahr(e) 35 Tag(e) 0:00:00"));
  EXPECT_EQ(GetDateFromDiff(QDateTime(), start), QStringLiteral("0:00:00"));
}

TEST(SystemInfo, ErrorTextForm) {
  EXPECT_EQ(GetErrorText(0), QStringLiteral("#0 - No information available"));
  EXPECT_EQ(GetErrorText(ENOENT), QStringLiteral("#2 - No such file or directory"));
  EXPECT_EQ(GetErrorText(EACCES), QStringLiteral("#13 - Permission denied"));
  EXPECT_TRUE(GetErrorText(99999).startsWith(QStringLiteral("Formatmessage Error ")) ||
              GetErrorText(99999).startsWith(QStringLiteral("#99999 - ")));
}

TEST(SystemInfo, ReplaceSystemvariablen) {
  ::setenv("QL_TEST_DIR", "/tmp/ql", 1);
  ::unsetenv("QL_TEST_NONE");
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"%QL_TEST_DIR%/x", "/tmp/ql/x"},
      {"100%", "100%"},
      {"%QL_TEST_DIR%:%QL_TEST_DIR%", "/tmp/ql:/tmp/ql"},
      {"%QL_TEST_NONE%/%QL_TEST_DIR%", "%QL_TEST_NONE%//tmp/ql"},
      // The search goes on behind the second "%", so a lone "%" hides the name after it.
      {"50% of %QL_TEST_DIR%", "50% of %QL_TEST_DIR%"},
      {"%%", "%%"},
      {"", ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ReplaceSystemvariablen(QLatin1String(c.in)), QLatin1String(c.out)) << c.in;
  EXPECT_EQ(xGetEnvironmentVariable(QStringLiteral("QL_TEST_DIR")), QStringLiteral("/tmp/ql"));
  EXPECT_EQ(xGetEnvironmentVariable(QStringLiteral("QL_TEST_NONE")), QString());
}

TEST(SystemInfo, OsNamesFromOsRelease) {
  const QString debian = QStringLiteral(
      "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\n"
      "VERSION_ID=\"12\"\nID=debian\n# comment=x\n");
  OSInfo os = osInfoFrom(debian, QStringLiteral("6.1.0-18-amd64"));
  EXPECT_EQ(os.longName, QStringLiteral("Debian GNU/Linux 12 (bookworm) (Kernel 6.1.0-18-amd64)"));
  EXPECT_EQ(os.shortName, QStringLiteral("debian 12 K6.1.0-18-amd64"));
  EXPECT_EQ(os.platformId, QStringLiteral("debian"));
  EXPECT_EQ(os.major, 6);
  EXPECT_EQ(os.minor, 1);
  EXPECT_EQ(os.build, 0);
  EXPECT_EQ(os.versionText, QStringLiteral("6.1"));
  EXPECT_EQ(os.servicePack, QStringLiteral("-18-amd64"));

  // No PRETTY_NAME, no VERSION_ID, single quotes and escapes.
  os = osInfoFrom(QStringLiteral("NAME='Arch Linux'\nVERSION=\"rolling \\\"x\\\"\"\nID=arch\n"),
                  QStringLiteral("6.7.4-arch1-1"));
  EXPECT_EQ(os.longName, QStringLiteral("Arch Linux rolling \"x\" (Kernel 6.7.4-arch1-1)"));
  EXPECT_EQ(os.shortName, QStringLiteral("arch K6.7.4-arch1-1"));
  EXPECT_EQ(os.build, 4);

  os = osInfoFrom(QString(), QString());
  EXPECT_EQ(os.longName, QStringLiteral("Linux"));
  EXPECT_EQ(os.shortName, QStringLiteral("linux"));
  EXPECT_EQ(os.versionText, QStringLiteral("0.0"));
}

TEST(SystemInfo, MemoryFromMeminfo) {
  QTemporaryDir dir;
  const MemoryStatus m = GetMemoryStatus(
      writeFile(dir, "meminfo",
                "MemTotal: 4096000 kB\nMemFree: 100000 kB\nMemAvailable: 1024000 kB\n"
                "SwapTotal: 2048 kB\nSwapFree: 1000 kB\n"
                "CommitLimit: 4096000 kB\nCommitted_AS: 5000000 kB\n"));
  EXPECT_EQ(m.totalPhys, 4096000LL * 1024);
  EXPECT_EQ(m.availPhys, 1024000LL * 1024);
  EXPECT_EQ(m.memoryLoad, 75);
  EXPECT_EQ(m.availPageFile, 1000 * 1024);
  EXPECT_EQ(m.availVirtual, 0);  // overcommitted

  // Old kernels have no MemAvailable.
  const MemoryStatus old = GetMemoryStatus(writeFile(
      dir, "old", "MemTotal: 1000 kB\nMemFree: 100 kB\nBuffers: 50 kB\nCached: 250 kB\n"));
  EXPECT_EQ(old.availPhys, 400 * 1024);
  EXPECT_EQ(old.memoryLoad, 60);

  // Unreadable values give zeros and no division by zero.
  const MemoryStatus bad = GetMemoryStatus(writeFile(dir, "bad", "MemTotal: lots\nMemFree 5 kB\n"));
  EXPECT_EQ(bad.totalPhys, 0);
  EXPECT_EQ(bad.availPhys, 0);
  EXPECT_EQ(bad.memoryLoad, 0);

  const QString status = writeFile(dir, "status", "Name:\tx\nVmPeak:\t9000 kB\nVmRSS:\t1234 kB\n");
  EXPECT_EQ(GetProcessMemory(status), 1234 * 1024);
}

TEST(SystemInfo, ProcessorNameOncePerPackage) {
  QTemporaryDir dir;
  QByteArray two;
  for (int cpu = 0; cpu < 4; ++cpu)
    two += "processor\t: " + QByteArray::number(cpu) +
           "\nmodel name\t: " + (cpu < 2 ? "Alpha CPU" : "Beta CPU") +
           "\nphysical id\t: " + QByteArray::number(cpu / 2) + "\n\n";
  EXPECT_EQ(GetProcessorName(writeFile(dir, "two", two)), QStringLiteral("Alpha CPU\tBeta CPU"));

  const QByteArray vm =
      "processor\t: 0\nmodel name\t: Gamma\n\nprocessor\t: 1\nmodel name\t: Gamma\n";
  EXPECT_EQ(GetProcessorName(writeFile(dir, "vm", vm)), QStringLiteral("Gamma"));
  EXPECT_EQ(GetProcessorName(dir.filePath(QStringLiteral("missing"))), QString());
}
