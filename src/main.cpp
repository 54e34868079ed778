// Quorlane: shows where the space on a disk has gone.

#include <QApplication>
#include <QCoreApplication>
#include <QDateTime>
#include <QMessageBox>
#include <cstdio>
#include <cstring>
#include <malloc.h>

#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/SilentRun.h"
#include "app/Startup.h"
#include "failure/FailureReport.h"
#include "failure/FatalSignals.h"
#include "failure/frmFehler.h"
#include "lang/TL.h"
#include "ui/MainWindow.h"

using namespace ql;

int main(int argc, char** argv) {
  // The walk's threads allocate little and briefly: a pool of their own for each would only
  // strand memory.
  mallopt(M_ARENA_MAX, 2);
  globals().StartTime = QDateTime::currentDateTime();
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::fputs(usageText().toLocal8Bit().constData(), stdout);
      return 0;
    }
    if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("quorlane %s\n", QUORLANE_VERSION);
      return 0;
    }
  }
  const std::string commandLine = joinArguments(argc, argv);
  const bool silent = isSilentCommand(commandLine);

  if (!osSupported()) {
    if (silent) {
      std::fputs("quorlane: OS not supported\n", stderr);
    } else {
      QApplication app(argc, argv);
      QMessageBox::warning(nullptr, QStringLiteral("Quorlane"), QStringLiteral("OS not supported"));
    }
    return 1;
  }
  if (commandLine == "-RESTART") restartWait();
  setFailureCommandLine(QString::fromLocal8Bit(commandLine.c_str()));

  // The frame: data folder and settings, then the language, before anything shows a text.
  auto initFrame = [&commandLine] {
    InitMain(QCoreApplication::applicationDirPath());
    installFatalSignalHandlers();
    Init_Sprache(QString(), QStringLiteral("QuorlaneTL.txt"), true,
                 QString::fromLocal8Bit(commandLine.c_str()));
    Init_Textbausteine();
  };

  if (silent) {
    QCoreApplication app(argc, argv);
    initFrame();
    return runSilent(commandLine);
  }

  QApplication app(argc, argv);
  initFrame();
  installFailureDialog();
  MainWindow window;
  std::vector<std::string> sources;
  for (int i = 1; i < argc; ++i)
    if (argv[i][0] != '-') sources.emplace_back(argv[i]);
  window.setStartSources(std::move(sources));  // read once the window is on the screen
  window.show();
  return app.exec();
}
