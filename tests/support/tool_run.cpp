#include "support/tool_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace alertdb_test {

namespace {

void drain(int fd, std::string &into) {
  char buffer[4096];
  ssize_t n;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
    into.append(buffer, static_cast<std::size_t>(n));
}

}  // namespace

std::string toolPath() { return ALERTDB_TOOL_PATH; }

::testing::AssertionResult mentionsAll(const std::string &text,
                                       const std::vector<std::string> &words) {
  for (const std::string &word : words) {
    if (text.find(word) == std::string::npos) {
      return ::testing::AssertionFailure() << "no \"" << word << "\" in:\n" << text;
    }
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult failedSaying(const ToolResult &result, int exitCode,
                                        const std::vector<std::string> &words) {
  if (result.exitCode != exitCode) {
    return ::testing::AssertionFailure()
           << "exit code " << result.exitCode << ", not " << exitCode << "; error output:\n"
           << result.err;
  }
  if (!result.out.empty()) {
    return ::testing::AssertionFailure() << "standard output not empty:\n" << result.out;
  }
  if (result.err.empty()) return ::testing::AssertionFailure() << "no error output";
  return mentionsAll(result.err, words);
}

ToolResult runTool(const std::vector<std::string> &args,
                   const std::vector<std::pair<std::string, std::string>> &extraEnv,
                   const std::string &input) {
  ToolResult result;
  int out[2], err[2], in[2];
  if (::pipe(out) != 0 || ::pipe(err) != 0 || ::pipe(in) != 0) return result;
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {out[0], out[1], err[0], err[1], in[0], in[1]}) ::close(fd);
    for (const auto &[name, value] : extraEnv) ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char *> argv;
    std::string path = toolPath();
    argv.push_back(path.data());
    std::vector<std::string> copies = args;
    for (std::string &arg : copies) argv.push_back(arg.data());
    argv.push_back(nullptr);
    ::execv(path.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  ::close(in[0]);
  if (!input.empty()) {
    ssize_t written = ::write(in[1], input.data(), input.size());
    (void)written;
  }
  ::close(in[1]);
  // Both pipes are read as they fill, so a chatty tool cannot block.
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  int open = 2;
  while (open > 0 && ::poll(fds, 2, -1) > 0) {
    for (pollfd &p : fds) {
      if (p.fd < 0 || !(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buffer[4096];
      ssize_t n = ::read(p.fd, buffer, sizeof buffer);
      if (n > 0) {
        (p.fd == out[0] ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
      } else {
        ::close(p.fd);
        p.fd = -1;
        --open;
      }
    }
  }
  for (pollfd &p : fds) {
    if (p.fd >= 0) {
      drain(p.fd, p.fd == out[0] ? result.out : result.err);
      ::close(p.fd);
    }
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

}  // namespace alertdb_test
