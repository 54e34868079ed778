#pragma once
// A run with no window: walk the sources of the command line and write the report file.

#include "app/CommandLine.h"
#include "app/Settings.h"
#include "scan/ScanDriver.h"

namespace ql {

// The walk's settings of a run with no window: the window's options (loaded into `o`; a damaged
// value is reported and the rest stays 0), with the command line's counting and excludes over
// them.
ScanDriver::Settings silentSettings(const ParsedCommandLine& job, MainOptions& o);
// Reads an export into `tree` as those settings count; a failure is reported, naming the file.
// The new root, or kNoNode.
uint32_t importForSilentRun(const std::string& file, ReportTree& tree,
                            const ScanDriver::Settings& settings, const Stop& stop);

// The job is a parsed silent command line. Returns the process's exit status: 0 when the report
// was written, 1 after any failure.
int runSilent(const ParsedCommandLine& job);

}  // namespace ql
