// `alertdb tables` and `alertdb describe` run as their own processes on the
// test's data directory.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "alertdb.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/data_file_damage.h"
#include "tools/event_log_entries.h"
#include "tools/tool_json.h"

namespace alertdb_test {
namespace {

using Json = nlohmann::json;

class TablesCommandTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    ToolResult init = runTool({"init"});
    ASSERT_EQ(init.exitCode, 0) << init.err;
  }

  // Three event classes and two log entries, added through the table classes
  // on a thread of their own, so that every handle, the object manager's
  // included, is closed again before the tool runs.
  static void addRecords() {
    std::thread([] { addRecordsHere(); }).join();
  }

  static void addRecordsHere() {
    CAlertEVENT_CLASSDB classes;
    ASSERT_EQ(classes.DBOpen(), 0u);
    for (std::uint32_t id : {101u, 102u, 103u}) {
      ALRTEVENT_CLASSREC eventClass{};
      std::snprintf(eventClass.EventName, sizeof eventClass.EventName, "Event %u", id);
      eventClass.EventID = id;
      _GUID newId{};
      ASSERT_EQ(classes.DBAlertRecAdd(&eventClass, &newId), 0u);
    }
    for (std::uint32_t id : {201u, 202u}) addLogEntry(id, false);
  }
};

TEST_F(TablesCommandTest, ListsEveryDataFileWithItsTablesAndRecordCounts) {
  addRecords();
  // A settings file shares the extension; it is not a store and not listed.
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nLogDir=/var/log\n");
  ToolResult result;
  Json files = runJson({"tables", "--format", "json"}, &result);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  ASSERT_TRUE(files.is_array());
  std::vector<std::string> names;
  for (const Json &file : files) {
    names.push_back(file["name"]);
    EXPECT_EQ(file["status"], "ok") << file.dump();
  }
  // The library's files first, in their order; then the object manager's store.
  const std::vector<std::string> expected = {"AlCfgdb.dat",  "APgeProv.dat", "AlServdb.dat",
                                             "AlEvntdb.dat", "KEPLogDB.dat", "AlRespDB.dat",
                                             "kepuser.dat",  "KepOM.dat"};
  EXPECT_EQ(names, expected);

  auto table = [&](const std::string &file, const std::string &name) {
    return findBy(findBy(files, "name", file)["tables"], "name", name);
  };
  ASSERT_EQ(findBy(files, "name", "AlEvntdb.dat")["tables"].size(), 2u);
  Json classes = table("AlEvntdb.dat", "EVENT_CLASS");
  EXPECT_EQ(classes["records"], 3);
  ASSERT_TRUE(classes["title"].is_string());
  EXPECT_FALSE(classes["title"].get<std::string>().empty());
  EXPECT_TRUE(hasFields(table("KEPLogDB.dat", "EVENT_LOG"),
                        {{"records", 2}, {"title", "Event Log Table"}}));
  EXPECT_TRUE(hasFields(table("AlServdb.dat", "SMTP_Service"), {{"records", 0}}));
  // Event classes and log entries are registered with the object manager.
  Json instances = table("KepOM.dat", "OM_Instances");
  ASSERT_TRUE(instances["records"].is_number()) << instances;
  EXPECT_GE(instances["records"].get<int>(), 5);

  // One file, and the table output saying the same.
  ToolResult one = runTool({"tables", "AlEvntdb.dat"});
  EXPECT_EQ(one.exitCode, 0) << one.err;
  EXPECT_TRUE(mentionsAll(one.out, {"EVENT_CLASS", "3 records"}));
  EXPECT_EQ(one.out.find("KEPLogDB.dat"), std::string::npos) << one.out;
  ToolResult csv = runTool({"tables", "--format", "csv", "KEPLogDB.dat"});
  EXPECT_EQ(csv.exitCode, 0) << csv.err;
  EXPECT_EQ(csv.out,
            "file,status,table,title,records\r\nKEPLogDB.dat,ok,EVENT_LOG,Event Log "
            "Table,2\r\n");
}

TEST_F(TablesCommandTest, MissingAndRefusedFilesAreErrorsWhileTheGoodOnesAreListed) {
  ASSERT_EQ(std::remove(dataPath("KEPLogDB.dat").c_str()), 0);
  truncateFile(dataPath("AlRespDB.dat"), 1);
  ToolResult result;
  Json files = runJson({"tables", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 1);
  ASSERT_TRUE(files.is_array());
  EXPECT_TRUE(hasFields(findBy(files, "name", "KEPLogDB.dat"), {{"status", "missing"}}));
  EXPECT_TRUE(hasFields(findBy(files, "name", "AlRespDB.dat"),
                        {{"status", "refused"}, {"tables", Json::array()}}));
  Json events = findBy(files, "name", "AlEvntdb.dat");
  EXPECT_EQ(events["status"], "ok");
  EXPECT_EQ(events["tables"].size(), 2u);
  EXPECT_TRUE(mentionsAll(
      result.err, {"ALRT_MISSINGFILE", "KEPLogDB.dat", "ALRT_E_INITFAILED", "AlRespDB.dat"}));

  for (const std::string &file : {std::string("/nonexistent"), std::string("NoSuchFile.dat")}) {
    ToolResult missing = runTool({"tables", file});
    EXPECT_EQ(missing.exitCode, 1) << file;
    EXPECT_TRUE(mentionsAll(missing.err, {file, "ALRT_MISSINGFILE"}));
  }
  ToolResult refused = runTool({"tables", "AlRespDB.dat"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_TRUE(mentionsAll(refused.out, {"refused"}));
}

TEST_F(TablesCommandTest, DescribeShowsEveryFieldWithItsKind) {
  ToolResult result;
  Json table = runJson({"describe", "KEPLogDB.dat", "EVENT_LOG", "--format", "json"}, &result);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(
      hasFields(table, {{"table", "EVENT_LOG"}, {"title", "Event Log Table"}, {"idKey", 20}}));
  ASSERT_EQ(table["fields"].size(), 27u);
  std::map<std::string, std::string> kinds;
  for (const Json &field : table["fields"]) kinds[field["name"]] = field["kind"];
  for (const auto &[name, kind] : std::map<std::string, std::string>{{"KEPOID", "object ID"},
                                                                     {"Domain_Id", "object ID"},
                                                                     {"Time", "time stamp"},
                                                                     {"EventText", "text"},
                                                                     {"ErrorCode", "number"},
                                                                     {"Ack", "number"},
                                                                     {"binblob", "binary"},
                                                                     {"Replication", "binary"}}) {
    EXPECT_EQ(kinds[name], kind) << name;
  }
  EXPECT_TRUE(hasFields(table["fields"][9], {{"description", "Date and Time"}, {"size", 8}}));

  // Passwords are told from a text of the same name elsewhere.
  Json smtp = runJson({"describe", "AlServdb.dat", "SMTP_Service", "--format", "json"}, &result);
  EXPECT_TRUE(hasFields(smtp["fields"][3], {{"name", "Password"}, {"kind", "password"}}));
  EXPECT_EQ(smtp["fields"][7]["kind"], "binary") << "parameter list";
  Json snmp = runJson({"describe", "AlServdb.dat", "SNMP_Service", "--format", "json"}, &result);
  // The SNMP default message.
  EXPECT_TRUE(hasFields(snmp["fields"][3], {{"name", "Password"}, {"kind", "text"}}));

  ToolResult text = runTool({"describe", "AlServdb.dat", "SMTP_Service"});
  EXPECT_EQ(text.exitCode, 0);
  EXPECT_TRUE(mentionsAll(text.out, {"Server_addr"}));
}

TEST_F(TablesCommandTest, DescribeNamesWhatItCannotFind) {
  EXPECT_TRUE(failedSaying(runTool({"describe", "AlEvntdb.dat", "NO_SUCH_TABLE"}), 1,
                           {"NO_SUCH_TABLE", "ALRT_E_NOTABLE"}));
  EXPECT_TRUE(failedSaying(runTool({"describe", "Nothing.dat", "EVENT_LOG"}), 1, {"Nothing.dat"}));
  truncateFile(dataPath("KEPLogDB.dat"), 10);
  EXPECT_TRUE(
      failedSaying(runTool({"describe", "KEPLogDB.dat", "EVENT_LOG"}), 1, {"ALRT_E_INITFAILED"}));
}

// Looking changes nothing, whether it succeeds or finds damage.
TEST_F(TablesCommandTest, InspectingLeavesEveryFileAsItWas) {
  addRecords();
  truncateFile(dataPath("AlRespDB.dat"), 7);
  std::map<std::string, std::string> before = directoryContents(dataDir());
  ASSERT_TRUE(before.count("KepOM.dat"));
  const std::vector<std::vector<std::string>> commands = {
      {"tables"},
      {"tables", "--format", "json"},
      {"tables", "AlRespDB.dat"},
      {"describe", "KEPLogDB.dat", "EVENT_LOG"},
      {"describe", "AlRespDB.dat", "AlertResp_Table"},
      {"dump", "EVENT_LOG"},
      {"dump", "EVENT_CLASS", "--format", "json", "--where", "EventID=102"},
      {"dump", "OM_Instances", "--format", "csv"},
      {"dump", "AlertResp_Table"},
      {"dump", "NO_SUCH_TABLE"}};
  for (const auto &command : commands) {
    ToolResult result = runTool(command);
    EXPECT_NE(result.exitCode, -1) << command[0];
    EXPECT_EQ(directoryContents(dataDir()), before) << command[0] << " " << command.back();
  }
}

}  // namespace
}  // namespace alertdb_test
