#include "ui/CompareBaseline.h"

#include <QFile>
#include <QMetaObject>
#include <algorithm>
#include <mutex>
#include <thread>

#include "lang/TL.h"
#include "report/Compare.h"
#include "scan/FolderWalk.h"

namespace ql {

namespace {

// The baseline's files as (hash of the full path, size), in the order the import offers them.
class FileHashes : public FileFeed {
 public:
  explicit FileHashes(bool allocated) : allocated_(allocated) {}
  int64_t minimumSize() const override { return 0; }
  // The import offers from its one thread, a folder's files one after another.
  void offer(const FoundFile& f) override {
    if (f.folder != folder_) {
      folder_ = f.folder;
      folderHash_ = pathHash(folder_);
    }
    files.emplace_back(pathHash(f.name, folderHash_),
                       allocated_ ? static_cast<int64_t>(f.blocks * 512) : f.size);
  }
  std::vector<std::pair<uint64_t, int64_t>> files;

 private:
  bool allocated_;
  std::string folder_;
  uint64_t folderHash_ = 0;
};

// One row of the report's branch as the match sees it.
struct FlatRow {
  uint32_t node, parent;  // parent: its place in the copy, kNoNode for the root
  uint32_t nameOffset, nameLength;
  uint16_t flags;
  int64_t size, files;
};

QString decode(std::string_view bytes) {
  return QFile::decodeName(QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())));
}

}  // namespace

struct CompareBaseline::Data {
  ReportTree tree;
  uint32_t root = kNoNode;
  std::string rootPath;
  std::vector<std::pair<uint64_t, int64_t>> files;  // sorted
};

// Jobs live on with their thread; a result whose owner has gone goes nowhere.
struct CompareBaseline::LoadJob {
  std::mutex mutex;
  CompareBaseline* owner = nullptr;
  Stop stop;
  std::string file, source;
  std::shared_ptr<Data> data;
  QString error;
};

struct CompareBaseline::MatchJob {
  std::mutex mutex;
  CompareBaseline* owner = nullptr;
  uint64_t generation = 0;
  std::shared_ptr<const Data> data;
  std::vector<FlatRow> rows;
  std::string names;
  size_t capacity = 0;
  std::vector<Change> changes;
  std::vector<std::pair<uint32_t, uint32_t>> gone;
};

CompareBaseline::CompareBaseline(const ReportTree& tree, QObject* parent)
    : QObject(parent), tree_(tree) {}

CompareBaseline::~CompareBaseline() {
  clear();
}

void CompareBaseline::clear() {
  if (loadJob_) {
    loadJob_->stop.request();
    std::lock_guard lock(loadJob_->mutex);
    loadJob_->owner = nullptr;
  }
  loadJob_.reset();
  if (matchJob_) {
    std::lock_guard lock(matchJob_->mutex);
    matchJob_->owner = nullptr;
  }
  matchJob_.reset();
  data_.reset();
  source_.clear();
  file_.clear();
  changes_ = {};
  gone_ = {};
}

void CompareBaseline::load(const std::string& file, const std::string& source,
                           const ImportOptions& options) {
  if (loadJob_) {
    loadJob_->stop.request();
    std::lock_guard lock(loadJob_->mutex);
    loadJob_->owner = nullptr;
  }
  auto job = std::make_shared<LoadJob>();
  job->owner = this;
  job->file = file;
  job->source = source;
  loadJob_ = job;
  // Detached, as an import of the window: a read held by a dead network mount keeps its thread.
  std::thread([job, options] {
    auto data = std::make_shared<Data>();
    FileHashes hashes(options.allocated);
    ImportOptions o = options;
    o.feed = &hashes;
    o.files = nullptr;
    o.stop = &job->stop;
    o.progress = nullptr;
    const ImportResult r = importJsonFile(job->file, data->tree, o);
    if (r.ok && r.root != kNoNode) {
      data->root = r.root;
      data->rootPath = data->tree.text(r.root);
      data->files = std::move(hashes.files);
      std::sort(data->files.begin(), data->files.end());
    }
    std::lock_guard lock(job->mutex);
    if (r.ok && r.root != kNoNode)
      job->data = std::move(data);
    else
      job->error = r.error.isEmpty() ? TL(4052, "Das Einlesen wurde abgebrochen.") : r.error;
    if (CompareBaseline* owner = job->owner)
      QMetaObject::invokeMethod(
          owner, [owner, job] { owner->deliverLoad(job); }, Qt::QueuedConnection);
  }).detach();
}

void CompareBaseline::deliverLoad(const std::shared_ptr<LoadJob>& job) {
  if (job != loadJob_) return;
  loadJob_.reset();
  std::unique_lock lock(job->mutex);
  if (!job->data) {
    const QString error = job->error;
    lock.unlock();
    Q_EMIT loaded(error);
    return;
  }
  if (matchJob_) {
    std::lock_guard matchLock(matchJob_->mutex);
    matchJob_->owner = nullptr;
  }
  matchJob_.reset();
  data_ = std::move(job->data);
  source_ = job->source;
  file_ = job->file;
  changes_ = {};
  gone_ = {};
  lock.unlock();
  Q_EMIT loaded(QString());
}

std::shared_ptr<const ReportTree> CompareBaseline::folders(uint32_t& root) const {
  if (!data_) return nullptr;
  root = data_->root;
  return std::shared_ptr<const ReportTree>(data_, &data_->tree);
}

bool CompareBaseline::compare() {
  if (!data_) return false;
  uint32_t root = kNoNode;
  for (uint32_t r : tree_.roots())
    if (tree_.text(r) == source_) root = r;
  if (root == kNoNode) return false;
  if (matchJob_) {
    std::lock_guard lock(matchJob_->mutex);
    matchJob_->owner = nullptr;
  }
  auto job = std::make_shared<MatchJob>();
  job->owner = this;
  job->generation = tree_.generation();
  job->data = data_;
  job->capacity = tree_.capacity();
  // The branch copied flat: the only work on this thread, one pass without a lookup.
  std::vector<uint32_t> open;  // places of the rows being visited
  job->rows.reserve(tree_.liveCount());
  job->names.reserve(tree_.liveCount() * 16);
  tree_.forEachPreorder(
      root,
      [&](uint32_t n) {
        const auto& node = tree_.node(n);
        const std::string_view name = tree_.text(n);
        job->rows.push_back(FlatRow{n, open.empty() ? kNoNode : open.back(),
                                    static_cast<uint32_t>(job->names.size()),
                                    static_cast<uint32_t>(name.size()),
                                    static_cast<uint16_t>(node.flags), node.size, node.files});
        job->names += name;
        open.push_back(static_cast<uint32_t>(job->rows.size() - 1));
        return true;
      },
      [&](uint32_t) { open.pop_back(); });
  matchJob_ = job;
  std::thread([job] {
    // The copy as a tree of its own, so that the match is the one the silent comparison makes.
    ReportTree copy;
    std::vector<uint32_t> copied(job->rows.size());
    std::vector<uint32_t> real;  // by copy node
    for (size_t i = 0; i < job->rows.size(); ++i) {
      const FlatRow& row = job->rows[i];
      const std::string_view name(job->names.data() + row.nameOffset, row.nameLength);
      const uint32_t c = row.parent == kNoNode ? copy.addRoot(name)
                                               : copy.addChild(copied[row.parent], name, row.flags);
      copy.setSizeAndFiles(c, row.size, row.files);
      copied[i] = c;
      if (real.size() <= c) real.resize(c + 1, kNoNode);
      real[c] = row.node;
    }
    job->rows = {};
    job->names = {};
    const Data& base = *job->data;
    const std::vector<CompareRow> rows = compareTrees(base.tree, base.root, copy, copied[0]);
    job->changes.resize(job->capacity);
    std::vector<uint32_t> atLevel;  // the report's node of the row last seen at each level
    for (const CompareRow& row : rows) {
      if (atLevel.size() <= row.level) atLevel.resize(row.level + 1, kNoNode);
      const uint32_t node = row.newNode != kNoNode ? real[row.newNode] : kNoNode;
      atLevel[row.level] = node;
      if (node != kNoNode) {
        Change& c = job->changes[node];
        c.known = true;
        c.isNew = !row.hasOld;
        c.oldSize = row.hasOld ? row.oldSize : 0;
        c.oldFiles = row.hasOld ? row.oldFiles : 0;
      } else if (!row.filesRow && row.level > 0 && atLevel[row.level - 1] != kNoNode) {
        job->gone.emplace_back(atLevel[row.level - 1], row.oldNode);
      }
    }
    std::sort(job->gone.begin(), job->gone.end());
    std::lock_guard lock(job->mutex);
    if (CompareBaseline* owner = job->owner)
      QMetaObject::invokeMethod(
          owner, [owner, job] { owner->deliverMatch(job); }, Qt::QueuedConnection);
  }).detach();
  return true;
}

void CompareBaseline::deliverMatch(const std::shared_ptr<MatchJob>& job) {
  if (job != matchJob_) return;
  matchJob_.reset();
  if (job->generation != tree_.generation() || job->data != data_) return;  // a cleared tree
  std::lock_guard lock(job->mutex);
  changes_ = std::move(job->changes);
  gone_ = std::move(job->gone);
  generation_ = job->generation;
  Q_EMIT compared();
}

int64_t CompareBaseline::changeOf(uint32_t node) const {
  const Change* c = change(node);
  return c && tree_.isLive(node) ? tree_.node(node).size - c->oldSize : 0;
}

int64_t CompareBaseline::filesChangeOf(uint32_t node) const {
  const Change* c = change(node);
  return c && tree_.isLive(node) ? tree_.node(node).files - c->oldFiles : 0;
}

CompareBaseline::Gone CompareBaseline::gone(uint32_t node) const {
  Gone g;
  if (!data_ || tree_.generation() != generation_) return g;
  constexpr int kNamed = 10;
  for (auto it =
           std::lower_bound(gone_.begin(), gone_.end(), std::pair<uint32_t, uint32_t>{node, 0});
       it != gone_.end() && it->first == node; ++it) {
    const auto& old = data_->tree.node(it->second);
    ++g.count;
    g.bytes += old.size;
    g.files += old.files;
    if (g.names.size() < kNamed) g.names << decode(data_->tree.text(it->second));
  }
  return g;
}

std::vector<CompareBaseline::GoneFolder> CompareBaseline::goneFolders() const {
  std::vector<GoneFolder> out;
  if (!data_ || tree_.generation() != generation_) return out;
  out.reserve(gone_.size());
  for (const auto& [parent, old] : gone_)
    if (tree_.isLive(parent))
      out.push_back(GoneFolder{parent, decode(data_->tree.text(old)), data_->tree.node(old).size,
                               data_->tree.node(old).files});
  return out;
}

void CompareBaseline::treeChanged() {
  gone_ = {};
  if (matchJob_) {
    std::lock_guard lock(matchJob_->mutex);
    matchJob_->owner = nullptr;
  }
  matchJob_.reset();
}

bool CompareBaseline::newOrGrown(std::string_view path, int64_t size) const {
  // The file's path below the source ...
  std::string_view rest = path;
  if (!data_ || source_.empty() || rest.size() <= source_.size() ||
      rest.substr(0, source_.size()) != source_)
    return false;
  rest.remove_prefix(source_.size());
  if (source_.back() != '/') {
    if (rest.front() != '/') return false;  // a sibling of the source whose name goes on
    rest.remove_prefix(1);
  }
  // ... below the baseline's root, whatever its path was there.
  uint64_t h = pathHash(data_->rootPath);
  if (data_->rootPath.empty() || data_->rootPath.back() != '/') h = pathHash("/", h);
  h = pathHash(rest, h);
  const auto it = std::lower_bound(data_->files.begin(), data_->files.end(),
                                   std::pair<uint64_t, int64_t>{h, INT64_MIN});
  return it == data_->files.end() || it->first != h || size > it->second;
}

}  // namespace ql
