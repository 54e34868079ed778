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

}  // namespace

void sortRows(std::vector<FileRow>& rows, const RowOrder& order) {
  const size_t n = rows.size();
  if (n < 2) return;
  // The keys are taken out into a compact array and sorted there: comparing rows in place would
  // jump through the whole list for every comparison.
  std::vector<uint32_t> index(n);
  const bool desc = order.descending;
  const bool numeric = order.key == RowKey::Size || order.key == RowKey::Modified ||
                       order.key == RowKey::Created || order.key == RowKey::Accessed;
  if (numeric) {
    struct Key {
      int64_t value;
      uint32_t row;
    };
    std::vector<Key> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = {numberOf(rows[i], order.key), static_cast<uint32_t>(i)};
    std::stable_sort(keys.begin(), keys.end(),
                     [desc](const Key& a, const Key& b) { return desc ? a.value > b.value : a.value < b.value; });
    for (size_t i = 0; i < n; ++i) index[i] = keys[i].row;
  } else {
    // Case is folded once per row, not once per comparison.
    struct Key {
      QString text;
      uint32_t row;
    };
    std::vector<Key> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = {textOf(rows[i], order.key).toCaseFolded(), static_cast<uint32_t>(i)};
    std::stable_sort(keys.begin(), keys.end(), [desc](const Key& a, const Key& b) {
      const int c = a.text.compare(b.text);
      return desc ? c > 0 : c < 0;
    });
    for (size_t i = 0; i < n; ++i) index[i] = keys[i].row;
  }
  std::vector<FileRow> sorted;
  sorted.reserve(n);
  for (uint32_t i : index) sorted.push_back(std::move(rows[i]));
  rows.swap(sorted);
}

void sortRowsFresh(std::vector<FileRow>& rows, const RowOrder& order) {
  std::sort(rows.begin(), rows.end(), [](const FileRow& a, const FileRow& b) {
    if (const int c = a.name.compare(b.name)) return c < 0;
    return a.folder < b.folder;
  });
  sortRows(rows, order);
}

}  // namespace ql
