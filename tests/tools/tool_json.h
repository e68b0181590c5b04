// The tool's JSON output as the tool tests read it.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/tool_run.h"

namespace alertdb_test {

// Runs the tool, expecting JSON on standard output.
inline nlohmann::json runJson(const std::vector<std::string> &args, ToolResult *result) {
  *result = runTool(args);
  nlohmann::json parsed = nlohmann::json::parse(result->out, nullptr, false);
  EXPECT_FALSE(parsed.is_discarded()) << result->out << result->err;
  return parsed;
}

// The element of `list` whose `key` is `value`, or null.
inline nlohmann::json findBy(const nlohmann::json &list, const std::string &key,
                             const nlohmann::json &value) {
  for (const auto &element : list) {
    if (element.is_object() && element.contains(key) && element[key] == value) return element;
  }
  return nullptr;
}

// Whether `object` holds every member of `expected` with its value; the
// failure names each that differs.
inline ::testing::AssertionResult hasFields(const nlohmann::json &object,
                                            const nlohmann::json &expected) {
  ::testing::AssertionResult result = ::testing::AssertionSuccess();
  for (const auto &[key, value] : expected.items()) {
    const nlohmann::json actual =
        object.is_object() && object.contains(key) ? object[key] : nullptr;
    if (actual != value) {
      if (result) result = ::testing::AssertionFailure();
      result << key << " is " << actual.dump() << ", not " << value.dump() << "; ";
    }
  }
  return result;
}

}  // namespace alertdb_test
