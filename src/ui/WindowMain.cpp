// The window's start, in the library the program loads when a window is wanted. It reads the
// command line again with its own copy of the program's code; nothing is shared with the
// loader but the process.

#include <QApplication>
#include <QGuiApplication>
#include <csignal>
#include <cstdio>
#include <QDateTime>
#include <QMessageBox>

#include "app/CommandLine.h"
#include "support/Globals.h"
#include "app/SingleInstance.h"
#include "app/Startup.h"
#include "app/TreemapRun.h"
#include "output/OutputFile.h"
#include "treemap/TreemapGrowth.h"
#include "treemap/TreemapPainter.h"
#include "failure/FailureReport.h"
#include "ui/dialogs/frmFehler.h"
#include "ui/MainWindow.h"
#include "ui/PdfPage.h"
#include "ui/PreviewPane.h"
#include "ui/TranslateControls.h"
#include "lang/TL.h"
#include "ui/dialogs/frmInfo.h"

extern "C" __attribute__((visibility("default"))) int quorlane_window_main(int argc, char** argv) {
  using namespace ql;
  globals().StartTime = QDateTime::currentDateTime();
  const ParsedCommandLine command = parseArguments(argc, argv);
  if (!osSupported()) {
    QApplication app(argc, argv);
    QMessageBox::warning(nullptr, QStringLiteral("Quorlane"), QStringLiteral("OS not supported"));
    return 1;
  }
  if (command.restart) restartWait();
  // The joined text is for the failure report alone.
  setFailureCommandLine(QString::fromLocal8Bit(joinArguments(argc, argv).c_str()));

  QApplication app(argc, argv);
  // The preview draws PDF pages in this program, started again (ui/PdfPage.h).
  app.setProperty(PreviewPane::kPdfRendererProperty, QCoreApplication::applicationFilePath());
  // Before the frame, so that a failure while it starts (a damaged text table under -TLMODUS,
  // say) shows the dialog too.
  installFailureDialog();
  app.setWindowIcon(programIcon());
  initFrame(command.translationMode);
  // Qt's own dialogs speak the program's language, not the system's.
  installQtTranslations(language());
  // Declared before the window, so the socket goes only after the window: a restart waits for it.
  SingleInstance instance;
  if (const int status = claimOrHandOver(instance, command); status >= 0) return status;
  MainWindow window;
  window.setStartSources(command.sources);  // read once the window is on the screen
  window.setStartImports(command.imports);
  window.show();
  return app.exec();
}

// The preview's PDF helper: no window, no settings; one page to standard output.
extern "C" __attribute__((visibility("default"))) int quorlane_render_pdf_page(int argc, char** argv) {
  return ql::renderPdfPageMain(argc, argv);
}

// --treemap: the walk or the export, the layout and the picture, with no display (and the types
// table when --types is given too).
extern "C" __attribute__((visibility("default"))) int quorlane_treemap_main(int argc, char** argv) {
  using namespace ql;
  const ParsedCommandLine job = parseArguments(argc, argv);
  std::signal(SIGPIPE, SIG_IGN);
  OutputFile::removeTemporaryOnInterrupt(true);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  initFrame(job.translationMode);
  TreemapTree tree;
  std::vector<float> growth;  // with --compare: NEW coloured by its growth since OLD
  if (job.comparing) {
    ReportTree then;
    uint32_t thenRoot = kNoNode;
    if (readComparedForTreemap(job, tree, then, thenRoot) != 0) return 1;
    growth = folderGrowth(tree, 0, then, thenRoot);
  } else {
    TreemapCollector collector = treemapCollector(job, true, !job.typesFile.empty());
    std::string top;
    if (readForTreemap(job, collector, &top) != 0) return 1;
    if (!job.typesFile.empty() && writeTypesFile(job, collector) != 0) return 1;
    tree = takeTreemap(job, collector, top);
  }
  TreemapLook look;
  look.growth = growth;
  std::string error;
  if (writeTreemapPicture(layoutTreemap(tree, job.pictureWidth, job.pictureHeight), job.treemapFile,
                          error, look))
    return 0;
  std::fprintf(stderr, "quorlane: %s\n", error.c_str());
  return 1;
}
