// Measures the window's responsiveness: the longest time the user-interface thread goes without
// serving its event loop while a source is read, and how long a title-click sort and expanding
// every folder take on the resulting report.
//
// usage: QT_QPA_PLATFORM=offscreen quorlane_uibench TREE [COPIES] [FLAT]
//        QT_QPA_PLATFORM=offscreen quorlane_uibench --import EXPORT
//        QT_QPA_PLATFORM=offscreen quorlane_uibench --compare OLD NEW
// The second form times the window's import of an export, with the same stall measurement;
// run both forms under /usr/bin/time to compare the peak memory of a scan and of an import.
// The tree is read COPIES times (default 2) as separate sources, so a 58,000-folder tree gives
// a report of more than 100,000 folders; the largest-files list is fed during the read, with
// its largest count (999). Then FLAT, a folder of 100,000 files (made when missing; default
// /tmp/quorlane-flat100k), is shown in the file list and sorted by every column; "-" leaves
// that out.
// The third form imports NEW as the report's source and times its comparison with OLD (both
// exports): from the choice to the change columns filled, with the stall and the memory it adds.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QSpinBox>
#include <QTimer>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "report/ReportCommands.h"
#include "support/Allocator.h"
#include "support/Globals.h"
#include "ui/CompareBaseline.h"
#include "ui/ImportedSources.h"
#include "treemap/TreemapPainter.h"
#include "ui/CommandIds.h"
#include "ui/MainWindow.h"

using namespace ql;

namespace {

// The gap between two turns of the event loop, measured with a timer that fires every millisecond.
struct StallClock {
  QElapsedTimer clock;
  qint64 last = 0, worst = 0;
  QTimer tick;
  StallClock() {
    tick.setInterval(1);  // every millisecond: fine enough, and it leaves the cores to the walk
    QObject::connect(&tick, &QTimer::timeout, [this] {
      const qint64 now = clock.nsecsElapsed();
      if (last) worst = std::max(worst, now - last);
      last = now;
    });
  }
  void start() {
    last = worst = 0;
    clock.start();
    tick.start();
  }
};

// The resident high-water mark so far, in MB, to tell which stage sets the peak.
long peakMb() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  long kb = -1;
  while (std::fgets(line, sizeof line, f))
    if (std::sscanf(line, "VmHWM: %ld kB", &kb) == 1) break;
  std::fclose(f);
  return kb / 1024;
}

int importBench(const std::string& file) {
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();
  StallClock stalls;
  QElapsedTimer t;
  QEventLoop loop;
  QString error;
  QObject::connect(&w.session().imports(), &ImportedSources::finished, &loop, [&](uint32_t, const QString& e) {
    error = e;
    loop.quit();
  });
  stalls.start();
  t.start();
  w.session().importFile(file);
  loop.exec();
  QCoreApplication::processEvents();  // the tree is drawn
  const double ms = t.nsecsElapsed() / 1e6;
  stalls.tick.stop();
  if (!error.isEmpty()) {
    std::fprintf(stderr, "import failed: %s\n", qPrintable(error));
    return 1;
  }
  size_t folders = 0;
  for (uint32_t n : w.session().tree().preorder()) folders += w.session().tree().isFolder(n);
  std::printf("import: %zu folders shown after %.0f ms; longest stall of the user-interface thread: %.1f ms\n",
              folders, ms, stalls.worst / 1e6);
  return 0;
}

int compareBench(const std::string& oldFile, const std::string& newFile) {
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();
  QEventLoop loop;
  QString error;
  QObject::connect(&w.session().imports(), &ImportedSources::finished, &loop,
                   [&](uint32_t, const QString& e) {
                     error = e;
                     loop.quit();
                   });
  w.session().importFile(newFile);
  loop.exec();
  if (!error.isEmpty()) {
    std::fprintf(stderr, "import failed: %s\n", qPrintable(error));
    return 1;
  }
  QCoreApplication::processEvents();
  const long before = peakMb();
  ReportPane& pane = w.reportPane();
  QObject::connect(&pane, &ReportPane::compared, &loop, &QEventLoop::quit);
  QObject::connect(&pane.baseline(), &CompareBaseline::loaded, &loop, [&](const QString& e) {
    if (!e.isEmpty()) {
      error = e;
      loop.quit();
    }
  });
  StallClock stalls;
  QElapsedTimer t;
  stalls.start();
  t.start();
  pane.compareWith(oldFile);
  loop.exec();
  QCoreApplication::processEvents();  // the columns are drawn
  const double ms = t.nsecsElapsed() / 1e6;
  stalls.tick.stop();
  if (!error.isEmpty()) {
    std::fprintf(stderr, "compare failed: %s\n", qPrintable(error));
    return 1;
  }
  size_t changed = 0, rows = 0;
  const ReportTree& tree = w.session().tree();
  for (uint32_t n : tree.preorder()) {
    ++rows;
    changed += pane.baseline().changeOf(n) != 0;
  }
  std::printf("compare: %zu of %zu rows changed, shown after %.0f ms; longest stall: %.1f ms\n",
              changed, rows, ms, stalls.worst / 1e6);
  std::printf("peak memory: %ld MB with the report, %ld MB after the comparison\n", before,
              peakMb());
  return 0;
}

}  // namespace

// The treemap pane on the tree read: the source drawn whole at 1600x1000, a folder of 100,000
// files drawn the same way, the pane's own round trip, and the memory with the pane shown.
int treemapBench(MainWindow& w, const std::string& tree, const std::string& flat, double scanMs,
                 qint64 scanWorst, long reportPeak) {
  auto bestOf3 = [](auto f) {
    double best = 1e18;
    for (int i = 0; i < 3; ++i) {
      QElapsedTimer t;
      t.start();
      f();
      best = std::min(best, t.nsecsElapsed() / 1e6);
    }
    return best;
  };
  auto waitFor = [](auto done) {
    while (!done()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
  };
  waitFor([&] { return w.session().treemapAt(tree).tree != nullptr; });
  const TreemapPlace place = w.session().treemapAt(tree);
  const double rootMs = bestOf3([&] { paintTreemap(layoutTreemap(*place.tree, 1600, 1000)); });
  // The folder of 100,000 files, read as a second source.
  QEventLoop loop;
  QObject::connect(&w.session().driver(), &ScanDriver::finished, &loop, &QEventLoop::quit);
  w.session().readSources({flat});
  loop.exec();
  waitFor([&] { return w.session().treemapAt(flat).tree != nullptr; });
  const TreemapPlace big = w.session().treemapAt(flat);
  const double zoomMs =
      bestOf3([&] { paintTreemap(layoutTreemap(*big.tree, 1600, 1000, big.folder())); });
  // The pane itself, shown on the source; the user-interface thread's longest wait meanwhile.
  w.resize(2200, 1600);
  w.cbrMain().setChecked(cmd::main::ShowTreemap, true);
  w.cbrMain().setChecked(cmd::main::ShowTypes, true);
  w.showPanes();
  StallClock stalls;
  stalls.start();
  QElapsedTimer t;
  t.start();
  TreemapPane& pane = w.treemapPane();
  pane.showFolder(tree);
  waitFor([&] { return !pane.drawing() && pane.layout(); });
  const double paneMs = t.nsecsElapsed() / 1e6;
  t.restart();
  waitFor([&] { return !w.typesPane().counting() && w.typesPane().model().rowCount() > 0; });
  const double typesMs = t.nsecsElapsed() / 1e6;
  stalls.tick.stop();
  std::printf("reading: %.0f ms; longest stall: %.1f ms; peak %ld MB after the report\n", scanMs,
              scanWorst / 1e6, reportPeak);
  std::printf("treemap of the source at 1600x1000 (layout and picture, best of 3): %.0f ms\n",
              rootMs);
  std::printf("treemap of a folder of %lld files at 1600x1000 (best of 3): %.0f ms\n",
              static_cast<long long>(big.tree->folders[big.folder()].fileCount), zoomMs);
  std::printf("pane at %dx%d: picture after %.0f ms, types %.0f ms later; longest stall %.1f ms\n",
              pane.canvas().width(), pane.canvas().height(), paneMs, typesMs, stalls.worst / 1e6);
  std::printf("treemap trees kept: %.1f MB; peak memory with the panes shown: %ld MB\n",
              w.session().treemapBytes() / 1048576.0, peakMb());
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s TREE [COPIES]\n", argv[0]);
    return 2;
  }
  tuneAllocator();  // as the program itself does
  QApplication app(argc, argv);
  globals().IniFile = QDir::tempPath() + QStringLiteral("/quorlane-uibench.ini");
  QFile::remove(globals().IniFile);
  if (QByteArray(argv[1]) == "--import" && argc > 2) return importBench(argv[2]);
  if (QByteArray(argv[1]) == "--compare" && argc > 3) return compareBench(argv[2], argv[3]);
  const int copies = argc > 2 ? std::atoi(argv[2]) : 2;
  MainWindow w;
  w.show();
  QCoreApplication::processEvents();
  w.topPane().findChild<QSpinBox*>()->setValue(999);

  StallClock stalls;
  const std::vector<std::string> sources(static_cast<size_t>(copies), argv[1]);
  QElapsedTimer scan;
  scan.start();
  stalls.start();
  w.session().readSources(sources);
  QEventLoop loop;
  QObject::connect(&w.session().driver(), &ScanDriver::finished, &loop, &QEventLoop::quit);
  loop.exec();
  stalls.tick.stop();
  const qint64 scanWorst = stalls.worst;
  const double scanMs = scan.nsecsElapsed() / 1e6;

  size_t folders = 0;
  for (uint32_t n : w.session().tree().preorder()) folders += w.session().tree().isFolder(n);

  QElapsedTimer t;
  t.start();
  Q_EMIT w.reportPane().view().header()->sectionClicked(1);  // the size title, as a click delivers it
  QCoreApplication::processEvents();
  const double sortMs = t.nsecsElapsed() / 1e6;

  t.restart();
  w.reportPane().cbrReport_Execute(25);  // expand all
  QCoreApplication::processEvents();
  const double expandMs = t.nsecsElapsed() / 1e6;
  const long reportPeak = peakMb();

  // The file list: a folder of 100,000 files read, then sorted by each column in turn.
  const std::string flat = argc > 3 ? argv[3] : "/tmp/quorlane-flat100k";
  if (flat == "--treemap")
    return treemapBench(w, argv[1], argc > 4 ? argv[4] : "/tmp/quorlane-flat100k", scanMs,
                        scanWorst, reportPeak);
  if (flat == "-") {  // the report alone, for its peak memory
    std::printf("report rows: %zu folders; reading: %.0f ms; longest stall: %.1f ms\n", folders, scanMs,
                scanWorst / 1e6);
    return 0;
  }
  if (::mkdir(flat.c_str(), 0755) == 0) {
    for (int i = 0; i < 100000; ++i) {
      const std::string f = flat + "/file" + std::to_string(i * 7919 % 100003) + (i % 3 ? ".txt" : ".jpg");
      const int fd = ::open(f.c_str(), O_CREAT | O_WRONLY, 0644);
      if (fd >= 0 && ::ftruncate(fd, i % 5000) == 0) ::close(fd);
    }
  }
  w.cbrMain().setChecked(307, false);
  w.cbrMain().setChecked(306, true);
  w.showPanes();
  FileListPane& files = w.filesPane();
  stalls.start();
  t.restart();
  files.readFolder(flat, true);
  while (files.reading()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  QCoreApplication::processEvents();
  const double listMs = t.nsecsElapsed() / 1e6;
  stalls.tick.stop();
  const qint64 listWorst = stalls.worst;
  const long listPeak = peakMb();
  double sortWorst = 0;
  for (int c = 0; c < files.model().columnCount(); ++c) {
    t.restart();
    Q_EMIT files.view().header()->sectionClicked(c);
    QCoreApplication::processEvents();
    sortWorst = std::max(sortWorst, t.nsecsElapsed() / 1e6);
  }

  std::printf("report rows: %zu folders\n", folders);
  std::printf("reading: %.0f ms; longest stall of the user-interface thread: %.1f ms\n", scanMs,
              scanWorst / 1e6);
  std::printf("title-click sort: %.0f ms; expand all: %.0f ms\n", sortMs, expandMs);
  std::printf("largest files (N = %d): %d rows\n", w.topPane().limit(), w.topPane().model().rowCount());
  std::printf("window read per source: %.0f ms\n", scanMs / copies);
  std::printf("file list of %d files: shown after %.0f ms, longest stall %.1f ms; slowest column sort: %.0f ms\n",
              files.model().rowCount(), listMs, listWorst / 1e6, sortWorst);
  std::printf("peak memory: %ld MB after the report, %ld MB with the file list shown, %ld MB after its sorts\n",
              reportPeak, listPeak, peakMb());
  return 0;
}
