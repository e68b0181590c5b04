// What the record store knows about a table, whatever keeps its files: the
// fields, their keys and how a key value is ordered.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/store/record_store.h"

namespace platform::store {

// Limits of a table definition.
constexpr std::uint32_t kMaxFields = 4096;
constexpr std::uint32_t kMaxFieldSize = 0x100000;
constexpr std::uint32_t kMaxRecordSize = 0x1000000;

// How a key field's values are ordered.
enum class KeyKind {
  Number,  // unsigned little-endian number of 1, 2, 4 or 8 bytes
  Text,    // bytes up to the terminator, in byte order
  Bytes,   // all bytes, in byte order (object IDs, time stamps, blocks)
};

struct FieldDef {
  std::string name;
  std::uint32_t keyNumber = 0;
  std::uint32_t attribute = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
  std::string description;
  std::string queryType;
  std::uint32_t offset = 0;  // in the record image
};

struct KeyDef {
  std::uint32_t keyNumber = 0;
  std::size_t field = 0;  // index into TableDef::fields
  std::uint32_t size = 0;  // ... and that field's size
  KeyKind kind = KeyKind::Bytes;
  bool unique = false;
};

struct TableDef {
  std::string name;
  std::string title;
  std::uint32_t idKey = 0;
  std::uint32_t secondKey = 0xFFFFFFFF;
  std::string callbackDll;
  std::string callbackEntry;
  std::vector<std::uint32_t> reserved;  // descriptor words passed through
  std::vector<FieldDef> fields;
  std::vector<QueryInfoEntry> queryInfo;
  std::vector<KeyDef> keys;  // derived from fields and queryInfo
  std::uint32_t recordSize = 0;
  std::uint32_t maxKeySize = 0;  // bytes of the widest key field

  // Fills offsets, recordSize, keys and maxKeySize from fields and queryInfo.
  void derive();
  const KeyDef *findKey(std::uint32_t keyNumber) const;
  // Same fields, keys and sizes (names and texts aside).
  bool sameLayout(const TableDef &other) const;
};

// The kind of a key field, told by its template's flags and size.
KeyKind keyKindOf(std::uint32_t flags, std::uint32_t size);

// A key value as the store orders it. The bytes are borrowed: from a record
// image, a caller's search value or a cursor's own storage.
struct KeyValue {
  bool isNumber = false;
  std::uint64_t number = 0;
  const unsigned char *bytes = nullptr;
  std::size_t size = 0;
  // For a Bytes key searched by fewer bytes than the field holds: the records
  // whose key starts with `bytes`.
  bool isPrefix = false;
};

// The key value of a record image.
KeyValue keyOfRecord(const TableDef &table, const KeyDef &key, const unsigned char *image);
// The key value of one field's bytes.
KeyValue keyOfField(const FieldDef &field, KeyKind kind, const unsigned char *bytes);
// The key value a caller searches for: `length` bytes at `value`.
KeyValue keyOfSearch(const TableDef &table, const KeyDef &key, const void *value,
                     std::uint32_t length);
// Whether a record's key satisfies a search: equal, or starting with a prefix.
bool keyMatches(const KeyValue &record, const KeyValue &search);

// The next byte string after every string that starts with `prefix` (written
// to `out`, which has room for it); 0 when there is none.
std::size_t prefixEnd(const KeyValue &prefix, unsigned char *out);

// A catalog's list of numbers as text ("1,2,3") and back.
std::string joinWords(const std::vector<std::uint32_t> &words);
std::vector<std::uint32_t> splitWords(const std::string &text);

// Table names the store keeps for itself.
bool isReservedTableName(const std::string &name);

}  // namespace platform::store
