// The change event "AlertDBModifyEvent", held by the library from load to unload.
#pragma once

#include "platform/store/record_store.h"
#include "platform/win_types.h"

namespace alertdb_internal {

inline constexpr const char *kChangeEventName = "AlertDBModifyEvent";

// Sets the change event; a failure is ignored (records are still written).
// `handle` is the handle the change was made through, when there is one.
void SignalChange(KEPDB *handle = nullptr);

}  // namespace alertdb_internal
