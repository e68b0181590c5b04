#include "platform/memory_blocks.h"

#include <cstdlib>

namespace platform {

void *MemAlloc(std::uint32_t, std::uint32_t size) { return std::calloc(1, size ? size : 1); }

void MemFree(void *block) { std::free(block); }

}  // namespace platform
