// Splits a fuzzer's input into the pieces a target needs, so that one input
// drives several arguments at once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace alertdb_fuzz {

class FuzzInput {
 public:
  FuzzInput(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}

  // Copies up to `n` bytes into `out`, zero-filling what the input lacks.
  void fill(void *out, std::size_t n) {
    std::size_t take = std::min(n, size_ - at_);
    if (take) std::memcpy(out, data_ + at_, take);
    if (take < n) std::memset(static_cast<std::uint8_t *>(out) + take, 0, n - take);
    at_ += take;
  }
  // A text of at most `capacity - 1` bytes, ended by a zero byte in the input.
  void text(char *out, std::size_t capacity) {
    std::size_t n = 0;
    while (at_ < size_ && n + 1 < capacity && data_[at_] != 0)
      out[n++] = static_cast<char>(data_[at_++]);
    if (at_ < size_ && data_[at_] == 0) ++at_;
    out[n] = '\0';
  }
  std::uint32_t number() {
    std::uint32_t n = 0;
    fill(&n, sizeof n);
    return n;
  }
  std::string rest() {
    std::string bytes(reinterpret_cast<const char *>(data_ + at_), size_ - at_);
    at_ = size_;
    return bytes;
  }

 private:
  const std::uint8_t *data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

}  // namespace alertdb_fuzz
