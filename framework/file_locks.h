// The record store's file and read locks, for callers that batch writes or
// need a consistent view. Each returns the engine's result, low 16 bits.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DBFileLock(KEPDB *db);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DBFileUnlock(KEPDB *db);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DBReadLock(KEPDB *db);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DBReadUnlock(KEPDB *db);
