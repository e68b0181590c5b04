// Reading and writing the catalog that a data file keeps of its tables.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "platform/store/store_backend_internal.h"

namespace platform::store::sqlite {

// The catalog tables, created with every store.
extern const char *const kCatalogSchema;

// A table's definition as the catalog holds it; QDB_E_NOTABLE when absent,
// QDB_E_DAMAGED when the catalog disagrees with itself.
std::uint32_t loadTableDef(sqlite3 *db, const std::string &name, TableDef *def);
// Creates the table, its key columns and indexes, and its catalog rows.
std::uint32_t storeTableDef(sqlite3 *db, const TableDef &def);
std::uint32_t storeQueryType(sqlite3 *db, const QueryTypeDef &type);

}  // namespace platform::store::sqlite
