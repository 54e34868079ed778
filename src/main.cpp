// Quorlane: shows where the space on a disk has gone.
//
// This program runs without a display: the command line, an export and the silent run. The
// window lives in a library of its own (app/WindowMain.cpp), loaded only when a window is
// wanted, so that the runs without one start without the forty-odd libraries of the desktop.

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QDateTime>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "app/CommandLine.h"
#include "app/CompareRun.h"
#include "app/Settings.h"
#include "app/SilentRun.h"
#include "app/Startup.h"
#include "app/TreemapRun.h"
#include "failure/FailureReport.h"
#include "json/JsonExport.h"
#include "json/Zstd.h"
#include "output/OutputFile.h"
#include "scan/FolderWalk.h"
#include "support/Allocator.h"
#include "support/Globals.h"
#include "ui/PdfPage.h"

using namespace ql;

namespace {

// Calls `entry` of the window library: beside the program in the build, in lib/quorlane once
// installed.
int runWindow(const char* entryName, int argc, char** argv) {
  std::string dir(4096, '\0');
  const ssize_t n = ::readlink("/proc/self/exe", dir.data(), dir.size());
  dir.resize(n > 0 ? static_cast<size_t>(n) : 0);
  const size_t slash = dir.rfind('/');
  dir.resize(slash == std::string::npos ? 0 : slash);
  std::string why;
  for (const char* place : {"/libquorlane_window.so", "/../lib/quorlane/libquorlane_window.so"}) {
    void* library = ::dlopen((dir + place).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      if (why.empty()) why = ::dlerror();
      continue;
    }
    using Entry = int (*)(int, char**);
    if (auto entry = reinterpret_cast<Entry>(::dlsym(library, entryName))) return entry(argc, argv);
    why = ::dlerror();
  }
  std::fprintf(stderr, "quorlane: the window cannot be loaded: %s\n", why.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  tuneAllocator();
  // The preview's PDF helper (ui/PdfPage.h): the window starts it, nobody else.
  if (argc > 1 && std::strcmp(argv[1], kRenderPdfPageOption) == 0)
    return runWindow("quorlane_render_pdf_page", argc, argv);
  globals().StartTime = QDateTime::currentDateTime();
  // Read before anything else: a wrong command line touches neither a window nor the settings.
  const ParsedCommandLine command = parseArguments(argc, argv);
  switch (command.mode) {
    case ParsedCommandLine::Help:
      std::fputs(usageText().toLocal8Bit().constData(), stdout);
      return 0;
    case ParsedCommandLine::Version:
      std::printf("quorlane %s\n", QUORLANE_VERSION);
      return 0;
    case ParsedCommandLine::UsageError:
      std::fprintf(
          stderr,
          "quorlane: %s\nUsage: quorlane [FOLDER]... | quorlane -s[LEVELS] REPORT FOLDER... | "
          "quorlane --export FILE FOLDER (quorlane --help tells more)\n",
          command.error.c_str());
      return 2;
    case ParsedCommandLine::Export: {
      // No window, no settings: the walk writes as it goes. A closed pipe is a write error. An
      // interrupt removes the temporary file and ends the run at once, on a thread of its own:
      // the walk may be blocked in the kernel on a dead mount, and is not waited for.
      std::signal(SIGPIPE, SIG_IGN);
      OutputFile::removeTemporaryOnInterrupt(true);
      int threads = FolderWalk::defaultThreads();
      if (const char* forced = std::getenv("QUORLANE_THREADS"); forced && std::atoi(forced) > 0)
        threads = std::atoi(forced);
      const ExportResult r = exportJsonToFile(command.sources.front(), command.exportFile, threads,
                                              nullptr, command.excludes);
      if (!r.ok) {
        std::fprintf(stderr, "quorlane: %s\n", r.error.c_str());
        return 1;
      }
      if (!command.snapshot) return 0;
      // The limits of the store are the window's options. A compressed export in a file is the
      // snapshot already and is copied; any other is walked once more.
      QCoreApplication app(argc, argv);
      initFrame(command.translationMode);
      MainOptions o;
      OptionenLadenMain(o);
      struct stat st {};
      const bool copy = isZstdName(command.exportFile) && command.exportFile != "-" &&
                        ::stat(command.exportFile.c_str(), &st) == 0 && S_ISREG(st.st_mode);
      const bool kept =
          copy ? keepSnapshots(command.sources, o, command.excludes, nullptr, command.exportFile,
                               static_cast<int64_t>(r.bytes), static_cast<int64_t>(r.files))
               : keepSnapshots(command.sources, o, command.excludes, nullptr);
      return kept ? 0 : 1;
    }
    case ParsedCommandLine::Snapshots:
      return listSnapshotsRun(command);
    case ParsedCommandLine::Window:
      return runWindow("quorlane_window_main", argc, argv);
    case ParsedCommandLine::Treemap:
      // Drawing needs Qt's painting, which lives with the window; it draws with no display.
      return runWindow("quorlane_treemap_main", argc, argv);
    case ParsedCommandLine::Types: {
      std::signal(SIGPIPE, SIG_IGN);
      OutputFile::removeTemporaryOnInterrupt(true);
      QCoreApplication app(argc, argv);
      initFrame(command.translationMode);
      return runTypes(command);
    }
    case ParsedCommandLine::Silent:
      break;
  }

  if (!osSupported()) {
    std::fputs("quorlane: OS not supported\n", stderr);
    return 1;
  }
  // A restart (after a change of language) is the window's: it waits for the old window itself.
  // The silent run needs no local socket, and so never loads the network library.
  // The joined text is for the failure report alone.
  setFailureCommandLine(QString::fromLocal8Bit(joinArguments(argc, argv).c_str()));
  QCoreApplication app(argc, argv);
  initFrame(command.translationMode);
  if (command.comparing) return runCompare(command);
  return runSilent(command);
}
