// Dynamic loading and module lookup. A module handle is the load address of
// the object, as on Windows.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform {

// A bare file name is searched in the executable's directory, the current
// directory, then the system's search path; a name with a '/' is used as is.
ALERTDB_API HMODULE LoadLibraryA(const char *fileName);
ALERTDB_API void *GetProcAddress(HMODULE module, const char *name);
ALERTDB_API std::int32_t FreeLibrary(HMODULE module);

// The loaded object whose file name (last component, any case) is `name`;
// the executable for null; null when none.
ALERTDB_API HMODULE GetModuleHandleA(const char *name);
// Full file name of `module` (the executable for null); its length, 0 on failure.
ALERTDB_API std::uint32_t GetModuleFileNameA(HMODULE module, char *buffer, std::uint32_t size);

// The directory where the console settings file "QADMIN.DAT" is looked for:
// ALERTDB_CONSOLE_DIR when set, else the directory of the module
// "QCONSOLE.EXE", else that of the executable.
ALERTDB_API std::uint32_t ConsoleDirectory(char *buffer, std::uint32_t size);

}  // namespace platform
