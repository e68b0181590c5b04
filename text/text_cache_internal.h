// Process-wide 128-byte text caches filled from the string table on first
// successful use. Filling is serialised, so that every caller gets the whole
// text even when several threads ask first at once.
#pragma once

#include <cstdint>
#include <cstring>
#include <mutex>

#include "platform/string_table.h"

namespace alertdb_internal {

template <std::uint32_t FirstId, std::uint32_t Count>
class TextCache {
 public:
  static constexpr std::uint32_t kTextSize = 128;

  // Copies text `index` into `out` (kTextSize bytes), loading it first when
  // the cache is still empty; an empty load leaves it empty for the next try.
  void copy(std::uint32_t index, HINSTANCE module, char *out) {
    std::lock_guard<std::mutex> lock(mutex_);
    char *text = texts_[index];
    if (text[0] == '\0') platform::LoadStringA(module, FirstId + index, text, kTextSize);
    std::memcpy(out, text, std::strlen(text) + 1);
  }

 private:
  std::mutex mutex_;
  char texts_[Count][kTextSize] = {};
};

}  // namespace alertdb_internal
