// The change event "AlertDBModifyEvent", held by the library from load to unload.
#pragma once

#include "platform/win_types.h"

namespace alertdb_internal {

inline constexpr const char *kChangeEventName = "AlertDBModifyEvent";

// Sets the change event; a failure is ignored (records are still written).
void SignalChange();

}  // namespace alertdb_internal
