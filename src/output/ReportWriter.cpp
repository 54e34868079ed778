#include "output/ReportWriter.h"

#include <QFile>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lang/TL.h"
#include "support/Path.h"

namespace ql {

namespace {

QString sizeHeadingUnit(int unit) {
  switch (unit) {
    case 0: return QStringLiteral(" (Bytes)");
    case 1: return QStringLiteral(" (KB)");
    case 2: return QStringLiteral(" (MB)");
    case 3: return QStringLiteral(" (GB)");
    case 4: return QStringLiteral(" (TB)");
    default: return {};
  }
}

class Renderer {
 public:
  Renderer(const ReportTree& tree, const ReportSaveOptions& o, bool text, const NumberFormat& nf,
           const ReportWriter::Output& output)
      : tree_(tree), o_(o), text_(text), nf_(nf), output_(output) {}

  void run() {
    std::vector<uint32_t> tops;
    if (o_.onlyNode != kNoNode)
      tops.push_back(o_.onlyNode);
    else
      tops = tree_.roots();
    if (tops.empty()) return;
    topLevel_ = tree_.node(tops[0]).level;

    // No limit for all levels, n + 1 for a number, 0 for what is expanded on the screen.
    switch (o_.levels) {
      case ReportSaveOptions::Levels::All: limit_ = std::numeric_limits<int64_t>::max(); break;
      case ReportSaveOptions::Levels::Count: limit_ = int64_t{o_.levelCount} + 1; break;
      case ReportSaveOptions::Levels::CurrentView: limit_ = 0; break;
    }

    QString headings[4] = {TL(3623, "Größe") + sizeHeadingUnit(o_.unit), TL(3624, "Dateien"),
                           TL(3625, "Ordner"), TL(3626, "Pfad")};
    // Column widths are measured from the first top row alone.
    const auto& first = tree_.node(tops[0]);
    widths_[0] = xFormatFileSizeWithSpacer(o_.unit, first.size, 1, false, o_.decimals, nf_).size();
    widths_[1] = xFormatFileSizeWithSpacer(o_.unit, first.files, 1, false, o_.decimals, nf_).size();
    widths_[2] = xFormatFileSizeWithSpacer(o_.unit, first.folders, 1, false, o_.decimals, nf_).size();
    if (text_) {
      for (int i = 0; i < 3; ++i) {
        if (headings[i].size() > widths_[i]) widths_[i] = static_cast<int>(headings[i].size());
        if (widths_[i] > headings[i].size())
          headings[i] += QString(widths_[i] - headings[i].size(), QLatin1Char(' '));
      }
      line(headings[0] + '\t' + headings[1] + '\t' + headings[2] + '\t' + headings[3]);
    } else {
      for (const int i : {3, 0, 1, 2}) {
        quoted(headings[i].toStdString());
        out_ += i == 2 ? "\r\n" : ";";
      }
    }

    for (uint32_t top : tops) {
      const std::string path(tree_.text(top));
      row(top, path, false);
      if (limit_ != 0 || tree_.hasFlag(top, ReportTree::Expanded)) TreeViewSpeichernR(top, path);
    }
    flush();
  }

 private:
  uint32_t relLevel(uint32_t n) const { return tree_.node(n).level - topLevel_; }

  // The rows below a node, depth first, without using the call stack for the depth. One path
  // buffer serves every row: a frame remembers how long the path of its folder is.
  void TreeViewSpeichernR(uint32_t top, const std::string& topPath) {
    struct Frame {
      uint32_t node;
      size_t next;
      size_t pathLength;
    };
    std::string path = topPath;
    std::vector<Frame> stack;
    stack.push_back({top, 0, path.size()});
    while (!stack.empty()) {
      Frame& f = stack.back();
      const auto& kids = tree_.children(f.node);
      if (f.next >= kids.size()) {
        stack.pop_back();
        continue;
      }
      const uint32_t item = kids[f.next++];
      if (limit_ != 0 && relLevel(item) >= limit_) {
        f.next = kids.size();  // the whole sibling run ends here
        continue;
      }
      path.resize(f.pathLength);
      if (path.empty() || path.back() != '/') path.push_back('/');
      if (tree_.isFolder(item)) {
        path.append(tree_.text(item));
        row(item, path, false);
        const bool descend = limit_ != 0 ? !tree_.children(item).empty()
                                         : tree_.hasFlag(item, ReportTree::Expanded);
        if (descend) stack.push_back({item, 0, path.size()});
      } else {
        path.push_back('[');
        path.append(tree_.text(item));
        path.push_back(']');
        row(item, path, true);
      }
    }
  }

  void number(int64_t v) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    out_.append(buf, r.ptr);
  }

  void row(uint32_t n, const std::string& path, bool fileRow) {
    const auto& node = tree_.node(n);
    const int64_t folders = fileRow ? 0 : node.folders;
    if (text_) {
      QString cols = xFormatFileSizeWithSpacer(o_.unit, node.size, widths_[0], false, o_.decimals, nf_);
      cols += '\t';
      cols += xFormatFileSizeWithSpacer(0, node.files, widths_[1], false, 1, nf_);
      cols += '\t';
      cols += xFormatFileSizeWithSpacer(0, folders, widths_[2], false, 1, nf_);
      cols += '\t';
      out_ += cols.toStdString();
      out_ += path;
    } else {
      quoted(path);
      out_ += ";\"";
      if (o_.unit == 0)
        number(node.size);
      else
        out_ += FormatFileSizeSave(o_.unit, o_.decimals, node.size, nf_).toStdString();
      out_ += "\";";
      number(node.files);
      out_ += ';';
      number(folders);
    }
    out_ += "\r\n";
    if (out_.size() >= kChunk) flush();
  }

  void flush() {
    if (!out_.empty()) output_(out_);
    out_.clear();
  }

  // A field in double quotes, a quote inside it doubled.
  void quoted(std::string_view field) {
    out_ += '"';
    for (size_t at = 0;;) {
      const size_t q = field.find('"', at);
      out_.append(field.substr(at, q == std::string_view::npos ? q : q + 1 - at));
      if (q == std::string_view::npos) break;
      out_ += '"';
      at = q + 1;
    }
    out_ += '"';
  }

  void line(const QString& s) {
    out_ += s.toStdString();
    out_ += "\r\n";
  }

  const ReportTree& tree_;
  const ReportSaveOptions& o_;
  const bool text_;
  const NumberFormat& nf_;
  uint32_t topLevel_ = 0;
  int64_t limit_ = 0;
  qsizetype widths_[3] = {0, 0, 0};
  const ReportWriter::Output& output_;
  static constexpr size_t kChunk = 256 * 1024;
  std::string out_;
};

// The temporary file of the report being written, for the interrupt handler: a fixed buffer, so
// that the handler needs nothing but unlink(2).
char g_pendingPath[PATH_MAX + 16];
std::atomic<int> g_pending{0};
static_assert(std::atomic<int>::is_always_lock_free);

void onInterrupt(int sig) {
  if (g_pending.load()) ::unlink(g_pendingPath);
  ::raise(sig);  // the handler was reset on entry: the default action ends the process
}

// ".<name>.XXXXXX" beside `target`, created with O_EXCL; -1 with errno on failure.
int createTemporary(const std::string& target, mode_t mode, std::string& tempPath) {
  const size_t slash = target.rfind('/');
  const std::string folder = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
  if (name.size() > NAME_MAX - 8) name.resize(NAME_MAX - 8);
  static const char kChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned char random[6];
    if (getrandom(random, sizeof random, GRND_NONBLOCK) != sizeof random) {
      timespec ts{};
      clock_gettime(CLOCK_REALTIME, &ts);
      uint64_t mix = static_cast<uint64_t>(ts.tv_nsec) * 2654435761u + static_cast<uint64_t>(getpid()) +
                     static_cast<uint64_t>(attempt) * 40503u;
      for (auto& r : random) r = static_cast<unsigned char>(mix >>= 5);
    }
    std::string suffix(6, ' ');
    for (size_t i = 0; i < suffix.size(); ++i) suffix[i] = kChars[random[i] % (sizeof kChars - 1)];
    tempPath = folder + '.' + name + '.' + suffix;
    if (tempPath.size() >= sizeof g_pendingPath) {
      errno = ENAMETOOLONG;
      return -1;
    }
    const int fd = ::open(tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace

bool ReportWriter::isTextLayout(const std::string& fileName) {
  if (fileName.size() < 4) return false;
  std::string tail = fileName.substr(fileName.size() - 4);
  for (auto& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".txt";
}

void ReportWriter::render(const ReportTree& tree, const ReportSaveOptions& options, bool textLayout,
                          const Output& output, const NumberFormat& nf) {
  Renderer(tree, options, textLayout, nf, output).run();
}

std::string ReportWriter::render(const ReportTree& tree, const ReportSaveOptions& options,
                                 bool textLayout, const NumberFormat& nf) {
  std::string all;
  render(tree, options, textLayout, [&all](std::string_view piece) { all.append(piece); }, nf);
  return all;
}

bool ReportWriter::SPEICHERN(const ReportTree& tree, const std::string& fileName,
                             const ReportSaveOptions& options, QString& errorText,
                             const NumberFormat& nf) {
  auto fail = [&](int err) {
    errorText = QFile::decodeName(QByteArray::fromStdString(fileName)) + QStringLiteral(": ") +
                QString::fromStdString(systemErrorText(err));
    return false;
  };
  // A link stays a link: the file it points to is replaced.
  std::string target = fileName;
  struct stat st {};
  if (::lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    if (char* real = ::realpath(target.c_str(), nullptr)) {
      target = real;
      std::free(real);
    }
  }
  // A report written over an older one keeps its owner and permissions; one we may not write
  // to stays as it is, as it would with an ordinary write.
  const bool exists = ::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode);
  if (exists && ::access(target.c_str(), W_OK) != 0) return fail(errno);

  std::string temp;
  // Private until it has the old report's permissions.
  const int fd = createTemporary(target, exists ? 0600 : 0666, temp);
  if (fd < 0) return fail(errno);
  std::memcpy(g_pendingPath, temp.c_str(), temp.size() + 1);
  g_pending.store(1);

  // Best effort: a file system without owners or permission bits has none to keep.
  if (exists) {
    [[maybe_unused]] const bool owned = ::fchown(fd, st.st_uid, st.st_gid) == 0;
    ::fchmod(fd, st.st_mode & 07777);
  }
  int err = 0;
  render(tree, options, isTextLayout(fileName),
         [&](std::string_view piece) {
           if (!err && !writeAll(fd, piece)) err = errno;
         },
         nf);
  // On disk before it takes the old report's place; file systems without fsync are fine.
  if (!err && ::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) err = errno;
  if (::close(fd) != 0 && !err && errno != EINTR) err = errno;
  if (!err && ::rename(temp.c_str(), target.c_str()) != 0) err = errno;
  if (err) ::unlink(temp.c_str());
  g_pending.store(0);
  return err ? fail(err) : true;
}

void ReportWriter::removeTemporaryOnInterrupt() {
  struct sigaction sa {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESETHAND | SA_NODEFER;
  for (const int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &sa, nullptr);
}

}  // namespace ql
