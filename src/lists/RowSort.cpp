#include "lists/RowSort.h"

#include <algorithm>
#include <numeric>

namespace ql {

namespace {

const QString& textOf(const FileRow& r, RowKey key) {
  static const QString none;
  switch (key) {
    case RowKey::Name: return r.text;
    case RowKey::Folder: return r.folderText;
    case RowKey::Extension: return r.extension;
    case RowKey::Type: return r.type ? r.type->name : none;
    case RowKey::Attributes: return r.attributes;
    default: return none;
  }
}

int64_t numberOf(const FileRow& r, RowKey key) {
  switch (key) {
    case RowKey::Size: return r.size;
    case RowKey::Modified: return r.modified;
    case RowKey::Created: return r.created;
    case RowKey::Accessed: return r.accessed;
    default: return 0;
  }
}

int tieBreak(const FileRow& a, const FileRow& b) {
  if (const int c = a.name.compare(b.name)) return c;
  return a.folder.compare(b.folder);
}

}  // namespace

void sortRows(std::vector<FileRow>& rows, const RowOrder& order) {
  const size_t n = rows.size();
  if (n < 2) return;
  std::vector<uint32_t> index(n);
  std::iota(index.begin(), index.end(), 0u);
  const bool desc = order.descending;
  const bool numeric = order.key == RowKey::Size || order.key == RowKey::Modified ||
                       order.key == RowKey::Created || order.key == RowKey::Accessed;
  if (numeric) {
    std::sort(index.begin(), index.end(), [&](uint32_t x, uint32_t y) {
      const int64_t a = numberOf(rows[x], order.key), b = numberOf(rows[y], order.key);
      if (a != b) return desc ? a > b : a < b;
      return tieBreak(rows[x], rows[y]) < 0;
    });
  } else {
    // Case is folded once per row, not once per comparison.
    std::vector<QString> folded(n);
    for (size_t i = 0; i < n; ++i) folded[i] = textOf(rows[i], order.key).toCaseFolded();
    std::sort(index.begin(), index.end(), [&](uint32_t x, uint32_t y) {
      if (const int c = folded[x].compare(folded[y])) return desc ? c > 0 : c < 0;
      return tieBreak(rows[x], rows[y]) < 0;
    });
  }
  std::vector<FileRow> sorted;
  sorted.reserve(n);
  for (uint32_t i : index) sorted.push_back(std::move(rows[i]));
  rows.swap(sorted);
}

}  // namespace ql
