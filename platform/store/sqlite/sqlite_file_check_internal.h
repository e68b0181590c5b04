// What the SQLite backend checks before it lets a file be used, and the few
// repairs the recovery open may make after a full check.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/store/store_schema_internal.h"

namespace platform::store::sqlite {

// What a file's first page and size say about it, read without SQLite so
// that a file that is not a store is never touched.
enum class FileState { Missing, NotStore, Store, Damaged };
FileState inspectFile(const std::string &path);
// The same, with the rule a file that is not a sound store breaks in `reason`.
FileState inspectFile(const std::string &path, std::string *reason);

// What the recovery open may rebuild without losing or inventing a record.
struct Repairs {
  bool queryTypeTables = false;              // the registered query types' tables
  std::vector<std::string> indexStatements;  // missing key indexes
  bool legacyRecords = false;                // records without checksums
  bool empty() const { return !queryTypeTables && indexStatements.empty() && !legacyRecords; }
};

// The cheap check of every open: the file's format, its catalog, and each
// catalogued table with its key columns and indexes. QDB_OK with what would
// need repairing in `repairs`; QDB_E_DAMAGED when the file is beyond them.
// The table definitions read on the way go to `defs`.
std::uint32_t checkStructure(sqlite3 *db, int format, Repairs *repairs,
                             std::vector<TableDef> *defs);

// What is wrong with the SQL table of a catalogued table (its columns and
// key indexes), one text each; a missing index goes to `repairs` instead.
// An error result when the schema could not be read.
std::uint32_t describeTable(sqlite3 *db, const TableDef &def, Repairs *repairs,
                            std::vector<std::string> *problems);

// The full check of the recovery open: SQLite's integrity check, every
// record's stored form with its checksum, and key columns agreeing with the
// record image.
std::uint32_t checkContents(sqlite3 *db, int format);

// Makes the repairs in one transaction and stamps the current format.
std::uint32_t applyRepairs(sqlite3 *db, const Repairs &repairs);

}  // namespace platform::store::sqlite
