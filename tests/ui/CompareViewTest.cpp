// Comparing the report with an earlier measurement in the window: the change columns, the new
// marks and the rows of gone folders, the sort by change, the largest files narrowed to the new
// and grown, and what happens when the tree changes under the comparison.

#include <QAbstractItemModelTester>
#include <QAction>
#include <QApplication>
#include <QHeaderView>
#include <QMenu>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include "TestApp.h"
#include "TestFs.h"
#include "json/JsonExport.h"
#include "snapshot/SnapshotStore.h"
#include "support/Globals.h"
#include "ui/CommandIds.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

class CompareViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    ::setenv("XDG_DATA_HOME", config.path().c_str(), 1);  // the snapshots of this test only
    globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromStdString(config.path()));
    // Last month, measured at another path than the folder has now: folders match below the root.
    const std::string then = d / "then", now = d / "now";
    for (const std::string& top : {then, now}) {
      makeDir(top);
      makeDir(top + "/keep");
      makeFile(top + "/keep/f", 2000);  // the largest, so that sorting by size is not by growth
      makeDir(top + "/grow");
    }
    makeFile(then + "/grow/f", 100);
    makeDir(then + "/gone");
    makeFile(then + "/gone/f", 50);
    ASSERT_TRUE(exportJsonToFile(then, baseline, 1).ok);
    makeFile(now + "/grow/f", 1100);
    makeDir(now + "/new");
    makeFile(now + "/new/f", 300);
  }

  // The window with `now` read and compared with the export.
  void compare(MainWindow& w) {
    w.show();
    QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
    w.session().readSources({d / "now"});
    ASSERT_TRUE(finished.wait(10000));
    QSignalSpy compared(&w.reportPane(), &ReportPane::compared);
    w.reportPane().compareWith(baseline);
    ASSERT_TRUE(compared.wait(10000));
  }

  // A number as shown, without its grouping (the locale's).
  static QString plain(const QVariant& cell) {
    return cell.toString().remove(QRegularExpression("[^-+0-9]"));
  }

  // Name and change cell of each row below the source, in the order shown.
  static std::vector<std::pair<QString, QString>> rows(ReportModel& m) {
    std::vector<std::pair<QString, QString>> out;
    const QModelIndex root = m.index(0, 0);
    for (int r = 0; r < m.rowCount(root); ++r)
      out.emplace_back(m.index(r, 0, root).data().toString(),
                       plain(m.index(r, ReportModel::ColChange, root).data()));
    return out;
  }
  static int stateOf(ReportModel& m, int row, const QModelIndex& parent) {
    return m.index(row, ReportModel::ColChange, parent).data(ReportModel::ChangeStateRole).toInt();
  }
  // The names of the rows below the source that are gone folders.
  static QStringList goneRows(ReportModel& m) {
    QStringList names;
    const QModelIndex root = m.index(0, 0);
    for (int r = 0; r < m.rowCount(root); ++r)
      if (stateOf(m, r, root) == ReportModel::GoneFolder)
        names << m.index(r, 0, root).data().toString();
    return names;
  }

  TempDir d, config;
  std::string baseline = d / "then.json";
};

TEST_F(CompareViewTest, ShowsChangesMarksNewAndGoneAndSortsByGrowth) {
  MainWindow w;
  ReportPane& pane = w.reportPane();
  ReportModel& m = pane.model();
  // Every row that comes or goes, the gone ones too, is announced as the view needs it.
  QAbstractItemModelTester tester(&m, QAbstractItemModelTester::FailureReportingMode::Fatal);
  EXPECT_TRUE(pane.view().isColumnHidden(ReportModel::ColChange));
  EXPECT_FALSE(w.topPane().bar().control(cmd::files::NewOrGrown)->isVisible());
  pane.cbrReport_Execute(cmd::report::Bytes);
  compare(w);
  EXPECT_FALSE(pane.view().isColumnHidden(ReportModel::ColChange));
  const QModelIndex root = m.index(0, 0);

  // A title click (as the header delivers it) puts the largest growth first; the next one turns
  // the order over.
  QHeaderView* header = pane.view().header();
  const auto click = [&] { Q_EMIT header->sectionClicked(ReportModel::ColChange); };
  using Rows = std::vector<std::pair<QString, QString>>;
  click();
  EXPECT_EQ(rows(m), (Rows{{"grow", "+1000"}, {"new", "+300"}, {"keep", "0"}, {"gone", "-50"}}));
  // The gone folder is a row of its own: greyed, nothing to select or open, all it held lost.
  const QModelIndex gone = m.index(3, 0, root);
  EXPECT_EQ(stateOf(m, 3, root), ReportModel::GoneFolder);
  EXPECT_EQ(gone.data(Qt::ForegroundRole).value<QColor>(),
            QApplication::palette().color(QPalette::Disabled, QPalette::Text));
  EXPECT_EQ(m.flags(gone), Qt::NoItemFlags);
  EXPECT_EQ(m.nodeOf(gone), kNoNode);
  EXPECT_EQ(m.parent(gone), root);
  EXPECT_EQ(m.rowCount(gone), 0);
  EXPECT_FALSE(m.index(3, ReportModel::ColSize, root).data().isValid());
  EXPECT_EQ(plain(m.index(3, ReportModel::ColChangePercent, root).data()), "-1000");  // -100.0 %
  EXPECT_EQ(plain(m.index(3, ReportModel::ColChangeFiles, root).data()), "-1");
  click();
  EXPECT_EQ(rows(m), (Rows{{"gone", "-50"}, {"keep", "0"}, {"new", "+300"}, {"grow", "+1000"}}));
  // A click on the gone row leaves the selection where it was.
  pane.view().setCurrentIndex(m.index(1, 0, root));
  QTest::mouseClick(pane.view().viewport(), Qt::LeftButton, {},
                    pane.view().visualRect(pane.view().toView(m.index(0, 0, root))).center());
  EXPECT_EQ(pane.selectedNode(), m.nodeOf(m.index(1, 0, root)));
  // The source lost "gone" (50 bytes) and gained 1,300: the percent is of what it held then.
  EXPECT_EQ(plain(m.index(0, ReportModel::ColChange).data()), "+1250");
  EXPECT_EQ(plain(m.index(0, ReportModel::ColChangePercent).data()), "+581");  // +58.1 %
  EXPECT_EQ(plain(m.index(0, ReportModel::ColChangeFiles).data()), "0");
  EXPECT_EQ(stateOf(m, 0, {}), ReportModel::LostFolders);
  EXPECT_TRUE(m.index(0, ReportModel::ColChange).data(Qt::ToolTipRole).toString().contains("gone"));
  EXPECT_EQ(stateOf(m, 2, root), ReportModel::New);
  EXPECT_EQ(stateOf(m, 1, root), ReportModel::Compared);

  // "Vergleich aus" takes the gone row away with the columns; comparing again brings it back,
  // after the tree's rows, which keep their order.
  pane.cbrReport_Execute(cmd::report::CompareOff);
  EXPECT_EQ(m.rowCount(root), 3);
  EXPECT_TRUE(goneRows(m).isEmpty());
  {
    QSignalSpy compared(&pane, &ReportPane::compared);
    pane.compareWith(baseline);
    ASSERT_TRUE(compared.wait(10000));
  }
  EXPECT_EQ(rows(m), (Rows{{"keep", "0"}, {"new", "+300"}, {"grow", "+1000"}, {"gone", "-50"}}));

  // The largest files: only those new or grown since, once asked for.
  FileListPane& top = w.topPane();
  ASSERT_TRUE(top.bar().control(cmd::files::NewOrGrown)->isVisible());
  const auto shown = [&] {
    QStringList names;
    for (int r = 0; r < top.model().rowCount(); ++r)
      if (!top.view().isRowHidden(r, {}))
        names << QString::fromStdString(top.pathOf(r)).section('/', -2);
    names.sort();
    return names;
  };
  EXPECT_EQ(shown(), (QStringList{"grow/f", "keep/f", "new/f"}));
  EXPECT_EQ(top.model().rowCount(), 3);
  top.bar().control(cmd::files::NewOrGrown)->trigger();
  EXPECT_EQ(shown(), (QStringList{"grow/f", "new/f"}));

  // A damaged file is named and changes nothing.
  makeFile(d / "bad.json", 10);
  pane.compareWith(d / "bad.json");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !pane.baseline().loading(); }, 10000));
  EXPECT_TRUE(w.statusPanel1().text().contains("bad.json"));
  EXPECT_EQ(plain(m.index(0, ReportModel::ColChange).data()), "+1250");

  // A deleted folder is matched again and shows up as gone.
  pane.selectNode(m.nodeOf(m.index(0, 0, root)));  // "keep"
  QSignalSpy compared(&pane, &ReportPane::compared);
  pane.deleteFolder(false);
  ASSERT_TRUE(compared.wait(10000));
  EXPECT_EQ(m.rowCount(root), 4);
  EXPECT_EQ(goneRows(m), (QStringList{"keep", "gone"}));  // the largest loss first
  EXPECT_TRUE(m.index(0, ReportModel::ColChange).data(Qt::ToolTipRole).toString().contains("keep"));
  // A rescan takes the gone rows away before it touches the tree; a folder that came back is a
  // row of the tree again.
  makeDir(d / "now/gone");
  pane.selectNode(m.nodeOf(root));
  pane.cbrReport_Execute(cmd::report::Rescan);
  EXPECT_EQ(m.rowCount(root), 0);
  ASSERT_TRUE(compared.wait(10000));
  EXPECT_EQ(goneRows(m), QStringList{"keep"});
  EXPECT_EQ(m.rowCount(root), 4);
  // Without its source the comparison ends and holds no node of the cleared tree.
  pane.selectNode(m.nodeOf(root));
  pane.cbrReport_Execute(cmd::report::Remove);
  EXPECT_EQ(m.rowCount(), 0);
  ASSERT_TRUE(QTest::qWaitFor([&] { return !pane.baseline().active(); }, 10000));
  EXPECT_TRUE(pane.view().isColumnHidden(ReportModel::ColChange));
  EXPECT_FALSE(top.bar().control(cmd::files::NewOrGrown)->isVisible());
}

// The treemap coloured by growth: each file by its folder's own files, new folders red, grown
// ones orange, unchanged ones grey; without the baseline the kinds come back.
TEST_F(CompareViewTest, TreemapColoursFilesByTheirFoldersGrowth) {
  MainWindow w;
  w.resize(1300, 900);
  w.show();
  QCoreApplication::processEvents();
  w.cbrMain().control(cmd::main::ShowTreemap)->trigger();
  TreemapPane& map = w.treemapPane();
  ASSERT_TRUE(map.isVisible());
  EXPECT_FALSE(map.growthSwitch().isVisible());
  compare(w);
  ASSERT_TRUE(map.growthSwitch().isVisible());
  map.growthSwitch().click();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !map.drawing() && map.showsGrowth(); }, 10000));
  // The colour of the file in `folder`, in the middle of its rectangle.
  const auto colourIn = [&](const std::string& folder) {
    const QSize canvas = map.canvas().size();
    const QImage& picture = map.picture();
    for (int y = 2; y < canvas.height(); y += 2)
      for (int x = 2; x < canvas.width(); x += 2) {
        TreemapPane::Hit hit;
        if (map.hitAt({x, y}, hit) && hit.file && hit.folder == d / ("now/" + folder + "/"))
          return QColor(picture.pixel(x * picture.width() / canvas.width(),
                                      y * picture.height() / canvas.height()));
      }
    return QColor();
  };
  const QColor grown = colourIn("grow"), added = colourIn("new"), same = colourIn("keep");
  EXPECT_TRUE(grown.hsvHue() >= 20 && grown.hsvHue() <= 40 && grown.hsvSaturation() > 150)
      << grown.name().toStdString();  // +1000 %: full orange
  EXPECT_TRUE((added.hsvHue() >= 345 || added.hsvHue() <= 10) && added.hsvSaturation() > 150)
      << added.name().toStdString();
  EXPECT_EQ(same.hsvHue(), -1) << same.name().toStdString();  // grey, shaded
  w.reportPane().cbrReport_Execute(cmd::report::CompareOff);
  EXPECT_FALSE(map.growthSwitch().isVisible());
  ASSERT_TRUE(QTest::qWaitFor([&] { return !map.drawing() && !map.showsGrowth(); }, 10000));
  EXPECT_NE(colourIn("keep").hsvHue(), -1);  // its kind's colour again
}

// The snapshot kept after a scan is offered in the popup, and choosing it compares with it.
TEST_F(CompareViewTest, ComparesWithTheSnapshotOfAnEarlierScan) {
  MainWindow w;
  w.show();
  const std::string now = d / "now";
  QSignalSpy finished(&w.session().driver(), &ScanDriver::finished);
  w.session().readSources({now});
  ASSERT_TRUE(finished.wait(10000));
  ASSERT_TRUE(QTest::qWaitFor([&] { return !listSnapshots(now).empty(); }, 20000));
  makeFile(now + "/keep/g", 40);
  w.session().readSources({now});
  ASSERT_TRUE(finished.wait(10000));
  ASSERT_TRUE(QTest::qWaitFor([&] { return listSnapshots(now).size() == 2; }, 20000));

  ReportPane& pane = w.reportPane();
  QMenu* menu = pane.compareMenu();
  // Newest first: the second entry is the scan before the change.
  QAction* older =
      menu->findChild<QAction*>(QStringLiteral("cmd%1").arg(cmd::report::CompareSnapshots + 1));
  ASSERT_TRUE(older);
  QSignalSpy compared(&pane, &ReportPane::compared);
  older->trigger();
  ASSERT_TRUE(compared.wait(10000));
  ReportModel& m = pane.model();
  EXPECT_EQ(m.index(0, ReportModel::ColChangeFiles).data().toString(), "+1");
}

}  // namespace
}  // namespace ql::test
