// How a record image is kept on disk: runs of zero bytes (the unused rest of
// fixed text fields, mostly) are stored as their length, the other bytes as
// they are; then a checksum of those stored bytes and a mark byte. Decoding
// gives back every byte, straight into the storage the fields are bound to.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform::store {

// A stretch of the record image and where its bytes live while a record
// moves; a stretch without storage is passed over.
struct ImageSegment {
  std::uint32_t offset;
  std::uint32_t size;
  unsigned char *storage;
};

// The most bytes an image of `imageSize` bytes takes when stored.
std::size_t storedSizeBound(std::size_t imageSize);

// Encodes the image into `out` (room for storedSizeBound bytes); returns the
// stored size.
std::size_t encodeRecord(const unsigned char *image, std::size_t imageSize, unsigned char *out);

enum class StoredForm {
  Checked,  // carries a checksum, and it holds
  Legacy,   // written before records carried checksums
  Damaged,  // checksum fails, or the bytes do not decode
};

// What the stored bytes are, checking the checksum; reads no further.
StoredForm inspectRecord(const void *stored, std::size_t storedSize);

// Decodes stored bytes into the segments, which cover the image of
// `imageSize` bytes in order. `allowLegacy` accepts records without a
// checksum. False, with the segments' contents unspecified, when the bytes
// are damaged; the checksum is checked before any segment is written.
bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  const ImageSegment *segments, std::size_t segmentCount, bool allowLegacy);

// The same into one contiguous image.
bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t imageSize,
                  unsigned char *image, bool allowLegacy);

}  // namespace platform::store
