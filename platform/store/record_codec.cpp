#include <xxhash.h>

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

unsigned char *putLength(unsigned char *out, std::size_t n) {
  while (n >= 0x80) {
    *out++ = static_cast<unsigned char>((n & 0x7F) | 0x80);
    n >>= 7;
  }
  *out++ = static_cast<unsigned char>(n);
  return out;
}

bool getLength(const unsigned char *&p, const unsigned char *end, std::size_t *n) {
  if (p < end && *p < 0x80) {  // most lengths are one byte
    *n = *p++;
    return true;
  }
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

std::uint64_t checksumOf(const void *bytes, std::size_t size) { return XXH3_64bits(bytes, size); }

// Writes image bytes [at, at + n) into the segments, from `source` or as
// zeros; the current segment follows along, so that a record is one pass.
class SegmentWriter {
 public:
  SegmentWriter(const ImageSegment *segments, std::size_t count)
      : segment_(segments), last_(segments + count - 1) {
    enter();
  }

  void write(std::size_t at, const unsigned char *source, std::size_t n) {
    while (n > 0) {
      while (at >= end_ && segment_ != last_) {
        ++segment_;
        enter();
      }
      std::size_t part = end_ - at < n ? end_ - at : n;
      if (segment_->storage) {
        unsigned char *to = segment_->storage + (at - segment_->offset);
        if (source) {
          std::memcpy(to, source, part);
        } else {
          std::memset(to, 0, part);
        }
      }
      if (source) source += part;
      at += part;
      n -= part;
    }
  }

 private:
  void enter() { end_ = segment_->offset + segment_->size; }

  const ImageSegment *segment_;
  const ImageSegment *last_;
  std::size_t end_ = 0;
};

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

StoredForm inspectRecord(const void *stored, std::size_t size) {
  const auto *p = static_cast<const unsigned char *>(stored);
  if (size == 0) return StoredForm::Damaged;
  if (p[size - 1] < 0x80) return StoredForm::Legacy;
  if (p[size - 1] != kChecksumMark || size < kTrailerSize) return StoredForm::Damaged;
  std::size_t body = size - kTrailerSize;
  std::uint64_t sum = 0;
  for (std::size_t b = kChecksumSize; b-- > 0;) sum = (sum << 8) | p[body + b];
  return sum == checksumOf(p, body) ? StoredForm::Checked : StoredForm::Damaged;
}

bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  const ImageSegment *segments, std::size_t segmentCount, bool allowLegacy) {
  StoredForm form = inspectRecord(stored, storedSize);
  if (form == StoredForm::Damaged || (form == StoredForm::Legacy && !allowLegacy)) return false;
  const auto *p = static_cast<const unsigned char *>(stored);
  const unsigned char *end = p + storedSize - (form == StoredForm::Checked ? kTrailerSize : 0);
  // A legacy record has no checksum: check its shape before writing a byte.
  if (form == StoredForm::Legacy) {
    std::size_t at = 0;
    for (const unsigned char *q = p; q < end;) {
      std::size_t literal = 0, zeros = 0;
      if (!getLength(q, end, &literal) || literal > static_cast<std::size_t>(end - q) ||
          literal > imageSize - at) {
        return false;
      }
      q += literal;
      at += literal;
      if (!getLength(q, end, &zeros) || zeros > imageSize - at) return false;
      at += zeros;
    }
    if (at != imageSize) return false;
  }
  SegmentWriter writer(segments, segmentCount);
  std::size_t at = 0;
  while (p < end) {
    std::size_t literal = 0, zeros = 0;
    if (!getLength(p, end, &literal) || literal > static_cast<std::size_t>(end - p) ||
        literal > imageSize - at) {
      return false;
    }
    writer.write(at, p, literal);
    p += literal;
    at += literal;
    if (!getLength(p, end, &zeros) || zeros > imageSize - at) return false;
    writer.write(at, nullptr, zeros);
    at += zeros;
  }
  return at == imageSize;
}

bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  unsigned char *image, bool allowLegacy) {
  ImageSegment whole{0, imageSize, image};
  return decodeRecord(stored, storedSize, imageSize, &whole, 1, allowLegacy);
}

}  // namespace platform::store
