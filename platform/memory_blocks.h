// Utility-library memory blocks (used for the schema string blocks).
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

constexpr std::uint32_t kMemMovableZeroed = 66;

// A zero-filled block of `size` bytes; null on failure.
ALERTDB_API void *MemAlloc(std::uint32_t flags, std::uint32_t size);
ALERTDB_API void MemFree(void *block);

}  // namespace platform
