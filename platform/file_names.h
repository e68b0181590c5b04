// Utility-library path and file calls. Paths use '/'. File names are matched
// without regard to letter case inside their directory, as on the product's
// home platform; directories are matched exactly.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

namespace platform {

// Removes the last component of `path` in place, leaving its directory
// (without trailing separator).
ALERTDB_API void NameStripFile(char *path);
// Appends `name` to the directory `path`, with a separator.
ALERTDB_API void NameAppendFile(char *path, const char *name);
// Removes the extension of the last component in place (".dat" of "a/b.dat").
ALERTDB_API void NameStripExtension(char *path);
// Appends an extension given without its point.
ALERTDB_API void NameAppendExtension(char *path, const char *extension);

// Non-zero when a file of that name exists (any letter case of the name).
ALERTDB_API std::uint32_t FileExists(const char *path);
// Copies `source` over `destination`, atomically (a crash leaves either the old
// destination or the whole copy). 0 on success.
ALERTDB_API std::uint32_t FileCopy(const char *source, const char *destination,
                                   std::uint32_t flags);

// The existing file that `path` names, matching its last component without
// regard to case; `path` itself when none exists.
ALERTDB_API std::string ResolveFileName(const std::string &path);

}  // namespace platform
