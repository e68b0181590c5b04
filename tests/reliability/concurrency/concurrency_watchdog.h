// Ends a run that hangs: past its time limit it takes a backtrace of every
// thread of each process it watches (gdb, when there is one) and kills them,
// so that a deadlock fails the test with the places where it waits instead
// of stopping the suite.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace concurrency {

class Watchdog {
 public:
  explicit Watchdog(std::chrono::seconds limit) {
    thread_ = std::thread([this, limit] {
      std::unique_lock<std::mutex> lock(mutex_);
      if (wake_.wait_for(lock, limit, [this] { return stopped_; })) return;
      fired_ = true;
      for (pid_t pid : pids_) {
        backtraces_ += "process " + std::to_string(pid) + ":\n" + backtrace(pid);
        ::kill(pid, SIGKILL);
      }
    });
  }
  ~Watchdog() { stop(); }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;

  void watch(pid_t pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    pids_.push_back(pid);
  }
  void stop() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
  }
  // After stop(): whether the limit passed, and where the processes were.
  bool fired() const { return fired_; }
  const std::string &backtraces() const { return backtraces_; }

 private:
  static std::string backtrace(pid_t pid) {
    std::string command =
        "timeout 60 gdb -p " + std::to_string(pid) + " -batch -nx -ex 'thread apply all bt' 2>&1";
    std::string text;
    if (FILE *out = ::popen(command.c_str(), "r")) {
      char buffer[4096];
      std::size_t n;
      while ((n = std::fread(buffer, 1, sizeof buffer, out)) > 0) text.append(buffer, n);
      ::pclose(out);
    }
    return text.empty() ? "(no backtrace: gdb is not there)\n" : text;
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopped_ = false;
  bool fired_ = false;
  std::vector<pid_t> pids_;
  std::string backtraces_;
  std::thread thread_;
};

}  // namespace concurrency
