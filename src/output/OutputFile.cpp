#include "output/OutputFile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <QFile>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <thread>

#include "lang/TL.h"
#include "support/Path.h"

namespace ql {

namespace {

// The temporary file being written, for the interrupt handler: its folder's descriptor and a
// fixed buffer for its name, so that the handler needs nothing but unlinkat(2). One output at a
// time has it; the window writes one report at a time and installs no handler.
std::atomic<int> g_pendingDir{-1};
char g_pendingName[NAME_MAX + 1];
static_assert(std::atomic<int>::is_always_lock_free);

void onInterrupt(int sig) {
  const int dir = g_pendingDir.load();
  if (dir >= 0) ::unlinkat(dir, g_pendingName, 0);
  ::raise(sig);  // the handler was reset on entry: the default action ends the process
}

constexpr int kMaxLinks = 40;  // as many as the kernel follows

// Opens the folder part of `text` (relative to `base`) as a descriptor and leaves the last name
// in `name`; -errno on failure.
int openFolderOf(int base, std::string_view text, std::string& name) {
  const size_t slash = text.rfind('/');
  name = slash == std::string_view::npos ? text : text.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return -EISDIR;
  const std::string folder = slash == std::string_view::npos ? std::string(".")
                             : slash == 0                    ? std::string("/")
                                                             : std::string(text.substr(0, slash));
  const int fd = ::openat(base, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  return fd >= 0 ? fd : -errno;
}

// The kernel's protected-symlinks rule, held whatever the system's setting.
bool mayFollow(const struct stat& link, const struct stat& folder) {
  const bool anyoneMayPlant = (folder.st_mode & (S_ISVTX | S_IWOTH)) == (S_ISVTX | S_IWOTH);
  return !anyoneMayPlant || link.st_uid == ::geteuid() || link.st_uid == folder.st_uid;
}

// ".<name>.XXXXXX" in `dir`, created with O_EXCL; -1 with errno on failure.
int createTemporary(int dir, const std::string& name, mode_t mode, std::string& tempName) {
  const std::string base = name.substr(0, NAME_MAX - 8);
  static const char kChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned char random[6];
    if (getrandom(random, sizeof random, GRND_NONBLOCK) != sizeof random) {
      timespec ts{};
      clock_gettime(CLOCK_REALTIME, &ts);
      uint64_t mix = static_cast<uint64_t>(ts.tv_nsec) * 2654435761u +
                     static_cast<uint64_t>(getpid()) + static_cast<uint64_t>(attempt) * 40503u;
      for (auto& r : random) r = static_cast<unsigned char>(mix >>= 5);
    }
    tempName = '.' + base + '.';
    for (const unsigned char r : random) tempName.push_back(kChars[r % (sizeof kChars - 1)]);
    const int fd =
        ::openat(dir, tempName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

}  // namespace

OutputFile::~OutputFile() {
  discard();
}

bool OutputFile::open(const std::string& path) {
  discard();
  path_ = path;
  error_.clear();
  errorCode_ = 0;
  stream_ = false;
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    ownsFd_ = false;
    stream_ = true;
    return true;
  }
  return openFollowing(path);
}

// Each link is read and held to the rule before it is followed; the folders on the way are
// opened as descriptors, so what is replaced in the end is the name checked last.
bool OutputFile::openFollowing(const std::string& path) {
  std::string text = path, shown = path, name;
  int dir = AT_FDCWD;
  auto giveUp = [&](int err) {
    if (dir >= 0) ::close(dir);
    return failWith(err);
  };
  for (int links = 0;; ++links) {
    const int folder = openFolderOf(dir, text, name);
    if (dir >= 0) ::close(dir);
    dir = folder;
    if (folder < 0) return failWith(-folder);
    struct stat st {};
    if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) return giveUp(errno);
      return openReplacement(dir, name, nullptr);
    }
    if (S_ISREG(st.st_mode)) return openReplacement(dir, name, &st);
    if (!S_ISLNK(st.st_mode)) {
      // A pipe or a device stays what it is and gets the text as a stream.
      fd_ = ::openat(dir, name.c_str(), O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
      if (fd_ < 0) return giveUp(errno);
      ::close(dir);
      ownsFd_ = stream_ = true;
      return true;
    }
    struct stat folderSt {};
    if (::fstat(dir, &folderSt) != 0) return giveUp(errno);
    if (!mayFollow(st, folderSt)) {
      ::close(dir);
      error_ = TL(4310,
                  "Die Verknüpfung '%1' wird nicht verfolgt: sie gehört einem anderen Benutzer "
                  "und liegt in einem Ordner, in den jeder schreiben darf.",
                  {QFile::decodeName(QByteArray::fromStdString(shown))})
                   .toStdString();
      return false;
    }
    if (links == kMaxLinks) return giveUp(ELOOP);
    // A link in /proc (/dev/stdout leads there) names a pipe or a terminal by no path: such a
    // target is opened through the link itself. Only a file's link there holds its path.
    struct statfs fs {};
    if (::fstatfs(dir, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC) {
      const int object = ::openat(dir, name.c_str(), O_PATH | O_CLOEXEC);
      if (object < 0) return giveUp(errno);
      struct stat os {};
      const bool known = ::fstat(object, &os) == 0;
      if (!known || !S_ISREG(os.st_mode) || os.st_nlink == 0) {
        const int err = !known ? errno : S_ISREG(os.st_mode) ? ENOENT : 0;
        if (!err)
          fd_ = ::open(("/proc/self/fd/" + std::to_string(object)).c_str(),
                       O_WRONLY | O_NOCTTY | O_CLOEXEC);
        const int openErr = errno;
        ::close(object);
        if (err || fd_ < 0) return giveUp(err ? err : openErr);
        ::close(dir);
        ownsFd_ = stream_ = true;
        return true;
      }
      ::close(object);
    }
    char target[PATH_MAX];
    const ssize_t n = ::readlinkat(dir, name.c_str(), target, sizeof target);
    if (n <= 0) return giveUp(n < 0 ? errno : ENOENT);
    if (static_cast<size_t>(n) == sizeof target) return giveUp(ENAMETOOLONG);
    text.assign(target, static_cast<size_t>(n));
    // The next link is named for a message as the path it has from here.
    const size_t slash = shown.rfind('/');
    shown = text.front() == '/' || slash == std::string::npos ? text
                                                              : shown.substr(0, slash + 1) + text;
  }
}

bool OutputFile::openReplacement(int dir, const std::string& name, const struct stat* old) {
  dir_ = dir;
  name_ = name;
  // A file we may not write to stays as it is, as it would with an ordinary write.
  if (old && ::faccessat(dir, name.c_str(), W_OK, AT_EACCESS) != 0) return failWith(errno);
  // Private until it has the old file's permissions.
  fd_ = createTemporary(dir, name, old ? 0600 : 0666, tempName_);
  if (fd_ < 0) {
    tempName_.clear();
    return failWith(errno);
  }
  ownsFd_ = true;
  if (g_pendingDir.load() < 0) {
    std::memcpy(g_pendingName, tempName_.c_str(), tempName_.size() + 1);
    g_pendingDir.store(dir);
  }
  // Best effort: a file system without owners or permission bits has none to keep.
  if (old) {
    [[maybe_unused]] const bool owned = ::fchown(fd_, old->st_uid, old->st_gid) == 0;
    ::fchmod(fd_, old->st_mode & 07777);
  }
  return true;
}

bool OutputFile::write(std::string_view data) {
  if (!error_.empty() || fd_ < 0) return false;
  // A pipe whose reader went away gives EPIPE here rather than ending the process.
  sigset_t pipe, old;
  if (stream_) {
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &old);
  }
  int err = 0;
  while (!data.empty()) {
    const ssize_t n = ::write(fd_, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      err = n == 0 ? EIO : errno;
      break;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  if (stream_) {
    if (err == EPIPE && !sigismember(&old, SIGPIPE)) {
      const timespec none{};
      ::sigtimedwait(&pipe, nullptr, &none);  // the SIGPIPE of this write, if not ignored
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
  }
  return err ? failWith(err) : true;
}

bool OutputFile::commit() {
  if (!error_.empty() || fd_ < 0) return false;
  if (stream_) {
    const int err = ownsFd_ && ::close(fd_) != 0 && errno != EINTR ? errno : 0;
    fd_ = -1;
    return err ? failWith(err) : true;
  }
  // On disk before it takes the old file's place; file systems without fsync are fine.
  if (::fsync(fd_) != 0 && errno != EINVAL && errno != EROFS) return failWith(errno);
  const int closed = ::close(fd_);
  fd_ = -1;
  if (closed != 0 && errno != EINTR) return failWith(errno);
  if (::renameat(dir_, tempName_.c_str(), dir_, name_.c_str()) != 0) return failWith(errno);
  tempName_.clear();
  discard();
  return true;
}

void OutputFile::fail(int err) {
  failWith(err);
}

bool OutputFile::failWith(int err) {
  if (error_.empty()) {
    error_ = path_ + ": " + systemErrorText(err);
    errorCode_ = err;
  }
  discard();
  return false;
}

void OutputFile::discard() {
  if (fd_ >= 0 && ownsFd_) ::close(fd_);
  fd_ = -1;
  ownsFd_ = false;
  if (!tempName_.empty()) ::unlinkat(dir_, tempName_.c_str(), 0);
  tempName_.clear();
  if (dir_ >= 0) {
    int mine = dir_;
    g_pendingDir.compare_exchange_strong(mine, -1);
    ::close(dir_);
  }
  dir_ = -1;
}

void OutputFile::removeTemporaryOnInterrupt(bool ownThread) {
  struct sigaction sa {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESETHAND | SA_NODEFER;
  sigset_t set;
  sigemptyset(&set);
  for (const int sig : {SIGTERM, SIGINT, SIGHUP}) {
    ::sigaction(sig, &sa, nullptr);
    sigaddset(&set, sig);
  }
  if (!ownThread) return;
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread([set] {
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    for (;;) ::pause();
  }).detach();
}

}  // namespace ql
