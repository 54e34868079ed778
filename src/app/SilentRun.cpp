#include "app/SilentRun.h"

#include "app/CommandLine.h"
#include "app/Globals.h"
#include "app/Profile.h"
#include "failure/FailureReport.h"
#include "output/ReportWriter.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"

namespace ql {

namespace {
int readSmall(const char* section, const char* key, int deflt) {
  bool ok = false;
  const int v = ProfileGetItem(QLatin1String(section), QLatin1String(key), QString::number(deflt),
                               globals().IniFile)
                    .toInt(&ok);
  return ok ? v : deflt;
}
}  // namespace

int runSilent(const std::string& commandLine) {
  Globals& g = globals();
  g.SilentMode = true;
  const int unit = readSmall("Optionen", "FileSizeFormat", 0);
  const int decimals = readSmall("Optionen", "SizeFormatNachkommastellenFolders", 1);
  ScanDriver::Settings settings;
  settings.noHardlinks = readSmall("Optionen", "NoHardlinks", 0) != 0;
  g.Lang = readSmall("Allgemein", "Lang", 0);

  SilentJob job;
  KZGetFoldersFromCommand(commandLine, job);
  if (job.sources.empty()) return failureCount() ? 1 : 0;  // no job: nothing read, nothing saved

  ReportTree tree;
  ScanDriver driver(tree);
  driver.setSettings(settings);
  driver.sourceQueue() = job.sources;
  driver.runToEnd();

  ReportSaveOptions options;
  options.levels = ReportWriter::levelsFromNumber(job.outputLevels);
  options.levelCount = job.outputLevels;
  options.unit = unit >= 0 && unit <= 3 ? unit : 0;
  options.decimals = decimals ? 1 : 0;
  QString error;
  if (!tree.empty() && !ReportWriter::SPEICHERN(tree, job.outputFile, options, error))
    FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0, error);
  return failureCount() ? 1 : 0;
}

}  // namespace ql
