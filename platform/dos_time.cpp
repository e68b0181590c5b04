#include "platform/dos_time.h"

#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace platform {

namespace {

constexpr std::size_t kTextSize = 55;

struct timespec nowSpec() {
  struct timespec ts {};
  clock_gettime(CLOCK_REALTIME, &ts);
  return ts;
}

struct tm localTime(const struct timespec &ts) {
  // localtime_r alone may keep a stale TZ; localtime() would re-read it.
  tzset();
  struct tm local {};
  localtime_r(&ts.tv_sec, &local);
  return local;
}

// The locales in use, made again only when the environment names another one:
// newlocale() reads locale files, and with LOCPATH set glibc leaks a little on
// every call.
class LocaleCache {
 public:
  std::mutex mutex;

  // The user's LC_TIME (or "C"); call with `mutex` held.
  locale_t get(bool user) {
    if (!c_) c_ = newlocale(LC_TIME_MASK, "C", nullptr);
    if (!user) return c_;
    std::string key = environmentKey();
    if (key != key_) {
      if (user_) freelocale(user_);
      user_ = newlocale(LC_TIME_MASK, "", nullptr);
      key_ = std::move(key);
    }
    return user_ ? user_ : c_;
  }

 private:
  static std::string environmentKey() {
    std::string key;
    for (const char *name : {"LC_ALL", "LC_TIME", "LANG", "LOCPATH"}) {
      const char *value = getenv(name);
      key += value ? value : "\x01";
      key += '\0';
    }
    return key;
  }

  std::string key_;
  locale_t user_ = nullptr;
  locale_t c_ = nullptr;
};

// Never destroyed: a call may still run while the process exits.
LocaleCache &localeCache() {
  static LocaleCache *cache = new LocaleCache;
  return *cache;
}

// The user's LC_TIME, or "C" when the environment names a locale that is not
// there, without touching the process locale (setlocale is process-wide).
// Holds the cache while in use.
class TimeLocale {
 public:
  explicit TimeLocale(bool user) : lock_(localeCache().mutex), locale_(localeCache().get(user)) {}

  locale_t get() const { return locale_; }
  std::string info(nl_item item) const {
    const char *text = locale_ ? nl_langinfo_l(item, locale_) : nullptr;
    return text ? text : "";
  }

 private:
  std::lock_guard<std::mutex> lock_;
  locale_t locale_;
};

std::uint32_t format(char *text, const std::string &pattern, const struct tm &t,
                     const TimeLocale &locale) {
  std::size_t n = locale.get() ? strftime_l(text, kTextSize, pattern.c_str(), &t, locale.get())
                               : strftime(text, kTextSize, pattern.c_str(), &t);
  if (n == 0) text[0] = '\0';
  return static_cast<std::uint32_t>(n);
}

// A strftime pattern cut into conversions ("%H", "%OS", "%%") and literal text.
std::vector<std::string> tokens(const std::string &pattern) {
  std::vector<std::string> out;
  for (std::size_t i = 0; i < pattern.size();) {
    std::size_t end = i + 1;
    if (pattern[i] == '%') {
      while (end < pattern.size() && std::strchr("_-0^#EO123456789", pattern[end])) ++end;
      end = std::min(end + 1, pattern.size());
    } else {
      end = pattern.find('%', i);
      if (end == std::string::npos) end = pattern.size();
    }
    out.push_back(pattern.substr(i, end - i));
    i = end;
  }
  return out;
}

bool isConversion(const std::string &token, char conversion) {
  return token.size() >= 2 && token[0] == '%' && token.back() == conversion && token != "%%";
}

bool isPunctuation(const std::string &literal) {
  return !literal.empty() && std::all_of(literal.begin(), literal.end(),
                                         [](char c) { return c == ':' || c == '.' || c == ','; });
}

// The locale's time form with the seconds taken out: "%I:%M:%S %p" gives
// "%I:%M %p", "%H時%M分%S秒" gives "%H時%M分".
std::string withoutSeconds(const TimeLocale &locale) {
  std::string pattern = locale.info(T_FMT);
  if (pattern.empty()) pattern = "%H:%M:%S";
  std::vector<std::string> parts;
  for (const std::string &token : tokens(pattern)) {
    std::string expansion;
    if (token == "%T") expansion = "%H:%M:%S";
    if (token == "%r") expansion = locale.info(T_FMT_AMPM);
    if (token == "%r" && expansion.empty()) expansion = "%I:%M:%S %p";
    if (expansion.empty()) {
      parts.push_back(token);
    } else {
      for (std::string &inner : tokens(expansion)) parts.push_back(std::move(inner));
    }
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!isConversion(parts[i], 'S')) continue;
    std::size_t first = i, last = i + 1;
    // The separator before the seconds goes with them; otherwise a unit after them.
    if (i > 0 && isPunctuation(parts[i - 1])) {
      first = i - 1;
    } else if (last < parts.size() && parts[last][0] != '%' && parts[last][0] != ' ') {
      ++last;
    }
    parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(first),
                parts.begin() + static_cast<std::ptrdiff_t>(last));
    break;
  }
  std::string result;
  for (const std::string &part : parts) result += part;
  return result;
}

// Keeps absurd inputs from overflowing int inside strftime.
int bounded(std::uint32_t value, std::uint32_t limit) {
  return static_cast<int>(std::min(value, limit));
}

}  // namespace

void DOSGetDate(std::uint16_t *month, std::uint16_t *day, std::uint16_t *year) {
  const struct tm t = localTime(nowSpec());
  if (month) *month = static_cast<std::uint16_t>(t.tm_mon + 1);
  if (day) *day = static_cast<std::uint16_t>(t.tm_mday);
  if (year) *year = static_cast<std::uint16_t>(t.tm_year + 1900);
}

void DOSGetTime(std::uint16_t *hour, std::uint16_t *minute, std::uint16_t *second,
                std::uint16_t *hundredths) {
  const struct timespec ts = nowSpec();
  const struct tm t = localTime(ts);
  if (hour) *hour = static_cast<std::uint16_t>(t.tm_hour);
  if (minute) *minute = static_cast<std::uint16_t>(t.tm_min);
  if (second) *second = static_cast<std::uint16_t>(t.tm_sec);
  if (hundredths) *hundredths = static_cast<std::uint16_t>(ts.tv_nsec / 10000000);
}

std::uint32_t QSetIntlDate(char *text, std::uint32_t month, std::uint32_t day,
                           std::uint32_t yearSince1900) {
  if (!text) return 0;
  try {
    struct tm t {};
    t.tm_mon = bounded(month, 13) - 1;
    t.tm_mday = bounded(day, 99);
    t.tm_year = bounded(yearSince1900, 9999 - 1900);
    if (month >= 1 && month <= 12 && day >= 1 && day <= 31) {
      // Some locales write the weekday too; let the C library work it out.
      struct tm normal = t;
      normal.tm_hour = 12;
      if (timegm(&normal) != static_cast<time_t>(-1)) {
        t.tm_wday = normal.tm_wday;
        t.tm_yday = normal.tm_yday;
      }
    }
    TimeLocale locale(true);
    return format(text, "%x", t, locale);
  } catch (...) {
    text[0] = '\0';
    return 0;
  }
}

std::uint32_t QSetIntlTime(char *text, std::uint32_t hour, std::uint32_t minute,
                           std::uint32_t second, std::uint32_t showSeconds,
                           std::uint32_t useLocale) {
  if (!text) return 0;
  try {
    struct tm t {};
    t.tm_hour = bounded(hour, 99);
    t.tm_min = bounded(minute, 99);
    t.tm_sec = bounded(second, 99);
    TimeLocale locale(useLocale != 0);
    return format(text, showSeconds ? std::string("%X") : withoutSeconds(locale), t, locale);
  } catch (...) {
    text[0] = '\0';
    return 0;
  }
}

}  // namespace platform
