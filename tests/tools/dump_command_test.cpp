// `alertdb dump` run as its own process on records the test adds through the
// library's table classes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "alertdb.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/data_file_damage.h"
#include "tools/tool_json.h"

namespace alertdb_test {
namespace {

using Json = nlohmann::json;

struct LogEntry {
  _GUID eventClass;
  const char *machine;
  std::uint32_t eventId;
  std::int32_t errorCode;
  unsigned char time[8];
  const char *text;
};

class DumpCommandTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    ToolResult init = runTool({"init"});
    ASSERT_EQ(init.exitCode, 0) << init.err;
    platform::CoCreateGuid(&classX_);
    platform::CoCreateGuid(&classY_);
  }

  // Adds the entries on a thread of their own, so that every handle is closed
  // when it returns; their new object IDs in order.
  static std::vector<_GUID> addLogEntries(const std::vector<LogEntry> &entries) {
    std::vector<_GUID> ids;
    std::thread([&] {
      CAlertEVENT_LOGDB log;
      ASSERT_EQ(log.DBOpen(), 0u);
      for (const LogEntry &e : entries) {
        auto rec = std::make_unique<ALRTEVENT_LOGREC>();
        rec->EventClass_OID = e.eventClass;
        std::strcpy(rec->MachineName, e.machine);
        rec->EventID = e.eventId;
        rec->Severity = 2;
        rec->ErrorCode = e.errorCode;
        std::memcpy(rec->Time, e.time, sizeof rec->Time);
        std::strcpy(rec->EventText, e.text);
        _GUID id{};
        ASSERT_EQ(log.DBAlertRecAdd(rec.get(), &id), 0u);
        ids.push_back(id);
      }
    }).join();
    return ids;
  }

  // Three entries: two of class X (one with every kind of value set), one of Y.
  void addSampleLog() {
    ids_ = addLogEntries({
        {classX_, "server01", 13145, -5, {126, 11, 23, 7, 12, 45, 12, 0}, "Volume C: is 99% full"},
        {classX_, "server02", 13145, 0, {}, "Volume D: is 80% full"},
        {classY_, "server01", 200, 7, {125, 1, 2, 3, 4, 5, 6, 0}, "Service stopped"},
    });
    ASSERT_EQ(ids_.size(), 3u);
    // Bytes after a text's terminator and a binary block, set through the
    // table class's update.
    std::thread([&] {
      CAlertEVENT_LOGDB log;
      ASSERT_EQ(log.DBOpen(), 0u);
      auto rec = std::make_unique<ALRTEVENT_LOGREC>();
      ASSERT_EQ(log.DBAlertRecRetrieve(&ids_[0], rec.get()), 0u);
      std::memcpy(rec->EventText + std::strlen(rec->EventText) + 1, "HIDDEN", 6);
      const unsigned char blob[] = {0xDE, 0xAD, 0xBE, 0xEF, 0x00, 0x00, 0x01};
      std::memcpy(rec->binblob, blob, sizeof blob);
      rec->BlobSize = sizeof blob;
      rec->Ack = 1;
      ASSERT_EQ(log.DBAlertRecUpdate(rec.get()), 0u);
    }).join();
  }

  static Json dumpJson(const std::vector<std::string> &args) {
    std::vector<std::string> all = {"dump"};
    all.insert(all.end(), args.begin(), args.end());
    all.insert(all.end(), {"--format", "json"});
    ToolResult result = runTool(all);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    Json document = Json::parse(result.out, nullptr, false);
    EXPECT_TRUE(document.is_object()) << result.out;
    return document.is_object() ? document : Json::object({{"records", Json::array()}});
  }

  static std::string text(const _GUID &id) { return platform::GuidToString(id); }

  // The record of `id` among the dumped ones, or null.
  static Json recordOf(const Json &document, const _GUID &id) {
    return findBy(document["records"], "KEPOID", text(id));
  }

  _GUID classX_{}, classY_{};
  std::vector<_GUID> ids_;
};

TEST_F(DumpCommandTest, ShowsEveryKindOfValueWithTheCatalogsNamesAndTitles) {
  addSampleLog();
  Json document = dumpJson({"EVENT_LOG"});
  EXPECT_TRUE(hasFields(
      document, {{"file", "KEPLogDB.dat"}, {"table", "EVENT_LOG"}, {"title", "Event Log Table"}}));
  ASSERT_EQ(document["fields"].size(), 27u);
  EXPECT_TRUE(
      hasFields(document["fields"][9],
                {{"name", "Time"}, {"description", "Date and Time"}, {"kind", "time stamp"}}));
  ASSERT_EQ(document["records"].size(), 3u);

  Json full = recordOf(document, ids_[0]);
  ASSERT_TRUE(full.is_object()) << document.dump(1);
  // The icon is set by the table and the colour derived by it; the text
  // ends at its terminator; an all-zero binary shows as nothing.
  EXPECT_TRUE(hasFields(full, {{"EventClass_OID", text(classX_)},
                               {"Icon", text(classX_)},
                               {"EventID", 13145},
                               {"ErrorCode", -5},
                               {"SeverityColor", 2},
                               {"Ack", 1},
                               {"Time", "2026-11-23T07:12:45.12"},
                               {"MachineName", "server01"},
                               {"EventText", "Volume C: is 99% full"},
                               {"binblob", "deadbeef000001"},
                               {"BlobSize", 7},
                               {"Comment", ""},
                               {"SourceOID", "{00000000-0000-0000-0000-000000000000}"},
                               {"Replication", ""}}));
  ASSERT_TRUE(full["Domain_Id"].is_string());
  EXPECT_EQ(full["Domain_Id"].get<std::string>().size(), 38u);

  Json noTime = recordOf(document, ids_[1]);
  ASSERT_TRUE(noTime.is_object());
  EXPECT_TRUE(noTime["Time"].is_null()) << "no time stamp";
  Json other = recordOf(document, ids_[2]);
  ASSERT_TRUE(other.is_object());
  EXPECT_TRUE(hasFields(other, {{"Time", "2025-01-02T03:04:05.06"}, {"ErrorCode", 7}}));
  EXPECT_EQ(document.dump().find("HIDDEN"), std::string::npos);
}

TEST_F(DumpCommandTest, WhereAndLimitChooseTheRecords) {
  addSampleLog();
  // An object ID without braces, in small letters.
  std::string bare = text(ids_[1]).substr(1, 36);
  for (char &c : bare) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  struct Case {
    std::vector<std::string> args;
    std::vector<int> expected;  // indexes into ids_
  };
  const std::vector<Case> cases = {
      {{"--where", "MachineName=server01"}, {0, 2}},
      {{"--where", "MachineName=server01", "--where", "EventID=13145"}, {0}},  // all must hold
      {{"--where", "EventClass_OID=" + text(classX_)}, {0, 1}},
      {{"--where", "EventID=13145"}, {0, 1}},
      {{"--where", "EventID=013145"}, {}},  // compared as shown
      {{"--where", "Time=2026-11-23T07:12:45.12"}, {0}},
      {{"--where", "ErrorCode=-5"}, {0}},
      {{"--where", "binblob=deadbeef000001"}, {0}},
      {{"--where", "KEPOID=" + bare}, {1}},
      {{"--where", "MachineName=nobody"}, {}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.args.back());
    std::vector<std::string> args = {"EVENT_LOG"}, got, expected;
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Json document = dumpJson(args);
    for (const Json &record : document["records"]) got.push_back(record["KEPOID"]);
    for (int i : c.expected) expected.push_back(text(ids_[i]));
    std::sort(got.begin(), got.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(got, expected);
  }
  EXPECT_EQ(dumpJson({"EVENT_LOG", "--limit", "2"})["records"].size(), 2u);
  EXPECT_EQ(
      dumpJson({"EVENT_LOG", "--limit", "1", "--where", "MachineName=server01"})["records"].size(),
      1u);
  EXPECT_EQ(dumpJson({"KEPLogDB.dat:EVENT_LOG", "--where", "EventID=200"})["records"].size(), 1u);
}

TEST_F(DumpCommandTest, CsvAndTableOutputsAreReadable) {
  addSampleLog();
  ToolResult csv = runTool({"dump", "EVENT_LOG", "--format", "csv"});
  ASSERT_EQ(csv.exitCode, 0) << csv.err;
  std::vector<std::string> lines;
  std::istringstream in(csv.out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 4u) << csv.out;
  EXPECT_EQ(lines[0].rfind("KEPOID,EventClass_OID,SourceOID,Ack,Icon,EventName,EventID,", 0), 0u)
      << lines[0];
  EXPECT_TRUE(mentionsAll(csv.out, {",2026-11-23T07:12:45.12,", ",Volume C: is 99% full,"}));

  ToolResult table = runTool({"dump", "EVENT_LOG", "--where", "MachineName=server02"});
  ASSERT_EQ(table.exitCode, 0) << table.err;
  EXPECT_EQ(table.out.rfind("EVENT_LOG in KEPLogDB.dat: Event Log Table, 1 record\n", 0), 0u)
      << table.out;
  // Titles under the names.
  EXPECT_TRUE(mentionsAll(table.out, {"Date and Time", "Volume D: is 80% full", text(ids_[1])}));
}

TEST_F(DumpCommandTest, PasswordsAreHiddenUnlessAskedFor) {
  // Passwords stored protected, as a configured console has them.
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  if (GetEncryptionStatus() != 1) GTEST_SKIP() << "this process read the setting earlier";
  _GUID id{};
  std::thread([&] {
    CAlertSMTPNtfyServDB smtp;
    ASSERT_EQ(smtp.DBOpen(), 0u);
    auto rec = std::make_unique<ALRTSMTPSERVICEREC>();
    std::strcpy(rec->Server_addr, "mail.example.com");
    std::strcpy(rec->Login, "alerts");
    std::strcpy(rec->Password, "s3cret");
    rec->Priority = 3;
    rec->ParamList[0] = 1;
    rec->ParamList[1] = 2;
    ASSERT_EQ(smtp.DBAlertRecAdd(rec.get(), &id), 0u);
  }).join();

  Json hidden = dumpJson({"SMTP_Service"});
  ASSERT_EQ(hidden["records"].size(), 1u);
  const Json &record = hidden["records"][0];
  EXPECT_TRUE(hasFields(record, {{"KEPOID", text(id)},
                                 {"Password", "***"},
                                 {"Login", "alerts"},
                                 {"Priority", 3},
                                 {"ParamList", "0102"}}));
  EXPECT_EQ(hidden.dump().find("s3cret"), std::string::npos);

  Json shown = dumpJson({"SMTP_Service", "--show-secrets"});
  ASSERT_EQ(shown["records"].size(), 1u);
  EXPECT_EQ(shown["records"][0]["Password"], "s3cret") << "in clear, as the table gives it";
  EXPECT_EQ(
      dumpJson({"SMTP_Service", "--show-secrets", "--where", "Password=s3cret"})["records"].size(),
      1u);
  EXPECT_EQ(dumpJson({"SMTP_Service", "--where", "Password=s3cret"})["records"].size(), 0u);
}

TEST_F(DumpCommandTest, UnknownNamesAndBadArgumentsAreClearErrors) {
  addSampleLog();
  // A failure names the status and its number.
  EXPECT_TRUE(failedSaying(runTool({"dump", "NO_SUCH_TABLE"}), 1,
                           {"NO_SUCH_TABLE", "ALRT_E_NOTABLE (0x200DF): "}));
  EXPECT_TRUE(
      failedSaying(runTool({"dump", "EVENT_LOG", "--where", "NoSuchField=1"}), 1, {"NoSuchField"}));
  EXPECT_TRUE(failedSaying(runTool({"dump", "AlEvntdb.dat:EVENT_LOG"}), 1, {"ALRT_E_NOTABLE"}));
  EXPECT_TRUE(failedSaying(runTool({"dump", "Gone.dat:EVENT_LOG"}), 1, {"Gone.dat"}));
  for (const std::vector<std::string> &args : {std::vector<std::string>{"dump"},
                                               {"dump", "EVENT_LOG", "--where", "MachineName"},
                                               {"dump", "EVENT_LOG", "--limit", "0"},
                                               {"dump", "EVENT_LOG", "--format", "xml"}}) {
    EXPECT_TRUE(failedSaying(runTool(args), 2)) << args.back();
  }
}

TEST_F(DumpCommandTest, DamagedFilesAndRecordsAreNeverShownAsGood) {
  std::vector<_GUID> ids = addLogEntries({
      {classX_, "server01", 1, 0, {}, "first-marker"},
      {classX_, "server01", 2, 0, {}, "second-marker"},
      {classX_, "server01", 3, 0, {}, "third-marker"},
  });
  ASSERT_EQ(ids.size(), 3u);
  ASSERT_GE(overwriteText(dataPath("KEPLogDB.dat"), "second-marker"), 1);

  ToolResult walk = runTool({"dump", "EVENT_LOG", "--format", "json"});
  EXPECT_EQ(walk.exitCode, 1);
  EXPECT_TRUE(mentionsAll(walk.err, {"QDB_E_DAMAGED", "EVENT_LOG"}));
  EXPECT_EQ(walk.out.find("econd-marker"), std::string::npos) << walk.out;
  Json partial = Json::parse(walk.out, nullptr, false);
  ASSERT_TRUE(partial.is_object()) << walk.out;
  EXPECT_LT(partial["records"].size(), 3u);

  ToolResult one = runTool({"dump", "EVENT_LOG", "--where", "KEPOID=" + text(ids[1])});
  EXPECT_EQ(one.exitCode, 1);
  EXPECT_TRUE(mentionsAll(one.err, {"QDB_E_DAMAGED"}));
  EXPECT_EQ(one.out.find("econd-marker"), std::string::npos) << one.out;

  truncateFile(dataPath("KEPLogDB.dat"), 1000);
  EXPECT_TRUE(
      failedSaying(runTool({"dump", "EVENT_LOG"}), 1, {"ALRT_E_INITFAILED", "KEPLogDB.dat"}));
}

}  // namespace
}  // namespace alertdb_test
