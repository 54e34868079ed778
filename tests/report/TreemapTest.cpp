// The treemap's layout, picking, picture and the file-types table.

#include <gtest/gtest.h>

#include <unistd.h>
#include <QImage>
#include <array>
#include <filesystem>
#include <map>
#include <random>

#include "TestFiles.h"
#include "TestProcess.h"
#include "app/TreemapRun.h"
#include "treemap/TreemapLayout.h"
#include "treemap/TreemapPainter.h"

using namespace ql;
using namespace ql::test;

namespace {

// Checks what every layout must hold: each rectangle inside its folder's inside, none overlapping
// another of its depth, none empty.
void expectSound(const TreemapTree& tree, const TreemapLayout& l) {
  std::vector<uint32_t> parent(tree.folders.size(), 0);
  for (uint32_t f = 0; f < tree.folders.size(); ++f)
    for (uint32_t c : tree.folders[f].children) parent[c] = f;
  std::map<uint32_t, const TreemapRect*> folderRect;
  for (const TreemapRect& r : l.rects)
    if (r.type == TreemapRect::Folder) folderRect[r.folder] = &r;
  std::vector<int> stamp(static_cast<size_t>(l.width) * l.height, -1);
  for (size_t i = 0; i < l.rects.size(); ++i) {
    const TreemapRect& r = l.rects[i];
    ASSERT_GE(r.w, 1);
    ASSERT_GE(r.h, 1);
    if (i > 0) {
      const uint32_t holder = r.type == TreemapRect::Folder ? parent[r.folder] : r.folder;
      ASSERT_TRUE(folderRect.count(holder)) << i;
      const TreemapRect& p = *folderRect[holder];
      ASSERT_TRUE(r.x >= p.x + 1 && r.y >= p.y + 1 && r.x + r.w <= p.x + p.w - 1 &&
                  r.y + r.h <= p.y + p.h - 1)
          << "rect " << i << " leaves its folder";
      ASSERT_EQ(r.depth, p.depth + 1);
    }
  }
  // Depth by depth (the rects of a depth lie apart when their folders do).
  std::vector<size_t> order(l.rects.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return l.rects[a].depth < l.rects[b].depth; });
  for (size_t i : order) {
    const TreemapRect& r = l.rects[i];
    for (int y = r.y; y < r.y + r.h; ++y)
      for (int x = r.x; x < r.x + r.w; ++x) {
        int& s = stamp[static_cast<size_t>(y) * l.width + x];
        ASSERT_NE(s, r.depth) << "rect " << i << " overlaps at " << x << "," << y;
        s = r.depth;
      }
  }
}

TreemapTree flat(const std::vector<int64_t>& sizes) {
  TreemapTree t;
  for (int64_t s : sizes) t.addFile(0, s, FileKind::Document);
  t.finish();
  return t;
}

struct Case {
  const char* name;
  TreemapTree tree;
  int width, height;
};

std::vector<Case> makeCases() {
  std::vector<Case> all;
  std::mt19937_64 random(7);
  std::vector<int64_t> mixed;
  for (int i = 0; i < 3000; ++i)
    mixed.push_back(i % 5 == 0 ? 0 : static_cast<int64_t>(random() % 1000000));
  all.push_back({"folder of many files, some empty", flat(mixed), 320, 200});
  std::vector<int64_t> million(1000000);
  for (int64_t& size : million) size = static_cast<int64_t>(random() % 100000);
  all.push_back({"folder of a million files", flat(million), 640, 400});
  std::vector<int64_t> huge(1000000, 1);
  huge.push_back(int64_t{1} << 50);
  all.push_back({"one huge among a million tiny", flat(huge), 300, 300});
  TreemapTree chain;
  uint32_t at = 0;
  for (int i = 0; i < 10000; ++i) {
    chain.addFile(at, 1000, FileKind::Code);
    at = chain.addFolder(at, "d");
  }
  chain.finish();
  all.push_back({"chain of 10000 folders", std::move(chain), 300, 200});
  TreemapTree nested;
  std::vector<uint32_t> made{0};
  for (int i = 0; i < 400; ++i) {
    const uint32_t f = nested.addFolder(made[random() % made.size()], "f");
    made.push_back(f);
    for (int k = 0, n = static_cast<int>(random() % 20); k < n; ++k)
      nested.addFile(f, static_cast<int64_t>(random() % 100000000),
                     static_cast<FileKind>(random() % 8));
  }
  nested.finish();
  all.push_back({"nested folders", std::move(nested), 400, 250});
  return all;
}

// Made once: the largest take a while to build.
const std::vector<Case>& cases() {
  static const std::vector<Case> all = makeCases();
  return all;
}

}  // namespace

TEST(TreemapLayout, RectanglesNestWithoutOverlap) {
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.name);
    const TreemapLayout l = layoutTreemap(c.tree, c.width, c.height);
    ASSERT_FALSE(l.rects.empty());
    expectSound(c.tree, l);
  }
}

// Each rectangle is as large as its bytes at the scale of the folder it lies in, within rounding,
// and each folder's inside is tiled: files, subfolders, rest and what rounded away.
TEST(TreemapLayout, AreasFollowSizes) {
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.name);
    const TreemapLayout l = layoutTreemap(c.tree, c.width, c.height);
    std::vector<int64_t> covered(l.rects.size(), 0);
    int wrong = 0;
    for (size_t i = 1; i < l.rects.size(); ++i) {
      const TreemapRect &r = l.rects[i], &p = l.rects[r.parent];
      covered[r.parent] += int64_t{r.w} * r.h;
      if (r.type == TreemapRect::Rest) continue;
      const int64_t size = r.type == TreemapRect::File ? TreemapTree::sizeOf(c.tree.files[r.file])
                                                       : c.tree.folders[r.folder].bytes;
      const double scale =
          (p.w - 2.0) * (p.h - 2.0) / static_cast<double>(c.tree.folders[p.folder].bytes);
      wrong += size <= 0 || std::abs(double(r.w) * r.h - size * scale) > r.w + r.h + 1.0;
    }
    EXPECT_EQ(wrong, 0);
    for (size_t i = 0; i < l.rects.size(); ++i) {
      const TreemapRect& r = l.rects[i];
      if (r.type != TreemapRect::Folder || r.w < 3 || r.h < 3) continue;
      const int64_t inside = int64_t{r.w - 2} * (r.h - 2);
      EXPECT_LE(covered[i], inside) << i;
      EXPECT_GE(covered[i], inside - inside / 100 - r.w - r.h) << i << ": " << r.w << "x" << r.h;
    }
  }
}

TEST(TreemapLayout, PickFindsTheInnermostRectangle) {
  const Case& c = cases()[4];
  const TreemapLayout l = layoutTreemap(c.tree, c.width, c.height);
  int files = 0;
  for (size_t i = 0; i < l.rects.size(); ++i) {
    const TreemapRect& r = l.rects[i];
    if (r.type != TreemapRect::File) continue;
    ++files;
    EXPECT_EQ(pickTreemap(l, r.x + r.w / 2, r.y + r.h / 2), static_cast<int>(i));
    EXPECT_EQ(pickTreemap(l, r.x + r.w - 1, r.y + r.h - 1), static_cast<int>(i));
  }
  EXPECT_GT(files, 50);
  EXPECT_EQ(pickTreemap(l, 0, 0), 0);  // the walked folder's frame
  EXPECT_EQ(pickTreemap(l, c.width, 0), -1);
}

// Whatever order the threads hand folders in, each folder is made once and the tree is the same.
TEST(TreemapCollector, TreeDoesNotDependOnTheOrderOfFolders) {
  const std::vector<std::string> folders = {"", "a/", "a-b/", "a/x/", "a/x/y/", "b/", "a.c/"};
  auto treeOf = [&](std::vector<std::string> order) {
    TreemapCollector collector("/r", true, false);
    for (const std::string& f : order) {
      FoundFile file;
      file.folder = "/r/" + f;
      file.size = static_cast<int64_t>(100 + f.size());  // equal sizes for equal lengths
      file.name = "n.jpg";
      collector.offer(file);
    }
    TreemapTree t = collector.takeTree();
    std::string shape;
    for (const TreemapFolder& f : t.folders) {
      shape += f.name + "(" + std::to_string(f.bytes) + ")[";
      for (uint32_t c : f.children) shape += t.folders[c].name + ",";
      shape += "] ";
    }
    return std::make_pair(t.folders.size(), shape);
  };
  const auto forward = treeOf(folders);
  EXPECT_EQ(forward.first, folders.size());
  EXPECT_EQ(treeOf({folders.rbegin(), folders.rend()}), forward);
  EXPECT_EQ(treeOf({"b/", "a/x/y/", "a-b/", "", "a.c/", "a/", "a/x/"}), forward);
}

// One tree on disk, walked by the program with one and with four threads.
class TreemapRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.made());
    root_ = dir_ / "t";
    makeDir(root_);
    makeDir(root_ + "/media");
    makeFile(root_ + "/media/film.MP4", int64_t{9} << 30);
    makeDir(root_ + "/src");
    for (int i = 0; i < 300; ++i)
      makeFile(root_ + "/src/f" + std::to_string(i) + (i % 3 ? ".cpp" : ".H"), i * 997);
    for (const char* name : {"README", ".bashrc", "trailing.", "a.tar.gz", "pic.jpg", "empty.txt"})
      makeFile(root_ + "/" + name, name[0] == 'e' ? 0 : 12345);
    std::string deep = root_;
    for (int i = 0; i < 30; ++i) makeDir(deep += "/d");
    makeFile(deep + "/x.png", 1 << 20);
  }

  ParsedCommandLine job() const {
    ParsedCommandLine j;
    j.sources = {root_};
    return j;
  }

  TempDir dir_;
  std::string root_;
};

TEST_F(TreemapRunTest, SameForAnyThreadCountAndTypesMatchAPlainCount) {
  std::map<std::string, std::pair<int64_t, int64_t>> plain;
  for (const auto& e : std::filesystem::recursive_directory_iterator(root_)) {
    if (!e.is_regular_file()) continue;
    std::string name = e.path().filename().string();
    const std::string_view ext = typeExtension(name);
    std::string lower(ext);
    for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    auto& [files, bytes] = plain[lower];
    ++files;
    bytes += static_cast<int64_t>(e.file_size());
  }
  EXPECT_TRUE(plain.count("") && plain.count("h") && plain.count("gz"));
  std::vector<TreemapLayout> layouts;
  for (const char* threads : {"1", "4"}) {
    ::setenv("QUORLANE_THREADS", threads, 1);
    TreemapCollector collector(root_, true, true);
    ASSERT_EQ(readForTreemap(job(), collector), 0);
    std::map<std::string, std::pair<int64_t, int64_t>> counted;
    for (const TypeRow& r : collector.types()) counted[r.extension] = {r.files, r.bytes};
    EXPECT_EQ(counted, plain) << threads;
    layouts.push_back(layoutTreemap(collector.takeTree(), 500, 300));
  }
  ::unsetenv("QUORLANE_THREADS");
  ASSERT_EQ(layouts[0].rects.size(), layouts[1].rects.size());
  for (size_t i = 0; i < layouts[0].rects.size(); ++i) {
    const TreemapRect &a = layouts[0].rects[i], &b = layouts[1].rects[i];
    ASSERT_TRUE(a.x == b.x && a.y == b.y && a.w == b.w && a.h == b.h && a.type == b.type &&
                a.kind == b.kind)
        << i;
  }
}

// A file of several names counts as the report counts it: with links once one name carries its
// bytes, so table and picture add up to the walk's own sum, in both size modes and for any
// number of threads (which name counts does not depend on them).
TEST_F(TreemapRunTest, LinksCountAsTheReportCountsThem) {
  makeDir(root_ + "/l");
  makeDir(root_ + "/l/sub");
  writeFile(root_ + "/l/a.dat", QByteArray(70000, 'x'));
  writeFile(root_ + "/l/sub/e.bin", QByteArray(5000, 'y'));
  writeFile(root_ + "/l/sub/p.bin", QByteArray(3000, 'z'));
  for (const auto& [from, to] : {std::pair{"/l/a.dat", "/l/b.log"},
                                 {"/l/a.dat", "/src/c.dat"},
                                 {"/l/a.dat", "/l/sub/z.dat"},
                                 {"/l/sub/e.bin", "/e2.bin"},
                                 {"/l/sub/p.bin", "/src/p2.bin"}})
    ASSERT_EQ(::link((root_ + from).c_str(), (root_ + to).c_str()), 0) << to;
  struct : WalkSink {
    void branchDone(uint32_t, ReportTree&&) override {}
    void failure(const WalkFailure& f) override { ADD_FAILURE() << f.path; }
  } sink;
  std::vector<int64_t> reports;
  for (const SizeMode mode :
       {SizeMode{false, true}, SizeMode{true, true}, SizeMode{false, false}}) {
    SCOPED_TRACE(std::to_string(mode.allocated) + std::to_string(mode.linksOnce));
    Stop stop;
    WalkOptions options;
    options.mode = mode;
    FolderWalk walk(options, stop);
    const ScanResult report = walk.scanFolder(root_, sink).total;
    reports.push_back(report.size);
    std::vector<uint64_t> files[2];
    for (int i = 0; i < 2; ++i) {
      ::setenv("QUORLANE_THREADS", i ? "4" : "1", 1);
      ParsedCommandLine j = job();
      j.sizeAllocated = mode.allocated;
      j.linksOnce = mode.linksOnce;
      TreemapCollector collector(root_, true, true, mode.linksOnce);
      ASSERT_EQ(readForTreemap(j, collector), 0);
      int64_t bytes = 0, names = 0;
      for (const TypeRow& r : collector.types()) bytes += r.bytes, names += r.files;
      const TreemapTree tree = collector.takeTree();
      EXPECT_EQ(bytes, report.size);
      EXPECT_EQ(tree.folders[0].bytes, report.size);
      EXPECT_EQ(names, report.files);
      // The first name in path order counts: of l/sub's, only p.bin's.
      auto child = [&](uint32_t folder, std::string_view name) {
        for (uint32_t c : tree.folders[folder].children)
          if (tree.folders[c].name == name) return c;
        return 0u;
      };
      const uint32_t sub = child(child(0, "l"), "sub");
      ASSERT_NE(sub, 0u);
      if (!mode.allocated) {
        EXPECT_EQ(tree.folders[sub].bytes, mode.linksOnce ? 3000 : 78000);
      }
      files[i] = tree.files;
    }
    EXPECT_EQ(files[0], files[1]);
  }
  ::unsetenv("QUORLANE_THREADS");
  EXPECT_EQ(reports[0] + 3 * 70000 + 5000 + 3000, reports[2]);
}

TEST_F(TreemapRunTest, ProgramDrawsTheLargeFileInItsColourAndWritesTheTable) {
  QByteArray pictures[2], tables[2];
  for (int i = 0; i < 2; ++i) {
    const std::string png = dir_ / ("p" + std::to_string(i) + ".png"),
                      csv = dir_ / ("t" + std::to_string(i) + ".csv");
    const Outcome o = runProgram(
        QUORLANE_BIN_PATH,
        {"--treemap", qpath(png), "--size", "400x250", "--types", qpath(csv), qpath(root_)},
        {{"QUORLANE_THREADS", i ? "4" : "1"}, {"DISPLAY", ""}, {"QT_QPA_PLATFORM", ""}});
    ASSERT_EQ(o.status, 0) << o.err.toStdString();
    pictures[i] = readFile(png);
    tables[i] = readFile(csv);
  }
  EXPECT_EQ(pictures[0], pictures[1]);
  EXPECT_EQ(tables[0], tables[1]);
  EXPECT_TRUE(tables[0].startsWith("\"")) << tables[0].left(80).toStdString();
  EXPECT_TRUE(tables[0].contains("\r\n\"mp4\";1;\"9663676416\";\""))
      << tables[0].left(200).toStdString();
  EXPECT_TRUE(tables[0].contains("\r\n\"none\";3;\"37035\";")) << tables[0].toStdString();

  const QImage image = QImage::fromData(pictures[0], "PNG");
  ASSERT_EQ(image.size(), QSize(400, 250));
  // The film is nearly all of the bytes: the middle of the picture is its colour, not another
  // kind's.
  const QColor seen = image.pixelColor(200, 125);
  auto distance = [&](QColor c) {
    return std::abs(c.red() - seen.red()) + std::abs(c.green() - seen.green()) +
           std::abs(c.blue() - seen.blue());
  };
  for (int k = 0; k < static_cast<int>(FileKind::Count); ++k) {
    if (static_cast<FileKind>(k) == FileKind::Video) continue;
    EXPECT_LT(distance(treemapColor(FileKind::Video)),
              distance(treemapColor(static_cast<FileKind>(k))))
        << k;
  }
}

// An export draws and counts as the folder it was made of, in either way of counting links.
TEST_F(TreemapRunTest, AnExportGivesWhatItsFolderGives) {
  ASSERT_EQ(::link((root_ + "/pic.jpg").c_str(), (root_ + "/src/pic2.jpg").c_str()), 0);
  const QString json = qpath(dir_ / "t.json");
  ASSERT_EQ(runProgram(QUORLANE_BIN_PATH, {"--export", json, qpath(root_)}).status, 0);
  for (const QString links : {"each", "once"}) {
    SCOPED_TRACE(links.toStdString());
    const QString png[2] = {qpath(dir_ / "w.png"), qpath(dir_ / "i.png")},
                  csv[2] = {qpath(dir_ / "w.csv"), qpath(dir_ / "i.csv")};
    for (const QStringList& args :
         {QStringList{"--treemap", png[0], "--types", csv[0], qpath(root_)},
          {"--types", csv[1], "--import", json},
          {"--treemap", png[1], "--import", json}}) {
      const Outcome o = runProgram(QUORLANE_BIN_PATH, QStringList{"--links", links} + args,
                                   {{"DISPLAY", ""}, {"QT_QPA_PLATFORM", ""}});
      ASSERT_EQ(o.status, 0) << args.join(' ').toStdString() << o.err.toStdString();
    }
    EXPECT_EQ(readFile(csv[0]), readFile(csv[1]));
    EXPECT_EQ(readFile(csv[0]).contains("\r\n\"jpg\";2;\"12345\";"), links == "once");
    const QImage picture = QImage::fromData(readFile(png[1]), "PNG");
    EXPECT_EQ(picture.size(), QSize(1600, 1000));
    EXPECT_TRUE(picture == QImage::fromData(readFile(png[0]), "PNG"));
  }
}

TEST_F(TreemapRunTest, FailuresEndWithStatusOne) {
  const Outcome missing =
      runProgram(QUORLANE_BIN_PATH, {"--types", qpath(dir_ / "t.csv"), qpath(dir_ / "gone")});
  EXPECT_EQ(missing.status, 1);
  const Outcome unwritable =
      runProgram(QUORLANE_BIN_PATH, {"--treemap", qpath(dir_ / "no/such/p.svg"), qpath(root_)});
  EXPECT_EQ(unwritable.status, 1);
  const Outcome svg =
      runProgram(QUORLANE_BIN_PATH, {"--treemap", qpath(dir_ / "p.svg"), qpath(root_)});
  EXPECT_EQ(svg.status, 0) << svg.err.toStdString();
  EXPECT_TRUE(readFile(dir_ / "p.svg").contains("<svg"));
  EXPECT_EQ(
      runProgram(QUORLANE_BIN_PATH, {"--treemap", "x.png", "--size", "0x5", qpath(root_)}).status,
      2);
  EXPECT_EQ(runProgram(QUORLANE_BIN_PATH, {"--types", "t.csv", "--import", "x.json", qpath(root_)})
                .status,
            2);
  writeFile(dir_ / "cut.json", QByteArray("[1,2,{},[{\"name\":\"/x\"},{\"name\":\"a\",\"asize\":"));
  EXPECT_EQ(runProgram(QUORLANE_BIN_PATH,
                       {"--types", qpath(dir_ / "t.csv"), "--import", qpath(dir_ / "cut.json")})
                .status,
            1);
}

// The file-types pane's rows for a folder: a plain count of the files below it, the same for any
// thread count, with the largest file of each extension found where it lies.
TEST_F(TreemapRunTest, TypesBelowAFolderMatchAPlainCount) {
  const std::string sub = root_ + "/d";
  for (const auto& [name, size] : std::vector<std::pair<std::string, int>>{
           {"a.TXT", 500}, {"d/b.txt", 700}, {"d/d/c.Txt", 600}, {"d/noext", 3}, {"d/d/.rc", 4}})
    makeFile(sub + "/" + name, size);
  std::map<std::string, std::array<int64_t, 3>> plain;  // files, bytes, largest
  for (const auto& e : std::filesystem::recursive_directory_iterator(sub)) {
    if (!e.is_regular_file()) continue;
    std::string ext(typeExtension(e.path().filename().string()));
    for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    auto& [files, bytes, largest] = plain[ext];
    ++files;
    bytes += static_cast<int64_t>(e.file_size());
    largest = std::max(largest, static_cast<int64_t>(e.file_size()));
  }
  ASSERT_EQ(plain.size(), 3u);
  std::vector<std::vector<uint16_t>> extensions;
  for (const char* threads : {"1", "4"}) {
    ::setenv("QUORLANE_THREADS", threads, 1);
    TreemapCollector collector(root_, true, true);
    ASSERT_EQ(readForTreemap(job(), collector), 0);
    const TreemapTree tree = collector.takeTree();
    uint32_t d = 0;
    for (uint32_t c : tree.folders[0].children)
      if (tree.folders[c].name == "d") d = c;
    ASSERT_NE(d, 0u);
    std::map<std::string, std::array<int64_t, 3>> counted;
    for (const TypeRow& r : tree.typesBelow(d)) {
      const TreemapFolder& holder = tree.folders[r.largestFolder];
      ASSERT_TRUE(r.largestFile >= holder.firstFile &&
                  r.largestFile < holder.firstFile + holder.fileCount);
      EXPECT_EQ(tree.extensions[r.largestFile], r.extensionId);
      counted[r.extension] = {r.files, r.bytes, TreemapTree::sizeOf(tree.files[r.largestFile])};
    }
    EXPECT_EQ(counted, plain) << threads;
    // The whole tree's rows are the table's.
    const std::vector<TypeRow> all = tree.typesBelow(0), table = collector.types();
    ASSERT_EQ(all.size(), table.size());
    for (size_t i = 0; i < all.size(); ++i)
      EXPECT_TRUE(all[i].extension == table[i].extension && all[i].files == table[i].files &&
                  all[i].bytes == table[i].bytes)
          << i;
    extensions.push_back(tree.extensions);
  }
  ::unsetenv("QUORLANE_THREADS");
  EXPECT_EQ(extensions[0], extensions[1]);
}

TEST(TreemapTree, ExtensionsPastTheTableShareOneRow) {
  TreemapTree t;
  for (int i = 0; i < 70000; ++i)
    t.addFile(0, 1 + i % 3, FileKind::Other, t.extensionId("e" + std::to_string(i)));
  t.finish();
  const std::vector<TypeRow> rows = t.typesBelow(0);
  ASSERT_EQ(rows.size(), size_t{TreemapTree::kOtherExtension});  // 65,534 names and the rest
  EXPECT_EQ(rows[0].extension, TreemapTree::kOtherName);
  EXPECT_EQ(rows[0].files, 70000 - 65534);
}

// Cushions keep each file's kind at its middle and light it from the top left; a mark keeps the
// colours of its kind or extension and dims everything else.
TEST(TreemapPainter, CushionsKeepTheKindAndAMarkDimsTheRest) {
  TreemapTree t;
  const uint32_t a = t.addFolder(0, "a"), b = t.addFolder(0, "b");
  t.addFile(a, 9000000, FileKind::Video, t.extensionId("mp4"));
  t.addFile(a, 2000000, FileKind::Audio, t.extensionId("mp3"));
  t.addFile(b, 3000000, FileKind::Audio, t.extensionId("ogg"));
  t.finish();
  const TreemapLayout l = layoutTreemap(t, 400, 250);
  std::map<std::string, const TreemapRect*> rectOf;
  for (const TreemapRect& r : l.rects)
    if (r.type == TreemapRect::File) rectOf[std::string(t.extensionName(r.extension))] = &r;
  ASSERT_EQ(rectOf.size(), 3u);
  auto middle = [&](const char* e) {
    const TreemapRect& r = *rectOf[e];
    return QPoint(r.x + r.w / 2, r.y + r.h / 2);
  };
  auto nearestKind = [](QColor seen) {
    int best = INT_MAX, kind = -1;
    for (int k = 0; k < static_cast<int>(FileKind::Count); ++k) {
      const QColor c = treemapColor(static_cast<FileKind>(k));
      const int d = std::abs(c.red() - seen.red()) + std::abs(c.green() - seen.green()) +
                    std::abs(c.blue() - seen.blue());
      if (d < best) best = d, kind = k;
    }
    return static_cast<FileKind>(kind);
  };

  const QImage cushions = paintTreemap(l), flat = paintTreemap(l, {.cushions = false});
  for (const auto& [extension, r] : rectOf)
    EXPECT_EQ(nearestKind(cushions.pixelColor(middle(extension.c_str()))), r->kind) << extension;
  const TreemapRect& video = *rectOf["mp4"];
  const QPoint topLeft(video.x + 2, video.y + 2),
      bottomRight(video.x + video.w - 3, video.y + video.h - 3);
  EXPECT_GT(cushions.pixelColor(topLeft).value(), cushions.pixelColor(bottomRight).value() * 3 / 2);
  EXPECT_EQ(flat.pixel(topLeft), flat.pixel(bottomRight));

  const QImage audio = paintTreemap(l, {.mark = TreemapLook::Mark::Kind, .kind = FileKind::Audio});
  const QImage ogg =
      paintTreemap(l, {.mark = TreemapLook::Mark::Extension, .extension = t.extensionId("ogg")});
  auto saturation = [](const QImage& image, QPoint p) {
    return image.pixelColor(p).hsvSaturation();
  };
  for (const char* kept : {"mp3", "ogg"})
    EXPECT_EQ(audio.pixel(middle(kept)), cushions.pixel(middle(kept))) << kept;
  EXPECT_EQ(ogg.pixel(middle("ogg")), cushions.pixel(middle("ogg")));
  for (const auto& [image, dimmed] : {std::pair{&audio, "mp4"}, {&ogg, "mp4"}, {&ogg, "mp3"}})
    EXPECT_LT(saturation(*image, middle(dimmed)) * 2, saturation(cushions, middle(dimmed)))
        << dimmed;
  // A folder still being read is striped over, and nothing beside it changes.
  const QImage reading = paintTreemap(l, {.reading = a});
  const auto folder = std::find_if(l.rects.begin(), l.rects.end(), [&](const TreemapRect& r) {
    return r.type == TreemapRect::Folder && r.folder == a;
  });
  ASSERT_NE(folder, l.rects.end());
  int64_t striped = 0, outside = 0;
  for (int y = 0; y < l.height; ++y)
    for (int x = 0; x < l.width; ++x)
      (folder->contains(x, y) ? striped : outside) += reading.pixel(x, y) != cushions.pixel(x, y);
  EXPECT_EQ(outside, 0);
  EXPECT_GT(striped, int64_t{folder->w} * folder->h / 8);
}
