// Reading the argument vector: one argument one source, the silent job, the options and the
// mistakes that are usage errors.

#include <gtest/gtest.h>

#include "app/CommandLine.h"

namespace ql {
namespace {

ParsedCommandLine parse(std::vector<std::string> args) {
  args.insert(args.begin(), "quorlane");
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  return parseArguments(static_cast<int>(args.size()), argv.data());
}

TEST(CommandLine, ArgumentsAreTakenAsGiven) {
  using M = ParsedCommandLine;
  using V = std::vector<std::string>;
  const struct Case {
    V args;
    M::Mode mode;
    V sources;
    std::string report = {};
    int levels = 0;
  } cases[] = {
      {{}, M::Window, {}},
      {{" /a b ", "", "x\"y", "\"q\"", "\xff\xfe"}, M::Window, {" /a b ", "", "x\"y", "\"q\"", "\xff\xfe"}},
      {{"-RESTART", "/a", "-TLMODUS"}, M::Window, {"/a"}},
      {{"--", "-x", "--", "--help"}, M::Window, {"-x", "--", "--help"}},
      {{"-s12", "-r \"1\".txt", "--", "-a"}, M::Silent, {"-a"}, "-r \"1\".txt", 12},
      {{"/a", "-s3", "r", "/b"}, M::Silent, {"/a", "/b"}, "r", 3},
      {{"-s99999999999", "r", "/a"}, M::Silent, {"/a"}, "r", 999999999},  // saturates
      {{"-s2", "only.csv"}, M::UsageError, {}, "only.csv", 2},
      {{"-s"}, M::UsageError, {}},
      {{"-s12x", "r", "/a"}, M::UsageError, {"r", "/a"}},
      {{"-s", "a", "/a", "-s", "b", "/b"}, M::UsageError, {"/a", "/b"}, "b"},
      {{"-"}, M::UsageError, {}},
      {{"-restart"}, M::UsageError, {}},
      {{"-x", "--help"}, M::Help, {}},
      {{"--version", "/a"}, M::Version, {"/a"}},
  };
  for (const Case& c : cases) {
    const std::string name = ::testing::PrintToString(c.args);
    const ParsedCommandLine p = parse(c.args);
    EXPECT_EQ(p.mode, c.mode) << name;
    EXPECT_EQ(p.sources, c.sources) << name;
    EXPECT_EQ(p.outputFile, c.report) << name;
    EXPECT_EQ(p.outputLevels, c.levels) << name;
    EXPECT_TRUE(c.mode == M::Help || p.error.empty() == (c.mode != M::UsageError)) << name;
  }
}

TEST(CommandLine, FlagsAndErrorText) {
  const ParsedCommandLine flags = parse({"-RESTART", "/a", "-TLMODUS"});
  EXPECT_TRUE(flags.restart);
  EXPECT_TRUE(flags.translationMode);
  EXPECT_FALSE(parse({"/x-TLMODUS"}).translationMode);  // a folder that merely holds the text

  char a0[] = "quorlane", a1[] = "-s2", a2[] = "out file.csv", a3[] = "/home", a4[] = "-RESTART";
  char* argv[] = {a0, a1, a2, a3, a4, nullptr};
  EXPECT_EQ(joinArguments(5, argv), "-s2 \"out file.csv\" \"/home\" -RESTART");
}

}  // namespace
}  // namespace ql
