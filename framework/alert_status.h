// Status codes of the table operations. 0 is success; some operations also
// pass on raw record store results (below 0x10000), 65535 or 240.
#pragma once

#include <cstdint>

#include "platform/export.h"

inline constexpr std::uint32_t ALRT_E_NOMEMORY = 0x200C8;
inline constexpr std::uint32_t ALRT_E_INITFAILED = 0x200C9;
inline constexpr std::uint32_t ALRT_E_OPENFAILED = 0x200CA;
inline constexpr std::uint32_t ALRT_E_ADDFAILED = 0x200CC;
inline constexpr std::uint32_t ALRT_E_INVALIDPARAM = 0x200CF;
inline constexpr std::uint32_t ALRT_E_TOOLARGE = 0x200D5;
inline constexpr std::uint32_t ALRT_E_NOTFOUND = 0x200D7;
inline constexpr std::uint32_t ALRT_E_READFAILED = 0x200D8;
inline constexpr std::uint32_t ALRT_E_NOTOPEN = 0x200D9;
inline constexpr std::uint32_t ALRT_E_SCHEMAENTRY = 0x200DA;
inline constexpr std::uint32_t ALRT_E_SCHEMASTRINGS = 0x200DB;
inline constexpr std::uint32_t ALRT_E_NOOID = 0x200DC;
inline constexpr std::uint32_t ALRT_E_UPDATEFAILED = 0x200DD;
inline constexpr std::uint32_t ALRT_E_NOTABLE = 0x200DF;
inline constexpr std::uint32_t ALRT_E_NOUSERTABLE = 0x200E0;
inline constexpr std::uint32_t ALRT_E_EXCEPTION = 0x200E3;
inline constexpr std::uint32_t ALRT_E_ALTOPEN = 0x200E4;
inline constexpr std::uint32_t ALRT_E_OMFAILED = 0x200E9;
inline constexpr std::uint32_t ALRT_E_OMOPEN = 0x200EA;
inline constexpr std::uint32_t ALRT_E_PROTECTED = 0x200EC;
inline constexpr std::uint32_t ALRT_E_BADSERVICETYPE = 0x200ED;
inline constexpr std::uint32_t ALRT_E_NOSERVICETYPE = 0x200EF;
inline constexpr std::uint32_t ALRT_E_NODATADIR = 0x200FA;
inline constexpr std::uint32_t ALRT_E_LINKEXISTS = 206;

// Results that are not ALRT_E_ codes.
inline constexpr std::uint32_t ALRT_MISSINGFILE = 65535;  // open: no file, no backup
inline constexpr std::uint32_t ALRT_NOTREADY = 65535;     // IsReady, CreateObjectId
inline constexpr std::uint32_t ALRT_UNCHANGED = 240;      // base update: nothing to write
inline constexpr std::uint32_t ALRT_NOTABLE_LOW = 223;    // low half of ALRT_E_NOTABLE

// The name of a status ("ALRT_E_NOTFOUND", "QDB_E_BUSY", "UNKNOWN") and what it
// means, for tools and client programs that report statuses to people.
extern "C" ALERTDB_API const char *AlertDBStatusName(std::uint32_t status);
extern "C" ALERTDB_API const char *AlertDBStatusDescription(std::uint32_t status);
