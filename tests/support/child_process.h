// A second process for tests whose behaviour crosses processes: one of the
// programs in tests/programs, talked to through its standard input and output.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace alertdb_test {

class ChildProcess {
 public:
  // Starts tests/programs/<program> with the arguments.
  ChildProcess(const std::string &program, const std::vector<std::string> &args);
  ~ChildProcess();
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;

  bool started() const { return pid_ > 0; }
  // The next line the child wrote, without its newline; empty at its end.
  std::string readLine();
  void writeLine(const std::string &line);
  void kill(int signal);
  // The exit status (as from waitpid), waiting for the child to end.
  int wait();

 private:
  pid_t pid_ = -1;
  int toChild_ = -1;
  int fromChild_ = -1;
  std::string buffer_;
};

}  // namespace alertdb_test
