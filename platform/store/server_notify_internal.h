// The library's half of change signalling between machines: one
// notification to the server with each change signal.
#pragma once

namespace platform::store {

// The channel the notifications go to.
inline constexpr const char *kChangeChannel = "alertdb_change";

// Notifies the server that holds the data files; nothing when they are
// local, and a failure is ignored (the change is made all the same).
void NotifyServerOfChange();

}  // namespace platform::store
