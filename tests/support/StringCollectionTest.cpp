#include "support/StringCollection.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace ql {
namespace {

TEST(StringCollection, DuplicatesFollowCompareModeAndBeforeAfterPlaceItems) {
  const struct {
    int mode;
    QString first, second;
    bool duplicate;
  } cases[] = {{1, "Key", "kEY", true}, {0, "Key", "kEY", false}, {1, "Ä", "ä", true},
               {1, "ß", "SS", false}};
  for (const auto& k : cases) {
    SCOPED_TRACE(k.second.toStdString() + " mode " + std::to_string(k.mode));
    CStringCollection c;
    c.setCompareMode(k.mode);
    c.Add("one", k.first, 7);
    EXPECT_EQ(c.Add("two", k.second, 9), k.duplicate ? 0 : 2);
    EXPECT_EQ(c.Key(1), k.first);  // the held key keeps its case
    EXPECT_EQ(c.Item(k.second), k.duplicate ? "one" : "two");
    if (k.duplicate) { EXPECT_THROW(c.Add("x", k.second, 0, {.RaiseError = true}), CollectionError); }
  }

  CStringCollection c;
  for (const char* k : {"a", "b", "c"}) c.Add(QString(k).toUpper(), k);
  c.Add("X", "x", 0, {.Before = CollectionKey("b")});
  c.Add("Y", "y", 0, {.After = CollectionKey(4)});
  c.Add("Z", "z", 0, {.Before = CollectionKey(1)});
  c.Add("W", "w", 0, {.After = CollectionKey("Z")});
  // A miss adds nothing (the random run covers the quiet one).
  EXPECT_THROW(c.Add("N", "n", 0, {.After = CollectionKey(0), .RaiseError = true}), CollectionError);
  QStringList order;
  for (int p = 1; p <= c.Count(); ++p) order << c.Item(p);
  EXPECT_EQ(order, QStringList({"Z", "W", "A", "X", "B", "C", "Y"}));
  EXPECT_EQ(c.Item("nope"), "");
}

// Many random operations against a plain list, everything compared after each.
struct Entry {
  QString key, item;
  int tag, node;  // node: the number of the node that holds it
};

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
  // Under mode 1 a key is found in any case.
  const auto lookupForm = [&](const QString& key) { return mode ? key.toUpper() : key; };
  std::vector<Entry> m;
  const auto find = [&](const QString& key) {  // position from 1, 0 if missing
    for (size_t i = 0; !key.isEmpty() && i < m.size(); ++i)
      if (mode ? m[i].key.toLower() == key.toLower() : m[i].key == key) return int(i) + 1;
    return 0;
  };
  CStringCollection c;
  c.setCompareMode(mode);
  int serial = 0, twoChildRemovals = 0, maxCount = 0, duplicates = 0;

  for (int step = 0; step < 8000; ++step) {
    SCOPED_TRACE(step);
    if (step == 6000) {  // the text table is cleared and filled again
      EXPECT_EQ(c.Clear(), 0);
      m.clear();
    }
    const int n = int(m.size());
    int op = pick(100);
    if (op >= 45 && op < 75 && n < 150 && pick(2)) op = pick(45);  // grow past the first 100
    // An address of a held item by position, by key, or of nothing.
    const auto randomAddress = [&](int& position) -> CollectionKey {
      position = n ? pick(n) + 1 : 0;
      if (position && !m[position - 1].key.isEmpty() && pick(2))
        return lookupForm(m[position - 1].key);
      if (pick(10) == 0) {
        position = 0;
        return pick(2) ? CollectionKey(n + 1) : CollectionKey("#none");
      }
      return position;
    };

    int position = 0;
    if (op < 45) {  // add, at the end, before or after
      const QString key = op < 4 ? QString() : randomKey();
      const QString text = "t" + QString::number(++serial);
      CStringCollection::AddOptions options;
      position = n + 1;
      if (op % 3 == 1 && n) {
        options.Before = randomAddress(position);
      } else if (op % 3 == 2 && n) {
        options.After = randomAddress(position);
        if (position) ++position;
      }
      const int held = find(key);
      const int node = c.Add(text, key, serial, options);
      duplicates += held != 0;
      if (held || position == 0) {
        ASSERT_EQ(node, 0);
      } else {
        ASSERT_GT(node, 0);
        m.insert(m.begin() + position - 1, Entry{key, text, serial, node});
      }
    } else if (op < 75) {
      const CollectionKey address = randomAddress(position);
      const int usedBefore = c.freeListUpperBound();
      ASSERT_EQ(c.Remove(address), position);
      if (position) {
        const int gone = m[position - 1].node;
        m.erase(m.begin() + position - 1);
        // The freed number comes back first: if it is not the removed item's own, the successor
        // moved into that node and keeps its position.
        const int freed = c.Add("probe");
        if (freed != gone) {
          const auto moved =
              std::find_if(m.begin(), m.end(), [&](const Entry& e) { return e.node == freed; });
          ASSERT_NE(moved, m.end());
          moved->node = gone;
          ++twoChildRemovals;
        }
        const int last = c.Count();
        ASSERT_EQ(c.Remove(last), last);
      }
      ASSERT_EQ(c.freeListUpperBound(), usedBefore);
    } else if (op < 88) {
      const CollectionKey address = randomAddress(position);
      const QString text = "c" + QString::number(++serial);
      if (!position) {
        EXPECT_THROW(c.setItem(address, text), CollectionError);
      } else if (op % 2) {
        c.setItem(address, text);
        m[position - 1].item = text;
      } else {
        c.ChangeValues(address, text, serial);
        m[position - 1] = {m[position - 1].key, text, serial, m[position - 1].node};
      }
    } else {
      c.setTag(randomAddress(position), ++serial);
      if (position) m[position - 1].tag = serial;
    }

    ASSERT_EQ(c.Count(), int(m.size()));
    for (int p = 1; p <= c.Count(); ++p) {
      const Entry& e = m[p - 1];
      ASSERT_EQ(c.Item(p), e.item) << "position " << p;
      ASSERT_EQ(c.Key(p), e.key) << "position " << p;
      ASSERT_EQ(c.Tag(p), e.tag) << "position " << p;
      if (!e.key.isEmpty()) { ASSERT_EQ(c.Item(lookupForm(e.key)), e.item); }
    }
    std::string why;
    ASSERT_TRUE(c.checkInvariants(&why)) << why;
    maxCount = std::max(maxCount, c.Count());
  }
  // The run must have reached the cases it is for.
  EXPECT_GT(twoChildRemovals, 100);
  EXPECT_GT(duplicates, 100);
  EXPECT_GT(maxCount, 100);
}

INSTANTIATE_TEST_SUITE_P(CompareModes, RandomOperations, ::testing::Values(0, 1));

}  // namespace
}  // namespace ql
