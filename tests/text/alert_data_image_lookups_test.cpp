// The eight lookups on images laid out by hand, as another program would.
#include <gtest/gtest.h>

#include <cstring>

#include "alert_data_image_hand_laid.h"
#include "text/alert_data_image.h"
#include "text/version_match.h"

namespace {

using hand_laid::id;
using hand_laid::Image;

void *entryOf(const Image &image, std::uint32_t areaWord, std::uint32_t slot,
              std::uint32_t entrySize) {
  return const_cast<unsigned char *>(image.data() + image.get32(areaWord) + 16 +
                                     std::size_t{slot} * entrySize);
}

// Whether the lookup gives `status` and sets the entry to null.
template <class Lookup>
::testing::AssertionResult findsNothing(std::uint32_t status, Lookup lookup) {
  void *entry = &entry;
  const std::uint32_t result = lookup(&entry);
  if (result == status && entry == nullptr) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "status " << std::hex << result << ", entry " << entry;
}

// Events with object IDs 0x10.., 0x20.., ... 0x70.. and one with a top-bit
// byte (0x90..), each indexed in ascending byte order; the area holds them in
// the reverse order, so that the index's slot numbers matter.
class IndexedLookups : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kEvents = 8;
  void SetUp() override {
    image.block(12, kEvents, 8259);
    const std::size_t byId = image.block(20, kEvents, 36);
    const std::size_t byClass = image.block(16, kEvents, 36);
    const std::uint32_t classIds[kEvents] = {0,          7,          100,        0x7FFFFFFF,
                                             0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
    for (std::uint32_t k = 0; k < kEvents; ++k) {
      const std::uint32_t slot = kEvents - 1 - k;
      image.putId(byId + k * 36 + 16, idAt(k));
      image.put32(byId + k * 36 + 32, slot);
      image.put32(byClass + k * 36 + 12, classIds[k]);
      image.put32(byClass + k * 36 + 32, slot);
    }
    image.block(28, 3, 4017);
    const std::size_t responses = image.block(36, 3, 32);
    for (std::uint32_t k = 0; k < 3; ++k) {
      image.putId(responses + k * 32 + 12, id(static_cast<unsigned char>(0x40 + k), 0xEE));
      image.put32(responses + k * 32 + 28, (k + 1) % 3);
    }
  }
  static _GUID idAt(std::uint32_t k) {
    return k + 1 < kEvents ? id(static_cast<unsigned char>(0x10 * (k + 1)), 5) : id(0x90, 5);
  }
  void *eventSlot(std::uint32_t indexPosition) const {
    return entryOf(image, 12, kEvents - 1 - indexPosition, 8259);
  }

  Image image;
};

TEST_F(IndexedLookups, EventsByObjectIdAreFoundFirstLastMiddleAndAboveTheTopBit) {
  void *entry = nullptr;
  for (std::uint32_t k : {0u, 3u, 6u, 7u}) {
    const _GUID key = idAt(k);
    ASSERT_EQ(GetEventIDbyOID(image.data(), &key, &entry), 0u) << k;
    EXPECT_EQ(entry, eventSlot(k)) << k;
  }
  // Absent: below the first, between two, above the last, and one differing
  // only in its last byte.
  for (const _GUID &key : {id(0x01, 5), id(0x18, 5), id(0xFF, 5), id(0x30, 6), id(0x80, 5)}) {
    EXPECT_TRUE(
        findsNothing(0xFFFFu, [&](void **e) { return GetEventIDbyOID(image.data(), &key, e); }));
  }
}

TEST_F(IndexedLookups, ClassIdsCompareAsUnsignedNumbers) {
  const std::uint32_t present[] = {0,          7,          100,        0x7FFFFFFF,
                                   0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
  for (std::uint32_t k = 0; k < kEvents; ++k) {
    void *entry = nullptr;
    ASSERT_EQ(GetEventIDbyClassID(image.data(), present[k], &entry), 0u) << present[k];
    EXPECT_EQ(entry, eventSlot(k)) << present[k];
  }
  for (std::uint32_t absent : {1u, 99u, 0x80000002u, 0x7FFFFFFEu, 0xFFFFFFFDu}) {
    SCOPED_TRACE(absent);
    EXPECT_TRUE(findsNothing(
        0xFFFFu, [&](void **e) { return GetEventIDbyClassID(image.data(), absent, e); }));
  }
}

TEST_F(IndexedLookups, ResponsesAreFoundThroughTheirSlot) {
  for (std::uint32_t k = 0; k < 3; ++k) {
    const _GUID key = id(static_cast<unsigned char>(0x40 + k), 0xEE);
    void *entry = nullptr;
    ASSERT_EQ(GetResponseIDbyOID(image.data(), &key, &entry), 0u);
    EXPECT_EQ(entry, entryOf(image, 28, (k + 1) % 3, 4017));
  }
  // The last byte differs; an event's ID is not a response's.
  for (const _GUID &absent : {id(0x40, 0xEF), idAt(0)}) {
    EXPECT_TRUE(findsNothing(
        0xFFFFu, [&](void **e) { return GetResponseIDbyOID(image.data(), &absent, e); }));
  }
}

TEST_F(IndexedLookups, DuplicateKeysFindOneOfTheirEntries) {
  const std::size_t byClass = image.block(16, 3, 36);
  for (std::uint32_t k = 0; k < 3; ++k) {
    image.put32(byClass + k * 36 + 12, 42);
    image.put32(byClass + k * 36 + 32, k);
  }
  void *entry = nullptr;
  ASSERT_EQ(GetEventIDbyClassID(image.data(), 42, &entry), 0u);
  EXPECT_TRUE(entry == entryOf(image, 12, 0, 8259) || entry == entryOf(image, 12, 1, 8259) ||
              entry == entryOf(image, 12, 2, 8259));
}

TEST(IndexedLookupsOnEmptyBlocks, FindNothing) {
  const Image image;
  const _GUID key = id(0);
  EXPECT_TRUE(
      findsNothing(0xFFFFu, [&](void **e) { return GetEventIDbyOID(image.data(), &key, e); }));
  EXPECT_TRUE(
      findsNothing(0xFFFFu, [&](void **e) { return GetEventIDbyClassID(image.data(), 0, e); }));
  EXPECT_TRUE(
      findsNothing(0xFFFFu, [&](void **e) { return GetResponseIDbyOID(image.data(), &key, e); }));
}

TEST(IndexedLookupsOnBadInput, NullArgumentsFindNothingAndVersionsAreTheCallersToTest) {
  Image image;
  image.block(12, 1, 8259);
  const std::size_t byId = image.block(20, 1, 36);
  image.putId(byId + 16, id(1));
  const _GUID key = id(1);
  EXPECT_TRUE(findsNothing(0xFFFFu, [&](void **e) { return GetEventIDbyOID(nullptr, &key, e); }));
  EXPECT_TRUE(
      findsNothing(0xFFFFu, [&](void **e) { return GetEventIDbyOID(image.data(), nullptr, e); }));
  EXPECT_EQ(GetEventIDbyOID(image.data(), &key, nullptr), 0xFFFFu);
  EXPECT_EQ(GetResponseIDbyOID(image.data(), nullptr, nullptr), 0xFFFFu);
  EXPECT_EQ(GetEventIDbyClassID(nullptr, 0, nullptr), 0xFFFFu);

  void *entry = nullptr;
  ASSERT_EQ(GetEventIDbyOID(image.data(), &key, &entry), 0u);
  // The lookups trust the image; the version is tested apart.
  image.put32(4, 0x30002);
  ASSERT_NE(DoesVersionMatch(image.data()), 0u);
  entry = nullptr;
  EXPECT_EQ(GetEventIDbyOID(image.data(), &key, &entry), 0u);
  EXPECT_NE(entry, nullptr);
}

// Three service groups of two, one and two entries of different sizes.
class ServiceChain : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::uint32_t groupSizes[] = {2, 1, 2};
    unsigned char serial = 1;
    std::size_t previous = 0;
    for (std::uint32_t g = 0; g < 3; ++g) {
      // A header longer than its 16 bytes.
      const std::size_t group = image.group(44, previous, 24, groupSizes[g]);
      for (std::uint32_t e = 0; e < groupSizes[g]; ++e) {
        const std::uint32_t size = 2276 + 8 * serial;
        const std::size_t entry = image.append(size);
        image.put32(entry, size);
        image.putId(entry + 12, id(0xA0, serial));
        image.put32(entry + 2272, 100 + serial);
        offsets.push_back(static_cast<std::uint32_t>(entry));
        ++serial;
      }
      previous = group;
    }
  }
  ALERTRESPREC responseFor(unsigned char serial) const {
    ALERTRESPREC response{};
    response.ServiceOID = id(0xA0, serial);
    return response;
  }
  Image image;
  std::vector<std::uint32_t> offsets;
};

TEST_F(ServiceChain, FindsEntriesInEveryGroupWithTheirType) {
  for (unsigned char serial = 1; serial <= 5; ++serial) {
    const ALERTRESPREC response = responseFor(serial);
    std::uint32_t type = 0;
    EXPECT_EQ(FindServicebyResponse(image.data(), &response, &type), offsets[serial - 1u]);
    EXPECT_EQ(type, 100u + serial);
    EXPECT_EQ(FindServicebyResponse(image.data(), &response, nullptr), offsets[serial - 1u]);
  }
}

TEST_F(ServiceChain, AnAbsentServiceGivesZeroAndLeavesTheTypeAlone) {
  const ALERTRESPREC response = responseFor(6);
  std::uint32_t type = 77;
  EXPECT_EQ(FindServicebyResponse(image.data(), &response, &type), 0u);
  EXPECT_EQ(type, 77u);
  EXPECT_EQ(FindServicebyResponse(nullptr, &response, &type), 0u);
  EXPECT_EQ(FindServicebyResponse(image.data(), nullptr, &type), 0u);
  EXPECT_EQ(type, 77u);
}

TEST_F(ServiceChain, TheFirstOfTwoEqualIdsWinsAndNoChainFindsNothing) {
  image.putId(offsets[4] + 12, id(0xA0, 2));
  const ALERTRESPREC response = responseFor(2);
  EXPECT_EQ(FindServicebyResponse(image.data(), &response, nullptr), offsets[1]);

  image.put32(44, 0);
  std::uint32_t type = 9;
  EXPECT_EQ(FindServicebyResponse(image.data(), &response, &type), 0u);
  EXPECT_EQ(type, 9u);
}

// User instance groups of service types 3, 5 and 3 again.
class UserChain : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::uint32_t types[] = {3, 5, 3};
    std::size_t previous = 0;
    for (std::uint32_t g = 0; g < 3; ++g) {
      const std::size_t group = image.group(40, previous, 56, 2);
      image.put32(group + 52, types[g]);
      for (std::uint32_t e = 0; e < 2; ++e) {
        const std::size_t entry = image.append(169);
        image.put32(entry, 169);
        image.putId(entry + 80, id(0xB0, static_cast<unsigned char>(e)));
        image.putId(entry + 112, id(0xC0, static_cast<unsigned char>(g)));
        offsets[g][e] = static_cast<std::uint32_t>(entry);
      }
      previous = group;
    }
  }
  static ALERTRESPREC response(std::uint32_t type, unsigned char service, unsigned char user) {
    ALERTRESPREC r{};
    r.ServiceType = type;
    r.ServiceOID = id(0xB0, service);
    r.UserOID = id(0xC0, user);
    return r;
  }
  Image image;
  std::uint32_t offsets[3][2] = {};
};

TEST_F(UserChain, FindsTheEntryWithBothIdsInTheGroupOfTheType) {
  const ALERTRESPREC first = response(3, 1, 0);
  EXPECT_EQ(FindUserbyResponse(image.data(), &first), offsets[0][1]);
  const ALERTRESPREC second = response(5, 0, 1);
  EXPECT_EQ(FindUserbyResponse(image.data(), &second), offsets[1][0]);
}

TEST_F(UserChain, OnlyTheFirstGroupOfATypeIsSearched) {
  const ALERTRESPREC inThirdGroup = response(3, 0, 2);
  EXPECT_EQ(FindUserbyResponse(image.data(), &inThirdGroup), 0u);
}

TEST_F(UserChain, MismatchesAndMissingChainsGiveZero) {
  for (const ALERTRESPREC &r : {response(5, 0, 0), response(3, 2, 0), response(4, 0, 0)}) {
    EXPECT_EQ(FindUserbyResponse(image.data(), &r), 0u);
  }
  const ALERTRESPREC r = response(3, 0, 0);
  EXPECT_EQ(FindUserbyResponse(nullptr, &r), 0u);
  EXPECT_EQ(FindUserbyResponse(image.data(), nullptr), 0u);
  image.put32(40, 0);
  EXPECT_EQ(FindUserbyResponse(image.data(), &r), 0u);
}

// Products 10, 0x80000000, 10 again; domains and locations likewise with a
// repeated key in the last entry.
class TableScans : public ::testing::Test {
 protected:
  void SetUp() override {
    products = image.block(68, 3, 96);
    image.put32(products + 28, 10);
    image.put32(products + 96 + 28, 0x80000000);
    image.put32(products + 192 + 28, 10);
    domains = image.block(72, 3, 92);
    locations = image.block(76, 3, 171);
    for (std::uint32_t k = 0; k < 3; ++k) {
      image.putId(domains + k * 92 + 12, id(0xD0, static_cast<unsigned char>(k % 2)));
      image.putId(locations + k * 171 + 28, id(0xE0, static_cast<unsigned char>(k % 2)));
    }
  }
  void *at(std::size_t offset) const { return const_cast<unsigned char *>(image.data() + offset); }
  Image image;
  std::size_t products = 0, domains = 0, locations = 0;
};

TEST_F(TableScans, TheFirstEntryWithTheKeyIsFound) {
  void *entry = nullptr;
  EXPECT_EQ(GetProdNamebyID(image.data(), 10, &entry), 0u);
  EXPECT_EQ(entry, at(products));
  EXPECT_EQ(GetProdNamebyID(image.data(), 0x80000000, &entry), 0u);
  EXPECT_EQ(entry, at(products + 96));

  const _GUID domain = id(0xD0, 1);
  EXPECT_EQ(GetDomainNamebyOID(image.data(), &domain, &entry), 0u);
  EXPECT_EQ(entry, at(domains + 92));
  const _GUID location = id(0xE0, 0);
  EXPECT_EQ(GetModemLocationbyOID(image.data(), &location, &entry), 0u);
  EXPECT_EQ(entry, at(locations));
}

TEST_F(TableScans, AbsentKeysAndKeysPastTheLastEntryGiveZeroAndNull) {
  const _GUID absent = id(0xD0, 2);
  EXPECT_TRUE(findsNothing(0u, [&](void **e) { return GetProdNamebyID(image.data(), 11, e); }));
  EXPECT_TRUE(
      findsNothing(0u, [&](void **e) { return GetDomainNamebyOID(image.data(), &absent, e); }));
  EXPECT_TRUE(
      findsNothing(0u, [&](void **e) { return GetModemLocationbyOID(image.data(), &absent, e); }));
  // A key just past the table's last entry is not part of it.
  image.put32(products - 16 + 4, 1);
  EXPECT_TRUE(
      findsNothing(0u, [&](void **e) { return GetProdNamebyID(image.data(), 0x80000000, e); }));
  // An empty table.
  image.block(68, 0, 96);
  EXPECT_TRUE(findsNothing(0u, [&](void **e) { return GetProdNamebyID(image.data(), 10, e); }));
}

TEST_F(TableScans, NullArgumentsGiveTheirStatusesAndWriteNothing) {
  const _GUID key = id(0xD0);
  EXPECT_EQ(GetProdNamebyID(nullptr, 10, nullptr), 0x200CFu);
  EXPECT_EQ(GetProdNamebyID(image.data(), 10, nullptr), 0x200CFu);
  void *entry = &entry;
  EXPECT_EQ(GetProdNamebyID(nullptr, 10, &entry), 0x200CFu);
  EXPECT_EQ(GetDomainNamebyOID(nullptr, &key, &entry), 0x200CFu);
  EXPECT_EQ(GetDomainNamebyOID(image.data(), &key, nullptr), 0x200CFu);
  EXPECT_EQ(GetModemLocationbyOID(image.data(), &key, nullptr), 0xFFFFu);
  EXPECT_EQ(GetModemLocationbyOID(nullptr, &key, &entry), 0xFFFFu);
  EXPECT_EQ(GetModemLocationbyOID(image.data(), nullptr, &entry), 0xFFFFu);
  EXPECT_EQ(entry, &entry) << "nothing written";
}

}  // namespace
