// Profile reader: private-profile (INI) semantics on real files. Section and
// key names match without regard to case, blanks around names and values are
// trimmed, ';' starts a comment.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// Copies the setting, or `defaultValue` (null = empty) when it is absent, into
// `buffer` of `size` bytes (cut to fit, always terminated). Quotes around a
// setting are dropped; a key with an empty value gives the empty text. Returns
// the number of bytes copied without the terminator: non-zero when the buffer
// received a non-empty value. The file's last name component matches without
// regard to case.
ALERTDB_API std::uint32_t ProfileGetString(const char *section, const char *key,
                                           const char *defaultValue, char *buffer,
                                           std::uint32_t size, const char *file);
// The setting as a number (leading digits, as atoi, held to 32 bits),
// `defaultValue` when the key is absent or its value empty.
ALERTDB_API std::int32_t ProfileGetInt(const char *section, const char *key,
                                       std::int32_t defaultValue, const char *file);

}  // namespace platform
