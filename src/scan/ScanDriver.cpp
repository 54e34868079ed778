#include "scan/ScanDriver.h"

#include <QFile>
#include <algorithm>

#include "app/Globals.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "scan/FileOps.h"

namespace ql {

ScanDriver::ScanDriver(ReportTree& tree, QObject* parent) : QObject(parent), tree_(tree) {
  progressTimer_.setInterval(150);
  connect(&progressTimer_, &QTimer::timeout, this, [this] {
    const std::string folder = currentFolder();
    if (!folder.empty()) Q_EMIT progress(QFile::decodeName(QByteArray::fromStdString(folder)));
  });
}

ScanDriver::~ScanDriver() {
  if (thread_.joinable()) {
    StopWord = FolderWalk::kStop;
    thread_.join();
  }
}

std::unique_ptr<FolderWalk> ScanDriver::makeWalk() {
  WalkOptions o;
  o.threads = settings_.threads;
  // For measurements: the number of walk threads can be forced from the environment.
  if (const int forced = qEnvironmentVariableIntValue("QUORLANE_THREADS"); forced > 0) o.threads = forced;
  o.noHardlinks = settings_.noHardlinks;
  o.folderColorFade = settings_.folderColorFade;
  o.filesLabel = TL(3514, "Dateien").toStdString();
  o.feed = feed_;
  return std::make_unique<FolderWalk>(o, StopWord);
}

std::string ScanDriver::currentFolder() const { return walk_ ? walk_->currentFolder() : std::string(); }

void ScanDriver::branchDone(uint32_t position, ReportTree&& branch) {
  if (!async_ && !tree_.observed()) {
    // The owner is blocked in the walk and nobody watches the tree: link it in right here, so
    // finished branches never pile up.
    std::lock_guard lock(pendingMutex_);
    place(position, std::move(branch));
    return;
  }
  bool wake = false;
  {
    std::lock_guard lock(pendingMutex_);
    wake = pending_.empty() && failures_.empty();
    pending_.push_back(Pending{position, std::move(branch)});
  }
  if (wake && async_) QMetaObject::invokeMethod(this, &ScanDriver::drain, Qt::QueuedConnection);
}

void ScanDriver::failure(const WalkFailure& f) {
  bool wake = false;
  {
    std::lock_guard lock(pendingMutex_);
    wake = pending_.empty() && failures_.empty();
    failures_.push_back(f);
  }
  if (wake && async_) QMetaObject::invokeMethod(this, &ScanDriver::drain, Qt::QueuedConnection);
}

// Links finished top-level folders in at the place the listing gave them.
void ScanDriver::drain() {
  std::vector<Pending> pending;
  std::vector<WalkFailure> failures;
  {
    std::lock_guard lock(pendingMutex_);
    pending.swap(pending_);
    failures.swap(failures_);
  }
  if (node_ != kNoNode)
    for (auto& p : pending) place(p.position, std::move(p.branch));
  for (const auto& f : failures)
    FailureReport(QStringLiteral("Report_ScanFolders"), QStringLiteral("frmMain"), 0,
                  f.kind == WalkFailure::Kind::SumOverflow ? QStringLiteral("Überlauf der Summe")
                                                           : QString::fromStdString(systemErrorText(f.error)),
                  {QFile::decodeName(QByteArray::fromStdString(f.path)),
                   QFile::decodeName(QByteArray::fromStdString(f.name))});
}

void ScanDriver::place(uint32_t position, ReportTree&& branch) {
  const auto at = std::lower_bound(placed_.begin(), placed_.end(), position);
  const size_t row = static_cast<size_t>(at - placed_.begin());
  placed_.insert(at, position);
  tree_.attachBranch(node_, row, std::move(branch));
}

// Takes sources from the front of the queue until one exists; makes its root.
bool ScanDriver::takeNextSource(std::string& scanPath) {
  while (!queue_.empty()) {
    const std::string path = queue_.front();
    if (!existFolder(path)) {  // a source that is not there is dropped without a word
      queue_.pop_front();
      continue;
    }
    scanPath = addSlash(path);
    Q_EMIT sourceAccepted(QFile::decodeName(QByteArray::fromStdString(path)));
    lastRoot_ = tree_.addRoot(rootText(scanPath));
    Q_EMIT sourceStarted(lastRoot_);
    return true;
  }
  return false;
}

void ScanDriver::beginWalk(uint32_t node) {
  node_ = node;
  placed_.clear();
  walk_ = makeWalk();
}

void ScanDriver::finishSource(const WalkOutcome& outcome) {
  drain();
  const uint32_t node = node_;
  // The folder's own files get a row of their own when it also has subfolder rows.
  if (!outcome.interrupted && outcome.ownBytes > 0 && !tree_.children(node).empty()) {
    const uint32_t files = tree_.addChild(node, TL(3514, "Dateien").toStdString(), 0);
    tree_.Report_SetNodeSizeAndFilecount(files, outcome.ownBytes, outcome.ownFiles);
  }
  total_ = outcome.total;
  tree_.Report_SetNodeSizeAndFilecount(node, total_.size, total_.files);
  tree_.setFolders(node, static_cast<int32_t>(total_.folders));
  tree_.Report_ChangePercentValue(node);
  node_ = kNoNode;
  walk_.reset();
  Q_EMIT sourceFinished(node);
}

void ScanDriver::runToEnd() {
  if (busy_) return;
  busy_ = true;
  async_ = false;
  std::string scanPath;
  while (takeNextSource(scanPath)) {
    beginWalk(lastRoot_);
    const WalkOutcome outcome = walk_->Report_ScanFolders(scanPath, *this);
    finishSource(outcome);
    if (StopWord == FolderWalk::kStop) break;
    if (!queue_.empty()) queue_.pop_front();
  }
  finishAll();
}

void ScanDriver::start() {
  if (busy_) return;  // the running driver reads what was added to the queue
  busy_ = true;
  async_ = true;
  progressTimer_.start();
  readNextAsync();
}

void ScanDriver::readNextAsync() {
  std::string scanPath;
  if (!takeNextSource(scanPath)) {
    finishAll();
    return;
  }
  beginWalk(lastRoot_);
  startWalkThread(scanPath);
}

void ScanDriver::startWalkThread(const std::string& path) {
  FolderWalk* walk = walk_.get();
  thread_ = std::thread([this, walk, path] {
    const WalkOutcome outcome = walk->Report_ScanFolders(path, *this);
    QMetaObject::invokeMethod(this, [this, outcome] { onWalkDone(outcome); }, Qt::QueuedConnection);
  });
}

void ScanDriver::onWalkDone(const WalkOutcome& outcome) {
  thread_.join();
  finishSource(outcome);
  if (rescan_.active) {
    finishRescan();
    return;
  }
  if (StopWord == FolderWalk::kStop) {
    finishAll();
    return;
  }
  if (!queue_.empty()) queue_.pop_front();
  readNextAsync();
}

void ScanDriver::finishAll() {
  queue_.clear();  // a stop forgets the sources not reached
  progressTimer_.stop();
  tree_.Report_Sort();
  StopWord = 0;
  busy_ = false;
  Q_EMIT finished();
}

// Adds (or with negative values takes away) sums on a node and every node above it.
void ScanDriver::addUp(uint32_t from, int64_t size, int64_t files) {
  for (uint32_t n = from; n != kSuperRoot && n != kNoNode; n = tree_.parent(n))
    tree_.Report_SetNodeSizeAndFilecount(n, tree_.node(n).size + size, tree_.node(n).files + files);
}

namespace {
uint32_t filesRow(const ReportTree& t, uint32_t node) {
  for (uint32_t c : t.children(node))
    if (!t.isFolder(c)) return c;
  return kNoNode;
}
}  // namespace

void ScanDriver::Report_Rescan(uint32_t node, bool full, bool wait) {
  if (busy_ || node == kNoNode || node == kSuperRoot || tree_.hasFlag(node, ReportTree::Dead)) return;
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  busy_ = true;
  async_ = !wait;
  const auto& n = tree_.node(node);
  rescan_ = Rescan{true, full, node, n.size, n.files, n.folders};

  if (full) {
    tree_.clearChildren(node);
  } else if (const uint32_t files = filesRow(tree_, node); files != kNoNode) {
    // A leaf keeps its own files in its own sums and has no files row: nothing is taken away
    // there, and they count twice until the folder above is measured in full.
    addUp(node, -tree_.node(files).size, -tree_.node(files).files);
    tree_.removeSubtree(files);
  }
  const std::string path = addSlash(tree_.Report_GetFullpathOfNode(node));

  if (!full) {
    const WalkOutcome o = FolderWalk::Report_ScanFilesOnly(path, StopWord);
    if (!o.interrupted && o.ownBytes > 0 && o.ownFiles > 0) {
      const uint32_t files = tree_.addChild(node, TL(3514, "Dateien").toStdString(), 0);
      tree_.Report_SetNodeSizeAndFilecount(files, o.ownBytes, o.ownFiles);
    }
    finishRescan();
    return;
  }
  beginWalk(node);
  if (wait) {
    const WalkOutcome outcome = walk_->Report_ScanFolders(path, *this);
    finishSource(outcome);
    finishRescan();
  } else {
    progressTimer_.start();
    startWalkThread(path);
  }
}

void ScanDriver::finishRescan() {
  const Rescan r = rescan_;
  rescan_ = Rescan{};
  if (!r.full) {
    if (const uint32_t files = filesRow(tree_, r.node); files != kNoNode)
      addUp(r.node, tree_.node(files).size, tree_.node(files).files);
  } else if (!tree_.isRoot(r.node)) {
    // The folder itself was set from the walk; what lies above moves by the difference.
    const auto& n = tree_.node(r.node);
    const int64_t dSize = n.size - r.oldSize, dFiles = n.files - r.oldFiles;
    const int64_t dFolders = n.folders - r.oldFolders;
    for (uint32_t p = tree_.parent(r.node); p != kSuperRoot; p = tree_.parent(p)) {
      tree_.Report_SetNodeSizeAndFilecount(p, tree_.node(p).size + dSize, tree_.node(p).files + dFiles);
      tree_.setFolders(p, static_cast<int32_t>(tree_.node(p).folders + dFolders));
    }
  }
  for (uint32_t n = r.node; n != kSuperRoot; n = tree_.parent(n)) tree_.Report_ChangePercentValue(n);
  progressTimer_.stop();
  tree_.Report_Sort();
  busy_ = false;
  Q_EMIT rescanFinished(r.node);
  // Sources handed over meanwhile are read now.
  if (!queue_.empty()) {
    if (async_) start(); else runToEnd();
  }
  StopWord = 0;
}

void ScanDriver::Report_RemoveFolders(uint32_t node) {
  if (busy_ || node == kNoNode || node == kSuperRoot || tree_.hasFlag(node, ReportTree::Dead)) return;
  while (!tree_.isRoot(node)) node = tree_.parent(node);
  tree_.removeSubtree(node);
}

}  // namespace ql
