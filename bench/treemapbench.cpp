// The treemap on a large tree: the walk with and without the collector, the tree's memory, the
// types below the walked folder, and the walked folder and one folder within laid out and painted.
// Each time is the best of three.
//
// usage: quorlane_treemapbench TREE [ZOOM]
//   ZOOM  a folder below TREE ("a/b") to lay out alone; by default the subfolder of the walked one
//         whose files number nearest to 100,000

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QGuiApplication>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "scan/FolderWalk.h"
#include "treemap/TreemapData.h"
#include "treemap/TreemapLayout.h"
#include "treemap/TreemapPainter.h"

using namespace ql;

namespace {

class Ignore : public WalkSink {
 public:
  void branchDone(uint32_t, ReportTree&&) override {}
  void failure(const WalkFailure&) override {}
};

// What the walk costs to hand files over at all, apart from what a collector does with them.
class EmptyFeed : public FileFeed {
 public:
  int64_t minimumSize() const override { return 0; }
  void offer(const FoundFile&) override {}
};

void walk(const std::string& tree, FileFeed* feed) {
  WalkOptions o;
  o.feed = feed;
  Stop stop;
  FolderWalk w(o, stop);
  Ignore ignore;
  w.scanFolder(tree, ignore);
}

double best(const std::function<void()>& f, int runs = 3) {
  double least = 1e9;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    f();
    least = std::min(
        least, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return least;
}

double cpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

long peakKb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  return 0;
}

// The peak memory of `f` run in a child of this still small process.
long peakOf(const std::function<void()>& f) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    f();
    const long kb = peakKb();
    (void)!write(fds[1], &kb, sizeof kb);
    _exit(0);
  }
  long kb = -1;
  (void)!read(fds[0], &kb, sizeof kb);
  waitpid(child, nullptr, 0);
  close(fds[0]);
  close(fds[1]);
  return kb;
}

size_t treeBytes(const TreemapTree& t) {
  size_t n = t.files.size() * sizeof(uint64_t) + t.extensions.size() * sizeof(uint16_t) +
             t.folders.size() * (sizeof(TreemapFolder) + sizeof(uint32_t) * 2);  // + parent, child
  for (const TreemapFolder& f : t.folders)
    if (f.name.size() > 15) n += f.name.capacity() + 1;
  return n;
}

int filesBelow(const TreemapTree& t, uint32_t folder) {
  int n = static_cast<int>(t.folders[folder].fileCount);
  for (uint32_t c : t.folders[folder].children) n += filesBelow(t, c);
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorlane_treemapbench TREE [ZOOM]\n");
    return 2;
  }
  const std::string root = argv[1];

  const long plainKb = peakOf([&] { walk(root, nullptr); });
  const long treeKb = peakOf([&] {
    TreemapCollector c(root, true, true);
    walk(root, &c);
    const TreemapTree t = c.takeTree();
  });

  // Taken in turns, so that the load of the machine falls on all alike; wall and processor time.
  struct Best {
    double wall = 1e9, cpu = 1e9;
    void run(const std::function<void()>& f) {
      const double c = cpuSeconds();
      wall = std::min(wall, best(f, 1));
      cpu = std::min(cpu, cpuSeconds() - c);
    }
  } plain, fed, collected;
  double merge = 1e9;
  EmptyFeed empty;
  TreemapTree tree;
  for (int i = 0; i < 3; ++i) {
    plain.run([&] { walk(root, nullptr); });
    fed.run([&] { walk(root, &empty); });
    collected.run([&] {
      TreemapCollector c(root, true, true);
      walk(root, &c);
      merge = std::min(merge, best([&] { tree = c.takeTree(); }, 1));
    });
  }
  const double files = static_cast<double>(tree.files.size());
  std::printf("%s: %.0f files, %zu folders, %zu extensions\n", root.c_str(), files,
              tree.folders.size(), tree.extensionNames.size());
  std::printf(
      "to the walk alone (wall, processor): a feed that does nothing %.3fx %.3fx, the "
      "collector and its tree %.3fx %.3fx (of it the tree's merge %.3f s of %.3f s)\n",
      fed.wall / plain.wall, fed.cpu / plain.cpu, collected.wall / plain.wall,
      collected.cpu / plain.cpu, merge, collected.wall);
  std::printf("tree with extensions: %.1f MB a million files (peak of the walk: %.1f MB more)\n",
              treeBytes(tree) / files, (treeKb - plainKb) * 1024.0 / files);

  std::vector<TypeRow> rows;
  const double types = best([&] { rows = tree.typesBelow(0); });
  std::printf("types below the walked folder: %.1f ms, %zu rows\n", types * 1e3, rows.size());

  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  uint32_t zoom = 0;
  if (argc > 2) {
    for (uint32_t f = 1; f < tree.folders.size() && !zoom; ++f)
      if (tree.pathOf(f) == argv[2]) zoom = f;
  } else {
    int nearest = INT32_MAX;
    for (uint32_t c : tree.folders[0].children)
      if (const int d = std::abs(filesBelow(tree, c) - 100000); d < nearest) nearest = d, zoom = c;
  }
  for (uint32_t folder : {uint32_t{0}, zoom}) {
    TreemapLayout layout;
    QImage image;
    const double laid = best([&] { layout = layoutTreemap(tree, 1600, 1000, folder); });
    const double painted = best([&] { image = paintTreemap(layout); });
    const double flat = best([&] { image = paintTreemap(layout, {.cushions = false}); });
    std::printf(
        "%s (%d files): layout %.3f s, %zu rectangles; cushions %.3f s, flat %.3f s; "
        "layout and cushions %.3f s\n",
        folder ? tree.pathOf(folder).c_str() : "walked folder", filesBelow(tree, folder), laid,
        layout.rects.size(), painted, flat, laid + painted);
  }
  return 0;
}
