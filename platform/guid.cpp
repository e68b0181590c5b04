#include "platform/guid.h"

#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace platform {
namespace {

constexpr std::uint32_t kInvalidArgument = 0x80070057;  // E_INVALIDARG
constexpr std::uint32_t kFailure = 0x80004005;          // E_FAIL

bool FillRandom(unsigned char *bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t got = getrandom(bytes + done, size - done, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(got);
  }
  return true;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Reads exactly `digits` hex digits; no sign, no blanks, no "0x".
bool ReadHex(const char *text, int digits, std::uint32_t *value) {
  std::uint32_t result = 0;
  for (int i = 0; i < digits; ++i) {
    int v = HexValue(text[i]);
    if (v < 0) return false;
    result = (result << 4) | static_cast<std::uint32_t>(v);
  }
  *value = result;
  return true;
}

}  // namespace

std::uint32_t CoCreateGuid(_GUID *guid) {
  if (guid == nullptr) return kInvalidArgument;
  unsigned char bytes[sizeof(_GUID)];
  if (!FillRandom(bytes, sizeof bytes)) return kFailure;
  _GUID result;
  std::memcpy(&result, bytes, sizeof result);
  // Version 4 in the top nibble of Data3, RFC 4122 variant (10xx) in Data4[0].
  result.Data3 = static_cast<std::uint16_t>((result.Data3 & 0x0FFF) | 0x4000);
  result.Data4[0] = static_cast<std::uint8_t>((result.Data4[0] & 0x3F) | 0x80);
  *guid = result;
  return 0;
}

std::string GuidToString(const _GUID &guid) {
  char text[39];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(guid.Data1), static_cast<unsigned>(guid.Data2),
                static_cast<unsigned>(guid.Data3), guid.Data4[0], guid.Data4[1], guid.Data4[2],
                guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
  try {
    return std::string(text, 38);
  } catch (...) {
    return std::string();
  }
}

bool GuidFromString(const char *text, _GUID *guid) {
  if (text == nullptr || guid == nullptr) return false;
  std::size_t length = std::strlen(text);
  if (length == 38) {
    if (text[0] != '{' || text[37] != '}') return false;
    ++text;
  } else if (length != 36) {
    return false;
  }
  if (text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') return false;

  _GUID result;
  std::uint32_t value = 0;
  if (!ReadHex(text, 8, &value)) return false;
  result.Data1 = value;
  if (!ReadHex(text + 9, 4, &value)) return false;
  result.Data2 = static_cast<std::uint16_t>(value);
  if (!ReadHex(text + 14, 4, &value)) return false;
  result.Data3 = static_cast<std::uint16_t>(value);
  // Data4 is two bytes before the last dash and six after it.
  static constexpr int kData4Offsets[8] = {19, 21, 24, 26, 28, 30, 32, 34};
  for (int i = 0; i < 8; ++i) {
    if (!ReadHex(text + kData4Offsets[i], 2, &value)) return false;
    result.Data4[i] = static_cast<std::uint8_t>(value);
  }
  *guid = result;
  return true;
}

}  // namespace platform
