// Test hooks of the named events; not installed.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform::internal {

// The shared-memory object name that `name` maps to under the current
// ALERTDB_EVENT_NAMESPACE; empty when the name cannot be mapped.
ALERTDB_API std::string EventObjectName(const char *name);

// Takes the event's internal lock and keeps it: a process calls this and is
// then killed, to show that a dead holder does not wedge the event.
ALERTDB_API bool HoldEventLockForTesting(HANDLE event);

// Threads of all processes currently waiting on the event.
ALERTDB_API std::uint32_t EventWaiterCountForTesting(HANDLE event);

}  // namespace platform::internal
