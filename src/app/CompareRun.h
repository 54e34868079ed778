#pragma once
// A run with no window that compares two measurements of a folder, each an export or a folder
// walked now, and writes one row per folder of both with the sizes and file counts of each.

#include "app/CommandLine.h"
#include "report/ReportTree.h"
#include "scan/ScanDriver.h"

namespace ql {

// Reads one measurement into its own tree: a folder is walked, anything else is an export (the
// importer knows a compressed one by its first bytes). Returns its root, or kNoNode after the
// failure has been reported.
uint32_t measure(const std::string& what, ReportTree& tree, const ScanDriver::Settings& settings,
                 Stop& stop);

// The job is a parsed silent command line with --compare. Returns the process's exit status: 0
// when the report was written, 1 after any failure (then no report is written).
int runCompare(const ParsedCommandLine& job);

}  // namespace ql
