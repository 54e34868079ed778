#pragma once
// The command line, read from the argument vector: one argument is one source, whatever bytes it
// holds. The joined text remains for the failure report only.

#include <string>
#include <vector>

namespace ql {

// Joins an argument vector back into one text: an argument that begins with "-" stays bare,
// every other one is put in double quotes; one blank between them. For display only.
std::string joinArguments(int argc, char** argv);

struct ParsedCommandLine {
  enum Mode { Window, Silent, Export, Help, Version, UsageError };
  Mode mode = Window;
  std::vector<std::string> sources;  // as given, never trimmed
  std::vector<std::string> imports;  // --import FILE: exports to read instead of walking
  std::string exportFile;            // --export FILE SOURCE: "-" for standard output
  std::string outputFile;            // silent run: the report
  int outputLevels = 0;              // silent run: 0 all levels, n the top rows and n levels below
  bool restart = false;              // -RESTART
  bool translationMode = false;      // -TLMODUS
  std::string error;                 // UsageError: what is wrong, one line
};

// -s[DIGITS] REPORT SOURCE..., --import FILE, --export FILE SOURCE, -RESTART, -TLMODUS, --help,
// --version; after "--" every argument is a source. Any other argument that begins with "-" is a
// usage error.
ParsedCommandLine parseArguments(int argc, char** argv);

}  // namespace ql
