#include "scan/Trash.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "scan/DirReader.h"
#include "scan/FileOps.h"
#include "support/Path.h"

namespace ql {

namespace {

TrashResult failure(int err) { return {err, systemErrorText(err)}; }

// Closes a descriptor at the end of its scope.
struct Fd {
  int fd = -1;
  explicit Fd(int f) : fd(f) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

// The mount of what a path leads to (links followed), 0 when it is not there.
uint64_t mountOfPath(const std::string& path) {
  struct statx sx;
  if (::statx(AT_FDCWD, path.c_str(), kStatxQuiet, STATX_MNT_ID, &sx) != 0) return 0;
  return mountIdFrom(sx);
}

std::string parentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
}

// The mount of the nearest part of `path` that is there.
uint64_t mountOfNearest(std::string path) {
  for (;;) {
    if (const uint64_t m = mountOfPath(path)) return m;
    if (path == "/") return 0;
    path = parentOf(path);
  }
}

// A folder of the trash, made 0700 when missing; it must be a folder of ours, no link.
int ensureOwnFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return errno;
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return errno;
  if (!S_ISDIR(st.st_mode)) return ENOTDIR;
  if (st.st_uid != ::geteuid()) return EPERM;
  return 0;
}

// The top of the mount an item lies on: the highest folder above it on the same mount.
std::string topOfMount(const std::string& folder, uint64_t mount) {
  std::string top = folder;
  while (top != "/") {
    const std::string up = parentOf(top);
    if (mountOfPath(up) != mount) break;
    top = up;
  }
  return top;
}

// The trash folder for an item of `mount` whose folder is `folder`, made when missing; the Path=
// of the note in `notePath` is filled from `item`.
int chooseTrash(const std::string& item, const std::string& folder, uint64_t mount,
                std::string& trash, std::string& notePath) {
  const std::string data = xdgDataHome();
  if (!data.empty() && mountOfNearest(joinPath(data, "Trash")) == mount) {
    std::string error;
    if (!createPath(data, error)) return errno ? errno : EACCES;
    trash = joinPath(data, "Trash");
    notePath = item;
    return ensureOwnFolder(trash);
  }
  const std::string top = topOfMount(folder, mount);
  const std::string uid = std::to_string(::geteuid());
  notePath = top == "/" ? item.substr(1) : item.substr(top.size() + 1);
  const std::string shared = joinPath(top, ".Trash");
  struct stat st;
  if (::lstat(shared.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX)) {
    trash = joinPath(shared, uid);
    if (ensureOwnFolder(trash) == 0) return 0;
  }
  trash = joinPath(top, ".Trash-" + uid);
  return ensureOwnFolder(trash);
}

std::string noteText(const std::string& notePath) {
  char date[32] = {};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  return "[Trash Info]\nPath=" + percentEncodePath(notePath) + "\nDeletionDate=" + date + "\n";
}

// The name in the trash for try n (1, 2, ...): "name", "name.2", ...; cut so that the note's name
// still fits the file system's limit.
std::string trashName(const std::string& name, int n) {
  const std::string tail = n == 1 ? std::string() : "." + std::to_string(n);
  constexpr size_t kMax = NAME_MAX - sizeof(".trashinfo") + 1;
  const size_t room = kMax - tail.size();
  return (name.size() > room ? name.substr(0, room) : name) + tail;
}

bool writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// The path of the folder behind a descriptor as the kernel names it now: what a note must name,
// since that is where the item really was. "" when it has no such name.
std::string folderPathOf(int fd) {
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  std::string buf(PATH_MAX, '\0');
  for (;;) {
    const ssize_t n = ::readlink(link.c_str(), buf.data(), buf.size());
    if (n < 0) return {};
    if (static_cast<size_t>(n) < buf.size()) {
      buf.resize(static_cast<size_t>(n));
      break;
    }
    buf.resize(buf.size() * 2);
  }
  constexpr std::string_view kGone = " (deleted)";
  if (buf.empty() || buf[0] != '/' ||
      (buf.size() >= kGone.size() &&
       buf.compare(buf.size() - kGone.size(), kGone.size(), kGone) == 0))
    return {};
  return buf;
}

}  // namespace

std::string percentEncodePath(const std::string& path) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(path.size());
  for (const unsigned char c : path) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~' || c == '/') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string trashErrorText(const TrashResult& result) {
  return result.text + " (" + std::to_string(result.code) + ")";
}

TrashResult moveToTrash(const std::string& path) {
  std::string item = path;
  while (item.size() > 1 && item.back() == '/') item.pop_back();
  if (item.empty()) return failure(ENOENT);
  if (item.front() != '/') {
    char cwd[PATH_MAX];
    if (!::getcwd(cwd, sizeof cwd)) return failure(errno);
    item = joinPath(cwd, item);
  }
  return moveToTrash(FoundPath{item, {}});
}

TrashResult moveToTrash(const FoundPath& path, uint64_t inode) {
  const std::string given = path.full();
  if (given == "/") return failure(EBUSY);
  std::string name;
  const Fd from(openFoundParent(path, name));
  if (from.fd < 0) return {-from.fd, foundFailureText(given, -from.fd)};
  struct statx sx;
  if (::statx(from.fd, name.c_str(), AT_SYMLINK_NOFOLLOW | kStatxQuiet,
              STATX_TYPE | STATX_MNT_ID | STATX_INO, &sx) != 0)
    return failure(errno);
  if (inode && sx.stx_ino != inode) return {ESTALE, replacedFileText(given)};
  const uint64_t mount = mountIdFrom(sx);
  // A mount point cannot be renamed away; nothing is written for it.
  if (struct statx up; ::statx(from.fd, "", AT_EMPTY_PATH | kStatxQuiet, STATX_MNT_ID, &up) != 0 ||
                       mountIdFrom(up) != mount)
    return failure(EBUSY);

  // The note names the folder the item is really taken from, as the kernel reached it.
  std::string folder = folderPathOf(from.fd);
  if (folder.empty()) folder = parentOf(given);
  const std::string item = joinPath(folder, name);
  std::string trash, notePath;
  if (const int err = chooseTrash(item, folder, mount, trash, notePath)) return failure(err);
  for (const char* sub : {"/files", "/info"})
    if (const int err = ensureOwnFolder(trash + sub)) return failure(err);
  const Fd files(::open((trash + "/files").c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const Fd info(::open((trash + "/info").c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (files.fd < 0 || info.fd < 0) return failure(errno);

  const std::string note = noteText(notePath);
  for (int n = 1; n < 100000; ++n) {
    const std::string target = trashName(name, n);
    const std::string noteName = target + ".trashinfo";
    const int fd = ::openat(info.fd, noteName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return failure(errno);
    }
    const bool written = writeAll(fd, note);
    const int writeErr = errno;
    if (::close(fd) != 0 || !written) {
      const int err = written ? errno : writeErr;
      ::unlinkat(info.fd, noteName.c_str(), 0);
      return failure(err ? err : EIO);
    }
    const int err = renameNoReplaceAt(from.fd, name.c_str(), files.fd, target.c_str());
    if (err == 0) return {};
    ::unlinkat(info.fd, noteName.c_str(), 0);
    if (err != EEXIST && err != ENOTEMPTY) return failure(err);  // a stray item of that name: next
  }
  return failure(EEXIST);
}

}  // namespace ql
