#include "platform/guid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

namespace {

bool SameGuid(const _GUID &a, const _GUID &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(GuidTest, CreatedIdsAreRandomVersion4) {
  constexpr int kCount = 1000;
  std::set<std::string> seen;
  unsigned char everSet[16] = {};
  unsigned char everClear[16] = {};
  for (int i = 0; i < kCount; ++i) {
    _GUID guid;
    ASSERT_EQ(platform::CoCreateGuid(&guid), 0u);
    EXPECT_EQ(guid.Data3 >> 12, 4) << platform::GuidToString(guid);
    EXPECT_EQ(guid.Data4[0] & 0xC0, 0x80) << platform::GuidToString(guid);
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(&guid);
    for (int b = 0; b < 16; ++b) {
      everSet[b] |= bytes[b];
      everClear[b] |= static_cast<unsigned char>(~bytes[b]);
    }
    seen.insert(std::string(reinterpret_cast<const char *>(bytes), 16));
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kCount));
  // Every bit but the six fixed version and variant bits must have varied.
  _GUID fixed = {};
  fixed.Data3 = 0xF000;
  fixed.Data4[0] = 0xC0;
  const unsigned char *fixedBytes = reinterpret_cast<const unsigned char *>(&fixed);
  for (int b = 0; b < 16; ++b) {
    unsigned char varied = static_cast<unsigned char>(everSet[b] & everClear[b]);
    EXPECT_EQ(varied | fixedBytes[b], 0xFF) << "byte " << b;
  }
  EXPECT_NE(platform::CoCreateGuid(nullptr), 0u);
}

TEST(GuidTest, TextFormIsWindowsFormAndRoundTrips) {
  const _GUID known = {
      0x0123ABCD, 0x4567, 0x89EF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
  EXPECT_EQ(platform::GuidToString(known), "{0123ABCD-4567-89EF-0123-456789ABCDEF}");

  _GUID parsed = {};
  ASSERT_TRUE(platform::GuidFromString("{0123ABCD-4567-89EF-0123-456789ABCDEF}", &parsed));
  EXPECT_TRUE(SameGuid(parsed, known));
  parsed = {};
  ASSERT_TRUE(platform::GuidFromString("0123abcd-4567-89ef-0123-456789abcdef", &parsed));
  EXPECT_TRUE(SameGuid(parsed, known));

  for (int i = 0; i < 100; ++i) {
    _GUID guid;
    ASSERT_EQ(platform::CoCreateGuid(&guid), 0u);
    ASSERT_TRUE(platform::GuidFromString(platform::GuidToString(guid).c_str(), &parsed));
    EXPECT_TRUE(SameGuid(parsed, guid)) << platform::GuidToString(guid);
  }
}

TEST(GuidTest, BadTextIsRefusedAndLeavesTheOutputAlone) {
  const char *bad[] = {
      "",
      "{0123ABCD-4567-89EF-0123-456789ABCDEF",    // one brace
      "0123ABCD-4567-89EF-0123-456789ABCDEF}",    // one brace
      "{0123ABCD-4567-89EF-0123-456789ABCDE}",    // short
      "{0123ABCD-4567-89EF-0123-456789ABCDEF0}",  // long
      "{0123ABCD-4567-89EF-0123-456789ABCDEG}",   // not hex
      "{0123ABCD-4567-89EF-01234-56789ABCDEF}",   // dash misplaced
      "{0123ABCD-4567-89EF-0123-456789ABCDEF} ",  // trailing blank
      "{+123ABCD-4567-89EF-0123-456789ABCDEF}",   // sign
      "{0123ABCD 4567-89EF-0123-456789ABCDEF}",   // blank for dash
      "[0123ABCD-4567-89EF-0123-456789ABCDEF]",   // wrong brackets
  };
  const _GUID sentinel = {0xDEADBEEF, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
  for (const char *text : bad) {
    _GUID guid = sentinel;
    EXPECT_FALSE(platform::GuidFromString(text, &guid)) << text;
    EXPECT_TRUE(SameGuid(guid, sentinel)) << text;
  }
  _GUID guid = sentinel;
  EXPECT_FALSE(platform::GuidFromString(nullptr, &guid));
  EXPECT_FALSE(platform::GuidFromString("{0123ABCD-4567-89EF-0123-456789ABCDEF}", nullptr));
}

}  // namespace
