#include "lists/TopFiles.h"

#include <QFile>
#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "treemap/FileKind.h"

namespace ql {

TopFiles::TopFiles(int limit) : limit_(std::clamp(limit, kMinimum, kMaximum)) {}

void TopFiles::raiseCutoff(int64_t size) {
  int64_t now = cutoff_.load(std::memory_order_relaxed);
  while (size > now && !cutoff_.compare_exchange_weak(now, size, std::memory_order_relaxed)) {
  }
}

void TopFiles::offer(const FoundFile& file) {
  if (file.size < minimumSize()) return;
  Candidate c;
  c.path.reserve(file.folder.size() + file.name.size());
  c.path = file.folder;
  c.path += file.name;
  c.nameAt = static_cast<uint32_t>(file.folder.size());
  c.size = file.size;
  c.modified = file.modified;
  c.created = file.created > 0 ? file.created : -1;  // zero is no birth time either
  c.accessed = file.accessed;
  c.mode = file.mode;
  c.blocks = file.blocks;
  c.attributes = file.attributes;
  Shard& s = shards_.mine();
  std::lock_guard lock(s.mutex);
  auto worse = [](const Candidate& a, const Candidate& b) { return before(a, b); };  // heap top: last in order
  if (s.heap.size() < static_cast<size_t>(limit_)) {
    s.heap.push_back(std::move(c));
    std::push_heap(s.heap.begin(), s.heap.end(), worse);
  } else if (before(c, s.heap.front())) {
    std::pop_heap(s.heap.begin(), s.heap.end(), worse);
    s.heap.back() = std::move(c);
    std::push_heap(s.heap.begin(), s.heap.end(), worse);
  } else {
    return;
  }
  if (s.heap.size() == static_cast<size_t>(limit_)) raiseCutoff(s.heap.front().size);
}

std::vector<FileRow> TopFiles::result() const {
  std::vector<Candidate> all;
  for (Shard& s : shards_.all()) {
    std::lock_guard lock(s.mutex);
    all.insert(all.end(), s.heap.begin(), s.heap.end());
  }
  const size_t n = std::min(all.size(), static_cast<size_t>(limit_));
  std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n), all.end(), before);
  std::vector<FileRow> rows(n);
  std::unordered_map<std::string_view, std::shared_ptr<const RowFolder>> folders;  // one per folder
  for (size_t i = 0; i < n; ++i) {
    const Candidate& c = all[i];
    FileRow& r = rows[i];
    std::shared_ptr<const RowFolder>& where = folders[std::string_view(c.path).substr(0, c.nameAt)];
    if (!where) {
      auto f = std::make_shared<RowFolder>();
      f->bytes = c.path.substr(0, c.nameAt);
      f->text = QFile::decodeName(QByteArray(f->bytes.data(), static_cast<qsizetype>(f->bytes.size())));
      where = std::move(f);
    }
    r.where = where;
    r.name = c.path.substr(c.nameAt);
    r.size = c.size;
    r.modified = c.modified;
    r.created = c.created;
    r.accessed = c.accessed;
    completeRow(r, c.mode, c.blocks, c.attributes);
  }
  return rows;
}

std::vector<FileRow> TopFiles::ofExtension(const std::vector<FileRow>& rows,
                                           std::string_view extension) {
  std::vector<FileRow> kept;
  for (const FileRow& r : rows) {
    const std::string_view own = typeExtension(r.name);
    char lower[64];
    if (own.size() == extension.size() &&
        std::string_view(lower, lowerExtension(own, lower, sizeof lower)) == extension)
      kept.push_back(r);
  }
  return kept;
}

}  // namespace ql
