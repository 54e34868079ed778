// The window as a user meets it: sources from the command line, the tree growing, a title
// click, and a close during a scan.

#include <QApplication>
#include <QHeaderView>
#include <QSignalSpy>
#include <QTest>

#include "TestFs.h"
#include "app/Globals.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

void app() {
  static int argc = 1;
  static char arg0[] = "test";
  static char* argv[] = {arg0, nullptr};
  static QApplication* a = new QApplication(argc, argv);
  (void)a;
}

class MainWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    app();
    globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
    for (auto [name, size] : {std::pair{"small", 10}, {"large", 1000}, {"medium", 100}}) {
      makeDir(d / name);
      makeFile(d / (std::string(name) + "/f"), size);
    }
  }
  TempDir d, config;
};

TEST_F(MainWindowTest, ReadsTheCommandLineAndSortsByTitleClicks) {
  MainWindow w;
  w.show();
  QSignalSpy finished(&w.driver(), &ScanDriver::finished);
  w.readCommandLine("\"" + d.path() + "\" \"" + d / "missing" + "\"");
  ASSERT_TRUE(finished.wait(10000));
  ReportModel& m = w.model();
  ASSERT_EQ(m.rowCount(), 1);  // the missing source is dropped without a word
  const QModelIndex root = m.index(0, 0);
  EXPECT_TRUE(w.view().isExpanded(root));
  ASSERT_EQ(m.rowCount(root), 3);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "large");  // largest first after the scan
  EXPECT_EQ(w.view().currentIndex(), root);

  // A real click on the name title: by name, and the selection goes to the first row.
  QHeaderView* header = w.view().header();
  const QPoint name(header->sectionViewportPosition(0) + 5, header->height() / 2);
  QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "large");
  EXPECT_EQ(m.index(2, 0, root).data().toString(), "small");
  QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name);
  EXPECT_EQ(m.index(0, 0, root).data().toString(), "small");
  EXPECT_EQ(w.view().currentIndex().row(), 0);
}

TEST_F(MainWindowTest, ClosingDuringAScanOnlyStopsIt) {
  for (int i = 0; i < 40; ++i) {
    makeDir(d / ("w" + std::to_string(i)));
    for (int j = 0; j < 40; ++j) makeDir(d / ("w" + std::to_string(i) + "/" + std::to_string(j)));
  }
  MainWindow w;
  w.show();
  QSignalSpy finished(&w.driver(), &ScanDriver::finished);
  w.readCommandLine("\"" + d.path() + "\" \"" + d.path() + "\"");
  ASSERT_TRUE(w.busy());
  EXPECT_FALSE(w.close());  // refused: the walk is asked to stop instead
  EXPECT_TRUE(w.isVisible());
  ASSERT_TRUE(finished.wait(10000));
  EXPECT_EQ(w.model().rowCount(), 1);  // the second source was never read
  EXPECT_EQ(StopWord.load(), 0);
  EXPECT_TRUE(w.close());
}

}  // namespace
}  // namespace ql::test
