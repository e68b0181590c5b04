#include "platform/dos_time.h"

#include <locale.h>
#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>

#include "support/test_environment.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

using namespace platform;

namespace {

// Sets environment variables for one test and puts the old values back.
class ScopedEnvironment {
 public:
  ~ScopedEnvironment() {
    for (const auto &[name, value] : saved_) {
      if (value) {
        setenv(name.c_str(), value->c_str(), 1);
      } else {
        unsetenv(name.c_str());
      }
    }
    tzset();
  }
  void set(const std::string &name, const char *value) {
    if (!saved_.count(name)) {
      const char *old = getenv(name.c_str());
      saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
    }
    if (value) {
      setenv(name.c_str(), value, 1);
    } else {
      unsetenv(name.c_str());
    }
  }

 private:
  std::map<std::string, std::optional<std::string>> saved_;
};

std::string date(std::uint32_t month, std::uint32_t day, std::uint32_t yearSince1900) {
  char text[55];
  std::memset(text, 'x', sizeof text);
  const std::uint32_t length = QSetIntlDate(text, month, day, yearSince1900);
  EXPECT_EQ(length, std::strlen(text));
  return text;
}

std::string timeOfDay(std::uint32_t hour, std::uint32_t minute, std::uint32_t second,
                      std::uint32_t showSeconds, std::uint32_t useLocale = 1) {
  char text[55];
  std::memset(text, 'x', sizeof text);
  const std::uint32_t length = QSetIntlTime(text, hour, minute, second, showSeconds, useLocale);
  EXPECT_EQ(length, std::strlen(text));
  return text;
}

std::string cFormat(const char *pattern, const struct tm &t) {
  locale_t c = newlocale(LC_TIME_MASK, "C", nullptr);
  char text[64];
  strftime_l(text, sizeof text, pattern, &t, c);
  freelocale(c);
  return text;
}

TEST(DosTime, DateAndTimeAreTheCurrentLocalTime) {
  ScopedEnvironment env;
  // Five and a half hours east of UTC, so that local time differs from UTC in hours and minutes.
  env.set("TZ", "AAA-5:30");
  for (int attempt = 0; attempt < 5; ++attempt) {
    const time_t before = time(nullptr);
    std::uint16_t month = 0, day = 0, year = 0, hour = 99, minute = 99, second = 99,
                  hundredths = 999;
    DOSGetDate(&month, &day, &year);
    DOSGetTime(&hour, &minute, &second, &hundredths);
    const time_t after = time(nullptr);
    if (after != before) continue;  // a second passed in between: look again

    struct tm utc;
    gmtime_r(&before, &utc);
    const int utcMinutes = utc.tm_hour * 60 + utc.tm_min;
    const int localMinutes = (utcMinutes + 5 * 60 + 30) % (24 * 60);
    EXPECT_EQ(hour, localMinutes / 60);
    EXPECT_EQ(minute, localMinutes % 60);
    EXPECT_EQ(second, utc.tm_sec);
    EXPECT_LE(hundredths, 99);

    const time_t shifted = before + 5 * 3600 + 30 * 60;
    struct tm local;
    gmtime_r(&shifted, &local);
    EXPECT_EQ(year, local.tm_year + 1900) << "the full year";
    EXPECT_EQ(month, local.tm_mon + 1) << "months count from 1";
    EXPECT_EQ(day, local.tm_mday);
    return;
  }
  FAIL() << "the clock never held still for one call";
}

TEST(DosTime, NullOutputsAreSkipped) {
  std::uint16_t year = 0, hundredths = 999;
  DOSGetDate(nullptr, nullptr, &year);
  DOSGetTime(nullptr, nullptr, nullptr, &hundredths);
  EXPECT_GE(year, 2000);
  EXPECT_LE(hundredths, 99);
  EXPECT_EQ(QSetIntlDate(nullptr, 1, 1, 100), 0u);
  EXPECT_EQ(QSetIntlTime(nullptr, 1, 1, 1, 1, 1), 0u);
}

TEST(IntlFormats, CLocaleWritesStrftimeForms) {
  ScopedEnvironment env;
  env.set("LC_ALL", "C");
  struct tm t {};
  t.tm_year = 98;
  t.tm_mon = 2;
  t.tm_mday = 15;
  t.tm_hour = 7;
  t.tm_min = 5;
  t.tm_sec = 30;
  EXPECT_EQ(date(3, 15, 98), cFormat("%x", t));
  EXPECT_EQ(date(3, 15, 98), "03/15/98");
  EXPECT_EQ(date(12, 31, 124), "12/31/24");
  EXPECT_EQ(timeOfDay(7, 5, 30, 1), cFormat("%X", t));
  EXPECT_EQ(timeOfDay(7, 5, 30, 1), "07:05:30");
  EXPECT_EQ(timeOfDay(23, 59, 59, 1), "23:59:59");
  EXPECT_EQ(timeOfDay(7, 5, 30, 0), "07:05") << "without seconds";
}

TEST(IntlFormats, UnknownLocaleFallsBackToC) {
  ScopedEnvironment env;
  env.set("LC_ALL", nullptr);
  env.set("LC_TIME", "xx_NOWHERE.UTF-8");
  EXPECT_EQ(date(3, 15, 98), "03/15/98");
  EXPECT_EQ(timeOfDay(7, 5, 30, 1), "07:05:30");
}

TEST(IntlFormats, OutOfRangeValuesStillFit) {
  ScopedEnvironment env;
  env.set("LC_ALL", "C");
  for (std::uint32_t bad : {0u, 13u, 255u, 0xFFFFFFFFu}) {
    EXPECT_LT(date(bad, bad, bad).size(), 55u);
    EXPECT_LT(timeOfDay(bad, bad, bad, 1).size(), 55u);
    EXPECT_LT(timeOfDay(bad, bad, bad, 0).size(), 55u);
  }
  EXPECT_EQ(date(1, 1, 0), "01/01/00");
}

// Real locales, compiled for the test, show that the user's LC_TIME decides the forms.
class UserLocaleTest : public alertdb_test::IsolatedTest {
 protected:
  // Compiles `name` (e.g. "en_US") into the test's directory; false when the
  // machine has no locale sources.
  bool compileLocale(const std::string &name) {
    const std::string target = dataPath(name + ".UTF-8");
    const std::string command = "localedef -i " + name + " -f UTF-8 " + target + " >/dev/null 2>&1";
    (void)std::system(command.c_str());  // warnings give a non-zero status, yet a usable locale
    return fileExists(target + "/LC_TIME");
  }
};

TEST_F(UserLocaleTest, DateAndTimeFollowTheUsersLocale) {
  if (!compileLocale("en_US") || !compileLocale("de_DE")) {
    GTEST_SKIP() << "no locale sources on this machine";
  }
#if defined(__SANITIZE_ADDRESS__)
  // glibc's newlocale() leaks its search path whenever LOCPATH is set.
  __lsan::ScopedDisabler glibcLeaksWithLocpath;
#endif
  ScopedEnvironment env;
  env.set("LOCPATH", dataDir().c_str());
  env.set("LC_ALL", nullptr);
  env.set("LANG", "C");

  env.set("LC_TIME", "en_US.UTF-8");
  EXPECT_EQ(date(3, 15, 98), "03/15/1998");
  EXPECT_EQ(timeOfDay(19, 5, 30, 1), "07:05:30 PM");
  EXPECT_EQ(timeOfDay(19, 5, 30, 0), "07:05 PM") << "seconds go, the rest of the form stays";
  EXPECT_EQ(timeOfDay(19, 5, 30, 1, 0), "19:05:30") << "useLocale 0 gives the C form";

  env.set("LC_TIME", "de_DE.UTF-8");
  EXPECT_EQ(date(3, 15, 98), "15.03.1998");
  EXPECT_EQ(timeOfDay(19, 5, 30, 1), "19:05:30");
  EXPECT_EQ(timeOfDay(19, 5, 30, 0), "19:05");

  // LC_ALL outranks LC_TIME, as for every locale-aware program.
  env.set("LC_ALL", "en_US.UTF-8");
  EXPECT_EQ(date(3, 15, 98), "03/15/1998");

  // The process locale is left alone.
  EXPECT_STREQ(setlocale(LC_TIME, nullptr), "C");
}

}  // namespace
