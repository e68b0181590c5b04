#include "platform/string_table.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::LoadStringA;

void ExecutableAnchor() {}

std::string Load(std::uint32_t id) {
  char buffer[512];
  std::memset(buffer, 'x', sizeof buffer);
  const std::int32_t length = LoadStringA(AlertDBModuleHandle(), id, buffer, sizeof buffer);
  EXPECT_EQ(length, static_cast<std::int32_t>(std::strlen(buffer))) << id;
  return buffer;
}

TEST(StringTableTest, EachRangeHoldsItsTexts) {
  EXPECT_EQ(Load(610), "Alert Server Config Table");
  EXPECT_EQ(Load(616), "SNMP Monitor ") << "trailing blank kept";
  EXPECT_EQ(Load(153), "Serviice Name");
  EXPECT_EQ(Load(534), "Phone Number");
  EXPECT_EQ(Load(2000), "KEPLogDB.dat");
  EXPECT_EQ(Load(2106), "<Date/Time>");
  EXPECT_EQ(Load(2208), "%ld");
  EXPECT_EQ(Load(2315), "Kestrel Script Service");
  EXPECT_EQ(Load(2501), "CRITICAL");
  EXPECT_EQ(Load(2523), "Non Operational");
  // Unknown IDs, including gaps inside the ranges.
  for (std::uint32_t id : {0u, 99u, 683u, 2099u, 2114u, 2300u, 2316u, 2505u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Load(id), "") << id;
  }
}

TEST(StringTableTest, TextIsCutToBufferSize) {
  HINSTANCE module = AlertDBModuleHandle();
  char buffer[64];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(LoadStringA(module, 610, buffer, 5), 4);
  EXPECT_STREQ(buffer, "Aler");
  EXPECT_EQ(buffer[5], 'x') << "nothing written past the given size";
  EXPECT_EQ(LoadStringA(module, 610, buffer, 25), 24);
  EXPECT_EQ(LoadStringA(module, 610, buffer, 26), 25);
  EXPECT_STREQ(buffer, "Alert Server Config Table");
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(LoadStringA(module, 610, buffer, 1), 0);
  EXPECT_EQ(buffer[0], '\0');

  EXPECT_EQ(LoadStringA(module, 610, nullptr, 64), 0);
  std::strcpy(buffer, "keep");
  EXPECT_EQ(LoadStringA(module, 610, buffer, 0), 0);
  EXPECT_EQ(LoadStringA(module, 610, buffer, -1), 0);
  EXPECT_STREQ(buffer, "keep");
}

TEST(StringTableTest, OnlyTheLibraryModuleHasStrings) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<const void *>(&ExecutableAnchor), &info), 0);
  const auto executable = static_cast<HINSTANCE>(info.dli_fbase);
  ASSERT_NE(executable, AlertDBModuleHandle());
  for (HINSTANCE module : {executable, static_cast<HINSTANCE>(nullptr)}) {
    char buffer[32] = "not touched";
    EXPECT_EQ(LoadStringA(module, 610, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
  }
}

TEST(StringTableTest, FirstUseFromManyThreads) {
  // ctest runs each test in its own process, so this is the table's first use.
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&failures] {
      char buffer[128];
      LoadStringA(AlertDBModuleHandle(), 2312, buffer, sizeof buffer);
      failures += std::string(buffer) != "Numeric Pager";
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
