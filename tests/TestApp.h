#pragma once
// Helpers of the widget tests.

#include <QAbstractItemModel>
#include <QApplication>
#include <QList>
#include <QObject>
#include <QUrl>

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

// Stands in for the desktop's handler of a URL scheme (QDesktopServices::setUrlHandler with
// "open") and notes what it was asked to open. A test target that uses it lists this header
// among its sources, so that it is run through moc.
class UrlCatcher : public QObject {
  Q_OBJECT
 public:
  QList<QUrl> urls;
 public Q_SLOTS:
  void open(const QUrl& url) { urls << url; }
};

}  // namespace ql::test
