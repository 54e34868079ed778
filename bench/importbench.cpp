// Measures the import of a chain of nested folders, the shape that once cost time growing with
// the square of the depth: each depth is read from a pipe and the deepest folder's path is asked
// for, as the window's status bar does.
//
// usage: quorlane_importbench [DEPTH]...   (default 100000 300000 1000000)
// Prints the time and the time per level for each depth; a flat figure per level means the
// import is linear. Exit status 1 when a level costs ten times what it cost at the first depth.

#include <unistd.h>

#include <QElapsedTimer>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "json/JsonImport.h"

using namespace ql;

int main(int argc, char** argv) {
  std::vector<long> depths;
  for (int i = 1; i < argc; ++i) depths.push_back(std::atol(argv[i]));
  if (depths.empty()) depths = {100000, 300000, 1000000};
  double firstPerLevel = 0;
  int status = 0;
  for (const long depth : depths) {
    std::string json = R"([1,2,{},[{"name":"/r"})";
    for (long i = 0; i < depth; ++i) json += R"(,[{"name":"d"},{"name":"f","asize":1})";
    json += std::string(static_cast<size_t>(depth) + 1, ']') + "]";

    int fds[2];
    if (::pipe(fds) != 0) return 2;
    std::thread writer([&json, fd = fds[1]] {
      for (size_t at = 0; at < json.size();) {
        const ssize_t n = ::write(fd, json.data() + at, json.size() - at);
        if (n <= 0) break;
        at += static_cast<size_t>(n);
      }
      ::close(fd);
    });
    QElapsedTimer t;
    t.start();
    ReportTree tree;
    const ImportResult r = importJson(fds[0], tree);
    uint32_t bottom = r.root;
    while (r.ok && !tree.children(bottom).empty()) bottom = tree.children(bottom).front();
    const size_t pathLength = r.ok ? tree.fullPath(bottom).size() : 0;
    const double ms = static_cast<double>(t.nsecsElapsed()) / 1e6;
    writer.join();
    ::close(fds[0]);
    if (!r.ok) {
      std::fprintf(stderr, "depth %ld: %s\n", depth, r.error.toUtf8().constData());
      return 2;
    }
    const double perLevel = ms * 1e6 / static_cast<double>(depth);
    if (firstPerLevel == 0) firstPerLevel = perLevel;
    std::printf("depth %8ld: %9.1f ms, %7.0f ns per level, deepest path %zu bytes\n", depth, ms,
                perLevel, pathLength);
    if (perLevel > 10 * firstPerLevel) status = 1;
  }
  return status;
}
