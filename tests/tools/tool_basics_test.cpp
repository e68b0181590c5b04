// The tool as a command-line user meets it: help, version, usage errors and
// the data directory it chooses.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/test_environment.h"
#include "support/tool_run.h"

namespace alertdb_test {
namespace {

class ToolBasicsTest : public IsolatedTest {};

TEST_F(ToolBasicsTest, HelpAndVersionSucceedOnStandardOutput) {
  ToolResult help = runTool({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(mentionsAll(help.out, {"tables"}));
  ToolResult version = runTool({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out.rfind("alertdb ", 0), 0u) << version.out;
  ToolResult commandHelp = runTool({"describe", "--help"});
  EXPECT_EQ(commandHelp.exitCode, 0);
  EXPECT_TRUE(mentionsAll(commandHelp.out, {"--data-dir"}));
}

TEST_F(ToolBasicsTest, UsageErrorsExitNonZeroWithAMessage) {
  for (const std::vector<std::string> &args : {std::vector<std::string>{},
                                               {"no-such-command"},
                                               {"describe", "AlEvntdb.dat"},
                                               {"tables", "--no-such-option"}}) {
    EXPECT_TRUE(failedSaying(runTool(args), 2)) << args.size();
  }
}

TEST_F(ToolBasicsTest, DataDirectoryFollowsOptionThenEnvironmentThenPerUserDirectory) {
  std::string home = dataPath("home");
  // No ALERTDB_DATA_DIR and no console settings: the per-user directory is made.
  ToolResult fallback = runTool({"demo"}, {{"ALERTDB_DATA_DIR", ""},
                                           {"HOME", home},
                                           {"XDG_DATA_HOME", ""},
                                           {"ALERTDB_CONSOLE_DIR", dataPath("no-console")}});
  EXPECT_EQ(fallback.exitCode, 0) << fallback.err;
  EXPECT_TRUE(fileExists(home + "/.local/share/alertdb/AlEvntdb.dat"));

  ToolResult xdg = runTool({"demo"}, {{"ALERTDB_DATA_DIR", ""},
                                      {"XDG_DATA_HOME", dataPath("xdg")},
                                      {"ALERTDB_CONSOLE_DIR", dataPath("no-console")}});
  EXPECT_EQ(xdg.exitCode, 0) << xdg.err;
  EXPECT_TRUE(fileExists(dataPath("xdg/alertdb/AlEvntdb.dat")));
  // The option over the environment: DemoCommandTest.WorksOnAFreshDirectoryGivenByOption.
}

TEST_F(ToolBasicsTest, OutputFormatIsChosenByNameInAnyCase) {
  ToolResult json = runTool({"tables", "--format", "JSON"});
  EXPECT_EQ(json.out.rfind("[", 0), 0u) << json.out;
  ToolResult csv = runTool({"tables", "--format", "csv"});
  EXPECT_EQ(csv.out.rfind("file,", 0), 0u) << csv.out;
  EXPECT_TRUE(
      failedSaying(runTool({"tables", "--format", "xml"}), 2, {"xml not in {table,json,csv}"}));
}

TEST_F(ToolBasicsTest, UnusableDataDirectoryIsAnError) {
  writeFile(dataPath("plain-file"), "x");
  ToolResult result = runTool({"tables", "--data-dir", dataPath("plain-file/sub")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(mentionsAll(result.err, {"data directory"}));
}

}  // namespace
}  // namespace alertdb_test
