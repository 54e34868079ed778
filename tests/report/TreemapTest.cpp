// The treemap's layout, picking, picture and the file-types table.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>

#include "TestFs.h"
#include "treemap/TreemapLayout.h"

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

std::vector<Case> cases() {
  std::vector<Case> all;
  std::mt19937_64 random(7);
  std::vector<int64_t> mixed;
  for (int i = 0; i < 3000; ++i)
    mixed.push_back(i % 5 == 0 ? 0 : static_cast<int64_t>(random() % 1000000));
  all.push_back({"folder of many files, some empty", flat(mixed), 320, 200});
  std::vector<int64_t> huge(20000, 1);
  huge.push_back(int64_t{1} << 50);
  all.push_back({"one huge among tiny", flat(huge), 300, 300});
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

}  // namespace

TEST(TreemapLayout, RectanglesNestWithoutOverlap) {
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.name);
    const TreemapLayout l = layoutTreemap(c.tree, c.width, c.height);
    ASSERT_FALSE(l.rects.empty());
    expectSound(c.tree, l);
  }
}

TEST(TreemapLayout, AreasFollowSizes) {
  for (const Case& c : cases()) {
    if (c.tree.folders.size() != 1) continue;  // one folder: one scale for all files
    SCOPED_TRACE(c.name);
    const TreemapLayout l = layoutTreemap(c.tree, c.width, c.height);
    const double scale =
        (c.width - 2.0) * (c.height - 2.0) / static_cast<double>(c.tree.folders[0].bytes);
    int64_t covered = 0;
    for (const TreemapRect& r : l.rects) {
      if (r.type == TreemapRect::Folder) continue;
      covered += int64_t{r.w} * r.h;
      if (r.type != TreemapRect::File) continue;
      const int64_t size = TreemapTree::sizeOf(c.tree.files[r.file]);
      EXPECT_GT(size, 0) << "an empty file got a rectangle";
      EXPECT_NEAR(double(r.w) * r.h, size * scale, r.w + r.h + 1.0) << r.w << "x" << r.h;
    }
    // The inside is tiled: files, rest and what rounded away.
    EXPECT_LE(covered, int64_t{c.width - 2} * (c.height - 2));
    EXPECT_GE(covered, int64_t{c.width - 2} * (c.height - 2) * 99 / 100);
  }
}

TEST(TreemapLayout, PickFindsTheInnermostRectangle) {
  const Case c = std::move(cases()[3]);
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

