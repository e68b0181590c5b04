// Character set conversion of table titles.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// ANSI (Windows-1252) to OEM (code page 437); characters without an OEM form
// become '?'. `source` and `destination` may be the same buffer.
ALERTDB_API std::int32_t CharToOemA(const char *source, char *destination);

}  // namespace platform
