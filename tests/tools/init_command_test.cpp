// `alertdb init` run as its own process on the test's data directory.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "alertdb.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/data_file_damage.h"
#include "tools/tool_json.h"

namespace alertdb_test {
namespace {

using Json = nlohmann::json;

const std::vector<std::string> kDataFiles = {"AlCfgdb.dat",  "APgeProv.dat", "AlServdb.dat",
                                             "AlEvntdb.dat", "KEPLogDB.dat", "AlRespDB.dat",
                                             "kepuser.dat"};
constexpr std::size_t kLibraryTables = 42;

class InitCommandTest : public IsolatedTest {
 protected:
  // The rows of `alertdb init --format json`, which must have succeeded.
  Json initRows() {
    ToolResult result = runTool({"init", "--format", "json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    Json rows = Json::parse(result.out, nullptr, false);
    EXPECT_TRUE(rows.is_array()) << result.out;
    return rows.is_array() ? rows : Json::array();
  }

  // The tables the data file's own catalog lists.
  std::set<std::string> catalogTables(const std::string &file) {
    std::set<std::string> names;
    KEPDB *h = platform::QDBInit(0, dataPath(file).c_str(), platform::kOpenExisting, 1);
    if (!h) return names;
    std::vector<std::string> list;
    platform::QDBTableNames(h, &list);
    platform::QDBDone(h);
    names.insert(list.begin(), list.end());
    return names;
  }
};

TEST_F(InitCommandTest, MakesEveryTableOnceAndThenFindsThemThere) {
  Json first = initRows();
  ASSERT_EQ(first.size(), kLibraryTables);
  std::set<std::pair<std::string, std::string>> tables;
  std::set<std::string> files;
  for (const Json &row : first) {
    EXPECT_EQ(row["result"], "made") << row.dump();
    tables.emplace(row["file"], row["table"]);
    files.insert(row["file"].get<std::string>());
  }
  EXPECT_EQ(tables.size(), kLibraryTables) << "each table reported once";
  EXPECT_EQ(files, std::set<std::string>(kDataFiles.begin(), kDataFiles.end()));
  EXPECT_TRUE(tables.count({"KEPLogDB.dat", "EVENT_LOG"}));
  EXPECT_TRUE(tables.count({"kepuser.dat", "UserObj"})) << "made through the object manager";
  // What was reported made is in the files, and every table class opens it.
  for (const auto &[file, table] : tables) {
    EXPECT_TRUE(catalogTables(file).count(table)) << file << " " << table;
  }
  {
    CAlertEVENT_LOGDB log;
    EXPECT_EQ(log.DBOpen(), 0u);
    CUsrDB userObjects;
    EXPECT_EQ(userObjects.DBOpen(), 0u);
    CAlertAPAGE_SERVICE_PROVIDERDB providers;
    EXPECT_EQ(providers.DBOpen(), 0u);
  }

  std::map<std::string, std::string> afterFirst = directoryContents(dataDir());
  Json second = initRows();
  ASSERT_EQ(second.size(), kLibraryTables);
  for (std::size_t i = 0; i < second.size(); ++i) {
    EXPECT_TRUE(hasFields(
        second[i], {{"result", "there"}, {"table", first[i]["table"]}, {"file", first[i]["file"]}}))
        << i;
  }
  EXPECT_EQ(directoryContents(dataDir()).size(), afterFirst.size()) << "no file added";
  EXPECT_EQ(afterFirst.size(), kDataFiles.size());
}

TEST_F(InitCommandTest, MakesOnlyWhatIsMissing) {
  ASSERT_EQ(initRows().size(), kLibraryTables);
  ASSERT_EQ(std::remove(dataPath("APgeProv.dat").c_str()), 0);
  Json rows = initRows();
  ASSERT_EQ(rows.size(), kLibraryTables);
  for (const Json &row : rows) {
    EXPECT_EQ(row["result"], row["file"] == "APgeProv.dat" ? "made" : "there") << row.dump();
  }
  EXPECT_TRUE(catalogTables("APgeProv.dat").count("APageServProvider"));

  // The table output says the same in words.
  ToolResult table = runTool({"init"});
  EXPECT_EQ(table.exitCode, 0) << table.err;
  EXPECT_TRUE(mentionsAll(table.out, {"0 made, 42 there", "EVENT_LOG"}));
}

TEST_F(InitCommandTest, AMissingFileWithABackupIsRestoredNotMadeAfresh) {
  ASSERT_EQ(initRows().size(), kLibraryTables);
  _GUID id{};
  {
    CAlertEVENT_CLASSDB classes;
    ASSERT_EQ(classes.DBOpen(), 0u);
    ALRTEVENT_CLASSREC eventClass{};
    std::snprintf(eventClass.EventName, sizeof eventClass.EventName, "kept");
    ASSERT_EQ(classes.DBAlertRecAdd(&eventClass, &id), 0u);
  }
  ASSERT_EQ(runTool({"backup"}).exitCode, 0);
  ASSERT_EQ(std::remove(dataPath("AlEvntdb.dat").c_str()), 0);
  for (const Json &row : initRows()) {
    EXPECT_EQ(row["result"], row["file"] == "AlEvntdb.dat" ? "restored" : "there") << row.dump();
  }
  CAlertEVENT_CLASSDB classes;
  ASSERT_EQ(classes.DBOpen(), 0u);
  ALRTEVENT_CLASSREC found{};
  EXPECT_EQ(classes.DBAlertRecRetrieve(&id, &found), 0u);
  EXPECT_STREQ(found.EventName, "kept");
}

TEST_F(InitCommandTest, RefusedDataFileStopsItBeforeAnythingIsMade) {
  ASSERT_EQ(initRows().size(), kLibraryTables);
  truncateFile(dataPath("AlEvntdb.dat"), 100);
  writeFile(dataPath("AlCfgdb.dat"), "not a store at all");
  ASSERT_EQ(std::remove(dataPath("KEPLogDB.dat").c_str()), 0);
  std::map<std::string, std::string> before = directoryContents(dataDir());

  EXPECT_TRUE(failedSaying(runTool({"init", "--format", "json"}), 1,
                           {"AlEvntdb.dat", "AlCfgdb.dat", "ALRT_E_INITFAILED"}));
  EXPECT_EQ(directoryContents(dataDir()), before) << "nothing made, nothing changed";
}

TEST_F(InitCommandTest, HelpNamesTheFormats) {
  ToolResult help = runTool({"init", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(mentionsAll(help.out, {"--format"}));
  EXPECT_TRUE(failedSaying(runTool({"init", "--format", "xml"}), 2));
  EXPECT_FALSE(fileExists(dataPath("AlCfgdb.dat"))) << "a usage error makes nothing";
}

}  // namespace
}  // namespace alertdb_test
