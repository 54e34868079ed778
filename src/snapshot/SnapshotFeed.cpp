#include "snapshot/SnapshotFeed.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <system_error>
#include <thread>

#include "json/Zstd.h"
#include "scan/DirReader.h"
#include "support/Path.h"

namespace ql {

namespace {

// Records. A run of one folder's files: kRun, the folder's path below the source (with its "/",
// "" for the source), then its files, each kFile (with kLinked and kNotRegular as they hold), the
// name, asize, st_blocks, and for a file of several names its inode and link count. A folder row:
// its depth below the source, kJunction or kOwnFiles (files of its own, which have runs), its
// name. Numbers are LEB128.
constexpr uint8_t kRun = 0, kFile = 1, kLinked = 2, kNotRegular = 4;
constexpr uint8_t kJunction = 1, kOwnFiles = 2;

void putNumber(std::string& out, uint64_t v) {
  while (v >= 0x80) {
    out.push_back(static_cast<char>(v | 0x80));
    v >>= 7;
  }
  out.push_back(static_cast<char>(v));
}

void putText(std::string& out, std::string_view text) {
  putNumber(out, text.size());
  out.append(text);
}

int64_t nowMs() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

uint64_t hashOf(std::string_view path) {
  return std::hash<std::string_view>{}(path);
}

// Reads a spool from an offset on, through a buffer that stays where a later seek still lands.
class SpoolReader {
 public:
  SpoolReader(const Spool& spool, size_t bufferSize) : spool_(spool), capacity_(bufferSize) {}

  void seek(uint64_t at) { at_ = at; }
  bool atEnd() const { return at_ >= spool_.size(); }
  int error() const { return error_; }
  bool byte(uint8_t& b) {
    if (!have(1)) return false;
    b = static_cast<uint8_t>(buffer_[at_++ - start_]);
    return true;
  }
  bool number(uint64_t& v) {
    v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      uint8_t b;
      if (!byte(b)) return false;
      v |= uint64_t{b & 0x7fu} << shift;
      if (!(b & 0x80)) return true;
    }
    return false;
  }
  bool text(std::string& into) {
    uint64_t n;
    if (!number(n) || n > spool_.size()) return false;
    into.clear();
    while (n > 0) {
      if (!have(1)) return false;
      const size_t take = std::min<uint64_t>(n, start_ + length_ - at_);
      into.append(buffer_.get() + (at_ - start_), take);
      at_ += take;
      n -= take;
    }
    return true;
  }

 private:
  bool have(size_t n) {
    if (at_ >= start_ && at_ + n <= start_ + length_) return true;
    if (!buffer_) buffer_.reset(new char[capacity_]);  // a shard's only when it is read
    const ssize_t got = spool_.read(at_, buffer_.get(), capacity_);
    if (got < 0) error_ = errno ? errno : EIO;
    start_ = at_;
    length_ = got > 0 ? static_cast<size_t>(got) : 0;
    return n <= length_;
  }

  const Spool& spool_;
  std::unique_ptr<char[]> buffer_;
  size_t capacity_;
  uint64_t at_ = 0, start_ = 0;
  size_t length_ = 0;
  int error_ = 0;
};

void appendNumber(std::string& out, std::string_view key, uint64_t value) {
  char buf[24];
  const auto end = std::to_chars(buf, buf + sizeof buf, value).ptr;
  out += key;
  out.append(buf, static_cast<size_t>(end - buf));
}

}  // namespace

// --- the spool ---

Spool::~Spool() {
  if (fd_ >= 0) ::close(fd_);
}

bool Spool::open() {
  if (fd_ < 0 && error_ == 0) {
    fd_ = openSnapshotTemporary();
    if (fd_ < 0) error_ = errno ? errno : EIO;
  }
  return ready();
}

void Spool::append(std::string_view bytes) {
  if (!open()) return;
  if (buffer_.capacity() < kBuffer) buffer_.reserve(kBuffer + 4096);
  buffer_.append(bytes);
  if (buffer_.size() >= kBuffer) flush();
}

void Spool::flush() {
  size_t done = 0;
  while (error_ == 0 && fd_ >= 0 && done < buffer_.size()) {
    const ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      error_ = n < 0 ? errno : EIO;
    else
      done += static_cast<size_t>(n);
  }
  written_ += done;
  std::string().swap(buffer_);
}

ssize_t Spool::read(uint64_t offset, char* into, size_t size) const {
  if (fd_ < 0) return 0;
  for (;;) {
    const ssize_t n = ::pread(fd_, into, size, static_cast<off_t>(offset));
    if (n >= 0 || errno != EINTR) return n;
  }
}

// --- the feed ---

SnapshotFeed::SnapshotFeed(std::string root) : prefix_(addSlash(root)) {
  // A place for the temporary files is made sure of now: without one the snapshot is walked.
  folders_.open();
}

SnapshotFeed::~SnapshotFeed() = default;

bool SnapshotFeed::ok() const {
  if (!folders_.ready()) return false;
  for (const Shard& s : shards_.all())
    if (s.failed || (s.spool && !s.spool->ready())) return false;
  return true;
}

void SnapshotFeed::offer(const FoundFile& file) {
  const std::string_view folder =
      std::string_view(file.folder).substr(std::min(prefix_.size(), file.folder.size()));
  // Built before the lock: a name and three or five numbers, in a buffer each thread keeps.
  thread_local std::string record;
  record.clear();
  const bool linked = file.nlink > 1;
  record.push_back(
      static_cast<char>(kFile | (linked ? kLinked : 0) | (S_ISREG(file.mode) ? 0 : kNotRegular)));
  putText(record, file.name);
  putNumber(record, file.length);
  putNumber(record, file.blocks);
  if (linked) {
    putNumber(record, file.ino);
    putNumber(record, file.nlink);
  }
  Shard& s = shards_.mine();
  std::lock_guard lock(s.mutex);
  if (s.failed) return;
  if (!s.spool) s.spool = std::make_unique<Spool>();
  if (s.runs.empty() || s.folder != folder) {
    s.folder.assign(folder);
    s.runs.emplace_back(hashOf(folder), s.spool->size());
    std::string head(1, static_cast<char>(kRun));
    putText(head, folder);
    s.spool->append(head);
  }
  s.spool->append(record);
  if (!s.spool->ready()) s.failed = true;
}

void SnapshotFeed::takeFolders(const ReportTree& tree, uint32_t root) {
  measuredMs_ = nowMs();
  tookFolders_ = true;
  std::string record;
  // Files are counted by name in every way of counting: what the folder rows below do not hold
  // are the folder's own. Only folders with files of their own are looked up when writing.
  auto ownFiles = [&](uint32_t n) {
    int64_t own = tree.node(n).files;
    for (uint32_t c : tree.children(n))
      if (tree.isFolder(c)) own -= tree.node(c).files;
    return own != 0;
  };
  rootFiles_ = ownFiles(root);
  uint64_t depth = 0;  // open folders, the root included
  tree.forEachPreorder(
      root,
      [&](uint32_t n) {
        if (n == root) return ++depth, true;
        if (!tree.isFolder(n)) return false;  // a files row
        const bool junction = tree.hasFlag(n, ReportTree::Junction);
        record.clear();
        putNumber(record, depth);
        record.push_back(static_cast<char>(junction ? kJunction : ownFiles(n) ? kOwnFiles : 0));
        putText(record, tree.text(n));
        folders_.append(record);
        if (junction) return false;
        ++depth;
        return true;
      },
      [&](uint32_t) { --depth; });
  folders_.flush();
}

void SnapshotFeed::sortRuns() {
  for (Shard& s : shards_.all()) {
    if (s.spool) s.spool->flush();
    std::sort(s.runs.begin(), s.runs.end());
    std::string().swap(s.folder);
  }
  sorted_ = true;
}

// The export's text, compressed, in pieces of a quarter megabyte. A thread of its own compresses
// one piece while the next is made, so the two halves of the work share the cores; without a
// thread to be had the pieces are compressed as they are made.
class SnapshotFeed::Writer {
 public:
  explicit Writer(int fd) : fd_(fd) {
    text.reserve(kSize + 65536);
    try {
      thread_ = std::thread([this] { compress(); });
    } catch (const std::system_error&) {
    }
  }
  ~Writer() { finish(); }
  void put() {
    if (text.size() >= kSize) hand(false);
  }
  // Ends the frame; 0, or the errno value of the first write that failed.
  int end() {
    hand(true);
    finish();
    return error_;
  }
  std::string text;

 private:
  void hand(bool last) {
    if (!thread_.joinable()) {
      if (!error_) error_ = zstd_.write(fd_, text, last);
      text.clear();
      return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !full_; });
    text.swap(piece_);
    last_ = last;
    full_ = true;
    changed_.notify_all();
    lock.unlock();
    text.clear();
  }
  void compress() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return full_ || quit_; });
      if (!full_) return;
      const bool skip = error_ != 0, last = last_;
      lock.unlock();
      const int error = skip ? 0 : zstd_.write(fd_, piece_, last);
      lock.lock();
      if (!error_) error_ = error;
      full_ = false;
      changed_.notify_all();
    }
  }
  void finish() {
    if (!thread_.joinable()) return;
    {
      std::lock_guard lock(mutex_);
      quit_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  static constexpr size_t kSize = 256 * 1024;
  int fd_;
  ZstdWriter zstd_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string piece_;  // being compressed
  bool full_ = false, last_ = false, quit_ = false;
  int error_ = 0;
  std::thread thread_;
};

ExportResult SnapshotFeed::write(int fd, const std::vector<std::string>& excludes,
                                 const Stop* stop) {
  ExportResult result;
  if (!complete()) {
    result.error = "the walk's files were not kept";
    return result;
  }
  if (!sorted_) sortRuns();
  std::string rootName = removeSlash(prefix_);
  if (char* real = ::realpath(rootName.c_str(), nullptr)) {
    rootName = real;
    std::free(real);
  }
  const ExcludeList patterns(excludes);
  Writer out(fd);
  std::string& t = out.text;
  t = "[1,2,{\"progname\":\"quorlane\",\"progver\":\"" QUORLANE_VERSION "\"";
  appendNumber(t, ",\"timestamp\":", static_cast<uint64_t>(measuredMs_ / 1000));
  t += "},\n[{\"name\":\"";
  appendJsonEscaped(t, rootName);
  t += "\"}";

  std::vector<SpoolReader> runReaders;
  for (size_t i = 0; i < shards_.all().size(); ++i)
    runReaders.emplace_back(shards_.all()[i].spool ? *shards_.all()[i].spool : folders_, 16384);
  std::string name, heading;
  // The files of the folder at `path` (below the source, with its "/").
  auto writeFiles = [&](const std::string& path) -> bool {
    const uint64_t hash = hashOf(path);
    for (size_t shard = 0; shard < shards_.all().size(); ++shard) {
      const auto& runs = shards_.all()[shard].runs;
      auto it = std::lower_bound(runs.begin(), runs.end(), std::pair<uint64_t, uint64_t>{hash, 0});
      for (; it != runs.end() && it->first == hash; ++it) {
        SpoolReader& in = runReaders[shard];
        in.seek(it->second);
        uint8_t tag;
        if (!in.byte(tag) || tag != kRun || !in.text(heading)) return false;
        if (heading != path) continue;  // another folder of the same hash
        while (!in.atEnd()) {
          if (!in.byte(tag)) return false;
          if (tag == kRun) break;
          uint64_t asize, blocks, ino = 0, nlink = 0;
          if (!in.text(name) || !in.number(asize) || !in.number(blocks)) return false;
          if ((tag & kLinked) && (!in.number(ino) || !in.number(nlink))) return false;
          t += ",\n{\"name\":\"";
          appendJsonEscaped(t, name);
          t.push_back('"');
          appendNumber(t, ",\"asize\":", asize);
          appendNumber(t, ",\"dsize\":", blocks * 512);
          if (tag & kLinked) {
            appendNumber(t, ",\"ino\":", ino);
            appendNumber(t, ",\"nlink\":", nlink);
            t += ",\"hlnkc\":true";
          }
          if (tag & kNotRegular) t += ",\"notreg\":true";
          t.push_back('}');
          ++result.files;
          result.bytes += asize;
          ++result.entries;
          out.put();
        }
      }
    }
    return true;
  };
  // A row shown and never entered: left out by a pattern, a link to a folder, or another file
  // system. The report does not tell them apart; the pattern does, and a look at the entry.
  auto writeJunction = [&](const std::string& path) {
    t += ",\n{\"name\":\"";
    appendJsonEscaped(t, name);
    const std::string relative = path + name;
    if (const std::string* pattern = patterns.match(name.c_str(), relative)) {
      t += "\",\"excluded\":\"";
      appendJsonEscaped(t, *pattern);
      t += "\"}";
      return;
    }
    struct statx sx {};
    const std::string full = prefix_ + relative;
    if (::statx(AT_FDCWD, full.c_str(), AT_SYMLINK_NOFOLLOW | kStatxQuiet,
                STATX_TYPE | STATX_SIZE | STATX_BLOCKS, &sx) == 0 &&
        S_ISLNK(sx.stx_mode)) {
      t.push_back('"');
      appendNumber(t, ",\"asize\":", sx.stx_size);
      appendNumber(t, ",\"dsize\":", sx.stx_blocks * 512);
      t += ",\"notreg\":true,\"dirlink\":true}";
      ++result.files;
      result.bytes += sx.stx_size;
      return;
    }
    t += "\",\"excluded\":\"othfs\"}";
  };

  bool damaged = rootFiles_ && !writeFiles({});
  std::string path;           // of the innermost open folder, below the source, with its "/"
  std::vector<size_t> marks;  // the path's length before each open folder's name
  SpoolReader rows(folders_, 16384);
  while (!damaged && !rows.atEnd()) {
    if (stop && stop->requested()) {
      result.error = rootName + ": " + systemErrorText(ECANCELED);
      return result;
    }
    uint64_t depth;
    uint8_t flags;
    if (!rows.number(depth) || !rows.byte(flags) || !rows.text(name) || depth == 0) {
      damaged = true;
      break;
    }
    for (; marks.size() + 1 > depth && !marks.empty(); marks.pop_back()) {
      path.resize(marks.back());
      t.push_back(']');
    }
    ++result.entries;
    if (flags & kJunction) {
      writeJunction(path);
      continue;
    }
    ++result.folders;
    t += ",\n[{\"name\":\"";
    appendJsonEscaped(t, name);
    t += "\"}";
    marks.push_back(path.size());
    path += name;
    path.push_back('/');
    damaged = (flags & kOwnFiles) && !writeFiles(path);
    out.put();
  }
  if (damaged) {
    int error = rows.error();
    for (const SpoolReader& r : runReaders) error = error ? error : r.error();
    result.error =
        "the walk's files could not be read back: " + systemErrorText(error ? error : EIO);
    return result;
  }
  t.append(marks.size(), ']');
  t += "]]\n";
  if (const int error = out.end()) {
    result.error = systemErrorText(error);
    result.writeFailed = true;
    return result;
  }
  ++result.folders;  // the source
  result.ok = true;
  return result;
}

SnapshotResult SnapshotFeed::keep(const std::string& source,
                                  const std::vector<std::string>& excludes, const Stop* stop,
                                  const std::function<bool()>& keepIf) {
  return keepWrittenSnapshot(
      source, [&](int fd) { return write(fd, excludes, stop); }, measuredMs_, keepIf);
}

}  // namespace ql
