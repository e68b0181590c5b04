// The catalog a data file's schema keeps of its tables, as a data file keeps
// it, so that psql can describe any table without the library's headers.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store/postgres/pg_connection_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform::store::postgres {

// Creates the catalog tables and the store's mark in the current schema.
extern const char *const kCatalogSchema;

// A table's definition as the catalog holds it; QDB_E_NOTABLE when absent,
// QDB_E_DAMAGED when the catalog disagrees with itself.
std::uint32_t loadTableDef(Connection &conn, const std::string &name, TableDef *def);
// Creates the table, its key columns and indexes, and its catalog rows.
std::uint32_t storeTableDef(Connection &conn, const TableDef &def);
std::uint32_t storeQueryType(Connection &conn, const QueryTypeDef &type);

// The longest name the server keeps whole; a longer one would be cut.
constexpr std::size_t kMaxIdentifier = 63;

// The name of a key's column and of its index ("<table>:k<N>", with the
// table's name shortened and hashed when the whole would be cut).
inline std::string keyColumn(std::uint32_t keyNumber) { return "k" + std::to_string(keyNumber); }
std::string keyIndexName(const std::string &table, std::uint32_t keyNumber);

// Maps a failed statement to an engine result.
std::uint32_t resultOf(const Result &r);

}  // namespace platform::store::postgres
