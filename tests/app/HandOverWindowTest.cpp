// The first instance's window when a later start hands sources over while it is minimised.

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

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
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  Q_EMIT first.received({d.path(), d / "missing"});  // as a later start's hand-over arrives
  EXPECT_FALSE(w.isMinimized());
  ASSERT_TRUE(finished.count() > 0 || finished.wait(10000));
  EXPECT_EQ(w.reportPane().model().rowCount(), 1);
}

}  // namespace
}  // namespace ql::test
