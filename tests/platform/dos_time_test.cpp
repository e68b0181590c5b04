#include "platform/dos_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <map>
#include <string>

using namespace platform;

namespace {

// Tests change the time zone and locale variables; they are put back afterwards.
class DosTime : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char *name : kNames) {
      if (const char *value = getenv(name)) saved_[name] = value;
    }
  }
  void TearDown() override {
    for (const char *name : kNames) {
      saved_.count(name) ? setenv(name, saved_[name].c_str(), 1) : unsetenv(name);
    }
    tzset();
  }
  static constexpr const char *kNames[] = {"TZ", "LC_ALL", "LC_TIME"};
  std::map<std::string, std::string> saved_;
};

// The text written, after checking that the returned length is its length.
std::string written(const char *text, std::uint32_t length) {
  EXPECT_EQ(length, std::strlen(text));
  return text;
}

TEST_F(DosTime, DateAndTimeAreTheCurrentLocalTime) {
  setenv("TZ", "AAA-5:30", 1);  // local time differs from UTC in hours and minutes
  tzset();
  std::uint16_t year = 0;
  DOSGetDate(nullptr, nullptr, &year);
  DOSGetTime(nullptr, nullptr, nullptr, nullptr);
  EXPECT_GE(year, 2000) << "null outputs are skipped";
  // The calls read CLOCK_REALTIME; time() may read a coarser clock that
  // turns its second a little later.
  auto now = [] {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return ts.tv_sec;
  };
  for (int attempt = 0; attempt < 5; ++attempt) {
    const time_t before = now();
    std::uint16_t month = 0, day = 0, hour = 99, minute = 99, second = 99, cs = 999;
    DOSGetDate(&month, &day, &year);
    DOSGetTime(&hour, &minute, &second, &cs);
    if (now() != before) continue;  // a second passed in between: look again
    const time_t shifted = before + 5 * 3600 + 30 * 60;
    struct tm local;
    gmtime_r(&shifted, &local);
    EXPECT_EQ(year, local.tm_year + 1900);
    EXPECT_EQ(month, local.tm_mon + 1);
    EXPECT_EQ(day, local.tm_mday);
    EXPECT_EQ(hour, local.tm_hour);
    EXPECT_EQ(minute, local.tm_min);
    EXPECT_EQ(second, local.tm_sec);
    EXPECT_LE(cs, 99);
    return;
  }
  FAIL() << "the clock never held still for one call";
}

TEST_F(DosTime, CAndUnknownLocalesWriteTheCForms) {
  unsetenv("LC_ALL");
  char t[55];
  std::memset(t, 'x', sizeof t);
  for (const char *locale : {"C", "xx_NOWHERE.UTF-8"}) {
    setenv("LC_TIME", locale, 1);
    EXPECT_EQ(written(t, QSetIntlDate(t, 3, 15, 98)), "03/15/98") << locale;
    EXPECT_EQ(written(t, QSetIntlDate(t, 12, 31, 124)), "12/31/24") << locale;
    EXPECT_EQ(written(t, QSetIntlTime(t, 7, 5, 30, 1, 1)), "07:05:30") << locale;
    EXPECT_EQ(written(t, QSetIntlTime(t, 23, 59, 59, 0, 1)), "23:59") << locale;
  }
  for (std::uint32_t bad : {0u, 13u, 0xFFFFFFFFu}) {
    EXPECT_LT(written(t, QSetIntlDate(t, bad, bad, bad)).size(), 55u);
    EXPECT_LT(written(t, QSetIntlTime(t, bad, bad, bad, 1, 1)).size(), 55u);
  }
  EXPECT_EQ(QSetIntlDate(nullptr, 1, 1, 100), 0u);
  EXPECT_EQ(QSetIntlTime(nullptr, 1, 1, 1, 1, 1), 0u);
}

}  // namespace
