#include "app/TreemapRun.h"

#include <sys/stat.h>
#include <cstdio>
#include <cstdlib>

#include "app/CompareRun.h"
#include "failure/FailureReport.h"
#include "json/JsonImport.h"
#include "output/OutputFile.h"
#include "support/Globals.h"
#include "support/Path.h"
#include "treemap/TypesTable.h"

namespace ql {

namespace {
// The walk's branches are not kept: the collector holds what the picture and table need.
class Failures : public WalkSink {
 public:
  void branchDone(uint32_t, ReportTree&&) override {}
  void failure(const WalkFailure& f) override {
    std::lock_guard lock(mutex_);
    std::fprintf(stderr, "quorlane: %s%s%s: %s\n", f.path.c_str(), f.name.empty() ? "" : "/",
                 f.name.c_str(),
                 f.kind == WalkFailure::Kind::SumOverflow ? "a sum too large to count"
                 : f.error                                ? systemErrorText(f.error).c_str()
                                                          : "read error");
    ++count_;
  }
  int count() const { return count_; }

 private:
  std::mutex mutex_;
  int count_ = 0;
};
}  // namespace

TreemapCollector treemapCollector(const ParsedCommandLine& job, bool wantTree, bool wantTypes) {
  return TreemapCollector(job.imports.empty() ? job.sources.front() : std::string(), wantTree,
                          wantTypes, job.linksOnce == 1);
}

int readForTreemap(const ParsedCommandLine& job, TreemapCollector& collector, std::string* top) {
  if (!job.imports.empty()) {
    ImportOptions io;
    io.allocated = job.sizeAllocated == 1;
    io.linksOnce = job.linksOnce == 1;
    io.feed = &collector;
    ReportTree tree;
    const ImportResult r = importJsonFile(job.imports.front(), tree, io);
    if (!r.ok) {
      std::fprintf(stderr, "quorlane: %s: %s\n", job.imports.front().c_str(),
                   r.error.toLocal8Bit().constData());
      return 1;
    }
    if (top) *top = tree.fullPath(r.root, true);
    return 0;
  }
  WalkOptions o;
  if (const char* forced = std::getenv("QUORLANE_THREADS"); forced && std::atoi(forced) > 0)
    o.threads = std::atoi(forced);
  o.feed = &collector;
  o.mode.allocated = job.sizeAllocated == 1;
  o.mode.linksOnce = job.linksOnce == 1;
  o.excludes = job.excludes;
  Stop stop;
  FolderWalk walk(o, stop);
  Failures failures;
  const std::string& folder = job.sources.front();
  const WalkOutcome r = walk.scanFolder(folder, failures);
  if (!r.readable) {
    std::fprintf(stderr, "quorlane: %s: %s\n", folder.c_str(),
                 systemErrorText(r.openError).c_str());
    return 1;
  }
  if (top) *top = addSlash(folder);
  return failures.count() ? 1 : 0;
}

TreemapTree takeTreemap(const ParsedCommandLine& job, TreemapCollector& collector,
                        const std::string& top) {
  TreemapTree tree = collector.takeTree();
  if (!job.imports.empty() && !cutTreemapTo(tree, top)) tree = TreemapTree();
  return tree;
}

int readComparedForTreemap(const ParsedCommandLine& job, TreemapTree& now, ReportTree& then,
                           uint32_t& thenRoot) {
  // NEW as the picture of a folder or an export reads it.
  ParsedCommandLine side = job;
  side.comparing = false;
  struct stat st {};
  if (::stat(job.compareNew.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
    side.sources = {job.compareNew};
  else
    side.imports = {job.compareNew};
  TreemapCollector collector = treemapCollector(side, true, false);
  std::string top;
  if (readForTreemap(side, collector, &top) != 0) return 1;
  now = takeTreemap(side, collector, top);
  // OLD as the comparison reads it, counted as NEW was; its failures go to standard error.
  globals().SilentMode = true;
  ScanDriver::Settings settings;
  settings.mode.allocated = job.sizeAllocated == 1;
  settings.mode.linksOnce = job.linksOnce == 1;
  settings.excludes = job.excludes;
  Stop stop;
  const int failuresBefore = failureCount();
  thenRoot = measure(job.compareOld, then, settings, stop);
  return thenRoot == kNoNode || failureCount() != failuresBefore ? 1 : 0;
}

int writeTypesFile(const ParsedCommandLine& job, TreemapCollector& collector) {
  OutputFile file;
  if (file.open(job.typesFile) && file.write(typesTableCsv(collector.types())) && file.commit())
    return 0;
  std::fprintf(stderr, "quorlane: %s\n", file.error().c_str());
  return 1;
}

int runTypes(const ParsedCommandLine& job) {
  TreemapCollector collector = treemapCollector(job, false, true);
  if (readForTreemap(job, collector) != 0) return 1;
  return writeTypesFile(job, collector);
}

}  // namespace ql
