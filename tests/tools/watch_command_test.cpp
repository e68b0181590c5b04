// "alertdb watch": a time-stamped line for each set of the change event,
// seen from another process, with its count, time-out and reset rules.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "alertdb.h"
#include "platform/named_event_internal.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/event_log_entries.h"

namespace alertdb_test {
namespace {

using namespace std::chrono_literals;

std::vector<std::string> lines(const std::string &text) {
  std::vector<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

// "2026-03-15T10:20:30.123+01:00 AlertDBModifyEvent set 2 times and reset"
struct Report {
  bool valid = false;
  std::time_t when = 0;  // UTC
  std::uint32_t sets = 0;
  bool reset = false;
};

Report parseReport(const std::string &line) {
  static const std::regex format(
      R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)\.\d{3}([+-])(\d\d):(\d\d))"
      R"( AlertDBModifyEvent set(?: (\d+) times)?( and reset)?)");
  std::smatch m;
  Report report;
  if (!std::regex_match(line, m, format)) return report;
  auto number = [&](int i) { return std::stoi(m[i].str()); };
  std::tm utc{};
  utc.tm_year = number(1) - 1900;
  utc.tm_mon = number(2) - 1;
  utc.tm_mday = number(3);
  utc.tm_hour = number(4);
  utc.tm_min = number(5);
  utc.tm_sec = number(6);
  const int offset = (number(8) * 60 + number(9)) * 60;
  report.when = timegm(&utc) - (m[7] == "+" ? offset : -offset);
  report.sets = m[10].matched ? static_cast<std::uint32_t>(std::stoul(m[10].str())) : 1;
  report.reset = m[11].matched;
  report.valid = true;
  return report;
}

// A watch running in the background, as another process.
class BackgroundWatch {
 public:
  explicit BackgroundWatch(std::vector<std::string> args) {
    args.insert(args.begin(), "watch");
    thread_ = std::thread([this, args] { result_ = runTool(args); });
  }
  ~BackgroundWatch() {
    if (thread_.joinable()) thread_.join();
  }
  const ToolResult &finish() {
    thread_.join();
    return result_;
  }

 private:
  std::thread thread_;
  ToolResult result_;
};

class WatchCommandTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    event_ = platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
    ASSERT_NE(event_, nullptr);
  }
  void TearDown() override {
    platform::CloseHandle(event_);
    IsolatedTest::TearDown();
  }

  // True once `count` watchers wait on the event.
  bool watchersWaiting(std::uint32_t count = 1) {
    for (int i = 0; i < 1000; ++i) {
      if (platform::internal::EventWaiterCountForTesting(event_) >= count) return true;
      std::this_thread::sleep_for(10ms);
    }
    return false;
  }

  bool eventSet() { return platform::WaitForSingleObject(event_, 0) == platform::kWaitObject0; }

  HANDLE event_ = nullptr;
};

TEST_F(WatchCommandTest, SeesAChangeMadeThroughATableInAnotherProcess) {
  BackgroundWatch watch({"--count", "1", "--timeout", "30"});
  bool ready = watchersWaiting();
  // A change through a table class of this process; the library signals it.
  CAlertEVENT_CLASSDB classes;
  ASSERT_TRUE(openOrMake(classes));
  ALRTEVENT_CLASSREC eventClass{};
  std::snprintf(eventClass.EventName, sizeof eventClass.EventName, "Watched");
  _GUID id{};
  ASSERT_EQ(classes.DBAlertRecAdd(&eventClass, &id), 0u);
  const ToolResult &result = watch.finish();
  ASSERT_TRUE(ready) << result.err;

  EXPECT_EQ(result.exitCode, 0) << result.err;
  std::vector<std::string> out = lines(result.out);
  ASSERT_EQ(out.size(), 1u) << result.out;
  Report report = parseReport(out[0]);
  ASSERT_TRUE(report.valid) << out[0];
  EXPECT_FALSE(report.reset);
  EXPECT_LE(std::abs(std::difftime(std::time(nullptr), report.when)), 60.0) << out[0];
  // Without --reset the event stays set, as the library left it.
  EXPECT_TRUE(eventSet());
}

TEST_F(WatchCommandTest, CountsEverySetEvenWhenSeveralComeBeforeALine) {
  BackgroundWatch watch({"--count", "3", "--timeout", "30"});
  bool ready = watchersWaiting();
  for (int i = 0; i < 3; ++i) ASSERT_EQ(platform::SetEvent(event_), 1);
  const ToolResult &result = watch.finish();
  ASSERT_TRUE(ready) << result.err;
  EXPECT_EQ(result.exitCode, 0) << result.err;
  std::uint32_t sets = 0;
  for (const std::string &line : lines(result.out)) {
    Report report = parseReport(line);
    EXPECT_TRUE(report.valid) << line;
    sets += report.sets;
  }
  EXPECT_EQ(sets, 3u) << result.out;
}

TEST_F(WatchCommandTest, ResetOptionResetsTheEventAfterEachReport) {
  BackgroundWatch watch({"--count", "2", "--reset", "--timeout", "30"});
  bool ready = watchersWaiting();
  ASSERT_EQ(platform::SetEvent(event_), 1);
  // The watcher reports the first set and resets the event before the second.
  bool resetSeen = false;
  for (int i = 0; i < 1000 && !(resetSeen = !eventSet()); ++i) std::this_thread::sleep_for(10ms);
  ASSERT_EQ(platform::SetEvent(event_), 1);
  const ToolResult &result = watch.finish();
  ASSERT_TRUE(ready) << result.err;
  EXPECT_TRUE(resetSeen);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  std::vector<std::string> out = lines(result.out);
  ASSERT_EQ(out.size(), 2u) << result.out;
  for (const std::string &line : out) {
    Report report = parseReport(line);
    EXPECT_TRUE(report.valid && report.reset && report.sets == 1) << line;
  }
  EXPECT_FALSE(eventSet());
}

TEST_F(WatchCommandTest, TimeoutEndsTheWatchAndFailsOnlyWhenTheCountWasNotReached) {
  auto start = std::chrono::steady_clock::now();
  ToolResult quiet = runTool({"watch", "--timeout", "0.3"});
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
  EXPECT_EQ(quiet.exitCode, 0) << quiet.err;
  EXPECT_TRUE(quiet.out.empty()) << quiet.out;

  EXPECT_TRUE(failedSaying(runTool({"watch", "--count", "2", "--timeout", "0.2"}), 1, {"0 of 2"}));
}

TEST_F(WatchCommandTest, AnEventSetBeforeTheStartIsNotAChange) {
  ASSERT_EQ(platform::SetEvent(event_), 1);
  // A watch that spun on the signalled event would print lines and succeed.
  EXPECT_TRUE(failedSaying(runTool({"watch", "--count", "1", "--timeout", "0.5"}), 1,
                           {"set before the start"}));
  EXPECT_TRUE(eventSet());

  // With --reset, that old set is cleared at the start.
  ToolResult result = runTool({"watch", "--reset", "--timeout", "0.1"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(result.out.empty()) << result.out;
  EXPECT_TRUE(mentionsAll(result.err, {"reset it"}));
  EXPECT_FALSE(eventSet());
}

TEST_F(WatchCommandTest, BadCountsAndTimeoutsAreUsageErrors) {
  for (const std::vector<std::string> &args : {std::vector<std::string>{"watch", "--count", "0"},
                                               {"watch", "--count", "many"},
                                               {"watch", "--count", "-1"},
                                               {"watch", "--timeout", "-1"},
                                               {"watch", "--timeout", "soon"},
                                               {"watch", "--count"},
                                               {"watch", "extra"}}) {
    EXPECT_TRUE(failedSaying(runTool(args), 2)) << args.back();
  }
  ToolResult help = runTool({"watch", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(mentionsAll(help.out, {"--count", "--timeout", "--reset", "UTC"}));
}

}  // namespace
}  // namespace alertdb_test
