#include "support/StringCollection.h"

#include <gtest/gtest.h>

#include <QStringList>
#include <algorithm>
#include <random>
#include <vector>

namespace ql {
namespace {

TEST(StringCollection, DuplicatesFollowCompareModeAndBeforeAfterPlaceItems) {
  const struct {
    int mode;
    QString first, second;
    bool duplicate;
  } cases[] = {{1, "Key", "kEY", true},
               {0, "Key", "kEY", false},
               {1, "Ä", "ä", true},
               {1, "ß", "SS", false},
               {1, "\U00010400", "\U00010428", true}};
  for (const auto& k : cases) {
    SCOPED_TRACE(k.second.toStdString() + " mode " + std::to_string(k.mode));
    CStringCollection c;
    c.setCompareMode(k.mode);
    c.Add("one", k.first);
    EXPECT_EQ(c.Add("two", k.second), k.duplicate ? 0 : 2);
    EXPECT_EQ(c.Key(1), k.first);  // the held key keeps its case
    EXPECT_EQ(c.Item(k.second), k.duplicate ? "one" : "two");
    if (k.duplicate) {
      EXPECT_THROW(c.Add("x", k.second, {.RaiseError = true}), CollectionError);
    }
  }

  CStringCollection c;
  for (const char* k : {"a", "b", "c"}) c.Add(QString(k).toUpper(), k);
  c.Add("X", "x", {.Before = CollectionKey("b")});
  c.Add("Y", "y", {.After = CollectionKey(4)});
  c.Add("Z", "Z", {.Before = CollectionKey(1)});
  EXPECT_EQ(c.Add("W", "w", {.After = CollectionKey("Z")}), 2);
  // A miss adds nothing (the random run covers the quiet one).
  EXPECT_THROW(c.Add("N", "n", {.After = CollectionKey(0), .RaiseError = true}), CollectionError);
  QStringList order;
  for (int p = 1; p <= c.Count(); ++p) order << c.Item(p);
  EXPECT_EQ(order, QStringList({"Z", "W", "A", "X", "B", "C", "Y"}));
  EXPECT_EQ(c.Item("nope"), "");

  // A key indexed under one mode leaves the index cleanly under the other.
  c.setCompareMode(0);
  EXPECT_EQ(c.Remove(1), 1);
  c.setRaiseError(true);
  EXPECT_THROW(c.Item("z"), CollectionError);
}

// Many random operations against a plain list, everything compared after each.
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
  struct Entry {
    QString key, item;
  };
  std::vector<Entry> m;  // the model
  const auto find = [&](const QString& key) {  // position from 1, 0 if missing
    for (size_t i = 0; !key.isEmpty() && i < m.size(); ++i)
      if (mode ? m[i].key.toLower() == key.toLower() : m[i].key == key) return int(i) + 1;
    return 0;
  };
  CStringCollection c;
  c.setCompareMode(mode);
  int serial = 0, middleRemovals = 0, maxCount = 0, duplicates = 0;

  for (int step = 0; step < 8000; ++step) {
    SCOPED_TRACE(step);
    if (step == 6000) c.Clear(), m.clear();  // the text table is cleared and filled again
    const int n = int(m.size());
    int op = pick(100);
    if (op >= 45 && op < 75 && n < 150 && pick(2)) op = pick(45);  // grow past 100 items
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
      duplicates += held != 0;
      const bool added = !held && position;
      ASSERT_EQ(c.Add(text, key, options), added ? position : 0);
      if (added) m.insert(m.begin() + position - 1, Entry{key, text});
    } else if (op < 75) {
      ASSERT_EQ(c.Remove(randomAddress(position)), position);
      if (position) m.erase(m.begin() + position - 1);
      middleRemovals += position > 0 && position <= n - 1;
    } else {
      const CollectionKey address = randomAddress(position);
      const QString text = "c" + QString::number(++serial);
      if (!position) {
        EXPECT_THROW(c.setItem(address, text), CollectionError);
      }
      if (position) c.setItem(address, text), m[position - 1].item = text;
    }

    ASSERT_EQ(c.Count(), int(m.size()));
    for (int p = 1; p <= c.Count(); ++p) {
      const Entry& e = m[p - 1];
      ASSERT_EQ(c.Item(p), e.item) << "position " << p;
      ASSERT_EQ(c.Key(p), e.key) << "position " << p;
      if (!e.key.isEmpty()) {
        ASSERT_EQ(c.Item(lookupForm(e.key)), e.item);
      }
    }
    if (position == 0) {
      ASSERT_EQ(c.Item(randomKey() + "#"), "");
    }
    maxCount = std::max(maxCount, c.Count());
  }
  // The run must have reached the cases it is for.
  EXPECT_GT(middleRemovals, 100);
  EXPECT_GT(duplicates, 100);
  EXPECT_GT(maxCount, 100);
}

INSTANTIATE_TEST_SUITE_P(CompareModes, RandomOperations, ::testing::Values(0, 1));

}  // namespace
}  // namespace ql
