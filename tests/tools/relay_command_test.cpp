#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/link_table_probe.h"
#include "platform/named_event.h"
#include "support/data_file_query.h"
#include "support/test_environment.h"
#include "support/tool_run.h"

using alertdb_test::failedSaying;
using alertdb_test::runTool;
using alertdb_test::ToolResult;
using namespace std::chrono_literals;

namespace {

class RelayCommandTest : public alertdb_test::IsolatedTest {};

TEST_F(RelayCommandTest, WithoutAServerItSaysSoAndFails) {
  EXPECT_TRUE(failedSaying(runTool({"relay", "--timeout", "1"}, {{"ALERTDB_STORE", ""}}), 1,
                           {"ALERTDB_STORE"}));
  EXPECT_TRUE(failedSaying(runTool({"relay", "--count", "0"}), 2));
}

TEST_F(RelayCommandTest, AServerOutOfReachIsToldWithoutItsPassword) {
  ToolResult r = runTool({"relay", "--timeout", "1"},
                         {{"ALERTDB_STORE",
                           "postgresql://alertdb:s3cret@/alerting?host=/nonexistent&"
                           "password=0ther&connect_timeout=1"}});
  EXPECT_EQ(r.exitCode, 0) << "it keeps trying until its time is up";
  EXPECT_NE(r.err.find("cannot connect to postgresql://alertdb@/alerting?host=/nonexistent"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(r.err.find("s3cret"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("0ther"), std::string::npos) << r.err;
}

// The relay runs in an event namespace of its own, standing for another
// machine: only the server's notification can reach its event.
TEST_F(RelayCommandTest, AChangeMadeElsewhereSetsTheRelaysEvent) {
  if (!onServerStore()) GTEST_SKIP() << "needs the data files on a server";
  alertdb_test::ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  std::string ns = std::string(std::getenv("ALERTDB_EVENT_NAMESPACE")) + "relay_";
  ToolResult result;
  std::thread relay([&] {
    result =
        runTool({"relay", "--count", "1", "--timeout", "30"}, {{"ALERTDB_EVENT_NAMESPACE", ns}});
  });
  std::string own = std::getenv("ALERTDB_EVENT_NAMESPACE");
  setenv("ALERTDB_EVENT_NAMESPACE", ns.c_str(), 1);
  HANDLE event = platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  setenv("ALERTDB_EVENT_NAMESPACE", own.c_str(), 1);
  ASSERT_NE(event, nullptr);
  bool listening = false;
  for (int i = 0; i < 300 && !listening; ++i) {
    listening =
        alertdb_test::queryServer(
            "SELECT count(*) FROM pg_stat_activity WHERE datname ="
            " current_database() AND query LIKE 'LISTEN %'") == std::vector<std::string>{"1"};
    if (!listening) std::this_thread::sleep_for(20ms);
  }
  ASSERT_TRUE(listening);
  EXPECT_EQ(platform::WaitForSingleObject(event, 0), platform::kWaitTimeout);
  ALRTEVENT_RESPREC link = alertdb_test::makeLink(1, 2);
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
  EXPECT_EQ(platform::WaitForSingleObject(event, 20000), platform::kWaitObject0);
  relay.join();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  platform::CloseHandle(event);
}

// A relay whose connection the server ends makes it again and goes on.
TEST_F(RelayCommandTest, ALostConnectionIsMadeAgain) {
  if (!onServerStore()) GTEST_SKIP() << "needs the data files on a server";
  alertdb_test::ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  std::string ns = std::string(std::getenv("ALERTDB_EVENT_NAMESPACE")) + "relay_";
  ToolResult result;
  std::thread relay([&] {
    result =
        runTool({"relay", "--count", "1", "--timeout", "30"}, {{"ALERTDB_EVENT_NAMESPACE", ns}});
  });
  std::string own = std::getenv("ALERTDB_EVENT_NAMESPACE");
  setenv("ALERTDB_EVENT_NAMESPACE", ns.c_str(), 1);
  HANDLE event = platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  setenv("ALERTDB_EVENT_NAMESPACE", own.c_str(), 1);
  ASSERT_NE(event, nullptr);
  auto listener = [] {
    std::vector<std::string> pid = alertdb_test::queryServer(
        "SELECT pid FROM pg_stat_activity WHERE datname = current_database()"
        " AND query LIKE 'LISTEN %'");
    return pid.size() == 1 ? pid[0] : std::string();
  };
  std::string first;
  for (int i = 0; i < 300 && first.empty(); ++i) {
    first = listener();
    if (first.empty()) std::this_thread::sleep_for(20ms);
  }
  ASSERT_FALSE(first.empty());
  alertdb_test::queryServer("SELECT pg_terminate_backend(" + first + ")");
  std::string second;
  for (int i = 0; i < 500 && (second.empty() || second == first); ++i) {
    second = listener();
    if (second.empty() || second == first) std::this_thread::sleep_for(20ms);
  }
  ASSERT_FALSE(second.empty());
  ASSERT_NE(second, first);
  ALRTEVENT_RESPREC link = alertdb_test::makeLink(1, 2);
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
  EXPECT_EQ(platform::WaitForSingleObject(event, 20000), platform::kWaitObject0);
  relay.join();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_NE(result.err.find("lost the connection"), std::string::npos) << result.err;
  platform::CloseHandle(event);
}

// What has no meaning on a server says so, and names the server without its
// password.
TEST_F(RelayCommandTest, BackupAndRecoverPointToTheServersOwnTools) {
  std::vector<std::pair<std::string, std::string>> env{
      {"ALERTDB_STORE", "postgresql://alertdb:s3cret@/alerting?host=/nonexistent"}};
  ToolResult backup = runTool({"backup"}, env), recover = runTool({"recover", "AlCfgdb.dat"}, env);
  EXPECT_TRUE(failedSaying(backup, 1, {"pg_dump"}));
  EXPECT_TRUE(failedSaying(recover, 1, {"PostgreSQL server postgresql://alertdb@/alerting"}));
  for (const ToolResult *r : {&backup, &recover}) {
    EXPECT_EQ(r->err.find("s3cret"), std::string::npos) << r->err;
  }
}

}  // namespace
