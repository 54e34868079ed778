#include "support/StringCollection.h"

#include <QChar>

namespace ql {

namespace {

// Each character lower-cased on its own (simple case mapping: "ß" stays one character), so that
// keys match by code units without regard to case.
QString lowered(const QString& s) {
  QString out;
  out.reserve(s.size());
  for (qsizetype i = 0; i < s.size(); ++i) {
    char32_t c = s[i].unicode();
    if (QChar::isHighSurrogate(c) && i + 1 < s.size() && s[i + 1].isLowSurrogate())
      c = QChar::surrogateToUcs4(static_cast<char16_t>(c), s[++i].unicode());
    out.append(QChar::fromUcs4(QChar::toLower(c)));
  }
  return out;
}

}  // namespace

CollectionError::CollectionError(int number, const QString& source, const QString& description)
    : std::runtime_error((source + QStringLiteral(": ") + description).toStdString()),
      number_(number),
      source_(source),
      description_(description) {}

QString CStringCollection::indexKey(const QString& key) const {
  return compareMode_ != 0 ? lowered(key) : key;
}

int32_t CStringCollection::find(const CollectionKey& key) const {
  if (key.isPosition()) {
    const int p = key.position();
    return p >= 1 && p <= Count() ? p : 0;
  }
  const auto it = positions_.find(indexKey(key.key()));
  return it == positions_.end() ? 0 : it->second;
}

void CStringCollection::renumber(int32_t from, int32_t by) {
  for (auto& [key, position] : positions_)
    if (position >= from) position += by;
}

int32_t CStringCollection::Add(const QString& itemText, const QString& key,
                               const AddOptions& options) {
  const QString indexed = key.isEmpty() ? QString() : indexKey(key);
  if (!key.isEmpty() && positions_.count(indexed)) {
    if (options.RaiseError) {
      throw CollectionError(8, QStringLiteral("CStringCollection.Add"),
                            (compareMode_ != 0 ? QStringLiteral("Duplicate KeyA: ")
                                               : QStringLiteral("Duplicate KeyB: ")) +
                                key);
    }
    return 0;
  }

  int32_t position = Count() + 1;
  if (options.Before || options.After) {
    const bool before = options.Before.has_value();
    const CollectionKey& which = before ? *options.Before : *options.After;
    const int32_t anchor = find(which);
    if (anchor == 0) {
      if (options.RaiseError) {
        throw CollectionError(2, QStringLiteral("CStringCollection.Add"),
                              (before ? QStringLiteral("Key not found before: ")
                                      : QStringLiteral("Key not found after: ")) +
                                  which.toString());
      }
      return 0;
    }
    position = before ? anchor : anchor + 1;
    renumber(position, 1);
  }
  items_.insert(items_.begin() + (position - 1), Entry{key, indexed, itemText});
  if (!key.isEmpty()) positions_.emplace(indexed, position);
  return position;
}

int32_t CStringCollection::Remove(const CollectionKey& key) {
  const int32_t position = find(key);
  if (position == 0) return 0;
  if (!items_[position - 1].key.isEmpty()) positions_.erase(items_[position - 1].indexed);
  items_.erase(items_.begin() + (position - 1));
  renumber(position + 1, -1);
  return position;
}

void CStringCollection::Clear() {
  items_.clear();
  positions_.clear();
}

QString CStringCollection::Item(const CollectionKey& key) const {
  const int32_t p = find(key);
  if (p != 0) return items_[p - 1].item;
  if (raiseError_)
    throw CollectionError(2, QStringLiteral("Get Item"), QStringLiteral("Key: ") + key.toString());
  return {};
}

void CStringCollection::setItem(const CollectionKey& key, const QString& text) {
  const int32_t p = find(key);
  if (p == 0)
    throw CollectionError(2, QStringLiteral("Let Item"), QStringLiteral("Key: ") + key.toString());
  items_[p - 1].item = text;
}

QString CStringCollection::Key(int32_t index) const {
  if (index < 0 || index > Count())
    throw CollectionError(1, QStringLiteral("Get Key"),
                          QStringLiteral("Index: ") + QString::number(index));
  // 0 passes the range test but is no position.
  if (index == 0)
    throw CollectionError(9, QStringLiteral("Get Key"), QStringLiteral("Subscript out of range"));
  return items_[index - 1].key;
}

}  // namespace ql
