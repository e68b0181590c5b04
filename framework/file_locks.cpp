#include "framework/file_locks.h"

#include "platform/store/record_store.h"

std::uint32_t DBFileLock(KEPDB *db) { return platform::QDBFileLock(db) & 0xFFFF; }
std::uint32_t DBFileUnlock(KEPDB *db) { return platform::QDBFileUnlock(db) & 0xFFFF; }
std::uint32_t DBReadLock(KEPDB *db) { return platform::QDBReadLock(db) & 0xFFFF; }
std::uint32_t DBReadUnlock(KEPDB *db) { return platform::QDBReadUnlock(db) & 0xFFFF; }
