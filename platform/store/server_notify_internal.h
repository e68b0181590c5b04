// The library's half of change signalling between machines: one
// notification to the server with each change signal.
#pragma once

#include "platform/store/record_store.h"

namespace platform::store {

// The channel the notifications go to.
inline constexpr const char *kChangeChannel = "alertdb_change";

// Notifies the server that holds the data files; nothing when they are
// local, and a failure is ignored (the change is made all the same). The
// change made through `handle` (may be null) is announced on that handle's
// own connection: inside a transaction with its commit, so that a batch
// announces itself once, when it can be seen, and a batch rolled back not
// at all.
void NotifyServerOfChange(KEPDB *handle);

}  // namespace platform::store
