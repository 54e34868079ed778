#pragma once
// The command line as one text, the way the program has always read it, and the two readers of
// that text: sources for the window, and the report job of a silent run.

#include <deque>
#include <string>

namespace ql {

// Joins an argument vector back into one text: an argument that begins with "-" stays bare,
// every other one is put in double quotes; one blank between them.
std::string joinArguments(int argc, char** argv);

// Sources of a window start: without a double quote the whole text is one source; otherwise
// each pair of quotes holds one, and an unmatched quote ends the reading.
void GetFoldersFromCommand(const std::string& text, std::deque<std::string>& queue);

struct SilentJob {
  std::string outputFile;
  int outputLevels = 0;  // 0: all levels
  std::deque<std::string> sources;
};

// "-s<digits> "report" "source" ...": the first quoted text is the report file, every later
// one a source. Fewer than two quoted texts make no job (the sources are emptied).
void KZGetFoldersFromCommand(const std::string& text, SilentJob& job);

inline bool isSilentCommand(const std::string& text) { return text.rfind("-s", 0) == 0; }

}  // namespace ql
