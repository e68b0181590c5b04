#include "tools/change_event.h"

#include "platform/named_event.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

ChangeEvent::ChangeEvent() {
  handle_ = platform::OpenEventA(platform::kEventAllAccess, 0, kName);
  if (!handle_) handle_ = platform::CreateEventA(nullptr, 1, 0, kName);
  if (!handle_) throw ToolError("cannot open or create the change event \"AlertDBModifyEvent\"");
}

ChangeEvent::~ChangeEvent() { platform::CloseHandle(handle_); }

std::uint32_t ChangeEvent::setCount() const {
  std::uint32_t count = 0;
  if (platform::GetEventSetCount(handle_, &count) == 0) {
    throw ToolError("cannot read the change event's set count");
  }
  return count;
}

bool ChangeEvent::isSet() const {
  return platform::WaitForSingleObject(handle_, 0) == platform::kWaitObject0;
}

}  // namespace alertdb_tool
