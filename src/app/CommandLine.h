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
  enum Mode { Window, Silent, Export, Help, Version, UsageError, Treemap, Types, Snapshots };
  Mode mode = Window;
  std::vector<std::string> sources;  // as given, never trimmed
  std::vector<std::string> imports;  // --import FILE: exports to read instead of walking
  std::string exportFile;            // --export FILE SOURCE: "-" for standard output
  std::string outputFile;            // silent run: the report
  int outputLevels = 0;              // silent run: 0 all levels, n the top rows and n levels below
  int sizeAllocated = -1;  // --size: -1 not given (the settings hold), 0 logical, 1 allocated
  int linksOnce = -1;      // --links: -1 not given, 0 each name, 1 once
  std::vector<std::string> excludes;  // --exclude PATTERN, in the order given
  // -s REPORT or --treemap FILE with --compare OLD NEW: each an export or a folder.
  bool comparing = false;
  std::string compareOld, compareNew;
  std::string treemapFile;  // --treemap FILE FOLDER|--import EXPORT: the picture (.png or .svg)
  std::string typesFile;    // --types FILE FOLDER|--import EXPORT: the extension table (CSV)
  int pictureWidth = 1600, pictureHeight = 1000;  // --size WIDTHxHEIGHT
  bool snapshot = false;         // --snapshot: -s and --export also keep a snapshot
  bool restart = false;          // -RESTART
  bool translationMode = false;  // -TLMODUS
  std::string error;             // UsageError: what is wrong, one line
};

// -s[DIGITS] REPORT SOURCE..., --import FILE, --export FILE SOURCE, --size logical|allocated,
// --links once|each, --exclude PATTERN, --compare OLD NEW, --treemap FILE, --types FILE,
// --size WIDTHxHEIGHT, --snapshot, --snapshots FOLDER, -RESTART, -TLMODUS, --help, --version;
// after "--" every argument is a source. Any other argument that begins with "-" is a usage error.
ParsedCommandLine parseArguments(int argc, char** argv);

}  // namespace ql
