// A keyed stream cipher with ciphertext chaining: each byte is XORed with a
// keystream byte and added to the previous output byte, so every output byte
// depends on the key, the method, its position and everything before it.
#include "platform/buffer_cipher.h"

namespace platform {

namespace {

// splitmix64: the first word is a bijection of (method, key), so two keys give
// different keystreams from the first eight bytes on.
class KeyStream {
 public:
  KeyStream(std::uint32_t key, std::uint32_t method)
      : state_((static_cast<std::uint64_t>(method) << 32) | key) {}

  std::uint8_t next() {
    if (used_ == 8) {
      state_ += 0x9E3779B97F4A7C15ull;
      std::uint64_t z = state_;
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      word_ = z ^ (z >> 31);
      used_ = 0;
    }
    return static_cast<std::uint8_t>(word_ >> (8 * used_++));
  }

 private:
  std::uint64_t state_;
  std::uint64_t word_ = 0;
  unsigned used_ = 8;
};

// Fixed, not keyed: with it the first differing keystream byte always shows.
constexpr std::uint8_t kChainStart = 0xA5;

}  // namespace

std::uint32_t BufferEncrypt(void *buffer, const std::uint32_t *key, std::uint32_t length,
                            std::uint32_t method) {
  if (!buffer || !key) return 1;
  auto *bytes = static_cast<std::uint8_t *>(buffer);
  KeyStream stream(*key, method);
  std::uint8_t previous = kChainStart;
  for (std::uint32_t i = 0; i < length; ++i) {
    bytes[i] = static_cast<std::uint8_t>((bytes[i] ^ stream.next()) + previous);
    previous = bytes[i];
  }
  return 0;
}

std::uint32_t BufferDecrypt(void *buffer, const std::uint32_t *key, std::uint32_t length,
                            std::uint32_t method) {
  if (!buffer || !key) return 1;
  auto *bytes = static_cast<std::uint8_t *>(buffer);
  KeyStream stream(*key, method);
  std::uint8_t previous = kChainStart;
  for (std::uint32_t i = 0; i < length; ++i) {
    const std::uint8_t cipher = bytes[i];
    bytes[i] =
        static_cast<std::uint8_t>(static_cast<std::uint8_t>(cipher - previous) ^ stream.next());
    previous = cipher;
  }
  return 0;
}

}  // namespace platform
