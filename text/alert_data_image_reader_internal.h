// Bounded reading of an alert data image, shared by the lookups and the
// image check, so that both read exactly the same bytes.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>

#include "text/alert_data_image_layout.h"

namespace alertdb_internal {

// Words are read as they lie in memory; the image's are little-endian.
static_assert(std::endian::native == std::endian::little);

// Offsets are 32-bit, counts times entry sizes stay below 2^46: 64-bit sums
// of them never wrap.
class ImageReader {
 public:
  // Nothing for a null image. `limit` is how many bytes may be read; an
  // image that records its own size is held to the smaller of the two. The
  // layout version is not looked at: telling it is DoesVersionMatch's part.
  static std::optional<ImageReader> open(const void *image, std::uint64_t limit) {
    using namespace alert_data_image;
    if (!image || limit < kHeaderSize) return std::nullopt;
    ImageReader reader(static_cast<const unsigned char *>(image), limit);
    if (reader.word(kSizedMarkWord) == kSizedMark) {
      const std::uint64_t recorded = reader.word(kSizeWord);
      if (recorded < kHeaderSize) return std::nullopt;
      if (recorded < reader.limit_) reader.limit_ = recorded;
    }
    return reader;
  }

  const unsigned char *base() const { return base_; }
  std::uint64_t limit() const { return limit_; }

  bool holds(std::uint64_t offset, std::uint64_t length) const {
    return offset <= limit_ && length <= limit_ - offset;
  }
  // Callers have checked `holds(offset, 4)`.
  std::uint32_t word(std::uint64_t offset) const {
    std::uint32_t value;
    std::memcpy(&value, base_ + offset, sizeof value);
    return value;
  }
  bool sameId(std::uint64_t offset, const void *id) const {
    return std::memcmp(base_ + offset, id, 16) == 0;
  }

 private:
  ImageReader(const unsigned char *base, std::uint64_t limit) : base_(base), limit_(limit) {}
  const unsigned char *base_;
  std::uint64_t limit_;
};

// Entries of a block whose header offset is in header word `headerWord`.
struct ImageBlock {
  std::uint64_t firstEntry;
  std::uint32_t count;
  std::uint32_t entrySize;
  std::uint64_t entry(std::uint64_t k) const { return firstEntry + k * entrySize; }
};

// Nothing when the block's header or any of its entries lies outside.
inline std::optional<ImageBlock> imageBlock(const ImageReader &reader, std::uint32_t headerWord,
                                            std::uint32_t entrySize) {
  using namespace alert_data_image;
  const std::uint64_t start = reader.word(headerWord);
  if (!reader.holds(start, kBlockHeaderSize)) return std::nullopt;
  const ImageBlock block{start + kBlockHeaderSize, reader.word(start + kBlockCountWord), entrySize};
  if (!reader.holds(block.firstEntry, std::uint64_t{block.count} * entrySize)) return std::nullopt;
  return block;
}

// Offsets that the chain lookups report must fit their 32-bit result.
inline constexpr std::uint64_t kLargestReportableOffset = 0xFFFFFFFF;

}  // namespace alertdb_internal
