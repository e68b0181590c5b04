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

// Watching a manual-reset event for changes. Once set it stays signalled, so a
// wait cannot tell a new set from an old one; every SetEvent counts instead.
//
// The number of times the event has been set since it was made (wrapping at
// 2^32) into *count; non-zero on success.
ALERTDB_API std::int32_t GetEventSetCount(HANDLE event, std::uint32_t *count);
// Waits until the event's set count differs from `seenCount`, the count the
// caller saw last, whether or not the event was reset meanwhile, and puts the
// count into *count. kWaitObject0 once it differs (at once when it already
// does), kWaitTimeout on time-out, kWaitFailed on a bad handle, a null count
// or an auto-reset event (whose sets go to the waiters they release).
ALERTDB_API std::uint32_t WaitForEventSetAfter(HANDLE event, std::uint32_t seenCount,
                                               std::uint32_t milliseconds, std::uint32_t *count);

}  // namespace platform
