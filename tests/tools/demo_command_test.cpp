// "alertdb demo": the typical alert flow, run twice on one data directory,
// and what it leaves behind as the library reads it.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "alertdb.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/event_log_entries.h"

namespace alertdb_test {
namespace {

// The object IDs the demo reports ("    response {...} (new)"), by what they are.
struct Reported {
  std::map<std::string, _GUID> ids;
  std::map<std::string, bool> earlier;
};

Reported reportedIds(const std::string &out) {
  const std::string kinds[] = {"event class", "service",   "alert user", "address",
                               "response",    "log entry", "result"};
  const std::string kEarlier = " (from an earlier run)";
  const std::size_t kIdLength = 38;
  Reported reported;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    for (const std::string &kind : kinds) {
      const std::string lead = "    " + kind + " {";
      if (line.rfind(lead, 0) != 0 || line.size() < lead.size() - 1 + kIdLength) continue;
      std::string idText = line.substr(lead.size() - 1, kIdLength);
      std::string rest = line.substr(lead.size() - 1 + kIdLength);
      if (rest != " (new)" && rest != kEarlier) continue;
      _GUID id{};
      EXPECT_TRUE(platform::GuidFromString(idText.c_str(), &id)) << line;
      EXPECT_EQ(reported.ids.count(kind), 0u) << kind << " reported twice";
      reported.ids[kind] = id;
      reported.earlier[kind] = rest == kEarlier;
    }
  }
  return reported;
}

bool sameId(const _GUID &a, const _GUID &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

class DemoCommandTest : public IsolatedTest {};

TEST_F(DemoCommandTest, RunsTwiceOnOneDirectoryAndLeavesTheRecordsItReports) {
  // An entry nobody acknowledged survives the demo's purge.
  _GUID unacknowledged = addLogEntry(5, false);

  ToolResult first = runTool({"demo"});
  ToolResult second = runTool({"demo"});
  ASSERT_EQ(first.exitCode, 0) << first.out << first.err;
  ASSERT_EQ(second.exitCode, 0) << second.out << second.err;
  for (const ToolResult *run : {&first, &second}) {
    for (int step = 1; step <= 10; ++step) {
      std::string heading = (step < 10 ? "\n " : "\n") + std::to_string(step) + ". ";
      EXPECT_NE(run->out.find(heading), std::string::npos) << "step " << step;
    }
    for (const char *shown :
         {"\n    subject  [MAJOR] Disk Full on server01\n",
          "\n    message  Disk Full on server01 at ", ": Volume /var is 97% full\n",
          "\n    to       Pat Example <pat@example.com>\n",
          "\n    subject  [<Severity>] <Event Name> on <Workstation Name>\n",
          "purge of acknowledged entries: 1 removed, 1 left in the log", "All 10 steps worked"}) {
      EXPECT_NE(run->out.find(shown), std::string::npos) << shown << "\n" << run->out;
    }
  }
  Reported one = reportedIds(first.out);
  Reported two = reportedIds(second.out);
  ASSERT_EQ(one.ids.size(), 7u) << first.out;
  ASSERT_EQ(two.ids.size(), 7u) << second.out;
  // The standing records are made once and found again; each run logs and answers anew.
  for (const char *standing : {"event class", "service", "alert user", "address", "response"}) {
    EXPECT_FALSE(one.earlier[standing]) << standing;
    EXPECT_TRUE(two.earlier[standing]) << standing;
    EXPECT_TRUE(sameId(one.ids[standing], two.ids[standing])) << standing;
  }
  for (const char *fresh : {"log entry", "result"}) {
    EXPECT_FALSE(two.earlier[fresh]) << fresh;
    EXPECT_FALSE(sameId(one.ids[fresh], two.ids[fresh])) << fresh;
  }
  EXPECT_NE(first.out.find("linked to \"Disk Full\" (new)"), std::string::npos);
  EXPECT_NE(second.out.find("linked to \"Disk Full\" (by an earlier run"), std::string::npos);

  // What the library finds in the directory.
  CAlertEVENT_CLASSDB classes;
  ASSERT_TRUE(openOrMake(classes));
  ALRTEVENT_CLASSREC eventClass{};
  ASSERT_EQ(classes.DBAlertRecRetrieve(&one.ids["event class"], &eventClass), 0u);
  EXPECT_STREQ(eventClass.EventName, "Disk Full");
  int named = 0;
  for (std::uint32_t r =
           classes.DBAlertRecFindFirst(CAlertEVENT_CLASSDB::kIdKey, 0, nullptr, &eventClass);
       r == 0; r = classes.DBAlertRecFindNext(&eventClass)) {
    named += std::strcmp(eventClass.EventName, "Disk Full") == 0;
  }
  EXPECT_EQ(named, 1);

  CAlertNtfyServDB catalogue;
  ASSERT_TRUE(openOrMake(catalogue));
  ALRTNTFYSERV service{};
  ASSERT_EQ(catalogue.DBAlertRecRetrieve(&one.ids["service"], &service), 0u);
  EXPECT_EQ(std::uint32_t{service.ServiceType}, 5u);

  CAlertUsrDB users;
  ASSERT_TRUE(openOrMake(users));
  ALERTUSRREC user{};
  EXPECT_EQ(users.DBAlertRecRetrieve(&one.ids["alert user"], &user), 0u);
  CAlertUSR_SMTPDB addresses;
  ASSERT_TRUE(openOrMake(addresses));
  ALRTUSR_SMTPSERVICEREC address{};
  ASSERT_EQ(addresses.DBAlertRecRetrieve(&one.ids["address"], &address), 0u);
  EXPECT_STREQ(address.SMTPMailAddr, "pat@example.com");
  CAlertUsrInstServDB instances;
  ASSERT_TRUE(openOrMake(instances));
  int instanceCount = 0;
  ALRTUSRINSTSERV instance{};
  for (std::uint32_t r =
           instances.DBAlertRecFindFirst(CAlertUsrInstServDB::kIdKey, 0, nullptr, &instance);
       r == 0; r = instances.DBAlertRecFindNext(&instance)) {
    ++instanceCount;
    EXPECT_TRUE(sameId(instance.UserOid, one.ids["alert user"]));
    EXPECT_TRUE(sameId(instance.Service_KEPOID, one.ids["service"]));
    EXPECT_TRUE(sameId(instance.ServicePerInfo_KEPOID, one.ids["address"]));
  }
  EXPECT_EQ(instanceCount, 1);

  CAlertRespDB responses;
  ASSERT_TRUE(openOrMake(responses));
  ALERTRESPREC response{};
  ASSERT_EQ(responses.DBAlertRecRetrieve(&one.ids["response"], &response), 0u);
  EXPECT_TRUE(sameId(response.UserOID, one.ids["alert user"]));
  EXPECT_TRUE(sameId(response.ServiceOID, one.ids["service"]));
  EXPECT_EQ(std::uint32_t{response.ServiceType}, 5u);

  CAlertEVENT_RESPDB links;
  ASSERT_TRUE(openOrMake(links));
  int linkCount = 0;
  ALRTEVENT_RESPREC link{};
  for (std::uint32_t r = links.DBAlertRecFindFirst(CAlertEVENT_RESPDB::kIdKey, 0, nullptr, &link);
       r == 0; r = links.DBAlertRecFindNext(&link)) {
    ++linkCount;
    EXPECT_TRUE(sameId(link.EventClassOID, one.ids["event class"]));
    EXPECT_TRUE(sameId(link.ResponseOID, one.ids["response"]));
  }
  EXPECT_EQ(linkCount, 1);

  // Each run's result stays; its acknowledged log entry went with the purge.
  CAlertRespResultsDB results;
  ASSERT_TRUE(openOrMake(results));
  CAlertEVENT_LOGDB log;
  ASSERT_TRUE(openOrMake(log));
  for (Reported *run : {&one, &two}) {
    ALERTRESPRESULTREC result{};
    ASSERT_EQ(results.DBAlertRecRetrieve(&run->ids["result"], &result), 0u);
    EXPECT_TRUE(sameId(result.LogEntryOID, run->ids["log entry"]));
    EXPECT_TRUE(sameId(result.ResponseOID, one.ids["response"]));
    EXPECT_EQ(std::uint32_t{result.Result}, 0u);
    ALRTEVENT_LOGREC entry{};
    EXPECT_EQ(log.DBAlertRecRetrieve(&run->ids["log entry"], &entry), ALRT_E_NOTFOUND);
  }
  EXPECT_EQ(logEntryIds(), std::vector<std::string>{platform::GuidToString(unacknowledged)});
}

TEST_F(DemoCommandTest, ShowsTheChangeEventSetByItsChanges) {
  HANDLE event = platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  ASSERT_NE(event, nullptr);
  std::uint32_t before = 0;
  ASSERT_EQ(platform::GetEventSetCount(event, &before), 1);
  ToolResult run = runTool({"demo"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  std::uint32_t after = 0;
  ASSERT_EQ(platform::GetEventSetCount(event, &after), 1);
  const std::string lead = "\"AlertDBModifyEvent\": set ";
  std::size_t at = run.out.find(lead);
  ASSERT_NE(at, std::string::npos) << run.out;
  std::istringstream line(run.out.substr(at + lead.size()));
  std::string count, rest;
  line >> count;
  std::getline(line, rest);
  std::uint32_t shown = 1;
  if (count != "once") {
    shown = static_cast<std::uint32_t>(std::stoul(count));
    ASSERT_EQ(rest.rfind(" times", 0), 0u) << rest;
    rest.erase(0, 6);
  }
  EXPECT_EQ(rest, " by the changes above, signalled now");
  EXPECT_EQ(shown, after - before);
  EXPECT_GT(shown, 0u);
  EXPECT_EQ(platform::WaitForSingleObject(event, 0), platform::kWaitObject0);
  platform::CloseHandle(event);
}

TEST_F(DemoCommandTest, ADamagedDataFileStopsItWithTheStatusNamed) {
  const std::string garbage(8192, 'x');
  writeFile(dataPath("AlEvntdb.dat"), garbage);
  ToolResult run = runTool({"demo"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_TRUE(mentionsAll(run.out, {" 2. Register an event class"}));
  EXPECT_EQ(run.out.find("All 10 steps worked"), std::string::npos) << run.out;
  EXPECT_TRUE(mentionsAll(run.err, {"alertdb demo: ALRT_E_", "AlEvntdb.dat"}));
  EXPECT_EQ(readFile(dataPath("AlEvntdb.dat")), garbage);
}

TEST_F(DemoCommandTest, WorksOnAFreshDirectoryGivenByOption) {
  std::string fresh = dataPath("fresh/data");
  ToolResult run = runTool({"demo", "--data-dir", fresh});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_NE(run.out.find("data directory: " + fresh + "\n"), std::string::npos) << run.out;
  for (const char *file :
       {"AlEvntdb.dat", "AlServdb.dat", "kepuser.dat", "AlRespDB.dat", "KEPLogDB.dat"}) {
    EXPECT_TRUE(fileExists(fresh + "/" + file)) << file;
  }
  // Nothing went to the environment's directory.
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat")));
}

}  // namespace
}  // namespace alertdb_test
