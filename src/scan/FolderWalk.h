#pragma once
// The walk that measures one folder and everything below it.
//
// Protocol with the owner of the report tree:
//  - scanFolder() reads the folder on a pool of worker threads and blocks until all are done.
//  - Each direct subfolder of the walked folder, once its whole subtree is finished (or cut by
//    a stop), is built into a private one-root ReportTree on the worker that finished it and
//    handed to WalkSink::branchDone together with its place in the folder's listing. The owner
//    puts it there; the final tree is the same for any thread count.
//  - scanFolder() returns the walked folder's own sums and what the owner needs to finish it (its
//  own
//    files, whether it was interrupted).
//  - Files are offered to a FileFeed when there is one; without one nothing is built for them.
//
// Rules: a folder's own files become a pseudo node only when the folder has subfolder rows and
// its files hold at least one byte; links to folders and mount points are junctions, shown as
// empty rows (or left out with noHardlinks) and never entered; a folder that cannot be read is
// a folder of 0 bytes; a stop leaves partial sums that add up, and an interrupted folder gets no
// pseudo node.
//
// Sizes follow SizeMode: st_size or st_blocks x 512, every name of a hard-linked file counted, or
// each inode once per folder and everything below it (as `du -s` of that folder counts it). The
// latter dedups a folder's inodes as it completes: each folder carries the sorted set of the
// hard-linked inodes below it up to its parent, 16 bytes an inode, and a file of one name is
// never looked up. A folder's sum is then its own count, which may be less than its rows add up
// to; which of the names counts changes no sum, so the tree is the same for any thread count.
//
// Excludes: an entry whose name (or, for a pattern with a "/", whose path below the walked
// folder) matches a pattern is an excluded row like a junction, never entered, of no size.
//
// Hostile file systems: a subfolder on another mount is recognised by a statx of its name before
// anything opens it, so a dead network or FUSE mount or an automount below the folder is a
// junction that is never touched; links are resolved without syncing or automounting. A sum that
// would overflow keeps its last value and is reported. Any call that fails for want of
// descriptors or memory (an open, a listing, a statx of an entry) is reported (once per walk) and
// cuts the folder like a stop, as does a listing that fails half way (reported as a read error);
// it never passes for an unreadable folder or an entry that is gone. A folder taken away while it
// is read is no failure: what was read counts, and its sums stay those of its rows. With no
// thread to be had the walk reads on the calling thread. The walk keeps at most as many folders
// open as RLIMIT_NOFILE leaves it. Paths may be of any length.
//
// scanFolder() touches only its arguments, its stop, the walk's own members and the
// sink (no globals): an owner may leave a walk blocked in the kernel to finish on its own later,
// keeping the walk, the sink and the stop alive.
//
// The export's walk (json/JsonExport.cpp) reads folders with the same DirReader but keeps a pool
// of its own. Its workers only read ahead of one writer that takes folders in output order, a
// bounded number of folders ahead, and the writer reads a folder itself when it gets there
// first; this walk's workers take any folder and complete sums bottom-up. One pool for both would
// need a scheduler that knows both orders, and neither walk would get faster: each pool lives
// only as long as its walk, and the two never run in one process at once.
//
// Threads: scanFolder() may be called from any thread; WalkSink and FileFeed are called from
// workers. currentFolder() may be called from any thread while a walk is under way.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "report/ReportTree.h"
#include "support/Stop.h"

namespace ql {

struct ScanResult {
  int64_t size = 0;
  int64_t files = 0;
  int64_t folders = 0;
};

// A file the walk met, for the largest-files list, the treemap and the snapshot.
struct FoundFile {
  std::string folder;  // with a trailing "/"
  std::string_view name;
  int64_t size = 0;
  int64_t modified = 0;  // seconds since the epoch
  int64_t accessed = 0;
  int64_t created = -1;  // -1 where the file system keeps no birth time
  uint32_t mode = 0;
  uint64_t blocks = 0;  // 512-byte blocks allocated, for the sparse mark
  uint64_t attributes = 0;  // statx attribute bits (compressed, encrypted, ...)
  uint64_t length = 0;      // st_size, whichever size the walk counts
  uint64_t device = 0;      // with ino: which file a name is of
  uint64_t ino = 0;
  uint32_t nlink = 0;
};

class FileFeed {
 public:
  virtual ~FileFeed() = default;
  // Files smaller than this are not offered. Read once per file by workers.
  virtual int64_t minimumSize() const = 0;
  // Called concurrently from workers.
  virtual void offer(const FoundFile& file) = 0;
};

// Calls that fail for want of descriptors or memory: a failure of the run (the walk's and the
// export's), never an unreadable folder nor an entry that is gone.
inline bool isShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

// A failure of the run; the owner chooses the text in the user's language.
struct WalkFailure {
  enum class Kind { SumOverflow, OutOfDescriptors, OutOfMemory, ReadError };
  Kind kind = Kind::ReadError;
  int error = 0;     // errno, 0 where none
  std::string path;  // the folder
  std::string name;  // the entry being looked at, if any
};

class WalkSink {
 public:
  virtual ~WalkSink() = default;
  virtual void branchDone(uint32_t position, ReportTree&& branch) = 0;
  virtual void failure(const WalkFailure& failure) = 0;
};

// How sizes are counted; logical, every name, by default.
struct SizeMode {
  bool allocated = false;  // st_blocks x 512 instead of st_size
  bool linksOnce = false;  // a hard-linked inode once per folder, not once per name
  bool operator==(const SizeMode&) const = default;
};

// Shell patterns (fnmatch) matched against an entry's name, or against its path below the walked
// folder when the pattern holds a "/". The first pattern that matches is given back.
class ExcludeList {
 public:
  ExcludeList() = default;
  explicit ExcludeList(const std::vector<std::string>& patterns);
  bool empty() const { return names_.empty() && paths_.empty(); }
  bool needsPath() const { return !paths_.empty(); }
  // `relative` is the entry's path below the walked folder (only looked at when needsPath()).
  const std::string* match(const char* name, const std::string& relative) const;

 private:
  std::vector<std::string> names_, paths_;
};

struct WalkOptions {
  int threads = 0;  // 0: one per core, more while the disk keeps them waiting
  bool noHardlinks = false;
  bool folderColorFade = false;
  std::string filesLabel = "Dateien";
  FileFeed* feed = nullptr;
  SizeMode mode;
  std::vector<std::string> excludes;
};

struct WalkOutcome {
  ScanResult total;
  int64_t ownBytes = 0;  // the walked folder's own files
  int64_t ownFiles = 0;
  uint32_t childRows = 0;  // subfolder rows handed over
  bool interrupted = false;
  bool readable = false;
  int openError = 0;  // the errno when the walked folder itself could not be opened
};

class FolderWalk {
 public:
  static constexpr int kMaxThreads = 16;

  // The workers look at `stop` between entries; once it is requested the walk ends.
  FolderWalk(WalkOptions options, const Stop& stop);
  ~FolderWalk();
  FolderWalk(const FolderWalk&) = delete;
  FolderWalk& operator=(const FolderWalk&) = delete;

  WalkOutcome scanFolder(const std::string& folder, WalkSink& sink);

  // Only the files directly in the folder; subfolders and links to folders are passed over.
  // Failures go to the sink when there is one.
  static WalkOutcome scanFilesOnly(const std::string& folder, const Stop& stop,
                                   WalkSink* sink = nullptr, SizeMode mode = {});

  // A folder being read at this moment, "" when none.
  std::string currentFolder() const;
  // Folders finished so far in this run.
  uint64_t foldersDone() const { return foldersDone_.load(std::memory_order_relaxed); }

  static int defaultThreads();

 private:
  struct Dir;
  struct Worker;
  struct Branch;

  void workerLoop(Worker& w);
  void process(Worker& w, Dir* d);
  void enumerate(Worker& w, Dir* d, int fd);
  int openDir(Dir* d);
  int openFromRoot(Dir* d);
  void openFailed(Dir* d, int error);
  void shortage(Dir* d, std::string_view name, int error);
  void releaseParentFd(Dir* d);
  void finishOwn(Worker& w, Dir* d);
  void complete(Worker& w, Dir* d);
  void mergeLinks(Dir* d);
  void settle(Dir* d);
  void handOver(Dir* d);
  std::string pathOf(const Dir* d) const;
  std::string relativeOf(const Dir* d) const;
  void push(Dir* const* dirs, size_t count);
  Dir* pop();
  void fail(const Dir* d, std::string_view name, WalkFailure::Kind kind, int error);
  int descriptorBudget(int maxThreads);

  WalkOptions options_;
  const Stop& stop_;
  WalkSink* sink_ = nullptr;
  std::string rootPath_;
  int rootFd_ = -1;
  bool checkMounts_ = false;
  uint64_t rootDev_ = 0;
  ExcludeList excludes_;
  int fdBudget_ = 0;
  std::atomic<int> openFds_{0};
  std::atomic<bool> shortReported_{false};  // out of descriptors or memory, told once per walk
  std::atomic<uint64_t> foldersDone_{0};

  std::mutex queueMutex_;
  struct Queue;
  std::unique_ptr<Queue> queue_;

  mutable std::mutex lifeMutex_;  // guards the workers' records against currentFolder()
  std::vector<std::unique_ptr<Worker>> workers_;
  Dir* root_ = nullptr;
  WalkOutcome outcome_;
};

}  // namespace ql
