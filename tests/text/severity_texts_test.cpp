#include "text/severity_texts.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/dynamic_library.h"
#include "platform/string_table.h"

namespace {

std::string severity(std::int32_t value, HINSTANCE module = AlertDBModuleHandle()) {
  char text[128] = "untouched";
  EXPECT_EQ(GetSeverityText(text, value, module), 0u);
  return text;
}

std::string status(std::int32_t value, HINSTANCE module = AlertDBModuleHandle()) {
  char text[128] = "untouched";
  EXPECT_EQ(GetOperationalStatusText(text, value, module), 0u);
  return text;
}

// Runs before the other tests fill the caches.
TEST(SeverityTexts, TextsAreCachedOnlyOnceLoaded) {
  HINSTANCE withoutStrings = platform::GetModuleHandleA(nullptr);
  EXPECT_EQ(severity(3, withoutStrings), "");
  EXPECT_EQ(severity(3), "MINOR") << "the empty load left the cache to be filled";
  EXPECT_EQ(status(2), "Degraded");
  EXPECT_EQ(status(2, withoutStrings), "Degraded");
}

TEST(SeverityTexts, ScaleValuesGiveTheirTextsAndOthersLeaveTheBufferAlone) {
  const char *severities[] = {"None", "CRITICAL", "MAJOR", "MINOR", "INFO"};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(severity(i), severities[i]);
  const char *statuses[] = {"Unknown", "Operational", "Degraded", "Non Operational"};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(status(i), statuses[i]);

  EXPECT_EQ(severity(5), "untouched");
  EXPECT_EQ(severity(8), "untouched") << "never the TEST entry";
  EXPECT_EQ(severity(-1), "untouched");
  EXPECT_EQ(status(4), "untouched");
  EXPECT_EQ(status(-1), "untouched");
  EXPECT_EQ(GetSeverityText(nullptr, 1, AlertDBModuleHandle()), 0xFFFFu);
  EXPECT_EQ(GetOperationalStatusText(nullptr, 1, AlertDBModuleHandle()), 0xFFFFu);
}

TEST(SeverityTexts, ThreadsAskingFirstAllGetTheWholeText) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&results, i] {
      char text[128] = {};
      GetSeverityText(text, 2, AlertDBModuleHandle());
      results[i] = text;
    });
  }
  for (auto &t : threads) t.join();
  for (const auto &r : results) EXPECT_EQ(r, "MAJOR");
}

}  // namespace
