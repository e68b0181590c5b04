#include <cstring>

#include "platform/console_settings_internal.h"
#include "platform/dynamic_library.h"
#include "platform/file_names.h"
#include "platform/profile.h"

namespace platform {

bool ReadConsoleDataDir(char *dataDirectory) {
  if (!dataDirectory) return false;
  char settings[272];
  if (ConsoleDirectory(settings, 260) == 0) return false;
  NameAppendFile(settings, "QADMIN.DAT");
  char value[260];
  if (ProfileGetString("Directories", "DataDir", "", value, sizeof value, settings) == 0) {
    return false;
  }
  std::memcpy(dataDirectory, value, std::strlen(value) + 1);
  return true;
}

}  // namespace platform
