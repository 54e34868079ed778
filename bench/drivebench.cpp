// Measures how soon the drive table is complete when one of 30 mounts hangs: every other row
// must have its sizes well before the hung one's time limit runs out, and the event loop must
// keep turning meanwhile.
//
// usage: QT_QPA_PLATFORM=offscreen quorlane_drivebench [ROUNDS]
// Each round rebuilds the table (as the refresh command does) and prints the time until 29
// rows are filled and the longest gap between two turns of the event loop. Exit status 1 when
// a round takes 100 ms or more.

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTimer>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "support/Globals.h"
#include "ui/DrivePane.h"

using namespace ql;

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  globals().IniFile = QDir::tempPath() + QStringLiteral("/quorlane-drivebench.ini");
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  constexpr int kMounts = 30;

  // The hung mount blocks until the program ends; the others ask the real file system.
  static std::mutex m;
  static std::condition_variable never;
  StatvfsFn stat = [](const char* path, struct statvfs* st) {
    if (std::string(path) == "/mnt/hung") {
      std::unique_lock l(m);
      never.wait(l, [] { return false; });
    }
    return ::statvfs("/", st);
  };
  Guard guard;
  DrivePane pane(guard, MainOptions{}, stat);
  pane.setSettingsFile(globals().IniFile);
  pane.setMountSource([] {
    std::vector<MountEntry> mounts;
    for (int i = 0; i < kMounts; ++i) {
      MountEntry e;
      e.mountPoint = i == 7 ? "/mnt/hung" : "/mnt/disk" + std::to_string(i);
      e.fsType = i == 7 ? "nfs" : "ext4";
      e.source = "bench";
      e.root = "/";
      mounts.push_back(e);
    }
    return mounts;
  });
  pane.resize(1000, 700);
  pane.show();
  QCoreApplication::processEvents();

  const auto filled = [&] {
    int n = 0;
    for (int r = 0; r < pane.rowCount(); ++r) n += pane.model().driveRow(r).sizes.known ? 1 : 0;
    return n;
  };
  bool ok = true;
  for (int round = 0; round < rounds; ++round) {
    QElapsedTimer clock;
    qint64 last = 0, worst = 0;
    QTimer tick;
    tick.setInterval(0);
    QObject::connect(&tick, &QTimer::timeout, [&] {
      worst = std::max(worst, clock.elapsed() - last);
      last = clock.elapsed();
    });
    clock.start();
    tick.start();
    pane.cbrDrives_Execute(cmd::drives::Refresh);
    const qint64 call = clock.elapsed();
    while (filled() < kMounts - 1 && clock.elapsed() < 2000) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const qint64 took = clock.elapsed();
    tick.stop();
    const bool hungEmpty = !pane.model().driveRow(7).sizes.known;
    std::printf("round %d: %d of %d rows filled in %lld ms (the rebuild itself %lld ms), longest event-loop gap %lld ms, "
                "hung row %s\n",
                round + 1, filled(), kMounts, static_cast<long long>(took), static_cast<long long>(call),
                static_cast<long long>(worst),
                hungEmpty ? "empty" : "FILLED");
    ok = ok && took < 100 && hungEmpty && filled() == kMounts - 1;
  }
  std::printf("%s\n", ok ? "drive table complete within 100 ms" : "drive table too slow");
  std::fflush(stdout);
  std::_Exit(ok ? 0 : 1);  // the hung worker is never waited for
}
