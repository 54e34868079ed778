// The first instance's window when a later start hands sources over while it is minimised.

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "TestApp.h"
#include "TestFs.h"
#include "app/SingleInstance.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

TEST(HandOverWindow, AMinimisedWindowReadsTheSourcesAndComesBack) {
  guiApp();
  TempDir d, config;
  makeFile(d / "f", 100);
  globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(config.path()));
  QTemporaryDir runtime;
  SingleInstance first(runtime.path());
  ASSERT_EQ(first.claim(), SingleInstance::Claim::First);
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();
  w.showMinimized();
  QSignalSpy finished(&w.driver(), &ScanDriver::finished);
  std::atomic<int> result{-1};
  std::thread later([&result, path = runtime.path(), source = d.path()] {
    SingleInstance s(path);
    if (s.claim() == SingleInstance::Claim::Running) result = int(s.handOver({source, source + "/missing"}));
  });
  while (result == -1) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  later.join();
  EXPECT_EQ(result, int(SingleInstance::Sent::Taken));
  EXPECT_FALSE(w.isMinimized());
  ASSERT_TRUE(finished.count() > 0 || finished.wait(10000));
  EXPECT_EQ(w.model().rowCount(), 1);
}

}  // namespace
}  // namespace ql::test
