#include "platform/memory_blocks.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace platform;

namespace {

TEST(MemoryBlocks, BlocksAreZeroFilledUsableAndFreed) {
  for (std::uint32_t size : {1u, 20u, 90u, 4096u, 1u << 20}) {
    auto *block = static_cast<unsigned char *>(MemAlloc(kMemMovableZeroed, size));
    ASSERT_NE(block, nullptr) << size;
    std::size_t nonZero = 0;
    for (std::uint32_t i = 0; i < size; ++i) nonZero += block[i] != 0;
    EXPECT_EQ(nonZero, 0u) << size;
    std::memset(block, 0xAB, size);  // every byte is writable (checked under ASan)
    MemFree(block);
  }
  // Neither may crash or leak (ASan watches both).
  MemFree(MemAlloc(kMemMovableZeroed, 0));
  MemFree(nullptr);
}

}  // namespace
