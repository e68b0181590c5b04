#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/store/store_schema_internal.h"

namespace platform::store {

namespace {

constexpr std::uint32_t kFlagZeroTerminated = 0x1;
constexpr std::uint32_t kFlagIdentifier = 0x10;

std::size_t textLength(const char *bytes, std::size_t max) {
  const void *end = std::memchr(bytes, 0, max);
  return end ? static_cast<std::size_t>(static_cast<const char *>(end) - bytes) : max;
}

std::uint64_t littleEndian(const unsigned char *bytes, std::size_t length) {
  std::uint64_t value = 0;
  for (std::size_t i = length; i-- > 0;) value = (value << 8) | bytes[i];
  return value;
}

bool iequalsPrefix(const std::string &text, const char *prefix) {
  std::size_t n = std::strlen(prefix);
  if (text.size() < n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

}  // namespace

KeyKind keyKindOf(std::uint32_t flags, std::uint32_t size) {
  // Object IDs carry the identifier flag beside the terminated-text bit.
  if (size == 16 && (flags & kFlagIdentifier)) return KeyKind::Bytes;
  if ((flags & 0xF) == kFlagZeroTerminated) return KeyKind::Text;
  if (size == 1 || size == 2 || size == 4) return KeyKind::Number;
  // Time stamps and blocks.
  return KeyKind::Bytes;
}

void TableDef::derive() {
  recordSize = 0;
  for (auto &f : fields) {
    f.offset = recordSize;
    recordSize += f.size;
  }
  keys.clear();
  maxKeySize = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const FieldDef &f = fields[i];
    if (f.keyNumber == 0) continue;
    KeyDef k;
    k.keyNumber = f.keyNumber;
    k.field = i;
    k.size = f.size;
    k.kind = keyKindOf(f.flags, f.size);
    for (const auto &q : queryInfo) {
      if (q.keyNumber == f.keyNumber && q.kind == 1) k.unique = true;
    }
    keys.push_back(k);
    maxKeySize = std::max(maxKeySize, f.size);
  }
}

const KeyDef *TableDef::findKey(std::uint32_t keyNumber) const {
  if (keyNumber == 0) return nullptr;
  for (const auto &k : keys) {
    if (k.keyNumber == keyNumber) return &k;
  }
  return nullptr;
}

bool TableDef::sameLayout(const TableDef &other) const {
  if (fields.size() != other.fields.size() || idKey != other.idKey) return false;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const FieldDef &a = fields[i];
    const FieldDef &b = other.fields[i];
    if (a.keyNumber != b.keyNumber || a.size != b.size || a.flags != b.flags) return false;
  }
  if (keys.size() != other.keys.size()) return false;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i].unique != other.keys[i].unique || keys[i].kind != other.keys[i].kind) return false;
  }
  return true;
}

KeyValue keyOfField(const FieldDef &f, KeyKind kind, const unsigned char *bytes) {
  KeyValue v;
  switch (kind) {
    case KeyKind::Number:
      v.isNumber = true;
      v.number = littleEndian(bytes, f.size);
      break;
    case KeyKind::Text:
      v.bytes = bytes;
      v.size = textLength(reinterpret_cast<const char *>(bytes), f.size);
      break;
    case KeyKind::Bytes:
      v.bytes = bytes;
      v.size = f.size;
      break;
  }
  return v;
}

KeyValue keyOfRecord(const TableDef &table, const KeyDef &key, const unsigned char *image) {
  const FieldDef &f = table.fields[key.field];
  return keyOfField(f, key.kind, image + f.offset);
}

KeyValue keyOfSearch(const TableDef &table, const KeyDef &key, const void *value,
                     std::uint32_t length) {
  const FieldDef &f = table.fields[key.field];
  const auto *bytes = static_cast<const unsigned char *>(value);
  std::size_t n = std::min<std::size_t>(length, f.size);
  KeyValue v;
  switch (key.kind) {
    case KeyKind::Number:
      v.isNumber = true;
      v.number = littleEndian(bytes, n);
      break;
    case KeyKind::Text:
      v.bytes = bytes;
      v.size = textLength(reinterpret_cast<const char *>(bytes), n);
      break;
    case KeyKind::Bytes:
      v.bytes = bytes;
      v.size = n;
      v.isPrefix = n < f.size;
      break;
  }
  return v;
}

bool keyMatches(const KeyValue &record, const KeyValue &search) {
  if (record.isNumber || search.isNumber) {
    return record.isNumber == search.isNumber && record.number == search.number;
  }
  if (search.isPrefix ? record.size < search.size : record.size != search.size) return false;
  return search.size == 0 || std::memcmp(record.bytes, search.bytes, search.size) == 0;
}

std::size_t prefixEnd(const KeyValue &prefix, unsigned char *out) {
  std::size_t n = prefix.size;
  while (n > 0 && prefix.bytes[n - 1] == 0xFF) --n;
  if (n == 0) return 0;
  std::memcpy(out, prefix.bytes, n);
  out[n - 1] = static_cast<unsigned char>(out[n - 1] + 1);
  return n;
}

std::string joinWords(const std::vector<std::uint32_t> &words) {
  std::string out;
  for (std::uint32_t w : words) {
    if (!out.empty()) out += ',';
    out += std::to_string(w);
  }
  return out;
}

std::vector<std::uint32_t> splitWords(const std::string &text) {
  std::vector<std::uint32_t> out;
  const char *p = text.c_str();
  while (*p) {
    char *end = nullptr;
    out.push_back(static_cast<std::uint32_t>(std::strtoul(p, &end, 10)));
    if (end == p) break;
    p = (*end == ',') ? end + 1 : end;
  }
  return out;
}

bool isReservedTableName(const std::string &name) {
  return iequalsPrefix(name, "alertdb_") || iequalsPrefix(name, "sqlite_");
}

}  // namespace platform::store
