// Watching a manual-reset event for new sets: the set count and the wait for
// the next set, across threads and processes.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/named_event.h"
#include "platform/named_event_internal.h"
#include "support/test_environment.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using platform::internal::EventWaiterCountForTesting;

bool AwaitWaiters(HANDLE event, std::uint32_t count) {
  for (int i = 0; i < 1000 && EventWaiterCountForTesting(event) < count; ++i)
    std::this_thread::sleep_for(10ms);
  return EventWaiterCountForTesting(event) >= count;
}

std::uint32_t SetCount(HANDLE event) {
  std::uint32_t count = 0xDEADBEEF;
  EXPECT_EQ(GetEventSetCount(event, &count), 1);
  return count;
}

class EventSetCountTest : public alertdb_test::IsolatedTest {};

TEST_F(EventSetCountTest, EverySetCountsOnceAndResetsDoNot) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "Counted");
  ASSERT_NE(event, nullptr);
  HANDLE other = OpenEventA(kEventAllAccess, 0, "Counted");
  ASSERT_NE(other, nullptr);
  std::uint32_t start = SetCount(event);
  ASSERT_EQ(SetEvent(event), 1);
  // A set on a signalled event still counts.
  ASSERT_EQ(SetEvent(other), 1);
  ASSERT_EQ(ResetEvent(event), 1);
  EXPECT_EQ(SetCount(event), start + 2);
  EXPECT_EQ(SetCount(other), start + 2);

  std::uint32_t count = 7;
  EXPECT_EQ(GetEventSetCount(nullptr, &count), 0);
  EXPECT_EQ(GetEventSetCount(event, nullptr), 0);
  EXPECT_EQ(count, 7u);
  CloseHandle(other);
  EXPECT_EQ(GetEventSetCount(other, &count), 0);
  CloseHandle(event);
}

TEST_F(EventSetCountTest, WaitEndsOnlyOnANewSetNotOnTheSignalledState) {
  HANDLE event = CreateEventA(nullptr, 1, 1, "AlreadySet");
  ASSERT_NE(event, nullptr);
  std::uint32_t seen = SetCount(event);
  std::uint32_t now = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(WaitForEventSetAfter(event, seen, 150, &now), kWaitTimeout);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);
  EXPECT_EQ(now, seen);
  EXPECT_EQ(WaitForEventSetAfter(event, seen, 0, &now), kWaitTimeout);

  // A set and a reset before the wait begins are not lost.
  ASSERT_EQ(SetEvent(event), 1);
  ASSERT_EQ(ResetEvent(event), 1);
  EXPECT_EQ(WaitForEventSetAfter(event, seen, 0, &now), kWaitObject0);
  EXPECT_EQ(now, seen + 1);
  EXPECT_EQ(WaitForEventSetAfter(event, seen, kInfinite, &now), kWaitObject0);
  EXPECT_EQ(now, seen + 1);
  CloseHandle(event);
}

TEST_F(EventSetCountTest, SetInAnotherProcessWakesTheWaiter) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  ASSERT_NE(event, nullptr);
  std::uint32_t seen = SetCount(event);
  pid_t setter = fork();
  if (setter == 0) {
    HANDLE own = OpenEventA(kEventAllAccess, 0, "AlertDBModifyEvent");
    if (own == nullptr || !AwaitWaiters(own, 1)) _exit(2);
    _exit(SetEvent(own) == 1 ? 0 : 1);
  }
  std::uint32_t now = 0;
  EXPECT_EQ(WaitForEventSetAfter(event, seen, 10000, &now), kWaitObject0);
  EXPECT_EQ(now, seen + 1);
  int status = 0;
  ASSERT_EQ(waitpid(setter, &status, 0), setter);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  // The waiter no longer counts once it returned.
  EXPECT_EQ(EventWaiterCountForTesting(event), 0u);
  CloseHandle(event);
}

TEST_F(EventSetCountTest, ThreadsWaitingForTheNextSetAllWake) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "Broadcast");
  ASSERT_NE(event, nullptr);
  std::uint32_t seen = SetCount(event);
  std::uint32_t results[3] = {};
  std::thread waiters[3];
  for (int i = 0; i < 3; ++i) {
    waiters[i] = std::thread([&, i] {
      std::uint32_t now = 0;
      results[i] = WaitForEventSetAfter(event, seen, 10000, &now) == kWaitObject0 ? now : 0;
    });
  }
  ASSERT_TRUE(AwaitWaiters(event, 3));
  ASSERT_EQ(SetEvent(event), 1);
  for (std::thread &waiter : waiters) waiter.join();
  for (std::uint32_t result : results) EXPECT_EQ(result, seen + 1);
  CloseHandle(event);
}

TEST_F(EventSetCountTest, WaitRefusesBadArgumentsAndAutoResetEvents) {
  std::uint32_t now = 5;
  EXPECT_EQ(WaitForEventSetAfter(nullptr, 0, 0, &now), kWaitFailed);
  HANDLE automatic = CreateEventA(nullptr, 0, 0, "AutoReset");
  ASSERT_NE(automatic, nullptr);
  EXPECT_EQ(WaitForEventSetAfter(automatic, 0, 10, &now), kWaitFailed);
  EXPECT_EQ(now, 5u);
  // Its sets still count, and its waiters still get them.
  std::uint32_t before = SetCount(automatic);
  ASSERT_EQ(SetEvent(automatic), 1);
  EXPECT_EQ(SetCount(automatic), before + 1);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), kWaitObject0);
  HANDLE manual = CreateEventA(nullptr, 1, 0, "Manual");
  ASSERT_NE(manual, nullptr);
  EXPECT_EQ(WaitForEventSetAfter(manual, 0, 0, nullptr), kWaitFailed);
  CloseHandle(automatic);
  CloseHandle(manual);
}

}  // namespace
