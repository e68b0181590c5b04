// Alert data images laid out byte by byte in the tests, straight from the
// numbers of the layout and without the library's builder or constants, so
// that the lookups are tested against images that other programs make.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/win_types.h"

namespace hand_laid {

// An ID whose first byte is `first` and last byte `last`.
inline _GUID id(unsigned char first, unsigned char last = 0) {
  unsigned char bytes[16] = {};
  bytes[0] = first;
  bytes[15] = last;
  _GUID g;
  std::memcpy(&g, bytes, sizeof g);
  return g;
}

class Image {
 public:
  // The 80-byte header with layout version 0x30001 and every block present
  // and empty, and no groups.
  Image() : bytes_(80) {
    put32(4, 0x30001);
    for (std::uint32_t word : {12u, 16u, 20u, 28u, 36u, 68u, 72u, 76u}) block(word, 0, 1);
  }

  std::size_t append(std::size_t size) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + size);
    return at;
  }
  void put32(std::size_t at, std::uint32_t value) { std::memcpy(&bytes_[at], &value, 4); }
  void putId(std::size_t at, const _GUID &value) { std::memcpy(&bytes_[at], &value, 16); }
  std::uint32_t get32(std::size_t at) const {
    std::uint32_t value;
    std::memcpy(&value, &bytes_[at], 4);
    return value;
  }

  // Appends a block of `count` zeroed entries and points header word
  // `headerWord` at it; the offset of its entry 0.
  std::size_t block(std::uint32_t headerWord, std::uint32_t count, std::uint32_t entrySize) {
    const std::size_t at = append(16 + std::size_t{count} * entrySize);
    put32(headerWord, static_cast<std::uint32_t>(at));
    put32(at + 4, count);
    return at + 16;
  }

  // Appends a group header of `headerSize` bytes for `count` entries and
  // chains it: from header word `firstWord` when it is the first (`previous`
  // is 0), else from the previous group's next-offset word.
  std::size_t group(std::uint32_t firstWord, std::size_t previous, std::uint32_t headerSize,
                    std::uint32_t count) {
    const std::size_t at = append(headerSize);
    if (previous == 0)
      put32(firstWord, static_cast<std::uint32_t>(at));
    else
      put32(previous + 12, static_cast<std::uint32_t>(at - previous));
    put32(at, headerSize);
    put32(at + 4, count);
    return at;
  }

  const unsigned char *data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }
  std::vector<unsigned char> &bytes() { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

}  // namespace hand_laid
