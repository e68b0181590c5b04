#include "support/child_process.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace alertdb_test {

ChildProcess::ChildProcess(const std::string &program, const std::vector<std::string> &args) {
  std::string path = std::string(ALERTDB_TEST_BINARY_DIR) + "/programs/" + program;
  int in[2], out[2];
  if (pipe(in) != 0) return;
  if (pipe(out) != 0) {
    close(in[0]);
    close(in[1]);
    return;
  }
  std::vector<char *> argv;
  argv.push_back(path.data());
  std::vector<std::string> copies(args);
  for (auto &a : copies) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    close(in[0]);
    close(in[1]);
    close(out[0]);
    close(out[1]);
    execv(path.c_str(), argv.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  toChild_ = in[1];
  fromChild_ = out[0];
}

ChildProcess::~ChildProcess() {
  if (toChild_ >= 0) close(toChild_);
  if (fromChild_ >= 0) close(fromChild_);
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

std::string ChildProcess::readLine() {
  for (;;) {
    auto nl = buffer_.find('\n');
    if (nl != std::string::npos) {
      std::string line = buffer_.substr(0, nl);
      buffer_.erase(0, nl + 1);
      return line;
    }
    char chunk[256];
    ssize_t n = read(fromChild_, chunk, sizeof chunk);
    if (n <= 0) {
      std::string rest;
      rest.swap(buffer_);
      return rest;
    }
    buffer_.append(chunk, static_cast<size_t>(n));
  }
}

void ChildProcess::writeLine(const std::string &line) {
  std::string data = line + "\n";
  ssize_t n = write(toChild_, data.data(), data.size());
  (void)n;
}

void ChildProcess::kill(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
}

int ChildProcess::wait() {
  int status = -1;
  if (pid_ > 0 && waitpid(pid_, &status, 0) == pid_) pid_ = -1;
  return status;
}

}  // namespace alertdb_test
