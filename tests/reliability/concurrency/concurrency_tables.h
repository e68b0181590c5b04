// The tables the concurrency harness works on, one object of each per
// thread, with the record store handle exposed for the file and read locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "alertdb.h"
#include "reliability/harness_catalogue.h"

namespace concurrency {

using namespace harness;

// Every table kind the harness writes, and the data files they are in.
inline constexpr Table kWorked[] = {kCatalogue, kKindSmtp, kServer,    kInstalled, kUser, kInstance,
                                    kAddrSmtp,  kResponse, kEventClass, kLink,     kLog};
inline constexpr int kWorkedCount = static_cast<int>(std::size(kWorked));
inline constexpr DataFile kWrittenFiles[] = {kServiceFile,  kConfigFile, kUserFile,
                                             kResponseFile, kEventFile,  kLogFile};
inline constexpr int kFileCount = static_cast<int>(std::size(kWrittenFiles));

inline const char *tableName(Table table) { return tableInfo(table).name; }
inline const char *fileName(DataFile file) { return kDataFileNames[file]; }

// A logged write of a table: "<table>.<verb>" ("EVENT_CLASS.add", ".upd", ".del").
inline std::string opName(Table table, const char *verb) {
  return std::string(tableName(table)) + "." + verb;
}
// The table of a logged write `op` that ends in `verb` and is made on one of `tables`.
inline bool opOn(const std::string &op, const char *verb, std::initializer_list<Table> tables,
                 Table *table) {
  for (Table t : tables) {
    if (op == opName(t, verb)) {
      *table = t;
      return true;
    }
  }
  return false;
}

// The relations the harness enumerates: the children of a parent record on
// the child table's key that holds the parent's ID, the child's reference
// `ref` (as the catalogue numbers them).
struct Relation {
  Table parent, child;
  std::uint32_t key;
  int ref;
  std::size_t offset() const { return static_cast<std::size_t>(tableInfo(child).refs[ref]); }
};
inline constexpr Relation kRelations[] = {
    {kUser, kInstance, 74, 0},      {kCatalogue, kInstance, 73, 1}, {kUser, kResponse, 12, 0},
    {kCatalogue, kResponse, 13, 1}, {kEventClass, kLink, 43, 0},    {kResponse, kLink, 44, 1},
    {kServer, kInstalled, 68, 1},   {kCatalogue, kInstalled, 66, 0}};

struct TableSet : Tables {
  // Opens (or creates) every table the harness works on; the first failure's status, else 0.
  std::uint32_t openAll() {
    return open(kWorked, [](auto &t) { return OpenOrCreate(t); });
  }
};

// Makes each data file with one of its tables; the others are made by the
// first open-or-create that needs them. 0 or the first failure.
inline std::uint32_t createDataFiles() {
  Tables tables;
  std::uint32_t first = 0;
  for (DataFile f : kWrittenFiles)
    tables.with(kLockedThrough[f], [&](auto &t) { first = first ? first : t.DBCreate(); });
  return first;
}

}  // namespace concurrency
