// The rows of the file lists: what a folder read gives, the letters and endings of odd files,
// the order of a sort, and the largest files collected by any number of walk threads.

#include <sys/stat.h>
#include <sys/time.h>
#include <algorithm>
#include <random>

#include "TestFs.h"
#include "lists/FolderFiles.h"
#include "lists/RowSort.h"
#include "lists/TopFiles.h"

namespace ql::test {
namespace {

const FileRow* rowNamed(const std::vector<FileRow>& rows, const std::string& name) {
  for (const FileRow& r : rows)
    if (r.name == name) return &r;
  return nullptr;
}

TEST(FolderFiles, ReadsFilesOnlyWithTheirBytesLettersAndEndings) {
  ensureApp();
  TempDir d;
  makeDir(d / "sub");
  makeFile(d / "sub/inner", 5);
  makeFile(d / "plain.TXT", 3);
  makeFile(d / "archive.tar.gz", 7);
  makeFile(d / ".bashrc", 1);
  makeFile(d / "README", 2);
  const std::string odd = "bad\xff\xfe name\n.txt";
  makeFile(d / odd, 11);
  ASSERT_EQ(::mkfifo((d / "pipe").c_str(), 0644), 0);
  ASSERT_EQ(::symlink((d / "sub").c_str(), (d / "to-folder").c_str()), 0);
  ASSERT_EQ(::symlink((d / "plain.TXT").c_str(), (d / "to-file").c_str()), 0);
  struct timeval times[2] = {{1000000000, 0}, {1200000000, 0}};
  ASSERT_EQ(::utimes((d / "README").c_str(), times), 0);

  std::atomic<bool> stop{false};
  const FolderListing l = readFolderFiles(d.path() + "/", stop);
  EXPECT_EQ(l.error, 0);
  EXPECT_FALSE(l.stopped);
  // No folder and no link to one; everything else is a row.
  EXPECT_EQ(l.rows.size(), 7u);
  EXPECT_EQ(rowNamed(l.rows, "sub"), nullptr);
  EXPECT_EQ(rowNamed(l.rows, "to-folder"), nullptr);

  const FileRow* r = rowNamed(l.rows, odd);
  ASSERT_NE(r, nullptr);  // the name keeps its bytes
  EXPECT_EQ(r->size, 11);
  EXPECT_EQ(r->extension(), "TXT");
  EXPECT_EQ(rowNamed(l.rows, "archive.tar.gz")->extension(), "GZ");
  EXPECT_EQ(rowNamed(l.rows, "to-file")->attributes(), "L");  // the link itself, not its file
  // The type comes from the name alone: the compressed tar is not taken for a plain gzip.
  EXPECT_FALSE(rowNamed(l.rows, "plain.TXT")->type->name.isEmpty());
  EXPECT_NE(rowNamed(l.rows, "archive.tar.gz")->type->name, fileTypeOf("x.gz")->name);
  EXPECT_EQ(rowNamed(l.rows, "README")->modified, 1200000000);
  EXPECT_EQ(rowNamed(l.rows, "README")->accessed, 1000000000);
  int64_t sum = 0;
  for (const FileRow& row : l.rows) sum += row.size;
  EXPECT_EQ(l.total, sum);
}

TEST(FolderFiles, AStoppedReadKeepsItsRowsAndAMissingFolderIsEmpty) {
  TempDir d;
  for (int i = 0; i < 50; ++i) makeFile(d / ("f" + std::to_string(i)), i);
  std::atomic<bool> stop{true};
  const FolderListing stopped = readFolderFiles(d.path(), stop);
  EXPECT_TRUE(stopped.stopped);
  EXPECT_LT(stopped.rows.size(), 50u);

  // More files than one block of the read: each of them once.
  TempDir many;
  constexpr int kMany = 20000;
  for (int i = 0; i < kMany; ++i) makeFile(many / ("f" + std::to_string(i)), 1);
  stop = false;
  const FolderListing all = readFolderFiles(many.path(), stop);
  std::vector<std::string> names;
  for (const FileRow& r : all.rows) names.push_back(r.name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
  EXPECT_EQ(names.size(), static_cast<size_t>(kMany));
  EXPECT_EQ(all.total, kMany);

  stop = false;
  const FolderListing gone = readFolderFiles(d / "missing", stop);
  EXPECT_EQ(gone.error, ENOENT);
  EXPECT_TRUE(gone.rows.empty());
  EXPECT_EQ(gone.total, 0);
}

TEST(RowSort, OneColumnOneDirectionAndAFixedOrderAmongEquals) {
  std::vector<FileRow> rows(4);
  const char* names[] = {"b", "A", "c", "a"};
  const int64_t sizes[] = {5, 5, 9, 1};
  for (int i = 0; i < 4; ++i) {
    rows[i].name = names[i];
    rows[i].size = sizes[i];
    completeRow(rows[i], S_IFREG | 0644, 8, 0);
  }
  std::vector<uint32_t> shown;
  auto order = [&] {
    std::string s;
    for (uint32_t i : shown) s += rows[i].name;
    return s;
  };
  shown = freshOrder(rows, {RowKey::Size, true});
  EXPECT_EQ(order(), "cAba");  // equal sizes: by the name's bytes
  sortOrder(rows, shown, {RowKey::Size, false});
  EXPECT_EQ(order(), "aAbc");
  sortOrder(rows, shown, {RowKey::Name, false});
  EXPECT_EQ(order(), "aAbc");  // case does not count, and equal names keep their order
  sortOrder(rows, shown, {RowKey::Name, true});
  EXPECT_EQ(order(), "cbaA");
  // Names alike in their first eight characters are told apart by the rest.
  rows[0].text = "abcdefghZ";
  rows[1].text = "ABCDEFGHa";
  sortOrder(rows, shown, {RowKey::Name, false});
  EXPECT_LT(std::find(shown.begin(), shown.end(), 1u), std::find(shown.begin(), shown.end(), 0u));
}

// The largest files, checked against a plain sort of everything the tree holds.
TEST(TopFiles, TheSameTreeGivesTheSameListForAnyNumberOfThreads) {
  TempDir d;
  std::mt19937 random(7);
  std::vector<std::pair<int64_t, std::string>> all;
  for (int f = 0; f < 12; ++f) {
    const std::string folder = d / ("d" + std::to_string(f));
    makeDir(folder);
    for (int i = 0; i < 40; ++i) {
      // Few distinct sizes, so that ties at the boundary are the rule.
      const int64_t size = static_cast<int64_t>(random() % 12) * 100;
      const std::string path = folder + "/f" + std::to_string(i);
      makeFile(path, size);
      all.emplace_back(size, path);
    }
  }
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  for (int limit : {5, 37, 999}) {
    for (int threads : {1, 2, 8}) {
      SCOPED_TRACE(testing::Message() << limit << " " << threads);
      auto top = std::make_shared<TopFiles>(limit);
      Walked w;
      ScanDriver driver(w.tree, test::testStop);
      driver.setSettings({.threads = threads, .mode = {}, .excludes = {}});
      driver.setFeedFactory([top] { return top; });
      driver.sourceQueue().push_back(d.path());
      driver.runToEnd();
      const std::vector<FileRow> rows = top->result();
      ASSERT_EQ(rows.size(), std::min<size_t>(static_cast<size_t>(limit), all.size()));
      for (size_t i = 0; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].folder() + rows[i].name, all[i].second) << i;
        ASSERT_EQ(rows[i].size, all[i].first);
      }
    }
  }
}

// The limit stays between 5 and 999, and nothing smaller than a full set's smallest is asked for
// again.
TEST(TopFiles, TheLimitAndAFullSet) {
  EXPECT_EQ(TopFiles(0).limit(), 5);
  EXPECT_EQ(TopFiles(5000).limit(), 999);
  TopFiles top(5);
  const int64_t sizes[] = {9, 8, 7, 6, 5, 4, 3};
  for (int64_t s : sizes) {
    const std::string name = "n" + std::to_string(s);
    top.offer({.folder = "/x/", .name = name, .size = s});
  }
  const auto rows = top.result();
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows.front().size, 9);
  EXPECT_EQ(rows.back().size, 5);
  EXPECT_EQ(top.minimumSize(), 5);
}

}  // namespace
}  // namespace ql::test
