#include "text/severity_texts.h"

#include <gtest/gtest.h>

#include <cstring>
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

std::string status(std::int32_t value) {
  char text[128] = "untouched";
  EXPECT_EQ(GetOperationalStatusText(text, value, AlertDBModuleHandle()), 0u);
  return text;
}

TEST(SeverityTexts, AModuleWithoutStringsGivesEmptyTextsAndFillsNothing) {
  // Runs before the other tests fill the caches. Severity 3 asked first through a module that has
  // no string table.
  char text[128] = "x";
  EXPECT_EQ(GetSeverityText(text, 3, platform::GetModuleHandleA(nullptr)), 0u);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(severity(3), "MINOR") << "the empty load left the cache to be filled";
}

TEST(SeverityTexts, ScaleValuesGiveTheirTexts) {
  EXPECT_EQ(severity(0), "None");
  EXPECT_EQ(severity(1), "CRITICAL");
  EXPECT_EQ(severity(2), "MAJOR");
  EXPECT_EQ(severity(3), "MINOR");
  EXPECT_EQ(severity(4), "INFO");
  EXPECT_EQ(status(0), "Unknown");
  EXPECT_EQ(status(1), "Operational");
  EXPECT_EQ(status(2), "Degraded");
  EXPECT_EQ(status(3), "Non Operational");
}

TEST(SeverityTexts, ValuesOffTheScaleLeaveTheBufferAlone) {
  EXPECT_EQ(severity(5), "untouched");
  EXPECT_EQ(severity(8), "untouched") << "never the TEST entry";
  EXPECT_EQ(severity(-1), "untouched");
  EXPECT_EQ(status(4), "untouched");
  EXPECT_EQ(status(-1), "untouched");
  EXPECT_EQ(GetSeverityText(nullptr, 1, AlertDBModuleHandle()), 0xFFFFu);
  EXPECT_EQ(GetOperationalStatusText(nullptr, 1, AlertDBModuleHandle()), 0xFFFFu);
}

TEST(SeverityTexts, TheFirstFillingDecidesTheText) {
  // Status 2 is filled here first through the library's module; a later call
  // with a module that has no strings still gets it from the cache.
  EXPECT_EQ(status(2), "Degraded");
  char text[128] = "x";
  EXPECT_EQ(GetOperationalStatusText(text, 2, platform::GetModuleHandleA(nullptr)), 0u);
  EXPECT_STREQ(text, "Degraded");
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
