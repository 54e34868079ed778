#pragma once
// A run with no window: walk the sources of the command line and write the report file.

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "scan/ScanDriver.h"
#include "snapshot/SnapshotStore.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace ql {

class SnapshotFeed;

// The walk's settings of a run with no window: the window's options (loaded into `o`; a damaged
// value is reported and the rest stays 0), with the command line's counting and excludes over
// them.
ScanDriver::Settings silentSettings(const ParsedCommandLine& job, MainOptions& o);
// Reads an export into `tree` as those settings count; a failure is reported, naming the file.
// The new root, or kNoNode.
uint32_t importForSilentRun(const std::string& file, ReportTree& tree,
                            const ScanDriver::Settings& settings, const Stop& stop);

// What the walk of a source kept for its snapshot, and the snapshot once written from it.
struct FedSnapshot {
  std::string source;  // the root's path
  std::shared_ptr<SnapshotFeed> feed;
  std::optional<SnapshotResult> written;
};
using SnapshotFeeds = std::vector<FedSnapshot>;

// --snapshot: keeps each existing source as a snapshot and prunes the store by the options `o`.
// A source in `fed` keeps what was written from its walk's feed, or is written from it now; with
// `exportFile` (a finished compressed export of the one source, and its counts) the export itself
// is copied; any other source is walked once more with the export's walk. A failure is reported;
// false after one.
bool keepSnapshots(const std::vector<std::string>& sources, const MainOptions& o,
                   const std::vector<std::string>& excludes, const Stop* stop,
                   const std::string& exportFile = {}, int64_t bytes = 0, int64_t files = 0,
                   const SnapshotFeeds& fed = {});
// --snapshots FOLDER: one line a snapshot, newest first: local time (ISO 8601), bytes, files and
// the file, separated by tabs. A damaged snapshot is named on standard error and left out.
// 0, or 1 when the store cannot be read.
int listSnapshotsRun(const ParsedCommandLine& job);

// The job is a parsed silent command line. Returns the process's exit status: 0 when the report
// was written, 1 after any failure.
int runSilent(const ParsedCommandLine& job);

}  // namespace ql
