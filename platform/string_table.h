// The library's string table, compiled in from resources/, read with
// LoadStringA semantics.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

// The library's own module handle: the one to pass to the text functions.
ALERTDB_EXTERN_C ALERTDB_API HINSTANCE AlertDBModuleHandle(void);

namespace platform {

// Copies string `id` of `module` into `buffer` (cut to size - 1, terminated)
// and returns its length; 0 (and an empty buffer when size > 0) when the
// module has no string table or no such string.
ALERTDB_API std::int32_t LoadStringA(HINSTANCE module, std::uint32_t id, char *buffer,
                                     std::int32_t size);

}  // namespace platform
