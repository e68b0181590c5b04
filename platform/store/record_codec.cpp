#include "platform/store/record_codec_internal.h"

namespace platform::store {

namespace {

// Shorter zero runs cost more as a length than as bytes.
constexpr std::size_t kMinZeroRun = 4;

void putLength(std::string &out, std::size_t n) {
  while (n >= 0x80) {
    out += static_cast<char>((n & 0x7F) | 0x80);
    n >>= 7;
  }
  out += static_cast<char>(n);
}

bool getLength(const unsigned char *&p, const unsigned char *end, std::size_t *n) {
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

}  // namespace

// A sequence of (literal length, literal bytes, zero run length).
std::string encodeRecord(const std::string &record) {
  std::string out;
  out.reserve(record.size() / 4 + 16);
  std::size_t i = 0, n = record.size();
  while (i < n) {
    std::size_t literalStart = i, zeroStart = n, zeroEnd = n;
    for (std::size_t j = i; j < n;) {
      if (record[j] != 0) {
        ++j;
        continue;
      }
      std::size_t k = j;
      while (k < n && record[k] == 0) ++k;
      if (k - j >= kMinZeroRun || k == n) {
        zeroStart = j;
        zeroEnd = k;
        break;
      }
      j = k;
    }
    putLength(out, zeroStart - literalStart);
    out.append(record, literalStart, zeroStart - literalStart);
    putLength(out, zeroEnd - zeroStart);
    i = zeroEnd;
  }
  return out;
}

bool decodeRecord(const void *stored, std::size_t storedSize, std::uint32_t recordSize,
                  std::string *record) {
  record->assign(recordSize, '\0');
  const auto *p = static_cast<const unsigned char *>(stored);
  const unsigned char *end = p + storedSize;
  std::size_t at = 0;
  while (p < end) {
    std::size_t literal = 0, zeros = 0;
    if (!getLength(p, end, &literal) || literal > static_cast<std::size_t>(end - p) ||
        literal > recordSize - at) {
      return false;
    }
    record->replace(at, literal, reinterpret_cast<const char *>(p), literal);
    p += literal;
    at += literal;
    if (!getLength(p, end, &zeros) || zeros > recordSize - at) return false;
    at += zeros;  // already zero
  }
  return at == recordSize;
}

}  // namespace platform::store
