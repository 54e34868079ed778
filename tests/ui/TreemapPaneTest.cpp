// The treemap and file-types panes as a user meets them: shown after a scan, zoomed into a folder
// and back, a file clicked and deleted through the file list's menu, a kind picked.

#include <unistd.h>
#include <QApplication>
#include <QMenu>
#include <QSettings>
#include <QTest>

#include "TestApp.h"
#include "TestFs.h"
#include "report/SizeFormat.h"
#include "support/Globals.h"
#include "support/PathText.h"
#include "ui/CommandIds.h"
#include "ui/MainWindow.h"

namespace ql::test {
namespace {

// Lets the workers finish; false when `done` did not come within 20 s.
template <class F>
bool waitUntil(F done) {
  QDeadlineTimer deadline(20000);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QTest::qWait(5);
  }
  return true;
}

class TreemapPaneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    globals().IniFile = QString::fromStdString(config / "Quorlane.ini");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromStdString(config.path()));
    makeDir(d / "a");
    makeDir(d / "b");
    makeFile(d / "a/big.iso", 400000);
    makeFile(d / "a/note.txt", 3000);
    makeDir(d / "a/sub");  // so that the report keeps a's own files in a row of their own
    makeFile(d / "a/sub/x.bin", 1000);
    makeFile(d / "b/pic.jpg", 200000);
    makeFile(d / "top.dat", 50000);
    ASSERT_EQ(::symlink("a", (d / "link").c_str()), 0);  // a junction: a row with no area
  }

  // The centre of the largest file of `folder` on the canvas.
  static QPoint fileOf(TreemapPane& pane, const std::string& folder, int64_t size) {
    const QSize canvas = pane.canvas().size();
    for (int y = 2; y < canvas.height(); y += 3)
      for (int x = 2; x < canvas.width(); x += 3) {
        TreemapPane::Hit hit;
        if (pane.hitAt({x, y}, hit) && hit.file && hit.folder == folder && hit.size == size)
          return {x, y};
      }
    return {-1, -1};
  }

  TempDir d, config;
};

TEST_F(TreemapPaneTest, ZoomClickDeleteAndPickAKind) {
  MainWindow w;
  w.resize(1300, 900);
  w.show();
  QCoreApplication::processEvents();
  MainBar& bar = w.cbrMain();
  bar.setChecked(cmd::main::ShowFiles, true);
  bar.control(cmd::main::ShowTreemap)->trigger();
  bar.control(cmd::main::ShowTypes)->trigger();
  TreemapPane& map = w.treemapPane();
  ASSERT_TRUE(map.isVisible() && w.typesPane().isVisible());

  w.session().readSources({d.path()});
  const std::string root = d.path() + "/", a = d / "a/";
  ASSERT_TRUE(waitUntil([&] {
    return map.folder() == root && map.layout() && !map.drawing() && !map.picture().isNull();
  }));
  // Double-click on a file zooms into its folder; Backspace goes back up.
  QPoint big;
  ASSERT_TRUE(waitUntil([&] { return (big = fileOf(map, a, 400000)).x() >= 0; }));
  QTest::mouseDClick(&map.canvas(), Qt::LeftButton, {}, big);
  EXPECT_EQ(map.folder(), a);
  EXPECT_TRUE(map.breadcrumb().text().contains(QStringLiteral(">a<")));
  ASSERT_TRUE(waitUntil([&] { return !map.drawing() && fileOf(map, a, 3000).x() >= 0; }));
  map.setFocus();
  QTest::keyClick(&map, Qt::Key_Backspace);
  EXPECT_EQ(map.folder(), root);
  ASSERT_TRUE(waitUntil([&] { return !map.drawing() && (big = fileOf(map, a, 400000)).x() >= 0; }));

  // Pointing at a file names its path, size and share, and the link of its folder, which has no
  // area.
  const QPoint topDat = fileOf(map, root, 50000);
  QTest::mouseMove(&map.canvas(), topDat);
  const QString said = pathText(root + "top.dat") + "   " + xFormatFileSizeAuto(50000, true) +
                       "   " + QString::number(100.0 * 50000 / 654000, 'f', 1) + " %";
  ASSERT_TRUE(waitUntil([&] { return w.statusPanel1().text().startsWith(said); }))
      << w.statusPanel1().text().toStdString();
  EXPECT_TRUE(w.statusPanel1().text().endsWith(": link")) << w.statusPanel1().text().toStdString();

  // A click selects the folder in the report and the file in the file list; the treemap stays.
  QTest::mouseClick(&map.canvas(), Qt::LeftButton, {}, big);
  FileListPane& files = w.filesPane();
  auto selectedName = [&] {
    const auto rows = files.selectedRowsDescending();
    return rows.size() == 1 ? files.model().row(rows.front()).name : std::string();
  };
  ASSERT_TRUE(waitUntil([&] { return selectedName() == "big.iso"; }));
  EXPECT_EQ(w.session().tree().fullPath(w.reportPane().selectedNode(), true), a);
  EXPECT_EQ(map.folder(), root);

  // A kind picked in the types pane: marked in the treemap, the only one in the largest files.
  TypesPane& types = w.typesPane();
  int jpg = -1;
  ASSERT_TRUE(waitUntil([&] {
    for (int r = 0; r < types.model().rowCount(); ++r)
      if (types.model().index(r, 0).data().toString() == QLatin1String("jpg")) jpg = r;
    return !types.counting() && jpg >= 0 && types.model().rowCount() == 5;
  }));
  EXPECT_TRUE(types.model().index(jpg, 4).data().toString().contains(QStringLiteral("/b/pic.jpg")));
  types.pickRow(jpg);
  EXPECT_TRUE(map.highlighting());
  FileListPane& top = w.topPane();
  ASSERT_EQ(top.model().rowCount(), 1);
  EXPECT_EQ(top.model().row(0).name, "pic.jpg");
  types.pickRow(jpg);  // the same again lets it go
  EXPECT_FALSE(map.highlighting());
  EXPECT_EQ(top.model().rowCount(), 5);

  // The right click offers the file list's own menu; its delete corrects report and treemap.
  QTest::mouseClick(&map.canvas(), Qt::RightButton, {}, big);
  QMenu* menu = nullptr;
  ASSERT_TRUE(waitUntil([&] {
    for (QWidget* top : QApplication::topLevelWidgets())
      if (auto* m = qobject_cast<QMenu*>(top); m && m->isVisible()) menu = m;
    return menu != nullptr;
  }));
  for (QAction* action : menu->actions())
    if (action->data() == cmd::filePopup::Delete) action->trigger();
  menu->close();
  EXPECT_NE(::access((d / "a/big.iso").c_str(), F_OK), 0);
  ASSERT_TRUE(waitUntil([&] {
    const uint32_t node = w.session().nodeOfPath(a);
    return !w.session().busy() && node != kNoNode && w.session().tree().node(node).size == 4000;
  }));
  const TreemapPlace place = w.session().treemapAt(a);
  ASSERT_TRUE(place.tree);
  EXPECT_EQ(place.tree->folders[place.folder()].bytes, 4000);
  EXPECT_EQ(place.tree->folders[0].bytes, 4000 + 200000 + 50000);
  ASSERT_TRUE(waitUntil([&] { return !map.drawing() && fileOf(map, a, 400000).x() < 0; }));
}

}  // namespace
}  // namespace ql::test
