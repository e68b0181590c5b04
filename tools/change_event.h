// The change event "AlertDBModifyEvent" that the library sets after every
// change of the alerting data, as the watch and the demo see it.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

namespace alertdb_tool {

class ChangeEvent {
 public:
  static constexpr const char *kName = "AlertDBModifyEvent";

  // Opens the event, or makes it as the library does (manual reset, not set);
  // throws ToolError when neither works.
  ChangeEvent();
  ~ChangeEvent();
  ChangeEvent(const ChangeEvent &) = delete;
  ChangeEvent &operator=(const ChangeEvent &) = delete;

  HANDLE handle() const { return handle_; }
  // How many times it was set since it was made; the library never resets it,
  // so this count, not its state, tells a new change from an old one.
  std::uint32_t setCount() const;
  bool isSet() const;

 private:
  HANDLE handle_;
};

}  // namespace alertdb_tool
