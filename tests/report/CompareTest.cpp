// Two measurements side by side: the rows against a plain model of both trees, and the
// comparison from the command line.

#include <gtest/gtest.h>

#include <QFile>
#include <map>
#include <optional>
#include <tuple>

#include "TestFiles.h"
#include "TestFs.h"
#include "TestProcess.h"
#include "report/Compare.h"

namespace ql::test {
namespace {

// One side as paths below its root ("" is the root), "[Dateien]" for a folder's files row, each
// with its size and files; parents come before their children.
struct Entry {
  std::string path;
  int64_t size, files;
};
using Side = std::vector<Entry>;

std::string parentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

uint32_t build(ReportTree& t, const std::string& rootPath, const Side& side) {
  std::map<std::string, uint32_t> nodes{{"", t.addRoot(rootPath)}};
  for (const Entry& e : side) {
    if (!e.path.empty()) {
      std::string name = e.path.substr(e.path.rfind('/') + 1);
      const bool filesRow = name.front() == '[';
      if (filesRow) name = name.substr(1, name.size() - 2);
      nodes[e.path] =
          t.addChild(nodes.at(parentOf(e.path)), name, filesRow ? 0 : ReportTree::IsFolder);
    }
    t.setSizeAndFiles(nodes.at(e.path), e.size, e.files);
  }
  return nodes.at("");
}

using Cell = std::optional<std::pair<int64_t, int64_t>>;  // size and files; none: not on that side
using Rows = std::map<std::string, std::pair<Cell, Cell>>;

// The model: every path of either side once; a files row that one side lacks while its folder is
// there holds what that folder's subfolders do not.
Cell cellOf(const Side& side, const std::string& path) {
  std::map<std::string, std::pair<int64_t, int64_t>> by;
  for (const Entry& e : side) by[e.path] = {e.size, e.files};
  if (by.count(path)) return by.at(path);
  if (path.back() != ']' || !by.count(parentOf(path))) return std::nullopt;
  auto own = by.at(parentOf(path));
  for (const Entry& e : side)
    if (!e.path.empty() && e.path != parentOf(path) && parentOf(e.path) == parentOf(path))
      own.first -= e.size, own.second -= e.files;
  return own;
}

Rows model(const Side& oldSide, const Side& newSide, size_t maxLevel) {
  Rows rows;
  for (const Side* side : {&oldSide, &newSide})
    for (const Entry& e : *side)
      if (e.path.empty() || size_t(std::count(e.path.begin(), e.path.end(), '/')) < maxLevel)
        rows[e.path] = {cellOf(oldSide, e.path), cellOf(newSide, e.path)};
  return rows;
}

// The rows compareTrees gives, by path, checking on the way that each row comes after its parent.
Rows compared(const Side& oldSide, const Side& newSide, uint32_t maxLevel,
              std::vector<std::string>* order = nullptr) {
  ReportTree oldTree, newTree;
  const uint32_t oldRoot = build(oldTree, "/mnt/old-srv", oldSide);
  const uint32_t newRoot = build(newTree, "/srv", newSide);
  Rows rows;
  std::vector<std::string> paths;  // of the rows above, by level
  for (const CompareRow& r : compareTrees(oldTree, oldRoot, newTree, newRoot, maxLevel)) {
    EXPECT_LE(r.level, paths.size());
    paths.resize(r.level);
    std::string name(compareName(r, oldTree, newTree));
    if (r.filesRow) name = '[' + name + ']';
    const std::string path = r.level == 0 ? "" : r.level == 1 ? name : paths.back() + '/' + name;
    if (r.level == 0) {
      EXPECT_EQ(name, "/srv") << "the root row shows the new side's path";
    }
    paths.push_back(path);
    EXPECT_EQ(r.change(), (r.hasNew ? r.newSize : 0) - (r.hasOld ? r.oldSize : 0));
    const Cell o = r.hasOld ? Cell({r.oldSize, r.oldFiles}) : std::nullopt;
    const Cell n = r.hasNew ? Cell({r.newSize, r.newFiles}) : std::nullopt;
    EXPECT_TRUE(rows.emplace(path, std::pair{o, n}).second) << "twice: " << path;
    if (order) order->push_back(path);
  }
  return rows;
}

TEST(Compare, RowsAreTheUnionOfBothTrees) {
  struct Case {
    const char* what;
    Side oldSide, newSide;
    uint32_t maxLevel = UINT32_MAX;
  };
  const Case cases[] = {
      {"changed, added and removed folders",
       {{"", 1000, 10}, {"a", 600, 6}, {"a/x", 100, 1}, {"b", 400, 4}},
       {{"", 1500, 12}, {"a", 700, 7}, {"a/y", 50, 1}, {"c", 800, 5}}},
      {"a rename is one row gone and one new",
       {{"", 10, 1}, {"docs", 10, 1}},
       {{"", 10, 1}, {"Docs", 10, 1}}},
      {"names are bytes, not text",
       {{"", 30, 3}, {"caf\xe9", 10, 1}, {"\xff\xfe", 20, 2}},
       {{"", 35, 3}, {"caf\xc3\xa9", 10, 1}, {"\xff\xfe", 25, 2}}},
      {"files rows: own files where one side has none, never a folder of that name",
       {{"", 100, 3}, {"a", 60, 2}, {"a/s", 10, 1}, {"a/[Dateien]", 50, 1}, {"[Dateien]", 40, 1}},
       {{"", 200, 5}, {"a", 90, 3}, {"Dateien", 110, 2}}},
      {"levels below the limit are left out",
       {{"", 100, 3}, {"a", 100, 3}, {"a/b", 100, 3}, {"a/b/c", 100, 3}},
       {{"", 100, 3}, {"a", 100, 3}, {"a/b", 90, 2}, {"a/b/d", 90, 2}},
       2},
  };
  for (const Case& c : cases) {
    const Rows want = model(c.oldSide, c.newSide, c.maxLevel);
    EXPECT_EQ(compared(c.oldSide, c.newSide, c.maxLevel), want) << c.what;
  }
}

TEST(Compare, NewSidesOrderFirstThenWhatIsGone) {
  std::vector<std::string> order;
  compared({{"", 9, 3}, {"b", 5, 1}, {"a", 3, 1}, {"a/x", 3, 1}, {"gone", 1, 1}},
           {{"", 9, 3}, {"c", 6, 1}, {"a", 3, 1}, {"a/x", 3, 1}, {"b", 0, 1}}, UINT32_MAX, &order);
  EXPECT_EQ(order, (std::vector<std::string>{"", "c", "a", "a/x", "b", "gone"}));
}

class CompareCommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* dir : {"tree", "tree/a", "tree/a/x", "tree/b", "config"}) makeDir(d / dir);
    makeFile(d / "tree/a/x/f", 1000);
    makeFile(d / "tree/a/g", 500);
    makeFile(d / "tree/b/h", 300);
  }
  QString at(const std::string& name) { return qpath(d / name); }
  Outcome quorlane(const QStringList& args) {
    return runProgram(QUORLANE_BIN_PATH, args, {{"XDG_CONFIG_HOME", at("config")}});
  }
  TempDir d;
};

TEST_F(CompareCommandLine, AnExportAgainstTheFolderNowWhereverItIs) {
  Outcome o = quorlane({"--export", at("old.json"), at("tree")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  // Moved, one folder grown, one gone, one new.
  ASSERT_EQ(::rename((d / "tree").c_str(), (d / "now").c_str()), 0);
  makeFile(d / "now/a/x/f2", 700);
  ASSERT_EQ(std::system(("rm -r '" + d / "now/b" + "'").c_str()), 0);
  makeDir(d / "now/c");
  makeFile(d / "now/c/n", 2000);

  o = quorlane({"-s", at("r.csv"), "--compare", at("old.json"), at("now")});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const QByteArray csv = readFile(at("r.csv"));
  const QByteArray now = QFile::encodeName(at("now"));
  for (const QByteArray& row : {"\"" + now + "\";\"1800\";\"4200\";\"2400\";3;4\r\n",
                                "\"" + now + "/a/x\";\"1000\";\"1700\";\"700\";1;2\r\n",
                                "\"" + now + "/c\";;\"2000\";\"2000\";;1\r\n",
                                "\"" + now + "/b\";\"300\";;\"-300\";1;\r\n"})
    EXPECT_TRUE(csv.contains(row)) << row.toStdString() << "\nin:\n" << csv.toStdString();

  // A damaged old side: the reason, exit status 1, and no report.
  const QByteArray json = readFile(at("old.json"));
  writeFile(at("cut.json"), json.left(json.size() / 2));
  o = quorlane({"-s", at("cut.csv"), "--compare", at("cut.json"), at("now")});
  EXPECT_EQ(o.status, 1);
  EXPECT_TRUE(o.err.contains("cut.json")) << o.err.toStdString();
  EXPECT_FALSE(QFile::exists(at("cut.csv")));
}

}  // namespace
}  // namespace ql::test
