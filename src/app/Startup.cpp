#include "app/Startup.h"

#include <QDir>
#include <QStandardPaths>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "app/Globals.h"
#include "lang/TL.h"

namespace ql {

bool osSupported() {
  struct statx sx;
  return statx(AT_FDCWD, "/", AT_STATX_DONT_SYNC, STATX_SIZE, &sx) == 0 || errno != ENOSYS;
}

QString instanceLockName() {
  return globals().Apptitle + QStringLiteral("_APPLICATION_MUTEX_") + QString::number(::getuid());
}

bool instanceRunning() {
  // The window listens on a local socket of this name in the temporary folder.
  const QByteArray path = QFile::encodeName(QDir::tempPath() + QLatin1Char('/') + instanceLockName());
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (static_cast<size_t>(path.size()) >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path.constData(), static_cast<size_t>(path.size()));
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool alive = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::close(fd);
  return alive;
}

void restartWait(int limitMs, int pauseMs) {
  const auto start = std::chrono::steady_clock::now();
  while (instanceRunning()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(limitMs)) _exit(0);
  }
}

void InitMain(const QString& programFolder) {
  Globals& g = globals();
  g.Errcount = 0;
  g.DataFolder = programFolder;
  g.Datapath = programFolder;
  g.UpdateFolder = programFolder;

  // $XDG_CONFIG_HOME/Quorlane, else ~/.config/Quorlane; beside the program when neither works.
  QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
  if (base.isEmpty() || !QDir::isAbsolutePath(base)) {
    const QString home = QDir::homePath();
    base = home.isEmpty() || home == QLatin1String("/") ? QString() : home + QStringLiteral("/.config");
  }
  QString folder;
  if (!base.isEmpty()) {
    folder = base + QStringLiteral("/Quorlane");
    if (!QDir().mkpath(folder)) folder.clear();
  }
  if (folder.isEmpty()) folder = programFolder;
  g.DataFolder = folder;
  g.Datapath = folder;
  g.UpdateFolder = folder;
  g.IniFile = folder + QStringLiteral("/Quorlane.ini");
  g.tickInterval = 1500;
}

QString usageText() {
  return QStringLiteral(
      "Usage: quorlane [FOLDER]...\n"
      "       quorlane -s[LEVELS] REPORT FOLDER...\n"
      "\n"
      "Shows where the space on a disk has gone: each FOLDER is walked once and shown as a\n"
      "tree of folders with sizes, percentages and file and folder counts.\n"
      "\n"
      "  -s[LEVELS] REPORT FOLDER...  silent run: walk the folders and write the report with\n"
      "                               no window. REPORT ending in .txt gives a column text,\n"
      "                               any other name a semicolon-separated table (CSV).\n"
      "                               LEVELS, digits right after -s, is how many folder levels\n"
      "                               below each source are written; none or 0 writes all.\n"
      "  --                           every later argument is a folder, even one that\n"
      "                               begins with \"-\"\n"
      "  -TLMODUS                     read the texts from QuorlaneTL.txt beside the program\n"
      "  --help                       show this text and exit\n"
      "  --version                    show the version and exit\n"
      "\n"
      "Each argument is one folder, exactly as given.\n"
      "Settings and logs: $XDG_CONFIG_HOME/Quorlane (default ~/.config/Quorlane).\n"
      "\n"
      "Exit status:\n"
      "  0  the report was written (silent run), or the window was closed\n"
      "  1  a failure: the report was not written, a folder could not be read, or the walk\n"
      "     failed (running out of file descriptors, say)\n"
      "  2  a usage error: an unknown option, or -s without a report or a folder\n");
}

}  // namespace ql
