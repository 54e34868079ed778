#include "scan/FolderWalk.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <deque>
#include <optional>
#include <system_error>
#include <thread>

#include "drives/MountTable.h"
#include "scan/DirReader.h"
#include "scan/FileOps.h"
#include "scan/HardLinks.h"
#include "support/Path.h"

namespace ql {

namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders passed through on the way down: O_PATH opens nothing on the file system's side.
constexpr int kPassFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Adds only when the sum stays representable; else the sum keeps its value.
bool checkedAdd(int64_t& sum, int64_t value) {
  int64_t result;
  if (__builtin_add_overflow(sum, value, &result)) return false;
  sum = result;
  return true;
}

WalkFailure::Kind shortageKind(int error) {
  return error == ENOMEM ? WalkFailure::Kind::OutOfMemory : WalkFailure::Kind::OutOfDescriptors;
}

// Starts a thread; false when the system has none to give (the walk then does with fewer).
template <class Fn>
bool startThread(std::vector<std::thread>& pool, Fn&& fn) {
  try {
    pool.emplace_back(std::forward<Fn>(fn));
    return true;
  } catch (const std::system_error&) {
  } catch (const std::bad_alloc&) {
  }
  return false;
}

uint64_t mountIdOf(int fd) {
  struct statx sx;
  if (statx(fd, "", AT_EMPTY_PATH | kStatxQuiet, STATX_MNT_ID, &sx) != 0) return 0;
  return mountIdFrom(sx);
}

std::string readSmallFile(const char* path) {
  std::string text;
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return text;
  char buf[16384];
  for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(n));
  ::close(fd);
  return text;
}

// True when some mount point lies strictly below the folder; only then is every folder's mount
// asked, which saves a system call per folder in the common case.
bool mountsBelow(const std::string& folder) {
  char resolved[PATH_MAX];
  if (!realpath(folder.c_str(), resolved)) return true;
  std::string base = resolved;
  if (base.back() != '/') base.push_back('/');
  const std::string info = readSmallFile("/proc/self/mountinfo");
  if (info.empty()) return true;
  for (const MountEntry& m : parseMountTable(info))
    if (m.mountPoint.size() > base.size() && m.mountPoint.compare(0, base.size(), base) == 0) return true;
  return false;
}

}  // namespace

ExcludeList::ExcludeList(const std::vector<std::string>& patterns) {
  for (const std::string& p : patterns)
    if (!p.empty()) (p.find('/') == std::string::npos ? names_ : paths_).push_back(p);
}

const std::string* ExcludeList::match(const char* name, const std::string& relative) const {
  for (const std::string& p : names_)
    if (::fnmatch(p.c_str(), name, 0) == 0) return &p;
  for (const std::string& p : paths_)
    if (::fnmatch(p.c_str(), relative.c_str(), FNM_PATHNAME) == 0) return &p;
  return nullptr;
}

namespace {

// One key per inode: the walked folder's device keeps the bare inode number; another (a
// subvolume, say) is spread over the high bits, where inode numbers do not reach.
uint64_t linkKey(const struct statx& sx, uint64_t rootDev) {
  const uint64_t dev = makedev(sx.stx_dev_major, sx.stx_dev_minor);
  return dev == rootDev ? sx.stx_ino : sx.stx_ino ^ (dev * 0x9E3779B97F4A7C15ull);
}

int64_t sizeIn(const SizeMode& mode, const struct statx& sx) {
  return mode.allocated ? static_cast<int64_t>(sx.stx_blocks * 512)
                        : static_cast<int64_t>(sx.stx_size);
}
}  // namespace

// One folder of the walk. Made by the worker that listed its parent; its name and place never
// change afterwards. Sums are written by the one thread that completes it. A record lives until
// its parent is complete: by then its row is in the branch and nothing looks at it again, so the
// records held at any time are those of the folders under way and their waiting siblings.
struct FolderWalk::Dir {
  Dir* parent = nullptr;
  Dir** children = nullptr;
  Branch* branch = nullptr;  // the tree of the top-level folder this one lies in
  Links* links = nullptr;    // links once: the hard-linked inodes below it, sorted, once each
  uint64_t mountId = 0;
  int64_t ownBytes = 0;
  int64_t ownFiles = 0;
  int64_t size = 0;
  int64_t files = 0;
  int64_t folders = 0;
  std::atomic<uint32_t> fdUsers{0};
  std::atomic<uint32_t> pending{1};  // own listing plus children not yet complete
  int fd = -1;
  uint32_t position = 0;  // place among the parent's subfolders in the listing
  uint32_t level = 0;     // 0 for the walked folder
  uint32_t childCount = 0;
  uint32_t node = kNoNode;  // its row in the branch, once complete
  uint16_t nameLength = 0;
  bool keepsFd = false;      // children open themselves relative to fd
  bool junction = false;
  bool omitted = false;      // no row: a left-out junction, or never reached before a stop
  bool dropped = false;      // never reached before a stop
  bool interrupted = false;  // its listing or a listing below it was cut

  // The name is kept right behind the record, NUL-terminated.
  const char* name() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view nameView() const { return {name(), nameLength}; }

  static Dir* make(const char* name, size_t length) {
    auto* d = new (::operator new(sizeof(Dir) + length + 1)) Dir();
    auto* n = reinterpret_cast<char*>(d + 1);
    std::memcpy(n, name, length);
    n[length] = 0;
    d->nameLength = static_cast<uint16_t>(length);
    return d;
  }
  static void destroy(Dir* d) {
    delete[] d->children;
    delete d->links;
    d->~Dir();
    ::operator delete(d);
  }
};

// The rows of one top-level folder, made bottom-up as its folders complete, on whichever worker
// completes them; handed over whole when the top-level folder completes. The tree is made with
// the first row: a tree starts with a block of rows, and every top-level folder has its branch
// from the start.
struct FolderWalk::Branch {
  std::mutex mutex;
  std::optional<ReportTree> rows;
  std::vector<uint32_t> kids;
  ReportTree& tree() { return rows ? *rows : rows.emplace(); }
};

struct FolderWalk::Worker {
  std::atomic<Dir*> current{nullptr};
  DirReader reader;
  // Subfolders of the listing under way: offset of the name in `names`, and junction flag.
  std::vector<std::pair<uint32_t, bool>> subdirs;
  std::string names;
  std::vector<Dir*> jobs;
  Links links;
};

struct FolderWalk::Queue {
  std::vector<Dir*> stack;
  std::condition_variable wake;
  std::condition_variable finished;
  bool done = false;
};

int FolderWalk::defaultThreads() {
  return static_cast<int>(std::max(2u, std::thread::hardware_concurrency()));
}

namespace {
int64_t processCpuMicros() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return int64_t{ts.tv_sec} * 1'000'000 + ts.tv_nsec / 1000;
}
}  // namespace

FolderWalk::FolderWalk(WalkOptions options, const Stop& stop)
    : options_(std::move(options)), stop_(stop), queue_(std::make_unique<Queue>()) {}

FolderWalk::~FolderWalk() = default;

std::string FolderWalk::pathOf(const Dir* d) const {
  std::vector<const Dir*> chain;
  for (const Dir* p = d; p && p->parent; p = p->parent) chain.push_back(p);
  std::string path = rootPath_;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if (path.empty() || path.back() != '/') path.push_back('/');
    path.append((*it)->name(), (*it)->nameLength);
  }
  return path;
}

std::string FolderWalk::currentFolder() const {
  std::lock_guard lock(lifeMutex_);
  for (const auto& w : workers_)
    if (const Dir* d = w->current.load(std::memory_order_acquire)) return pathOf(d);
  return {};
}

void FolderWalk::fail(const Dir* d, std::string_view name, WalkFailure::Kind kind, int error) {
  if (sink_) sink_->failure(WalkFailure{kind, error, pathOf(d), std::string(name)});
}

// An open that failed for want of descriptors or memory cuts the folder and is told once per
// walk; any other failure makes an unreadable folder, which is a folder of 0 bytes.
void FolderWalk::openFailed(Dir* d, int error) {
  if (isShortage(error)) shortage(d, {}, error);
}

void FolderWalk::shortage(Dir* d, std::string_view name, int error) {
  d->interrupted = true;
  if (!shortReported_.exchange(true, std::memory_order_relaxed))
    fail(d, name, shortageKind(error), error);
}

// Folders kept open for their subfolders get what RLIMIT_NOFILE leaves: the soft limit less the
// descriptors open now, two per possible worker (a folder being read, one being opened), the
// walked folder and a reserve for the rest of the program.
int FolderWalk::descriptorBudget(int maxThreads) {
  constexpr int64_t kReserve = 8, kMinimum = 4, kMaximum = 4096;
  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) != 0) return kMinimum;
  const int64_t soft = rl.rlim_cur == RLIM_INFINITY ? kMaximum * 4 : static_cast<int64_t>(rl.rlim_cur);
  const int fd = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return kMinimum;
  int64_t open = -1;  // the listing's own descriptor is not counted
  workers_[0]->reader.read(fd, [&open](DirEntry&) { return ++open, true; });
  ::close(fd);
  return static_cast<int>(std::clamp(soft - open - 2 * maxThreads - 1 - kReserve, kMinimum, kMaximum));
}

void FolderWalk::push(Dir* const* dirs, size_t count) {
  if (count == 0) return;
  std::lock_guard lock(queueMutex_);
  // Last in, first out, with the first subfolder on top: the walk goes depth first in listing
  // order, which keeps the tree growing in order and the open folders few.
  for (size_t i = count; i-- > 0;) queue_->stack.push_back(dirs[i]);
  if (count == 1)
    queue_->wake.notify_one();
  else
    queue_->wake.notify_all();
}

FolderWalk::Dir* FolderWalk::pop() {
  std::unique_lock lock(queueMutex_);
  queue_->wake.wait(lock, [this] { return queue_->done || !queue_->stack.empty(); });
  if (queue_->stack.empty()) return nullptr;
  Dir* d = queue_->stack.back();
  queue_->stack.pop_back();
  return d;
}

WalkOutcome FolderWalk::scanFolder(const std::string& folder, WalkSink& sink) {
  sink_ = &sink;
  rootPath_ = folder.size() > 1 && folder.back() == '/' ? folder.substr(0, folder.size() - 1) : folder;
  outcome_ = WalkOutcome{};
  foldersDone_ = 0;
  openFds_ = 0;
  shortReported_ = false;
  queue_ = std::make_unique<Queue>();

  // One worker per core to begin with. When the workers leave the cores idle while folders are
  // waiting, they are waiting on the disk: then more of them keep more requests in flight.
  const bool fixed = options_.threads > 0;
  const int threads = fixed ? options_.threads : defaultThreads();
  const int maxThreads = fixed ? threads : std::max(threads, kMaxThreads);
  {
    std::lock_guard lock(lifeMutex_);
    workers_.clear();
    // Asking for more of the basic fields costs the kernel nothing: it fills them all anyway.
    unsigned mask =
        options_.feed
            ? (STATX_SIZE | STATX_MODE | STATX_MTIME | STATX_ATIME | STATX_BTIME | STATX_BLOCKS |
               STATX_NLINK | STATX_INO)
            : STATX_SIZE;
    if (options_.mode.allocated) mask |= STATX_BLOCKS;
    if (options_.mode.linksOnce) mask |= STATX_NLINK | STATX_INO;
    for (int i = 0; i < maxThreads; ++i) {
      workers_.push_back(std::make_unique<Worker>());
      workers_.back()->reader.setMask(mask);
    }
  }
  fdBudget_ = descriptorBudget(maxThreads);

  rootFd_ = openFolderPath(folder);
  if (rootFd_ < 0) {
    // A folder that cannot be read is a folder of 0 bytes; one that could not be opened for
    // want of descriptors is a failure.
    outcome_.openError = -rootFd_;
    if (isShortage(outcome_.openError)) {
      outcome_.interrupted = true;
      sink.failure(WalkFailure{shortageKind(outcome_.openError), outcome_.openError, rootPath_, {}});
    }
    rootFd_ = -1;
    sink_ = nullptr;
    return outcome_;
  }
  outcome_.readable = true;
  checkMounts_ = mountsBelow(folder);
  excludes_ = ExcludeList(options_.excludes);
  if (options_.mode.linksOnce) {
    struct stat st;
    rootDev_ = ::fstat(rootFd_, &st) == 0 ? st.st_dev : 0;
  }

  Worker& first = *workers_[0];
  root_ = Dir::make("", 0);
  root_->mountId = checkMounts_ ? mountIdOf(rootFd_) : 0;
  // A statx of an open folder fails only for want of memory; with no mount to compare, every
  // subfolder would pass for a junction.
  const int fd = checkMounts_ && root_->mountId == 0 ? (errno = ENOMEM, -1) : ::dup(rootFd_);
  if (fd >= 0) {
    first.current.store(root_, std::memory_order_release);
    enumerate(first, root_, fd);
    first.current.store(nullptr, std::memory_order_release);
  } else {
    openFailed(root_, errno);
  }
  finishOwn(first, root_);

  std::vector<std::thread> pool;
  for (int i = 0; i < threads; ++i)
    if (!startThread(pool, [this, i] { workerLoop(*workers_[i]); })) break;
  // Not one worker to be had: this thread walks alone, and the result is the same.
  if (pool.empty()) workerLoop(*workers_[0]);
  bool grow = true;
  const double cores = std::max(1u, std::thread::hardware_concurrency());
  int64_t cpu = processCpuMicros();
  auto at = std::chrono::steady_clock::now();
  std::unique_lock lock(queueMutex_);
  while (!queue_->done) {
    queue_->finished.wait_for(lock, std::chrono::milliseconds(20));
    if (queue_->done || !grow || static_cast<int>(pool.size()) >= maxThreads) continue;
    const auto now = std::chrono::steady_clock::now();
    const int64_t nowCpu = processCpuMicros();
    const double wall = std::chrono::duration<double, std::micro>(now - at).count();
    const bool waiting = queue_->stack.size() > pool.size();
    if (waiting && nowCpu - cpu < 0.5 * cores * wall) {
      lock.unlock();
      for (int k = 0; k < 2 && grow && static_cast<int>(pool.size()) < maxThreads; ++k) {
        const int i = static_cast<int>(pool.size());
        grow = startThread(pool, [this, i] { workerLoop(*workers_[i]); });
      }
      lock.lock();
    }
    cpu = nowCpu;
    at = now;
  }
  lock.unlock();
  for (auto& t : pool) t.join();

  ::close(rootFd_);
  rootFd_ = -1;
  {
    std::lock_guard lock(lifeMutex_);
    workers_.clear();
    for (uint32_t i = 0; i < root_->childCount; ++i) Dir::destroy(root_->children[i]);
    Dir::destroy(root_);
    root_ = nullptr;
  }
  sink_ = nullptr;
  return outcome_;
}

void FolderWalk::workerLoop(Worker& w) {
  while (Dir* d = pop()) process(w, d);
}

void FolderWalk::process(Worker& w, Dir* d) {
  if (stop_.requested()) {
    releaseParentFd(d);
    d->omitted = d->dropped = true;
    finishOwn(w, d);
    return;
  }
  w.current.store(d, std::memory_order_release);
  const int fd = openDir(d);
  if (fd >= 0)
    enumerate(w, d, fd);
  else
    openFailed(d, -fd);
  w.current.store(nullptr, std::memory_order_release);
  finishOwn(w, d);
}

void FolderWalk::releaseParentFd(Dir* d) {
  Dir* p = d->parent;
  if (p->keepsFd && p->fdUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    ::close(p->fd);
    openFds_.fetch_sub(1, std::memory_order_relaxed);
  }
}

// Returns the descriptor or -errno.
int FolderWalk::openDir(Dir* d) {
  Dir* p = d->parent;
  if (!p->keepsFd) return openFromRoot(d);
  int fd = ::openat(p->fd, d->name(), kDirFlags);
  if (fd < 0) fd = -errno;
  releaseParentFd(d);
  return fd;
}

// For a folder whose parent gave its descriptor up: open it name by name from the walked
// folder, so no path length limit applies. Returns the descriptor or -errno.
int FolderWalk::openFromRoot(Dir* d) {
  std::vector<const Dir*> chain;
  for (const Dir* p = d; p->parent; p = p->parent) chain.push_back(p);
  int fd = rootFd_;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const int next = ::openat(fd, (*it)->name(), *it == d ? kDirFlags : kPassFlags);
    const int error = errno;
    if (fd != rootFd_) ::close(fd);
    if (next < 0) return -error;
    fd = next;
  }
  return fd;
}

void FolderWalk::enumerate(Worker& w, Dir* d, int fd) {
  const int64_t feedMinimum = options_.feed ? options_.feed->minimumSize() : INT64_MAX;
  const bool checkMounts = checkMounts_;
  const bool noLinks = options_.noHardlinks;
  const SizeMode mode = options_.mode;
  const bool excluding = !excludes_.empty();
  FoundFile f;             // one a folder: its path is built once, when a file is first offered
  std::string relative;    // below the walked folder, for patterns with a "/"
  if (excluding && excludes_.needsPath()) relative = relativeOf(d);
  const size_t relativeBase = relative.size();
  w.subdirs.clear();
  w.names.clear();
  w.links.clear();
  auto addSubfolder = [&w](const char* name, bool junction) {
    w.subdirs.emplace_back(static_cast<uint32_t>(w.names.size()), junction);
    w.names.append(name, std::strlen(name) + 1);
  };

  const DirReader::Result read = w.reader.read(fd, [&](DirEntry& e) {
    if (excluding) {
      if (excludes_.needsPath()) relative.replace(relativeBase, std::string::npos, e.name());
      if (excludes_.match(e.name(), relative)) {
        addSubfolder(e.name(), true);  // a row like a junction, never entered
        return true;
      }
    }
    if (e.isFolder()) {
      bool junction = false;
      if (checkMounts) {
        // Another mount below the source is known by name, before anything opens it: shown like
        // a link to a folder, never entered.
        const uint64_t id = e.mountId();
        if (id == 0) {
          if (e.error() != ENOMEM) return true;  // gone since the listing
          shortage(d, e.name(), ENOMEM);
          return false;
        }
        junction = id != d->mountId;
        if (junction && noLinks) return true;
      }
      addSubfolder(e.name(), junction);
      return true;
    }
    if (e.isLink() && e.linksToFolder()) {
      if (!noLinks) addSubfolder(e.name(), true);  // else left out: no row, no count
      return true;
    }
    const struct statx* sx = e.stat();
    if (e.error() == ENOMEM) {  // this entry or its link's target could not be looked at
      shortage(d, e.name(), ENOMEM);
      return false;
    }
    if (!sx) return true;  // gone since the listing
    const int64_t size = sizeIn(mode, *sx);
    if (!checkedAdd(d->ownBytes, size)) {
      fail(d, e.name(), WalkFailure::Kind::SumOverflow, 0);
      return false;
    }
    ++d->ownFiles;
    if (mode.linksOnce && sx->stx_nlink > 1 && size > 0) w.links.push_back(Link{linkKey(*sx, rootDev_), size});
    if (size >= feedMinimum) {
      if (f.folder.empty()) f.folder = addSlash(pathOf(d));
      f.name = e.name();
      f.size = size;
      f.modified = sx->stx_mtime.tv_sec;
      f.accessed = sx->stx_atime.tv_sec;
      f.created = (sx->stx_mask & STATX_BTIME) ? sx->stx_btime.tv_sec : -1;
      f.mode = sx->stx_mode;
      f.blocks = sx->stx_blocks;
      f.attributes = sx->stx_attributes & sx->stx_attributes_mask;
      f.length = sx->stx_size;
      f.device = makedev(sx->stx_dev_major, sx->stx_dev_minor);
      f.ino = sx->stx_ino;
      f.nlink = sx->stx_nlink;
      options_.feed->offer(f);
    }
    return true;
  }, &stop_);
  if (read.end == DirReader::End::Failed && read.error == ENOENT) {
    // The folder was taken away while it was read: it was emptied first, so what was read is
    // all it held. Not a failure, and not cut.
  } else if (read.end == DirReader::End::Failed && isShortage(read.error)) {
    shortage(d, {}, read.error);
  } else if (read.end != DirReader::End::Complete) {
    // Stopped, cut by an overflow or a shortage, or a listing that failed half way: what was
    // read counts.
    d->interrupted = true;
    if (read.end == DirReader::End::Failed) fail(d, {}, WalkFailure::Kind::ReadError, read.error);
  }
  if (!w.links.empty()) {
    d->ownBytes -= dedupLinks(w.links);
    d->links = new Links(std::move(w.links));
  }

  // Make the children. Jobs go on the stack; junctions are finished on the spot. Each folder
  // right below the walked one opens a branch for the rows below it.
  const auto count = static_cast<uint32_t>(w.subdirs.size());
  d->childCount = count;
  w.jobs.clear();
  if (count) d->children = new Dir*[count];
  for (uint32_t i = 0; i < count; ++i) {
    const char* nm = w.names.data() + w.subdirs[i].first;
    Dir* c = Dir::make(nm, std::strlen(nm));
    c->parent = d;
    c->mountId = d->mountId;
    c->position = i;
    c->level = d->level + 1;
    c->junction = w.subdirs[i].second;
    c->branch = d->branch;
    d->children[i] = c;
    if (!c->junction) w.jobs.push_back(c);
  }
  if (d == root_)
    for (Dir* c : w.jobs) c->branch = new Branch();
  const auto jobs = static_cast<uint32_t>(w.jobs.size());
  // The descriptor stays open for the subfolders while the budget allows.
  bool keep = jobs > 0;
  if (keep && openFds_.fetch_add(1, std::memory_order_relaxed) >= fdBudget_) {
    openFds_.fetch_sub(1, std::memory_order_relaxed);
    keep = false;
  }
  if (keep) {
    d->keepsFd = true;
    d->fd = fd;
    d->fdUsers.store(jobs, std::memory_order_relaxed);
  } else {
    ::close(fd);
  }
  if (d == root_)  // junctions right below the walked folder are finished top-level rows
    for (uint32_t i = 0; i < count; ++i)
      if (d->children[i]->junction) handOver(d->children[i]);
  d->pending.fetch_add(jobs, std::memory_order_relaxed);
  push(w.jobs.data(), jobs);
}

void FolderWalk::finishOwn(Worker& w, Dir* d) {
  if (d->pending.fetch_sub(1, std::memory_order_acq_rel) == 1) complete(w, d);
}

void FolderWalk::complete(Worker& w, Dir* d) {
  for (;;) {
    d->size = d->ownBytes;
    d->files = d->ownFiles;
    d->folders = 0;
    for (uint32_t i = 0; i < d->childCount; ++i) {
      const Dir* c = d->children[i];
      if (c->dropped || c->interrupted) d->interrupted = true;
      if (c->omitted) continue;
      int64_t size = d->size, files = d->files, folders = d->folders;
      if (!checkedAdd(size, c->size) || !checkedAdd(files, c->files) || !checkedAdd(folders, 1 + c->folders) ||
          folders > INT32_MAX) {
        fail(d, c->nameView(), WalkFailure::Kind::SumOverflow, 0);
        d->interrupted = true;
        break;
      }
      d->size = size;
      d->files = files;
      d->folders = folders;
    }
    if (options_.mode.linksOnce) mergeLinks(d);
    foldersDone_.fetch_add(1, std::memory_order_relaxed);
    if (d == root_) {
      outcome_.total = ScanResult{d->size, d->files, d->folders};
      outcome_.ownBytes = d->ownBytes;
      outcome_.ownFiles = d->ownFiles;
      outcome_.interrupted = d->interrupted;
      for (uint32_t i = 0; i < d->childCount; ++i) outcome_.childRows += !d->children[i]->omitted;
      std::lock_guard lock(queueMutex_);
      queue_->done = true;
      queue_->wake.notify_all();
      queue_->finished.notify_all();
      return;
    }
    settle(d);
    if (d->level == 1) handOver(d);
    Dir* p = d->parent;
    if (p->pending.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    d = p;
  }
  (void)w;
}

// Links once: the inodes of the folder's own files and of its children's sets, each counted once
// in the folder's sum.
void FolderWalk::mergeLinks(Dir* d) {
  if (d == root_) {  // its set goes nowhere: only its repeats are wanted
    std::vector<Links*> sets;
    if (d->links) sets.push_back(d->links);
    for (uint32_t i = 0; i < d->childCount; ++i)
      if (d->children[i]->links) sets.push_back(d->children[i]->links);
    d->size -= repeatsAcross(sets);
    for (Links* s : sets) delete s;
    d->links = nullptr;
    for (uint32_t i = 0; i < d->childCount; ++i) d->children[i]->links = nullptr;
    return;
  }
  Links* into = d->links;
  d->links = nullptr;
  bool merged = false;
  for (uint32_t i = 0; i < d->childCount; ++i) {
    Links* from = d->children[i]->links;
    d->children[i]->links = nullptr;
    if (!from) continue;
    if (!into) {
      into = from;
      continue;
    }
    d->size -= addLinks(*into, *from);
    delete from;
    merged = true;
  }
  if (merged) trimLinks(*into);
  d->links = into;
}

// The folder's path below the walked one, ending in "/" ("" for the walked folder).
std::string FolderWalk::relativeOf(const Dir* d) const {
  std::vector<const Dir*> chain;
  for (const Dir* p = d; p && p->parent; p = p->parent) chain.push_back(p);
  std::string path;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    path.append((*it)->name(), (*it)->nameLength);
    path.push_back('/');
  }
  return path;
}

// Makes the row of a complete folder below the walked one, with its children's rows (made when
// they completed) and its files row, and lets the children's records go.
void FolderWalk::settle(Dir* d) {
  const uint16_t fade = options_.folderColorFade ? ReportTree::Faded : 0;
  if (!d->omitted) {
    Branch& b = *d->branch;
    std::lock_guard lock(b.mutex);
    ReportTree& t = b.tree();
    b.kids.clear();
    for (uint32_t i = 0; i < d->childCount; ++i) {
      const Dir* c = d->children[i];
      if (c->omitted) continue;
      uint32_t row = c->node;
      if (c->junction) {
        row = t.addDetached(c->nameView(), ReportTree::IsFolder | ReportTree::Junction | fade);
        t.setFolders(row, 0);
      }
      b.kids.push_back(row);
    }
    if (!d->interrupted && d->ownBytes > 0 && !b.kids.empty()) {
      const uint32_t files = t.addDetached(options_.filesLabel, 0);
      t.setSizeAndFiles(files, d->ownBytes, d->ownFiles);
      b.kids.push_back(files);
    }
    d->node = t.addDetached(d->nameView(), ReportTree::IsFolder | fade);
    t.setSizeAndFiles(d->node, d->size, d->files);
    t.setFolders(d->node, static_cast<int32_t>(d->folders));
    t.setChildren(d->node, b.kids.data(), b.kids.size());
    t.updatePercent(d->node);
  }
  if (d->childCount == 0) return;
  std::lock_guard lock(lifeMutex_);  // currentFolder() may be reading a path through them
  for (uint32_t i = 0; i < d->childCount; ++i) Dir::destroy(d->children[i]);
  delete[] d->children;
  d->children = nullptr;
  d->childCount = 0;
}

// Hands the finished branch of a direct child of the walked folder over.
void FolderWalk::handOver(Dir* top) {
  std::unique_ptr<Branch> branch(top->branch);
  top->branch = nullptr;
  if (top->omitted) return;
  if (!branch) {  // a junction right below the walked folder
    branch = std::make_unique<Branch>();
    const uint16_t fade = options_.folderColorFade ? ReportTree::Faded : 0;
    top->node = branch->tree().addDetached(top->nameView(), ReportTree::IsFolder | ReportTree::Junction | fade);
    branch->tree().setFolders(top->node, 0);
  }
  branch->tree().setChildren(kSuperRoot, &top->node, 1);
  sink_->branchDone(top->position, std::move(branch->tree()));
}

WalkOutcome FolderWalk::scanFilesOnly(const std::string& folder, const Stop& stop, WalkSink* sink,
                                      SizeMode mode) {
  WalkOutcome out;
  auto report = [&](const char* name, WalkFailure::Kind kind, int error) {
    if (sink) sink->failure(WalkFailure{kind, error, folder, name});
  };
  const int fd = openFolderPath(folder);
  if (fd < 0) {
    out.openError = -fd;
    if (isShortage(out.openError)) {
      out.interrupted = true;
      report("", shortageKind(out.openError), out.openError);
    }
    return out;
  }
  out.readable = true;
  DirReader reader(STATX_SIZE | STATX_BLOCKS | STATX_NLINK | STATX_INO);
  Links links;
  const DirReader::Result read = reader.read(fd, [&](DirEntry& e) {
    if (e.isFolder() || (e.isLink() && e.linksToFolder())) return true;
    const struct statx* sx = e.stat();
    if (e.error() == ENOMEM) {
      report(e.name(), WalkFailure::Kind::OutOfMemory, ENOMEM);
      return false;
    }
    if (!sx) return true;  // gone since the listing
    const int64_t size = sizeIn(mode, *sx);
    if (!checkedAdd(out.ownBytes, size)) {
      report(e.name(), WalkFailure::Kind::SumOverflow, 0);
      return false;
    }
    ++out.ownFiles;
    if (mode.linksOnce && sx->stx_nlink > 1 && size > 0)
      links.push_back(Link{linkKey(*sx, 0), size});
    return true;
  }, &stop);
  ::close(fd);
  out.ownBytes -= dedupLinks(links);
  if (read.end == DirReader::End::Failed && read.error == ENOENT) {
    // Taken away while it was read: what was read is all it held.
  } else if (read.end != DirReader::End::Complete) {
    out.interrupted = true;
    if (read.end == DirReader::End::Failed)
      report("", isShortage(read.error) ? shortageKind(read.error) : WalkFailure::Kind::ReadError,
             read.error);
  }

  out.total.size = out.ownBytes;
  out.total.files = out.ownFiles;
  return out;
}

}  // namespace ql
