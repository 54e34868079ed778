#include "app/Startup.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "app/CommandLine.h"
#include "app/ExplorerEntry.h"
#include "support/Globals.h"
#include "support/Version.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"
#include "failure/FatalSignals.h"
#include "lang/TL.h"

namespace ql {

bool osSupported() {
  struct statx sx;
  return statx(AT_FDCWD, "/", AT_STATX_DONT_SYNC, STATX_SIZE, &sx) == 0 || errno != ENOSYS;
}

void InitMain(const QString& programFolder) {
  Globals& g = globals();
  g.Errcount = 0;
  // Three numbers, as the window, the about box and the update dialog show it.
  g.AppVersion = threePartVersion(g.AppVersion);
  g.DataFolder = programFolder;
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
  g.UpdateFolder = folder;
  g.IniFile = folder + QStringLiteral("/Quorlane.ini");
  g.tickInterval = 1500;
}

void firstStartEntry() {
  const QString optionen = QStringLiteral("Optionen"), key = QStringLiteral("Kontextmenu");
  if (GetSettings(optionen, key, QStringLiteral("99")) != QLatin1String("99")) return;
  StoreSettings(optionen, key, 1);
  SetExplorerEntry(1);
}

QString usageText() {
  return QStringLiteral(
      "Usage: quorlane [FOLDER]... [--import FILE]...\n"
      "       quorlane -s[LEVELS] REPORT [--snapshot] FOLDER...\n"
      "       quorlane -s[LEVELS] REPORT --import FILE...\n"
      "       quorlane -s[LEVELS] REPORT --compare OLD NEW\n"
      "       quorlane --export FILE [--snapshot] FOLDER\n"
      "       quorlane --snapshots FOLDER\n"
      "       quorlane --treemap PICTURE [--size WIDTHxHEIGHT] [--types TABLE] FOLDER\n"
      "       quorlane --treemap PICTURE [--size WIDTHxHEIGHT] --compare OLD NEW\n"
      "       quorlane --types TABLE FOLDER\n"
      "\n"
      "Shows where the space on a disk has gone: each FOLDER is walked once and shown as a\n"
      "tree of folders with sizes, percentages and file and folder counts.\n"
      "\n"
      "  -s[LEVELS] REPORT FOLDER...  silent run: walk the folders and write the report with\n"
      "                               no window. REPORT ending in .txt gives a column text,\n"
      "                               any other name or \"-\" (standard output) a\n"
      "                               semicolon-separated table (CSV).\n"
      "                               LEVELS, digits right after -s, is how many folder levels\n"
      "                               below each source are written; none or 0 writes all.\n"
      "  --import FILE                read a JSON disk-usage export (format 1.2, as written by\n"
      "                               --export) instead of walking a folder; with -s the report\n"
      "                               is written from it. May be given more than once.\n"
      "  --compare OLD NEW            with -s: compare two measurements of a folder, each an\n"
      "                               export or a folder walked now. One row per folder of\n"
      "                               either: path, size old, size new, change, files old,\n"
      "                               files new; cells of a side without the folder stay empty.\n"
      "                               With --treemap: draw NEW, each file coloured by the\n"
      "                               growth of its folder's own files since OLD.\n"
      "  --export FILE FOLDER         walk FOLDER and write it as a JSON disk-usage export\n"
      "                               (format 1.2) to FILE, \"-\" for standard output. FILE is\n"
      "                               replaced only once the export is complete. Folders on\n"
      "                               other mounts are marked and not entered; links are not\n"
      "                               followed. QUORLANE_THREADS sets the number of threads.\n"
      "  --snapshot                   with -s or --export: also keep the measurement of each\n"
      "                               folder as a snapshot (a compressed export) in\n"
      "                               $XDG_DATA_HOME/Quorlane/snapshots (default\n"
      "                               ~/.local/share/Quorlane/snapshots), within the limits\n"
      "                               of the options (the last 12 a folder, 2000 MB in all)\n"
      "  --snapshots FOLDER           list the snapshots kept of FOLDER, newest first, one a\n"
      "                               line: time, bytes, files, file. Each file can be read\n"
      "                               with --import or given to --compare.\n"
      "  --treemap PICTURE FOLDER     walk FOLDER and draw it as a treemap, each file a\n"
      "                               rectangle as large as its bytes, coloured by its kind;\n"
      "                               PNG, or SVG for a name ending in .svg. No display needed.\n"
      "  --size WIDTHxHEIGHT          the picture's size in pixels (default 1600x1000)\n"
      "  --types TABLE FOLDER         walk FOLDER and write a CSV table of its extensions: files,\n"
      "                               bytes and percent, largest first (\"none\" for names\n"
      "                               without one). Both take QUORLANE_THREADS and the options\n"
      "                               --size, --links and --exclude below.\n"
      "  --size logical|allocated     count a file's length (st_size, the default) or the\n"
      "                               space it takes on disk (st_blocks x 512)\n"
      "  --links each|once            count every name of a hard-linked file (the default), or\n"
      "                               the file once in each folder that holds a name of it, as\n"
      "                               du -s does\n"
      "  --exclude PATTERN            leave out what matches the shell pattern: the name, or the\n"
      "                               path below the source when PATTERN holds a \"/\"; shown\n"
      "                               as an empty row, never entered. May be given more than "
      "once.\n"
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
      "  0  the report, picture or table was written, or the window was closed\n"
      "  1  a failure: the report was not written, a folder could not be read, or the walk\n"
      "     failed (running out of file descriptors, say)\n"
      "  1  (--export) the folder could not be opened, or the file could not be written\n"
      "  2  a usage error: an unknown option or value, or -s without a report or a folder\n");
}

void initFrame(bool translationMode) {
  installFatalSignalHandlers();
  InitMain(QCoreApplication::applicationDirPath());
  refreshFatalSignalReport();
  FailureReport(Init_Sprache(QString(), QStringLiteral("QuorlaneTL.txt"), true,
                             translationMode ? QStringLiteral("-TLMODUS") : QString()));
  initWebHost();
  firstStartEntry();
}

}  // namespace ql
