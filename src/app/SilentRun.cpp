#include "app/SilentRun.h"

#include <QDateTime>
#include <QFile>
#include <algorithm>
#include <functional>
#include <future>
#include <system_error>
#include <thread>
#include <cstdio>
#include <cstdlib>

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "failure/FailureReport.h"
#include "json/JsonImport.h"
#include "lang/TL.h"
#include "output/ReportWriter.h"
#include "report/ReportTree.h"
#include "scan/FileOps.h"
#include "scan/FolderWalk.h"
#include "scan/ScanDriver.h"
#include "snapshot/SnapshotFeed.h"
#include "snapshot/SnapshotStore.h"
#include "support/Globals.h"
#include "support/Logs.h"

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

bool keepSnapshots(const std::vector<std::string>& sources, const MainOptions& o,
                   const std::vector<std::string>& excludes, const Stop* stop,
                   const std::string& exportFile, int64_t bytes, int64_t files,
                   const SnapshotFeeds& fed) {
  int threads = FolderWalk::defaultThreads();
  if (const char* forced = std::getenv("QUORLANE_THREADS"); forced && std::atoi(forced) > 0)
    threads = std::atoi(forced);
  bool ok = true;
  for (const std::string& source : sources) {
    if (probePath(source) != 0) continue;  // not walked: told by the walk, or not there
    const std::string kept = snapshotSourcePath(source);
    const auto feed = std::find_if(fed.begin(), fed.end(), [&](const FedSnapshot& f) {
      return (f.written || (f.feed && f.feed->complete())) && snapshotSourcePath(f.source) == kept;
    });
    const SnapshotResult r = feed == fed.end()
                                 ? exportFile.empty()
                                       ? writeSnapshot(source, threads, stop, excludes)
                                       : keepExportAsSnapshot(source, exportFile, bytes, files)
                             : feed->written ? *feed->written
                                             : feed->feed->keep(source, excludes, stop);
    if (r.ok) continue;
    ok = false;
    const QString path = QFile::decodeName(QByteArray::fromStdString(source));
    FailureReport(QStringLiteral("SnapshotSchreiben"), QStringLiteral("frmMain"), 0,
                  TL(4570, "Der Schnappschuss von '%1' kann nicht geschrieben werden: %2",
                     {path, QString::fromStdString(r.error)}),
                  {path});
  }
  const PruneResult pruned =
      pruneSnapshots(o.SnapshotKeep, static_cast<int64_t>(o.SnapshotBudgetMB) * 1000 * 1000);
  if (!pruned.error.empty()) WriteErrorLog(QString::fromStdString(pruned.error));
  return ok;
}

int listSnapshotsRun(const ParsedCommandLine& job) {
  std::string error;
  const std::vector<SnapshotInfo> list = listSnapshots(job.sources.front(), &error);
  for (const SnapshotInfo& s : list) {
    // Local time with its offset, so that the line says which moment it was.
    const QDateTime local = QDateTime::fromSecsSinceEpoch(s.time);
    const QByteArray when =
        local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODate).toUtf8();
    std::printf("%s\t%lld\t%lld\t%s\n", when.constData(), static_cast<long long>(s.bytes),
                static_cast<long long>(s.files), s.file.c_str());
  }
  if (!error.empty()) std::fprintf(stderr, "quorlane: %s\n", error.c_str());
  return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
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
  // --snapshot: each source's walk keeps its files for the snapshot written after the report.
  SnapshotFeeds fed;
  if (job.snapshot) {
    driver.setFeedFactory([&]() -> std::shared_ptr<FileFeed> {
      const uint32_t root = driver.lastRoot();
      if (root == kNoNode) return nullptr;
      auto feed = std::make_shared<SnapshotFeed>(tree.fullPath(root));
      fed.push_back({tree.fullPath(root), feed, {}});
      return feed;
    });
    QObject::connect(&driver, &ScanDriver::sourceFinished, [&](uint32_t root) {
      if (!fed.empty() && tree.isLive(root) && fed.back().source == tree.fullPath(root))
        fed.back().feed->takeFolders(tree, root);
    });
  }
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
  // The snapshots are written from the walk's feeds while the report is, and kept once it is.
  std::promise<bool> reportSaved;
  std::thread snapshotWriter;
  if (job.snapshot) {
    try {
      snapshotWriter = std::thread(
          [&fed, &excludes = settings.excludes, saved = reportSaved.get_future().share()] {
            const std::function<bool()> keepIf = [&saved] { return saved.get(); };
            try {
              for (FedSnapshot& f : fed)
                if (f.feed && f.feed->complete())
                  f.written = f.feed->keep(f.source, excludes, &stop, keepIf);
            } catch (const std::bad_alloc&) {  // what was not written is written afterwards
            }
          });
    } catch (const std::system_error&) {
    }
  }
  QString error;
  bool saved = false;
  try {
    saved = ReportWriter::SPEICHERN(tree, job.outputFile, options, error);
  } catch (...) {
    reportSaved.set_value(false);
    if (snapshotWriter.joinable()) snapshotWriter.join();
    throw;
  }
  reportSaved.set_value(saved);
  if (snapshotWriter.joinable()) snapshotWriter.join();
  if (!saved)
    FailureReport(QStringLiteral("SPEICHERN"), QStringLiteral("frmSave"), 0, error);
  // Only a measurement that is whole is kept.
  else if (job.snapshot)
    keepSnapshots(job.sources, o, settings.excludes, &stop, {}, 0, 0, fed);
  return failureCount() ? 1 : 0;
}

}  // namespace ql
