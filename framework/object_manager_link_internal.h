// The object manager connection that the event tables open at their first
// change and keep until they are destroyed.
#pragma once

#include <cstdint>

#include "platform/object_manager.h"

namespace alertdb_internal {

// Opens the connection when it is not open yet; the object manager's result.
inline std::uint32_t OpenObjectManager(platform::KepOMConnection *&connection) {
  if (connection) return 0;
  return platform::KepOMOpen(&connection);
}

inline void ReleaseObjectManager(platform::KepOMConnection *&connection) {
  if (connection && connection->ops && connection->ops->Release) {
    connection->ops->Release(connection);
  }
  connection = nullptr;
}

}  // namespace alertdb_internal
