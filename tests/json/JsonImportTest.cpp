// Export and import of the JSON disk-usage format: a tree written and read back is the tree a
// walk builds, the text does not depend on the threads, and bad input leaves nothing behind.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <QDir>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <chrono>
#include <functional>
#include <thread>

#include "TestFiles.h"
#include "TestFs.h"
#include "json/JsonExport.h"
#include "json/JsonImport.h"
#include "json/Zstd.h"

namespace ql::test {
namespace {

std::string readAll(const std::string& file) { return readFile(file).toStdString(); }

// The export without its first line (the metadata holds the time).
std::string body(const std::string& json) { return json.substr(json.find('\n') + 1); }

ImportResult importText(const std::string& text, ReportTree& tree, ImportOptions o = {}) {
  TempDir d;
  writeFile(d / "in.json", QByteArray::fromStdString(text));
  return importJsonFile(d / "in.json", tree, o);
}

struct Collect : FileFeed {
  int64_t minimumSize() const override { return 5; }
  void offer(const FoundFile& f) override { seen.push_back(f.folder + std::string(f.name) + "=" + std::to_string(f.size)); }
  std::vector<std::string> seen;
};

// Odd names, hard links, links to files and folders, empty and nested folders, a fifo.
void makeMixedTree(const TempDir& d) {
  for (const char* dir : {"a", "a/b", "a/b/c", "empty", "\xff\xfe odd\n\"name\\"}) makeDir(d / dir);
  makeFile(d / "\xff\xfe odd\n\"name\\/in\x01side", 7);
  makeFile(d / "top", 100);
  makeFile(d / "a/one", 10);
  makeFile(d / "a/b/c/deep", 1000);
  makeFile(d / "a/b/two", 3);
  ASSERT_EQ(::link((d / "a/one").c_str(), (d / "a/b/c/hard").c_str()), 0);
  ASSERT_EQ(::symlink("top", (d / "tolink").c_str()), 0);
  ASSERT_EQ(::symlink("a/b", (d / "dirlink").c_str()), 0);
  ASSERT_EQ(::mkfifo((d / "a/fifo").c_str(), 0644), 0);
}

TEST(JsonExport, ReadBackEqualsAWalkAndKeepsFiles) {
  TempDir d;
  makeMixedTree(d);
  Walked walked;
  walk(walked, d.path());

  TempDir out;
  const ExportResult e = exportJsonToFile(d.path(), out / "x.json", 2);
  ASSERT_TRUE(e.ok) << e.error;
  ReportTree tree;
  ImportedFiles files;
  Collect feed;
  const ImportOptions o{.feed = &feed, .files = &files, .progress = {}};
  const ImportResult r = importJsonFile(out / "x.json", tree, o);
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(dump(tree), dump(walked.tree));
  EXPECT_EQ(r.size, walked.tree.node(walked.root).size);

  // The files of a folder, raw names and both sizes, for a later file list.
  const uint32_t odd = rows(tree, r.root).at("\xff\xfe odd\n\"name\\");
  ASSERT_EQ(files.count(odd), 1u);
  EXPECT_EQ(files.file(odd, 0).name, "in\x01side");
  EXPECT_EQ(files.file(odd, 0).asize, 7);
  EXPECT_EQ(files.count(r.root), 2u);  // top and the link to it; the link to a folder is a row
  const uint32_t c = rows(tree, rows(tree, rows(tree, r.root).at("a")).at("b")).at("c");
  EXPECT_EQ(files.count(c), 2u);
  // Every file of at least the feed's minimum, with its folder; both names of the hard link.
  std::vector<std::string> expected{d.path() + "/\xff\xfe odd\n\"name\\/in\x01side=7", d.path() + "/a/b/c/deep=1000",
                                    d.path() + "/a/b/c/hard=10", d.path() + "/a/one=10", d.path() + "/top=100"};
  std::sort(feed.seen.begin(), feed.seen.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(feed.seen, expected);

  // A second import adds a second root; a failed one after it takes back only its own.
  ASSERT_TRUE(importJsonFile(out / "x.json", tree, o).ok);
  const ImportedFiles::Mark before = files.mark();
  const std::string text = readAll(out / "x.json");
  EXPECT_FALSE(importText(text.substr(0, text.size() / 2), tree, o).ok);
  EXPECT_EQ(tree.roots().size(), 2u);
  EXPECT_EQ(files.mark().records, before.records);
  EXPECT_EQ(files.count(odd), 1u);
}

TEST(JsonExport, SameTextForAnyThreadCount) {
  TempDir d;
  // Wide and deep enough that the workers read far ahead of the writer.
  for (int i = 0; i < 40; ++i) {
    const std::string top = d / ("t" + std::to_string(i));
    makeDir(top);
    for (int j = 0; j < 15; ++j) {
      makeDir(top + "/s" + std::to_string(j));
      makeDir(top + "/s" + std::to_string(j) + "/x");
      makeFile(top + "/s" + std::to_string(j) + "/x/f", i * 100 + j);
      makeFile(top + "/f" + std::to_string(j), j);
    }
  }
  TempDir out;
  std::string first;
  for (int threads : {1, 2, 3, 8}) {
    for (int run = 0; run < 2; ++run) {
      const ExportResult e = exportJsonToFile(d.path(), out / "x.json", threads);
      ASSERT_TRUE(e.ok) << e.error;
      EXPECT_EQ(e.folders, 1u + 40 * 31);
      const std::string text = body(readAll(out / "x.json"));
      if (first.empty()) first = text;
      EXPECT_EQ(text, first) << threads << " threads";
    }
  }
  EXPECT_EQ(QDir(qpath(out.path())).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList{"x.json"});  // no temporary file left
}

TEST(JsonExport, UnreadableFolderIsMarkedAndAFullDeviceIsAWriteError) {
  TempDir d;
  makeDir(d / "closed");
  makeFile(d / "closed/f", 5);
  makeFile(d / "open", 4);
  ASSERT_EQ(::chmod((d / "closed").c_str(), 0), 0);
  TempDir out;
  ASSERT_EQ(::chmod(out.path().c_str(), 0777), 0);
  auto run = [&] {
    const ExportResult e = exportJsonToFile(d.path(), out / "x.json", 2);
    if (!e.ok) return e.error;
    ReportTree tree;
    const ImportResult r = importJsonFile(out / "x.json", tree);
    const std::string json = readAll(out / "x.json");
    return std::to_string(r.size) + (json.find("\"closed\",\"asize\":") != std::string::npos &&
                                              json.find("\"read_error\":true") != std::string::npos
                                          ? " marked"
                                          : " unmarked");
  };
  // Root reads everything: drop to nobody.
  const std::string result =
      ::geteuid() != 0 ? run() : inChild([&] { return dropRoot() ? run() : std::string("no drop"); });
  EXPECT_EQ(result, "4 marked");

  // A full device: the error is a write error (a missing source or folder: JsonCommandLineTest).
  if (::access("/dev/full", W_OK) == 0) {
    const int full = ::open("/dev/full", O_WRONLY);
    const ExportResult e = exportJson(d.path(), full, 2);
    ::close(full);
    EXPECT_FALSE(e.ok);
    EXPECT_TRUE(e.writeFailed);
  }
}

TEST(JsonImport, BadInputGivesTheByteAndNoTree) {
  const std::string head = R"([1,2,{"progname":"x"},)";
  const std::string good = head + R"([{"name":"/r"},{"name":"f","asize":5},[{"name":"d"},{"name":"g","asize":2}]]])";
  struct Case {
    std::string text;
    size_t offset;  // where the reader stops; npos: only that it fails
  };
  const std::string deep(100000, '[');
  const std::vector<Case> cases = {
      {good.substr(0, good.size() - 3), good.size() - 3},  // truncated
      {good.substr(0, 40), 40},
      {"", 0},
      {"hello", 0},
      {"{\"a\":1}", 0},
      {R"([2,0,{},[{"name":"/r"}]])", 2},  // another major version
      {R"(["1",2,{},[{"name":"/r"}]])", std::string::npos},
      {head + deep, std::string::npos},  // deep nesting where a folder should be
      {head + R"([{"name":"/r"},)" + deep, std::string::npos},
      {head + R"([{"name":"/r"},{"name":"f","asize":-5}]])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":"f","asize":"5"}]])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":"f","dsize":1.5}]])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":"f","asize":99999999999999999999}]])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":"a/b"}]])", std::string::npos},
      {head + R"([{"name":"/r"},{"asize":1}]])", std::string::npos},
      {head + R"([{"name":"/r"},[]]])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":"f"}] trailing])", std::string::npos},
      {head + R"([{"name":"/r"},{"name":")" + std::string(kMaxImportName + 1, 'n') + "\"}]]",
       std::string::npos},
      {head + R"([{"name":"/r"},{"name":"x","asize":9223372036854775807},{"name":"y","asize":1}]])",
       std::string::npos},  // the sum overflows
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    ReportTree tree;
    ImportedFiles files;
    const ImportResult r = importText(cases[i].text, tree, {.files = &files, .progress = {}});
    EXPECT_FALSE(r.ok) << i;
    EXPECT_FALSE(r.error.isEmpty()) << i;
    EXPECT_TRUE(tree.empty()) << i;
    EXPECT_EQ(files.count(1), 0u) << i;
    if (cases[i].offset != std::string::npos) {
      EXPECT_EQ(r.errorOffset, cases[i].offset) << i << " " << r.error.toStdString();
    }
    EXPECT_LE(r.errorOffset, cases[i].text.size()) << i;
  }

  // The same export whole reads; a duplicate name counts twice, as two names of a listing would.
  ReportTree tree;
  ImportResult r = importText(good, tree);
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(r.size, 7);
  EXPECT_EQ(tree.text(r.root), "/r");
  r = importText(head + R"([{"name":"/r"},{"name":"f","asize":5},{"name":"f","asize":5},)"
                        R"({"name":"m","excluded":"othfs"},{"name":"p","excluded":"pattern"}], {"later":[1]}])",
                 tree);
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(r.size, 10);
  EXPECT_EQ(r.files, 2);
  EXPECT_EQ(r.folders, 2);  // the excluded entries are rows, never entered
  EXPECT_TRUE(tree.hasFlag(rows(tree, r.root).at("m"), ReportTree::Junction));
  // Deep nesting inside the metadata is passed over without recursion.
  std::string deepMeta = "[1,2,{\"a\":";
  for (int i = 0; i < 100000; ++i) deepMeta += "{\"a\":";
  deepMeta += "1" + std::string(100001, '}') + R"(,[{"name":"/r"}]])";
  r = importText(deepMeta, tree);
  EXPECT_TRUE(r.ok) << r.error.toStdString();

  // Nesting past what the reader can hold is named as such, at the bracket that goes too deep.
  const std::string open = R"([1,2,{"m":)";
  r = importText(open + std::string(2 * kMaxImportDepth, '['), tree);
  EXPECT_FALSE(r.ok);
  const uint64_t at = open.size() + kMaxImportDepth - 2;  // two levels are open before it
  EXPECT_EQ(r.errorOffset, at);
  EXPECT_TRUE(r.error.contains(QString::number(kMaxImportDepth))) << r.error.toStdString();
}

// A file in the shape the other tool writes with its extended information: keys we do not
// use, a hard link named twice, a folder that could not be read, every kind of exclusion, and
// a folder of another device that it entered.
TEST(JsonImport, ExtendedExportOfTheOtherToolReadsByOurRules) {
  const std::string text = R"([1,2,{"progname":"other","progver":"1.18","timestamp":1700000000},
[{"name":"/srv/data","asize":4096,"dsize":4096,"dev":2049,"ino":2,"uid":0,"gid":0,"mode":16877,"mtime":1700000000},
{"name":"a.bin","asize":1000,"dsize":4096,"ino":11,"uid":1000,"gid":1000,"mode":33188,"mtime":1600000000},
{"name":"hard1","asize":300,"dsize":4096,"ino":12,"nlink":2,"hlnkc":true},
[{"name":"sub","asize":4096,"dsize":4096,"ino":13},
{"name":"hard2","asize":300,"dsize":4096,"ino":12,"nlink":2,"hlnkc":true},
[{"name":"locked","asize":4096,"dsize":4096,"ino":14,"read_error":true}]],
{"name":"mnt","asize":4096,"dsize":4096,"excluded":"othfs"},
{"name":"cache","excluded":"pattern"},
{"name":"proc","excluded":"kernfs"},
{"name":"lnk","asize":4096,"excluded":"frmlnk"},
[{"name":"other","asize":4096,"dsize":4096,"dev":2050,"ino":2},
{"name":"b","asize":50,"dsize":4096,"ino":3}]]]
)";
  ReportTree tree;
  ImportedFiles files;
  const ImportResult r = importText(text, tree, {.files = &files, .progress = {}});
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  // Logical sizes of files only, every name of a hard link, folders adding nothing.
  EXPECT_EQ(tree.node(r.root).size, 1000 + 300 + 300 + 50);
  EXPECT_EQ(tree.node(r.root).files, 4);
  const auto top = rows(tree, r.root);
  for (const char* excluded : {"mnt", "cache", "proc", "lnk"}) {
    ASSERT_TRUE(top.count(excluded)) << excluded;
    EXPECT_TRUE(tree.hasFlag(top.at(excluded), ReportTree::Junction)) << excluded;
    EXPECT_EQ(tree.node(top.at(excluded)).size, 0) << excluded;
  }
  EXPECT_EQ(tree.node(top.at("Dateien")).size, 1300);
  EXPECT_EQ(tree.node(top.at("Dateien")).files, 2);
  const auto sub = rows(tree, top.at("sub"));
  EXPECT_EQ(tree.node(top.at("sub")).size, 300);
  EXPECT_EQ(tree.node(sub.at("locked")).size, 0);
  EXPECT_EQ(tree.node(sub.at("Dateien")).size, 300);
  EXPECT_EQ(tree.node(top.at("other")).size, 50);
  EXPECT_FALSE(rows(tree, top.at("other")).count("Dateien"));  // own files only beside subfolders
  EXPECT_EQ(files.count(top.at("other")), 1u);
}

// Imports what `send` writes into a pipe from another thread; the pipe's end is closed after it.
ImportResult importFromPipe(ReportTree& tree, const std::function<void(int fd)>& send) {
  int fds[2];
  if (::pipe(fds) != 0) return {};
  ::signal(SIGPIPE, SIG_IGN);
  std::thread writer([&] {
    send(fds[1]);
    ::close(fds[1]);
  });
  const ImportResult r = importJson(fds[0], tree);
  ::close(fds[0]);
  writer.join();
  return r;
}

// A compressed export through a pipe, a few bytes at a time: its first bytes come in pieces, its
// text spans several buffers of the reader and two frames.
TEST(JsonImport, CompressedFromAPipeInPieces) {
  std::string text = R"([1,2,{},[{"name":"/r"},[{"name":"sub"})";
  for (int i = 0; i < 20000; ++i)
    text += R"(,{"name":"f)" + std::to_string(i) + R"(","asize":)" + std::to_string(i) + "}";
  text += "]]]";
  ReportTree plain, tree;
  ASSERT_TRUE(importText(text, plain).ok);

  TempDir d;
  const int file = ::open((d / "x.zst").c_str(), O_CREAT | O_WRONLY, 0600);
  const size_t half = text.size() / 2;
  ASSERT_EQ(ZstdWriter().write(file, std::string_view(text).substr(0, half), true), 0);
  ASSERT_EQ(ZstdWriter().write(file, std::string_view(text).substr(half), true), 0);
  ::close(file);
  const std::string packed = readAll(d / "x.zst");
  ASSERT_LT(packed.size(), text.size() / 4);

  const ImportResult r = importFromPipe(tree, [&packed](int fd) {
    for (size_t at = 0, piece = 1; at < packed.size(); at += piece, piece = at < 8 ? 1 : 997) {
      if (::write(fd, packed.data() + at, std::min(piece, packed.size() - at)) < 0) break;
      // Each of the first bytes is read on its own: the next comes once the pipe is empty.
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      for (int queued = 1; at < 8 && queued > 0 && std::chrono::steady_clock::now() < deadline;) {
        pollfd gone{fd, 0, 0};
        if (::ioctl(fd, FIONREAD, &queued) != 0 ||
            (::poll(&gone, 1, 0) == 1 && (gone.revents & POLLERR)))
          break;
      }
    }
  });
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(r.files, 20000);
  EXPECT_EQ(dump(tree), dump(plain));
}

TEST(JsonImport, DeepTreeAndHugeStringFromAPipe) {
  // A chain of 300,000 folders reads without recursion, in time linear in its depth (the
  // figure is in bench/importbench), sums up to the top and knows the path of its deepest folder.
  constexpr int kDepth = 300000;
  std::string deep = R"([1,2,{},[{"name":"/r"})", path = "/r";
  for (int i = 0; i < kDepth; ++i) {
    deep += i % 2 ? R"(,[{"name":"d"})" : R"(,[{"name":"e"})";
    path += i % 2 ? "/d" : "/e";
  }
  deep += R"(,{"name":"f","asize":3})" + std::string(kDepth + 1, ']') + "]";
  ReportTree tree, tree2;
  ImportResult r = importText(deep, tree);
  ASSERT_TRUE(r.ok) << r.error.toStdString();
  EXPECT_EQ(r.folders, kDepth);
  uint32_t bottom = r.root;
  while (!tree.children(bottom).empty()) bottom = tree.children(bottom).front();
  EXPECT_EQ(tree.node(tree.children(r.root).at(0)).size, 3);
  EXPECT_EQ(tree.level(bottom), static_cast<uint32_t>(kDepth));
  EXPECT_TRUE(tree.fullPath(bottom) == path);  // not printed when it fails

  // A name of a gigabyte is refused long before it is held.
  r = importFromPipe(tree2, [](int fd) {
    const std::string start = R"([1,2,{},[{"name":"/r"},{"name":")", chunk(1 << 20, 'n');
    if (::write(fd, start.data(), start.size()) < 0) return;
    for (int i = 0; i < 1024; ++i)
      if (::write(fd, chunk.data(), chunk.size()) < 0) break;
  });
  EXPECT_FALSE(r.ok);
  EXPECT_LT(r.errorOffset, 200u << 20);
  EXPECT_TRUE(tree2.empty());
}

}  // namespace
}  // namespace ql::test
