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
    std::vector<uint32_t> sorted(n);
    for (size_t i = 0; i < n; ++i) sorted[i] = order[keys[i].at];
    order.swap(sorted);
    return;
  }
  // The texts are compared where the rows hold them (an extension alone is made), with case
  // folded as they are compared: a folded copy of every name would cost more memory than the
  // list itself. The first eight folded characters, packed into two numbers, settle most
  // comparisons without touching the text.
  struct Key {
    uint64_t head[2];
    uint32_t at;  // the place in `order`, and of the text in `texts`
  };
  static const QString none;
  std::vector<Key> keys(n);
  std::vector<const QString*> texts(n);
  std::vector<QString> made(by.key == RowKey::Extension ? n : 0);
  for (size_t i = 0; i < n; ++i) {
    const FileRow& r = rows[order[i]];
    const QString* text = &none;
    switch (by.key) {
      case RowKey::Name: text = &r.text; break;
      case RowKey::Folder: text = &r.folderText(); break;
      case RowKey::Type: text = r.type ? &r.type->name : &none; break;
      case RowKey::Attributes: text = &r.attributes(); break;
      case RowKey::Extension: text = &(made[i] = r.extension()); break;
      default: break;
    }
    texts[i] = text;
    Key& k = keys[i];
    k.at = static_cast<uint32_t>(i);
    k.head[0] = k.head[1] = 0;
    const auto len = std::min<qsizetype>(text->size(), 8);
    for (qsizetype c = 0; c < len; ++c) {
      const auto folded = static_cast<char16_t>(QChar::toCaseFolded(char32_t{(*text)[c].unicode()}));
      k.head[c / 4] |= static_cast<uint64_t>(folded) << (48 - 16 * (c % 4));
    }
  }
  auto compare = [&texts](const Key& a, const Key& b) {
    if (a.head[0] != b.head[0]) return a.head[0] < b.head[0] ? -1 : 1;
    if (a.head[1] != b.head[1]) return a.head[1] < b.head[1] ? -1 : 1;
    return QString::compare(*texts[a.at], *texts[b.at], Qt::CaseInsensitive);
  };
  std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
    const int c = compare(a, b);
    if (c != 0) return desc ? c > 0 : c < 0;
    return a.at < b.at;
  });
  texts = {};
  made = {};
  std::vector<uint32_t> sorted(n);
  for (size_t i = 0; i < n; ++i) sorted[i] = order[keys[i].at];
  order.swap(sorted);
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
