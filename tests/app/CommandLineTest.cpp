// Reading the command line: the joined text, window sources and the silent job.

#include <gtest/gtest.h>

#include "app/CommandLine.h"

namespace ql {
namespace {

std::deque<std::string> sources(const std::string& text) {
  std::deque<std::string> q;
  GetFoldersFromCommand(text, q);
  return q;
}

TEST(CommandLine, ArgumentsAreJoinedBackIntoOneText) {
  char a0[] = "quorlane", a1[] = "-s2", a2[] = "out file.csv", a3[] = "/home", a4[] = "-RESTART";
  char* argv[] = {a0, a1, a2, a3, a4, nullptr};
  EXPECT_EQ(joinArguments(5, argv), "-s2 \"out file.csv\" \"/home\" -RESTART");
  EXPECT_EQ(joinArguments(1, argv), "");
}

TEST(CommandLine, WindowSources) {
  using Q = std::deque<std::string>;
  EXPECT_EQ(sources(""), Q{});
  EXPECT_EQ(sources(" /a b "), Q{" /a b "});  // no quote: the whole text, untrimmed
  EXPECT_EQ(sources("\"/a\" x \"/b c\""), (Q{"/a", "/b c"}));
  EXPECT_EQ(sources("\"/a\" \"/b"), Q{"/a"});  // an unmatched quote ends the reading
  EXPECT_EQ(sources("-RESTART \"/a\""), Q{"/a"});
  EXPECT_EQ(sources("-RESTART -TLMODUS"), Q{"-RESTART -TLMODUS"});  // dropped later as not a folder
}

TEST(CommandLine, SilentJob) {
  struct Case {
    const char* text;
    int levels;
    const char* file;
    std::deque<std::string> sources;
  } cases[] = {
      {"-s2 \"r.csv\" \"/a\" \"/b\"", 2, "r.csv", {"/a", "/b"}},
      {"  -s \"r.txt\" \"/a\"  ", 0, "r.txt", {"/a"}},
      {"-s12x \"r\" \"/a\"", 12, "r", {"/a"}},
      {"-s2 \"only.csv\"", 2, "only.csv", {}},  // a file without a source is no job
      {"-s", 0, "", {}},
      {"-sx", 0, "", {}},
      {"-s3 \"r.csv\" \"/a\" \"/b", 3, "r.csv", {"/a"}},
      {"-s99999999999 \"r\" \"/a\"", 999999999, "r", {"/a"}},  // huge digits do not overflow
  };
  for (const auto& c : cases) {
    SilentJob job;
    KZGetFoldersFromCommand(c.text, job);
    EXPECT_EQ(job.outputLevels, c.levels) << c.text;
    EXPECT_EQ(job.outputFile, c.file) << c.text;
    EXPECT_EQ(job.sources, c.sources) << c.text;
  }
  EXPECT_TRUE(isSilentCommand("-s2 \"x\""));
  EXPECT_TRUE(isSilentCommand("-sanything"));
  EXPECT_FALSE(isSilentCommand("-RESTART"));
  EXPECT_FALSE(isSilentCommand(" -s"));
}

}  // namespace
}  // namespace ql
