#include "scan/ScanDriver.h"

#include <QFile>
#include <algorithm>

#include "app/Globals.h"
#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "scan/FsPath.h"

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
  if (!async_) {
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
                  QString::fromStdString(f.message),
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

void ScanDriver::beginWalk(uint32_t node, const std::string& path) {
  node_ = node;
  placed_.clear();
  walk_ = makeWalk();
  (void)path;
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
    beginWalk(lastRoot_, scanPath);
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
  beginWalk(lastRoot_, scanPath);
  FolderWalk* walk = walk_.get();
  thread_ = std::thread([this, walk, scanPath] {
    const WalkOutcome outcome = walk->Report_ScanFolders(scanPath, *this);
    QMetaObject::invokeMethod(this, [this, outcome] { onWalkDone(outcome); }, Qt::QueuedConnection);
  });
}

void ScanDriver::onWalkDone(const WalkOutcome& outcome) {
  thread_.join();
  finishSource(outcome);
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

}  // namespace ql
