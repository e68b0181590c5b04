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

class RelayCommandTest : public alertdb_test::IsolatedTest {
 protected:
  // Starts a relay that passes one change on, in an event namespace of its
  // own, standing for another machine; the event it sets there.
  void startRelay() {
    ASSERT_EQ(table_.DBCreate(), 0u);
    std::string own = std::getenv("ALERTDB_EVENT_NAMESPACE"), ns = own + "relay_";
    relay_ = std::thread([this, ns] {
      result_ =
          runTool({"relay", "--count", "1", "--timeout", "30"}, {{"ALERTDB_EVENT_NAMESPACE", ns}});
    });
    setenv("ALERTDB_EVENT_NAMESPACE", ns.c_str(), 1);
    event_ = platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
    setenv("ALERTDB_EVENT_NAMESPACE", own.c_str(), 1);
    ASSERT_NE(event_, nullptr);
  }
  void TearDown() override {
    if (relay_.joinable()) relay_.join();
    if (event_) platform::CloseHandle(event_);
    IsolatedTest::TearDown();
  }

  // The server process of the relay's listening connection, once there is
  // one other than `old`; empty when none comes.
  static std::string listener(const std::string &old = "") {
    for (int i = 0; i < 500; ++i) {
      std::vector<std::string> pid = alertdb_test::queryServer(
          "SELECT pid FROM pg_stat_activity WHERE datname = current_database()"
          " AND query LIKE 'LISTEN %'");
      if (pid.size() == 1 && pid[0] != old) return pid[0];
      std::this_thread::sleep_for(20ms);
    }
    return "";
  }

  // A change made here sets the relay's event, and the relay ends well.
  void expectChangePassedOn() {
    ALRTEVENT_RESPREC link = alertdb_test::makeLink(1, 2);
    _GUID id{};
    ASSERT_EQ(table_.DBAlertRecAdd(&link, &id), 0u);
    EXPECT_EQ(platform::WaitForSingleObject(event_, 20000), platform::kWaitObject0);
    relay_.join();
    EXPECT_EQ(result_.exitCode, 0) << result_.err;
  }

  alertdb_test::ProbedLinkTable table_;
  std::thread relay_;
  ToolResult result_;
  HANDLE event_ = nullptr;
};

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

// Only the server's notification can reach the relay's event.
TEST_F(RelayCommandTest, AChangeMadeElsewhereSetsTheRelaysEvent) {
  if (!onServerStore()) GTEST_SKIP() << "needs the data files on a server";
  startRelay();
  ASSERT_FALSE(listener().empty());
  EXPECT_EQ(platform::WaitForSingleObject(event_, 0), platform::kWaitTimeout);
  expectChangePassedOn();
}

// A relay whose connection the server ends makes it again and goes on.
TEST_F(RelayCommandTest, ALostConnectionIsMadeAgain) {
  if (!onServerStore()) GTEST_SKIP() << "needs the data files on a server";
  startRelay();
  std::string first = listener();
  ASSERT_FALSE(first.empty());
  alertdb_test::queryServer("SELECT pg_terminate_backend(" + first + ")");
  ASSERT_FALSE(listener(first).empty());
  expectChangePassedOn();
  EXPECT_NE(result_.err.find("lost the connection"), std::string::npos) << result_.err;
}

}  // namespace
