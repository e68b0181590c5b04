#include "platform/named_event.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "platform/named_event_internal.h"
#include "support/test_environment.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using platform::internal::EventWaiterCountForTesting;

pid_t Spawn(const std::function<int()> &body) {
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

int ExitCode(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Exits 0 when the event `name` is signalled within 10 s.
int WaitInChild(const char *name) {
  HANDLE event = OpenEventA(kEventAllAccess, 1, name);
  if (event == nullptr) return 2;
  return WaitForSingleObject(event, 10000) == kWaitObject0 ? 0 : 1;
}

bool AwaitWaiters(HANDLE event, std::uint32_t count) {
  for (int i = 0; i < 1000 && EventWaiterCountForTesting(event) < count; ++i)
    std::this_thread::sleep_for(10ms);
  return EventWaiterCountForTesting(event) >= count;
}

class NamedEventTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    space_ = std::getenv("ALERTDB_EVENT_NAMESPACE");
  }
  // The base class removes the events under the test's own namespace.
  void TearDown() override {
    setenv("ALERTDB_EVENT_NAMESPACE", space_.c_str(), 1);
    IsolatedTest::TearDown();
  }
  std::string space_;
};

TEST_F(NamedEventTest, SetInOneProcessIsSeenInAnotherAndStaysUntilReset) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  ASSERT_NE(event, nullptr);
  pid_t waiter = Spawn([] { return WaitInChild("AlertDBModifyEvent"); });
  ASSERT_TRUE(AwaitWaiters(event, 1));
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(ExitCode(waiter), 0);
  EXPECT_EQ(WaitForSingleObject(event, 0), kWaitObject0);
  HANDLE other = OpenEventA(kEventAllAccess, 0, "AlertDBModifyEvent");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(WaitForSingleObject(other, 0), kWaitObject0);
  EXPECT_EQ(ResetEvent(other), 1);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(WaitForSingleObject(event, 150), 258u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);

  HANDLE initially = CreateEventA(nullptr, 1, 1, "InitiallySet");
  EXPECT_EQ(WaitForSingleObject(initially, 0), kWaitObject0);
  for (HANDLE h : {event, other, initially}) EXPECT_EQ(CloseHandle(h), 1);
}

TEST_F(NamedEventTest, AutoResetReleasesOneWaiterPerSet) {
  HANDLE event = CreateEventA(nullptr, 0, 0, "Auto");
  ASSERT_NE(event, nullptr);
  std::atomic<int> released{0};
  auto wait = [&] { released += WaitForSingleObject(event, 10000) == kWaitObject0; };
  std::thread first(wait), second(wait);
  ASSERT_TRUE(AwaitWaiters(event, 2));
  EXPECT_EQ(SetEvent(event), 1);
  for (int i = 0; i < 500 && released == 0; ++i) std::this_thread::sleep_for(10ms);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(released, 1);
  EXPECT_EQ(WaitForSingleObject(event, 0), kWaitTimeout);
  EXPECT_EQ(SetEvent(event), 1);
  first.join();
  second.join();
  EXPECT_EQ(released, 2);
  EXPECT_EQ(CloseHandle(event), 1);
}

TEST_F(NamedEventTest, KilledProcessesDoNotWedgeTheEvent) {
  HANDLE event = CreateEventA(nullptr, 1, 1, "Robust");
  ASSERT_NE(event, nullptr);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = Spawn([&] {
    HANDLE mine = OpenEventA(kEventAllAccess, 0, "Robust");
    if (mine == nullptr || !platform::internal::HoldEventLockForTesting(mine)) return 2;
    char byte = 1;
    if (write(ready[1], &byte, 1) != 1) return 3;
    pause();
    return 4;
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  close(ready[1]);
  kill(holder, SIGKILL);
  EXPECT_EQ(ExitCode(holder), 128 + SIGKILL);
  EXPECT_EQ(WaitForSingleObject(event, 5000), kWaitObject0);
  EXPECT_EQ(CloseHandle(event), 1);
}

TEST_F(NamedEventTest, NamespacesKeepEventsApart) {
  HANDLE first = CreateEventA(nullptr, 1, 1, "Shared");
  ASSERT_NE(first, nullptr);
  setenv("ALERTDB_EVENT_NAMESPACE", (space_ + "B").c_str(), 1);
  EXPECT_EQ(OpenEventA(kEventAllAccess, 0, "Shared"), nullptr);
  HANDLE second = CreateEventA(nullptr, 1, 0, "Shared");
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(WaitForSingleObject(second, 0), kWaitTimeout);
  EXPECT_EQ(CloseHandle(first), 1);
  EXPECT_EQ(CloseHandle(second), 1);
}

TEST_F(NamedEventTest, BadHandlesAndNamesAreRefused) {
  int notAnEvent = 0;
  for (HANDLE bad : {static_cast<HANDLE>(nullptr), static_cast<HANDLE>(&notAnEvent)}) {
    EXPECT_EQ(SetEvent(bad), 0);
    EXPECT_EQ(ResetEvent(bad), 0);
    EXPECT_EQ(WaitForSingleObject(bad, 0), kWaitFailed);
    EXPECT_EQ(CloseHandle(bad), 0);
  }
  HANDLE event = CreateEventA(nullptr, 1, 0, "Closing");
  HANDLE other = OpenEventA(kEventAllAccess, 0, "Closing");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(CloseHandle(event), 1);
  EXPECT_EQ(CloseHandle(event), 0);
  EXPECT_EQ(SetEvent(event), 0);
  EXPECT_EQ(SetEvent(other), 1);
  EXPECT_EQ(CloseHandle(other), 1);
  EXPECT_EQ(OpenEventA(kEventAllAccess, 0, "NeverCreated"), nullptr);
  EXPECT_EQ(OpenEventA(kEventAllAccess, 0, nullptr), nullptr);
}

}  // namespace
