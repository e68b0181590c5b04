// The console settings file "QADMIN.DAT" and the data directory it names.
#pragma once

namespace platform {

// Reads section "Directories", key "DataDir" of "QADMIN.DAT" in the console
// directory (ConsoleDirectory) into `dataDirectory` (260 bytes). False when no
// data directory is configured; the buffer is then unchanged.
bool ReadConsoleDataDir(char *dataDirectory);

}  // namespace platform
