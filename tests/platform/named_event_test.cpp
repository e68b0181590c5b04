#include "platform/named_event.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/named_event_internal.h"
#include "support/test_environment.h"

namespace {

using platform::CloseHandle;
using platform::CreateEventA;
using platform::OpenEventA;
using platform::ResetEvent;
using platform::SetEvent;
using platform::WaitForSingleObject;
using platform::internal::EventWaiterCountForTesting;

constexpr std::uint32_t kSignalled = platform::kWaitObject0;
constexpr std::uint32_t kTimedOut = platform::kWaitTimeout;

// Runs `body` in a child process; its result is the child's exit code.
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

// A child that opens `name` and exits 0 when the event is signalled within 10 s.
int WaitInChild(const char *name) {
  HANDLE event = OpenEventA(platform::kEventAllAccess, 1, name);
  if (event == nullptr) return 2;
  return WaitForSingleObject(event, 10000) == kSignalled ? 0 : 1;
}

// So that a set is known to reach a waiter that is already blocked.
bool AwaitWaiters(HANDLE event, std::uint32_t count) {
  for (int i = 0; i < 1000; ++i) {
    if (EventWaiterCountForTesting(event) >= count) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

class NamedEventTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    space_ = std::getenv("ALERTDB_EVENT_NAMESPACE");
  }
  // Events outlive their handles, so the test removes the ones it made.
  void TearDown() override {
    setenv("ALERTDB_EVENT_NAMESPACE", space_.c_str(), 1);
    std::string prefix = platform::internal::EventObjectName("x");
    prefix = prefix.substr(1, prefix.size() - 2);
    std::error_code ec;
    for (const auto &entry : std::filesystem::directory_iterator("/dev/shm", ec)) {
      if (entry.path().filename().string().rfind(prefix, 0) == 0) {
        std::filesystem::remove(entry.path(), ec);
      }
    }
    IsolatedTest::TearDown();
  }
  std::string space_;
};

TEST_F(NamedEventTest, SetInOneProcessIsSeenInAnother) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent");
  ASSERT_NE(event, nullptr);
  pid_t waiter = Spawn([] { return WaitInChild("AlertDBModifyEvent"); });
  ASSERT_TRUE(AwaitWaiters(event, 1));
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(ExitCode(waiter), 0);
  EXPECT_EQ(CloseHandle(event), 1);

  // An unnamed event is shared with forked children too.
  HANDLE unnamed = CreateEventA(nullptr, 1, 0, nullptr);
  ASSERT_NE(unnamed, nullptr);
  EXPECT_EQ(ExitCode(Spawn([&] { return SetEvent(unnamed) == 1 ? 0 : 1; })), 0);
  EXPECT_EQ(WaitForSingleObject(unnamed, 0), kSignalled);
  EXPECT_EQ(CloseHandle(unnamed), 1);
}

TEST_F(NamedEventTest, ManualResetStaysSignalledUntilReset) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "Manual");
  HANDLE other = OpenEventA(platform::kEventAllAccess, 0, "Manual");
  ASSERT_NE(event, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(WaitForSingleObject(event, 0), kSignalled);
  EXPECT_EQ(WaitForSingleObject(other, 1000), kSignalled);

  // Creating an existing event opens it: its state and reset mode are kept.
  HANDLE again = CreateEventA(nullptr, 0, 0, "Manual");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(WaitForSingleObject(again, 0), kSignalled);
  EXPECT_EQ(WaitForSingleObject(again, 0), kSignalled);

  EXPECT_EQ(ResetEvent(other), 1);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);
  EXPECT_EQ(WaitForSingleObject(again, 0), kTimedOut);

  HANDLE initially = CreateEventA(nullptr, 1, 1, "InitiallySet");
  EXPECT_EQ(WaitForSingleObject(initially, 0), kSignalled);
  for (HANDLE h : {event, other, again, initially}) EXPECT_EQ(CloseHandle(h), 1);
}

TEST_F(NamedEventTest, WaitTimesOutAndASetFollowedByResetStillReleases) {
  HANDLE event = CreateEventA(nullptr, 1, 0, "Quiet");
  ASSERT_NE(event, nullptr);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(WaitForSingleObject(event, 150), kTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));

  // A waiter blocked at the set is released even when a reset follows at once;
  // it is stopped meanwhile, so that the reset surely comes first.
  pid_t waiter = Spawn([] { return WaitInChild("Quiet"); });
  ASSERT_TRUE(AwaitWaiters(event, 1));
  int status = 0;
  kill(waiter, SIGSTOP);
  ASSERT_EQ(waitpid(waiter, &status, WUNTRACED), waiter);
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(ResetEvent(event), 1);
  kill(waiter, SIGCONT);
  EXPECT_EQ(ExitCode(waiter), 0);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);
  EXPECT_EQ(CloseHandle(event), 1);
}

TEST_F(NamedEventTest, AutoResetReleasesOneWaiterPerSet) {
  HANDLE event = CreateEventA(nullptr, 0, 0, "Auto");
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(WaitForSingleObject(event, 0), kSignalled);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);

  std::atomic<int> released{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&] {
      if (WaitForSingleObject(event, 10000) == kSignalled) ++released;
    });
  }
  ASSERT_TRUE(AwaitWaiters(event, 2));
  EXPECT_EQ(SetEvent(event), 1);
  for (int i = 0; i < 500 && released == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(released, 1);
  EXPECT_EQ(EventWaiterCountForTesting(event), 1u);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);  // the set was used up
  EXPECT_EQ(SetEvent(event), 1);
  for (std::thread &t : waiters) t.join();
  EXPECT_EQ(released, 2);

  // A set meant for a waiter that was killed goes to the next one.
  pid_t killed = Spawn([] { return WaitInChild("Auto"); });
  ASSERT_TRUE(AwaitWaiters(event, 1));
  kill(killed, SIGKILL);
  EXPECT_EQ(ExitCode(killed), 128 + SIGKILL);
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(WaitForSingleObject(event, 0), kSignalled);
  EXPECT_EQ(WaitForSingleObject(event, 0), kTimedOut);
  EXPECT_EQ(CloseHandle(event), 1);
}

TEST_F(NamedEventTest, DeadProcessesDoNotWedgeTheEvent) {
  HANDLE event = CreateEventA(nullptr, 1, 1, "Robust");
  ASSERT_NE(event, nullptr);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = Spawn([&] {
    HANDLE mine = OpenEventA(platform::kEventAllAccess, 0, "Robust");
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
  // The lock died with its holder; a wedged lock would make this time out.
  EXPECT_EQ(WaitForSingleObject(event, 5000), kSignalled);
  EXPECT_EQ(ResetEvent(event), 1);

  // A waiter killed while blocked leaves nothing that blocks later sets.
  pid_t killed = Spawn([] { return WaitInChild("Robust"); });
  ASSERT_TRUE(AwaitWaiters(event, 1));
  kill(killed, SIGKILL);
  EXPECT_EQ(ExitCode(killed), 128 + SIGKILL);
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(ResetEvent(event), 1);

  pid_t waiter = Spawn([] { return WaitInChild("Robust"); });
  ASSERT_TRUE(AwaitWaiters(event, 2));  // the killed waiter is still counted
  EXPECT_EQ(SetEvent(event), 1);
  EXPECT_EQ(ExitCode(waiter), 0);
  EXPECT_EQ(CloseHandle(event), 1);
}

TEST_F(NamedEventTest, RacingCreatorsShareOneEvent) {
  constexpr int kChildren = 4;
  constexpr int kNames = 16;
  auto name = [](int i) { return "Race" + std::to_string(i); };
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<pid_t> children;
  for (int c = 0; c < kChildren; ++c) {
    children.push_back(Spawn([&] {
      close(gate[1]);
      char byte;
      if (read(gate[0], &byte, 1) != 0) return 2;  // released together when the gate closes
      std::vector<HANDLE> events;
      for (int i = 0; i < kNames; ++i)
        events.push_back(CreateEventA(nullptr, 1, 0, name(i).c_str()));
      for (HANDLE event : events) {
        if (event == nullptr) return 3;
        if (WaitForSingleObject(event, 10000) != kSignalled) return 1;
      }
      return 0;
    }));
  }
  close(gate[0]);
  close(gate[1]);
  for (int i = 0; i < kNames; ++i) {
    HANDLE event = CreateEventA(nullptr, 1, 0, name(i).c_str());
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(SetEvent(event), 1);
    CloseHandle(event);
  }
  for (pid_t child : children) EXPECT_EQ(ExitCode(child), 0);
}

TEST_F(NamedEventTest, NamespacesAndNamesKeepEventsApart) {
  setenv("ALERTDB_EVENT_NAMESPACE", (space_ + "A").c_str(), 1);
  HANDLE first = CreateEventA(nullptr, 1, 1, "Shared");
  ASSERT_NE(first, nullptr);
  setenv("ALERTDB_EVENT_NAMESPACE", (space_ + "B").c_str(), 1);
  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, "Shared"), nullptr);
  HANDLE second = CreateEventA(nullptr, 1, 0, "Shared");
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(WaitForSingleObject(second, 0), kTimedOut);
  EXPECT_EQ(ResetEvent(first), 1);
  EXPECT_EQ(SetEvent(second), 1);
  setenv("ALERTDB_EVENT_NAMESPACE", (space_ + "A").c_str(), 1);
  HANDLE firstAgain = OpenEventA(platform::kEventAllAccess, 0, "Shared");
  ASSERT_NE(firstAgain, nullptr);
  EXPECT_EQ(WaitForSingleObject(firstAgain, 0), kTimedOut);

  // Separators are kept apart from each other and from look-alike names.
  HANDLE slash = CreateEventA(nullptr, 1, 1, "Global/Name");
  ASSERT_NE(slash, nullptr);
  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, "Global\\Name"), nullptr);
  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, "Global_Name"), nullptr);
  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, "Global%2FName"), nullptr);
  HANDLE backslash = CreateEventA(nullptr, 1, 0, "Global\\Name");
  ASSERT_NE(backslash, nullptr);
  EXPECT_EQ(WaitForSingleObject(backslash, 0), kTimedOut);
  for (HANDLE h : {first, second, firstAgain, slash, backslash}) EXPECT_EQ(CloseHandle(h), 1);
}

TEST_F(NamedEventTest, BadHandlesAndNamesAreRefused) {
  int notAnEvent = 0;
  for (HANDLE bad : {static_cast<HANDLE>(nullptr), static_cast<HANDLE>(&notAnEvent),
                     reinterpret_cast<HANDLE>(-1)}) {
    EXPECT_EQ(SetEvent(bad), 0);
    EXPECT_EQ(ResetEvent(bad), 0);
    EXPECT_EQ(WaitForSingleObject(bad, 0), platform::kWaitFailed);
    EXPECT_EQ(CloseHandle(bad), 0);
  }
  HANDLE event = CreateEventA(nullptr, 1, 0, "Closing");
  HANDLE other = OpenEventA(platform::kEventAllAccess, 0, "Closing");
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(CloseHandle(event), 1);
  EXPECT_EQ(CloseHandle(event), 0);
  EXPECT_EQ(SetEvent(event), 0);
  EXPECT_EQ(WaitForSingleObject(event, 0), platform::kWaitFailed);
  EXPECT_EQ(SetEvent(other), 1);  // other handles of the event live on
  EXPECT_EQ(CloseHandle(other), 1);

  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, "NeverCreated"), nullptr);
  EXPECT_EQ(OpenEventA(platform::kEventAllAccess, 0, nullptr), nullptr);
  EXPECT_EQ(CreateEventA(nullptr, 1, 0, std::string(300, 'n').c_str()), nullptr);
}

}  // namespace
