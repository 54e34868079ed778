// The first instance's window when a later start hands sources and an export over while it is
// minimised.

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "TestApp.h"
#include "TestFiles.h"
#include "TestFs.h"
#include "app/SingleInstance.h"
#include "ui/ImportedSources.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

TEST(HandOverWindow, AMinimisedWindowReadsTheSourcesAndTheExportAndComesBack) {
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
  QSignalSpy imported(&w.session().imports(), &ImportedSources::finished);
  const std::string json = config / "tree.json";
  writeFile(json, "[1,2,{},[{\"name\":\"/elsewhere\"},{\"name\":\"f\",\"asize\":7}]]");
  Q_EMIT first.received(
      {{d.path(), d / "missing"}, {json}});  // as a later start's hand-over arrives
  EXPECT_FALSE(w.isMinimized());
  // The walk first, then the export.
  ASSERT_TRUE(imported.count() > 0 || imported.wait(10000));
  ASSERT_EQ(w.reportPane().model().rowCount(), 2);
  const QString rows = w.reportPane().model().index(0, 0).data().toString() + '|' +
                       w.reportPane().model().index(1, 0).data().toString();
  EXPECT_TRUE(rows.contains("tree.json")) << rows.toStdString();
}

}  // namespace
}  // namespace ql::test
