#pragma once
// CStringCollection: strings under keys, each with a position (1 to Count) in the order of
// insertion or in the order chosen with Before and After. The items sit in a vector in position
// order; a map from key to position finds a key in logarithmic time. Adding at the end costs
// a map insert; adding in the middle or removing renumbers the positions behind it (linear).
//
// Keys keep the case in which they were given. Under CompareMode 0 they match as they stand,
// under any other mode after lower-casing each character (so "Ä" and "ä" are one key, "ß" and
// "SS" two). Set the mode before the first Add: keys are indexed under the mode in force when
// they were added, and the index is not rebuilt when it changes.
//
// Failures: what the rules always treat as an error (a missing item for setItem, a bad index for
// Key) throws CollectionError carrying number, source and description. Errors that are raised
// only on request (the RaiseError property, or the RaiseError of one Add) throw the same way when
// requested; otherwise the call gives its neutral result: Add 0, Item "". Remove never throws.
//
// The texts of these errors are for the failure report and stay untranslated: the text tables
// themselves are held in a CStringCollection.
//
// A Before or After that names no item leaves the collection unchanged. An item with an empty
// key lives by position only.
//
// Threads: none of its own; an instance belongs to the thread that uses it.

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <vector>

#include <QString>

namespace ql {

// A failure with the number, source and description of the collection's error table.
class CollectionError : public std::runtime_error {
 public:
  CollectionError(int number, const QString& source, const QString& description);
  int number() const { return number_; }
  const QString& source() const { return source_; }
  const QString& description() const { return description_; }

 private:
  int number_;
  QString source_;
  QString description_;
};

// An item's address: an integer is a position (1 to Count; anything else finds nothing), any text
// is a key.
class CollectionKey {
 public:
  CollectionKey(int position) : position_(position), isPosition_(true) {}
  CollectionKey(const QString& key) : key_(key) {}
  CollectionKey(const char* key) : key_(QString::fromUtf8(key)) {}
  bool isPosition() const { return isPosition_; }
  int position() const { return position_; }
  const QString& key() const { return key_; }
  QString toString() const { return isPosition_ ? QString::number(position_) : key_; }

 private:
  QString key_;
  int position_ = 0;
  bool isPosition_ = false;
};

// How CStringCollection::Add places an item.
struct CollectionAddOptions {
  std::optional<CollectionKey> Before{};  // goes in at that item's position
  std::optional<CollectionKey> After{};   // goes in behind that item
  bool RaiseError = false;                // throw on a duplicate key or a missing Before/After
};

class CStringCollection {
 public:
  using AddOptions = CollectionAddOptions;

  // Adds an item and returns its position, or 0 if nothing was added (the key is held already,
  // or Before/After names no item). An empty key adds an item reachable by position only.
  int32_t Add(const QString& itemText, const QString& key = {}, const AddOptions& options = {});

  // Removes one item; the items behind it move up one. Returns the position the item held, 0 if
  // it was not there.
  int32_t Remove(const CollectionKey& key);

  void Clear();

  // "" for a missing item; throws instead when RaiseError is set.
  QString Item(const CollectionKey& key) const;
  // Throws for a missing item, whatever RaiseError says.
  void setItem(const CollectionKey& key, const QString& text);

  // The key at a position; throws number 1 for an index outside 0..Count and number 9 for 0.
  QString Key(int32_t index) const;

  int32_t Count() const { return static_cast<int32_t>(items_.size()); }

  int32_t CompareMode() const { return compareMode_; }
  void setCompareMode(int32_t newMode) { compareMode_ = newMode; }

  bool RaiseError() const { return raiseError_; }
  void setRaiseError(bool raise) { raiseError_ = raise; }

 private:
  struct Entry {
    QString key;
    QString indexed;  // its key in positions_, so that a later CompareMode cannot orphan it
    QString item;
  };

  QString indexKey(const QString& key) const;
  int32_t find(const CollectionKey& key) const;  // position, 0 if missing
  void renumber(int32_t from, int32_t by);

  std::vector<Entry> items_;              // position p at p - 1
  std::map<QString, int32_t> positions_;  // indexKey(key) to position; no empty keys
  int32_t compareMode_ = 1;
  bool raiseError_ = false;
};

}  // namespace ql
