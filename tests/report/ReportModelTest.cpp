// The item model follows every kind of change of the tree (checked by Qt's model tester).

#include <gtest/gtest.h>
#include <QAbstractItemModelTester>

#include "TestApp.h"

#include "ui/ReportModel.h"

namespace ql {
namespace {

ReportTree branch(const std::string& name, int kids) {
  ReportTree b;
  const uint32_t top = b.addChild(kSuperRoot, name, ReportTree::IsFolder | ReportTree::Faded);
  for (int i = 0; i < kids; ++i) {
    const uint32_t c = b.addChild(top, name + std::to_string(i), ReportTree::IsFolder);
    b.setSizeAndFiles(c, 1000 * (i + 1), i);
  }
  b.setSizeAndFiles(top, 1000 * kids, kids);
  return b;
}

TEST(ReportModel, FollowsInsertsRemovalsSortsAndResets) {
  test::guiApp();
  ReportTree tree;
  ReportModel model(tree);
  QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  const uint32_t root = tree.addRoot("/data");
  tree.attachBranch(root, 0, branch("b", 3));
  tree.attachBranch(root, 0, branch("a", 2));
  tree.attachBranch(root, 2, branch("c", 0));
  ASSERT_EQ(model.rowCount(model.indexOf(root)), 3);
  const QPersistentModelIndex b = model.index(1, 0, model.indexOf(root));
  EXPECT_EQ(b.data().toString(), "b");
  tree.sorter(1) = {SortField::Text, 1, 1};
  tree.sortAll();
  EXPECT_EQ(b.row(), 1);
  EXPECT_EQ(model.index(0, 0, model.indexOf(root)).data().toString(), "c");
  tree.removeSubtree(tree.children(root)[0]);
  EXPECT_EQ(b.row(), 0);
  tree.clearChildren(root);
  EXPECT_FALSE(b.isValid());
  tree.clear();
  EXPECT_EQ(model.rowCount(), 0);
}

}  // namespace
}  // namespace ql
