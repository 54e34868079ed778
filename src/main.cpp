// Quorlane: shows where the space on a disk has gone.

#include <QApplication>
#include <QCoreApplication>
#include <QDateTime>
#include <QMessageBox>
#include <csignal>
#include <cstdio>

#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/SilentRun.h"
#include "app/SingleInstance.h"
#include "app/Startup.h"
#include "failure/FailureReport.h"
#include "failure/FatalSignals.h"
#include "failure/frmFehler.h"
#include "import/JsonExport.h"
#include "scan/FolderWalk.h"
#include "lang/TL.h"
#include "ui/MainWindow.h"
#include "support/Allocator.h"
#include "ui/frmInfo.h"

using namespace ql;

int main(int argc, char** argv) {
  tuneAllocator();
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
      // No window, no settings: the walk writes as it goes. A closed pipe is a write error; an
      // interrupt stops the walk, so that no temporary file is left behind.
      std::signal(SIGPIPE, SIG_IGN);
      for (const int sig : {SIGINT, SIGTERM, SIGHUP})
        std::signal(sig, [](int) { StopWord.store(FolderWalk::kStop); });
      int threads = FolderWalk::defaultThreads();
      if (const char* forced = std::getenv("QUORLANE_THREADS"); forced && std::atoi(forced) > 0)
        threads = std::atoi(forced);
      const ExportResult r = exportJsonToFile(command.sources.front(), command.exportFile, threads, &StopWord);
      if (r.ok) return 0;
      std::fprintf(stderr, "quorlane: %s\n", r.error.c_str());
      return 1;
    }
    case ParsedCommandLine::Window:
    case ParsedCommandLine::Silent:
      break;
  }
  const bool silent = command.mode == ParsedCommandLine::Silent;

  if (!osSupported()) {
    if (silent) {
      std::fputs("quorlane: OS not supported\n", stderr);
    } else {
      QApplication app(argc, argv);
      QMessageBox::warning(nullptr, QStringLiteral("Quorlane"), QStringLiteral("OS not supported"));
    }
    return 1;
  }
  if (command.restart) restartWait();
  // The joined text is for the failure report alone.
  setFailureCommandLine(QString::fromLocal8Bit(joinArguments(argc, argv).c_str()));

  // The frame: data folder and settings, then the language, before anything shows a text. A
  // crash or an uncaught exception on the way is reported; its log is known after InitMain.
  auto initFrame = [&command] {
    installFatalSignalHandlers();
    InitMain(QCoreApplication::applicationDirPath());
    refreshFatalSignalReport();
    Init_Sprache(QString(), QStringLiteral("QuorlaneTL.txt"), true,
                 command.translationMode ? QStringLiteral("-TLMODUS") : QString());
    Init_Textbausteine();
    firstStartEntry();
  };

  if (silent) {
    QCoreApplication app(argc, argv);
    initFrame();
    return runSilent(command);
  }

  QApplication app(argc, argv);
  // Before the frame, so that a failure while it starts (a damaged text table under -TLMODUS,
  // say) shows the dialog too.
  installFailureDialog();
  app.setWindowIcon(programIcon());
  initFrame();
  // Declared before the window, so the socket goes only after the window: a restart waits for it.
  SingleInstance instance;
  if (const int status = claimOrHandOver(instance, command); status >= 0) return status;
  MainWindow window;
  window.setStartSources(command.sources);  // read once the window is on the screen
  window.setStartImports(command.imports);
  window.show();
  return app.exec();
}
