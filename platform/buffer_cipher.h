// Utility-library reversible keyed transformation of a block in place.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

ALERTDB_API std::uint32_t BufferEncrypt(void *buffer, const std::uint32_t *key,
                                        std::uint32_t length, std::uint32_t method);
ALERTDB_API std::uint32_t BufferDecrypt(void *buffer, const std::uint32_t *key,
                                        std::uint32_t length, std::uint32_t method);

}  // namespace platform
