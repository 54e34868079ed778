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

void sortOrder(const std::vector<FileRow>& rows, std::vector<uint32_t>& order, const RowOrder& by) {
  const size_t n = order.size();
  if (n < 2) return;
  // The keys are taken out into a compact array and sorted there: comparing rows in place would
  // jump through the whole list for every comparison.
  const bool desc = by.descending;
  const bool numeric = by.key == RowKey::Size || by.key == RowKey::Modified || by.key == RowKey::Created ||
                       by.key == RowKey::Accessed;
  if (numeric) {
    struct Key {
      int64_t value;
      uint32_t row;
    };
    std::vector<Key> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = {numberOf(rows[order[i]], by.key), order[i]};
    std::stable_sort(keys.begin(), keys.end(),
                     [desc](const Key& a, const Key& b) { return desc ? a.value > b.value : a.value < b.value; });
    for (size_t i = 0; i < n; ++i) order[i] = keys[i].row;
    return;
  }
  // Case is folded once per row, not once per comparison, and the first eight characters are
  // packed into two numbers that settle most comparisons without touching the text.
  struct Key {
    uint64_t head[2];
    QString text;
    uint32_t row;
  };
  std::vector<Key> keys(n);
  for (size_t i = 0; i < n; ++i) {
    Key& k = keys[i];
    k.text = textOf(rows[order[i]], by.key).toCaseFolded();
    k.row = order[i];
    k.head[0] = k.head[1] = 0;
    const auto len = std::min<qsizetype>(k.text.size(), 8);
    for (qsizetype c = 0; c < len; ++c)
      k.head[c / 4] |= static_cast<uint64_t>(k.text[c].unicode()) << (48 - 16 * (c % 4));
  }
  auto less = [](const Key& a, const Key& b) {
    if (a.head[0] != b.head[0]) return a.head[0] < b.head[0];
    if (a.head[1] != b.head[1]) return a.head[1] < b.head[1];
    return a.text.compare(b.text) < 0;
  };
  if (desc)
    std::stable_sort(keys.begin(), keys.end(), [&less](const Key& a, const Key& b) { return less(b, a); });
  else
    std::stable_sort(keys.begin(), keys.end(), less);
  for (size_t i = 0; i < n; ++i) order[i] = keys[i].row;
}

std::vector<uint32_t> freshOrder(const std::vector<FileRow>& rows, const RowOrder& by) {
  std::vector<uint32_t> order(rows.size());
  std::iota(order.begin(), order.end(), 0u);
  std::sort(order.begin(), order.end(), [&rows](uint32_t a, uint32_t b) {
    if (const int c = rows[a].name.compare(rows[b].name)) return c < 0;
    return rows[a].folder < rows[b].folder;
  });
  sortOrder(rows, order, by);
  return order;
}

void sortRows(std::vector<FileRow>& rows, const RowOrder& by) {
  std::vector<uint32_t> order(rows.size());
  std::iota(order.begin(), order.end(), 0u);
  sortOrder(rows, order, by);
  std::vector<FileRow> sorted;
  sorted.reserve(rows.size());
  for (uint32_t i : order) sorted.push_back(std::move(rows[i]));
  rows.swap(sorted);
}

}  // namespace ql
