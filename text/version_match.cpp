#include "text/version_match.h"

#include <cstring>

std::uint32_t DoesVersionMatch(const void *imageStart) {
  if (!imageStart) return 0xFFFF;
  std::uint32_t version;
  // memcpy, because callers may hand in an image at any byte address.
  std::memcpy(&version, static_cast<const unsigned char *>(imageStart) + 4, sizeof version);
  return version == kImageLayoutVersion ? 0 : 0xFFFF;
}
