#include "platform/buffer_cipher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

using namespace platform;

namespace {

using Block = std::vector<unsigned char>;

Block encrypted(Block block, std::uint32_t key, std::uint32_t method = 2) {
  EXPECT_EQ(BufferEncrypt(block.data(), &key, static_cast<std::uint32_t>(block.size()), method),
            0u);
  return block;
}

Block decrypted(Block block, std::uint32_t key, std::uint32_t method = 2) {
  EXPECT_EQ(BufferDecrypt(block.data(), &key, static_cast<std::uint32_t>(block.size()), method),
            0u);
  return block;
}

// A password block as the library stores it: text, then zeros up to 49 bytes.
Block password(const char *text) {
  Block block(49, 0);
  std::memcpy(block.data(), text, std::strlen(text));
  return block;
}

TEST(BufferCipher, DecryptUndoesEncryptForEveryLength) {
  std::mt19937 random(7);
  for (std::uint32_t length = 1; length <= 100; ++length) {
    Block clear(length);
    for (auto &byte : clear) byte = static_cast<unsigned char>(random());
    const std::uint32_t key = static_cast<std::uint32_t>(random());
    const Block secret = encrypted(clear, key);
    if (length >= 8) {
      EXPECT_NE(secret, clear) << "length " << length;
    }
    EXPECT_EQ(decrypted(secret, key), clear) << "length " << length;
  }
}

TEST(BufferCipher, TheClearTextDoesNotShow) {
  const std::uint32_t key = 0x1234ABCD;
  const Block clear = password("secret!");
  const Block secret = encrypted(clear, key);
  EXPECT_EQ(std::search(secret.begin(), secret.end(), clear.begin(), clear.begin() + 3),
            secret.end());
  std::size_t unchanged = 0;
  for (std::size_t i = 0; i < clear.size(); ++i) unchanged += secret[i] == clear[i];
  EXPECT_LT(unchanged, 4u);
  // The zero padding does not become a repeating pattern.
  std::size_t repeats = 0;
  for (std::size_t i = 8; i < secret.size(); ++i) repeats += secret[i] == secret[i - 1];
  EXPECT_LT(repeats, 5u);
}

TEST(BufferCipher, EveryKeyBitAndTheMethodMatter) {
  const std::uint32_t key = 0x1234ABCD;
  const Block clear = password("secret!");
  const Block secret = encrypted(clear, key);
  for (int bit = 0; bit < 32; ++bit) {
    const std::uint32_t other = key ^ (1u << bit);
    EXPECT_NE(encrypted(clear, other), secret) << "bit " << bit;
    EXPECT_NE(decrypted(secret, other), clear) << "bit " << bit;
  }
  EXPECT_NE(encrypted(clear, key, 1), secret);
  EXPECT_NE(encrypted(clear, 0), clear) << "even the zero key transforms";
}

TEST(BufferCipher, ChangingOneClearByteChangesTheRestOfTheBlock) {
  const std::uint32_t key = 42;
  Block clear = password("secret!");
  const Block secret = encrypted(clear, key);
  clear[3] ^= 1;
  const Block changed = encrypted(clear, key);
  EXPECT_TRUE(std::equal(secret.begin(), secret.begin() + 3, changed.begin()));
  for (std::size_t i = 3; i < secret.size(); ++i) EXPECT_NE(secret[i], changed[i]) << "byte " << i;
}

TEST(BufferCipher, NullArgumentsAreRefusedAndChangeNothing) {
  const std::uint32_t key = 1;
  Block block = password("secret!");
  const Block original = block;
  EXPECT_NE(BufferEncrypt(nullptr, &key, 49, 2), 0u);
  EXPECT_NE(BufferDecrypt(nullptr, &key, 49, 2), 0u);
  EXPECT_NE(BufferEncrypt(block.data(), nullptr, 49, 2), 0u);
  EXPECT_NE(BufferDecrypt(block.data(), nullptr, 49, 2), 0u);
  EXPECT_EQ(block, original);
  EXPECT_EQ(BufferEncrypt(block.data(), &key, 0, 2), 0u);
  EXPECT_EQ(block, original);
}

}  // namespace
