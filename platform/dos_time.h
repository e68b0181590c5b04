// Utility-library date and time calls, in local time.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// month 1-12, day 1-31, full year.
ALERTDB_API void DOSGetDate(std::uint16_t *month, std::uint16_t *day, std::uint16_t *year);
// hour 0-23, minute, second, hundredths.
ALERTDB_API void DOSGetTime(std::uint16_t *hour, std::uint16_t *minute, std::uint16_t *second,
                            std::uint16_t *hundredths);

// Write a date or a time as the user's locale (LC_TIME) writes it; return the
// length written. `text` must hold at least 55 bytes. The date is the locale's
// "%x" form. The time is its "%X" form; showSeconds 0 drops the seconds (and
// their separator) from that form, and useLocale 0 uses the "C" locale instead
// of the user's.
ALERTDB_API std::uint32_t QSetIntlDate(char *text, std::uint32_t month, std::uint32_t day,
                                       std::uint32_t yearSince1900);
ALERTDB_API std::uint32_t QSetIntlTime(char *text, std::uint32_t hour, std::uint32_t minute,
                                       std::uint32_t second, std::uint32_t showSeconds,
                                       std::uint32_t useLocale);

}  // namespace platform
