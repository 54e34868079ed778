// The drive pane as a user meets it: rows that fill in while one mount hangs, the commands of
// its bar, the locations it keeps, and the double click that asks for a scan.

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

#include "TestApp.h"
#include "TestFs.h"
#include "drives/FakeStat.h"
#include "support/Globals.h"
#include "ui/CommandIds.h"
#include "ui/DrivePane.h"

Q_DECLARE_METATYPE(std::vector<std::string>)

namespace ql::test {
namespace {

MountEntry mount(const char* point, const char* type) {
  return {.mountPoint = point, .fsType = type, .source = "none", .root = "/"};
}

class DrivePaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    qRegisterMetaType<std::vector<std::string>>();
    ini = QString::fromStdString(config / "Quorlane.ini");
    globals().IniFile = ini;
    pane = std::make_unique<DrivePane>(guard, MainOptions{}, fakeStat(gate));
    pane->setSettingsFile(ini);
    pane->setMountSource([] {
      return std::vector<MountEntry>{mount("/", "ext4"), mount("/hung", "nfs"), mount("/data", "xfs"),
                                     mount("/gone", "tmpfs")};
    });
    tester = std::make_unique<QAbstractItemModelTester>(&pane->model(),
                                                        QAbstractItemModelTester::FailureReportingMode::Warning);
  }
  void TearDown() override {
    tester.reset();
    pane.reset();
    gate->release();  // the hung worker ends with the test
  }
  QString cell(int row, int col) { return pane->model().index(row, col).data().toString(); }
  bool filled(int row) { return !cell(row, DriveModel::ColTotal).isEmpty(); }

  TempDir config;
  QString ini;
  Guard guard;
  std::shared_ptr<Gate> gate = std::make_shared<Gate>();
  std::unique_ptr<DrivePane> pane;
  std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST_F(DrivePaneTest, RowsFillInWhileAMountHangsAndThePaneStaysUsable) {
  pane->reloadDrives();
  ASSERT_EQ(pane->rowCount(), 4);
  ASSERT_TRUE(QTest::qWaitFor([&] { return filled(0) && filled(2); }, 5000));
  // The hung mount's reader may start after the others have answered.
  ASSERT_TRUE(QTest::qWaitFor([&] { return gate->hungCalls.load() == 1; }, 5000));
  EXPECT_FALSE(filled(1));
  EXPECT_TRUE(cell(1, DriveModel::ColUsedPercent).isEmpty());
  EXPECT_FALSE(filled(3));  // gone between listing and reading
  // 751 blocks used and 200 free for the user; the 50 kept for root count neither way.
  EXPECT_EQ(cell(0, DriveModel::ColUsedPercent), "79%");
  EXPECT_EQ(
      pane->model().index(0, DriveModel::ColFreePercent).data(DriveModel::PercentRole).toInt(), 21);

  // Selection follows paths by whole components; a refresh keeps the hung mount to one thread.
  pane->selectDrive("/data/a/b");
  EXPECT_EQ(pane->view().currentIndex().row(), 2);
  pane->bar().control(cmd::drives::Refresh)->trigger();
  ASSERT_TRUE(QTest::qWaitFor([&] { return filled(0) && filled(2); }, 5000));
  EXPECT_EQ(pane->view().currentIndex().row(), 2);  // the selection survives a rebuild
  EXPECT_EQ(gate->hungCalls.load(), 1);
  // The combo leaves out RAM disks.
  std::vector<std::string> combo;
  for (const auto& d : pane->comboDrives()) combo.push_back(d.path);
  EXPECT_EQ(combo, (std::vector<std::string>{"/", "/hung", "/data"}));

  // Once the hung mount has answered, the next refresh reads it like any other.
  EXPECT_EQ(pane->model().driveRow(1).request, 0u);
  QSignalSpy arrived(&pane->model(), &DriveModel::sizesArrived);
  gate->release();
  ASSERT_TRUE(arrived.wait(5000));
  EXPECT_FALSE(filled(1));  // the answer belongs to a table that has been rebuilt since
  // The answer that came may be another row's: a refresh reads the mount as soon as its old
  // read is back, and not before.
  ASSERT_TRUE(QTest::qWaitFor([&] {
    if (pane->model().driveRow(1).request == 0) pane->cbrDrives_Execute(cmd::drives::Refresh);
    return filled(1);
  }, 5000));
}

TEST_F(DrivePaneTest, LocationsAreAddedRemovedAndKeptForTheNextStart) {
  for (auto [key, value] : {std::pair{"F0", "/hung/a/"}, {"F1", "/srv/b/"}})
    StoreSettings("DriveFolders", key, value, ini);
  pane->reloadDrives();
  ASSERT_EQ(pane->rowCount(), 6);
  EXPECT_EQ(pane->model().locations(), (std::vector<std::string>{"/hung/a/", "/srv/b/"}));
  // A location below a mount is found before the mount that holds it.
  pane->selectDrive("/hung/a/x");
  EXPECT_EQ(pane->view().currentIndex().row(), 4);
  pane->setFolderQuestion([] { return QStringLiteral("/mnt/ä share"); });
  pane->bar().control(cmd::drives::AddLocation)->trigger();
  ASSERT_EQ(pane->rowCount(), 7);
  EXPECT_EQ(pane->model().driveRow(6).path, "/mnt/\xc3\xa4 share/");

  // Delete takes out a location, never a drive.
  pane->view().setCurrentIndex(pane->model().index(2, 0));
  QTest::keyClick(&pane->view(), Qt::Key_Delete);
  EXPECT_EQ(pane->rowCount(), 7);
  pane->view().setCurrentIndex(pane->model().index(4, 0));
  QTest::keyClick(&pane->view(), Qt::Key_Delete);
  ASSERT_EQ(pane->rowCount(), 6);

  // Saved densely, in row order.
  pane->saveLocations();
  EXPECT_EQ(LoadSavedNetworkFolders(ini), (std::vector<std::string>{"/srv/b/", "/mnt/\xc3\xa4 share/"}));
}

TEST_F(DrivePaneTest, DoubleClickAndScanCommandsAskForScans) {
  pane->resize(900, 300);
  pane->show();
  pane->reloadDrives();
  QSignalSpy scans(pane.get(), &DrivePane::scanRequested);
  pane->cbrDrives_Execute(cmd::drives::ScanSelected);  // nothing selected: nothing asked
  EXPECT_EQ(scans.count(), 0);

  const QRect cell = pane->view().visualRect(pane->model().index(2, DriveModel::ColName));
  QTest::mouseClick(pane->view().viewport(), Qt::LeftButton, {}, cell.center());
  QTest::mouseDClick(pane->view().viewport(), Qt::LeftButton, {}, cell.center());
  ASSERT_EQ(scans.count(), 1);
  EXPECT_EQ(scans.takeFirst().at(0).value<std::vector<std::string>>(), std::vector<std::string>{"/data"});

  pane->bar().control(cmd::drives::ScanAll)->trigger();
  ASSERT_EQ(scans.count(), 1);
  EXPECT_EQ(scans.takeFirst().at(0).value<std::vector<std::string>>(),
            (std::vector<std::string>{"/", "/hung", "/data", "/gone"}));
}

}  // namespace
}  // namespace ql::test
