// Runs the alertdb tool as a separate process and collects what it printed.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace alertdb_test {

struct ToolResult {
  int exitCode = -1;  // -1 when it did not exit normally
  std::string out;
  std::string err;
};

// Runs `alertdb args...` with the test's environment, plus `extraEnv` (NAME,
// value) pairs; `input` goes to its standard input.
ToolResult runTool(const std::vector<std::string> &args,
                   const std::vector<std::pair<std::string, std::string>> &extraEnv = {},
                   const std::string &input = "");

// Whether `text` holds every one of `words`; the failure shows the text.
::testing::AssertionResult mentionsAll(const std::string &text,
                                       const std::vector<std::string> &words);

// Whether the tool exited with `exitCode`, printed nothing on standard output
// and named every one of `words` on its error output.
::testing::AssertionResult failedSaying(const ToolResult &result, int exitCode,
                                        const std::vector<std::string> &words = {});

// The path of the tool under test.
std::string toolPath();

}  // namespace alertdb_test
