#include "support/StringCollection.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace ql {
namespace {

using Options = CStringCollection::AddOptions;

void expectValid(const CStringCollection& c) {
  std::string why;
  EXPECT_TRUE(c.checkInvariants(&why)) << why;
}

QStringList itemsByPosition(const CStringCollection& c) {
  QStringList items;
  for (int p = 1; p <= c.Count(); ++p) items << c.Item(p);
  return items;
}

TEST(StringCollection, RemovingNodeWithTwoChildrenKeepsOtherPositions) {
  CStringCollection c;
  // "b" becomes the root with "a" and "c" below it.
  ASSERT_EQ(c.Add("B", "b", 1), 1);
  ASSERT_EQ(c.Add("A", "a", 2), 2);
  ASSERT_EQ(c.Add("C", "c", 3), 3);
  EXPECT_EQ(c.Remove("b"), 1);
  expectValid(c);
  EXPECT_EQ(itemsByPosition(c), QStringList({"A", "C"}));
  EXPECT_EQ(c.Key(2), "c");
  EXPECT_EQ(c.Tag(2), 3);
  EXPECT_EQ(c.Item("c"), "C");
  EXPECT_FALSE(c.ExistKey("b"));
  // "c" moved into the root's node, so its old number is the one freed and handed out next.
  EXPECT_EQ(c.Add("D", "d"), 3);
  EXPECT_EQ(itemsByPosition(c), QStringList({"A", "C", "D"}));
  expectValid(c);
}

TEST(StringCollection, DuplicateKeysFollowCompareMode) {
  struct Case {
    int mode;
    QString first, second;
    bool duplicate;
  };
  const Case cases[] = {{1, "Key", "kEY", true}, {0, "Key", "kEY", false}, {1, "Ä", "ä", true},
                        {0, "Ä", "ä", false},    {1, "ß", "SS", false},    {0, "x", "x", true}};
  for (const Case& k : cases) {
    SCOPED_TRACE(k.second.toStdString() + " mode " + std::to_string(k.mode));
    CStringCollection c;
    c.setCompareMode(k.mode);
    c.Add("one", k.first, 7);
    CStringCollection::Duplicate dup;
    const int added = c.Add("two", k.second, 9, {}, &dup);
    if (k.duplicate) {
      EXPECT_EQ(added, 0);
      EXPECT_EQ(dup.DuplicateItemTag, 7);
      EXPECT_EQ(dup.DuplicateItemIndex, 1);
      EXPECT_EQ(dup.DuplicateItem, "one");
      EXPECT_EQ(c.Count(), 1);
      EXPECT_EQ(c.Key(1), k.first);  // the held key keeps its case
      EXPECT_EQ(c.Item(k.second), "one");
      EXPECT_THROW(c.Add("three", k.second, 0, {.RaiseError = true}), CollectionError);
      EXPECT_EQ(c.Count(), 1);
    } else {
      EXPECT_EQ(added, 2);
      EXPECT_EQ(dup.DuplicateItemIndex, 0);
      EXPECT_EQ(c.Item(k.first), "one");
      EXPECT_EQ(c.Item(k.second), "two");
    }
    expectValid(c);
  }
}

TEST(StringCollection, MissingItemsGiveNeutralValuesOrThrow) {
  CStringCollection c;
  c.Add("A", "a", 1);
  c.Add("B", "b", 2);
  EXPECT_EQ(c.Item("missing"), "");
  EXPECT_EQ(c.Tag("missing"), -1);
  EXPECT_NO_THROW(c.setTag("missing", 5));
  EXPECT_EQ(c.Remove("missing"), 0);
  // Changing the text of nothing fails even without RaiseError.
  EXPECT_THROW(c.setItem("missing", "x"), CollectionError);
  EXPECT_THROW(c.ChangeValues(-1, "x", 1), CollectionError);

  c.setRaiseError(true);
  EXPECT_THROW(c.Item("missing"), CollectionError);
  EXPECT_THROW(c.Item(3), CollectionError);
  EXPECT_THROW(c.Tag(0), CollectionError);
  EXPECT_THROW(c.setTag("missing", 5), CollectionError);
  EXPECT_EQ(c.Tag("missing", true), -1);  // asked to stay quiet
  EXPECT_NO_THROW(c.setTag("missing", 5, true));
  EXPECT_EQ(c.Remove("missing"), 0);
  EXPECT_EQ(itemsByPosition(c), QStringList({"A", "B"}));
  EXPECT_EQ(c.Tag("a") + c.Tag("b"), 3);
}

TEST(StringCollection, KeySetterRenamesOnlyToHeldKeys) {
  CStringCollection c;
  c.Add("A", "a");
  c.Add("B", "b");
  EXPECT_EQ(c.Key(2), "b");
  EXPECT_THROW(c.Key(3), CollectionError);
  EXPECT_THROW(c.Key(0), CollectionError);

  c.setKey(1, "new");  // not held: nothing happens
  EXPECT_EQ(c.Key(1), "a");
  EXPECT_FALSE(c.ExistKey("new"));
  EXPECT_THROW(c.setKey(1, "b"), CollectionError);  // held by another item
  EXPECT_THROW(c.setKey(3, "b"), CollectionError);
  EXPECT_EQ(c.Key(1), "a");

  c.AllowDuplicate = true;
  c.setKey(1, "B");
  EXPECT_EQ(c.Key(1), "B");
  EXPECT_EQ(c.Item(1), "A");
  EXPECT_EQ(c.Count(), 2);
}

TEST(StringCollection, BeforeAndAfterPlaceItems) {
  CStringCollection c;
  for (const char* k : {"a", "b", "c"}) c.Add(QString(k).toUpper(), k);
  c.Add("X", "x", 0, {.Before = CollectionKey("b")});
  c.Add("Y", "y", 0, {.After = CollectionKey(4)});
  c.Add("Z", "z", 0, {.Before = CollectionKey(1)});
  c.Add("W", "w", 0, {.After = CollectionKey("Z")});
  EXPECT_EQ(itemsByPosition(c), QStringList({"Z", "W", "A", "X", "B", "C", "Y"}));
  expectValid(c);

  // A miss changes nothing.
  EXPECT_EQ(c.Add("N", "n", 0, {.Before = CollectionKey("nope")}), 0);
  EXPECT_EQ(c.Add("N", "n", 0, {.After = CollectionKey(8)}), 0);
  EXPECT_EQ(c.Count(), 7);
  EXPECT_FALSE(c.ExistKey("n"));
  expectValid(c);
  EXPECT_THROW(c.Add("N", "n", 0, {.Before = CollectionKey("nope"), .RaiseError = true}),
               CollectionError);
  EXPECT_THROW(c.Add("N", "n", 0, {.After = CollectionKey(0), .RaiseError = true}), CollectionError);
  EXPECT_EQ(c.Count(), 7);
}

TEST(StringCollection, ItemsWithoutKeyLiveByPositionOnly) {
  CStringCollection c;
  c.Add("A", "a");
  c.Add("free 1");
  c.Add("B", "b");
  c.Add("free 2");
  EXPECT_EQ(c.Count(), 4);
  EXPECT_TRUE(c.ExistKey("a"));
  EXPECT_TRUE(c.ExistKey("b"));
  EXPECT_FALSE(c.ExistKey(""));
  expectValid(c);
  EXPECT_EQ(c.Remove(2), 2);
  EXPECT_EQ(c.Remove("a"), 1);
  EXPECT_EQ(itemsByPosition(c), QStringList({"B", "free 2"}));
  expectValid(c);
}

TEST(StringCollection, ClearKeepsSettingsAndStartsAgainOnAdd) {
  CStringCollection c;
  c.setCompareMode(0);
  c.setRaiseError(true);
  c.Init(4, 2.0f);
  for (int i = 0; i < 6; ++i) c.Add("x", QString::number(i));  // past the first allocation
  EXPECT_EQ(c.Clear(), 0);
  EXPECT_EQ(c.Count(), 0);
  EXPECT_FALSE(c.ExistKey("1"));
  EXPECT_THROW(c.Item(1), CollectionError);
  expectValid(c);

  for (int i = 0; i < 101; ++i) c.Add("x", QString::number(i));
  EXPECT_EQ(c.CompareMode(), 0);
  EXPECT_TRUE(c.RaiseError());
  EXPECT_EQ(c.Add("y", "K"), 102);
  EXPECT_EQ(c.Add("y", "k"), 103);  // mode 0: another key
  expectValid(c);
}

// --- against a plain model: many random operations, everything checked after each ---

struct Entry {
  QString key, item;
  int tag;
  int node;  // node number that holds it
};

class Model {
 public:
  explicit Model(int mode) : mode_(mode) {}
  std::vector<Entry> items;

  // Under mode 1 a key is found in any case.
  QString lookupForm(const QString& key) const { return mode_ ? key.toUpper() : key; }
  bool same(const QString& a, const QString& b) const {
    return mode_ ? a.toLower() == b.toLower() : a == b;
  }
  int find(const QString& key) const {  // position from 1, 0 if missing
    if (key.isEmpty()) return 0;
    for (size_t i = 0; i < items.size(); ++i)
      if (same(items[i].key, key)) return int(i) + 1;
    return 0;
  }

 private:
  int mode_;
};

void expectSame(const CStringCollection& c, const Model& m) {
  ASSERT_EQ(c.Count(), int(m.items.size()));
  for (int p = 1; p <= c.Count(); ++p) {
    const Entry& e = m.items[p - 1];
    ASSERT_EQ(c.Item(p), e.item) << "position " << p;
    ASSERT_EQ(c.Key(p), e.key) << "position " << p;
    ASSERT_EQ(c.Tag(p), e.tag) << "position " << p;
    if (!e.key.isEmpty()) {
      ASSERT_EQ(c.Item(m.lookupForm(e.key)), e.item);
    }
  }
  std::string why;
  ASSERT_TRUE(c.checkInvariants(&why)) << why;
}

class RandomOperations : public ::testing::TestWithParam<int> {};

TEST_P(RandomOperations, MatchModel) {
  const int mode = GetParam();
  std::mt19937 rng(20240611u + mode);
  const auto pick = [&](int n) { return int(rng() % unsigned(n)); };
  const QString letters = QStringLiteral("aAbÄäz");
  const auto randomKey = [&] {
    QString k;
    for (int i = pick(5); i >= 0; --i) k += letters[pick(letters.size())];
    return k;
  };
  CStringCollection c;
  c.setCompareMode(mode);
  Model m(mode);
  int serial = 0;
  int twoChildRemovals = 0;
  int maxCount = 0;
  int duplicates = 0;

  for (int step = 0; step < 8000; ++step) {
    SCOPED_TRACE(step);
    const int n = int(m.items.size());
    int op = pick(100);
    if (op >= 45 && op < 75 && n < 150 && pick(2)) op = pick(45);  // grow past the first 100
    // An address of a held item by position, by key, or of nothing.
    const auto randomAddress = [&](int& position) -> CollectionKey {
      position = n ? pick(n) + 1 : 0;
      if (position && !m.items[position - 1].key.isEmpty() && pick(2))
        return m.lookupForm(m.items[position - 1].key);
      if (pick(10) == 0) {
        position = 0;
        return pick(2) ? CollectionKey(n + 1) : CollectionKey("#none");
      }
      return position;
    };

    if (op < 45) {
      const QString key = op < 4 ? QString() : randomKey();
      const QString text = "t" + QString::number(++serial);
      Options options;
      int position = n + 1;
      if (op % 3 == 1 && n) {
        options.Before = randomAddress(position);
      } else if (op % 3 == 2 && n) {
        options.After = randomAddress(position);
        if (position) ++position;
      }
      const int held = m.find(key);
      const int node = c.Add(text, key, serial, options);
      if (held || position == 0) {
        ASSERT_EQ(node, 0);
        if (held) ++duplicates;
      } else {
        ASSERT_GT(node, 0);
        m.items.insert(m.items.begin() + position - 1, Entry{key, text, serial, node});
      }
    } else if (op < 75) {
      int position = 0;
      const CollectionKey address = randomAddress(position);
      const int usedBefore = c.freeListUpperBound();
      ASSERT_EQ(c.Remove(address), position);
      if (position) {
        const int gone = m.items[position - 1].node;
        m.items.erase(m.items.begin() + position - 1);
        // The freed number comes back first: if it is not the removed item's own, the successor
        // moved into that node and keeps its position.
        const int freed = c.Add("probe");
        if (freed != gone) {
          const auto moved = std::find_if(m.items.begin(), m.items.end(),
                                          [&](const Entry& e) { return e.node == freed; });
          ASSERT_NE(moved, m.items.end());
          moved->node = gone;
          ++twoChildRemovals;
        }
        const int last = c.Count();
        ASSERT_EQ(c.Remove(last), last);
      }
      ASSERT_EQ(c.freeListUpperBound(), usedBefore);
    } else if (op < 88) {
      int position = 0;
      const CollectionKey address = randomAddress(position);
      const QString text = "c" + QString::number(++serial);
      if (position) {
        if (op % 2)
          c.setItem(address, text);
        else
          c.ChangeValues(address, text, serial);
        m.items[position - 1].item = text;
        if (op % 2 == 0) m.items[position - 1].tag = serial;
      } else {
        EXPECT_THROW(c.setItem(address, text), CollectionError);
      }
    } else {
      int position = 0;
      const CollectionKey address = randomAddress(position);
      c.setTag(address, ++serial);
      if (position) m.items[position - 1].tag = serial;
      ASSERT_EQ(c.ExistKey(randomKey() + "#"), false);
    }
    expectSame(c, m);
    if (HasFatalFailure()) return;
    maxCount = std::max(maxCount, c.Count());
  }
  // The run must have reached the cases it is for.
  EXPECT_GT(twoChildRemovals, 100);
  EXPECT_GT(duplicates, 100);
  EXPECT_GT(maxCount, 100);
}

INSTANTIATE_TEST_SUITE_P(CompareModes, RandomOperations, ::testing::Values(0, 1));

// Sorted adds by text (method 1 ignores case), equal texts behind the ones already held.
TEST(StringCollection, RandomSortedAddsStaySorted) {
  for (const int method : {0, 1}) {
    SCOPED_TRACE(method);
    std::mt19937 rng(77u + method);
    const QStringList texts = {"a", "A", "b", "B", "ä", "Ä", "ab", "aB", "z"};
    const auto before = [&](const QString& x, const QString& y) {
      return method ? x.toLower() < y.toLower() : x < y;
    };
    CStringCollection c;
    std::vector<std::pair<QString, int>> model;
    for (int step = 0; step < 4000; ++step) {
      // Grows to about 200 items, then hovers there.
      if (model.empty() || rng() % 3 < (model.size() < 200 ? 2u : 1u)) {
        const QString text = texts[int(rng() % texts.size())];
        c.Add(text, {}, step, {.Sorted = true, .CompareMethod = method});
        const auto at =
            std::upper_bound(model.begin(), model.end(), text,
                             [&](const QString& t, const auto& e) { return before(t, e.first); });
        model.insert(at, {text, step});
      } else {
        const int p = int(rng() % model.size()) + 1;
        ASSERT_EQ(c.Remove(p), p);
        model.erase(model.begin() + p - 1);
      }
      ASSERT_EQ(c.Count(), int(model.size()));
      for (int p = 1; p <= c.Count(); ++p) {
        ASSERT_EQ(c.Item(p), model[p - 1].first) << "step " << step << " position " << p;
        ASSERT_EQ(c.Tag(p), model[p - 1].second) << "step " << step << " position " << p;
      }
    }
    expectValid(c);
  }
}

}  // namespace
}  // namespace ql
