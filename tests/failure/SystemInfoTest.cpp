#include "failure/SystemInfo.h"

#include <gtest/gtest.h>


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

TEST(SystemInfo, UpTime) {
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
}

// Unreadable values give zeros and no division by zero.
TEST(SystemInfo, MemoryFromABadFile) {
  const MemoryStatus bad = GetMemoryStatus(writeFile("bad", "MemTotal: lots\nMemFree 5 kB\n"));
  EXPECT_EQ(bad.totalPhys + bad.availPhys + bad.memoryLoad, 0);
}
