#include "json/JsonExport.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include "json/Zstd.h"
#include "output/OutputFile.h"
#include "scan/DirReader.h"
#include "scan/FileOps.h"
#include "scan/FolderWalk.h"
#include "support/Path.h"

namespace ql {

void appendJsonEscaped(std::string& out, std::string_view bytes) {
  static const char hex[] = "0123456789abcdef";
  size_t plain = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(bytes.data() + plain, i - plain);
    plain = i + 1;
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      default:
        out += "\\u00";
        out.push_back(hex[c >> 4]);
        out.push_back(hex[c & 15]);
    }
  }
  out.append(bytes.data() + plain, bytes.size() - plain);
}

namespace {

constexpr unsigned kMask = STATX_SIZE | STATX_BLOCKS | STATX_INO | STATX_NLINK | STATX_MODE | STATX_MNT_ID;
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders read by workers and not yet written: enough to keep the workers busy, few enough that
// memory stays flat.
constexpr uint32_t kAhead = 1024;
// Folders kept open for their subfolders, well below any descriptor limit.
constexpr int kOpenFolders = 256;
// Workers when the disk keeps them waiting.
constexpr int kMaxWorkers = 16;
// Blocks read from the disk in 20 ms that tell a cold walk (one reads thousands).
constexpr long kColdBlocks = 64;

// `key` comes with its quotes and colon: ",\"asize\":".
void appendNumber(std::string& out, std::string_view key, uint64_t value) {
  char buf[24];
  const auto end = std::to_chars(buf, buf + sizeof buf, value).ptr;
  out += key;
  out.append(buf, static_cast<size_t>(end - buf));
}

// `{"name":"..","asize":..,"dsize":..` without the closing brace, and for a file with more than
// one name `,"ino":..,"nlink":..,"hlnkc":true`, as ncdu writes it: readers need the inode only to
// tell hard links apart, and a file of one name is most of an export, so leaving it out makes
// the text a quarter shorter and compress better. A folder carries no inode and link count: its
// links are its subfolders' "..", and readers would take them for hard links.
void appendInfo(std::string& out, std::string_view name, const struct statx& sx) {
  out += "{\"name\":\"";
  appendJsonEscaped(out, name);
  out.push_back('"');
  appendNumber(out, ",\"asize\":", sx.stx_size);
  appendNumber(out, ",\"dsize\":", sx.stx_blocks * 512);
  if (S_ISDIR(sx.stx_mode) || sx.stx_nlink < 2) return;
  appendNumber(out, ",\"ino\":", sx.stx_ino);
  appendNumber(out, ",\"nlink\":", sx.stx_nlink);
  out += ",\"hlnkc\":true";
}

// Buffered writing to a descriptor, compressed or not; the first failure is kept and later writes
// are dropped.
class Output {
 public:
  Output(int fd, bool compress) : fd_(fd) {
    buffer_.reserve(kSize + 4096);
    if (compress) zstd_ = std::make_unique<ZstdWriter>();
  }
  void put(std::string_view s) {
    if (error_) return;
    buffer_.append(s);
    if (buffer_.size() >= kSize) flush();
  }
  // `end` closes the compressed frame; the plain text needs no end.
  void flush(bool end = false) {
    if (zstd_) {
      if (!error_) error_ = zstd_->write(fd_, buffer_, end);
      buffer_.clear();
      return;
    }
    size_t done = 0;
    while (!error_ && done < buffer_.size()) {
      const ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) error_ = n < 0 ? errno : EIO;
      else done += static_cast<size_t>(n);
    }
    buffer_.clear();
  }
  int error() const { return error_; }

 private:
  static constexpr size_t kSize = 1 << 20;
  int fd_;
  int error_ = 0;
  std::string buffer_;
  std::unique_ptr<ZstdWriter> zstd_;
};

// A folder kept open for its subfolders, which open themselves relative to it: no path is
// looked up again. Closed when the last of them is open.
struct OpenFolder {
  int fd;
  std::atomic<int>& count;
  OpenFolder(int f, std::atomic<int>& c) : fd(f), count(c) {}
  ~OpenFolder() {
    ::close(fd);
    count.fetch_sub(1, std::memory_order_relaxed);
  }
};

struct Folder {
  std::string path;  // for opening it
  uint32_t nameAt = 0;  // its name within the path
  std::shared_ptr<OpenFolder> parent;  // open until this folder is
  std::string info;  // its info object without the closing brace
  uint64_t mountId = 0;
  // Its place in the writer's order: the index of each folder on the way down from the root
  // among its parent's subfolders, as big-endian bytes, so that comparing the bytes compares the
  // places in the text (and a shallow one needs no allocation).
  std::string order;
  // Filled by the one thread that reads it:
  std::string text;  // its entries, each led by ",\n"; subfolders are cut in at `cuts`
  std::vector<std::pair<size_t, std::shared_ptr<Folder>>> cuts;
  int readError = 0;  // errno of an open or listing that failed, -1 for a stop
  int shortage = 0;   // errno of a shortage that ends the export here
  uint64_t entries = 0;
  uint64_t files = 0, bytes = 0;  // its own non-folder entries
  // Under the walk's mutex: 0 waiting, 1 being read, 2 read.
  int state = 0;
  bool byWorker = false;
};

class ExportWalk {
 public:
  ExportWalk(int threads, const Stop* stop, const std::vector<std::string>& excludes)
      : threads_(threads), stop_(stop), excludes_(excludes) {}

  ExportResult run(const std::string& source, int fd, bool compress);

 private:
  void readFolder(Folder& f, DirReader& reader);
  void readOrWait(const std::shared_ptr<Folder>& f);
  void finished(const std::shared_ptr<Folder>& f, bool byWorker);  // under the mutex
  void workerLoop();
  void wakeWorkers(size_t folders);  // under the mutex
  std::shared_ptr<Folder> takeFirst() {  // under the mutex
    std::pop_heap(waiting_.begin(), waiting_.end(), later);
    std::shared_ptr<Folder> f = std::move(waiting_.back());
    waiting_.pop_back();
    return f;
  }
  static bool later(const std::shared_ptr<Folder>& a, const std::shared_ptr<Folder>& b) {
    return b->order < a->order;
  }
  void growIfWaiting(std::unique_lock<std::mutex>& lock);
  bool stopped_() const { return stop_ && stop_->requested(); }

  int threads_;
  const Stop* stop_;
  ExcludeList excludes_;
  size_t rootPrefix_ = 0;  // the root's path with its "/": what a relative path leaves out
  DirReader writerReader_{kMask};
  std::mutex mutex_;
  std::condition_variable work_;   // workers: something to read, or room to read ahead
  std::condition_variable ready_;  // the writer: a folder it waits for was read
  // Folders found and not yet taken, as a heap: the first in the writer's order on top.
  std::vector<std::shared_ptr<Folder>> waiting_;
  uint32_t ahead_ = 0;
  size_t idle_ = 0;   // workers waiting for work_
  size_t stale_ = 0;  // entries of waiting_ the writer took out of turn
  std::atomic<int> openFolders_{0};
  bool done_ = false;
  // Only the writer touches these.
  std::vector<std::thread> pool_;
  bool canGrow_ = false;
  std::chrono::steady_clock::time_point checkedAt_ = std::chrono::steady_clock::now();
  long blocksRead_ = 0;
};

void ExportWalk::readFolder(Folder& f, DirReader& reader) {
  int fd;
  if (f.parent) {
    fd = ::openat(f.parent->fd, f.path.c_str() + f.nameAt, kDirFlags);
    if (fd < 0) fd = -errno;
    f.parent.reset();
  } else {
    fd = f.path.size() < PATH_MAX ? ::open(f.path.c_str(), kDirFlags) : openFolderPath(f.path);
    if (fd < 0 && f.path.size() < PATH_MAX) fd = -errno;
  }
  if (fd < 0) {
    if (isShortage(-fd))
      f.shortage = -fd;
    else
      f.readError = -fd;
    return;
  }
  std::string& text = f.text;
  const bool excluding = !excludes_.empty();
  std::string relative;  // below the root, for patterns with a "/"
  if (excluding && excludes_.needsPath())
    relative = addSlash(f.path).substr(std::min(rootPrefix_, f.path.size()));
  const size_t relativeBase = relative.size();
  const DirReader::Result result = reader.read(fd, [&](DirEntry& e) {
    if (excluding) {
      if (excludes_.needsPath()) relative.replace(relativeBase, std::string::npos, e.name());
      if (const std::string* pattern = excludes_.match(e.name(), relative)) {
        // Left out by a pattern: named with it, never looked at, as ncdu writes it.
        ++f.entries;
        text += ",\n{\"name\":\"";
        appendJsonEscaped(text, e.name());
        text += "\",\"excluded\":\"";
        appendJsonEscaped(text, *pattern);
        text += "\"}";
        return true;
      }
    }
    const struct statx* sx = e.stat();
    if (e.error() == ENOMEM) {
      f.shortage = ENOMEM;
      return false;
    }
    if (!sx) return true;  // gone since the listing
    const std::string_view name = e.name();
    ++f.entries;
    text += ",\n";
    if (S_ISDIR(sx->stx_mode)) {
      const uint64_t mount = mountIdFrom(*sx);
      if (mount != f.mountId) {
        // Another file system: named, never entered.
        text += "{\"name\":\"";
        appendJsonEscaped(text, name);
        text += "\",\"excluded\":\"othfs\"}";
        return true;
      }
      auto child = std::make_shared<Folder>();
      child->path = joinPath(f.path, name);
      child->nameAt = static_cast<uint32_t>(child->path.size() - name.size());
      appendInfo(child->info, name, *sx);
      child->mountId = mount;
      if (threads_ > 1) {
        const auto index = static_cast<uint32_t>(f.cuts.size());
        child->order.reserve(f.order.size() + 4);
        child->order = f.order;
        for (int shift = 24; shift >= 0; shift -= 8)
          child->order.push_back(static_cast<char>(index >> shift));
      }
      f.cuts.emplace_back(text.size(), std::move(child));
      return true;
    }
    appendInfo(text, name, *sx);
    ++f.files;
    f.bytes += sx->stx_size;
    if (!S_ISREG(sx->stx_mode)) text += ",\"notreg\":true";
    if (S_ISLNK(sx->stx_mode) && e.linksToFolder()) text += ",\"dirlink\":true";
    if (e.error() == ENOMEM) {
      f.shortage = ENOMEM;
      return false;
    }
    text.push_back('}');
    return true;
  }, stop_);
  // Kept open for the subfolders while few folders are; else they go by their paths.
  if (!f.cuts.empty() && openFolders_.fetch_add(1, std::memory_order_relaxed) < kOpenFolders) {
    auto open = std::make_shared<OpenFolder>(fd, openFolders_);
    for (auto& cut : f.cuts) cut.second->parent = open;
  } else {
    if (!f.cuts.empty()) openFolders_.fetch_sub(1, std::memory_order_relaxed);
    ::close(fd);
  }
  if (result.end == DirReader::End::Failed && isShortage(result.error))
    f.shortage = result.error;
  else if (result.end == DirReader::End::Failed)
    f.readError = result.error;
  if (result.end == DirReader::End::Stopped) f.readError = -1;
}

// One wake-up per folder that can be read now, and none for a worker that would find nothing:
// with many workers, waking them all per folder costs more than the reading.
void ExportWalk::wakeWorkers(size_t folders) {
  if (ahead_ >= kAhead) return;
  for (size_t n = std::min(folders, idle_); n > 0; --n) work_.notify_one();
}

void ExportWalk::finished(const std::shared_ptr<Folder>& f, bool byWorker) {
  f->state = 2;
  f->byWorker = byWorker;
  if (byWorker) ++ahead_;
  if (threads_ > 1 && !f->cuts.empty()) {
    // Readers take the first folder in the writer's order that no one has taken: what they read
    // is written soon, the folders held ahead stay few, and the writer seldom reads or waits.
    for (const auto& cut : f->cuts) {
      waiting_.push_back(cut.second);
      std::push_heap(waiting_.begin(), waiting_.end(), later);
    }
    wakeWorkers(f->cuts.size());
  }
}

// The writer needs this folder now: it reads it itself unless a worker has it in hand.
void ExportWalk::readOrWait(const std::shared_ptr<Folder>& f) {
  std::unique_lock lock(mutex_);
  if (canGrow_) growIfWaiting(lock);
  if (f->state == 0) {
    f->state = 1;
    // It still waits among the folders to take: clear such entries out now and then, so that
    // written folders are not kept there.
    if (threads_ > 1 && ++stale_ > 256 && stale_ > waiting_.size() / 2) {
      std::erase_if(waiting_, [](const std::shared_ptr<Folder>& p) { return p->state != 0; });
      std::make_heap(waiting_.begin(), waiting_.end(), later);
      stale_ = 0;
    }
    lock.unlock();
    readFolder(*f, writerReader_);
    lock.lock();
    finished(f, false);
    return;
  }
  // A worker has it in hand: rather than sleep, read what the workers would read next. A folder
  // the writer reads ahead is held like one a worker read.
  while (f->state != 2) {
    if (!waiting_.empty() && ahead_ < kAhead) {
      std::shared_ptr<Folder> next = takeFirst();
      if (next->state != 0) {
        if (stale_) --stale_;
        continue;
      }
      next->state = 1;
      lock.unlock();
      readFolder(*next, writerReader_);
      lock.lock();
      finished(next, true);
      continue;
    }
    ready_.wait_for(lock, std::chrono::milliseconds(20));
    if (f->state != 2 && canGrow_) growIfWaiting(lock);
  }
}

// The readers went to the disk since the last look while folders wait to be read: they wait on
// it, and more of them keep more reads in flight. The count of blocks read tells a disk from a
// busy machine, where more threads would only take turns on the cores. Looked at every 20 ms
// at most (a getrusage); a clock read per folder otherwise.
void ExportWalk::growIfWaiting(std::unique_lock<std::mutex>& lock) {
  const auto now = std::chrono::steady_clock::now();
  if (now - checkedAt_ < std::chrono::milliseconds(20)) return;
  checkedAt_ = now;
  struct rusage usage;
  if (::getrusage(RUSAGE_SELF, &usage) != 0) return;
  // A few blocks are a folder here and there that fell out of the cache, not a cold disk.
  const bool disk = usage.ru_inblock - blocksRead_ >= kColdBlocks;
  blocksRead_ = usage.ru_inblock;
  if (!disk || waiting_.size() - std::min(waiting_.size(), stale_) <= pool_.size()) return;
  lock.unlock();
  // Doubled each time: a cold disk is seldom waited on for long, and the workers should be
  // there while it is.
  for (size_t k = std::max<size_t>(pool_.size(), 1); k > 0 && canGrow_; --k) {
    try {
      pool_.emplace_back([this] { workerLoop(); });
    } catch (const std::system_error&) {
      canGrow_ = false;
    } catch (const std::bad_alloc&) {
      canGrow_ = false;
    }
    if (static_cast<int>(pool_.size()) >= kMaxWorkers) canGrow_ = false;
  }
  lock.lock();
}

void ExportWalk::workerLoop() {
  DirReader reader(kMask);
  std::unique_lock lock(mutex_);
  for (;;) {
    if (!done_ && (waiting_.empty() || ahead_ >= kAhead)) {
      ++idle_;
      work_.wait(lock, [this] { return done_ || (!waiting_.empty() && ahead_ < kAhead); });
      --idle_;
    }
    if (done_) return;
    std::shared_ptr<Folder> f = takeFirst();
    if (f->state != 0) {  // the writer took it
      if (stale_) --stale_;
      continue;
    }
    f->state = 1;
    lock.unlock();
    readFolder(*f, reader);
    lock.lock();
    finished(f, true);
    ready_.notify_one();  // only the writer waits there
  }
}

ExportResult ExportWalk::run(const std::string& source, int fd, bool compress) {
  ExportResult result;
  auto root = std::make_shared<Folder>();
  root->path = rootText(addSlash(source));
  {
    // The source itself must open; anything below that cannot is marked and passed over.
    const int rootFd = openFolderPath(root->path);
    if (rootFd < 0) {
      result.error = root->path + ": " + systemErrorText(-rootFd);
      return result;
    }
    struct statx sx;
    if (::statx(rootFd, "", AT_EMPTY_PATH | kStatxQuiet, kMask, &sx) != 0) {
      result.error = root->path + ": " + systemErrorText(errno);
      ::close(rootFd);
      return result;
    }
    ::close(rootFd);
    // The root is named by its full path, so that a reader knows where the tree lies.
    if (char* real = ::realpath(root->path.c_str(), nullptr)) {
      root->path = real;
      std::free(real);
    }
    rootPrefix_ = addSlash(root->path).size();
    appendInfo(root->info, root->path, sx);
    appendNumber(root->info, ",\"dev\":", (uint64_t{sx.stx_dev_major} << 32) | sx.stx_dev_minor);
    root->mountId = mountIdFrom(sx);
  }

  Output out(fd, compress);
  {
    std::string head = "[1,2,{\"progname\":\"quorlane\",\"progver\":\"" QUORLANE_VERSION "\"";
    appendNumber(head, ",\"timestamp\":", static_cast<uint64_t>(std::time(nullptr)));
    head += "},\n";
    out.put(head);
  }
  canGrow_ = threads_ > 1 && threads_ - 1 < kMaxWorkers;
  try {
    for (int i = 1; i < threads_; ++i) pool_.emplace_back([this] { workerLoop(); });
  } catch (const std::system_error&) {
    // Fewer workers than asked for: the writer reads what they do not, and the text is the same.
    canGrow_ = false;
  } catch (const std::bad_alloc&) {
    canGrow_ = false;
  }

  struct Frame {
    std::shared_ptr<Folder> folder;
    size_t cut = 0;
    size_t at = 0;  // bytes of its text written
  };
  std::vector<Frame> frames;
  std::string piece;
  auto open = [&](const std::shared_ptr<Folder>& f) {
    readOrWait(f);
    piece.clear();
    piece.push_back('[');
    piece += f->info;
    if (f->readError > 0) piece += ",\"read_error\":true";
    piece += "}";
    out.put(piece);
    ++result.folders;
    result.entries += f->entries;
    result.files += f->files;
    result.bytes += f->bytes;
    frames.push_back(Frame{f});
  };
  open(root);
  bool stopped = false;
  std::string shortage;  // what ran out, and where
  while (!frames.empty() && !out.error()) {
    Frame& top = frames.back();
    Folder& f = *top.folder;
    if (f.shortage) {
      shortage = f.path + ": " + systemErrorText(f.shortage);
      break;
    }
    if (f.readError < 0) {
      stopped = true;
      break;
    }
    if (top.cut < f.cuts.size()) {
      auto& [offset, child] = f.cuts[top.cut++];
      out.put(std::string_view(f.text).substr(top.at, offset - top.at));
      top.at = offset;
      // The frame owns it from here, so it goes as soon as it is written; `top` goes stale once
      // a frame is added.
      const std::shared_ptr<Folder> next = std::move(child);
      open(next);
      continue;
    }
    out.put(std::string_view(f.text).substr(top.at));
    out.put("]");
    if (top.folder->byWorker) {
      std::lock_guard lock(mutex_);
      --ahead_;
      if (!waiting_.empty()) wakeWorkers(1);
    }
    frames.pop_back();
  }
  {
    std::lock_guard lock(mutex_);
    done_ = true;
    waiting_.clear();
  }
  work_.notify_all();
  for (auto& t : pool_) t.join();
  if (!shortage.empty()) {
    result.error = shortage;
    return result;
  }
  if (stopped || stopped_()) {
    result.error = root->path + ": " + systemErrorText(ECANCELED);
    return result;
  }
  out.put("]\n");
  out.flush(true);
  if (out.error()) {
    result.error = systemErrorText(out.error());
    result.writeFailed = true;
    return result;
  }
  result.ok = true;
  return result;
}

}  // namespace

ExportResult exportJson(const std::string& source, int fd, int threads, const Stop* stop,
                        bool compress, const std::vector<std::string>& excludes) {
  ExportWalk walk(threads, stop, excludes);
  return walk.run(source, fd, compress);
}

ExportResult exportJsonToFile(const std::string& source, const std::string& file, int threads,
                              const Stop* stop, const std::vector<std::string>& excludes) {
  OutputFile out;
  if (!out.open(file)) {
    ExportResult r;
    r.error = out.error();
    return r;
  }
  ExportResult r =
      exportJson(source, out.fd(), threads, stop, file != "-" && isZstdName(file), excludes);
  if (r.ok && !out.commit()) {
    r.ok = false;
    r.writeFailed = true;
    r.error = out.error();
  } else if (r.writeFailed) {
    r.error = file + ": " + r.error;
  }
  return r;  // an output not committed goes with `out`
}

}  // namespace ql
