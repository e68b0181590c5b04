#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace alertdb_test {

ChildProcess::ChildProcess(const std::string &program, const std::vector<std::string> &args,
                           const std::string &errorPath) {
  std::string path = std::string(ALERTDB_TEST_BINARY_DIR) + "/programs/" + program;
  int in[2], out[2];
  // Close-on-exec, so that a second child does not hold the first one's
  // output open after it died.
  if (pipe2(in, O_CLOEXEC) != 0) return;
  if (pipe2(out, O_CLOEXEC) != 0) {
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
    if (!errorPath.empty()) {
      int err = open(errorPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (err >= 0) dup2(err, 2);
    }
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

void ChildProcess::readAvailable() {
  if (fromChild_ < 0) return;
  char chunk[65536];
  ssize_t n = read(fromChild_, chunk, sizeof chunk);
  if (n <= 0) {
    close(fromChild_);
    fromChild_ = -1;
    return;
  }
  buffer_.append(chunk, static_cast<std::size_t>(n));
  std::size_t start = 0, nl;
  while ((nl = buffer_.find('\n', start)) != std::string::npos) {
    lines_.push_back(buffer_.substr(start, nl - start));
    start = nl + 1;
  }
  buffer_.erase(0, start);
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

void pumpUntil(std::vector<ChildProcess *> &children,
               std::chrono::steady_clock::time_point deadline, const std::function<bool()> &enough) {
  while (!enough()) {
    std::vector<pollfd> fds;
    std::vector<ChildProcess *> open;
    for (ChildProcess *c : children) {
      if (!c->ended()) {
        fds.push_back({c->fd(), POLLIN, 0});
        open.push_back(c);
      }
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (fds.empty() || left.count() <= 0) return;
    if (poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0) return;
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) open[i]->readAvailable();
    }
  }
}

}  // namespace alertdb_test
