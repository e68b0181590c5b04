#include "text/data_directory.h"

#include "platform/console_settings_internal.h"

std::uint32_t GetKepDataDir(char *dataDirectory) {
  if (!dataDirectory) return 0;
  return platform::ReadConsoleDataDir(dataDirectory) ? 1 : 0;
}
