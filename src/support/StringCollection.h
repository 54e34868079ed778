#pragma once
// CStringCollection: strings under keys, kept in two orders at once. A red-black tree over the
// keys gives logarithmic lookup; a dense index array gives each item a position (1 to Count) in
// the order of insertion, or in an order chosen with Before, After or Sorted. Nodes live in one
// growable array and refer to each other by number; CNode hands the numbers out from a free list,
// so that nothing is allocated per item but its two strings.
//
// Keys keep the case in which they were given. They compare ordinally by UTF-16 code units, under
// CompareMode 0 as they stand, under any other mode after lower-casing each character (so "Ä" and
// "ä" are one key, "ß" and "SS" two). The tree is not rebuilt when CompareMode changes.
//
// Failures: what the rules always treat as an error (a missing item for ChangeValues or setItem,
// a bad index or key for setKey and Key) throws CollectionError carrying number, source and
// description. Errors that are raised only on request (the RaiseError property, or the RaiseError
// of one Add) throw the same way when requested; otherwise the call gives its neutral result:
// Add 0, Item "", Tag -1, setTag nothing. Remove never throws.
//
// The texts of these errors are for the failure report and stay untranslated: the text tables
// themselves are held in a CStringCollection.
//
// Two deliberate choices keep the structure sound:
// - A Before or After that names no item leaves the collection unchanged (no half-added item).
// - An item with an empty key lives by position only and stays out of the tree, so it can never
//   unhook the items that were there before it.
//
// Threads: none of its own; an instance belongs to the thread that uses it.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <QString>
#include <QStringView>

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

// The free list of node numbers 1..upper bound. When it runs dry it grows by its growth factor
// (rounded half to even, by one at least) and chains the new numbers; a freed number is handed
// out again first.
class CNode {
 public:
  void Init(int32_t count, float growth);
  int32_t Alloc();
  void Free(int32_t number);

  int32_t upperBound() const { return static_cast<int32_t>(next_.size()) - 1; }
  int32_t head() const { return head_; }
  int32_t next(int32_t number) const { return next_[number]; }

 private:
  std::vector<int32_t> next_;  // from 1; element 0 unused; 0 ends the chain
  int32_t head_ = 0;
  float growth_ = 1.5f;
};

// How CStringCollection::Add places an item.
struct CollectionAddOptions {
  std::optional<CollectionKey> Before{};  // goes in at that item's position
  std::optional<CollectionKey> After{};   // goes in behind that item
  bool RaiseError = false;                // throw on a duplicate key or a missing Before/After
  bool Sorted = false;    // keep positions sorted by item text; equal texts go behind
  int CompareMethod = 1;  // for Sorted: 0 exact, otherwise without regard to case
};
// What CStringCollection::Add reports about the item that already holds the key.
struct CollectionDuplicate {
  int32_t DuplicateItemTag = 0;
  int32_t DuplicateItemIndex = 0;  // its node number
  QString DuplicateItem;
};

class CStringCollection {
 public:
  using AddOptions = CollectionAddOptions;
  using Duplicate = CollectionDuplicate;

  CStringCollection() = default;
  ~CStringCollection() { Clear(); }
  CStringCollection(const CStringCollection&) = delete;
  CStringCollection& operator=(const CStringCollection&) = delete;

  // Read only by setKey: whether a key may be renamed to one that is held already.
  bool AllowDuplicate = false;

  // Replaces text and tag of one item; throws when it is missing, whatever RaiseError says.
  void ChangeValues(const CollectionKey& key, const QString& item, int32_t tag);

  // Adds an item and returns its node number, or 0 if nothing was added. A key that is held
  // already fills `duplicate` (if given) with that item. An empty key adds an item that is
  // reachable by position only.
  int32_t Add(const QString& itemText, const QString& key = {}, int32_t tag = 0,
              const AddOptions& options = {}, Duplicate* duplicate = nullptr);

  // Removes one item; every other item keeps its position. Returns the position the item held,
  // 0 if it was not there.
  int32_t Remove(const CollectionKey& keyVal);

  // Discards all content and allocates room for `initialAlloc` items (one at least). Only the
  // growth factor is remembered for a later implicit start.
  void Init(int32_t initialAlloc, float growthFactor);
  // Drops all content and storage; the settings stay. Returns 0.
  int Clear();

  bool ExistKey(const QString& key) const;

  // "" for a missing item; throws instead when RaiseError is set.
  QString Item(const CollectionKey& key) const;
  // Throws for a missing item, whatever RaiseError says.
  void setItem(const CollectionKey& key, const QString& text);

  // -1 for a missing item; throws instead when RaiseError is set and dontShowError is false.
  int32_t Tag(const CollectionKey& key, bool dontShowError = false) const;
  // Nothing for a missing item, with the same exception as Tag.
  void setTag(const CollectionKey& key, int32_t newTag, bool dontShowError = false);

  // The key at a position; throws number 1 for an index outside 0..Count and number 9 for 0.
  QString Key(int32_t index) const;
  // Renames the key at a position, but only to a key that is held already and only with
  // AllowDuplicate; the item keeps its place in the tree. A new key that is not held changes
  // nothing; a held one without AllowDuplicate throws.
  void setKey(int32_t index, const QString& newKey);

  int32_t Count() const { return count_; }

  int32_t CompareMode() const { return compareMode_; }
  void setCompareMode(int32_t newMode) { compareMode_ = newMode; }

  bool RaiseError() const { return raiseError_; }
  void setRaiseError(bool raise) { raiseError_ = raise; }

  // --- inspection, for tests and debugging ---
  int32_t nodeArrayUpperBound() const { return static_cast<int32_t>(nodes_.size()) - 1; }
  int32_t indexArrayUpperBound() const { return static_cast<int32_t>(index_.size()) - 1; }
  int32_t freeListUpperBound() const { return freeList_ ? freeList_->upperBound() : 0; }
  // Checks the red-black rules, the parent links, the key order (as long as setKey moved no key
  // out of order), the index array against the tree and the free list against the live nodes.
  // On failure `why` (if given) says what broke.
  bool checkInvariants(std::string* why = nullptr) const;

  // Ordinal comparison of UTF-16 code units; with `lower`, of the lower-cased characters.
  static int compareText(QStringView a, QStringView b, bool lower);

 private:
  struct Node {
    int32_t Left = 0;
    int32_t Right = 0;
    int32_t Parent = 0;
    int32_t Color = 0;  // 1 red, 0 black
    QString Key;
    QString Item;
    int32_t Tag = 0;
    bool inTree = false;  // false for an item with an empty key
  };
  static constexpr int32_t kRed = 1;
  static constexpr int32_t kBlack = 0;

  int compareKeys(QStringView a, QStringView b) const {
    return compareText(a, b, compareMode_ != 0);
  }
  int32_t GetKeyIndex(const CollectionKey& key) const;
  int32_t GetIndex(int32_t node) const;
  int32_t FindNode(const QString& key) const;
  void RotateLeft(int32_t x);
  void RotateRight(int32_t x);
  void InsertFixup(int32_t z);
  void DeleteFixup(int32_t x);
  void closeGap(int32_t position);
  void openGap(int32_t position);
  int32_t sortedPosition(const QString& text, int method) const;
  void grow(int32_t number);

  double growthFactor_ = 1.5;
  int32_t initialAlloc_ = 100;
  std::vector<Node> nodes_;  // node 0 is the black sentinel
  int32_t root_ = 0;
  std::optional<CNode> freeList_;  // present once initialised
  int32_t count_ = 0;
  std::vector<int32_t> index_;  // position to node number, from 1; 0 past Count
  int32_t compareMode_ = 1;
  bool raiseError_ = false;
};

}  // namespace ql
