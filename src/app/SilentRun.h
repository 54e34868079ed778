#pragma once
// A run with no window: walk the sources of the command line and write the report file.

#include <string>

namespace ql {

// Returns the process's exit status: 0 when all went well, 1 after any failure.
int runSilent(const std::string& commandLine);

}  // namespace ql
