// A writer program of tests/programs run as a child whose output is read as
// it comes, so that it never blocks on a full pipe while the test waits to
// kill it.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace crash {

class WriterProcess {
 public:
  // The child's standard error goes to the file `errorPath`.
  WriterProcess(const std::string &program, const std::vector<std::string> &args,
                const std::string &errorPath) {
    std::string path = std::string(ALERTDB_TEST_BINARY_DIR) + "/programs/" + program;
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      int null = ::open("/dev/null", O_RDONLY);
      ::dup2(null, 0);
      if (null > 0) ::close(null);
      int err = ::open(errorPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (err >= 0) {
        ::dup2(err, 2);
        if (err != 2) ::close(err);
      }
      ::dup2(out[1], 1);
      ::close(out[0]);
      ::close(out[1]);
      std::vector<std::string> copies(args);
      std::vector<char *> argv{path.data()};
      for (std::string &arg : copies) argv.push_back(arg.data());
      argv.push_back(nullptr);
      ::execv(path.c_str(), argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    from_ = out[0];
    if (pid_ < 0) {
      ::close(from_);
      from_ = -1;
    }
  }
  ~WriterProcess() {
    kill(SIGKILL);
    wait();
    if (from_ >= 0) ::close(from_);
  }
  WriterProcess(const WriterProcess &) = delete;
  WriterProcess &operator=(const WriterProcess &) = delete;

  bool started() const { return pid_ > 0; }
  bool ended() const { return from_ < 0; }
  int fd() const { return from_; }
  const std::vector<std::string> &lines() const { return lines_; }
  // What followed the last whole line when the output ended.
  const std::string &torn() const { return buffer_; }

  // Reads what the child has written; at the end of its output closes the pipe.
  void readAvailable() {
    if (from_ < 0) return;
    char chunk[65536];
    ssize_t n = ::read(from_, chunk, sizeof chunk);
    if (n <= 0) {
      ::close(from_);
      from_ = -1;
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

  void kill(int signal) {
    if (pid_ > 0) ::kill(pid_, signal);
  }

  // The exit status as from waitpid; -1 once reaped.
  int wait() {
    int status = -1;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_) pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  int from_ = -1;
  std::string buffer_;
  std::vector<std::string> lines_;
};

// Reads the output of every writer until `deadline`, or until `enough`
// (called after each read) says so.
template <class Enough>
void pumpUntil(std::vector<WriterProcess *> &writers,
               std::chrono::steady_clock::time_point deadline, Enough &&enough) {
  for (;;) {
    if (enough()) return;
    std::vector<pollfd> fds;
    std::vector<WriterProcess *> open;
    for (WriterProcess *w : writers) {
      if (!w->ended()) {
        fds.push_back({w->fd(), POLLIN, 0});
        open.push_back(w);
      }
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (fds.empty() || left.count() <= 0) return;
    int n = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
    if (n < 0) return;
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) open[i]->readAvailable();
    }
  }
}

}  // namespace crash
