// The catalog a data file keeps of its tables, so that any table can be
// described without the library's headers.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/store/sqlite/sqlite_catalog_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"

namespace platform::store::sqlite {

const char *const kCatalogSchema =
    "CREATE TABLE IF NOT EXISTS alertdb_tables("
    " name TEXT PRIMARY KEY NOT NULL, title TEXT NOT NULL, id_key INTEGER NOT NULL,"
    " second_key INTEGER NOT NULL, callback_dll TEXT NOT NULL, callback_entry TEXT NOT NULL,"
    " reserved TEXT NOT NULL, record_size INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS alertdb_fields("
    " table_name TEXT NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL,"
    " key_number INTEGER NOT NULL, attribute INTEGER NOT NULL, size INTEGER NOT NULL,"
    " flags INTEGER NOT NULL, description TEXT NOT NULL, query_type TEXT NOT NULL,"
    " PRIMARY KEY(table_name, position));"
    "CREATE TABLE IF NOT EXISTS alertdb_query_info("
    " table_name TEXT NOT NULL, position INTEGER NOT NULL, key_number INTEGER NOT NULL,"
    " field_ref INTEGER NOT NULL, kind INTEGER NOT NULL, value_class INTEGER NOT NULL,"
    " entry BLOB NOT NULL, PRIMARY KEY(table_name, position));"
    "CREATE TABLE IF NOT EXISTS alertdb_query_types("
    " name TEXT PRIMARY KEY NOT NULL, mask INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS alertdb_query_type_values("
    " type_name TEXT NOT NULL, position INTEGER NOT NULL, value INTEGER NOT NULL,"
    " text TEXT NOT NULL, PRIMARY KEY(type_name, position));";

namespace {

std::uint32_t prepare(sqlite3 *db, Statement &s, const std::string &sql) {
  int rc = s.prepare(db, sql);
  return rc == SQLITE_OK ? QDB_OK : resultOf(rc);
}

}  // namespace

std::uint32_t loadTableDef(sqlite3 *db, const std::string &name, TableDef *def) {
  Statement s;
  std::uint32_t r = prepare(db, s,
                            "SELECT title, id_key, second_key, callback_dll, callback_entry, "
                            "reserved, record_size FROM alertdb_tables WHERE name=?");
  if (r != QDB_OK) return r;
  std::int64_t recordSize = 0;
  {
    Use q(s);
    bindText(*q, 1, name);
    int rc = sqlite3_step(*q);
    if (rc == SQLITE_DONE) return QDB_E_NOTABLE;
    if (rc != SQLITE_ROW) return resultOf(rc);
    def->name = name;
    def->title = columnText(*q, 0);
    def->idKey = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 1));
    def->secondKey = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 2));
    def->callbackDll = columnText(*q, 3);
    def->callbackEntry = columnText(*q, 4);
    def->reserved = splitWords(columnText(*q, 5));
    recordSize = sqlite3_column_int64(*q, 6);
  }
  r = prepare(db, s,
              "SELECT name, key_number, attribute, size, flags, description, query_type "
              "FROM alertdb_fields WHERE table_name=? ORDER BY position");
  if (r != QDB_OK) return r;
  {
    Use q(s);
    bindText(*q, 1, name);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      FieldDef f;
      f.name = columnText(*q, 0);
      f.keyNumber = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 1));
      f.attribute = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 2));
      f.size = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 3));
      f.flags = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 4));
      f.description = columnText(*q, 5);
      f.queryType = columnText(*q, 6);
      if (f.size == 0 || f.size > kMaxFieldSize) return QDB_E_DAMAGED;
      def->fields.push_back(std::move(f));
    }
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  r = prepare(db, s, "SELECT entry FROM alertdb_query_info WHERE table_name=? ORDER BY position");
  if (r != QDB_OK) return r;
  {
    Use q(s);
    bindText(*q, 1, name);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      std::string bytes = columnBytes(*q, 0);
      QueryInfoEntry e{};
      std::memcpy(&e, bytes.data(), std::min(bytes.size(), sizeof e));
      def->queryInfo.push_back(e);
    }
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  if (def->fields.empty() || def->fields.size() > kMaxFields) return QDB_E_DAMAGED;
  def->derive();
  // The catalog disagreeing with itself is damage, not a table to serve.
  if (def->recordSize != recordSize || def->recordSize > kMaxRecordSize) return QDB_E_DAMAGED;
  return QDB_OK;
}

std::uint32_t storeTableDef(sqlite3 *db, const TableDef &def) {
  std::string columns = "seq INTEGER PRIMARY KEY AUTOINCREMENT, record BLOB NOT NULL";
  for (const KeyDef &k : def.keys) {
    columns += ", " + keyColumn(k.keyNumber) + (k.kind == KeyKind::Number ? " INTEGER" : " BLOB");
  }
  std::string ddl = "CREATE TABLE " + quoted(def.name) + "(" + columns + ");";
  for (const KeyDef &k : def.keys) {
    ddl += std::string("CREATE ") + (k.unique ? "UNIQUE " : "") + "INDEX " +
           quoted(keyIndexName(def.name, k.keyNumber)) + " ON " + quoted(def.name) + "(" +
           keyColumn(k.keyNumber) + ");";
  }
  int rc = execute(db, ddl.c_str());
  if (rc != SQLITE_OK) return resultOf(rc) == QDB_E_DUPLICATE ? QDB_E_IO : resultOf(rc);

  Statement s;
  std::uint32_t r = prepare(db, s, "INSERT INTO alertdb_tables VALUES(?,?,?,?,?,?,?,?)");
  if (r != QDB_OK) return r;
  {
    Use q(s);
    bindText(*q, 1, def.name);
    bindText(*q, 2, def.title);
    sqlite3_bind_int64(*q, 3, def.idKey);
    sqlite3_bind_int64(*q, 4, def.secondKey);
    bindText(*q, 5, def.callbackDll);
    bindText(*q, 6, def.callbackEntry);
    std::string reserved = joinWords(def.reserved);
    bindText(*q, 7, reserved);
    sqlite3_bind_int64(*q, 8, def.recordSize);
    if ((rc = sqlite3_step(*q)) != SQLITE_DONE) return resultOf(rc);
  }
  r = prepare(db, s, "INSERT INTO alertdb_fields VALUES(?,?,?,?,?,?,?,?,?)");
  if (r != QDB_OK) return r;
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    const FieldDef &f = def.fields[i];
    Use q(s);
    bindText(*q, 1, def.name);
    sqlite3_bind_int64(*q, 2, static_cast<sqlite3_int64>(i));
    bindText(*q, 3, f.name);
    sqlite3_bind_int64(*q, 4, f.keyNumber);
    sqlite3_bind_int64(*q, 5, f.attribute);
    sqlite3_bind_int64(*q, 6, f.size);
    sqlite3_bind_int64(*q, 7, f.flags);
    bindText(*q, 8, f.description);
    bindText(*q, 9, f.queryType);
    if ((rc = sqlite3_step(*q)) != SQLITE_DONE) return resultOf(rc);
  }
  r = prepare(db, s, "INSERT INTO alertdb_query_info VALUES(?,?,?,?,?,?,?)");
  if (r != QDB_OK) return r;
  for (std::size_t i = 0; i < def.queryInfo.size(); ++i) {
    const QueryInfoEntry &e = def.queryInfo[i];
    Use q(s);
    bindText(*q, 1, def.name);
    sqlite3_bind_int64(*q, 2, static_cast<sqlite3_int64>(i));
    sqlite3_bind_int64(*q, 3, e.keyNumber);
    sqlite3_bind_int64(*q, 4, e.fieldRef);
    sqlite3_bind_int64(*q, 5, e.kind);
    sqlite3_bind_int64(*q, 6, e.valueClass);
    sqlite3_bind_blob(*q, 7, &e, sizeof e, SQLITE_TRANSIENT);
    if ((rc = sqlite3_step(*q)) != SQLITE_DONE) return resultOf(rc);
  }
  return QDB_OK;
}

std::uint32_t storeQueryType(sqlite3 *db, const QueryTypeDef &type) {
  std::uint32_t r = QDB_OK;
  Statement s;
  auto run = [&](const char *sql, auto bind) {
    if (r != QDB_OK) return;
    if ((r = prepare(db, s, sql)) != QDB_OK) return;
    Use q(s);
    bind(*q);
    int rc = sqlite3_step(*q);
    if (rc != SQLITE_DONE) r = resultOf(rc);
  };
  run("INSERT OR REPLACE INTO alertdb_query_types VALUES(?,?)", [&](sqlite3_stmt *q) {
    bindText(q, 1, type.name);
    sqlite3_bind_int64(q, 2, type.mask);
  });
  run("DELETE FROM alertdb_query_type_values WHERE type_name=?",
      [&](sqlite3_stmt *q) { bindText(q, 1, type.name); });
  for (std::size_t i = 0; i < type.values.size(); ++i) {
    run("INSERT INTO alertdb_query_type_values VALUES(?,?,?,?)", [&](sqlite3_stmt *q) {
      bindText(q, 1, type.name);
      sqlite3_bind_int64(q, 2, static_cast<sqlite3_int64>(i));
      sqlite3_bind_int64(q, 3, type.values[i]);
      static const std::string empty;
      bindText(q, 4, i < type.texts.size() ? type.texts[i] : empty);
    });
  }
  return r;
}

}  // namespace platform::store::sqlite
