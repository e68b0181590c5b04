#include "platform/string_table.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::string Load(std::uint32_t id) {
  char buffer[512];
  std::memset(buffer, 'x', sizeof buffer);
  std::int32_t n = platform::LoadStringA(AlertDBModuleHandle(), id, buffer, sizeof buffer);
  EXPECT_EQ(n, static_cast<std::int32_t>(std::strlen(buffer))) << "id " << id;
  return buffer;
}

void ExecutableAnchor() {}

HINSTANCE ExecutableHandle() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void *>(&ExecutableAnchor), &info) == 0) return nullptr;
  return static_cast<HINSTANCE>(info.dli_fbase);
}

TEST(StringTableTest, TableTitlesAndFieldDescriptions) {
  // Alert server configuration: title, first, last, and a text with a trailing blank.
  EXPECT_EQ(Load(610), "Alert Server Config Table");
  EXPECT_EQ(Load(611), "Record OID (KEPOID)");
  EXPECT_EQ(Load(616), "SNMP Monitor ");
  EXPECT_EQ(Load(625), "OM Flags");
  // Notification service catalogue, spelling kept as it stands.
  EXPECT_EQ(Load(150), "Notification Services");
  EXPECT_EQ(Load(151), "Record OID (KEPOID)");
  EXPECT_EQ(Load(153), "Serviice Name");
  EXPECT_EQ(Load(165), "OM Flags");
  // SNMP trap list, whose replication field has no text.
  EXPECT_EQ(Load(670), "SNMP Trap List");
  EXPECT_EQ(Load(680), "Comunity");
  EXPECT_EQ(Load(682), "Reservered 2");
  // Event log and the last table of the range.
  EXPECT_EQ(Load(570), "Event Log Table");
  EXPECT_EQ(Load(597), "OM Flags");
  EXPECT_EQ(Load(860), "BROADCAST Notification Services");
  EXPECT_EQ(Load(867), "Replication");
  // Per-user tables: descriptions by position.
  EXPECT_EQ(Load(424), "User Mail Address");
  EXPECT_EQ(Load(474), "Mail Address");
  EXPECT_EQ(Load(534), "Phone Number");
  EXPECT_EQ(Load(100), "Alert User Table");
  EXPECT_EQ(Load(103), "Replication");
  EXPECT_EQ(Load(900), "None");
}

TEST(StringTableTest, DataFileNames) {
  EXPECT_EQ(Load(1999), "DO NOT TRANSLATE BELOW THIS LINE");
  EXPECT_EQ(Load(2000), "KEPLogDB.dat");
  EXPECT_EQ(Load(2005), "AlServdb.dat");
  EXPECT_EQ(Load(2007), "AlCfgdb.dat");
  EXPECT_EQ(Load(2008), "END OF DO NOT TRANSLATE SECTION");
}

TEST(StringTableTest, ParameterNamesAndConversions) {
  EXPECT_EQ(Load(2100), "<User Name>");
  EXPECT_EQ(Load(2106), "<Date/Time>");
  EXPECT_EQ(Load(2113), "<Operational Status>");
  EXPECT_EQ(Load(2199), "DO NOT TRANSLATE BELOW THIS LINE");
  EXPECT_EQ(Load(2200), "%s");
  EXPECT_EQ(Load(2208), "%ld");
  EXPECT_EQ(Load(2210), "%ld");
  EXPECT_EQ(Load(2213), "%s");
  EXPECT_EQ(Load(2214), "END OF DO NOT TRANSLATE SECTION");
  EXPECT_EQ(Load(2099), "");
  EXPECT_EQ(Load(2114), "");
}

TEST(StringTableTest, ServiceTypeNames) {
  EXPECT_EQ(Load(2301), "MHS Mail");
  EXPECT_EQ(Load(2305), "Internet Mail");
  EXPECT_EQ(Load(2307), "cc:Mail");
  EXPECT_EQ(Load(2315), "Kestrel Script Service");
  // No type 0, and type 16 has no display name.
  EXPECT_EQ(Load(2300), "");
  EXPECT_EQ(Load(2316), "");
}

TEST(StringTableTest, SeverityStatusAndColourTexts) {
  EXPECT_EQ(Load(2500), "None");
  EXPECT_EQ(Load(2501), "CRITICAL");
  EXPECT_EQ(Load(2504), "INFO");
  EXPECT_EQ(Load(2505), "");
  EXPECT_EQ(Load(2508), "TEST");
  EXPECT_EQ(Load(2520), "Unknown");
  EXPECT_EQ(Load(2523), "Non Operational");
  EXPECT_EQ(Load(2530), "INFO");
  EXPECT_EQ(Load(2533), "CRITICAL");
}

TEST(StringTableTest, UnknownIdGivesEmptyText) {
  for (std::uint32_t id : {0u, 99u, 104u, 683u, 868u, 2534u, 65535u, 0xFFFFFFFFu}) {
    char buffer[16] = "not touched";
    EXPECT_EQ(platform::LoadStringA(AlertDBModuleHandle(), id, buffer, sizeof buffer), 0)
        << "id " << id;
    EXPECT_STREQ(buffer, "") << "id " << id;
  }
}

TEST(StringTableTest, TextIsCutToBufferSize) {
  const std::string title = "Alert Server Config Table";
  const auto length = static_cast<std::int32_t>(title.size());
  HINSTANCE module = AlertDBModuleHandle();
  char buffer[64];

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, 5), 4);
  EXPECT_STREQ(buffer, "Aler");
  EXPECT_EQ(buffer[5], 'x');  // nothing written past the given size

  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, length), length - 1);
  EXPECT_EQ(std::string(buffer), title.substr(0, title.size() - 1));

  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, length + 1), length);
  EXPECT_EQ(std::string(buffer), title);

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, 1), 0);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(buffer[1], 'x');
}

TEST(StringTableTest, OtherModulesHaveNoStrings) {
  HINSTANCE executable = ExecutableHandle();
  ASSERT_NE(executable, nullptr);
  ASSERT_NE(executable, AlertDBModuleHandle());
  for (HINSTANCE module : {executable, static_cast<HINSTANCE>(nullptr),
                           reinterpret_cast<HINSTANCE>(&ExecutableAnchor)}) {
    char buffer[32] = "not touched";
    EXPECT_EQ(platform::LoadStringA(module, 610, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
  }
}

TEST(StringTableTest, MissingBufferWritesNothing) {
  HINSTANCE module = AlertDBModuleHandle();
  EXPECT_EQ(platform::LoadStringA(module, 610, nullptr, 64), 0);
  char buffer[8] = "keep";
  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, 0), 0);
  EXPECT_EQ(platform::LoadStringA(module, 610, buffer, -1), 0);
  EXPECT_EQ(platform::LoadStringA(nullptr, 610, buffer, 0), 0);
  EXPECT_STREQ(buffer, "keep");
}

TEST(StringTableTest, ModuleHandleIsTheLibraryLoadAddress) {
  HINSTANCE module = AlertDBModuleHandle();
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(AlertDBModuleHandle(), module);
  // The handle is the base of the shared object that holds the library's code.
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<const void *>(module), &info), 0);
  EXPECT_EQ(info.dli_fbase, reinterpret_cast<void *>(module));
  ASSERT_NE(info.dli_fname, nullptr);
  EXPECT_NE(std::string(info.dli_fname).find("alertdb"), std::string::npos) << info.dli_fname;
  EXPECT_NE(module, ExecutableHandle());
}

TEST(StringTableTest, FirstUseFromManyThreads) {
  // ctest runs each test in its own process, so this is the table's first use.
  const std::vector<std::pair<std::uint32_t, std::string>> expected = {
      {611, "Record OID (KEPOID)"}, {2103, "<Event Name>"},
      {2312, "Numeric Pager"},      {2522, "Degraded"},
      {2004, "AlRespDB.dat"},       {112, "Instalable Action Interface DLL Name"}};
  std::vector<std::thread> threads;
  std::vector<int> failures(8, 0);
  for (std::size_t t = 0; t < failures.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) {
        for (const auto &[id, text] : expected) {
          char buffer[128];
          platform::LoadStringA(AlertDBModuleHandle(), id, buffer, sizeof buffer);
          if (text != buffer) ++failures[t];
        }
      }
    });
  }
  for (auto &thread : threads) thread.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

}  // namespace
