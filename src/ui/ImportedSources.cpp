#include "ui/ImportedSources.h"

#include <QDateTime>
#include <QLocale>
#include <QMetaObject>
#include <QRegularExpression>
#include <algorithm>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "lang/TL.h"
#include "scan/FolderWalk.h"
#include "support/PathText.h"

namespace ql {

struct ImportedSources::Job {
  Stop stop;
  std::mutex mutex;
  ImportedSources* owner = nullptr;  // cleared when the result is no longer wanted
  std::string file;
  bool allocated = false;  // the sizes counted were the space taken
  ReportTree tree;
  ImportedFiles files;
  ImportResult result;
};

int64_t exportTimestamp(const std::string& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return -1;
  struct stat st;
  int64_t when = ::fstat(fd, &st) == 0 ? static_cast<int64_t>(st.st_mtime) : -1;
  // The metadata stands at the head of the file.
  char head[4096];
  const ssize_t n = S_ISREG(st.st_mode) ? ::read(fd, head, sizeof head) : -1;
  ::close(fd);
  if (n > 0) {
    static const QRegularExpression stamp(QStringLiteral("\"timestamp\"\\s*:\\s*(\\d{1,12})"));
    const auto m = stamp.match(QString::fromLatin1(head, static_cast<qsizetype>(n)));
    if (m.hasMatch()) when = m.captured(1).toLongLong();
  }
  return when;
}

ImportedSources::ImportedSources(ReportTree& tree, QObject* parent) : QObject(parent), tree_(tree) {}

ImportedSources::~ImportedSources() { stop(); }

bool ImportedSources::start(const std::string& file, std::shared_ptr<FileFeed> feed, const ImportOptions& options) {
  if (job_) return false;
  auto job = std::make_shared<Job>();
  job->owner = this;
  job->file = file;
  job->allocated = options.allocated;
  job_ = job;
  struct stat st;
  const qint64 total = ::stat(file.c_str(), &st) == 0 ? static_cast<qint64>(st.st_size) : 0;
  // Detached: a file on a dead network mount may hold its read in the kernel; the job lives on
  // with the thread and its result goes nowhere once stopped.
  std::thread([job, feed, options, total] {
    ImportOptions o = options;
    o.feed = feed.get();
    o.files = &job->files;
    o.stop = &job->stop;
    o.progress = [job, total](uint64_t bytes) {
      std::lock_guard lock(job->mutex);
      if (ImportedSources* owner = job->owner)
        QMetaObject::invokeMethod(
            owner, [owner, bytes, total] { Q_EMIT owner->progress(static_cast<qint64>(bytes), total); },
            Qt::QueuedConnection);
    };
    job->result = importJsonFile(job->file, job->tree, o);
    std::lock_guard lock(job->mutex);
    if (ImportedSources* owner = job->owner)
      QMetaObject::invokeMethod(owner, [owner, job] { owner->deliver(job); }, Qt::QueuedConnection);
  }).detach();
  return true;
}

void ImportedSources::stop() {
  if (!job_) return;
  job_->stop.request();
  std::lock_guard lock(job_->mutex);
  job_->owner = nullptr;
  job_.reset();
}

void ImportedSources::deliver(const std::shared_ptr<Job>& job) {
  if (job != job_) return;  // stopped meanwhile
  job_.reset();
  std::unique_lock lock(job->mutex);
  const ImportResult r = job->result;
  if (!r.ok || r.root == kNoNode) {
    const QString error = r.error.isEmpty() ? TL(4052, "Das Einlesen wurde abgebrochen.") : r.error;
    lock.unlock();
    Q_EMIT finished(kNoNode, error);
    return;
  }
  auto source = std::make_unique<Source>();
  source->count = static_cast<uint32_t>(job->tree.capacity());
  const uint32_t root = tree_.attachBranch(kSuperRoot, tree_.roots().size(), std::move(job->tree));
  source->root = root;
  source->base = root - r.root;
  source->generation = tree_.generation();
  source->files = std::move(job->files);
  source->allocated = job->allocated;
  const int64_t when = exportTimestamp(job->file);
  const QString date = when >= 0 ? QLocale().toString(QDateTime::fromSecsSinceEpoch(when), QLocale::ShortFormat)
                                 : QStringLiteral("?");
  const std::string& file = job->file;
  const size_t slash = file.rfind('/');
  source->caption = TL(4053, "%1 (Import aus '%2' vom %3)",
                       {pathText(tree_.text(root)), pathText(slash == std::string::npos ? file : file.substr(slash + 1)),
                        date});
  lock.unlock();
  // Sources of a tree that has been cleared since are gone.
  sources_.erase(std::remove_if(sources_.begin(), sources_.end(),
                                [this](const auto& s) { return s->generation != tree_.generation() || !tree_.isLive(s->root); }),
                 sources_.end());
  sources_.push_back(std::move(source));
  Q_EMIT finished(root, QString());
}

const ImportedSources::Source* ImportedSources::sourceOf(uint32_t node, uint32_t& local) const {
  if (!tree_.isLive(node)) return nullptr;
  const uint32_t root = tree_.rootOf(node);
  for (const auto& s : sources_) {
    if (s->root != root || s->generation != tree_.generation()) continue;
    // Nodes added later (a rescan from the disk) lie beyond the import's own.
    if (node < s->base || node - s->base >= s->count) return nullptr;
    local = node - s->base;
    return s.get();
  }
  return nullptr;
}

bool ImportedSources::isImported(uint32_t node) const {
  uint32_t local = 0;
  return sourceOf(node, local) != nullptr;
}

QString ImportedSources::caption(uint32_t root) const {
  uint32_t local = 0;
  const Source* s = sourceOf(root, local);
  return s && s->root == root ? s->caption : QString();
}

bool ImportedSources::filesOf(uint32_t folder, std::vector<FileRow>& rows) const {
  uint32_t local = 0;
  const Source* s = sourceOf(folder, local);
  if (!s || std::find(s->forgotten.begin(), s->forgotten.end(), folder) != s->forgotten.end()) return false;
  const size_t n = s->files.count(local);
  rows.clear();
  rows.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    const ImportedFiles::File f = s->files.file(local, i);
    FileRow row;
    row.name.assign(f.name);
    row.size = s->allocated ? f.dsize : f.asize;  // as the report counted it
    // The export carries no times and no permissions: those columns stay empty.
    row.modified = row.accessed = row.created = -1;
    completeRow(row, S_IFREG | S_IWUSR, static_cast<uint64_t>(std::max<int64_t>(f.dsize, 0)) / 512, 0);
    rows.push_back(std::move(row));
  }
  return true;
}

void ImportedSources::forget(uint32_t folder) {
  uint32_t local = 0;
  if (const Source* s = sourceOf(folder, local)) const_cast<Source*>(s)->forgotten.push_back(folder);
}

}  // namespace ql
