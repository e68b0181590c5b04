// Process-wide 128-byte text caches filled from the string table on first
// successful use. Filling is serialised, so that every caller gets the whole
// text even when several threads ask first at once; a filled text never
// changes again, so it is read without the lock.
#pragma once

#include <atomic>
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
    const char *text = get(index, module);
    std::memcpy(out, text, std::strlen(text) + 1);
  }

  // The cached text, or "" when it cannot be loaded; valid for the life of
  // the process.
  const char *get(std::uint32_t index, HINSTANCE module) {
    if (filled_[index].load(std::memory_order_acquire)) return texts_[index];
    std::lock_guard<std::mutex> lock(mutex_);
    if (filled_[index].load(std::memory_order_relaxed)) return texts_[index];
    // Nobody reads an unfilled slot, so loading into it under the lock is safe.
    if (platform::LoadStringA(module, FirstId + index, texts_[index], kTextSize) <= 0 ||
        texts_[index][0] == '\0') {
      return "";
    }
    filled_[index].store(true, std::memory_order_release);
    return texts_[index];
  }

 private:
  std::mutex mutex_;
  std::atomic<bool> filled_[Count] = {};
  char texts_[Count][kTextSize] = {};
};

}  // namespace alertdb_internal
