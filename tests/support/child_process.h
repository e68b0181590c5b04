// A second process for tests whose behaviour crosses processes: one of the
// programs in tests/programs, talked to through its standard input and output.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace alertdb_test {

class ChildProcess {
 public:
  // Starts tests/programs/<program> with the arguments; its standard error
  // goes to the file `errorPath` when one is given.
  ChildProcess(const std::string &program, const std::vector<std::string> &args,
               const std::string &errorPath = "");
  ~ChildProcess();
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;

  bool started() const { return pid_ > 0; }
  // The next line the child wrote, without its newline; empty at its end.
  std::string readLine();
  void writeLine(const std::string &line);
  void kill(int signal);
  // The exit status (as from waitpid), waiting for the child to end; -1 once reaped.
  int wait();

  // Output read as it comes (pumpUntil), so that the child never blocks on a
  // full pipe while the test waits to kill it.
  bool ended() const { return fromChild_ < 0; }
  const std::vector<std::string> &lines() const { return lines_; }
  // What followed the last whole line when the output ended.
  const std::string &torn() const { return buffer_; }
  int fd() const { return fromChild_; }
  // Reads what the child has written; at the end of its output closes the pipe.
  void readAvailable();

 private:
  pid_t pid_ = -1;
  int toChild_ = -1;
  int fromChild_ = -1;
  std::string buffer_;
  std::vector<std::string> lines_;
};

// Reads the output of every child until `deadline`, or until `enough`
// (called after each read) says so.
void pumpUntil(std::vector<ChildProcess *> &children,
               std::chrono::steady_clock::time_point deadline, const std::function<bool()> &enough);

}  // namespace alertdb_test
