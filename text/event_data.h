// The occurrence of an event being alerted, as the caller fills it for the
// expansion of replaceable parameters. Members mean, and texts are as wide
// as, the event log's fields of the same names.
#pragma once

#include <cstdint>

#include "platform/export.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTEVENTDATA {
  std::uint32_t EventID;
  std::uint32_t OpStatus;
  std::int32_t ErrorCode;
  char MachineName[65];
  char UserName[65];
  char EventText[2049];
  // Years since 1900, month, day, hour, minute, second, hundredths, unused;
  // all zero when no time is known.
  unsigned char Time[8];
  char domainName[65];
  char TextParameter[261];
};
#pragma pack(pop)
static_assert(sizeof(ALRTEVENTDATA) == 2525, "ALRTEVENTDATA is 2525 bytes");
