#include "support/tool_run.h"

#include <utility>

#include "support/bounded_run.h"

namespace alertdb_test {

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
  BoundedRunOptions options;
  options.seconds = 900;  // a limit only against a hang
  options.env = extraEnv;
  options.input = input;
  BoundedRun run = runBounded(toolPath(), args, options);
  return {run.exitCode, std::move(run.out), std::move(run.err)};
}

}  // namespace alertdb_test
