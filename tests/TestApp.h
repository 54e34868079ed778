#pragma once
// Helpers of the widget tests.

#include <QAbstractItemModel>
#include <QApplication>

namespace ql::test {

// The one application object of a widget test: made on first use and never destroyed, since a
// static QApplication would go down after Qt's own statics.
inline QApplication& guiApp() {
  static int argc = 1;
  static char arg0[] = "test";
  static char* argv[] = {arg0, nullptr};
  static QApplication* a = new QApplication(argc, argv);
  return *a;
}

// The row called `name` below `parent`, or an invalid index.
inline QModelIndex childNamed(const QAbstractItemModel& m, const QModelIndex& parent,
                              const QString& name) {
  for (int r = 0; r < m.rowCount(parent); ++r)
    if (m.index(r, 0, parent).data().toString() == name) return m.index(r, 0, parent);
  return {};
}

}  // namespace ql::test
