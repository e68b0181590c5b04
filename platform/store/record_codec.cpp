// Every record read is checksummed: inlined, a short record's checksum
// skips the library's call and length dispatch.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/store/record_codec_internal.h"

namespace platform::store {

namespace {

// Shorter zero runs cost more as a length than as bytes.
constexpr std::size_t kMinZeroRun = 4;
constexpr std::size_t kChecksumSize = 8;
// Older stored forms end in a length byte, below 0x80; this mark is above.
constexpr unsigned char kChecksumMark = 0xC5;
constexpr std::size_t kTrailerSize = kChecksumSize + 1;
// Images up to this size are decoded on the stack first.
constexpr std::size_t kStackImage = 1024;

unsigned char *putLength(unsigned char *out, std::size_t n) {
  while (n >= 0x80) {
    *out++ = static_cast<unsigned char>((n & 0x7F) | 0x80);
    n >>= 7;
  }
  *out++ = static_cast<unsigned char>(n);
  return out;
}

[[gnu::noinline]] bool getLongLength(const unsigned char *&p, const unsigned char *end,
                                     std::size_t *n) {
  std::size_t value = 0;
  for (int shift = 0; p < end && shift < 35; shift += 7) {
    unsigned char byte = *p++;
    value |= static_cast<std::size_t>(byte & 0x7F) << shift;
    if (!(byte & 0x80)) {
      *n = value;
      return true;
    }
  }
  return false;
}

// Most lengths are one byte: that case stays inline in the decoding loop.
inline bool getLength(const unsigned char *&p, const unsigned char *end, std::size_t *n) {
  if (p < end && *p < 0x80) {
    *n = *p++;
    return true;
  }
  return getLongLength(p, end, n);
}

std::uint64_t checksumOf(const void *bytes, std::size_t size) { return XXH3_64bits(bytes, size); }

std::uint64_t storedChecksum(const unsigned char *p) {
  std::uint64_t sum;
  std::memcpy(&sum, p, sizeof sum);
  if constexpr (std::endian::native == std::endian::big) sum = __builtin_bswap64(sum);
  return sum;
}

// Writes the image's bytes in order into the segments, which cover it
// back to back; a segment without storage swallows its bytes.
class SegmentWriter {
 public:
  SegmentWriter(const ImageSegment *segments, std::size_t count)
      : segment_(segments),
        last_(segments + count - 1),
        to_(segments->storage),
        room_(segments->size) {}

  void copy(const unsigned char *source, std::size_t n) {
    while (n > room_ && segment_ != last_) {
      std::size_t part = room_;
      put(source, part);
      source += part;
      n -= part;
      enter();
    }
    put(source, std::min(n, room_));
  }

  void zero(std::size_t n) {
    while (n > room_ && segment_ != last_) {
      n -= room_;
      clear(room_);
      enter();
    }
    clear(std::min(n, room_));
  }

 private:
  // Lengths are checked against the image size first; the clamps above only
  // keep segments that fall short of the image from being overrun.
  void put(const unsigned char *source, std::size_t n) {
    if (to_) std::memcpy(to_, source, n);
    advance(n);
  }
  void clear(std::size_t n) {
    if (to_) std::memset(to_, 0, n);
    advance(n);
  }
  void advance(std::size_t n) {
    if (to_) to_ += n;
    room_ -= n;
  }
  void enter() {
    ++segment_;
    to_ = segment_->storage;
    room_ = segment_->size;
  }

  const ImageSegment *segment_;
  const ImageSegment *last_;
  unsigned char *to_;
  std::size_t room_;
};

// Runs up to this long move as one fixed-size block where the image has
// that much room past its end: most runs of a small record are a few bytes,
// and a call each would cost more than the bytes.
constexpr std::size_t kShortRun = 16;

// Decodes [p, end) into one contiguous image of `imageSize` bytes (with
// kShortRun bytes of room after it when `kRoom`); false unless the bytes are
// exactly a whole image.
template <bool kRoom>
[[gnu::always_inline]] inline bool decodeInto(const unsigned char *p, const unsigned char *end,
                                              std::size_t imageSize, unsigned char *image) {
  unsigned char *out = image;
  const unsigned char *const limit = image + imageSize;
  while (p < end) {
    std::size_t literal = 0, zeros = 0;
    if (!getLength(p, end, &literal) || literal > static_cast<std::size_t>(end - p) ||
        literal > static_cast<std::size_t>(limit - out)) {
      return false;
    }
    if (kRoom && literal <= kShortRun && end - p >= static_cast<std::ptrdiff_t>(kShortRun)) {
      std::memcpy(out, p, kShortRun);
    } else {
      std::memcpy(out, p, literal);
    }
    out += literal;
    p += literal;
    if (!getLength(p, end, &zeros) || zeros > static_cast<std::size_t>(limit - out)) return false;
    if (kRoom && zeros <= kShortRun) {
      std::memset(out, 0, kShortRun);
    } else {
      std::memset(out, 0, zeros);
    }
    out += zeros;
  }
  return out == limit;
}

// Whether [p, end) is a whole image of `imageSize` bytes in stored form;
// writes into `writer` as it goes when there is one.
bool decodeBody(const unsigned char *p, const unsigned char *end, std::size_t imageSize,
                SegmentWriter *writer) {
  std::size_t at = 0;
  while (p < end) {
    std::size_t literal = 0, zeros = 0;
    if (!getLength(p, end, &literal) || literal > static_cast<std::size_t>(end - p) ||
        literal > imageSize - at) {
      return false;
    }
    if (writer && literal) writer->copy(p, literal);
    p += literal;
    at += literal;
    if (!getLength(p, end, &zeros) || zeros > imageSize - at) return false;
    if (writer && zeros) writer->zero(zeros);
    at += zeros;
  }
  return at == imageSize;
}

}  // namespace

std::size_t storedSizeBound(std::size_t imageSize) {
  // Each literal and each run costs at most five length bytes, and a run is
  // at least kMinZeroRun bytes or ends the image.
  return imageSize + 10 * (imageSize / kMinZeroRun + 1) + kTrailerSize;
}

std::size_t encodeRecord(const unsigned char *image, std::size_t n, unsigned char *out) {
  unsigned char *start = out;
  std::size_t i = 0;
  while (i < n) {
    std::size_t literalStart = i, zeroStart = n, zeroEnd = n;
    for (std::size_t j = i; j < n;) {
      if (image[j] != 0) {
        ++j;
        continue;
      }
      std::size_t k = j;
      while (k < n && image[k] == 0) ++k;
      if (k - j >= kMinZeroRun || k == n) {
        zeroStart = j;
        zeroEnd = k;
        break;
      }
      j = k;
    }
    out = putLength(out, zeroStart - literalStart);
    std::memcpy(out, image + literalStart, zeroStart - literalStart);
    out += zeroStart - literalStart;
    out = putLength(out, zeroEnd - zeroStart);
    i = zeroEnd;
  }
  std::uint64_t sum = checksumOf(start, static_cast<std::size_t>(out - start));
  for (std::size_t b = 0; b < kChecksumSize; ++b)
    *out++ = static_cast<unsigned char>(sum >> (8 * b));
  *out++ = kChecksumMark;
  return static_cast<std::size_t>(out - start);
}

namespace {

[[gnu::always_inline]] inline StoredForm formOf(const unsigned char *p, std::size_t size) {
  if (size == 0) return StoredForm::Damaged;
  if (p[size - 1] < 0x80) return StoredForm::Legacy;
  if (p[size - 1] != kChecksumMark || size < kTrailerSize) return StoredForm::Damaged;
  std::size_t body = size - kTrailerSize;
  return storedChecksum(p + body) == checksumOf(p, body) ? StoredForm::Checked
                                                         : StoredForm::Damaged;
}

// The body of a record that may be decoded: its checksum holds, or it has
// none and that form is allowed.
[[gnu::always_inline]] inline bool bodyOf(const void *stored, std::size_t storedSize,
                                          bool allowLegacy, const unsigned char **body,
                                          const unsigned char **end) {
  *body = static_cast<const unsigned char *>(stored);
  StoredForm form = formOf(*body, storedSize);
  if (form == StoredForm::Damaged || (form == StoredForm::Legacy && !allowLegacy)) return false;
  *end = *body + storedSize - (form == StoredForm::Checked ? kTrailerSize : 0);
  return true;
}

}  // namespace

StoredForm inspectRecord(const void *stored, std::size_t size) {
  return formOf(static_cast<const unsigned char *>(stored), size);
}

bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  const ImageSegment *segments, std::size_t segmentCount, bool allowLegacy) {
  const unsigned char *p = nullptr, *end = nullptr;
  if (!bodyOf(stored, storedSize, allowLegacy, &p, &end)) return false;
  if (imageSize <= kStackImage) {
    // Small images decode whole and then move field by field: fewer, simpler
    // steps than following the fields through every run, and nothing reaches
    // the fields unless the whole record decodes.
    unsigned char image[kStackImage + kShortRun];
    if (!decodeInto<true>(p, end, imageSize, image)) return false;
    for (std::size_t i = 0; i < segmentCount; ++i) {
      const ImageSegment &s = segments[i];
      if (s.storage) std::memcpy(s.storage, image + s.offset, s.size);
    }
    return true;
  }
  // A record without checksum: check its shape before writing a byte.
  if (end == p + storedSize && !decodeBody(p, end, imageSize, nullptr)) return false;
  if (segmentCount == 0) return decodeBody(p, end, imageSize, nullptr);
  SegmentWriter writer(segments, segmentCount);
  return decodeBody(p, end, imageSize, &writer);
}

bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  unsigned char *image, bool allowLegacy) {
  const unsigned char *p = nullptr, *end = nullptr;
  if (!bodyOf(stored, storedSize, allowLegacy, &p, &end)) return false;
  // Without a checksum the shape is checked before a byte is written.
  if (end == p + storedSize && !decodeBody(p, end, imageSize, nullptr)) return false;
  return decodeInto<false>(p, end, imageSize, image);
}

}  // namespace platform::store
