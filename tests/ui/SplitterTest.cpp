// The splitter's limits, its errors, and dragging its bar with the mouse.

#include <QApplication>
#include <QTest>
#include <gtest/gtest.h>

#include "TestApp.h"

#include "ui/Splitter.h"

namespace ql {
namespace {

struct Panes {
  int appFirst = (test::guiApp(), 0);  // the application must exist before any widget
  Splitter s;
  QWidget* one = new QWidget;
  QWidget* two = new QWidget;
  Panes(int orientation = Splitter::PanesAbove) {
    s.resize(300, 200);
    s.setOrientation(orientation);
    s.Bind(one, two);
    s.show();
  }
  // Presses on the bar of side-by-side panes, moves `by` across and releases, as a user drags.
  void drag(int by, bool release = true) {
    const QPoint at(s.Position() + 1, 50), to = at + QPoint(by, 0);
    QTest::mousePress(&s, Qt::LeftButton, {}, at);
    QMouseEvent move(QEvent::MouseMove, to, s.mapToGlobal(to), Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(&s, &move);
    if (release) QTest::mouseRelease(&s, Qt::LeftButton, {}, to);
  }
};

TEST(Splitter, LimitsAreCheckedInOrderAndBadValuesChangeNothing) {
  Panes p;  // 200 high, bar 4
  p.s.setPosition(100);
  EXPECT_EQ(p.two->geometry().top(), 104);
  p.s.setMaximumSize(2, 50);
  p.s.setPosition(100);
  EXPECT_EQ(p.s.Position(), 146);
  p.s.setMaximumSize(2, -1);
  // Both minima cannot be met: the first pane gets its own and the second whatever is left.
  p.s.setMinimumSize(1, 150);
  p.s.setMinimumSize(2, 80);
  p.s.setPosition(10);
  EXPECT_EQ(p.two->height(), 200 - 150 - 4);

  p.s.setMinimumSize(1, 0);
  p.s.setPosition(60);
  EXPECT_THROW(p.s.setProportion(100.5), SplitterError);
  EXPECT_NEAR(p.s.Proportion(), 30.0, 1e-9);
}

TEST(Splitter, DraggingFollowsTheMouseStopsAtTheLimitsAndCanBeTakenBack) {
  Panes p(Splitter::PanesSideBySide);  // 300 wide
  p.s.setPosition(100);
  bool refuse = true;
  QObject::connect(&p.s, &Splitter::BeginDrag, [&](int, int, bool* cancel) { *cancel = refuse; });
  p.drag(40);
  EXPECT_EQ(p.one->width(), 100);
  refuse = false;
  p.drag(40);
  EXPECT_EQ(p.one->width(), 140);
  EXPECT_NEAR(p.s.Proportion(), 140 * 100.0 / 300, 1e-9);
  p.drag(1000);  // far beyond: the second pane keeps its minimum
  EXPECT_EQ(p.s.Position(), 300 - 8 - 4);
  p.s.setPosition(100);
  p.drag(30, false);
  EXPECT_EQ(p.one->width(), 130);
  QTest::keyClick(&p.s, Qt::Key_Escape);
  EXPECT_EQ(p.one->width(), 100);
  EXPECT_FALSE(p.s.dragging());
}

}  // namespace
}  // namespace ql
