// A keyed, position-dependent stream cipher with ciphertext chaining: every
// byte depends on the key, the method, its position and the bytes before it.
#include "platform/buffer_cipher.h"

namespace platform {

namespace {

// xorshift32 keystream seeded by the key and method.
class KeyStream {
 public:
  KeyStream(std::uint32_t key, std::uint32_t method)
      : state_((key ^ (method * 0x9E3779B9u)) | 1u) {}
  std::uint8_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return static_cast<std::uint8_t>(state_ >> 24);
  }

 private:
  std::uint32_t state_;
};

}  // namespace

std::uint32_t BufferEncrypt(void *buffer, const std::uint32_t *key, std::uint32_t length,
                            std::uint32_t method) {
  if (!buffer || !key) return 1;
  auto *bytes = static_cast<std::uint8_t *>(buffer);
  KeyStream stream(*key, method);
  std::uint8_t previous = 0xA5;
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
  std::uint8_t previous = 0xA5;
  for (std::uint32_t i = 0; i < length; ++i) {
    std::uint8_t cipher = bytes[i];
    bytes[i] = static_cast<std::uint8_t>(static_cast<std::uint8_t>(cipher - previous) ^
                                         stream.next());
    previous = cipher;
  }
  return 0;
}

}  // namespace platform
