#include "scan/ScanDriver.h"

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>
#include <QFile>
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>

#include "failure/FailureReport.h"
#include "lang/TL.h"
#include "report/ReportEdit.h"
#include "scan/FileOps.h"
#include "support/PathText.h"

namespace ql {

namespace {
constexpr auto kAbandonAfter = std::chrono::milliseconds(1000);
}  // namespace

// What a walk and its driver share. It lives as long as either of them needs it, so a walk that
// is abandoned while blocked in the kernel can still hand things in, to nobody.
struct ScanDriver::Run final : WalkSink {
  Stop stop;
  std::unique_ptr<FolderWalk> walk;  // none for a files-only rescan
  std::shared_ptr<FileFeed> feed;    // lives as long as the walk

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::pair<uint32_t, ReportTree>> branches;
  std::vector<WalkFailure> failures;
  WalkOutcome outcome;
  bool done = false;
  ScanDriver* owner = nullptr;  // told through its event loop; null while it waits itself, or gone
  bool drainPosted = false;

  void branchDone(uint32_t position, ReportTree&& branch) override {
    std::lock_guard lock(mutex);
    branches.emplace_back(position, std::move(branch));
    wakeOwner();
  }
  void failure(const WalkFailure& f) override {
    std::lock_guard lock(mutex);
    failures.push_back(f);
    wakeOwner();
  }
  void wakeOwner() {  // under the lock
    changed.notify_all();
    if (owner && !drainPosted) {
      drainPosted = true;
      Q_EMIT owner->branchesWaiting();
    }
  }
};

ScanDriver::ScanDriver(ReportTree& tree, Stop& stop, QObject* parent)
    : QObject(parent), tree_(tree), stop_(stop) {
  ticker_.setInterval(150);
  connect(&ticker_, &QTimer::timeout, this, &ScanDriver::onTick);
  // The walk's threads tell through these; a signal carries nothing of theirs across, the
  // data waits in the run under its lock.
  connect(this, &ScanDriver::branchesWaiting, this, &ScanDriver::drain, Qt::QueuedConnection);
  connect(this, &ScanDriver::walkEnded, this, &ScanDriver::onWalkDone, Qt::QueuedConnection);
}

ScanDriver::~ScanDriver() {
  if (!run_) return;
  std::unique_lock lock(run_->mutex);
  run_->owner = nullptr;
  run_->stop.request();
  // A walk that answers the stop is waited for; one blocked in the kernel is left to itself.
  const bool done = run_->changed.wait_for(lock, kAbandonAfter, [this] { return run_->done; });
  lock.unlock();
  if (thread_.joinable()) {
    if (done)
      thread_.join();
    else
      thread_.detach();
  }
}

uint32_t ScanDriver::lastRoot() const {
  return lastRootGeneration_ == tree_.generation() && tree_.isLive(lastRoot_) ? lastRoot_ : kNoNode;
}

std::string ScanDriver::currentFolder() const {
  return run_ && run_->walk ? run_->walk->currentFolder() : std::string();
}

void ScanDriver::launch(Job job, uint32_t node, const std::string& path) {
  job_ = job;
  walkPath_ = path;
  node_ = node;
  placed_.clear();
  stopSeen_ = {};
  auto run = std::make_shared<Run>();
  run->stop.copyFrom(stop_);
  run->owner = async_ ? this : nullptr;
  WalkOptions o;
  o.threads = settings_.threads;
  // For measurements: the number of walk threads can be forced from the environment.
  if (const int forced = qEnvironmentVariableIntValue("QUORLANE_THREADS"); forced > 0)
    o.threads = forced;
  o.noHardlinks = settings_.noHardlinks;
  o.folderColorFade = settings_.folderColorFade;
  o.mode = settings_.mode;
  o.excludes = settings_.excludes;
  o.filesLabel = TL(3514, "Dateien").toStdString();
  if (feedFactory_) run->feed = feedFactory_();
  o.feed = run->feed.get();
  // A walk the owner waits for reads the owner's stop itself; one that runs beside the
  // event loop reads its own, which the driver sets, so that it can be left behind.
  const Stop* stop = async_ ? &run->stop : &stop_;
  if (job != Job::FilesRescan) run->walk = std::make_unique<FolderWalk>(o, *stop);
  run_ = run;
  const bool yieldToOwner = async_;
  const SizeMode mode = settings_.mode;
  auto body = [run, job, path, stop, yieldToOwner, mode] {
    // Beside a window the walk gives way: its workers inherit this, and the user-interface
    // thread gets the cores whenever it has something to do.
    if (yieldToOwner) ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 10);
    const WalkOutcome outcome = job == Job::FilesRescan
                                    ? FolderWalk::scanFilesOnly(path, *stop, nullptr, mode)
                                    : run->walk->scanFolder(path, *run);
    std::lock_guard lock(run->mutex);
    run->outcome = outcome;
    run->done = true;
    run->changed.notify_all();
    if (run->owner) Q_EMIT run->owner->walkEnded();
  };
  try {
    thread_ = std::thread(body);
    return;
  } catch (const std::system_error&) {
  } catch (const std::bad_alloc&) {
  }
  // No thread to be had. A run that waits anyway walks on this thread; beside a window that
  // would freeze it, so there the folder is a failure, never a quietly empty one.
  if (!async_) {
    body();
    return;
  }
  std::lock_guard lock(run->mutex);
  run->failures.push_back(WalkFailure{WalkFailure::Kind::OutOfMemory, EAGAIN, path, {}});
  run->outcome.readable = true;
  run->outcome.interrupted = true;
  run->done = true;
  run->wakeOwner();
  Q_EMIT walkEnded();
}

void ScanDriver::endThread() {
  if (thread_.joinable()) thread_.join();
}

// Links finished top-level folders in at the place the listing gave them, and reports failures.
void ScanDriver::drain() {
  if (!run_) return;
  std::vector<std::pair<uint32_t, ReportTree>> branches;
  std::vector<WalkFailure> failures;
  {
    std::lock_guard lock(run_->mutex);
    branches.swap(run_->branches);
    failures.swap(run_->failures);
    run_->drainPosted = false;
  }
  if (node_ != kNoNode)
    for (auto& [position, branch] : branches) place(position, std::move(branch));
  for (const auto& f : failures) reportFailure(f);
}

void ScanDriver::reportFailure(const WalkFailure& f) {
  QString text;
  switch (f.kind) {
    case WalkFailure::Kind::SumOverflow:
      text = TL(4040, "Überlauf der Summe");
      break;
    case WalkFailure::Kind::OutOfDescriptors:
      text = TL(4041, "Zu viele offene Dateien: Ordner konnten nicht gelesen werden.");
      break;
    case WalkFailure::Kind::OutOfMemory:
      text = TL(4042, "Nicht genug Speicher: Ordner konnten nicht gelesen werden.");
      break;
    case WalkFailure::Kind::ReadError:
      text = TL(4043, "Lesefehler: %1", {QString::fromStdString(systemErrorText(f.error))});
      break;
  }
  FailureReport(QStringLiteral("Report_ScanFolders"), QStringLiteral("frmMain"), 0, text,
                {pathText(f.path), pathText(f.name)});
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
    const int err = path.empty() ? ENOENT : probePath(path);
    if (err != 0) {
      // A source that is not there is dropped without a word; any other reason is told.
      if (err != ENOENT)
        Q_EMIT sourceRefused(pathText(path), QString::fromStdString(systemErrorText(err)));
      queue_.pop_front();
      continue;
    }
    scanPath = addSlash(path);
    Q_EMIT sourceAccepted(QByteArray::fromStdString(path));
    lastRoot_ = tree_.addRoot(rootText(scanPath));
    lastRootGeneration_ = tree_.generation();
    Q_EMIT sourceStarted(lastRoot_);
    return true;
  }
  return false;
}

// The walked folder's own sums and its files row, once all its branches are in.
void ScanDriver::finishWalk(const WalkOutcome& outcome) {
  drain();
  const uint32_t node = node_;
  if (job_ == Job::Source && !outcome.readable && outcome.openError != 0 &&
      outcome.openError != ENOENT)
    Q_EMIT sourceRefused(pathText(tree_.fullPath(node)),
                         QString::fromStdString(systemErrorText(outcome.openError)));
  // The folder's own files get a row of their own when it also has subfolder rows.
  if (!outcome.interrupted && outcome.ownBytes > 0 && !tree_.children(node).empty()) {
    const uint32_t files = tree_.addChild(node, TL(3514, "Dateien").toStdString(), 0);
    tree_.setSizeAndFiles(files, outcome.ownBytes, outcome.ownFiles);
  }
  total_ = outcome.total;
  tree_.setSizeAndFiles(node, total_.size, total_.files);
  tree_.setFolders(node, static_cast<int32_t>(std::min<int64_t>(total_.folders, INT32_MAX)));
  tree_.updatePercent(node);
  node_ = kNoNode;
  run_.reset();
  if (job_ == Job::Source) Q_EMIT sourceFinished(node);
}

// The owner's side of a walk it waits for itself: branches are linked in as they come, so they
// never pile up, and the tree has one writer only.
WalkOutcome ScanDriver::waitForWalk() {
  for (;;) {
    std::unique_lock lock(run_->mutex);
    run_->changed.wait_for(lock, std::chrono::milliseconds(100), [this] {
      return run_->done || !run_->branches.empty() || !run_->failures.empty();
    });
    const bool done = run_->done;
    lock.unlock();
    if (stopped()) run_->stop.request();
    drain();
    if (done) break;
  }
  endThread();
  return run_->outcome;
}

void ScanDriver::runToEnd() {
  if (busy_) return;
  busy_ = true;
  async_ = false;
  try {
    std::string scanPath;
    while (takeNextSource(scanPath)) {
      launch(Job::Source, lastRoot_, scanPath);
      finishWalk(waitForWalk());
      if (stopped()) break;
      if (!queue_.empty()) queue_.pop_front();
    }
  } catch (...) {
    resetAfterFailure();
    throw;
  }
  finishAll();
}

void ScanDriver::start() {
  if (busy_) return;  // the running driver reads what was added to the queue
  busy_ = true;
  async_ = true;
  ticker_.start();
  try {
    readNextAsync();
  } catch (...) {
    resetAfterFailure();
    throw;
  }
}

void ScanDriver::readNextAsync() {
  std::string scanPath;
  if (!takeNextSource(scanPath)) {
    finishAll();
    return;
  }
  launch(Job::Source, lastRoot_, scanPath);
}

void ScanDriver::stop() {
  stop_.request();
  if (run_) run_->stop.request();
}

void ScanDriver::onTick() {
  const std::string folder = currentFolder();
  if (!folder.empty()) Q_EMIT progress(pathText(folder));
  if (!run_ || !stopped()) return;
  run_->stop.request();
  const auto now = std::chrono::steady_clock::now();
  if (stopSeen_ == std::chrono::steady_clock::time_point{})
    stopSeen_ = now;
  else if (now - stopSeen_ >= kAbandonAfter)
    abandon();
}

// The walk did not answer the stop: a worker is blocked in the kernel. What was handed in so far
// stays; the folder's sums are those of its rows, and the walk is left to end on its own.
void ScanDriver::abandon() {
  {
    std::lock_guard lock(run_->mutex);
    if (run_->done) return;  // it has just ended: onWalkDone follows
    run_->owner = nullptr;
  }
  thread_.detach();
  drain();
  WalkOutcome o;
  o.readable = true;
  o.interrupted = true;
  for (uint32_t c : tree_.children(node_)) {
    const auto& n = tree_.node(c);
    o.total.size += n.size;
    o.total.files += n.files;
    if (tree_.isFolder(c)) o.total.folders += 1 + tree_.folders(c);
  }
  afterWalk(o);
}

void ScanDriver::onWalkDone() {
  if (!run_) return;
  {
    std::lock_guard lock(run_->mutex);
    if (!run_->done) return;
  }
  endThread();
  // A copy: the run goes before the outcome is done with.
  const WalkOutcome outcome = run_->outcome;
  afterWalk(outcome);
}

void ScanDriver::afterWalk(const WalkOutcome& outcome) {
  if (job_ != Job::Source) {
    finishRescan(outcome);
    return;
  }
  finishWalk(outcome);
  if (stopped()) {
    finishAll();
    return;
  }
  if (!queue_.empty()) queue_.pop_front();
  readNextAsync();
}

void ScanDriver::finishAll() {
  queue_.clear();  // a stop forgets the sources not reached
  ticker_.stop();
  // The walk's records and branches are gone; give their memory back rather than keep it
  // for the next walk.
  ::malloc_trim(0);
  tree_.sortAll();
  stop_.reset();
  busy_ = false;
  Q_EMIT finished();
}

// Whatever failed half-way, the driver is ready for the next command afterwards.
void ScanDriver::resetAfterFailure() {
  if (run_) {
    {
      std::lock_guard lock(run_->mutex);
      run_->owner = nullptr;
      run_->stop.request();
    }
    if (thread_.joinable()) thread_.detach();
    run_.reset();
  }
  node_ = kNoNode;
  ticker_.stop();
  stop_.reset();
  busy_ = false;
}

bool ScanDriver::rescan(uint32_t node, bool full, bool wait) {
  if (busy_ || !tree_.isLive(node)) return false;
  if (settings_.mode.linksOnce) {
    node = tree_.rootOf(node);
    full = true;
  }
  if (!tree_.isFolder(node)) node = tree_.parent(node);
  // A link or a mount is never entered.
  if (tree_.hasFlag(node, ReportTree::Junction)) return false;
  const auto& n = tree_.node(node);
  rescan_ = Rescan{full, node, n.size, n.files, tree_.folders(node)};
  const std::string path = addSlash(tree_.fullPath(node));
  busy_ = true;
  async_ = !wait;
  try {
    if (full) {
      tree_.clearChildren(node);
    } else if (const uint32_t files = filesRowOf(tree_, node); files != kNoNode) {
      // A leaf keeps its own files in its own sums and has no files row: nothing is taken away
      // there, and they count twice until the folder above is measured in full.
      adjustUp(tree_, node, SumChange{-tree_.node(files).size, -tree_.node(files).files, 0});
      tree_.removeSubtree(files);
    }
    launch(full ? Job::FullRescan : Job::FilesRescan, node, path);
    if (wait) {
      finishRescan(waitForWalk());
      return true;
    }
  } catch (...) {
    resetAfterFailure();
    throw;
  }
  ticker_.start();
  return true;
}

void ScanDriver::finishRescan(const WalkOutcome& outcome) {
  const Rescan r = rescan_;
  rescan_ = Rescan{};
  bool added = true;
  if (r.full) {
    finishWalk(outcome);
    // The folder itself was set from the walk; what lies above moves by the difference.
    const auto& n = tree_.node(r.node);
    if (!tree_.isRoot(r.node))
      added = adjustUp(tree_, tree_.parent(r.node),
                       SumChange{n.size - r.oldSize, n.files - r.oldFiles,
                                 tree_.folders(r.node) - r.oldFolders});
  } else {
    drain();
    node_ = kNoNode;
    run_.reset();
    if (!outcome.interrupted && outcome.ownBytes > 0 && outcome.ownFiles > 0) {
      const uint32_t files = tree_.addChild(r.node, TL(3514, "Dateien").toStdString(), 0);
      tree_.setSizeAndFiles(files, outcome.ownBytes, outcome.ownFiles);
      added = adjustUp(tree_, r.node, SumChange{outcome.ownBytes, outcome.ownFiles, 0});
    }
  }
  if (!added)
    FailureReport(QStringLiteral("Report_Rescan"), QStringLiteral("frmMain"), 0,
                  TL(4040, "Überlauf der Summe"), {pathText(tree_.fullPath(r.node))});
  refreshPercentsUp(tree_, r.node);
  ticker_.stop();
  tree_.sortAll();
  busy_ = false;
  stop_.reset();
  Q_EMIT rescanFinished(r.node);
  // Sources handed over meanwhile are read now.
  if (!queue_.empty()) {
    if (async_)
      start();
    else
      runToEnd();
  }
}

void ScanDriver::removeSource(uint32_t node) {
  if (busy_ || !tree_.isLive(node)) return;
  tree_.removeSubtree(tree_.rootOf(node));
}

void ScanDriver::clearAll() {
  if (busy_) return;
  tree_.clear();
  lastRoot_ = kNoNode;
}

}  // namespace ql
