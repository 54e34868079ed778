#include "scan/FileOps.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "lang/TL.h"

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

int openFolderPath(const std::string& path) {
  if (path.empty()) return -ENOENT;
  std::string rest;
  int at = AT_FDCWD;
  if (const int err = descend(path, at, rest)) return -err;
  const int fd = ::openat(at, rest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int err = errno;
  if (at != AT_FDCWD) ::close(at);
  return fd >= 0 ? fd : -err;
}

int probePath(const std::string& path) { return probe(path, AT_SYMLINK_NOFOLLOW); }

std::string renameNoReplace(const std::string& from, const std::string& to) {
  if (::syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
    return {};
  if (errno != EINVAL && errno != ENOSYS) return systemErrorText(errno);
  // A file system that cannot promise it: a file is linked and unlinked, a folder is renamed
  // only when nothing of the new name is there.
  struct stat st;
  if (::lstat(from.c_str(), &st) != 0) return systemErrorText(errno);
  if (!S_ISDIR(st.st_mode)) {
    if (::link(from.c_str(), to.c_str()) != 0) return systemErrorText(errno);
    if (::unlink(from.c_str()) != 0) return systemErrorText(errno);
    return {};
  }
  if (::lstat(to.c_str(), &st) == 0) return systemErrorText(EEXIST);
  if (::rename(from.c_str(), to.c_str()) != 0) return systemErrorText(errno);
  return {};
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

}  // namespace ql
