#include "scan/FileOps.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "lang/TL.h"

namespace ql {

bool existFolder(const std::string& path) {
  if (path.empty()) return false;
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

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
