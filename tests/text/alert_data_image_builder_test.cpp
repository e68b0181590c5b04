// Images from the builder: every record is found where the builder says it
// puts it, and the image bounds the lookups by its recorded size.
#include "text/alert_data_image_builder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "alert_data_image_hand_laid.h"
#include "framework/alert_status.h"
#include "text/alert_data_image.h"
#include "text/alert_data_image_check.h"
#include "text/version_match.h"

namespace {

using hand_laid::id;
using namespace alert_data_image;

ALRTEVENT_CLASSREC eventClass(unsigned char n, std::uint32_t eventId) {
  ALRTEVENT_CLASSREC e{};
  e.KEPOID = id(static_cast<unsigned char>(0xFF - n), n);
  e.EventID = eventId;
  std::snprintf(e.EventName, sizeof e.EventName, "event %u", n);
  return e;
}

ALERTRESPREC response(unsigned char n) {
  ALERTRESPREC r{};
  r.KEPOID = id(n, 0x77);
  std::snprintf(r.Name, sizeof r.Name, "response %u", n);
  r.ServiceOID = id(0x50, n);
  r.UserOID = id(0x60, n);
  r.ServiceType = 1 + n % 3;
  return r;
}

ALRTNTFYSERV service(unsigned char n) {
  ALRTNTFYSERV s{};
  s.KEPOID = id(0x50, n);
  s.ServiceType = 1 + n % 3;
  std::snprintf(s.Service_Name, sizeof s.Service_Name, "service %u", n);
  return s;
}

ALRTUSRINSTSERV instance(unsigned char n) {
  ALRTUSRINSTSERV i{};
  i.KEPOID = id(0x70, n);
  i.Service_KEPOID = id(0x50, n);
  i.UserOid = id(0x60, n);
  i.ServiceType = 1 + n % 3;
  return i;
}

class BuiltImage : public ::testing::Test {
 protected:
  static constexpr unsigned char kCount = 7;
  void SetUp() override {
    for (unsigned char n = 0; n < kCount; ++n) {
      ASSERT_EQ(builder.addEvent(eventClass(n, n % 2 ? 0x80000000u + n : n)), 0u);
      ASSERT_EQ(builder.addResponse(response(n)), 0u);
      ASSERT_EQ(builder.addService(service(n)), 0u);
      ASSERT_EQ(builder.addUserInstance(instance(n)), 0u);
      const std::string name = "product " + std::to_string(n);
      ASSERT_EQ(builder.addProduct(1000u + n, name.c_str()), 0u);
      ASSERT_EQ(builder.addDomain(id(0xD0, n), "domain"), 0u);
      ALRTMODEM_LOCATION location{};
      location.KEPOID = id(0xE0, n);
      location.CountryID = 0x10000u + n;
      ASSERT_EQ(builder.addModemLocation(location), 0u);
    }
    ASSERT_EQ(builder.build(image), 0u);
  }
  const unsigned char *at(std::uint32_t offset) const { return image.data() + offset; }

  AlertDataImageBuilder builder;
  std::vector<unsigned char> image;
};

TEST_F(BuiltImage, EveryEventAndResponseIsFoundByEachKey) {
  ASSERT_EQ(DoesVersionMatch(image.data()), 0u);
  for (unsigned char n = 0; n < kCount; ++n) {
    const ALRTEVENT_CLASSREC expected = eventClass(n, n % 2 ? 0x80000000u + n : n);
    void *byId = nullptr, *byClass = nullptr;
    ASSERT_EQ(GetEventIDbyOID(image.data(), &expected.KEPOID, &byId), 0u);
    ASSERT_EQ(GetEventIDbyClassID(image.data(), expected.EventID, &byClass), 0u);
    EXPECT_EQ(byId, byClass);
    EXPECT_EQ(std::memcmp(static_cast<unsigned char *>(byId) + kEventRecordOffset, &expected,
                          sizeof expected),
              0);

    const ALERTRESPREC r = response(n);
    void *found = nullptr;
    ASSERT_EQ(GetResponseIDbyOID(image.data(), &r.KEPOID, &found), 0u);
    EXPECT_EQ(
        std::memcmp(static_cast<unsigned char *>(found) + kResponseRecordOffset, &r, sizeof r), 0);
  }
  void *entry = nullptr;
  EXPECT_EQ(GetEventIDbyClassID(image.data(), 2u + 0x80000000u, &entry), 0xFFFFu);
}

TEST_F(BuiltImage, ResponsesLeadToTheirServiceAndUserInstance) {
  for (unsigned char n = 0; n < kCount; ++n) {
    const ALERTRESPREC r = response(n);
    std::uint32_t type = 0;
    const std::uint32_t s = FindServicebyResponse(image.data(), &r, &type);
    ASSERT_NE(s, 0u);
    EXPECT_EQ(type, std::uint32_t{r.ServiceType});
    const ALRTNTFYSERV expectedService = service(n);
    EXPECT_EQ(std::memcmp(at(s) + kServiceRecordOffset, &expectedService, sizeof expectedService),
              0);

    const std::uint32_t u = FindUserbyResponse(image.data(), &r);
    ASSERT_NE(u, 0u);
    const ALRTUSRINSTSERV expectedInstance = instance(n);
    EXPECT_EQ(
        std::memcmp(at(u) + kUserInstanceRecordOffset, &expectedInstance, sizeof expectedInstance),
        0);
  }
  ALERTRESPREC wrongType = response(1);
  wrongType.ServiceType = 3;
  EXPECT_EQ(FindUserbyResponse(image.data(), &wrongType), 0u);
}

TEST_F(BuiltImage, TableEntriesCarryTheirNamesAndRecords) {
  for (unsigned char n = 0; n < kCount; ++n) {
    void *entry = nullptr;
    ASSERT_EQ(GetProdNamebyID(image.data(), 1000u + n, &entry), 0u);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(static_cast<char *>(entry) + kProductNameOffset,
                 ("product " + std::to_string(n)).c_str());
    const _GUID domain = id(0xD0, n);
    ASSERT_EQ(GetDomainNamebyOID(image.data(), &domain, &entry), 0u);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(static_cast<char *>(entry) + kDomainNameOffset, "domain");
    const _GUID location = id(0xE0, n);
    ASSERT_EQ(GetModemLocationbyOID(image.data(), &location, &entry), 0u);
    ASSERT_NE(entry, nullptr);
    ALRTMODEM_LOCATION stored;
    std::memcpy(&stored, static_cast<unsigned char *>(entry) + kModemLocationId, sizeof stored);
    EXPECT_EQ(std::uint32_t{stored.CountryID}, 0x10000u + n);
  }
}

TEST_F(BuiltImage, LongNamesAreCutAndNullArgumentsRefused) {
  const std::string longName(100, 'x');
  ASSERT_EQ(builder.addProduct(5, longName.c_str()), 0u);
  EXPECT_EQ(builder.addProduct(6, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(builder.addDomain(id(1), nullptr), ALRT_E_INVALIDPARAM);
  ASSERT_EQ(builder.build(image), 0u);
  void *entry = nullptr;
  ASSERT_EQ(GetProdNamebyID(image.data(), 5, &entry), 0u);
  EXPECT_EQ(std::string(static_cast<char *>(entry) + kProductNameOffset), longName.substr(0, 63));
  EXPECT_EQ(GetProdNamebyID(image.data(), 6, &entry), 0u);
  EXPECT_EQ(entry, nullptr);
}

TEST_F(BuiltImage, PassesTheCheckOnlyForItsWholeSize) {
  EXPECT_EQ(CheckAlertDataImage(image.data(), image.size()), 0u);
  EXPECT_EQ(CheckAlertDataImage(image.data(), image.size() - 1), 0xFFFFu);
  EXPECT_EQ(CheckAlertDataImage(nullptr, image.size()), ALRT_E_INVALIDPARAM);
}

TEST_F(BuiltImage, ARecordedSizeTooSmallForTheCountsHidesWhatLiesBeyond) {
  // The image says it ends before its last user instance group.
  const ALERTRESPREC last = response(kCount - 1);
  ASSERT_NE(FindUserbyResponse(image.data(), &last), 0u);
  const std::uint32_t cut = FindUserbyResponse(image.data(), &last) + 100;
  std::memcpy(image.data() + kSizeWord, &cut, sizeof cut);
  EXPECT_EQ(FindUserbyResponse(image.data(), &last), 0u);
  // Everything before the cut is still found.
  const ALERTRESPREC first = response(0);
  EXPECT_NE(FindServicebyResponse(image.data(), &first, nullptr), 0u);
  EXPECT_EQ(CheckAlertDataImage(image.data(), image.size()), 0xFFFFu);

  // One that ends inside the event area leaves no index to search.
  const std::uint32_t tiny = kHeaderSize + 16 + kEventEntrySize;
  std::memcpy(image.data() + kSizeWord, &tiny, sizeof tiny);
  const ALRTEVENT_CLASSREC e = eventClass(0, 0);
  void *entry = &entry;
  EXPECT_EQ(GetEventIDbyOID(image.data(), &e.KEPOID, &entry), 0xFFFFu);
  EXPECT_EQ(entry, nullptr);
}

TEST(EmptyBuiltImage, HasEveryBlockAndFindsNothing) {
  std::vector<unsigned char> image(3, 0xAA);
  ASSERT_EQ(AlertDataImageBuilder().build(image), 0u);
  EXPECT_EQ(image.size(), kHeaderSize + 8 * kBlockHeaderSize);
  EXPECT_EQ(CheckAlertDataImage(image.data(), image.size()), 0u);
  const _GUID key = id(0);
  void *entry = &entry;
  EXPECT_EQ(GetEventIDbyOID(image.data(), &key, &entry), 0xFFFFu);
  EXPECT_EQ(GetResponseIDbyOID(image.data(), &key, &entry), 0xFFFFu);
  EXPECT_EQ(GetProdNamebyID(image.data(), 0, &entry), 0u);
  EXPECT_EQ(entry, nullptr);
  const ALERTRESPREC r{};
  EXPECT_EQ(FindServicebyResponse(image.data(), &r, nullptr), 0u);
  EXPECT_EQ(FindUserbyResponse(image.data(), &r), 0u);
}

// Damaged copies of a built image, each in a buffer of exactly its size, so
// that the sanitizer build sees any read past the end.
class DamagedImages : public BuiltImage {
 protected:
  void lookUpEverything(const unsigned char *copy) {
    for (unsigned char n = 0; n < kCount; ++n) {
      const ALRTEVENT_CLASSREC e = eventClass(n, n);
      const ALERTRESPREC r = response(n);
      void *entry = nullptr;
      std::uint32_t type = 0;
      GetEventIDbyOID(copy, &e.KEPOID, &entry);
      GetEventIDbyClassID(copy, e.EventID, &entry);
      GetResponseIDbyOID(copy, &r.KEPOID, &entry);
      FindServicebyResponse(copy, &r, &type);
      FindUserbyResponse(copy, &r);
      GetProdNamebyID(copy, 1000u + n, &entry);
      const _GUID other = id(0xD0, n);
      GetDomainNamebyOID(copy, &other, &entry);
      GetModemLocationbyOID(copy, &other, &entry);
    }
  }
  // Words that hold offsets, counts and sizes: where damage matters.
  std::vector<std::uint32_t> structuralWords() const {
    std::vector<std::uint32_t> words;
    for (std::uint32_t w = 12; w < kHeaderSize; w += 4) words.push_back(w);
    for (std::uint32_t w :
         {kEventAreaWord, kEventByIdWord, kEventByClassIdWord, kResponseAreaWord, kResponseByIdWord,
          kProductTableWord, kDomainTableWord, kModemLocationTableWord}) {
      std::uint32_t block;
      std::memcpy(&block, image.data() + w, 4);
      words.push_back(block + kBlockCountWord);
    }
    for (std::uint32_t w : {kServiceGroupsWord, kUserGroupsWord}) {
      std::uint32_t group;
      std::memcpy(&group, image.data() + w, 4);
      for (std::uint32_t field : {0u, 4u, 12u}) words.push_back(group + field);
      std::uint32_t first;
      std::memcpy(&first, image.data() + group, 4);
      words.push_back(group + first);  // the first entry's size
    }
    return words;
  }
};

TEST_F(DamagedImages, LookupsStayInsideAndTheCheckTellsWhenTheyNeedNot) {
  std::mt19937 random(20261123);
  const std::uint32_t values[] = {0, 1, 0x7FFFFFFF, 0xFFFFFFFF};
  int refused = 0, passed = 0;
  for (std::uint32_t word : structuralWords()) {
    for (int trial = 0; trial < 6; ++trial) {
      auto copy = std::make_unique<unsigned char[]>(image.size());
      std::memcpy(copy.get(), image.data(), image.size());
      const std::uint32_t value =
          trial < 4 ? values[trial] : static_cast<std::uint32_t>(random() % (image.size() * 2));
      std::memcpy(copy.get() + word, &value, 4);
      // The recorded size bounds the lookups whatever the damage.
      lookUpEverything(copy.get());
      if (CheckAlertDataImage(copy.get(), image.size()) == 0) {
        ++passed;
        // With its mark gone the image is only safe because it passed.
        const std::uint32_t unmarked = 0;
        std::memcpy(copy.get() + kSizedMarkWord, &unmarked, 4);
        lookUpEverything(copy.get());
      } else {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(passed, 0);
}

TEST_F(DamagedImages, ACheckedUnmarkedImageIsSafeAtItsExactSize) {
  // An image without the mark (as another program makes it) is bounded only
  // by its caller; the check with the true size is what makes that safe.
  auto copy = std::make_unique<unsigned char[]>(image.size());
  std::memcpy(copy.get(), image.data(), image.size());
  const std::uint32_t unmarked = 0;
  std::memcpy(copy.get() + kSizedMarkWord, &unmarked, 4);
  ASSERT_EQ(CheckAlertDataImage(copy.get(), image.size()), 0u);
  lookUpEverything(copy.get());
  // The last entry of the last group is instance 5; the lookups read its
  // first 128 bytes.
  const ALERTRESPREC last = response(5);
  const std::uint32_t lastEntry = FindUserbyResponse(copy.get(), &last);
  ASSERT_EQ(lastEntry + kUserInstanceRecordOffset + sizeof(ALRTUSRINSTSERV), image.size());
  EXPECT_EQ(CheckAlertDataImage(copy.get(), lastEntry + 128), 0u);
  EXPECT_EQ(CheckAlertDataImage(copy.get(), lastEntry + 127), 0xFFFFu);
  EXPECT_EQ(CheckAlertDataImage(copy.get(), 79), 0xFFFFu);
}

}  // namespace
