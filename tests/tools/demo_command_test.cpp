// "alertdb demo": the typical alert flow, run twice on one data directory,
// and what it leaves behind as the library reads it.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <regex>
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
  static const std::regex line(
      R"(\n    (event class|service|alert user|address|response|log entry|result))"
      R"( (\{[^}\n]{36}\}) \((new|from an earlier run)\)(?=\n|$))");
  Reported reported;
  for (std::sregex_iterator m(out.begin(), out.end(), line), end; m != end; ++m) {
    const std::string kind = (*m)[1];
    _GUID id{};
    EXPECT_TRUE(platform::GuidFromString((*m)[2].str().c_str(), &id)) << m->str();
    EXPECT_EQ(reported.ids.count(kind), 0u) << kind << " reported twice";
    reported.ids[kind] = id;
    reported.earlier[kind] = (*m)[3] == "from an earlier run";
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
  ALRTEVENT_CLASSREC eventClass{};
  ASSERT_EQ(retrieveFrom<CAlertEVENT_CLASSDB>(one.ids["event class"], &eventClass), 0u);
  EXPECT_STREQ(eventClass.EventName, "Disk Full");
  CAlertEVENT_CLASSDB classes;
  ASSERT_TRUE(openOrMake(classes));
  int named = 0;
  for (const auto &each : allRecords<ALRTEVENT_CLASSREC>(classes)) {
    named += std::strcmp(each.EventName, "Disk Full") == 0;
  }
  EXPECT_EQ(named, 1);

  ALRTNTFYSERV service{};
  ASSERT_EQ(retrieveFrom<CAlertNtfyServDB>(one.ids["service"], &service), 0u);
  EXPECT_EQ(std::uint32_t{service.ServiceType}, 5u);
  ALERTUSRREC user{};
  EXPECT_EQ(retrieveFrom<CAlertUsrDB>(one.ids["alert user"], &user), 0u);
  ALRTUSR_SMTPSERVICEREC address{};
  ASSERT_EQ(retrieveFrom<CAlertUSR_SMTPDB>(one.ids["address"], &address), 0u);
  EXPECT_STREQ(address.SMTPMailAddr, "pat@example.com");
  CAlertUsrInstServDB instances;
  ASSERT_TRUE(openOrMake(instances));
  const auto allInstances = allRecords<ALRTUSRINSTSERV>(instances);
  ASSERT_EQ(allInstances.size(), 1u);
  EXPECT_TRUE(sameId(allInstances[0].UserOid, one.ids["alert user"]));
  EXPECT_TRUE(sameId(allInstances[0].Service_KEPOID, one.ids["service"]));
  EXPECT_TRUE(sameId(allInstances[0].ServicePerInfo_KEPOID, one.ids["address"]));

  ALERTRESPREC response{};
  ASSERT_EQ(retrieveFrom<CAlertRespDB>(one.ids["response"], &response), 0u);
  EXPECT_TRUE(sameId(response.UserOID, one.ids["alert user"]));
  EXPECT_TRUE(sameId(response.ServiceOID, one.ids["service"]));
  EXPECT_EQ(std::uint32_t{response.ServiceType}, 5u);
  CAlertEVENT_RESPDB links;
  ASSERT_TRUE(openOrMake(links));
  const auto allLinks = allRecords<ALRTEVENT_RESPREC>(links);
  ASSERT_EQ(allLinks.size(), 1u);
  EXPECT_TRUE(sameId(allLinks[0].EventClassOID, one.ids["event class"]));
  EXPECT_TRUE(sameId(allLinks[0].ResponseOID, one.ids["response"]));

  // Each run's result stays; its acknowledged log entry went with the purge.
  for (Reported *run : {&one, &two}) {
    ALERTRESPRESULTREC result{};
    ASSERT_EQ(retrieveFrom<CAlertRespResultsDB>(run->ids["result"], &result), 0u);
    EXPECT_TRUE(sameId(result.LogEntryOID, run->ids["log entry"]));
    EXPECT_TRUE(sameId(result.ResponseOID, one.ids["response"]));
    EXPECT_EQ(std::uint32_t{result.Result}, 0u);
    ALRTEVENT_LOGREC entry{};
    EXPECT_EQ(retrieveFrom<CAlertEVENT_LOGDB>(run->ids["log entry"], &entry), ALRT_E_NOTFOUND);
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
  std::smatch line;
  ASSERT_TRUE(std::regex_search(run.out, line,
                                std::regex(R"("AlertDBModifyEvent": set (?:once|(\d+) times))"
                                           R"( by the changes above, signalled now(?:\n|$))")))
      << run.out;
  const std::uint32_t shown = line[1].matched ? std::stoul(line[1].str()) : 1;
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
