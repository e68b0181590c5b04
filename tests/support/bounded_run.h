// Runs a program as a separate process under a time limit, so that a crash
// or a hang of what it does shows as a result instead of ending or holding
// the whole test run.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace alertdb_test {

struct BoundedRun {
  int exitCode = -1;  // -1 when it did not exit by itself
  int signal = 0;     // the signal that ended it
  bool timedOut = false;
  std::string out;
  std::string err;

  // A sanitizer's report on standard error: a fault, whatever the exit
  // status says.
  bool sanitizerReport() const {
    return err.find("Sanitizer") != std::string::npos ||
           err.find("runtime error:") != std::string::npos;
  }

  // How it ended, for messages.
  std::string ending() const {
    if (sanitizerReport()) return "reported by a sanitizer: " + err.substr(0, 3000);
    if (timedOut) return "hung (killed at its time limit)";
    if (signal != 0) return std::string("killed by signal ") + strsignal(signal);
    return "exit " + std::to_string(exitCode);
  }
};

struct BoundedRunOptions {
  unsigned seconds = 60;
  std::vector<std::pair<std::string, std::string>> env;
  // Run as this user and group (set in the child before it starts the program).
  int uid = -1;
  int gid = -1;
  std::string input;  // its standard input, small enough for a pipe's buffer
};

// Runs `path args...` to its end or to the time limit, collecting what it
// printed. The limit is an alarm set in the child, which outlives exec.
inline BoundedRun runBounded(const std::string &path, const std::vector<std::string> &args,
                             const BoundedRunOptions &options = {}) {
  BoundedRun result;
  int out[2], err[2], in[2];
  if (::pipe(in) != 0) return result;
  if (::pipe(out) != 0 || ::pipe(err) != 0) {
    for (int fd : {in[0], in[1], out[0], out[1]}) ::close(fd);
    return result;
  }
  std::vector<std::string> copies;
  copies.push_back(path);
  copies.insert(copies.end(), args.begin(), args.end());
  std::vector<char *> argv;
  for (std::string &arg : copies) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) ::close(fd);
    for (const auto &[name, value] : options.env) ::setenv(name.c_str(), value.c_str(), 1);
    if (options.gid >= 0 && ::setgid(static_cast<gid_t>(options.gid)) != 0) ::_exit(126);
    if (options.uid >= 0 && ::setuid(static_cast<uid_t>(options.uid)) != 0) ::_exit(126);
    ::signal(SIGALRM, SIG_DFL);
    ::alarm(options.seconds);
    ::execv(path.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  if (pid > 0 && !options.input.empty()) {
    ssize_t written = ::write(in[1], options.input.data(), options.input.size());
    (void)written;
  }
  ::close(in[1]);
  if (pid < 0) {
    ::close(out[0]);
    ::close(err[0]);
    return result;
  }
  // Both pipes are read as they fill, so a chatty child cannot block.
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  int open = 2;
  while (open > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (pollfd &p : fds) {
      if (p.fd < 0 || !(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buffer[65536];
      ssize_t n = ::read(p.fd, buffer, sizeof buffer);
      if (n > 0) {
        (p.fd == out[0] ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        ::close(p.fd);
        p.fd = -1;
        --open;
      }
    }
  }
  for (pollfd &p : fds) {
    if (p.fd >= 0) ::close(p.fd);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) {
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
    result.timedOut = result.signal == SIGALRM;
  }
  return result;
}

}  // namespace alertdb_test
