#include "app/CommandLine.h"

#include <cctype>
#include <climits>
#include <vector>

namespace ql {

std::string joinArguments(int argc, char** argv) {
  std::string text;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) text.push_back(' ');
    const std::string arg = argv[i];
    if (!arg.empty() && arg[0] == '-') {
      text += arg;
    } else {
      text.push_back('"');
      text += arg;
      text.push_back('"');
    }
  }
  return text;
}

namespace {
// The quoted texts from the left; an opening quote without its partner ends the scan.
std::vector<std::string> quoted(const std::string& text) {
  std::vector<std::string> out;
  size_t pos = 0;
  for (;;) {
    const size_t open = text.find('"', pos);
    if (open == std::string::npos) break;
    const size_t close = text.find('"', open + 1);
    if (close == std::string::npos) break;
    out.push_back(text.substr(open + 1, close - open - 1));
    pos = close + 1;
  }
  return out;
}
}  // namespace

void GetFoldersFromCommand(const std::string& text, std::deque<std::string>& queue) {
  if (text.empty()) return;
  if (text.find('"') == std::string::npos) {
    queue.push_back(text);
    return;
  }
  for (auto& s : quoted(text)) queue.push_back(std::move(s));
}

void KZGetFoldersFromCommand(const std::string& text, SilentJob& job) {
  size_t b = text.find_first_not_of(' ');
  size_t e = text.find_last_not_of(' ');
  if (b == std::string::npos) return;
  std::string rest = text.substr(b, e - b + 1);
  rest = rest.size() > 2 ? rest.substr(2) : std::string();
  if (rest.empty()) return;
  job.outputLevels = 0;
  size_t digits = 0;
  long long value = 0;
  while (digits < rest.size() && std::isdigit(static_cast<unsigned char>(rest[digits]))) {
    if (value < INT_MAX / 10) value = value * 10 + (rest[digits] - '0');
    ++digits;
  }
  job.outputLevels = static_cast<int>(value);
  const auto parts = quoted(rest);
  if (parts.empty()) return;
  job.outputFile = parts[0];
  for (size_t i = 1; i < parts.size(); ++i) job.sources.push_back(parts[i]);
  if (parts.size() < 2) job.sources.clear();
}

}  // namespace ql
