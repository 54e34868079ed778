#include "lists/RowSort.h"

#include <algorithm>
#include <numeric>

namespace ql {

namespace {

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

namespace {

// After the keys are sorted, `order` takes their rows in place: each key's place is first
// swapped for its row, so no second copy of the order is needed.
template <class Key>
void takeOrder(std::vector<Key>& keys, std::vector<uint32_t>& order) {
  for (Key& k : keys) k.at = order[k.at];
  for (size_t i = 0; i < keys.size(); ++i) order[i] = keys[i].at;
}

}  // namespace

void sortOrder(const std::vector<FileRow>& rows, std::vector<uint32_t>& order, const RowOrder& by) {
  const size_t n = order.size();
  if (n < 2) return;
  // The keys are taken out into a compact array and sorted there: comparing rows in place would
  // jump through the whole list for every comparison. Equal keys are told apart by the place the
  // row had, which keeps their order as a stable sort would, without its buffer of a second
  // copy of the keys.
  const bool desc = by.descending;
  const bool numeric = by.key == RowKey::Size || by.key == RowKey::Modified || by.key == RowKey::Created ||
                       by.key == RowKey::Accessed;
  if (numeric) {
    struct Key {
      int64_t value;
      uint32_t at;  // the place in `order`
    };
    std::vector<Key> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = {numberOf(rows[order[i]], by.key), static_cast<uint32_t>(i)};
    std::sort(keys.begin(), keys.end(), [desc](const Key& a, const Key& b) {
      if (a.value != b.value) return desc ? a.value > b.value : a.value < b.value;
      return a.at < b.at;
    });
    takeOrder(keys, order);
    return;
  }
  // The texts are compared where the rows hold them (an extension alone is made), with case
  // folded as they are compared: a folded copy of every name would cost more memory than the
  // list itself. The first four folded characters, packed into one number, settle most
  // comparisons without touching the text.
  struct Key {
    uint64_t head;
    uint32_t at;  // the place in `order`
  };
  static const QString none;
  std::vector<QString> made(by.key == RowKey::Extension ? n : 0);
  auto textAt = [&](uint32_t at) -> const QString& {
    const FileRow& r = rows[order[at]];
    switch (by.key) {
      case RowKey::Name: return r.text;
      case RowKey::Folder: return r.folderText();
      case RowKey::Type: return r.type ? r.type->name : none;
      case RowKey::Attributes: return r.attributes();
      case RowKey::Extension: return made[at];
      default: return none;
    }
  };
  std::vector<Key> keys(n);
  for (size_t i = 0; i < n; ++i) {
    if (by.key == RowKey::Extension) made[i] = rows[order[i]].extension();
    const QString& text = textAt(static_cast<uint32_t>(i));
    Key& k = keys[i];
    k.at = static_cast<uint32_t>(i);
    k.head = 0;
    const auto len = std::min<qsizetype>(text.size(), 4);
    for (qsizetype c = 0; c < len; ++c) {
      const auto folded = static_cast<char16_t>(QChar::toCaseFolded(char32_t{text[c].unicode()}));
      k.head |= static_cast<uint64_t>(folded) << (48 - 16 * c);
    }
  }
  std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
    int c = a.head == b.head ? 0 : a.head < b.head ? -1 : 1;
    if (c == 0) c = QString::compare(textAt(a.at), textAt(b.at), Qt::CaseInsensitive);
    if (c != 0) return desc ? c > 0 : c < 0;
    return a.at < b.at;
  });
  made = {};
  takeOrder(keys, order);
}

std::vector<uint32_t> freshOrder(const std::vector<FileRow>& rows, const RowOrder& by) {
  std::vector<uint32_t> order(rows.size());
  std::iota(order.begin(), order.end(), 0u);
  std::sort(order.begin(), order.end(), [&rows](uint32_t a, uint32_t b) {
    if (const int c = rows[a].name.compare(rows[b].name)) return c < 0;
    return rows[a].folder() < rows[b].folder();
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
