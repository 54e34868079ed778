#include "scan/FileOps.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unordered_set>
#include <limits.h>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "lang/TL.h"
#include "scan/DirReader.h"

namespace ql {

namespace {

// Opens everything of `path` but a tail that fits PATH_MAX, piece by piece, as O_PATH (which
// opens nothing on the file system's side). Returns the descriptor (AT_FDCWD when the whole path
// fits, then nothing needs closing) in `at` and the tail relative to it in `rest`; 0 or the errno.
int descend(const std::string& path, int& at, std::string& rest) {
  constexpr size_t kPiece = PATH_MAX - 1;
  int fd = AT_FDCWD;
  size_t pos = 0;
  while (path.size() - pos > kPiece) {
    const size_t cut = path.rfind('/', pos + kPiece);
    if (cut == std::string::npos || cut < pos) {  // one name longer than any the system allows
      if (fd != AT_FDCWD) ::close(fd);
      return ENAMETOOLONG;
    }
    const std::string piece = cut == pos ? std::string("/") : path.substr(pos, cut - pos);
    const int next = ::openat(fd, piece.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int err = errno;
    if (fd != AT_FDCWD) ::close(fd);
    if (next < 0) return err;
    fd = next;
    pos = path.find_first_not_of('/', cut);
    if (pos == std::string::npos) pos = path.size();
  }
  rest = pos < path.size() ? path.substr(pos) : std::string(".");
  at = fd;
  return 0;
}

int probe(const std::string& path, int flags) {
  if (path.empty()) return ENOENT;
  std::string rest;
  int fd = AT_FDCWD;
  if (const int err = descend(path, fd, rest)) return err;
  struct statx sx;
  const int r = ::statx(fd, rest.c_str(), flags | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, 0, &sx);
  const int err = r == 0 ? 0 : errno;
  if (fd != AT_FDCWD) ::close(fd);
  return err;
}

}  // namespace

static int openFolder(const std::string& path, int flags) {
  if (path.empty()) return -ENOENT;
  std::string rest;
  int at = AT_FDCWD;
  if (const int err = descend(path, at, rest)) return -err;
  const int fd = ::openat(at, rest.c_str(), flags | O_DIRECTORY | O_CLOEXEC);
  const int err = errno;
  if (at != AT_FDCWD) ::close(at);
  return fd >= 0 ? fd : -err;
}

int openFolderPath(const std::string& path) { return openFolder(path, O_RDONLY); }

int openFolderHandle(const std::string& path) { return openFolder(path, O_PATH); }

int probePath(const std::string& path) { return probe(path, AT_SYMLINK_NOFOLLOW); }

int renameNoReplaceAt(int fromDir, const char* from, int toDir, const char* to) {
  if (::syscall(SYS_renameat2, fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that cannot promise it: a file is linked and unlinked, a folder is renamed
  // only when nothing of the new name is there.
  struct stat st;
  if (::fstatat(fromDir, from, &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISDIR(st.st_mode)) {
    if (::linkat(fromDir, from, toDir, to, 0) != 0) return errno;
    return ::unlinkat(fromDir, from, 0) == 0 ? 0 : errno;
  }
  if (::fstatat(toDir, to, &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return ::renameat(fromDir, from, toDir, to) == 0 ? 0 : errno;
}

std::string renameNoReplace(const std::string& from, const std::string& to) {
  const int err = renameNoReplaceAt(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str());
  return err ? systemErrorText(err) : std::string();
}

bool createPath(const std::string& path, std::string& errorText) {
  if (path.empty() || path.front() != '/') {
    errorText = TL(1120, "Der Ordnerpfad '%1' ist ungültig und kann nicht erstellt werden!",
                   {QString::fromLocal8Bit(path.c_str())})
                    .toStdString();
    return false;
  }
  const std::string full = addSlash(path);
  for (size_t pos = full.find('/', 1); pos != std::string::npos; pos = full.find('/', pos + 1)) {
    const std::string prefix = full.substr(0, pos);
    struct stat st;
    if (::stat(prefix.c_str(), &st) == 0) continue;
    if (::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) {
      errorText = systemErrorText(errno);
      return false;
    }
  }
  return true;
}

// ---- Deleting ----

namespace {

// Gives the owner the permission bits `bits` on the folder behind fd (any kind of descriptor,
// O_PATH too) when the user owns it and lacks some of them. True when something was changed.
bool grantOwner(int fd, mode_t bits) {
  struct stat st;
  if (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid() || (st.st_mode & bits) == bits) return false;
  const mode_t mode = (st.st_mode & 07777) | bits;
  if (::fchmod(fd, mode) == 0) return true;
  // An O_PATH descriptor cannot be changed itself; its entry in /proc can.
  const std::string proc = "/proc/self/fd/" + std::to_string(fd);
  return ::chmod(proc.c_str(), mode) == 0;
}

// A path without trailing slashes ("/" stays).
std::string bare(const std::string& path) {
  size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  return path.substr(0, end);
}

std::string failureText(const std::string& path, int err) {
  return path + " (" + systemErrorText(err) + ")";
}

void addError(std::string& errors, const std::string& text) {
  if (!errors.empty()) errors += ' ';
  errors += text;
}

// Opens the folder that holds the last name of `path` as a handle (any path length) and gives the
// name. 0 or the errno.
int openContaining(const std::string& path, int& dir, std::string& name) {
  const std::string p = bare(path);
  const size_t slash = p.rfind('/');
  if (slash == std::string::npos) {
    dir = ::openat(AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    name = p;
  } else {
    const int fd = openFolderHandle(slash == 0 ? std::string("/") : p.substr(0, slash));
    dir = fd;
    if (fd < 0) return -fd;
    name = p.substr(slash + 1);
  }
  if (dir < 0) return errno;
  if (name.empty() || name == "." || name == "..") {
    ::close(dir);
    return EINVAL;
  }
  return 0;
}

// unlinkat, and with `force` once more after giving the owner write and search permission on the
// folder when the first try was refused for want of it. 0 or the errno.
int removeIn(int dir, const char* name, int flags, bool force) {
  if (::unlinkat(dir, name, flags) == 0) return 0;
  const int err = errno;
  if (!force || (err != EACCES && err != EPERM) || !grantOwner(dir, S_IWUSR | S_IXUSR)) return err;
  return ::unlinkat(dir, name, flags) == 0 ? 0 : errno;
}

uint64_t mountOfFd(int fd) {
  struct statx sx;
  if (::statx(fd, "", AT_EMPTY_PATH | kStatxQuiet, STATX_MNT_ID, &sx) != 0) return 0;
  return mountIdFrom(sx);
}

// The names of `rest`, or false when one of them is "." or "..": the scan never finds those.
bool splitNames(const std::string& rest, std::vector<std::string>& names) {
  size_t pos = 0;
  while (pos < rest.size()) {
    size_t end = rest.find('/', pos);
    if (end == std::string::npos) end = rest.size();
    if (end > pos) {
      std::string name = rest.substr(pos, end - pos);
      if (name == "." || name == "..") return false;
      names.push_back(std::move(name));
    }
    pos = end + 1;
  }
  return true;
}

// Set once the kernel has said it has no openat2 (or a filter refuses it): then name by name.
std::atomic<bool> noOpenat2{false};

// Goes down `names` from the folder `fd` (which it closes), never through a link and never onto
// another mount. The handle of the last folder, or -errno; -EXDEV for a link or another mount.
int walkDown(int fd, const std::vector<std::string>& names, size_t count) {
  uint64_t mount = 0;
  size_t i = 0;
  while (i < count) {
    if (!noOpenat2.load(std::memory_order_relaxed)) {
      // As many names in one call as fit the path limit; the kernel checks every step.
      std::string chunk = names[i];
      size_t j = i + 1;
      while (j < count && chunk.size() + 1 + names[j].size() < PATH_MAX) chunk += '/' + names[j++];
      open_how how{};
      how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
      how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
      const int next =
          static_cast<int>(::syscall(SYS_openat2, fd, chunk.c_str(), &how, sizeof how));
      if (next >= 0) {
        ::close(fd);
        fd = next;
        i = j;
        continue;
      }
      const int err = errno;
      if (err != ENOSYS && err != EPERM) {
        ::close(fd);
        return -(err == ELOOP ? EXDEV : err);
      }
      noOpenat2.store(true, std::memory_order_relaxed);
    }
    if (mount == 0) mount = mountOfFd(fd);
    const char* name = names[i].c_str();
    const int next = ::openat(fd, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      int err = errno;
      struct stat st;
      // A link met with O_NOFOLLOW and O_DIRECTORY answers "not a directory".
      if (err == ELOOP || (err == ENOTDIR && ::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                           S_ISLNK(st.st_mode)))
        err = EXDEV;
      ::close(fd);
      return -err;
    }
    ::close(fd);
    if (mountOfFd(next) != mount) {
      ::close(next);
      return -EXDEV;
    }
    fd = next;
    ++i;
  }
  return fd;
}

// 0 when `name` in `dir` is the inode `inode`, ESTALE when it is another, else the errno.
int sameInode(int dir, const std::string& name, uint64_t inode) {
  struct statx sx;
  if (::statx(dir, name.c_str(), AT_SYMLINK_NOFOLLOW | kStatxQuiet, STATX_INO, &sx) != 0)
    return errno;
  return sx.stx_ino == inode ? 0 : ESTALE;
}

// Opens a folder below `dir` for reading, never through a link. With `force`, a folder the user
// owns but may not read gets owner permissions first. The descriptor, or -errno.
int openBelow(int dir, const char* name, bool force) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  int fd = ::openat(dir, name, kFlags);
  if (fd >= 0) return fd;
  const int err = errno;
  if (!force || err != EACCES) return -err;
  const int handle = ::openat(dir, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (handle < 0) return -err;
  const bool changed = grantOwner(handle, S_IRWXU);
  ::close(handle);
  if (!changed) return -err;
  fd = ::openat(dir, name, kFlags);
  return fd >= 0 ? fd : -errno;
}

// One folder on the way down.
struct Level {
  int fd = -1;                           // -1 while parked to keep the open descriptors few
  dev_t dev = 0;
  ino_t ino = 0;
  std::string name;                      // its name in the level above
  std::unordered_set<std::string> keep;  // entries that stay: failures, mount points
  bool blocked = false;                  // its listing could not be read
};

// Folders deeper than this below the one in work are closed and found again through "..".
constexpr size_t kOpenLevels = 64;

class TreeDelete {
 public:
  TreeDelete(const FoundPath& found, bool force, const Stop* stop)
      : found_(found),
        path_(bare(found.full())),
        force_(force),
        stop_(stop) {}

  FolderDeleteResult run() {
    start();
    if (!stack_.empty()) loop();
    for (Level& l : stack_)
      if (l.fd >= 0) ::close(l.fd);
    stack_.clear();
    struct stat st;
    if (!result_.ok && result_.mountsRefused.empty() && !stopped_ && parent_ >= 0 &&
        ::fstatat(parent_, name_.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
      result_.ok = true;  // gone anyway
      result_.errors.clear();
    }
    if (parent_ >= 0) ::close(parent_);
    return std::move(result_);
  }

 private:
  void start() {
    if (path_ == "/") {
      refuseMount(path_);
      return;
    }
    // The folder that holds the start stays open to the end: the emptied folder goes from there.
    const int dir = openFoundParent(found_, name_);
    if (dir < 0) {
      result_.redirected = dir == -EXDEV;
      addError(result_.errors, foundFailureText(path_, -dir));
      return;
    }
    parent_ = dir;
    const char* name = name_.c_str();
    struct statx sx;
    if (::statx(dir, name, AT_SYMLINK_NOFOLLOW | kStatxQuiet, STATX_TYPE | STATX_MNT_ID, &sx) != 0) {
      addError(result_.errors, failureText(path_, errno));
    } else if (S_ISLNK(sx.stx_mode)) {
      addError(result_.errors,
               TL(4221, "Der Ordner '%1' ist eine symbolische Verknüpfung und wurde nicht gelöscht.",
                  {QFile::decodeName(path_.c_str())})
                   .toStdString());
    } else if (!S_ISDIR(sx.stx_mode)) {
      addError(result_.errors, failureText(path_, ENOTDIR));
    } else if (isMountRoot(dir, sx)) {
      refuseMount(path_);
    } else {
      const int fd = openBelow(dir, name, force_);
      if (fd < 0) {
        addError(result_.errors, failureText(path_, -fd));
      } else if ((mount_ = mountOfFd(fd)) != mountIdFrom(sx)) {
        ::close(fd);  // mounted on between the look and the open
        refuseMount(path_);
      } else {
        push(fd, std::string());
      }
    }
  }

  static bool isMountRoot(int dir, const struct statx& sx) {
    if (sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) return sx.stx_attributes & STATX_ATTR_MOUNT_ROOT;
    struct statx up;
    if (::statx(dir, ".", kStatxQuiet, STATX_MNT_ID, &up) != 0) return false;
    return mountIdFrom(up) != mountIdFrom(sx);
  }

  void refuseMount(const std::string& path) { result_.mountsRefused.push_back(path); }

  void push(int fd, std::string name) {
    Level l;
    l.fd = fd;
    struct stat st;
    if (::fstat(fd, &st) == 0) {
      l.dev = st.st_dev;
      l.ino = st.st_ino;
    }
    l.name = std::move(name);
    stack_.push_back(std::move(l));
    if (stack_.size() > kOpenLevels) {
      Level& park = stack_[stack_.size() - 1 - kOpenLevels];
      if (park.fd >= 0) {
        ::close(park.fd);
        park.fd = -1;
      }
    }
  }

  // The full path of an entry of the folder in work, for a message.
  std::string pathOf(const std::string& name) const {
    std::string p = path_;
    for (size_t i = 1; i < stack_.size(); ++i) p = joinPath(p, stack_[i].name);
    return name.empty() ? p : joinPath(p, name);
  }

  bool stopped() const { return stop_ && stop_->requested(); }

  void loop() {
    while (!stack_.empty()) {
      if (stopped()) {
        stopped_ = true;
        return;
      }
      Level& top = stack_.back();
      std::string down;
      if (::lseek(top.fd, 0, SEEK_SET) != 0) {
        addError(result_.errors, failureText(pathOf(""), errno));
        top.blocked = true;
      } else {
        const auto read = reader_.read(
            top.fd,
            [&](DirEntry& e) {
              const char* name = e.name();
              if (!top.keep.empty() && top.keep.count(name)) return true;
              if (!e.isFolder()) {
                const int err = removeIn(top.fd, name, 0, force_);
                if (err && err != ENOENT) {
                  addError(result_.errors, failureText(pathOf(name), err));
                  top.keep.insert(name);
                }
                return true;
              }
              if (e.mountId() != mount_) {  // not entered, not even opened
                refuseMount(pathOf(name));
                top.keep.insert(name);
                return true;
              }
              down = name;
              return false;
            },
            stop_);
        if (read.end == DirReader::End::Stopped) {
          stopped_ = true;
          return;
        }
        if (read.end == DirReader::End::Failed) {
          addError(result_.errors, failureText(pathOf(""), read.error));
          top.blocked = true;
        }
      }
      if (!down.empty()) {
        enter(down);
        continue;
      }
      if (!leave()) return;
    }
  }

  void enter(const std::string& name) {
    Level& top = stack_.back();
    const int fd = openBelow(top.fd, name.c_str(), force_);
    if (fd < 0) {
      const int err = -fd;
      // Replaced by something that is no folder since the listing: it goes as a file would.
      if ((err == ENOTDIR || err == ELOOP) && removeIn(top.fd, name.c_str(), 0, force_) == 0) return;
      if (err != ENOENT) {
        addError(result_.errors, failureText(pathOf(name), err));
        top.keep.insert(name);
      }
      return;
    }
    if (mountOfFd(fd) != mount_) {  // mounted on between the look and the open
      ::close(fd);
      refuseMount(pathOf(name));
      top.keep.insert(name);
      return;
    }
    push(fd, name);
  }

  // The folder in work is as empty as it gets: remove it from the level above. False when the
  // delete cannot go on.
  bool leave() {
    Level done = std::move(stack_.back());
    stack_.pop_back();
    const bool emptied = done.keep.empty() && !done.blocked;
    if (stack_.empty()) {
      ::close(done.fd);
      if (!emptied) return true;
      const int err = removeIn(parent_, name_.c_str(), AT_REMOVEDIR, force_);
      if (err && err != ENOENT)
        addError(result_.errors, failureText(path_, err));
      else
        result_.ok = true;
      return true;
    }
    Level& parent = stack_.back();
    if (parent.fd < 0) {
      const int fd = ::openat(done.fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      struct stat st;
      if (fd < 0 || ::fstat(fd, &st) != 0 || st.st_dev != parent.dev || st.st_ino != parent.ino) {
        if (fd >= 0) ::close(fd);
        ::close(done.fd);
        addError(result_.errors,
                 TL(4222, "Der Ordner '%1' wurde während des Löschens verschoben; das Löschen wurde abgebrochen.",
                    {QFile::decodeName(pathOf("").c_str())})
                     .toStdString());
        return false;
      }
      parent.fd = fd;
    }
    ::close(done.fd);
    if (!emptied) {
      parent.keep.insert(done.name);
      return true;
    }
    const int err = removeIn(parent.fd, done.name.c_str(), AT_REMOVEDIR, force_);
    if (err && err != ENOENT) {
      addError(result_.errors, failureText(pathOf(done.name), err));
      parent.keep.insert(done.name);
    }
    return true;
  }

  const FoundPath found_;
  const std::string path_;  // for messages
  int parent_ = -1;         // the folder that holds the start
  std::string name_;        // the start's name there
  const bool force_;
  const Stop* stop_;
  uint64_t mount_ = 0;
  bool stopped_ = false;
  std::vector<Level> stack_;
  DirReader reader_{STATX_MNT_ID};
  FolderDeleteResult result_;
};

}  // namespace

std::string deleteFile(const std::string& path, bool force) {
  return deleteFile(FoundPath{path, {}}, force);
}

std::string deleteFile(const FoundPath& path, bool force, uint64_t inode) {
  std::string name;
  const int dir = openFoundParent(path, name);
  if (dir < 0) return -dir == ENOENT ? std::string() : foundFailureText(path.full(), -dir);
  int err = inode ? sameInode(dir, name, inode) : 0;
  if (!err) err = removeIn(dir, name.c_str(), 0, force);
  ::close(dir);
  if (err == ESTALE) return replacedFileText(path.full());
  return err == 0 || err == ENOENT ? std::string() : failureText(path.full(), err);
}

FolderDeleteResult deleteFolderTree(const std::string& path, bool force, const Stop* stop) {
  return deleteFolderTree(FoundPath{path, {}}, force, stop);
}

FolderDeleteResult deleteFolderTree(const FoundPath& path, bool force, const Stop* stop) {
  if (path.root.empty() && path.rest.empty()) {
    FolderDeleteResult r;
    r.errors = failureText(path.root, ENOENT);
    return r;
  }
  return TreeDelete(path, force, stop).run();
}

std::string renameNoReplace(const FoundPath& from, const std::string& newName, uint64_t inode) {
  if (newName.empty() || newName == "." || newName == ".." ||
      newName.find('/') != std::string::npos)
    return systemErrorText(EINVAL);
  std::string name;
  const int dir = openFoundParent(from, name);
  if (dir < 0) return -dir == EXDEV ? foundFailureText(from.full(), EXDEV) : systemErrorText(-dir);
  int err = inode ? sameInode(dir, name, inode) : 0;
  if (!err) err = renameNoReplaceAt(dir, name.c_str(), dir, newName.c_str());
  ::close(dir);
  if (err == ESTALE) return replacedFileText(from.full());
  return err ? systemErrorText(err) : std::string();
}

std::string FoundPath::full() const {
  return rest.empty() ? root : joinPath(root, rest);
}

FoundPath foundBelow(const std::string& root, const std::string& path) {
  const std::string r = bare(root);
  if (path == r || path == r + "/") return {r, {}};
  if (r == "/" && path.size() > 1 && path[0] == '/') return {r, path.substr(1)};
  if (!r.empty() && path.size() > r.size() + 1 && path.compare(0, r.size(), r) == 0 &&
      path[r.size()] == '/')
    return {r, path.substr(r.size() + 1)};
  return {{}, path};
}

int openFoundParent(const FoundPath& p, std::string& name) {
  std::vector<std::string> names;
  if (!splitNames(p.rest, names)) return -EINVAL;
  if (names.empty()) {  // the root itself: as given, like any path
    int dir = -1;
    if (p.root.empty()) return -ENOENT;
    const int err = openContaining(p.root, dir, name);
    return err ? -err : dir;
  }
  if (p.root.empty()) return -EINVAL;
  const int root = openFolderHandle(p.root);
  if (root < 0) return root;
  name = names.back();
  return walkDown(root, names, names.size() - 1);
}

int openFoundFolder(const FoundPath& p) {
  std::string name;
  const int dir = openFoundParent(p, name);
  if (dir < 0) return dir;
  int fd = ::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  int err = errno;
  if (fd < 0 && err == ENOTDIR) {
    struct stat st;
    if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode))
      err = EXDEV;
  }
  // The root named as given may itself be a link or a mount point; below it nothing may.
  if (fd >= 0 && !p.rest.empty() && mountOfFd(fd) != mountOfFd(dir)) {
    ::close(fd);
    fd = -1;
    err = EXDEV;
  }
  ::close(dir);
  return fd >= 0 ? fd : -err;
}

int statFound(const FoundPath& p, struct stat& st) {
  std::string name;
  const int dir = openFoundParent(p, name);
  if (dir < 0) return -dir;
  const int err = ::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
  ::close(dir);
  return err;
}

std::string foundFailureText(const std::string& path, int err) {
  if (err != EXDEV) return failureText(path, err);
  return TL(4223,
            "'%1' wurde nicht geändert: ein Ordner auf dem Weg dorthin ist jetzt eine symbolische "
            "Verknüpfung oder liegt auf einem anderen Dateisystem.",
            {QFile::decodeName(path.c_str())})
      .toStdString();
}

std::string replacedFileText(const std::string& path) {
  return TL(4224, "Die Datei '%1' ist nicht mehr die eingelesene und wurde nicht geändert.",
            {QFile::decodeName(path.c_str())})
      .toStdString();
}

std::string mountRefusedText(const std::string& path) {
  return TL(4220, "Der Ordner '%1' ist ein Einhängepunkt und wurde nicht gelöscht.",
            {QFile::decodeName(path.c_str())})
      .toStdString();
}

}  // namespace ql
