#include "failure/FatalSignals.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <csignal>
#include <stdexcept>

#include "app/Globals.h"
#include "failure/FailureReport.h"

using namespace ql;

namespace {

int divideByZero() {
  // Both operands volatile: "1 / x" alone is folded into a comparison without a division.
  volatile int one = 1;
  volatile int zero = 0;
  volatile int result = one / zero;
  return result;
}

// The address comes from a run-time value, so an optimiser cannot prove the store away.
void writeThroughNull() {
  auto* p = reinterpret_cast<volatile int*>(static_cast<uintptr_t>(std::atoi("0")));
  *p = 1;
}

void throwIt() { throw std::runtime_error("disk gone"); }
// The exception cannot leave: the run time calls std::terminate with it still current.
void throwThroughNoexcept() noexcept { throwIt(); }

QString readLog(const QTemporaryDir& dir) {
  QFile f(dir.filePath(QStringLiteral("error.log")));
  return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

}  // namespace

#if defined(__x86_64__) || defined(__i386__)
TEST(FatalSignalsDeathTest, DivideByZeroWritesTheReportAndEnds) {
  QTemporaryDir dir;
  globals().Datapath = dir.path();
  globals().Errcount = 4;
  setFailureCommandLine(QStringLiteral("\"/srv\""));
  EXPECT_EXIT(
      {
        installFatalSignalHandlers();
        divideByZero();
      },
      testing::KilledBySignal(SIGFPE), "fatal signal SIGFPE \\(EXCEPTION_INT_DIVIDE_BY_ZERO\\)");
  setFailureCommandLine(QString());
  globals().Datapath.clear();
  globals().Errcount = 0;

  const QString log = readLog(dir);
  ASSERT_FALSE(log.isEmpty());
  // Log time and report time in the general date form, as the ordinary reports have them.
  const QString date = QLocale::system().toString(QDate::currentDate(), QLocale::ShortFormat);
  ASSERT_TRUE(log.startsWith(date + QLatin1Char(' '))) << log.toStdString();
  EXPECT_TRUE(log.contains(QRegularExpression(
      QStringLiteral("^[^\n]* \\d\\d:\\d\\d:\\d\\d - Time: ") + QRegularExpression::escape(date) +
      QStringLiteral(" \\d\\d:\\d\\d:\\d\\d\n"))))
      << log.toStdString();
  EXPECT_TRUE(log.contains(QStringLiteral(
      "\nModul: Exception Handler\nFunc: SIGFPE\nLine: 0\n"
      "Err: -2147220991 - An unhandled error (EXCEPTION_INT_DIVIDE_BY_ZERO) \noccurred at: ")));
  EXPECT_TRUE(log.contains(QStringLiteral(". NOT ok to continue.\nPath: ")));
  EXPECT_TRUE(log.contains(QRegularExpression(
      QStringLiteral("\nPhysicalRAM: [0-9.,]+ Free / [0-9.,]+ Total\nMemLoad: \\d+%\n"))))
      << log.toStdString();
  EXPECT_TRUE(log.contains(QStringLiteral("\nCommand: \"/srv\"\nUser: ")));
  EXPECT_TRUE(log.contains(QStringLiteral("\nErrcount: 5\n")));
  EXPECT_TRUE(log.contains(QStringLiteral("\nStop:0,0\n")));
  EXPECT_TRUE(log.endsWith(QStringLiteral("\n\n")));
  EXPECT_FALSE(log.contains(QChar(1)));
}
#endif

TEST(FatalSignalsDeathTest, NullWriteIsAnAccessViolationAtAddressZero) {
  QTemporaryDir dir;
  globals().Datapath = dir.path();
  EXPECT_EXIT(
      {
        installFatalSignalHandlers();
        writeThroughNull();
      },
      testing::KilledBySignal(SIGSEGV), "EXCEPTION_ACCESS_VIOLATION");
  globals().Datapath.clear();
  EXPECT_TRUE(readLog(dir).contains(
      QStringLiteral("Err: -2147220991 - An unhandled error (EXCEPTION_ACCESS_VIOLATION) \n"
                     "occurred at: 0. NOT ok to continue.\n")));
}

TEST(FatalSignalsDeathTest, AbortAndUncaughtExceptionsWriteTheReportToo) {
  QTemporaryDir dir;
  globals().Datapath = dir.path();
  EXPECT_EXIT(
      {
        installFatalSignalHandlers();
        std::abort();
      },
      testing::KilledBySignal(SIGABRT), "quorlane: fatal signal SIGABRT \\(");
  EXPECT_EXIT(
      {
        installFatalSignalHandlers();
        throwThroughNoexcept();
      },
      testing::KilledBySignal(SIGABRT), "quorlane: uncaught exception \\(C\\+\\+ exception: disk gone\\)");
  globals().Datapath.clear();
  const QString log = readLog(dir);
  EXPECT_TRUE(log.contains(QStringLiteral("\nFunc: SIGABRT\n"))) << log.toStdString();
  EXPECT_TRUE(log.contains(QStringLiteral(
      "\nFunc: std::terminate\nLine: 0\nErr: -2147220991 - An unhandled error (C++ exception: disk gone)")))
      << log.toStdString();
  EXPECT_EQ(log.count(QStringLiteral("Modul: Exception Handler")), 2);  // one report each
}

TEST(FatalSignals, SecondInstallationIsRefused) {
  // In this process the handlers stay off until here; the death tests installed theirs in
  // children only.
  EXPECT_TRUE(installFatalSignalHandlers());
  EXPECT_FALSE(installFatalSignalHandlers());
}
