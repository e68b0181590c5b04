#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <vector>

#include "platform/store/record_codec_internal.h"
#include "platform/store/sqlite/sqlite_catalog_internal.h"
#include "platform/store/sqlite/sqlite_file_check_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"

namespace platform::store::sqlite {

namespace {

std::uint32_t bigEndian(const unsigned char *p, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

bool hasCatalogTable(sqlite3 *db, const char *name, std::uint32_t *status) {
  Statement s;
  if (s.prepare(db, "SELECT count(*) FROM sqlite_master WHERE type='table' AND name=?") !=
      SQLITE_OK) {
    *status = QDB_E_DAMAGED;
    return false;
  }
  Use q(s);
  sqlite3_bind_text(*q, 1, name, -1, SQLITE_STATIC);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_ROW) {
    *status = resultOf(rc);
    return false;
  }
  return sqlite3_column_int(*q, 0) == 1;
}

std::uint32_t tableNamesOf(sqlite3 *db, std::vector<std::string> *names) {
  Statement s;
  if (s.prepare(db, "SELECT name FROM alertdb_tables ORDER BY name") != SQLITE_OK) {
    return QDB_E_DAMAGED;
  }
  Use q(s);
  int rc;
  while ((rc = sqlite3_step(*q)) == SQLITE_ROW) names->push_back(columnText(*q, 0));
  return rc == SQLITE_DONE ? QDB_OK : resultOf(rc);
}

// A table the catalog lost cannot be read or rebuilt without its layout:
// opening the file without it would hide its records as if they never were.
std::uint32_t checkEveryTableCatalogued(sqlite3 *db) {
  Statement s;
  if (s.prepare(
          db,
          "SELECT count(*) FROM sqlite_master WHERE type='table'"
          " AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' AND name NOT LIKE 'alertdb\\_%' ESCAPE '\\'"
          " AND name NOT IN (SELECT name FROM alertdb_tables)") != SQLITE_OK) {
    return QDB_E_DAMAGED;
  }
  Use q(s);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_ROW) return resultOf(rc);
  return sqlite3_column_int(*q, 0) == 0 ? QDB_OK : QDB_E_DAMAGED;
}

// The SQL table of a catalogued table has exactly its columns, and each key
// its index; a missing index is noted for the recovery open.
std::uint32_t checkTable(sqlite3 *db, const TableDef &def, Repairs *repairs) {
  std::vector<std::string> problems;
  std::uint32_t status = describeTable(db, def, repairs, &problems);
  if (status != QDB_OK) return status;
  return problems.empty() ? QDB_OK : QDB_E_DAMAGED;
}

// Every record of a table decodes, passes its checksum, and its key columns
// hold what its image says.
std::uint32_t checkRecords(sqlite3 *db, const TableDef &def, int format) {
  std::string sql = "SELECT record";
  for (const KeyDef &k : def.keys) sql += ", " + keyColumn(k.keyNumber);
  sql += " FROM " + quoted(def.name);
  Statement s;
  if (s.prepare(db, sql) != SQLITE_OK) return QDB_E_DAMAGED;
  std::vector<unsigned char> image(def.recordSize);
  Use q(s);
  int rc;
  while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
    const void *stored = sqlite3_column_blob(*q, 0);
    auto size = static_cast<std::size_t>(sqlite3_column_bytes(*q, 0));
    if (sqlite3_column_type(*q, 0) != SQLITE_BLOB) return QDB_E_DAMAGED;
    if (!decodeRecord(stored, size, def.recordSize, image.data(), format == kLegacyFormat)) {
      return QDB_E_DAMAGED;
    }
    for (std::size_t i = 0; i < def.keys.size(); ++i) {
      if (!columnHoldsKey(*q, static_cast<int>(i) + 1, keyOfRecord(def, def.keys[i], image.data())))
        return QDB_E_DAMAGED;
    }
  }
  return rc == SQLITE_DONE ? QDB_OK : resultOf(rc);
}

std::uint32_t rewriteLegacyRecords(sqlite3 *db, const TableDef &def) {
  std::vector<std::int64_t> legacy;
  {
    Statement s;
    if (s.prepare(db, "SELECT seq, record FROM " + quoted(def.name)) != SQLITE_OK) return QDB_E_IO;
    Use q(s);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      if (inspectRecord(sqlite3_column_blob(*q, 1), static_cast<std::size_t>(sqlite3_column_bytes(
                                                        *q, 1))) == StoredForm::Legacy) {
        legacy.push_back(sqlite3_column_int64(*q, 0));
      }
    }
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  Statement read, write;
  if (read.prepare(db, "SELECT record FROM " + quoted(def.name) + " WHERE seq=?") != SQLITE_OK ||
      write.prepare(db, "UPDATE " + quoted(def.name) + " SET record=? WHERE seq=?") != SQLITE_OK) {
    return QDB_E_IO;
  }
  std::vector<unsigned char> image(def.recordSize), stored(storedSizeBound(def.recordSize));
  for (std::int64_t seq : legacy) {
    {
      Use q(read);
      sqlite3_bind_int64(*q, 1, seq);
      if (sqlite3_step(*q) != SQLITE_ROW ||
          !decodeRecord(sqlite3_column_blob(*q, 0),
                        static_cast<std::size_t>(sqlite3_column_bytes(*q, 0)), def.recordSize,
                        image.data(), true)) {
        return QDB_E_DAMAGED;
      }
    }
    std::size_t size = encodeRecord(image.data(), image.size(), stored.data());
    Use q(write);
    sqlite3_bind_blob(*q, 1, stored.data(), static_cast<int>(size), SQLITE_STATIC);
    sqlite3_bind_int64(*q, 2, seq);
    int rc = sqlite3_step(*q);
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  return QDB_OK;
}

}  // namespace

FileState inspectFile(const std::string &path) {
  std::string reason;
  return inspectFile(path, &reason);
}

FileState inspectFile(const std::string &path, std::string *reason) {
  auto verdict = [&](FileState state, std::string why) {
    *reason = std::move(why);
    return state;
  };
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    return errno == ENOENT ? verdict(FileState::Missing, "the file does not exist")
                           : verdict(FileState::NotStore, std::string("the file cannot be read: ") +
                                                              std::strerror(errno));
  }
  if (!S_ISREG(st.st_mode)) return verdict(FileState::NotStore, "not a regular file");
  if (st.st_size < 100) return verdict(FileState::NotStore, "too short to be a store");
  // The header is read through SQLite's file layer: closing a descriptor of
  // the file would drop every lock this process holds on it, those of its
  // open connections included, and SQLite's layer keeps the descriptor until
  // they let go.
  unsigned char header[100];
  sqlite3_vfs *vfs = sqlite3_vfs_find(nullptr);
  std::vector<unsigned char> handle(vfs ? static_cast<std::size_t>(vfs->szOsFile) : 0);
  auto *file = reinterpret_cast<sqlite3_file *>(handle.data());
  int opened =
      vfs ? vfs->xOpen(vfs, path.c_str(), file, SQLITE_OPEN_READONLY | SQLITE_OPEN_MAIN_DB, nullptr)
          : SQLITE_ERROR;
  bool readOk =
      opened == SQLITE_OK && file->pMethods->xRead(file, header, sizeof header, 0) == SQLITE_OK;
  if (vfs && file->pMethods) file->pMethods->xClose(file);
  if (!readOk && opened != SQLITE_OK && errno == ENOENT) {
    return verdict(FileState::Missing, "the file does not exist");
  }
  if (!readOk) return verdict(FileState::NotStore, "the file cannot be read");
  if (std::memcmp(header, "SQLite format 3", 16) != 0) {
    return verdict(FileState::NotStore, "not an SQLite database");
  }
  if (bigEndian(header + 68, 4) != kApplicationId) {
    return verdict(FileState::NotStore, "another program's SQLite database");
  }
  std::uint32_t version = bigEndian(header + 60, 4);
  // Format 0 is someone else's database with our application ID; above ours,
  // a newer engine's store.
  if (version < kLegacyFormat) {
    return verdict(FileState::NotStore, "another program's SQLite database");
  }
  if (version > kFormatVersion) {
    return verdict(FileState::NotStore,
                   "a store of format " + std::to_string(version) + ", newer than this engine");
  }
  std::uint32_t pageSize = bigEndian(header + 16, 2);
  if (pageSize == 1) pageSize = 65536;
  if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0) {
    return verdict(FileState::Damaged, "the header's page size is not valid");
  }
  // Stores are always in WAL mode; a rollback journal would be replayed on open.
  if (header[18] != 2 || header[19] != 2) {
    return verdict(FileState::Damaged, "the header does not put the file in WAL mode");
  }
  if (st.st_size % pageSize != 0) {
    return verdict(FileState::Damaged, "its size (" + std::to_string(st.st_size) +
                                           " bytes) is not a whole number of " +
                                           std::to_string(pageSize) + "-byte pages");
  }
  // Without a WAL beside it the file must hold every page its header counts.
  struct stat walStat;
  bool hasWal = ::stat((path + "-wal").c_str(), &walStat) == 0 && walStat.st_size > 0;
  std::uint32_t pageCount = bigEndian(header + 28, 4);
  bool countValid = bigEndian(header + 24, 4) == bigEndian(header + 92, 4);
  if (!hasWal && countValid && pageCount != 0 &&
      static_cast<std::uint64_t>(st.st_size) != std::uint64_t{pageCount} * pageSize) {
    return verdict(FileState::Damaged, "it holds " + std::to_string(st.st_size / pageSize) +
                                           " pages where its header counts " +
                                           std::to_string(pageCount));
  }
  return verdict(FileState::Store, "");
}

bool queryText(sqlite3 *db, const std::string &sql, std::string *out) {
  Statement s;
  if (s.prepare(db, sql) != SQLITE_OK) return false;
  Use q(s);
  if (sqlite3_step(*q) != SQLITE_ROW) return false;
  *out = columnText(*q, 0);
  return true;
}

bool queryNumber(sqlite3 *db, const std::string &sql, std::int64_t *out) {
  Statement s;
  if (s.prepare(db, sql) != SQLITE_OK) return false;
  Use q(s);
  if (sqlite3_step(*q) != SQLITE_ROW) return false;
  *out = sqlite3_column_int64(*q, 0);
  return true;
}

std::uint32_t describeTable(sqlite3 *db, const TableDef &def, Repairs *repairs,
                            std::vector<std::string> *problems) {
  std::set<std::string> expected = {"seq", "record"};
  for (const KeyDef &k : def.keys) expected.insert(keyColumn(k.keyNumber));
  std::set<std::string> columns;
  {
    Statement s;
    if (s.prepare(db, "SELECT name, pk FROM pragma_table_info(?)") != SQLITE_OK) {
      return QDB_E_DAMAGED;
    }
    Use q(s);
    bindText(*q, 1, def.name);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      std::string name = columnText(*q, 0);
      // The insertion order is the row's own key.
      if ((name == "seq") != (sqlite3_column_int(*q, 1) == 1)) {
        problems->push_back("column " + name +
                            (name == "seq" ? " is not the row's key" : " is a row key"));
      }
      columns.insert(std::move(name));
    }
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  if (columns.empty()) {
    problems->push_back("the catalog lists the table, but the file has no SQL table of that name");
    return QDB_OK;
  }
  for (const std::string &name : expected) {
    if (!columns.count(name)) problems->push_back("column " + name + " is missing");
  }
  for (const std::string &name : columns) {
    if (!expected.count(name)) problems->push_back("column " + name + " is not in the catalog");
  }

  for (const KeyDef &k : def.keys) {
    std::string index = keyIndexName(def.name, k.keyNumber);
    Statement s;
    if (s.prepare(db,
                  "SELECT l.\"unique\", (SELECT group_concat(name) FROM pragma_index_info(l.name))"
                  " FROM pragma_index_list(?) AS l WHERE l.name=?") != SQLITE_OK) {
      return QDB_E_DAMAGED;
    }
    Use q(s);
    bindText(*q, 1, def.name);
    bindText(*q, 2, index);
    int rc = sqlite3_step(*q);
    if (rc == SQLITE_DONE) {
      repairs->indexStatements.push_back(std::string("CREATE ") + (k.unique ? "UNIQUE " : "") +
                                         "INDEX " + quoted(index) + " ON " + quoted(def.name) +
                                         "(" + keyColumn(k.keyNumber) + ")");
      continue;
    }
    if (rc != SQLITE_ROW) return resultOf(rc);
    if ((sqlite3_column_int(*q, 0) != 0) != k.unique) {
      problems->push_back(
          "index " + index +
          (k.unique ? " does not keep its key unique" : " keeps a key unique that may repeat"));
    }
    if (columnText(*q, 1) != keyColumn(k.keyNumber)) {
      problems->push_back("index " + index + " does not index column " + keyColumn(k.keyNumber));
    }
  }
  return QDB_OK;
}

std::uint32_t checkStructure(sqlite3 *db, int, Repairs *repairs, std::vector<TableDef> *defs) {
  std::uint32_t status = QDB_OK;
  for (const char *name : {"alertdb_tables", "alertdb_fields", "alertdb_query_info"}) {
    if (!hasCatalogTable(db, name, &status)) return status == QDB_OK ? QDB_E_DAMAGED : status;
  }
  for (const char *name : {"alertdb_query_types", "alertdb_query_type_values"}) {
    if (!hasCatalogTable(db, name, &status)) {
      if (status != QDB_OK) return status;
      repairs->queryTypeTables = true;
    }
  }
  std::vector<std::string> names;
  if ((status = tableNamesOf(db, &names)) != QDB_OK) return status;
  if ((status = checkEveryTableCatalogued(db)) != QDB_OK) return status;
  for (const std::string &name : names) {
    TableDef def;
    status = loadTableDef(db, name, &def);
    if (status == QDB_E_NOTABLE || status == QDB_E_IO) status = QDB_E_DAMAGED;
    if (status == QDB_OK) status = checkTable(db, def, repairs);
    if (status != QDB_OK) return status;
    defs->push_back(std::move(def));
  }
  return QDB_OK;
}

std::uint32_t checkContents(sqlite3 *db, int format) {
  std::string verdict;
  if (!queryText(db, "PRAGMA integrity_check(1)", &verdict)) return QDB_E_DAMAGED;
  if (verdict != "ok") return QDB_E_DAMAGED;
  std::vector<std::string> names;
  std::uint32_t status = tableNamesOf(db, &names);
  for (std::size_t i = 0; status == QDB_OK && i < names.size(); ++i) {
    TableDef def;
    status = loadTableDef(db, names[i], &def);
    if (status == QDB_OK) status = checkRecords(db, def, format);
  }
  return status == QDB_E_NOTABLE || status == QDB_E_IO ? QDB_E_DAMAGED : status;
}

std::uint32_t applyRepairs(sqlite3 *db, const Repairs &repairs) {
  if (execute(db, "BEGIN IMMEDIATE") != SQLITE_OK) return QDB_E_BUSY;
  std::uint32_t status = QDB_OK;
  if (repairs.queryTypeTables && execute(db, kCatalogSchema) != SQLITE_OK) status = QDB_E_IO;
  for (const std::string &sql : repairs.indexStatements) {
    if (status == QDB_OK && execute(db, sql.c_str()) != SQLITE_OK) status = QDB_E_DAMAGED;
  }
  if (status == QDB_OK && repairs.legacyRecords) {
    std::vector<std::string> names;
    status = tableNamesOf(db, &names);
    for (std::size_t i = 0; status == QDB_OK && i < names.size(); ++i) {
      TableDef def;
      status = loadTableDef(db, names[i], &def);
      if (status == QDB_OK) status = rewriteLegacyRecords(db, def);
    }
  }
  std::string stamp = "PRAGMA user_version=" + std::to_string(kFormatVersion);
  if (status == QDB_OK && repairs.legacyRecords && execute(db, stamp.c_str()) != SQLITE_OK) {
    status = QDB_E_IO;
  }
  if (status == QDB_OK && execute(db, "COMMIT") != SQLITE_OK) status = QDB_E_IO;
  if (status != QDB_OK) execute(db, "ROLLBACK");
  return status;
}

}  // namespace platform::store::sqlite
