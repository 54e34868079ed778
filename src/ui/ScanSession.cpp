#include "ui/ScanSession.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>
#include <cstring>
#include <utility>

#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "scan/FeedFan.h"
#include "scan/FileOps.h"
#include "snapshot/SnapshotFeed.h"
#include "snapshot/SnapshotKeeper.h"
#include "support/Globals.h"
#include "support/Logs.h"
#include "support/PathText.h"
#include "ui/ImportedSources.h"

namespace ql {

namespace {
// The path of the source a node was found below: the file lists reach their files from there.
std::string sourceOf(const ReportTree& tree, uint32_t node) {
  return tree.isLive(node) ? std::string(tree.text(tree.rootOf(node))) : std::string();
}
}  // namespace

ScanSession::ScanSession(const Guard& guard, QObject* parent)
    : QObject(parent), guard_(guard), driver_(std::make_unique<ScanDriver>(tree_, stop_)) {
  setFailureStop(&stop_);
  imports_ = new ImportedSources(tree_, this);
  connect(imports_, &ImportedSources::progress, this,
          guard_.wrap("Import", [this](qint64 done, qint64 total) {
            Q_EMIT statusText(TL(4056, "Importiere... %1 von %2 MB",
                                 {QString::number(done / 1048576),
                                  QString::number(std::max<qint64>(total, done) / 1048576)}));
          }));
  connect(imports_, &ImportedSources::finished, this,
          guard_.wrap("Import", [this](uint32_t root, const QString& error) {
            onImportFinished(root, error);
          }));
  snapshots_ =
      std::make_unique<SnapshotKeeper>([this](const std::string& source, const std::string& error) {
        QMetaObject::invokeMethod(
            this,
            guard_.wrap("SnapshotSchreiben",
                        [this, source, error] {
                          const QString text = TL(
                              4570, "Der Schnappschuss von '%1' kann nicht geschrieben werden: %2",
                              {pathText(source), QString::fromStdString(error)});
                          WriteErrorLog(text);
                          Q_EMIT statusText(text);
                        }),
            Qt::QueuedConnection);
      });
  driver_->setFeedFactory([this] { return walkFeed(); });
  wireDriver();
}

// The driver and the imports go before the tree they read into and the stop they look at.
ScanSession::~ScanSession() {
  snapshots_.reset();  // stops a snapshot being written
  setFailureStop(nullptr);
  delete imports_;
  driver_.reset();
}

void ScanSession::setCounting(bool allocated, bool linksOnce) {
  MainOptions o = options_;
  o.SizeAllocated = allocated ? 1 : 0;
  o.LinksOnce = linksOnce ? 1 : 0;
  StoreSettings(QStringLiteral("Optionen"), QStringLiteral("SizeAllocated"), o.SizeAllocated);
  StoreSettings(QStringLiteral("Optionen"), QStringLiteral("LinksOnce"), o.LinksOnce);
  applyOptions(o);
  Q_EMIT countingChanged(allocated, linksOnce);
  std::vector<std::string> walked;
  bool imported = false;
  for (uint32_t root : tree_.roots()) {
    if (imports_->isImported(root))
      imported = true;
    else
      walked.push_back(tree_.fullPath(root));
  }
  if (!walked.empty()) readSources(walked);
  if (imported)
    Q_EMIT statusText(
        TL(4447, "Importierte Quellen zählen so erst, wenn sie neu importiert werden."));
}

void ScanSession::setLargestFiles(LargestFiles list) {
  // The largest files are collected inside each walk; the list belongs to the read made last.
  largest_ = std::move(list);
}

// Each walk feeds the largest files and the treemap; a source's walk also keeps its files for its
// snapshot.
std::shared_ptr<FileFeed> ScanSession::walkFeed() {
  snapshotFeed_.reset();
  const uint32_t root = std::exchange(startedRoot_, kNoNode);
  if (options_.Snapshots && tree_.isLive(root)) {
    snapshotFeed_ = std::make_shared<SnapshotFeed>(tree_.fullPath(root));
    snapshotRoot_ = root;
    snapshotGeneration_ = tree_.generation();
    if (!snapshotFeed_->ok()) snapshotFeed_.reset();  // no temporary file: walked again later
  }
  return FeedFan::of({largest_.begin ? largest_.begin() : nullptr, snapshotFeed_,
                      driver_->walkOffersFiles() ? beginTreemap(driver_->walkPath()) : nullptr});
}

std::shared_ptr<FileFeed> ScanSession::beginTreemap(const std::string& path) {
  collecting_ = std::make_shared<TreemapCollector>(path, true, false, options_.LinksOnce != 0);
  collectingPath_ = path;
  return collecting_;
}

void ScanSession::endTreemap(bool graft, const std::string& importedRoot) {
  std::shared_ptr<TreemapCollector> collector = std::move(collecting_);
  if (!collector) return;
  // A folder measured again goes into the tree of its source, as it is now.
  TreemapPlace old;
  if (graft) {
    old = treemaps_.find(collectingPath_);
    if (!old.tree) return;  // nothing kept there: a later full read brings it
  }
  // Merging a million files takes longer than the window may wait.
  QPointer<ScanSession> self(this);
  QThreadPool::globalInstance()->start([self, collector, old, importedRoot,
                                        path = collectingPath_]() mutable {
    TreemapTree fresh = collector->takeTree();
    collector.reset();
    std::string top = path;
    if (old.tree) {
      fresh = copyTreemap(*old.tree, 0, &fresh, old.folder());
      top = old.top;
      old.tree.reset();
    } else if (!importedRoot.empty()) {  // an import is collected by whole paths
      if (!cutTreemapTo(fresh, importedRoot)) return;
      top = importedRoot;
    }
    auto tree = std::make_shared<TreemapTree>(std::move(fresh));
    QMetaObject::invokeMethod(
        qApp,
        [self, tree, top] {
          if (!self) return;
          self->guard_.run("Treemap", [&] {
            self->treemaps_.put(top, std::move(*tree));
            Q_EMIT self->treemapChanged();
          });
        },
        Qt::QueuedConnection);
  });
}

TreemapPlace ScanSession::treemapAt(const std::string& path) {
  std::vector<std::string> roots;
  for (uint32_t root : tree_.roots()) roots.push_back(tree_.fullPath(root));
  treemaps_.keepOnly(roots);  // sources taken out of the report go with their files
  return treemaps_.find(path);
}

uint32_t ScanSession::nodeOfPath(const std::string& path) const {
  const std::string p = addSlash(path);
  for (uint32_t root : tree_.roots()) {
    const std::string top = addSlash(tree_.fullPath(root));
    if (p.compare(0, top.size(), top) != 0) continue;
    uint32_t node = root;
    std::string_view rest = std::string_view(p).substr(top.size());
    while (node != kNoNode && !rest.empty()) {
      const size_t end = rest.find('/');
      const std::string_view name = rest.substr(0, end);
      rest.remove_prefix(end + 1);
      uint32_t found = kNoNode;
      for (uint32_t child : tree_.children(node))
        if (tree_.isFolder(child) && tree_.text(child) == name) found = child;
      node = found;
    }
    if (node != kNoNode) return node;
  }
  return kNoNode;
}

std::string ScanSession::readingFolder() const {
  return driver_->busy() ? addSlash(driver_->walkPath()) : std::string();
}

void ScanSession::treemapFolderGone(const std::string& path) {
  treemaps_.removeFolder(path);
  Q_EMIT treemapChanged();
}

void ScanSession::treemapFileGone(const std::string& folder, std::string_view name, int64_t size) {
  treemaps_.removeFile(folder, name, size);
  Q_EMIT treemapChanged();
}

void ScanSession::applyOptions(const MainOptions& options) {
  options_ = options;
  ScanDriver::Settings s;
  s.noHardlinks = options.NoHardlinks != 0;
  s.folderColorFade = options.FolderColorFade == 1;
  s.mode.allocated = options.SizeAllocated != 0;
  s.mode.linksOnce = options.LinksOnce != 0;
  s.excludes = LoadExcludePatterns();
  driver_->setSettings(s);
}

void ScanSession::wireDriver() {
  ScanDriver& d = *driver_;
  connect(&d, &ScanDriver::sourceAccepted, this,
          guard_.wrap("AddNewSearchPath", [this](const QByteArray& path) {
            Q_EMIT sourceAccepted(path.toStdString());
          }));
  connect(&d, &ScanDriver::sourceStarted, this, &ScanSession::sourceStarted);
  connect(&d, &ScanDriver::sourceStarted, this, [this](uint32_t root) {
    startedRoot_ = root;
    failuresAtStart_ = failureCount();
    refusedAtStart_ = refused_.size();
  });
  connect(&d, &ScanDriver::sourceRefused, this,
          guard_.wrap("QuelleEinlesen", [this](const QString& path, const QString& reason) {
            refused_ << TL(4044, "Der Ordner '%1' kann nicht gelesen werden: %2", {path, reason});
          }));
  connect(&d, &ScanDriver::progress, this, &ScanSession::statusText);
  connect(&d, &ScanDriver::finished, this,
          guard_.wrap("Ordnerliste_Abarbeiten", [this] { finish(driver_->lastRoot(), true); }));
  connect(&d, &ScanDriver::rescanFinished, this,
          guard_.wrap("Report_Rescan", [this](uint32_t node) {
            endTreemap(true);
            imports_->forget(node);
            endLargestFiles(node);
            finish(node, false);
          }));
  connect(&d, &ScanDriver::sourceFinished, this,
          guard_.wrap("QuelleEinlesen", [this](uint32_t root) {
            endTreemap(false);
            endLargestFiles(root);
            keepSnapshot(root);
          }));
}

// Only a source read to its end, with no stop and no failure, is kept. Its folders are taken
// from the tree now, before anyone can change it; the keeper writes the snapshot on its own
// thread after the scan (without a feed it reads the source again).
void ScanSession::keepSnapshot(uint32_t root) {
  std::shared_ptr<SnapshotFeed> feed = std::exchange(snapshotFeed_, nullptr);
  if (!options_.Snapshots || stop_.requested() || failureCount() != failuresAtStart_ ||
      refused_.size() != refusedAtStart_ || !tree_.isLive(root))
    return;
  if (feed && snapshotRoot_ == root && snapshotGeneration_ == tree_.generation())
    feed->takeFolders(tree_, root);
  else
    feed.reset();
  snapshots_->keep({tree_.fullPath(root), LoadExcludePatterns(), options_.SnapshotKeep,
                    int64_t{options_.SnapshotBudgetMB} * 1000 * 1000, std::move(feed)});
}

void ScanSession::endLargestFiles(uint32_t node) {
  if (largest_.end)
    largest_.end(tree_.isLive(node) ? tree_.fullPath(node) : std::string(), sourceOf(tree_, node));
}

bool ScanSession::folderFiles(uint32_t node, FolderFiles& f) const {
  if (!tree_.isLive(node)) return false;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  f.path = tree_.fullPath(node);
  f.source = sourceOf(tree_, node);
  // An imported folder shows the files the import holds, whether or not the folder is here.
  f.imported = imports_->filesOf(node, f.rows);
  f.onDisk = !f.imported || probePath(f.path) == 0;
  return true;
}

bool ScanSession::locked(uint32_t node) const {
  return imports_->isImported(node) && probePath(tree_.fullPath(node)) != 0;
}

void ScanSession::setBusy(bool busy) {
  if (busy == busy_) return;
  busy_ = busy;
  setFailureBusyWord(busy ? 1 : 0);
  Q_EMIT busyChanged(busy);
}

void ScanSession::recover() {
  if (ready_ && !driver_->busy() && !imports_->busy()) setBusy(false);
}

void ScanSession::readSources(const std::vector<std::string>& sources) {
  if (!ready_) {
    waiting_.insert(waiting_.end(), sources.begin(), sources.end());
    return;
  }
  // One copy of each source: one asked for twice is read once, and reading one that is shown
  // replaces it; during a walk the one shown stays and is not read again. An imported source is
  // never replaced: it was measured elsewhere.
  std::deque<std::string>& queue = driver_->sourceQueue();
  for (const std::string& s : sources) {
    const auto same = [&](const std::string& other) { return addSlash(other) == addSlash(s); };
    if (std::any_of(queue.begin(), queue.end(), same)) continue;
    uint32_t shown = kNoNode;
    for (uint32_t root : tree_.roots())
      if (!imports_->isImported(root) && same(tree_.fullPath(root))) shown = root;
    if (shown != kNoNode && driver_->busy()) continue;
    if (shown != kNoNode) driver_->removeSource(shown);
    queue.push_back(s);
  }
  start();
}

void ScanSession::readOnly(const std::vector<std::string>& sources) {
  stop_.reset();
  driver_->sourceQueue().clear();
  // A folder asked for by hand that is not there is said, as the silent run says it.
  std::vector<std::string> found;
  for (const std::string& s : sources) {
    if (const int error = probePath(s); error == 0) {
      found.push_back(s);
    } else {
      const QString text = TL(4044, "Der Ordner '%1' kann nicht gelesen werden: %2",
                              {pathText(s), QString::fromLocal8Bit(std::strerror(error))});
      Q_EMIT statusText(text);
      Q_EMIT warning(text);
    }
  }
  readSources(found);
}

void ScanSession::start() {
  if (driver_->sourceQueue().empty()) return;
  setBusy(true);
  driver_->start();
}

void ScanSession::rescan(uint32_t node, bool full) {
  setBusy(true);
  if (!driver_->rescan(node, full)) setBusy(false);
}

void ScanSession::filesDeleted(uint32_t node, const std::vector<std::string>& folders) {
  if (driver_->busy() || node == kNoNode || !tree_.isLive(node)) return;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  if (folders.empty() || addSlash(tree_.fullPath(node)) != folders.front()) return;
  rescan(node, false);
}

void ScanSession::stop() {
  driver_->stop();
  if (!imports_->busy()) return;
  // Nothing of a stopped import joins the report.
  imports_->stop();
  collecting_.reset();
  pendingImports_.clear();
  if (largest_.clear) largest_.clear();
  setBusy(false);
  Q_EMIT statusText(TL(3525, "OK."));
}

void ScanSession::finish(uint32_t node, bool walked) {
  if (driver_->busy()) return;  // a rescan handed over to queued sources
  setBusy(false);
  Q_EMIT readDone(node, walked);
  Q_EMIT statusText(TL(3525, "OK."));
  if (!refused_.isEmpty()) {
    const QString text = refused_.join(QLatin1Char('\n'));
    refused_.clear();
    Q_EMIT warning(text);
  }
  importNext();  // imports asked for during the scan
}

void ScanSession::importFile(const std::string& file) {
  if (!ready_ || busy_ || driver_->busy() || imports_->busy()) {
    pendingImports_.push_back(file);
    return;
  }
  ImportOptions o;
  o.filesLabel = TL(3514, "Dateien").toStdString();
  o.noHardlinks = options_.NoHardlinks != 0;
  o.allocated = options_.SizeAllocated != 0;
  o.linksOnce = options_.LinksOnce != 0;
  importing_ = file;
  setBusy(true);
  Q_EMIT statusText(
      TL(4056, "Importiere... %1 von %2 MB", {QStringLiteral("0"), QStringLiteral("?")}));
  // The export's root is known only once read: its files are collected by their whole paths.
  std::shared_ptr<FileFeed> feed =
      FeedFan::of({largest_.begin ? largest_.begin() : nullptr, beginTreemap("")});
  imports_->start(file, std::move(feed), o);
}

void ScanSession::importNext() {
  if (pendingImports_.empty() || busy_ || imports_->busy() || driver_->busy()) return;
  const std::string next = pendingImports_.front();
  pendingImports_.pop_front();
  importFile(next);
}

void ScanSession::onImportFinished(uint32_t root, const QString& error) {
  setBusy(false);
  Q_EMIT statusText(TL(3525, "OK."));
  if (root == kNoNode) {
    collecting_.reset();
    if (largest_.clear) largest_.clear();
    Q_EMIT warning(TL(4057, "Die Datei '%1' kann nicht eingelesen werden:%!%2",
                      {pathText(importing_), error}));
  } else {
    if (largest_.end) largest_.end(tree_.fullPath(root), std::string());
    endTreemap(false, addSlash(tree_.fullPath(root)));
    Q_EMIT sourceStarted(root);
    Q_EMIT readDone(root, false);
  }
  importNext();
}

void ScanSession::ready() {
  ready_ = true;
  if (!driver_->busy()) setBusy(false);
  if (!waiting_.empty()) readSources(std::exchange(waiting_, {}));
  importNext();
}

}  // namespace ql
