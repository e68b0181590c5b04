// The object manager connection that the user tables open for each add,
// update and delete and release at its end.
#pragma once

#include <cstdint>

#include "framework/object_manager_link_internal.h"

namespace alertdb_internal {

class ObjectManagerSession {
 public:
  ObjectManagerSession() : status_(OpenObjectManager(connection_)) {}
  ~ObjectManagerSession() { ReleaseObjectManager(connection_); }
  ObjectManagerSession(const ObjectManagerSession &) = delete;
  ObjectManagerSession &operator=(const ObjectManagerSession &) = delete;

  bool opened() const { return status_ == 0; }

 private:
  platform::KepOMConnection *connection_ = nullptr;
  std::uint32_t status_;
};

}  // namespace alertdb_internal
