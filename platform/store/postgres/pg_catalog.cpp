#include <xxhash.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/store/postgres/pg_catalog_internal.h"

namespace platform::store::postgres {

// The same tables and columns as in a data file; `alertdb_store` stands for
// the file header's application ID and format version.
const char *const kCatalogSchema =
    "CREATE TABLE alertdb_store(application_id bigint NOT NULL, format integer NOT NULL);"
    "INSERT INTO alertdb_store VALUES(1095517250, 2);"
    "CREATE TABLE alertdb_tables("
    " name text PRIMARY KEY NOT NULL, title text NOT NULL, id_key bigint NOT NULL,"
    " second_key bigint NOT NULL, callback_dll text NOT NULL, callback_entry text NOT NULL,"
    " reserved text NOT NULL, record_size bigint NOT NULL);"
    "CREATE TABLE alertdb_fields("
    " table_name text NOT NULL, position bigint NOT NULL, name text NOT NULL,"
    " key_number bigint NOT NULL, attribute bigint NOT NULL, size bigint NOT NULL,"
    " flags bigint NOT NULL, description text NOT NULL, query_type text NOT NULL,"
    " PRIMARY KEY(table_name, position));"
    "CREATE TABLE alertdb_query_info("
    " table_name text NOT NULL, position bigint NOT NULL, key_number bigint NOT NULL,"
    " field_ref bigint NOT NULL, kind bigint NOT NULL, value_class bigint NOT NULL,"
    " entry bytea NOT NULL, PRIMARY KEY(table_name, position));"
    "CREATE TABLE alertdb_query_types("
    " name text PRIMARY KEY NOT NULL, mask bigint NOT NULL);"
    "CREATE TABLE alertdb_query_type_values("
    " type_name text NOT NULL, position bigint NOT NULL, value bigint NOT NULL,"
    " text text NOT NULL, PRIMARY KEY(type_name, position));";

namespace {

std::uint32_t u32(const Result &r, int row, int column) {
  return static_cast<std::uint32_t>(r.int64(row, column));
}

}  // namespace

std::string keyIndexName(const std::string &table, std::uint32_t keyNumber) {
  std::string suffix = ":" + keyColumn(keyNumber);
  if (table.size() + suffix.size() <= kMaxIdentifier) return table + suffix;
  char hash[17];
  std::snprintf(hash, sizeof hash, "%016llx",
                static_cast<unsigned long long>(XXH3_64bits(table.data(), table.size())));
  std::string head = table.substr(0, kMaxIdentifier - suffix.size() - 17);
  return head + "~" + hash + suffix;
}

std::uint32_t resultOf(const Result &r) {
  if (r.ok()) return QDB_OK;
  std::string state = r.state();
  if (state == kUniqueViolation) return QDB_E_DUPLICATE;
  if (state == kSerializationFailure || state == kDeadlockDetected || state == kLockNotAvailable ||
      state == kQueryCanceled) {
    return QDB_E_BUSY;
  }
  if (state.rfind("53", 0) == 0) return QDB_E_NOMEMORY;  // insufficient resources
  return QDB_E_IO;
}

std::uint32_t loadTableDef(Connection &conn, const std::string &name, TableDef *def) {
  Params p;
  p.addText(name);
  Result t = conn.execute(
      "SELECT title, id_key, second_key, callback_dll, callback_entry, reserved, record_size "
      "FROM alertdb_tables WHERE name=$1::text",
      p);
  if (!t.ok()) return resultOf(t);
  if (t.rows() == 0) return QDB_E_NOTABLE;
  def->name = name;
  def->title = t.text(0, 0);
  def->idKey = u32(t, 0, 1);
  def->secondKey = u32(t, 0, 2);
  def->callbackDll = t.text(0, 3);
  def->callbackEntry = t.text(0, 4);
  def->reserved = splitWords(t.text(0, 5));
  std::int64_t recordSize = t.int64(0, 6);

  Result f = conn.execute(
      "SELECT name, key_number, attribute, size, flags, description, query_type "
      "FROM alertdb_fields WHERE table_name=$1::text ORDER BY position",
      p);
  if (!f.ok()) return resultOf(f);
  for (int i = 0; i < f.rows(); ++i) {
    FieldDef field;
    field.name = f.text(i, 0);
    field.keyNumber = u32(f, i, 1);
    field.attribute = u32(f, i, 2);
    field.size = u32(f, i, 3);
    field.flags = u32(f, i, 4);
    field.description = f.text(i, 5);
    field.queryType = f.text(i, 6);
    if (field.size == 0 || field.size > kMaxFieldSize) return QDB_E_DAMAGED;
    def->fields.push_back(std::move(field));
  }
  Result q = conn.execute(
      "SELECT entry FROM alertdb_query_info WHERE table_name=$1::text ORDER BY position", p);
  if (!q.ok()) return resultOf(q);
  for (int i = 0; i < q.rows(); ++i) {
    QueryInfoEntry e{};
    std::memcpy(&e, q.value(i, 0), std::min<std::size_t>(q.length(i, 0), sizeof e));
    def->queryInfo.push_back(e);
  }
  if (def->fields.empty() || def->fields.size() > kMaxFields) return QDB_E_DAMAGED;
  def->derive();
  if (def->recordSize != recordSize || def->recordSize > kMaxRecordSize) return QDB_E_DAMAGED;
  return QDB_OK;
}

std::uint32_t storeTableDef(Connection &conn, const TableDef &def) {
  if (def.name.size() > kMaxIdentifier) return QDB_E_BADARG;
  std::string columns = "seq bigserial PRIMARY KEY, record bytea NOT NULL";
  for (const KeyDef &k : def.keys) {
    columns += ", " + keyColumn(k.keyNumber) + (k.kind == KeyKind::Number ? " bigint" : " bytea");
  }
  std::string table = quoted(def.name);
  std::string ddl = "CREATE TABLE " + table + "(" + columns + ");";
  // Equal keys keep insertion order: the index carries it, as SQLite's
  // indexes carry the row number.
  for (const KeyDef &k : def.keys) {
    ddl += std::string("CREATE ") + (k.unique ? "UNIQUE " : "") + "INDEX " +
           quoted(keyIndexName(def.name, k.keyNumber)) + " ON " + table + "(" +
           keyColumn(k.keyNumber) + (k.unique ? "" : ", seq") + ");";
  }
  Result r = conn.execute(ddl);
  if (!r.ok()) return resultOf(r) == QDB_E_DUPLICATE ? QDB_E_IO : resultOf(r);

  Params p;
  p.addText(def.name);
  p.addText(def.title);
  p.addInt64(def.idKey);
  p.addInt64(def.secondKey);
  p.addText(def.callbackDll);
  p.addText(def.callbackEntry);
  std::string reserved = joinWords(def.reserved);
  p.addText(reserved);
  p.addInt64(def.recordSize);
  r = conn.execute(
      "INSERT INTO alertdb_tables VALUES($1::text, $2::text, $3::int8, $4::int8, $5::text,"
      " $6::text, $7::text, $8::int8)",
      p);
  if (!r.ok()) return resultOf(r);
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    const FieldDef &f = def.fields[i];
    p.clear();
    p.addText(def.name);
    p.addInt64(static_cast<std::int64_t>(i));
    p.addText(f.name);
    p.addInt64(f.keyNumber);
    p.addInt64(f.attribute);
    p.addInt64(f.size);
    p.addInt64(f.flags);
    p.addText(f.description);
    p.addText(f.queryType);
    r = conn.execute(
        "INSERT INTO alertdb_fields VALUES($1::text, $2::int8, $3::text, $4::int8, $5::int8,"
        " $6::int8, $7::int8, $8::text, $9::text)",
        p);
    if (!r.ok()) return resultOf(r);
  }
  for (std::size_t i = 0; i < def.queryInfo.size(); ++i) {
    const QueryInfoEntry &e = def.queryInfo[i];
    p.clear();
    p.addText(def.name);
    p.addInt64(static_cast<std::int64_t>(i));
    p.addInt64(e.keyNumber);
    p.addInt64(e.fieldRef);
    p.addInt64(e.kind);
    p.addInt64(e.valueClass);
    p.addBytes(&e, sizeof e);
    r = conn.execute(
        "INSERT INTO alertdb_query_info VALUES($1::text, $2::int8, $3::int8, $4::int8, $5::int8,"
        " $6::int8, $7::bytea)",
        p);
    if (!r.ok()) return resultOf(r);
  }
  return QDB_OK;
}

std::uint32_t storeQueryType(Connection &conn, const QueryTypeDef &type) {
  Params p;
  p.addText(type.name);
  p.addInt64(type.mask);
  Result r = conn.execute(
      "INSERT INTO alertdb_query_types VALUES($1::text, $2::int8)"
      " ON CONFLICT(name) DO UPDATE SET mask=excluded.mask",
      p);
  if (!r.ok()) return resultOf(r);
  p.clear();
  p.addText(type.name);
  r = conn.execute("DELETE FROM alertdb_query_type_values WHERE type_name=$1::text", p);
  if (!r.ok()) return resultOf(r);
  static const std::string empty;
  for (std::size_t i = 0; i < type.values.size(); ++i) {
    p.clear();
    p.addText(type.name);
    p.addInt64(static_cast<std::int64_t>(i));
    p.addInt64(type.values[i]);
    p.addText(i < type.texts.size() ? type.texts[i] : empty);
    r = conn.execute(
        "INSERT INTO alertdb_query_type_values VALUES($1::text, $2::int8, $3::int8, $4::text)", p);
    if (!r.ok()) return resultOf(r);
  }
  return QDB_OK;
}

}  // namespace platform::store::postgres
