#include "support/StringCollection.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include <QChar>

namespace ql {

namespace {

// Upper bound times growth, rounded half to even (the default rounding mode), never less than
// `atLeast`: a factor at or near 1 must still make room.
int32_t grownBound(int32_t upper, double growth, int32_t atLeast) {
  const double limit = std::numeric_limits<int32_t>::max() - 2;
  const double grown = std::min(std::nearbyint(double(upper) * growth), limit);
  return std::max(static_cast<int32_t>(grown), atLeast);
}

// The UTF-16 code units of a text with each character lower-cased, one at a time, without
// building the lowered text.
class LoweredUnits {
 public:
  explicit LoweredUnits(QStringView s) : s_(s) {}

  bool next(char16_t& out) {
    if (pending_) {
      out = pending_;
      pending_ = 0;
      return true;
    }
    if (i_ >= s_.size()) return false;
    char32_t c = s_[i_++].unicode();
    if (c < 0x80) {
      out = static_cast<char16_t>(c >= 'A' && c <= 'Z' ? c + 32 : c);
      return true;
    }
    if (QChar::isHighSurrogate(c) && i_ < s_.size() && s_[i_].isLowSurrogate())
      c = QChar::surrogateToUcs4(static_cast<char16_t>(c), s_[i_++].unicode());
    const char32_t lower = QChar::toLower(c);
    if (QChar::requiresSurrogates(lower)) {
      out = QChar::highSurrogate(lower);
      pending_ = QChar::lowSurrogate(lower);
    } else {
      out = static_cast<char16_t>(lower);
    }
    return true;
  }

 private:
  QStringView s_;
  qsizetype i_ = 0;
  char16_t pending_ = 0;
};

}  // namespace

CollectionError::CollectionError(int number, const QString& source, const QString& description)
    : std::runtime_error((source + QStringLiteral(": ") + description).toStdString()),
      number_(number),
      source_(source),
      description_(description) {}

// --- CNode ---

void CNode::Init(int32_t count, float growth) {
  count = std::max(count, 1);
  growth_ = growth;
  next_.assign(count + 1, 0);
  for (int32_t i = 1; i < count; ++i) next_[i] = i + 1;
  head_ = 1;
}

int32_t CNode::Alloc() {
  if (head_ == 0) {
    const int32_t upper = upperBound();
    const int32_t newUpper = grownBound(upper, growth_, upper + 1);
    head_ = upper + 1;
    next_.resize(newUpper + 1, 0);
    for (int32_t i = head_; i < newUpper; ++i) next_[i] = i + 1;
    next_[newUpper] = 0;
  }
  const int32_t number = head_;
  head_ = next_[number];
  return number;
}

void CNode::Free(int32_t number) {
  next_[number] = head_;
  head_ = number;
}

// --- CStringCollection ---

int CStringCollection::compareText(QStringView a, QStringView b, bool lower) {
  if (!lower) {
    const qsizetype n = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < n; ++i) {
      const char16_t x = a[i].unicode(), y = b[i].unicode();
      if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
  }
  LoweredUnits la(a), lb(b);
  for (;;) {
    char16_t x = 0, y = 0;
    const bool hasX = la.next(x), hasY = lb.next(y);
    if (!hasX || !hasY) return hasX == hasY ? 0 : (hasX ? 1 : -1);
    if (x != y) return x < y ? -1 : 1;
  }
}

void CStringCollection::Init(int32_t initialAlloc, float growthFactor) {
  Clear();
  initialAlloc = std::max(initialAlloc, 1);
  growthFactor_ = growthFactor;
  nodes_.assign(initialAlloc + 1, Node{});
  index_.assign(initialAlloc + 2, 0);
  root_ = 0;
  freeList_.emplace();
  freeList_->Init(initialAlloc, growthFactor);
  count_ = 0;
}

int CStringCollection::Clear() {
  if (freeList_) {
    freeList_.reset();
    std::vector<Node>().swap(nodes_);
    root_ = 0;
    count_ = 0;
  }
  return 0;
}

void CStringCollection::grow(int32_t number) {
  const int32_t upper = nodeArrayUpperBound();
  const int32_t newUpper = grownBound(upper, growthFactor_, number);
  nodes_.resize(newUpper + 1);
  index_.resize(newUpper + 3, 0);
}

int32_t CStringCollection::Add(const QString& itemText, const QString& key, int32_t tag,
                               const AddOptions& options, Duplicate* duplicate) {
  if (!freeList_) Init(initialAlloc_, static_cast<float>(growthFactor_));

  int32_t parent = 0;
  if (!key.isEmpty()) {
    int32_t n = root_;
    while (n != 0) {
      parent = n;
      const int c = compareKeys(key, nodes_[n].Key);
      if (c == 0) {
        if (duplicate) {
          duplicate->DuplicateItemTag = nodes_[n].Tag;
          duplicate->DuplicateItemIndex = n;
          duplicate->DuplicateItem = nodes_[n].Item;
        }
        if (options.RaiseError) {
          throw CollectionError(8, QStringLiteral("CStringCollection.Add"),
                                (compareMode_ != 0 ? QStringLiteral("Duplicate KeyA: ")
                                                   : QStringLiteral("Duplicate KeyB: ")) +
                                    key);
        }
        return 0;
      }
      n = c < 0 ? nodes_[n].Left : nodes_[n].Right;
    }
  }

  // Looked up before anything changes, so that a miss leaves the collection as it was.
  int32_t anchor = 0;  // position of the Before or After item
  if (options.Before || options.After) {
    const bool before = options.Before.has_value();
    const CollectionKey& which = before ? *options.Before : *options.After;
    const int32_t node = GetKeyIndex(which);
    anchor = node ? GetIndex(node) : 0;
    if (anchor == 0) {
      if (options.RaiseError) {
        throw CollectionError(2, QStringLiteral("CStringCollection.Add"),
                              (before ? QStringLiteral("Key not found before: ")
                                      : QStringLiteral("Key not found after: ")) +
                                  which.toString());
      }
      return 0;
    }
    if (!before) ++anchor;
  }

  const int32_t z = freeList_->Alloc();
  if (z > nodeArrayUpperBound()) grow(z);

  const int32_t oldCount = count_;
  ++count_;
  int32_t p = count_;
  if (anchor != 0) {
    p = anchor;
    openGap(p);
  } else if (options.Sorted && oldCount > 0) {
    p = sortedPosition(itemText, options.CompareMethod);
    if (p < count_) openGap(p);
  }
  index_[p] = z;

  Node& node = nodes_[z];
  node.Key = key;
  node.Item = itemText;
  node.Tag = tag;
  node.Left = 0;
  node.Right = 0;
  node.Parent = parent;
  node.Color = kRed;
  node.inTree = !key.isEmpty();
  if (!node.inTree) {
    node.Parent = 0;
    node.Color = kBlack;
    return z;
  }
  if (parent == 0)
    root_ = z;
  else if (compareKeys(key, nodes_[parent].Key) < 0)
    nodes_[parent].Left = z;
  else
    nodes_[parent].Right = z;
  InsertFixup(z);
  return z;
}

// Where a text goes among items sorted by text: behind all that equal it. Positions 1 to
// Count - 1 hold the items already there.
int32_t CStringCollection::sortedPosition(const QString& text, int method) const {
  const bool lower = method != 0;
  const int32_t oldCount = count_ - 1;
  auto cmp = [&](int32_t pos) { return compareText(text, nodes_[index_[pos]].Item, lower); };
  if (cmp(1) < 0) return 1;
  if (cmp(oldCount) > 0) return count_;
  int32_t lo = 1, hi = oldCount, mid = lo;
  for (;;) {
    mid = (lo + hi) / 2;
    if (mid == lo) break;
    const int c = cmp(mid);
    if (c == 0) break;
    if (c < 0)
      hi = mid;
    else
      lo = mid;
  }
  while (mid < oldCount && cmp(mid + 1) == 0) ++mid;
  return mid + 1;
}

int32_t CStringCollection::Remove(const CollectionKey& keyVal) {
  const int32_t z = GetKeyIndex(keyVal);
  if (z == 0) return 0;
  const int32_t position = GetIndex(z);

  int32_t y = z;
  if (nodes_[z].inTree) {
    if (nodes_[z].Left != 0 && nodes_[z].Right != 0) {
      y = nodes_[z].Right;
      while (nodes_[y].Left != 0) y = nodes_[y].Left;
    }
    const int32_t x = nodes_[y].Left != 0 ? nodes_[y].Left : nodes_[y].Right;
    const int32_t yParent = nodes_[y].Parent;
    nodes_[x].Parent = yParent;  // also on the sentinel: DeleteFixup climbs from it
    if (yParent == 0)
      root_ = x;
    else if (nodes_[yParent].Left == y)
      nodes_[yParent].Left = x;
    else
      nodes_[yParent].Right = x;

    if (y != z) {
      // The successor's item moves into z and keeps its own position; z's position is the one
      // that goes.
      nodes_[z].Key = nodes_[y].Key;
      nodes_[z].Item = nodes_[y].Item;
      nodes_[z].Tag = nodes_[y].Tag;
      const int32_t yPosition = GetIndex(y);
      index_[yPosition] = z;
      index_[position] = y;
    }
    if (nodes_[y].Color == kBlack) DeleteFixup(x);
    nodes_[0].Parent = 0;
  }

  Node& gone = nodes_[y];
  gone.Key.clear();
  gone.Item.clear();
  gone.Tag = 0;
  gone.Left = gone.Right = gone.Parent = 0;
  gone.Color = kBlack;
  gone.inTree = false;
  closeGap(position);
  index_[count_] = 0;
  --count_;
  freeList_->Free(y);
  return position;
}

void CStringCollection::ChangeValues(const CollectionKey& key, const QString& item, int32_t tag) {
  const int32_t n = GetKeyIndex(key);
  if (n == 0)
    throw CollectionError(2, QStringLiteral("ChangeValues"),
                          QStringLiteral("Key: ") + key.toString());
  nodes_[n].Item = item;
  nodes_[n].Tag = tag;
}

bool CStringCollection::ExistKey(const QString& key) const {
  return FindNode(key) != 0;
}

QString CStringCollection::Item(const CollectionKey& key) const {
  const int32_t n = GetKeyIndex(key);
  if (n != 0) return nodes_[n].Item;
  if (raiseError_)
    throw CollectionError(2, QStringLiteral("Get Item"), QStringLiteral("Key: ") + key.toString());
  return {};
}

void CStringCollection::setItem(const CollectionKey& key, const QString& text) {
  const int32_t n = GetKeyIndex(key);
  if (n == 0)
    throw CollectionError(2, QStringLiteral("Let Item"), QStringLiteral("Key: ") + key.toString());
  nodes_[n].Item = text;
}

int32_t CStringCollection::Tag(const CollectionKey& key, bool dontShowError) const {
  const int32_t n = GetKeyIndex(key);
  if (n != 0) return nodes_[n].Tag;
  if (raiseError_ && !dontShowError)
    throw CollectionError(2, QStringLiteral("Get Tag"), QStringLiteral("Key: ") + key.toString());
  return -1;
}

void CStringCollection::setTag(const CollectionKey& key, int32_t newTag, bool dontShowError) {
  const int32_t n = GetKeyIndex(key);
  if (n != 0) {
    nodes_[n].Tag = newTag;
  } else if (raiseError_ && !dontShowError) {
    throw CollectionError(2, QStringLiteral("Let Tag"),
                          QStringLiteral("Key: ") + key.toString() + QStringLiteral(" NewTag: ") +
                              QString::number(newTag));
  }
}

QString CStringCollection::Key(int32_t index) const {
  if (index < 0 || index > count_)
    throw CollectionError(1, QStringLiteral("Get Key"),
                          QStringLiteral("Index: ") + QString::number(index));
  // 0 passes the range test but is no position.
  if (index == 0)
    throw CollectionError(9, QStringLiteral("Get Key"), QStringLiteral("Subscript out of range"));
  return nodes_[index_[index]].Key;
}

void CStringCollection::setKey(int32_t index, const QString& newKey) {
  const auto words = [&] {
    return QStringLiteral("Index: ") + QString::number(index) + QStringLiteral(" NewKey: ") +
           newKey;
  };
  if (index < 0 || index > count_) throw CollectionError(1, QStringLiteral("Let Key"), words());
  if (FindNode(newKey) == 0) return;
  if (!AllowDuplicate) throw CollectionError(8, QStringLiteral("Let Key"), words());
  if (index == 0)
    throw CollectionError(9, QStringLiteral("Let Key"), QStringLiteral("Subscript out of range"));
  nodes_[index_[index]].Key = newKey;
}

int32_t CStringCollection::GetKeyIndex(const CollectionKey& key) const {
  if (key.isPosition()) {
    const int p = key.position();
    return p >= 1 && p <= count_ ? index_[p] : 0;
  }
  return FindNode(key.key());
}

int32_t CStringCollection::GetIndex(int32_t node) const {
  for (int32_t p = 1; p <= count_; ++p)
    if (index_[p] == node) return p;
  return 0;
}

int32_t CStringCollection::FindNode(const QString& key) const {
  if (count_ == 0) return 0;
  int32_t n = root_;
  while (n != 0) {
    const int c = compareKeys(key, nodes_[n].Key);
    if (c == 0) return n;
    n = c < 0 ? nodes_[n].Left : nodes_[n].Right;
  }
  return 0;
}

void CStringCollection::closeGap(int32_t position) {
  std::copy(index_.begin() + position + 1, index_.begin() + count_ + 1, index_.begin() + position);
}

void CStringCollection::openGap(int32_t position) {
  // Count already includes the newcomer: entries position..Count-1 move up one.
  std::copy_backward(index_.begin() + position, index_.begin() + count_,
                     index_.begin() + count_ + 1);
}

void CStringCollection::RotateLeft(int32_t x) {
  const int32_t y = nodes_[x].Right;
  nodes_[x].Right = nodes_[y].Left;
  if (nodes_[y].Left != 0) nodes_[nodes_[y].Left].Parent = x;
  const int32_t p = nodes_[x].Parent;
  nodes_[y].Parent = p;
  if (p == 0)
    root_ = y;
  else if (nodes_[p].Left == x)
    nodes_[p].Left = y;
  else
    nodes_[p].Right = y;
  nodes_[y].Left = x;
  nodes_[x].Parent = y;
}

void CStringCollection::RotateRight(int32_t x) {
  const int32_t y = nodes_[x].Left;
  nodes_[x].Left = nodes_[y].Right;
  if (nodes_[y].Right != 0) nodes_[nodes_[y].Right].Parent = x;
  const int32_t p = nodes_[x].Parent;
  nodes_[y].Parent = p;
  if (p == 0)
    root_ = y;
  else if (nodes_[p].Right == x)
    nodes_[p].Right = y;
  else
    nodes_[p].Left = y;
  nodes_[y].Right = x;
  nodes_[x].Parent = y;
}

void CStringCollection::InsertFixup(int32_t z) {
  while (z != root_ && nodes_[nodes_[z].Parent].Color == kRed) {
    const int32_t p = nodes_[z].Parent;
    const int32_t g = nodes_[p].Parent;  // a red parent is never the root
    if (p == nodes_[g].Left) {
      const int32_t uncle = nodes_[g].Right;
      if (nodes_[uncle].Color == kRed) {
        nodes_[p].Color = kBlack;
        nodes_[uncle].Color = kBlack;
        nodes_[g].Color = kRed;
        z = g;
      } else {
        if (z == nodes_[p].Right) {
          z = p;
          RotateLeft(z);
        }
        nodes_[nodes_[z].Parent].Color = kBlack;
        nodes_[g].Color = kRed;
        RotateRight(g);
      }
    } else {
      const int32_t uncle = nodes_[g].Left;
      if (nodes_[uncle].Color == kRed) {
        nodes_[p].Color = kBlack;
        nodes_[uncle].Color = kBlack;
        nodes_[g].Color = kRed;
        z = g;
      } else {
        if (z == nodes_[p].Left) {
          z = p;
          RotateRight(z);
        }
        nodes_[nodes_[z].Parent].Color = kBlack;
        nodes_[g].Color = kRed;
        RotateLeft(g);
      }
    }
  }
  nodes_[root_].Color = kBlack;
}

void CStringCollection::DeleteFixup(int32_t x) {
  while (x != root_ && nodes_[x].Color == kBlack) {
    const int32_t p = nodes_[x].Parent;
    if (x == nodes_[p].Left) {
      int32_t w = nodes_[p].Right;
      if (nodes_[w].Color == kRed) {
        nodes_[w].Color = kBlack;
        nodes_[p].Color = kRed;
        RotateLeft(p);
        w = nodes_[p].Right;
      }
      if (nodes_[nodes_[w].Left].Color == kBlack && nodes_[nodes_[w].Right].Color == kBlack) {
        nodes_[w].Color = kRed;
        x = p;
      } else {
        if (nodes_[nodes_[w].Right].Color == kBlack) {
          nodes_[nodes_[w].Left].Color = kBlack;
          nodes_[w].Color = kRed;
          RotateRight(w);
          w = nodes_[p].Right;
        }
        nodes_[w].Color = nodes_[p].Color;
        nodes_[p].Color = kBlack;
        nodes_[nodes_[w].Right].Color = kBlack;
        RotateLeft(p);
        x = root_;
      }
    } else {
      int32_t w = nodes_[p].Left;
      if (nodes_[w].Color == kRed) {
        nodes_[w].Color = kBlack;
        nodes_[p].Color = kRed;
        RotateRight(p);
        w = nodes_[p].Left;
      }
      if (nodes_[nodes_[w].Right].Color == kBlack && nodes_[nodes_[w].Left].Color == kBlack) {
        nodes_[w].Color = kRed;
        x = p;
      } else {
        if (nodes_[nodes_[w].Left].Color == kBlack) {
          nodes_[nodes_[w].Right].Color = kBlack;
          nodes_[w].Color = kRed;
          RotateLeft(w);
          w = nodes_[p].Left;
        }
        nodes_[w].Color = nodes_[p].Color;
        nodes_[p].Color = kBlack;
        nodes_[nodes_[w].Left].Color = kBlack;
        RotateRight(p);
        x = root_;
      }
    }
  }
  nodes_[x].Color = kBlack;
}

bool CStringCollection::checkInvariants(std::string* why) const {
  const auto fail = [why](const std::string& text) {
    if (why) *why = text;
    return false;
  };
  if (!freeList_) {
    if (count_ != 0 || !nodes_.empty()) return fail("uninitialised but holds items");
    return true;
  }
  const Node& sentinel = nodes_[0];
  if (sentinel.Left || sentinel.Right || sentinel.Parent || sentinel.Color)
    return fail("sentinel touched");
  const int32_t upper = nodeArrayUpperBound();
  if (indexArrayUpperBound() < upper + 1) return fail("index array shorter than node array");
  if (freeList_->upperBound() > upper) return fail("free list beyond node array");

  // Positions: each live node exactly once, zeros behind Count.
  std::vector<char> live(upper + 1, 0);
  int32_t keyless = 0;
  for (int32_t p = 1; p <= count_; ++p) {
    const int32_t n = index_[p];
    if (n < 1 || n > upper) return fail("bad node at position " + std::to_string(p));
    if (live[n]) return fail("node twice in the index: " + std::to_string(n));
    live[n] = 1;
    if (!nodes_[n].inTree) ++keyless;
  }
  for (size_t p = count_ + 1; p < index_.size(); ++p)
    if (index_[p] != 0) return fail("index not zero behind Count at " + std::to_string(p));

  // Free list: exactly the numbers that are not live.
  std::vector<char> isFree(upper + 1, 0);
  int32_t freeCount = 0;
  for (int32_t n = freeList_->head(); n != 0; n = freeList_->next(n)) {
    if (n < 1 || n > freeList_->upperBound()) return fail("free list out of range");
    if (isFree[n]) return fail("free list loops");
    if (live[n]) return fail("live node on the free list: " + std::to_string(n));
    isFree[n] = 1;
    ++freeCount;
  }
  if (freeCount + count_ != freeList_->upperBound()) return fail("free list loses numbers");

  // Tree: links, colours, equal black height, key order, and exactly the keyed live nodes.
  if (root_ != 0 && (nodes_[root_].Color != kBlack || nodes_[root_].Parent != 0))
    return fail("root not black or has a parent");
  int32_t inTree = 0;
  int32_t blackHeight = -1;
  const Node* previous = nullptr;
  // Iterative in-order walk with the black depth of each node.
  std::vector<std::pair<int32_t, int32_t>> stack;
  int32_t n = root_, depth = 0;
  while (n != 0 || !stack.empty()) {
    while (n != 0) {
      if (n > upper || !live[n] || !nodes_[n].inTree)
        return fail("tree reaches a node that is not a keyed item: " + std::to_string(n));
      if (++inTree > count_) return fail("tree has a cycle");
      const Node& node = nodes_[n];
      if (node.Color != kRed && node.Color != kBlack) return fail("bad colour");
      const int32_t d = depth + (node.Color == kBlack ? 1 : 0);
      for (const int32_t child : {node.Left, node.Right}) {
        if (child == 0) {
          if (blackHeight < 0) blackHeight = d;
          if (d != blackHeight) return fail("unequal black height");
        } else {
          if (nodes_[child].Parent != n) return fail("bad parent link at " + std::to_string(child));
          if (node.Color == kRed && nodes_[child].Color == kRed) return fail("red child of red");
        }
      }
      stack.emplace_back(n, d);
      n = node.Left;
      depth = d;
    }
    std::tie(n, depth) = stack.back();
    stack.pop_back();
    if (previous && compareKeys(previous->Key, nodes_[n].Key) > 0) return fail("keys out of order");
    previous = &nodes_[n];
    n = nodes_[n].Right;
  }
  if (inTree + keyless != count_) return fail("keyed items missing from the tree");
  return true;
}

}  // namespace ql
