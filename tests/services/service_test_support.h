// Helpers shared by the service and per-user table tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "framework/alert_db_table.h"
#include "framework/link_table_probe.h"
#include "framework/open_or_create.h"
#include "platform/store/record_store.h"

namespace alertdb_test {

// Every byte of the record random, bytes after text terminators included.
template <class REC>
void fillRandom(REC &record, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  auto *bytes = reinterpret_cast<unsigned char *>(&record);
  for (std::size_t i = 0; i < sizeof record; ++i) bytes[i] = static_cast<unsigned char>(random());
}

template <class REC>
bool sameBytes(const REC &a, const REC &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Whether a `Table` opened afresh, so that every byte comes from the file,
// gives back exactly `expected` for `id`.
template <class Table, class REC>
bool readsBackFresh(_GUID id, const REC &expected) {
  Table table;
  auto read = std::make_unique<REC>();
  return table.DBOpen() == 0 && table.DBAlertRecRetrieve(&id, read.get()) == 0 &&
         sameBytes(*read, expected);
}

// The tables a data file holds, read through a handle of its own.
inline std::vector<std::string> tablesOf(const std::string &path) {
  std::vector<std::string> names;
  KEPDB *handle = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!handle) return names;
  platform::QDBTableNames(handle, &names);
  platform::QDBDone(handle);
  return names;
}

inline bool holdsTable(const std::string &path, const std::string &table) {
  for (const std::string &name : tablesOf(path)) {
    if (name == table) return true;
  }
  return false;
}

// What the file's catalog says about a table.
inline platform::StoreTableInfo tableInfo(const std::string &path, const char *table) {
  platform::StoreTableInfo info;
  KEPDB *handle = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!handle) return info;
  platform::QDBTableInfo(handle, table, &info);
  platform::QDBDone(handle);
  return info;
}

// A table class's record, and the key of its object IDs.
template <class REC>
REC recordOf(const CAlertDBTable<REC> &);
template <class Table>
using RecordOf = decltype(recordOf(std::declval<Table &>()));
template <class Table>
constexpr std::uint32_t idKeyOf() {
  if constexpr (requires { Table::kIdKey; }) {
    return Table::kIdKey;
  } else {
    return Table::kDefinition.table.idKey;
  }
}

// Finds the first record whose field at `key` holds `value`: its bytes, a
// text literal's terminator included. Padded, as text keys may be read whole.
template <class Table, class REC, class V>
std::uint32_t findBy(Table &table, std::uint32_t key, const V &value, REC *record) {
  std::vector<unsigned char> bytes(sizeof value < 256 ? 256 : sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return table.DBAlertRecFindFirst(key, sizeof value, bytes.data(), record);
}

// The number of rows an enumeration in ID order delivers.
template <class Table>
int rowCount(Table &table) {
  auto record = std::make_unique<RecordOf<Table>>();
  int rows = 0;
  for (std::uint32_t r = table.DBAlertRecFindFirst(idKeyOf<Table>(), 0, nullptr, record.get());
       r == 0; r = table.DBAlertRecFindNext(record.get())) {
    ++rows;
  }
  return rows;
}

}  // namespace alertdb_test
