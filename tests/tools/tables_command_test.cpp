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
    CAlertEVENT_LOGDB log;
    ASSERT_EQ(log.DBOpen(), 0u);
    for (int i = 0; i < 2; ++i) {
      auto entry = std::make_unique<ALRTEVENT_LOGREC>();
      std::memset(entry.get(), 0, sizeof *entry);
      std::strcpy(entry->EventText, "something happened");
      _GUID newId{};
      ASSERT_EQ(log.DBAlertRecAdd(entry.get(), &newId), 0u);
    }
  }

  static Json parsed(const ToolResult &result) {
    Json document = Json::parse(result.out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << result.out;
    return document;
  }

  static const Json *findNamed(const Json &list, const std::string &name) {
    for (const Json &each : list) {
      if (each.value("name", "") == name) return &each;
    }
    return nullptr;
  }
};

TEST_F(TablesCommandTest, ListsEveryDataFileWithItsTablesAndRecordCounts) {
  addRecords();
  // A settings file shares the extension; it is not a store and not listed.
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nLogDir=/var/log\n");
  ToolResult result = runTool({"tables", "--format", "json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  Json files = parsed(result);
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

  const Json *events = findNamed(files, "AlEvntdb.dat");
  ASSERT_NE(events, nullptr);
  ASSERT_EQ((*events)["tables"].size(), 2u);
  const Json *classes = findNamed((*events)["tables"], "EVENT_CLASS");
  ASSERT_NE(classes, nullptr);
  EXPECT_EQ((*classes)["records"], 3);
  EXPECT_FALSE((*classes)["title"].get<std::string>().empty());
  const Json *log = findNamed((*findNamed(files, "KEPLogDB.dat"))["tables"], "EVENT_LOG");
  ASSERT_NE(log, nullptr);
  EXPECT_EQ((*log)["records"], 2);
  EXPECT_EQ((*log)["title"], "Event Log Table");
  EXPECT_EQ((*findNamed((*findNamed(files, "AlServdb.dat"))["tables"], "SMTP_Service"))["records"],
            0);
  // Event classes and log entries are registered with the object manager.
  const Json *instances = findNamed((*findNamed(files, "KepOM.dat"))["tables"], "OM_Instances");
  ASSERT_NE(instances, nullptr);
  EXPECT_GE((*instances)["records"].get<int>(), 5);

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
  ToolResult result = runTool({"tables", "--format", "json"});
  EXPECT_EQ(result.exitCode, 1);
  Json files = parsed(result);
  ASSERT_TRUE(files.is_array());
  EXPECT_EQ((*findNamed(files, "KEPLogDB.dat"))["status"], "missing");
  EXPECT_EQ((*findNamed(files, "AlRespDB.dat"))["status"], "refused");
  EXPECT_TRUE((*findNamed(files, "AlRespDB.dat"))["tables"].empty());
  EXPECT_EQ((*findNamed(files, "AlEvntdb.dat"))["status"], "ok");
  EXPECT_EQ((*findNamed(files, "AlEvntdb.dat"))["tables"].size(), 2u);
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
  ToolResult result = runTool({"describe", "KEPLogDB.dat", "EVENT_LOG", "--format", "json"});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  Json table = parsed(result);
  EXPECT_EQ(table["table"], "EVENT_LOG");
  EXPECT_EQ(table["title"], "Event Log Table");
  EXPECT_EQ(table["idKey"], 20);
  ASSERT_EQ(table["fields"].size(), 27u);
  std::map<std::string, std::string> kinds;
  for (const Json &field : table["fields"]) kinds[field["name"]] = field["kind"];
  EXPECT_EQ(kinds["KEPOID"], "object ID");
  EXPECT_EQ(kinds["Domain_Id"], "object ID");
  EXPECT_EQ(kinds["Time"], "time stamp");
  EXPECT_EQ(kinds["EventText"], "text");
  EXPECT_EQ(kinds["ErrorCode"], "number");
  EXPECT_EQ(kinds["Ack"], "number");
  EXPECT_EQ(kinds["binblob"], "binary");
  EXPECT_EQ(kinds["Replication"], "binary");
  EXPECT_EQ(table["fields"][9]["description"], "Date and Time");
  EXPECT_EQ(table["fields"][9]["size"], 8);

  // Passwords are told from a text of the same name elsewhere.
  Json smtp = parsed(runTool({"describe", "AlServdb.dat", "SMTP_Service", "--format", "json"}));
  EXPECT_EQ(smtp["fields"][3]["name"], "Password");
  EXPECT_EQ(smtp["fields"][3]["kind"], "password");
  EXPECT_EQ(smtp["fields"][7]["kind"], "binary") << "parameter list";
  Json snmp = parsed(runTool({"describe", "AlServdb.dat", "SNMP_Service", "--format", "json"}));
  EXPECT_EQ(snmp["fields"][3]["name"], "Password");
  EXPECT_EQ(snmp["fields"][3]["kind"], "text") << "the SNMP default message";

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
