#include "app/SilentRun.h"

#include <QFile>

#include "app/CommandLine.h"
#include "support/Globals.h"
#include "app/Settings.h"
#include "lang/TL.h"
#include "failure/FailureReport.h"
#include "json/JsonImport.h"
#include "output/ReportWriter.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"

namespace ql {

ScanDriver::Settings silentSettings(const ParsedCommandLine& job, MainOptions& o) {
  OptionenLadenMain(o);
  ScanDriver::Settings settings;
  settings.noHardlinks = o.NoHardlinks != 0;
  // The command line has the last word over the settings.
  settings.mode.allocated = job.sizeAllocated >= 0 ? job.sizeAllocated == 1 : o.SizeAllocated != 0;
  settings.mode.linksOnce = job.linksOnce >= 0 ? job.linksOnce == 1 : o.LinksOnce != 0;
  settings.excludes = LoadExcludePatterns();
  settings.excludes.insert(settings.excludes.end(), job.excludes.begin(), job.excludes.end());
  return settings;
}

uint32_t importForSilentRun(const std::string& file, ReportTree& tree,
                            const ScanDriver::Settings& settings, const Stop& stop) {
  ImportOptions io;
  io.filesLabel = TL(3514, "Dateien").toStdString();
  io.noHardlinks = settings.noHardlinks;
  io.allocated = settings.mode.allocated;
  io.linksOnce = settings.mode.linksOnce;
  io.stop = &stop;
  const ImportResult r = importJsonFile(file, tree, io);
  if (r.ok) return r.root;
  const QString name = QFile::decodeName(QByteArray::fromStdString(file));
  FailureReport(QStringLiteral("ImportEinlesen"), QStringLiteral("frmMain"), 0,
                TL(4296, "Der Export '%1' kann nicht eingelesen werden: %2", {name, r.error}),
                {name});
  return kNoNode;
}

int runSilent(const ParsedCommandLine& job) {
  Globals& g = globals();
  g.SilentMode = true;
  MainOptions o;
  const ScanDriver::Settings settings = silentSettings(job, o);

  // A report cut short by SIGTERM, SIGINT or SIGHUP must not leave its temporary file behind.
  ReportWriter::removeTemporaryOnInterrupt();

  ReportTree tree;
  static Stop stop;  // for the whole run: the error report shows it
  setFailureStop(&stop);
  ScanDriver driver(tree, stop);
  driver.setSettings(settings);
  // A source that is there but cannot be read is a failure of the run, with the system's reason.
  QObject::connect(&driver, &ScanDriver::sourceRefused, [](const QString& path, const QString& reason) {
    FailureReport(QStringLiteral("QuelleEinlesen"), QStringLiteral("frmMain"), 0,
                  TL(4044, "Der Ordner '%1' kann nicht gelesen werden: %2", {path, reason}), {path});
  });
  // A failure from here on leaves a hole in the report (a source or part of one not read), and
  // such a report never replaces the one there. A damaged setting does not: it keeps its default.
  const int failuresBefore = failureCount();
  // Exports named with --import come first, each as one root, as if its folder had been walked.
  for (const std::string& file : job.imports) importForSilentRun(file, tree, settings, stop);
  if (!job.sources.empty()) {
    driver.sourceQueue().assign(job.sources.begin(), job.sources.end());
    driver.runToEnd();
  }

  if (failureCount() != failuresBefore) return 1;  // each was told as it came

  ReportSaveOptions options;
  options.levels = ReportWriter::levelsFromNumber(job.outputLevels);
  options.levelCount = job.outputLevels;
  options.unit = o.FileSizeFormat >= 0 && o.FileSizeFormat <= 3 ? o.FileSizeFormat : 0;
  options.decimals = o.SizeFormatNachkommastellenFolders ? 1 : 0;
  options.allocated = settings.mode.allocated;
  options.linksOnce = settings.mode.linksOnce;
  if (tree.empty()) {
    // Nothing to write: say so rather than end quietly without a report.
    FailureReport(QStringLiteral("Ordnerliste_Abarbeiten"), QStringLiteral("frmMain"), 0,
                  TL(3990, "Keiner der angegebenen Ordner ist vorhanden."),
                  {failureCommandLine()});
    return 1;
  }
  QString error;
  if (!ReportWriter::SPEICHERN(tree, job.outputFile, options, error))
    FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0, error);
  return failureCount() ? 1 : 0;
}

}  // namespace ql
