// Named manual-reset events shared by every process of the machine (POSIX
// shared memory). ALERTDB_EVENT_NAMESPACE, when set, prefixes every name.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform {

constexpr std::uint32_t kEventAllAccess = 0x1F0003;
constexpr std::uint32_t kWaitObject0 = 0;
constexpr std::uint32_t kWaitTimeout = 258;
constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

// Null when no event of that name exists.
ALERTDB_API HANDLE OpenEventA(std::uint32_t access, std::int32_t inherit, const char *name);
// Opens the event, or creates it in the given state; null on failure.
ALERTDB_API HANDLE CreateEventA(void *security, std::int32_t manualReset, std::int32_t initialState,
                                const char *name);
// Non-zero on success.
ALERTDB_API std::int32_t SetEvent(HANDLE event);
ALERTDB_API std::int32_t ResetEvent(HANDLE event);
// kWaitObject0 when signalled, kWaitTimeout on time-out, kWaitFailed on a bad handle.
ALERTDB_API std::uint32_t WaitForSingleObject(HANDLE event, std::uint32_t milliseconds);
ALERTDB_API std::int32_t CloseHandle(HANDLE handle);

}  // namespace platform
