// "alertdb purge": the log purge by name, on the tool's data directory, with
// the number of entries that went.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/event_log_entries.h"
#include "tools/tool_json.h"

namespace alertdb_test {
namespace {

constexpr std::uint32_t kActivityEvent = 12545;

// Sorted, as logEntryIds() gives them.
std::vector<std::string> idTexts(const std::vector<_GUID> &ids) {
  std::vector<std::string> texts;
  for (const _GUID &id : ids) texts.push_back(platform::GuidToString(id));
  std::sort(texts.begin(), texts.end());
  return texts;
}

class PurgeCommandTest : public IsolatedTest {
 protected:
  // Runs the purge with JSON output; the parsed report, null when it failed.
  nlohmann::json purge(std::vector<std::string> args) {
    args.insert(args.begin(), "purge");
    args.insert(args.end(), {"--format", "json"});
    ToolResult result = runTool(args);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    if (result.exitCode != 0) return nullptr;
    return nlohmann::json::parse(result.out);
  }

  void writeSettings(const std::string &lines) {
    writeFile(dataPath("QADMIN.INI"), "[Alert Log Purge Settings]\n" + lines);
  }
};

TEST_F(PurgeCommandTest, AcknowledgedEntriesGoWhateverTheirAgeAndTheCountIsReported) {
  std::vector<_GUID> kept = {addLogEntry(5, false), addLogEntry(6, false, 400)};
  addLogEntry(5, true);
  addLogEntry(7, true, 400);
  addLogEntry(kActivityEvent, true);

  nlohmann::json report = purge({"--acknowledged"});
  ASSERT_FALSE(report.is_null());
  EXPECT_TRUE(hasFields(report, {{"removed", 3},
                                 {"before", 5},
                                 {"left", 2},
                                 {"purged", nlohmann::json::array({"acknowledged"})},
                                 {"log", dataPath("KEPLogDB.dat")}}));
  EXPECT_EQ(logEntryIds(), idTexts(kept));

  // Nothing acknowledged is left: a second purge removes nothing.
  EXPECT_TRUE(hasFields(purge({"--acknowledged"}), {{"removed", 0}, {"left", 2}}));

  // The default output is a sentence.
  addLogEntry(8, true);
  ToolResult plain = runTool({"purge", "--acknowledged"});
  EXPECT_EQ(plain.exitCode, 0) << plain.err;
  EXPECT_EQ(plain.out, "removed 1 of 3 entries from the event log; 2 left\n");
}

TEST_F(PurgeCommandTest, AgesComeFromTheSettingsOfTheToolsDataDirectory) {
  writeSettings("PurgeEventLogDays=30\nPurgeActivityDays=7\n");
  // A console settings file naming another directory does not redirect the purge.
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataPath("elsewhere") + "\n");
  addLogEntry(5, false, 40);
  _GUID newEvent = addLogEntry(5, false, 1);
  _GUID oldActivity = addLogEntry(kActivityEvent, false, 10);
  _GUID newActivity = addLogEntry(kActivityEvent, false, 3);
  _GUID acknowledged = addLogEntry(9, true, 2);

  nlohmann::json report = purge({"--old"});
  ASSERT_FALSE(report.is_null());
  EXPECT_EQ(report["removed"], 1);
  EXPECT_EQ(logEntryIds(), idTexts({newEvent, oldActivity, newActivity, acknowledged}));

  report = purge({"--activity"});
  EXPECT_EQ(report["removed"], 1);
  EXPECT_EQ(logEntryIds(), idTexts({newEvent, newActivity, acknowledged}));

  // Without ages configured nothing is old.
  writeSettings("");
  EXPECT_TRUE(hasFields(purge({"--old", "--activity"}),
                        {{"removed", 0}, {"purged", nlohmann::json::array({"old", "activity"})}}));
}

TEST_F(PurgeCommandTest, AcknowledgedIfAutoFollowsTheAutoPurgeSetting) {
  _GUID open = addLogEntry(5, false);
  addLogEntry(5, true);
  nlohmann::json report = purge({"--acknowledged-if-auto"});
  ASSERT_FALSE(report.is_null());
  EXPECT_EQ(report["removed"], 0);
  writeSettings("AutoPurgeAckEvents=2\n");
  EXPECT_EQ(purge({"--acknowledged-if-auto"})["removed"], 0);
  writeSettings("AutoPurgeAckEvents=1\n");
  EXPECT_EQ(purge({"--acknowledged-if-auto"})["removed"], 1);
  EXPECT_EQ(logEntryIds(), idTexts({open}));
}

TEST_F(PurgeCommandTest, DataDirOptionChoosesWhoseLogIsPurged) {
  _GUID here = addLogEntry(5, true);
  std::string other = dataPath("other");
  std::filesystem::create_directory(other);
  setenv("ALERTDB_DATA_DIR", other.c_str(), 1);
  _GUID thereOpen = addLogEntry(5, false);
  addLogEntry(6, true);
  setenv("ALERTDB_DATA_DIR", dataDir().c_str(), 1);

  nlohmann::json report = purge({"--acknowledged", "--data-dir", other});
  ASSERT_FALSE(report.is_null());
  EXPECT_TRUE(hasFields(report, {{"removed", 1}, {"log", other + "/KEPLogDB.dat"}}));
  EXPECT_EQ(logEntryIds(), idTexts({here}));
  setenv("ALERTDB_DATA_DIR", other.c_str(), 1);
  EXPECT_EQ(logEntryIds(), idTexts({thereOpen}));
  setenv("ALERTDB_DATA_DIR", dataDir().c_str(), 1);
}

TEST_F(PurgeCommandTest, BadFlagCombinationsAreUsageErrors) {
  addLogEntry(5, true);
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  for (const Case &c : std::vector<Case>{
           {{"purge"}, "nothing to purge"},
           {{"purge", "--format", "json"}, "nothing to purge"},
           {{"purge", "--acknowledged", "--acknowledged-if-auto"}, "exclude each other"},
           {{"purge", "--old", "--acknowledged", "--acknowledged-if-auto"}, "exclude each other"},
           {{"purge", "--acknowledged", "--format", "xml"}, "--format"},
           {{"purge", "--everything"}, "--everything"},
       }) {
    EXPECT_TRUE(failedSaying(runTool(c.args), 2, {c.message})) << c.args.back();
  }
  // Nothing was purged by any of them.
  EXPECT_EQ(logEntryIds().size(), 1u);
}

TEST_F(PurgeCommandTest, MissingOrDamagedLogFailsWithTheStatusAndIsLeftAlone) {
  EXPECT_TRUE(failedSaying(runTool({"purge", "--acknowledged"}), 1, {"ALRT_E_OPENFAILED ("}));
  EXPECT_FALSE(fileExists(dataPath("KEPLogDB.dat")));

  const std::string garbage(8192, 'x');
  writeFile(dataPath("KEPLogDB.dat"), garbage);
  EXPECT_TRUE(failedSaying(runTool({"purge", "--acknowledged", "--format", "json"}), 1,
                           {"ALRT_E_OPENFAILED", "KEPLogDB.dat"}));
  EXPECT_EQ(readFile(dataPath("KEPLogDB.dat")), garbage);
}

}  // namespace
}  // namespace alertdb_test
