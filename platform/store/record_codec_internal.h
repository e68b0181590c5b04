// How a record image is kept on disk: runs of zero bytes (the unused rest of
// fixed text fields, mostly) are stored as their length, the other bytes as
// they are. Decoding gives back every byte.
#pragma once

#include <cstdint>
#include <string>

namespace platform::store {

std::string encodeRecord(const std::string &record);
// False when `stored` does not decode to exactly `recordSize` bytes.
bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t recordSize,
                  std::string *record);

}  // namespace platform::store
