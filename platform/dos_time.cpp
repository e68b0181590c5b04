#include "platform/dos_time.h"

#include <locale.h>
#include <time.h>

#include <cstring>

namespace platform {

namespace {

struct tm now() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm local;
  localtime_r(&ts.tv_sec, &local);
  return local;
}

// Formats by the user's LC_TIME without touching the process locale.
std::uint32_t format(char *text, const char *pattern, const struct tm &t) {
  if (!text) return 0;
  locale_t locale = newlocale(LC_TIME_MASK, "", nullptr);
  if (!locale) locale = newlocale(LC_TIME_MASK, "C", nullptr);
  std::size_t n = locale ? strftime_l(text, 55, pattern, &t, locale) : strftime(text, 55, pattern, &t);
  if (locale) freelocale(locale);
  if (n == 0) text[0] = '\0';
  return static_cast<std::uint32_t>(n);
}

}  // namespace

void DOSGetDate(std::uint16_t *month, std::uint16_t *day, std::uint16_t *year) {
  struct tm t = now();
  if (month) *month = static_cast<std::uint16_t>(t.tm_mon + 1);
  if (day) *day = static_cast<std::uint16_t>(t.tm_mday);
  if (year) *year = static_cast<std::uint16_t>(t.tm_year + 1900);
}

void DOSGetTime(std::uint16_t *hour, std::uint16_t *minute, std::uint16_t *second,
                std::uint16_t *hundredths) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm t;
  localtime_r(&ts.tv_sec, &t);
  if (hour) *hour = static_cast<std::uint16_t>(t.tm_hour);
  if (minute) *minute = static_cast<std::uint16_t>(t.tm_min);
  if (second) *second = static_cast<std::uint16_t>(t.tm_sec);
  if (hundredths) *hundredths = static_cast<std::uint16_t>(ts.tv_nsec / 10000000);
}

std::uint32_t QSetIntlDate(char *text, std::uint32_t month, std::uint32_t day,
                           std::uint32_t yearSince1900) {
  struct tm t {};
  t.tm_mon = static_cast<int>(month) - 1;
  t.tm_mday = static_cast<int>(day);
  t.tm_year = static_cast<int>(yearSince1900);
  return format(text, "%x", t);
}

std::uint32_t QSetIntlTime(char *text, std::uint32_t hour, std::uint32_t minute,
                           std::uint32_t second, std::uint32_t showSeconds, std::uint32_t) {
  struct tm t {};
  t.tm_hour = static_cast<int>(hour);
  t.tm_min = static_cast<int>(minute);
  t.tm_sec = static_cast<int>(second);
  return format(text, showSeconds ? "%X" : "%H:%M", t);
}

}  // namespace platform
