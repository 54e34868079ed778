#pragma once
// A run with no window: walk the sources of the command line and write the report file.

#include "app/CommandLine.h"

namespace ql {

// The job is a parsed silent command line. Returns the process's exit status: 0 when the report
// was written, 1 after any failure.
int runSilent(const ParsedCommandLine& job);

}  // namespace ql
