#include "app/CommandLine.h"

#include <cstdio>
#include <cstring>

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
// "-s" followed by digits only (none is fine); the digits saturate rather than overflow.
bool silentOption(const char* arg, int& levels) {
  if (arg[0] != '-' || arg[1] != 's') return false;
  long long value = 0;
  for (const char* p = arg + 2; *p; ++p) {
    if (*p < '0' || *p > '9') return false;
    value = value * 10 + (*p - '0');
    if (value > 999999999) value = 999999999;
  }
  levels = static_cast<int>(value);
  return true;
}

// "WIDTHxHEIGHT", each 1 to 20000 pixels.
bool pictureSize(const std::string& value, int& width, int& height) {
  int w = 0, h = 0;
  char x = 0, rest = 0;
  if (std::sscanf(value.c_str(), "%5d%c%5d%c", &w, &x, &h, &rest) != 3 || x != 'x') return false;
  if (w < 1 || h < 1 || w > 20000 || h > 20000) return false;
  width = w, height = h;
  return true;
}
}  // namespace

ParsedCommandLine parseArguments(int argc, char** argv) {
  ParsedCommandLine p;
  bool silent = false, help = false, version = false, onlySources = false, exporting = false;
  bool listing = false;
  auto usage = [&p](std::string why) {
    if (p.error.empty()) p.error = std::move(why);
  };
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    int levels = 0;
    if (onlySources || arg[0] != '-') {
      p.sources.emplace_back(arg);
    } else if (std::strcmp(arg, "--") == 0) {
      onlySources = true;
    } else if (std::strcmp(arg, "--help") == 0) {
      help = true;
    } else if (std::strcmp(arg, "--version") == 0) {
      version = true;
    } else if (std::strcmp(arg, "-RESTART") == 0) {
      p.restart = true;
    } else if (std::strcmp(arg, "-TLMODUS") == 0) {
      p.translationMode = true;
    } else if (std::strcmp(arg, "--snapshot") == 0) {
      p.snapshot = true;
    } else if (std::strcmp(arg, "--snapshots") == 0) {
      listing = true;
    } else if (std::strcmp(arg, "--import") == 0 || std::strcmp(arg, "--export") == 0) {
      // The file is the next argument, whatever it looks like.
      if (i + 1 >= argc || !*argv[i + 1]) {
        usage(std::string(arg) + " needs a file");
        continue;
      }
      if (arg[2] == 'i') {
        p.imports.emplace_back(argv[++i]);
      } else {
        if (exporting) usage("--export given twice");
        exporting = true;
        p.exportFile = argv[++i];
      }
    } else if (std::strcmp(arg, "--treemap") == 0 || std::strcmp(arg, "--types") == 0) {
      if (i + 1 >= argc || !*argv[i + 1]) {
        usage(std::string(arg) + " needs a file");
        continue;
      }
      std::string& file = arg[3] == 'r' ? p.treemapFile : p.typesFile;
      if (!file.empty()) usage(std::string(arg) + " given twice");
      file = argv[++i];
    } else if (std::strcmp(arg, "--size") == 0 || std::strcmp(arg, "--links") == 0 ||
               std::strcmp(arg, "--exclude") == 0) {
      // The value is the next argument, whatever it looks like.
      if (i + 1 >= argc || !*argv[i + 1]) {
        usage(std::string(arg) + " needs a value");
        continue;
      }
      const std::string value = argv[++i];
      if (arg[2] == 'e') {
        p.excludes.push_back(value);
      } else if (arg[2] == 's') {
        if (pictureSize(value, p.pictureWidth, p.pictureHeight)) {
        } else if (value == "logical" || value == "allocated")
          p.sizeAllocated = value == "allocated";
        else
          usage("--size is logical, allocated or WIDTHxHEIGHT, not " + value);
      } else {
        if (value == "once" || value == "each")
          p.linksOnce = value == "once";
        else
          usage("--links is once or each, not " + value);
      }
    } else if (std::strcmp(arg, "--compare") == 0) {
      // The two measurements are the next two arguments, whatever they look like.
      if (p.comparing) usage("--compare given twice");
      if (i + 2 >= argc || !*argv[i + 1] || !*argv[i + 2]) {
        usage("--compare needs an old and a new measurement");
        break;
      }
      p.comparing = true;
      p.compareOld = argv[++i];
      p.compareNew = argv[++i];
    } else if (silentOption(arg, levels)) {
      if (silent) usage("-s given twice");
      silent = true;
      p.outputLevels = levels;
      // The report is the next argument, whatever it looks like.
      if (i + 1 >= argc || !*argv[i + 1]) usage(std::string(arg) + " needs a report file");
      if (i + 1 < argc) p.outputFile = argv[++i];
    } else {
      usage(std::string("unknown option ") + arg);
    }
  }
  if (exporting && silent) usage("--export and -s do not go together");
  if (exporting && !p.imports.empty()) usage("--export and --import do not go together");
  if (exporting && p.sources.size() != 1) usage("--export needs exactly one folder");
  const bool picture = !p.treemapFile.empty() || !p.typesFile.empty();
  if (p.comparing &&
      (!(silent || (picture && p.typesFile.empty())) || !p.sources.empty() || !p.imports.empty()))
    usage("--compare goes with -s REPORT or --treemap PICTURE and nothing else to read");
  if (picture && (exporting || silent)) usage("--treemap and --types go with no -s or --export");
  if (picture && !p.comparing && p.sources.size() + p.imports.size() != 1)
    usage("--treemap and --types need exactly one folder or one --import");
  if (p.snapshot && !silent && !exporting) usage("--snapshot goes with -s or --export");
  if (p.snapshot && p.comparing) usage("--snapshot does not go with --compare");
  if (listing && (silent || exporting || picture || !p.imports.empty() || p.snapshot))
    usage("--snapshots goes alone with one folder");
  if (listing && p.sources.size() != 1) usage("--snapshots needs exactly one folder");
  if (silent && p.error.empty() && p.sources.empty() && p.imports.empty() && !p.comparing)
    usage("-s needs at least one folder");
  p.mode = help                     ? ParsedCommandLine::Help
           : version                ? ParsedCommandLine::Version
           : !p.error.empty()       ? ParsedCommandLine::UsageError
           : exporting              ? ParsedCommandLine::Export
           : listing                ? ParsedCommandLine::Snapshots
           : !p.treemapFile.empty() ? ParsedCommandLine::Treemap
           : picture                ? ParsedCommandLine::Types
           : silent                 ? ParsedCommandLine::Silent
                                    : ParsedCommandLine::Window;
  return p;
}

}  // namespace ql
