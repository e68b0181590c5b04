#include "platform/buffer_cipher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "platform/memory_blocks.h"

using namespace platform;

namespace {

using Block = std::vector<unsigned char>;

Block encrypted(Block block, std::uint32_t key, std::uint32_t method = 2) {
  EXPECT_EQ(BufferEncrypt(block.data(), &key, static_cast<std::uint32_t>(block.size()), method),
            0u);
  return block;
}

Block decrypted(Block block, std::uint32_t key) {
  EXPECT_EQ(BufferDecrypt(block.data(), &key, static_cast<std::uint32_t>(block.size()), 2), 0u);
  return block;
}

TEST(BufferCipher, DecryptUndoesEncryptAndEveryKeyBitMatters) {
  std::mt19937 random(7);
  for (std::uint32_t length = 1; length <= 100; ++length) {
    Block clear(length);
    for (auto &byte : clear) byte = static_cast<unsigned char>(random());
    const std::uint32_t key = static_cast<std::uint32_t>(random());
    const Block secret = encrypted(clear, key);
    EXPECT_EQ(decrypted(secret, key), clear) << "length " << length;
    if (length < 8) continue;
    const std::uint32_t other = key ^ (1u << (length % 32));  // lengths 8..100 flip every bit
    EXPECT_NE(secret, clear) << "length " << length;
    EXPECT_NE(encrypted(clear, other), secret) << "length " << length;
    EXPECT_NE(decrypted(secret, other), clear) << "length " << length;
  }
  const Block zeros(49, 0);
  EXPECT_NE(encrypted(zeros, 0), zeros) << "even the zero key transforms";
  EXPECT_NE(encrypted(zeros, 1, 1), encrypted(zeros, 1)) << "the method matters";
}

TEST(BufferCipher, NullArgumentsAreRefusedAndChangeNothing) {
  const std::uint32_t key = 1;
  Block block(49, 'a');
  EXPECT_NE(BufferEncrypt(nullptr, &key, 49, 2), 0u);
  EXPECT_NE(BufferDecrypt(nullptr, &key, 49, 2), 0u);
  EXPECT_NE(BufferEncrypt(block.data(), nullptr, 49, 2), 0u);
  EXPECT_NE(BufferDecrypt(block.data(), nullptr, 49, 2), 0u);
  EXPECT_EQ(block, Block(49, 'a'));
}

TEST(MemoryBlocks, BlocksAreZeroFilledAndWritable) {
  for (std::uint32_t size : {1u, 90u, 1u << 20}) {
    auto *block = static_cast<unsigned char *>(MemAlloc(kMemMovableZeroed, size));
    ASSERT_NE(block, nullptr) << size;
    EXPECT_EQ(std::count(block, block + size, 0), static_cast<std::ptrdiff_t>(size)) << size;
    std::memset(block, 0xAB, size);  // every byte is writable (checked under ASan)
    MemFree(block);
  }
  MemFree(MemAlloc(kMemMovableZeroed, 0));
  MemFree(nullptr);
}

}  // namespace
