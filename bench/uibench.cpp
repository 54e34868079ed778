// Measures the window's responsiveness: the longest time the user-interface thread goes without
// serving its event loop while a source is read, and how long a title-click sort and expanding
// every folder take on the resulting report.
//
// usage: QT_QPA_PLATFORM=offscreen quorlane_uibench TREE [COPIES]
// The tree is read COPIES times (default 2) as separate sources, so a 58,000-folder tree gives
// a report of more than 100,000 folders.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QTimer>
#include <cstdio>

#include "app/Globals.h"
#include "report/ReportCommands.h"
#include "ui/MainWindow.h"

using namespace ql;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s TREE [COPIES]\n", argv[0]);
    return 2;
  }
  QApplication app(argc, argv);
  globals().IniFile = QDir::tempPath() + QStringLiteral("/quorlane-uibench.ini");
  QFile::remove(globals().IniFile);
  const int copies = argc > 2 ? std::atoi(argv[2]) : 2;
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();

  // The gap between two turns of the event loop, measured with a timer that fires on every turn.
  QElapsedTimer clock;
  qint64 last = 0, worst = 0;
  QTimer tick;
  tick.setInterval(0);
  QObject::connect(&tick, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    if (last) worst = std::max(worst, now - last);
    last = now;
  });
  const std::vector<std::string> sources(static_cast<size_t>(copies), argv[1]);
  QElapsedTimer scan;
  clock.start();
  scan.start();
  tick.start();
  w.readCommandLine(sources);
  QEventLoop loop;
  QObject::connect(&w.driver(), &ScanDriver::finished, &loop, &QEventLoop::quit);
  loop.exec();
  tick.stop();
  const double scanMs = scan.nsecsElapsed() / 1e6;

  size_t folders = 0;
  for (uint32_t n : w.tree().preorder()) folders += w.tree().isFolder(n);

  QElapsedTimer t;
  t.start();
  Q_EMIT w.view().header()->sectionClicked(1);  // the size title, as a click delivers it
  QCoreApplication::processEvents();
  const double sortMs = t.nsecsElapsed() / 1e6;

  t.restart();
  w.cbrReport_Execute(25);  // expand all
  QCoreApplication::processEvents();
  const double expandMs = t.nsecsElapsed() / 1e6;

  std::printf("report rows: %zu folders\n", folders);
  std::printf("reading: %.0f ms; longest stall of the user-interface thread: %.1f ms\n", scanMs,
              worst / 1e6);
  std::printf("title-click sort: %.0f ms; expand all: %.0f ms\n", sortMs, expandMs);
  return 0;
}
