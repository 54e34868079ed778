#include "app/TreemapRun.h"

#include <cstdio>
#include <cstdlib>

#include "output/OutputFile.h"
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

int walkForTreemap(const ParsedCommandLine& job, TreemapCollector& collector) {
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
  return failures.count() ? 1 : 0;
}

int writeTypesFile(const ParsedCommandLine& job, TreemapCollector& collector) {
  OutputFile file;
  if (file.open(job.typesFile) && file.write(typesTableCsv(collector.types())) && file.commit())
    return 0;
  std::fprintf(stderr, "quorlane: %s\n", file.error().c_str());
  return 1;
}

int runTypes(const ParsedCommandLine& job) {
  TreemapCollector collector(job.sources.front(), false, true, job.linksOnce == 1);
  if (walkForTreemap(job, collector) != 0) return 1;
  return writeTypesFile(job, collector);
}

}  // namespace ql
