// The whole-image check on images laid out by hand, sound and faulty.
#include "text/alert_data_image_check.h"

#include <gtest/gtest.h>

#include "alert_data_image_hand_laid.h"
#include "text/alert_data_image.h"

namespace {

using hand_laid::id;
using hand_laid::Image;

// Two events indexed both ways, one service group and one user group.
class CheckedImage : public ::testing::Test {
 protected:
  void SetUp() override {
    image.block(12, 2, 8259);
    byId = image.block(20, 2, 36);
    image.putId(byId + 16, id(1));
    image.put32(byId + 32, 1);
    image.putId(byId + 36 + 16, id(2));
    image.put32(byId + 36 + 32, 0);
    byClass = image.block(16, 2, 36);
    image.put32(byClass + 12, 5);
    image.put32(byClass + 36 + 12, 0x90000000);
    image.put32(byClass + 36 + 32, 1);

    serviceGroup = image.group(44, 0, 16, 1);
    image.put32(image.append(2276), 2276);
    userGroup = image.group(40, 0, 56, 1);
    image.put32(image.append(128), 128);
  }
  std::uint32_t check() const { return CheckAlertDataImage(image.data(), image.size()); }

  Image image;
  std::size_t byId = 0, byClass = 0, serviceGroup = 0, userGroup = 0;
};

TEST_F(CheckedImage, ASoundImagePassesAndAShorterSizeDoesNot) {
  EXPECT_EQ(check(), 0u);
  EXPECT_EQ(CheckAlertDataImage(image.data(), image.size() - 1), 0xFFFFu);
  EXPECT_EQ(CheckAlertDataImage(nullptr, 100), 0x200CFu);
}

TEST_F(CheckedImage, UnsortedIndexesFail) {
  image.putId(byId + 16, id(3));
  EXPECT_EQ(check(), 0xFFFFu);
  image.putId(byId + 16, id(2));  // equal keys are sorted
  EXPECT_EQ(check(), 0u);
  image.put32(byClass + 12, 0x90000001);
  EXPECT_EQ(check(), 0xFFFFu) << "class IDs compare unsigned";
}

TEST_F(CheckedImage, IndexEntriesNamingNoAreaEntryFail) {
  image.put32(byId + 32, 2);
  EXPECT_EQ(check(), 0xFFFFu);
}

TEST_F(CheckedImage, BlocksAndCountsReachingOutsideFail) {
  image.put32(68, static_cast<std::uint32_t>(image.size() - 8));
  EXPECT_EQ(check(), 0xFFFFu) << "a block header past the end";
  image.put32(68, 0);
  EXPECT_EQ(check(), 0xFFFFu) << "offset 0: the header's version as a count";
}

TEST_F(CheckedImage, ChainsReachingOutsideFail) {
  image.put32(serviceGroup + 4, 2);
  EXPECT_EQ(check(), 0xFFFFu) << "a second service entry past the end";
  image.put32(serviceGroup + 4, 1);
  image.put32(userGroup + 12, 4096);
  EXPECT_EQ(check(), 0xFFFFu) << "a next group past the end";
  image.put32(userGroup + 12, 0);
  image.put32(serviceGroup + 16, 0);
  image.put32(serviceGroup + 4, 1000000);
  EXPECT_EQ(check(), 0u) << "a zero-size entry is every later one too";
}

TEST_F(CheckedImage, ForeignVersionsAndTinySizesFail) {
  image.put32(4, 0x30000);
  EXPECT_EQ(check(), 0xFFFFu);
  image.put32(4, 0x30001);
  EXPECT_EQ(CheckAlertDataImage(image.data(), 79), 0xFFFFu);
}

TEST_F(CheckedImage, ASizeRecordedInTheImageMustFitTheGivenOne) {
  image.put32(0, 0x49424441);
  image.put32(8, static_cast<std::uint32_t>(image.size()));
  EXPECT_EQ(check(), 0u);
  image.put32(8, static_cast<std::uint32_t>(image.size() + 1));
  EXPECT_EQ(check(), 0xFFFFu);
  // A recorded size smaller than what the header leads to hides it from the
  // lookups, so the check refuses it.
  image.put32(8, static_cast<std::uint32_t>(image.size() - 1));
  EXPECT_EQ(check(), 0xFFFFu);
}

}  // namespace
