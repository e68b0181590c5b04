#include "platform/dos_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <string>

#include "platform/buffer_cipher.h"
#include "platform/memory_blocks.h"

using namespace platform;

namespace {

TEST(DosTime, DateAndTimeAreTheCurrentLocalTime) {
  std::uint16_t month = 0, day = 0, year = 0, hour = 99, minute = 99, second = 99, hundredths = 999;
  time_t before = time(nullptr);
  DOSGetDate(&month, &day, &year);
  DOSGetTime(&hour, &minute, &second, &hundredths);
  struct tm local;
  localtime_r(&before, &local);
  EXPECT_EQ(year, local.tm_year + 1900);
  EXPECT_EQ(month, local.tm_mon + 1);
  EXPECT_GE(day, 1);
  EXPECT_LE(day, 31);
  EXPECT_LE(hour, 23);
  EXPECT_LE(minute, 59);
  EXPECT_LE(second, 60);
  EXPECT_LE(hundredths, 99);
}

TEST(DosTime, IntlFormatsFollowTheLocale) {
  setenv("LC_ALL", "C", 1);
  char date[55], time[55];
  QSetIntlDate(date, 3, 15, 98);
  QSetIntlTime(time, 10, 20, 30, 1, 1);
  EXPECT_STREQ(date, "03/15/98");
  EXPECT_STREQ(time, "10:20:30");
  QSetIntlTime(time, 7, 5, 30, 0, 1);
  EXPECT_STREQ(time, "07:05");
  unsetenv("LC_ALL");
}

TEST(BufferCipher, TransformsReversiblyUnderItsKey) {
  unsigned char clear[49];
  for (int i = 0; i < 49; ++i) clear[i] = static_cast<unsigned char>(i < 8 ? "secret!\0"[i] : 0);
  unsigned char block[49];
  std::memcpy(block, clear, sizeof block);
  const std::uint32_t key = 0x1234ABCD, otherKey = 0x1234ABCE;
  ASSERT_EQ(BufferEncrypt(block, &key, 49, 2), 0u);
  EXPECT_NE(std::memcmp(block, clear, sizeof block), 0);
  EXPECT_EQ(std::memchr(block, 's', 1), nullptr);
  unsigned char other[49];
  std::memcpy(other, clear, sizeof other);
  BufferEncrypt(other, &otherKey, 49, 2);
  EXPECT_NE(std::memcmp(block, other, sizeof block), 0) << "the key matters";
  ASSERT_EQ(BufferDecrypt(block, &key, 49, 2), 0u);
  EXPECT_EQ(std::memcmp(block, clear, sizeof block), 0);
  EXPECT_NE(BufferEncrypt(nullptr, &key, 49, 2), 0u);
  EXPECT_NE(BufferDecrypt(block, nullptr, 49, 2), 0u);
  EXPECT_EQ(std::memcmp(block, clear, sizeof block), 0);
}

TEST(MemoryBlocks, BlocksAreZeroFilled) {
  auto *block = static_cast<unsigned char *>(MemAlloc(kMemMovableZeroed, 90));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 90; ++i) EXPECT_EQ(block[i], 0);
  MemFree(block);
  MemFree(nullptr);
}

}  // namespace
