// Allocated sizes, hard links once and excludes: the walk and the import against du, the export
// and the walk against a plain model of the patterns, and the options that ask for them.

#include <fnmatch.h>
#include <cstdio>
#include <filesystem>

#include "TestFiles.h"
#include "TestProcess.h"
#include "app/CommandLine.h"
#include "json/JsonExport.h"
#include "json/JsonImport.h"
#include "scan/ScanDriver.h"

namespace ql::test {
namespace {

std::string shell(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}

// Real bytes at `offset` (the rest of a bigger file stays a hole).
void writeAt(const std::string& path, int64_t offset, int64_t bytes) {
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY, 0644);
  ASSERT_GE(fd, 0) << path;
  const std::string data(static_cast<size_t>(bytes), 'x');
  ASSERT_EQ(::pwrite(fd, data.data(), data.size(), offset), bytes);
  ::close(fd);
}

void hardLink(const std::string& from, const std::string& to) {
  ASSERT_EQ(::link(from.c_str(), to.c_str()), 0) << to;
}

// Two sources; hard links inside a folder, across folders, across the sources; a sparse file
// linked twice; a zero-byte file linked twice.
void craft(const TempDir& d) {
  for (const char* dir : {"src", "src/a", "src/b", "src/b/c", "src/b/c/d", "other"})
    makeDir(d / dir);
  writeAt(d / "src/a/data", 0, 50000);
  makeFile(d / "src/a/sparse", 10'000'000);
  writeAt(d / "src/a/sparse", 1'000'000, 70000);
  hardLink(d / "src/a/data", d / "src/a/data2");
  hardLink(d / "src/a/data", d / "src/b/data3");
  hardLink(d / "src/a/sparse", d / "src/b/c/sparse2");
  makeFile(d / "src/b/zero", 0);
  hardLink(d / "src/b/zero", d / "src/b/c/d/zero2");
  writeAt(d / "src/b/c/d/small", 0, 3000);
  writeAt(d / "src/top", 0, 1234);
  hardLink(d / "src/a/data", d / "other/data4");
  writeAt(d / "other/own", 0, 777);
}

void walkAll(ReportTree& tree, const std::vector<std::string>& sources, SizeMode mode, int threads,
             const std::vector<std::string>& excludes = {}) {
  ensureApp();
  ScanDriver driver(tree, testStop);
  driver.setSettings({.threads = threads, .mode = mode, .excludes = excludes});
  driver.sourceQueue().assign(sources.begin(), sources.end());
  driver.runToEnd();
}

// Every folder row by its path below its source ("" for the source; no leading "/"), with its size;
// -1 for an excluded (junction) row.
std::map<std::string, int64_t> folderSizes(const ReportTree& t, uint32_t root) {
  std::map<std::string, int64_t> m;
  const std::string base = t.fullPath(root);
  for (uint32_t n : t.preorder()) {
    if (t.rootOf(n) != root || !t.isFolder(n)) continue;
    const std::string path = t.fullPath(n);
    m[path.size() > base.size() ? path.substr(base.size() + 1) : std::string()] =
        t.hasFlag(n, ReportTree::Junction) ? -1 : t.node(n).size;
  }
  return m;
}

struct Mode {
  SizeMode mode;
  const char* du;        // du's options for the same count
  const char* dirBytes;  // find's format for what a folder itself holds, and its factor
  int factor;
};
const Mode kModes[] = {
    {{false, false}, "-b -l", "%s", 1},
    {{true, false}, "-B1 -l", "%b", 512},
    {{false, true}, "-b", "%s", 1},
    {{true, true}, "-B1", "%b", 512},
};

// What du says the folder holds, less what its folders hold themselves (the walk counts files
// only).
int64_t duFiles(const Mode& m, const std::string& folder) {
  const int64_t all =
      std::stoll(shell(std::string("du -s ") + m.du + " '" + folder + "' | cut -f1"));
  const int64_t dirs = std::stoll(shell("find '" + folder + "' -type d -printf '" + m.dirBytes +
                                        "\\n' | awk '{s+=$1} END {printf \"%d\", s}'"));
  return all - dirs * m.factor;
}

TEST(SizeModes, EveryFolderHoldsWhatDuCountsForAnyThreadCount) {
  TempDir d;
  craft(d);
  for (const Mode& m : kModes) {
    for (int threads : {1, 2, 8}) {
      SCOPED_TRACE(std::string(m.du) + " threads " + std::to_string(threads));
      ReportTree t;
      walkAll(t, {d / "src", d / "other"}, m.mode, threads);
      ASSERT_EQ(t.roots().size(), 2u);
      for (uint32_t root : t.roots()) {
        const std::string base = t.fullPath(root);
        for (const auto& [rel, size] : folderSizes(t, root))
          EXPECT_EQ(size, duFiles(m, base + "/" + rel)) << base + "/" + rel;
      }
    }
  }
}

// A link made beside a folder after the walk: measuring that folder again leaves every sum as du
// counts it, also above the folder.
TEST(SizeModes, ARescanWithLinksOnceStaysExact) {
  TempDir d;
  craft(d);
  writeAt(d / "src/a/only", 0, 9000);
  const Mode& m = kModes[3];
  ReportTree t;
  walkAll(t, {d / "src"}, m.mode, 2);
  hardLink(d / "src/a/only", d / "src/b/only2");
  ScanDriver driver(t, testStop);
  driver.setSettings({.mode = m.mode, .excludes = {}});
  ASSERT_TRUE(driver.rescan(rows(t, t.roots()[0]).at("b"), true, true));
  for (const auto& [rel, size] : folderSizes(t, t.roots()[0]))
    EXPECT_EQ(size, duFiles(m, d / "src/" + rel)) << rel;
}

// The import of an export counts as a walk of the same folder in every mode.
TEST(SizeModes, ImportCountsAsTheWalk) {
  TempDir d;
  craft(d);
  const std::string file = d / "src.json";  // beside the folder, not in it
  ASSERT_TRUE(exportJsonToFile(d / "src", file, 2).ok);
  for (const Mode& m : kModes) {
    SCOPED_TRACE(m.du);
    ReportTree walked, imported;
    walkAll(walked, {d / "src"}, m.mode, 2);
    const ImportOptions o{
        .allocated = m.mode.allocated, .linksOnce = m.mode.linksOnce, .progress = {}};
    ASSERT_TRUE(importJsonFile(file, imported, o).ok);
    auto expected = folderSizes(walked, walked.roots().at(0));
    auto got = folderSizes(imported, imported.roots().at(0));
    EXPECT_EQ(got, expected);
  }
}

// A plain model of the excludes: every folder's logical size and every excluded entry, by path
// below the source, with the pattern that excluded it.
struct Model {
  std::map<std::string, int64_t> sizes;
  std::map<std::string, std::string> excluded;
};
int64_t model(const std::vector<std::string>& patterns, const std::filesystem::path& dir,
              const std::string& rel, Model& m) {
  int64_t sum = 0;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    const std::string name = e.path().filename().string();
    const std::string path = rel + name;
    const std::string* hit = nullptr;
    for (const std::string& p : patterns)
      if (p.find('/') == std::string::npos ? fnmatch(p.c_str(), name.c_str(), 0) == 0
                                           : fnmatch(p.c_str(), path.c_str(), FNM_PATHNAME) == 0) {
        hit = &p;
        break;
      }
    if (hit) {
      m.sizes[path] = -1;
      m.excluded[path] = *hit;
    } else if (std::filesystem::is_directory(e.symlink_status())) {
      const int64_t sub = model(patterns, e.path(), path + "/", m);
      m.sizes[path] = sub;
      sum += sub;
    } else {
      sum += static_cast<int64_t>(e.file_size());
    }
  }
  return sum;
}

TEST(SizeModes, ExcludesLeaveARowAndNothingElseInWalkAndExport) {
  TempDir d;
  for (const char* dir : {"s", "s/keep", "s/keep/cache", "s/cache", "s/deep", "s/deep/x",
                          "s/deep/x/y", "s/tmpdir.tmp"})
    makeDir(d / dir);
  for (const char* f : {"s/a.tmp", "s/keep/b.txt", "s/keep/cache/c", "s/cache/d", "s/deep/x/e",
                        "s/deep/x/y/f", "s/deep/x/g.log", "s/tmpdir.tmp/h", "s/keep/i.tmp.not"})
    writeAt(d / f, 0, 100 + static_cast<int64_t>(std::strlen(f)));
  const std::vector<std::string> patterns = {"*.tmp", "cache", "deep/x/*.log", "deep/x/y",
                                             "keep/*.txt"};
  Model m;
  m.sizes[""] = model(patterns, d / "s", "", m);

  for (int threads : {1, 8}) {
    ReportTree t;
    walkAll(t, {d / "s"}, {}, threads, patterns);
    EXPECT_EQ(folderSizes(t, t.roots().at(0)), m.sizes) << threads;
  }
  const std::string file = d / "s.json";
  ASSERT_TRUE(exportJsonToFile(d / "s", file, 2, nullptr, patterns).ok);
  const std::string text = readFile(file).toStdString();
  size_t count = 0;
  for (size_t at = 0; (at = text.find("\"excluded\":\"", at)) != std::string::npos; ++at) ++count;
  EXPECT_EQ(count, m.excluded.size());
  for (const auto& [path, pattern] : m.excluded) {
    const std::string name = path.substr(path.rfind('/') + 1);
    EXPECT_NE(text.find("{\"name\":\"" + name + "\",\"excluded\":\"" + pattern + "\"}"),
              std::string::npos)
        << path;
  }
  // With no pattern nothing is left out.
  ReportTree all;
  walkAll(all, {d / "s"}, {}, 2);
  EXPECT_EQ(
      all.node(all.roots().at(0)).size,
      std::stoll(shell("find '" + d.path() +
                       "/s' -type f -printf '%s\\n' | awk '{s+=$1} END {printf \"%d\", s}'")));
}

TEST(SizeModes, CommandLineOptions) {
  struct Case {
    std::vector<const char*> args;
    int allocated, linksOnce;
    std::vector<std::string> excludes;
    bool error;
  };
  const Case cases[] = {
      {{"-s", "r.csv", "/a"}, -1, -1, {}, false},
      {{"-s", "r.csv", "--size", "allocated", "--links", "once", "/a"}, 1, 1, {}, false},
      {{"--size", "logical", "--links", "each", "-s", "r.csv", "/a"}, 0, 0, {}, false},
      {{"--exclude", "*.o", "--export", "x.json", "--exclude", "a/b", "/a"}, -1, -1, {"*.o", "a/b"}, false},
      {{"-s", "r.csv", "--size", "big", "/a"}, -1, -1, {}, true},
      {{"-s", "r.csv", "/a", "--exclude"}, -1, -1, {}, true},
  };
  for (const Case& c : cases) {
    std::vector<char*> argv{const_cast<char*>("quorlane")};
    for (const char* a : c.args) argv.push_back(const_cast<char*>(a));
    const ParsedCommandLine p = parseArguments(static_cast<int>(argv.size()), argv.data());
    SCOPED_TRACE(c.args.size());
    EXPECT_EQ(p.mode == ParsedCommandLine::UsageError, c.error) << p.error;
    if (c.error) continue;
    EXPECT_EQ(p.sizeAllocated, c.allocated);
    EXPECT_EQ(p.linksOnce, c.linksOnce);
    EXPECT_EQ(p.excludes, c.excludes);
  }
}

// The silent run takes the options, counts by them and says so in the heading.
TEST(SizeModes, SilentRunReportsInTheModeAsked) {
  TempDir d;
  craft(d);
  const QString report = QString::fromStdString(d / "r.csv");
  const Outcome o = runProgram(
      QUORLANE_BIN_PATH,
      {"-s0", report, "--size", "allocated", "--links", "once", QString::fromStdString(d / "src")},
      {{"XDG_CONFIG_HOME", QString::fromStdString(d / "config")}});
  ASSERT_EQ(o.status, 0) << o.err.toStdString();
  const QList<QByteArray> lines = readFile(report).split('\n');
  ASSERT_GE(lines.size(), 2);
  EXPECT_TRUE(lines[0].contains("belegt, Links einmal") ||
              lines[0].contains("allocated, links once"))
      << lines[0].toStdString();
  EXPECT_EQ(lines[1].split(';').value(1).replace("\"", "").replace("\r", "").toLongLong(),
            duFiles(kModes[3], d / "src"));
}

}  // namespace
}  // namespace ql::test
