#pragma once
// The one application object of a widget test: made on first use and never destroyed, since a
// static QApplication would go down after Qt's own statics.

#include <QApplication>

namespace ql::test {

inline void guiApp() {
  static int argc = 1;
  static char arg0[] = "test";
  static char* argv[] = {arg0, nullptr};
  static QApplication* a = new QApplication(argc, argv);
  (void)a;
}

}  // namespace ql::test
