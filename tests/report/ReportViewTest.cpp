// The report view shows the tree's rows in sight as a flat list: after every kind of change of
// the tree the list is exactly the open folders' rows in order, and keys and clicks open and
// close folders.

#include <gtest/gtest.h>
#include <QAbstractItemModelTester>
#include <QTest>

#include "TestApp.h"

#include "ui/ReportModel.h"
#include "ui/ReportView.h"

namespace ql {
namespace {

ReportTree branch(const std::string& name, int kids) {
  ReportTree b;
  const uint32_t top = b.addChild(kSuperRoot, name, ReportTree::IsFolder);
  for (int i = 0; i < kids; ++i) {
    const uint32_t c = b.addChild(top, name + std::to_string(i), ReportTree::IsFolder);
    b.setSizeAndFiles(c, 1000 * (i + 1), i);
  }
  b.setSizeAndFiles(top, 1000 * kids, kids);
  return b;
}

// The names the view shows, and those the tree's open folders say it must show.
QStringList shown(const ReportView& view) {
  QStringList names;
  for (int r = 0; r < view.model()->rowCount(); ++r)
    names << view.model()->index(r, 0).data().toString();
  return names;
}
QStringList expected(const ReportModel& model, const QModelIndex& parent = {}) {
  QStringList names;
  for (int r = 0; r < model.rowCount(parent); ++r) {
    const QModelIndex i = model.index(r, 0, parent);
    names << i.data().toString();
    const uint32_t n = model.nodeOf(i);
    if (n != kNoNode && const_cast<ReportModel&>(model).tree().hasFlag(n, ReportTree::Expanded))
      names << expected(model, i);
  }
  return names;
}

TEST(ReportView, TheRowsInSightFollowEveryChangeOfTheTree) {
  test::guiApp();
  ReportTree tree;
  ReportModel model(tree);
  ReportView view(model);
  QAbstractItemModelTester tester(view.model(),
                                  QAbstractItemModelTester::FailureReportingMode::Fatal);
  const auto check = [&](const char* step) {
    SCOPED_TRACE(step);
    EXPECT_EQ(shown(view), expected(model));
  };
  const uint32_t root = tree.addRoot("/data");
  view.collapse(model.indexOf(root));
  tree.attachBranch(root, 0, branch("a", 2));  // below a closed folder: only its arrow changes
  check("closed");
  EXPECT_EQ(shown(view), QStringList{"/data"});
  view.expand(model.indexOf(root));
  view.expand(model.indexOf(tree.children(root)[0]));
  check("opened");
  EXPECT_EQ(shown(view).size(), 4);
  tree.attachBranch(root, 0, branch("b", 3));  // in sight, before the open folder
  tree.attachBranch(root, 2, branch("c", 1));  // last
  check("inserted");
  const uint32_t a1 = tree.children(tree.children(root)[1])[1];
  view.setCurrentIndex(model.indexOf(a1));
  tree.sorter(1) = {SortField::Text, 1, 1};
  tree.sortAll();
  check("sorted");
  EXPECT_EQ(model.nodeOf(view.currentIndex()), a1);  // the current row follows its folder
  view.expandAll();
  check("all open");
  EXPECT_EQ(shown(view).size(), 10);
  view.collapseRecursively(model.indexOf(root));
  check("closed below the source");
  EXPECT_EQ(shown(view), QStringList{"/data"});
  // A row inside closed folders is shown by opening them.
  view.setCurrentIndex(model.indexOf(a1));
  check("revealed");
  EXPECT_EQ(model.nodeOf(view.currentIndex()), a1);
  view.expandToDepth(0);
  check("one level");
  tree.removeSubtree(tree.children(root)[1]);
  check("removed");
  const uint32_t other = tree.addRoot("/more");
  tree.attachBranch(other, 0, branch("d", 2));
  view.expandAll();
  tree.clearChildren(root);
  check("emptied");
  tree.clear();
  EXPECT_TRUE(shown(view).isEmpty());
}

TEST(ReportView, KeysAndClicksOpenAndCloseFolders) {
  test::guiApp();
  ReportTree tree;
  ReportModel model(tree);
  ReportView view(model);
  view.resize(400, 300);
  view.show();
  const uint32_t root = tree.addRoot("/data");
  tree.attachBranch(root, 0, branch("a", 2));
  const uint32_t a = tree.children(root)[0];
  view.collapse(model.indexOf(root));
  view.setCurrentIndex(model.indexOf(root));
  view.setFocus();
  QTest::keyClick(&view, Qt::Key_Right);
  EXPECT_TRUE(view.isExpanded(model.indexOf(root)));
  QTest::keyClick(&view, Qt::Key_Right);  // into the folder
  EXPECT_EQ(model.nodeOf(view.currentIndex()), a);
  QTest::keyClick(&view, Qt::Key_Asterisk);
  EXPECT_TRUE(view.isExpanded(model.indexOf(a)));
  QTest::keyClick(&view, Qt::Key_Left);  // an open folder closes
  EXPECT_FALSE(view.isExpanded(model.indexOf(a)));
  EXPECT_EQ(shown(view), expected(model));
  QTest::keyClick(&view, Qt::Key_Left);  // a closed one goes up
  EXPECT_EQ(model.nodeOf(view.currentIndex()), root);
  // A click on a folder's arrow opens it and leaves the selection where it was.
  const QRect cell = view.visualRect(view.toView(model.indexOf(a)));
  const QPoint arrow(cell.left() + view.indentation() * 3 / 2, cell.center().y());
  QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, arrow);
  EXPECT_TRUE(view.isExpanded(model.indexOf(a)));
  EXPECT_EQ(model.nodeOf(view.currentIndex()), root);
  QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, arrow);
  EXPECT_FALSE(view.isExpanded(model.indexOf(a)));
  EXPECT_EQ(shown(view), (QStringList{"/data", "a"}));
}

}  // namespace
}  // namespace ql
