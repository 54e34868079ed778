#include "failure/FatalSignals.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <csignal>
#include <stdexcept>

#include "support/Globals.h"
#include "failure/FailureReport.h"
#include "TestFiles.h"

using namespace ql;

namespace {

int divideByZero() {
  // Both operands volatile: "1 / x" alone is folded into a comparison without a division.
  volatile int one = 1, zero = 0;
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

QString readLog(const QTemporaryDir& dir) { return QString::fromUtf8(test::readFile(dir.filePath("error.log"))); }

}  // namespace

// Each way of dying writes one report, with the command line and the count of failures before.
TEST(FatalSignalsDeathTest, EveryFatalEndWritesOneReport) {
  const struct {
    void (*die)();
    int signal;
    const char* said;  // on standard error
    const char* logged;
  } cases[] = {
#if defined(__x86_64__) || defined(__i386__)
      {[] { divideByZero(); }, SIGFPE, "fatal signal SIGFPE \\(EXCEPTION_INT_DIVIDE_BY_ZERO\\)",
       "\nModul: Exception Handler\nFunc: SIGFPE\nLine: 0\n"
       "Err: -2147220991 - An unhandled error (EXCEPTION_INT_DIVIDE_BY_ZERO) \noccurred at: "},
#endif
      {writeThroughNull, SIGSEGV, "EXCEPTION_ACCESS_VIOLATION",
       "(EXCEPTION_ACCESS_VIOLATION) \noccurred at: 0. NOT ok to continue.\n"},
      {[] { std::abort(); }, SIGABRT, "quorlane: fatal signal SIGABRT \\(", "\nFunc: SIGABRT\n"},
      {throwThroughNoexcept, SIGABRT, "quorlane: uncaught exception \\(C\\+\\+ exception: disk gone\\)",
       "\nFunc: std::terminate\nLine: 0\nErr: -2147220991 - An unhandled error (C++ exception: disk gone)"},
  };
  globals().Errcount = 4;
  setFailureCommandLine(QStringLiteral("\"/srv\""));
  for (const auto& c : cases) {
    QTemporaryDir dir;
    globals().DataFolder = dir.path();
    EXPECT_EXIT({
      installFatalSignalHandlers();
      c.die();
    }, testing::KilledBySignal(c.signal), c.said);
    const QString log = readLog(dir);
    EXPECT_EQ(log.count(QStringLiteral("Modul: Exception Handler")), 1) << log.toStdString();
    EXPECT_TRUE(log.contains(QString::fromUtf8(c.logged))) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("\nCommand: \"/srv\"\nUser: ")) &&
                log.contains(QStringLiteral("\nErrcount: 5\n")));
  }
  setFailureCommandLine(QString());
  globals().DataFolder.clear();
  globals().Errcount = 0;
}

TEST(FatalSignals, SecondInstallationIsRefused) {
  // In this process the handlers stay off until here; the death tests installed theirs in
  // children only.
  EXPECT_TRUE(installFatalSignalHandlers());
  EXPECT_FALSE(installFatalSignalHandlers());
}
