// Library attach and detach: the load and unload of the shared object.
#include <cstdlib>
#include <mutex>
#include <string>

#include "framework/change_signal_internal.h"
#include "platform/named_event.h"
#include "platform/store/server_notify_internal.h"
#include "platform/string_table.h"

namespace alertdb_internal {

namespace {

struct ChangeEvent {
  std::mutex mutex;
  HANDLE handle = nullptr;
  std::string eventNamespace;  // the namespace the handle was opened in
};

ChangeEvent &changeEvent() {
  static ChangeEvent *event = new ChangeEvent;  // used until the very unload
  return *event;
}

const char *currentNamespace() {
  const char *value = std::getenv("ALERTDB_EVENT_NAMESPACE");
  return value ? value : "";
}

// Opens the existing event with full access, or creates it manual-reset and
// not signalled.
HANDLE openOrCreate() {
  HANDLE h = platform::OpenEventA(platform::kEventAllAccess, 1, kChangeEventName);
  if (!h) h = platform::CreateEventA(nullptr, 1, 0, kChangeEventName);
  return h;
}

__attribute__((constructor)) void attach() {
  AlertDBModuleHandle();  // keeps the module handle for the string resources
  ChangeEvent &event = changeEvent();
  std::lock_guard<std::mutex> lock(event.mutex);
  if (!event.handle) {
    event.handle = openOrCreate();
    event.eventNamespace = currentNamespace();
  }
}

__attribute__((destructor)) void detach() {
  ChangeEvent &event = changeEvent();
  std::lock_guard<std::mutex> lock(event.mutex);
  if (event.handle) platform::CloseHandle(event.handle);
  event.handle = nullptr;
}

}  // namespace

void SignalChange(KEPDB *handle) {
  try {
    ChangeEvent &event = changeEvent();
    std::lock_guard<std::mutex> lock(event.mutex);
    // A process that moves to another event namespace signals the event there.
    const char *ns = currentNamespace();
    if (event.eventNamespace != ns || !event.handle) {
      if (event.handle) platform::CloseHandle(event.handle);
      event.handle = openOrCreate();
      event.eventNamespace = ns;
    }
    if (event.handle) platform::SetEvent(event.handle);
  } catch (...) {
  }
  // Machines that share the data files on a server learn of it through there.
  platform::store::NotifyServerOfChange(handle);
}

}  // namespace alertdb_internal
