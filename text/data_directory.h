// The product's data directory as the console's settings file names it.
#pragma once

#include <cstdint>

#include "platform/export.h"

// 1 when "QADMIN.DAT" names a data directory and it was copied into
// `dataDirectory` (at least 260 bytes); 0 otherwise, the buffer unchanged.
// The settings file is read on every call.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetKepDataDir(char *dataDirectory);
