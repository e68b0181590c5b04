#include "platform/guid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

using namespace platform;

namespace {

bool SameGuid(const _GUID &a, const _GUID &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(GuidTest, CreatedIdsAreUniqueVersion4AndRoundTripAsText) {
  std::set<std::string> seen;
  unsigned char everSet[16] = {}, everClear[16] = {};
  for (int i = 0; i < 1000; ++i) {
    _GUID guid, parsed = {};
    ASSERT_EQ(CoCreateGuid(&guid), 0u);
    const std::string text = GuidToString(guid);
    EXPECT_EQ(guid.Data3 >> 12, 4) << text;
    EXPECT_EQ(guid.Data4[0] & 0xC0, 0x80) << text;
    ASSERT_TRUE(GuidFromString(text.c_str(), &parsed)) << text;
    EXPECT_TRUE(SameGuid(parsed, guid)) << text;
    seen.insert(text);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&guid);
    for (int b = 0; b < 16; ++b) {
      everSet[b] |= bytes[b];
      everClear[b] |= static_cast<unsigned char>(~bytes[b]);
    }
  }
  EXPECT_EQ(seen.size(), 1000u);
  // Every bit but the fixed version and variant bits has varied.
  const _GUID fixed = {0, 0, 0xF000, {0xC0}};
  const auto *fixedBytes = reinterpret_cast<const unsigned char *>(&fixed);
  for (int b = 0; b < 16; ++b) EXPECT_EQ((everSet[b] & everClear[b]) | fixedBytes[b], 0xFF) << b;
  EXPECT_NE(CoCreateGuid(nullptr), 0u);
}

TEST(GuidTest, TextFormIsTheWindowsFormAndBadTextIsRefused) {
  const _GUID known = {
      0x0123ABCD, 0x4567, 0x89EF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
  EXPECT_EQ(GuidToString(known), "{0123ABCD-4567-89EF-0123-456789ABCDEF}");
  _GUID guid = {};
  ASSERT_TRUE(GuidFromString("0123abcd-4567-89ef-0123-456789abcdef", &guid));
  EXPECT_TRUE(SameGuid(guid, known)) << "braces are optional, case is free";

  const _GUID sentinel = {0xDEADBEEF, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
  for (const char *text :
       {"", "{0123ABCD-4567-89EF-0123-456789ABCDEF", "{0123ABCD-4567-89EF-0123-456789ABCDE}",
        "{0123ABCD-4567-89EF-0123-456789ABCDEF0}", "{0123ABCD-4567-89EF-0123-456789ABCDEG}",
        "{0123ABCD-4567-89EF-01234-56789ABCDEF}", "{+123ABCD-4567-89EF-0123-456789ABCDEF}",
        "[0123ABCD-4567-89EF-0123-456789ABCDEF]"}) {
    guid = sentinel;
    EXPECT_FALSE(GuidFromString(text, &guid)) << text;
    EXPECT_TRUE(SameGuid(guid, sentinel)) << text;
  }
  EXPECT_FALSE(GuidFromString(nullptr, &guid));
  EXPECT_FALSE(GuidFromString("{0123ABCD-4567-89EF-0123-456789ABCDEF}", nullptr));
}

}  // namespace
