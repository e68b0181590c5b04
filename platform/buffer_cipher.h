// Utility-library reversible keyed transformation of a block in place.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// Encrypt or decrypt `length` bytes in place with the 32-bit key at `key`;
// `method` selects one of several keystreams. Decrypt undoes Encrypt with the
// same key and method; blocks of 8 bytes or more encrypt differently under
// different keys. 0 on success; non-zero, touching nothing, for a null buffer
// or key.
ALERTDB_API std::uint32_t BufferEncrypt(void *buffer, const std::uint32_t *key,
                                        std::uint32_t length, std::uint32_t method);
ALERTDB_API std::uint32_t BufferDecrypt(void *buffer, const std::uint32_t *key,
                                        std::uint32_t length, std::uint32_t method);

}  // namespace platform
