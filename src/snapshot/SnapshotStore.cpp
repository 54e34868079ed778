#include "snapshot/SnapshotStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QByteArray>
#include <QCryptographicHash>
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>

#include "json/JsonExport.h"
#include "output/OutputFile.h"
#include "support/Path.h"

namespace ql {

namespace {

constexpr char kSourceFile[] = "source";
constexpr char kSuffix[] = ".json.zst";
constexpr size_t kSuffixLength = sizeof kSuffix - 1;
// A temporary file this old belongs to a run that was killed.
constexpr time_t kStaleSeconds = 24 * 3600;

std::string failText(const std::string& path, int err) {
  return path + ": " + systemErrorText(err);
}

int64_t nowMs() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string stampOf(int64_t ms) {
  const time_t seconds = static_cast<time_t>(ms / 1000);
  tm t{};
  ::gmtime_r(&seconds, &t);
  char buf[40];
  std::snprintf(buf, sizeof buf, "%04d%02d%02dT%02d%02d%02d.%03dZ", t.tm_year + 1900, t.tm_mon + 1,
                t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(ms % 1000));
  return buf;
}

std::string snapshotName(int64_t ms, int64_t bytes, int64_t files) {
  return stampOf(ms) + "_" + std::to_string(bytes) + "_" + std::to_string(files) + kSuffix;
}

// The time (ms), bytes and files of a snapshot's name; false when it is not one this program
// writes (the name is rebuilt from what was read and must come out the same).
bool parseName(const std::string& name, int64_t& ms, int64_t& bytes, int64_t& files) {
  if (name.size() <= kSuffixLength ||
      name.compare(name.size() - kSuffixLength, kSuffixLength, kSuffix))
    return false;
  int y, mo, d, h, mi, s, milli;
  if (std::sscanf(name.c_str(), "%4d%2d%2dT%2d%2d%2d.%3dZ_%" SCNd64 "_%" SCNd64, &y, &mo, &d, &h,
                  &mi, &s, &milli, &bytes, &files) != 9)
    return false;
  tm t{};
  t.tm_year = y - 1900, t.tm_mon = mo - 1, t.tm_mday = d, t.tm_hour = h, t.tm_min = mi,
  t.tm_sec = s;
  ms = static_cast<int64_t>(::timegm(&t)) * 1000 + milli;
  return bytes >= 0 && files >= 0 && snapshotName(ms, bytes, files) == name;
}

// Makes the folder and the ones above it, private to the user.
int makeFolders(const std::string& path) {
  for (size_t at = 1; at <= path.size(); ++at) {
    if (at < path.size() && path[at] != '/') continue;
    const std::string part = path.substr(0, at);
    if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return errno;
  }
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

bool readSmallFile(const std::string& path, std::string& text) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return false;
  text.clear();
  char buf[4096];
  ssize_t n;
  while ((n = ::read(fd, buf, sizeof buf)) > 0 && text.size() < 1 << 20)
    text.append(buf, static_cast<size_t>(n));
  ::close(fd);
  return n == 0;
}

std::vector<std::string> folderNames(const std::string& folder, int* err = nullptr) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) {
    if (err) *err = errno;
    return names;
  }
  while (const dirent* e = ::readdir(dir)) {
    if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, "..")) names.emplace_back(e->d_name);
  }
  ::closedir(dir);
  return names;
}

void addLine(std::string* error, const std::string& line) {
  if (!error) return;
  if (!error->empty()) error->push_back('\n');
  *error += line;
}

// The snapshots in one source's folder; `source` is the path they are listed under.
void listFolder(const std::string& folder, const std::string& source,
                std::vector<SnapshotInfo>& out, std::string* error) {
  int err = 0;
  std::vector<std::string> names = folderNames(folder, &err);
  if (err && err != ENOENT) addLine(error, failText(folder, err));
  for (const std::string& name : names) {
    if (name[0] == '.' || name == kSourceFile) continue;
    const std::string path = joinPath(folder, name);
    SnapshotInfo info;
    int64_t ms = 0;
    if (!parseName(name, ms, info.bytes, info.files)) {
      addLine(error, path + ": not a snapshot");
      continue;
    }
    // A whole snapshot begins with the zstd magic number; an empty or overwritten one does not.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
      addLine(error, failText(path, errno));
      continue;
    }
    struct stat st {};
    unsigned char magic[4] = {};
    const bool whole = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                       ::pread(fd, magic, 4, 0) == 4 && magic[0] == 0x28 && magic[1] == 0xB5 &&
                       magic[2] == 0x2F && magic[3] == 0xFD;
    ::close(fd);
    if (!whole) {
      addLine(error, path + ": damaged snapshot, left out");
      continue;
    }
    info.file = path;
    info.time = ms / 1000;
    info.source = source;
    info.stored = static_cast<int64_t>(st.st_blocks) * 512;
    out.push_back(std::move(info));
  }
}

void newestFirst(std::vector<SnapshotInfo>& list) {
  // The names sort by time (milliseconds included) within a source.
  std::stable_sort(list.begin(), list.end(), [](const SnapshotInfo& a, const SnapshotInfo& b) {
    if (a.time != b.time) return a.time > b.time;
    const auto nameOf = [](const std::string& p) { return p.substr(p.rfind('/') + 1); };
    return nameOf(a.file) > nameOf(b.file);
  });
}

// The source's folder, made when missing, with its path written inside. Empty with `error` when
// that fails, or when the folder belongs to another path (two paths of the same hash).
std::string prepareFolder(const std::string& source, std::string& error) {
  if (snapshotRoot().empty()) {
    error = "no folder for snapshots (neither XDG_DATA_HOME nor HOME is set)";
    return {};
  }
  const std::string path = snapshotSourcePath(source);
  const std::string folder = snapshotFolder(path);
  if (const int err = makeFolders(folder)) {
    error = failText(folder, err);
    return {};
  }
  const std::string sourceFile = joinPath(folder, kSourceFile);
  std::string held;
  if (readSmallFile(sourceFile, held)) {
    if (held == path) return folder;
    error = sourceFile + ": holds another source";
    return {};
  }
  OutputFile out;
  if (!out.open(sourceFile) || !out.write(path) || !out.commit()) {
    error = out.error();
    return {};
  }
  return folder;
}

// Gives the complete temporary snapshot `part` its name; a name taken (two in one millisecond)
// moves on by a millisecond.
SnapshotResult placeSnapshot(const std::string& folder, const std::string& part,
                             const std::string& source, int64_t ms, int64_t bytes, int64_t files) {
  SnapshotResult r;
  for (int attempt = 0; attempt < 1000; ++attempt, ++ms) {
    const std::string file = joinPath(folder, snapshotName(ms, bytes, files));
    if (::renameat2(AT_FDCWD, part.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) != 0) {
      if (errno == EEXIST) continue;
      r.error = failText(file, errno);
      break;
    }
    struct stat st {};
    r.ok = true;
    r.info =
        SnapshotInfo{file,
                     ms / 1000,
                     bytes,
                     files,
                     snapshotSourcePath(source),
                     ::stat(file.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_blocks) * 512 : 0};
    return r;
  }
  if (r.error.empty()) r.error = failText(folder, EEXIST);
  ::unlink(part.c_str());
  return r;
}

std::string partName(const std::string& folder, int64_t ms) {
  return joinPath(folder, ".part-" + stampOf(ms) + "-" + std::to_string(::getpid()) + kSuffix);
}

// Copies all of `in` to `out`: a clone of its blocks where the file system shares them, else
// copy_file_range, else read and write.
int copyAll(int in, int out) {
  if (::ioctl(out, FICLONE, in) == 0) return 0;
  bool ranged = true;
  for (;;) {
    ssize_t n;
    if (ranged) {
      n = ::copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
      if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
        ranged = false;
        continue;
      }
    } else {
      char buf[1 << 16];
      n = ::read(in, buf, sizeof buf);
      for (ssize_t done = 0; n > 0 && done < n;) {
        const ssize_t w = ::write(out, buf + done, static_cast<size_t>(n - done));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return w < 0 ? errno : EIO;
        done += w;
      }
    }
    if (n == 0) return 0;
    if (n < 0 && errno != EINTR) return errno;
  }
}

}  // namespace

std::string snapshotRoot() {
  const std::string data = xdgDataHome();
  return data.empty() ? std::string() : joinPath(data, "Quorlane/snapshots");
}

std::string snapshotSourcePath(const std::string& source) {
  std::string full = source;
  if (full.empty() || full[0] != '/') {
    std::string cwd(4096, '\0');
    if (::getcwd(cwd.data(), cwd.size())) full = joinPath(cwd.c_str(), source);
  }
  std::string out;
  size_t at = 0;
  while (at < full.size()) {
    size_t end = full.find('/', at);
    if (end == std::string::npos) end = full.size();
    const std::string_view part(full.data() + at, end - at);
    if (!part.empty() && part != ".") {
      out.push_back('/');
      out.append(part);
    }
    at = end + 1;
  }
  return out.empty() ? std::string("/") : out;
}

std::string snapshotFolder(const std::string& source) {
  const std::string path = snapshotSourcePath(source);
  const QByteArray hash =
      QCryptographicHash::hash(QByteArray::fromStdString(path), QCryptographicHash::Sha256);
  return joinPath(snapshotRoot(), hash.toHex().left(32).toStdString());
}

std::vector<SnapshotInfo> listSnapshots(const std::string& source, std::string* error) {
  std::vector<SnapshotInfo> list;
  if (snapshotRoot().empty()) return list;
  listFolder(snapshotFolder(source), snapshotSourcePath(source), list, error);
  newestFirst(list);
  return list;
}

std::vector<SnapshotInfo> listAllSnapshots(std::string* error) {
  std::vector<SnapshotInfo> list;
  const std::string root = snapshotRoot();
  if (root.empty()) return list;
  int err = 0;
  for (const std::string& name : folderNames(root, &err)) {
    if (name[0] == '.') continue;
    const std::string folder = joinPath(root, name);
    std::string source;
    if (!readSmallFile(joinPath(folder, kSourceFile), source)) {
      addLine(error, folder + ": no source recorded, left out");
      continue;
    }
    listFolder(folder, source, list, error);
  }
  if (err && err != ENOENT) addLine(error, failText(root, err));
  newestFirst(list);
  return list;
}

SnapshotResult writeSnapshot(const std::string& source, int threads, const Stop* stop,
                             const std::vector<std::string>& excludes, int64_t timeMs) {
  return keepWrittenSnapshot(
      source, [&](int fd) { return exportJson(source, fd, threads, stop, true, excludes); },
      timeMs);
}

SnapshotResult keepWrittenSnapshot(const std::string& source,
                                   const std::function<ExportResult(int fd)>& write,
                                   int64_t timeMs, const std::function<bool()>& keepIf) {
  SnapshotResult r;
  const std::string folder = prepareFolder(source, r.error);
  if (folder.empty()) return r;
  const int64_t ms = timeMs ? timeMs : nowMs();
  const std::string part = partName(folder, ms);
  OutputFile out;
  if (!out.open(part)) {
    r.error = out.error();
    return r;
  }
  const ExportResult e = write(out.fd());
  if (!e.ok) {  // nothing is committed: the part goes with `out`
    r.error = e.error.empty() ? std::string("stopped")
              : e.writeFailed ? part + ": " + e.error
                              : e.error;
    return r;
  }
  if (keepIf && !keepIf()) {
    r.error = "not kept";
    return r;
  }
  if (!out.commit()) {
    r.error = out.error();
    return r;
  }
  return placeSnapshot(folder, part, source, ms, static_cast<int64_t>(e.bytes),
                       static_cast<int64_t>(e.files));
}

int openSnapshotTemporary() {
  std::vector<std::string> places;
  if (const std::string root = snapshotRoot(); !root.empty() && makeFolders(root) == 0)
    places.push_back(root);
  if (const char* tmp = std::getenv("TMPDIR"); tmp && tmp[0] == '/') places.emplace_back(tmp);
  places.emplace_back("/tmp");
  for (const std::string& place : places) {
    const int fd = ::open(place.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) return fd;
  }
  return -1;
}

SnapshotResult keepExportAsSnapshot(const std::string& source, const std::string& exportFile,
                                    int64_t bytes, int64_t files, int64_t timeMs) {
  SnapshotResult r;
  const std::string folder = prepareFolder(source, r.error);
  if (folder.empty()) return r;
  const int in = ::open(exportFile.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    r.error = failText(exportFile, errno);
    return r;
  }
  const int64_t ms = timeMs ? timeMs : nowMs();
  const std::string part = partName(folder, ms);
  OutputFile out;
  bool done = out.open(part);
  if (done) {
    if (const int err = copyAll(in, out.fd())) out.fail(err);
    done = out.commit();
  }
  ::close(in);
  if (!done) {
    r.error = out.error();
    return r;
  }
  return placeSnapshot(folder, part, source, ms, bytes, files);
}

PruneResult pruneSnapshots(int keep, int64_t budgetBytes) {
  PruneResult result;
  std::vector<SnapshotInfo> all = listAllSnapshots();  // newest first
  std::vector<bool> gone(all.size(), false);
  auto remove = [&](size_t i) {
    if (::unlink(all[i].file.c_str()) != 0 && errno != ENOENT) {
      addLine(&result.error, failText(all[i].file, errno));
    } else {
      ++result.removed;
      result.freed += all[i].stored;
    }
    gone[i] = true;
  };
  if (keep > 0) {
    std::map<std::string, int> seen;
    for (size_t i = 0; i < all.size(); ++i)
      if (++seen[all[i].source] > keep) remove(i);
  }
  if (budgetBytes > 0) {
    int64_t total = 0;
    for (size_t i = 0; i < all.size(); ++i)
      if (!gone[i]) total += all[i].stored;
    // The oldest first, across sources; the newest of all stays whatever it takes.
    for (size_t i = all.size(); i-- > 1 && total > budgetBytes;) {
      if (gone[i]) continue;
      total -= all[i].stored;
      remove(i);
    }
  }
  // What a killed run left behind, and folders with no snapshot left.
  const std::string root = snapshotRoot();
  if (root.empty()) return result;
  const time_t now = ::time(nullptr);
  for (const std::string& name : folderNames(root)) {
    if (name[0] == '.') continue;
    const std::string folder = joinPath(root, name);
    bool holdsMore = false;
    for (const std::string& entry : folderNames(folder)) {
      const std::string path = joinPath(folder, entry);
      struct stat st {};
      if (entry[0] == '.' && ::lstat(path.c_str(), &st) == 0 && now - st.st_mtime > kStaleSeconds)
        ::unlink(path.c_str());
      else if (entry != kSourceFile)
        holdsMore = true;
    }
    if (!holdsMore) {
      ::unlink(joinPath(folder, kSourceFile).c_str());
      ::rmdir(folder.c_str());
    }
  }
  return result;
}

}  // namespace ql
