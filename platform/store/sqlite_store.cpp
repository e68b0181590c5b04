// The record store on SQLite. A data file is one SQLite database in WAL mode;
// each record store table is one SQL table holding the record image and one
// indexed column per key; a catalog keeps the table definitions.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "platform/file_names.h"
#include "platform/file_system_internal.h"
#include "platform/store/record_codec_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform::store {

namespace {

constexpr std::uint32_t kApplicationId = 0x414C4442;  // "ALDB"
constexpr int kFormatVersion = 1;
constexpr int kBusyTimeoutMs = 60000;

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

std::uint32_t resultOf(int rc) {
  switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
      return QDB_OK;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return QDB_E_BUSY;
    case SQLITE_CONSTRAINT:
      return QDB_E_DUPLICATE;
    case SQLITE_NOMEM:
      return QDB_E_NOMEMORY;
    default:
      return QDB_E_IO;
  }
}

std::string quoted(const std::string &identifier) {
  std::string out = "\"";
  for (char c : identifier) {
    out += c;
    if (c == '"') out += '"';
  }
  return out + "\"";
}

std::string keyColumn(std::uint32_t keyNumber) {
  std::string column(1, 'k');
  column += std::to_string(keyNumber);
  return column;
}

std::uint32_t bigEndian(const unsigned char *p, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}

// The next byte string after every string that starts with `prefix`; empty
// when there is none.
std::string prefixEnd(std::string prefix) {
  while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF) prefix.pop_back();
  if (!prefix.empty()) prefix.back() = static_cast<char>(prefix.back() + 1);
  return prefix;
}

class Statement {
 public:
  Statement() = default;
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }

  int prepare(sqlite3 *db, const std::string &sql) {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
    return sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr);
  }
  bool ready() const { return stmt_ != nullptr; }
  sqlite3_stmt *get() const { return stmt_; }

 private:
  sqlite3_stmt *stmt_ = nullptr;
};

// Resets a statement when a step is done with it, so that no statement keeps
// a read transaction open.
class Use {
 public:
  explicit Use(Statement &s) : stmt_(s.get()) {}
  ~Use() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  sqlite3_stmt *operator*() const { return stmt_; }

 private:
  sqlite3_stmt *stmt_;
};

void bindKey(sqlite3_stmt *s, int index, const KeyValue &v) {
  if (v.isNumber) {
    sqlite3_bind_int64(s, index, static_cast<sqlite3_int64>(v.number));
  } else {
    sqlite3_bind_blob(s, index, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_TRANSIENT);
  }
}

void bindBlob(sqlite3_stmt *s, int index, const std::string &bytes) {
  sqlite3_bind_blob(s, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
}

void bindText(sqlite3_stmt *s, int index, const std::string &text) {
  sqlite3_bind_text(s, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

std::string columnBytes(sqlite3_stmt *s, int column) {
  const void *p = sqlite3_column_blob(s, column);
  int n = sqlite3_column_bytes(s, column);
  return p ? std::string(static_cast<const char *>(p), static_cast<std::size_t>(n)) : std::string();
}

std::string columnText(sqlite3_stmt *s, int column) {
  const unsigned char *p = sqlite3_column_text(s, column);
  int n = sqlite3_column_bytes(s, column);
  return p ? std::string(reinterpret_cast<const char *>(p), static_cast<std::size_t>(n))
           : std::string();
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

// What the file's first page says about it, read without SQLite so that a
// file that is not a store is never touched.
enum class FileState { Missing, NotStore, Store, OldFormat, Damaged };

FileState inspect(const std::string &path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? FileState::Missing : FileState::NotStore;
  struct stat st;
  unsigned char header[100];
  bool readOk = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 100 &&
                ::pread(fd, header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
  ::close(fd);
  if (!readOk) return FileState::NotStore;
  if (std::memcmp(header, "SQLite format 3", 16) != 0) return FileState::NotStore;
  if (bigEndian(header + 68, 4) != kApplicationId) return FileState::NotStore;
  std::uint32_t pageSize = bigEndian(header + 16, 2);
  if (pageSize == 1) pageSize = 65536;
  if (pageSize < 512 || (pageSize & (pageSize - 1)) != 0) return FileState::NotStore;
  std::uint32_t version = bigEndian(header + 60, 4);
  if (version > kFormatVersion) return FileState::NotStore;  // a newer engine's store
  if (st.st_size % pageSize != 0) return FileState::Damaged;
  // Without a WAL beside it the file must hold every page its header counts.
  struct stat walStat;
  bool hasWal = ::stat((path + "-wal").c_str(), &walStat) == 0 && walStat.st_size > 0;
  std::uint32_t pageCount = bigEndian(header + 28, 4);
  bool countValid = bigEndian(header + 24, 4) == bigEndian(header + 92, 4);
  if (!hasWal && countValid && pageCount != 0 &&
      static_cast<std::uint64_t>(st.st_size) != std::uint64_t{pageCount} * pageSize) {
    return FileState::Damaged;
  }
  return version < kFormatVersion ? FileState::OldFormat : FileState::Store;
}

int execute(sqlite3 *db, const char *sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
}

sqlite3 *openConnection(const std::string &path) {
  sqlite3 *db = nullptr;
  int rc =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  return db;
}

// Builds a new, empty store beside `path` and links it into place, so that
// other processes see either no file or a complete store.
bool createStoreFile(const std::string &path) {
  std::string temp = fs::directoryOf(path) + "/.alertdb-new-XXXXXX";
  int fd = ::mkstemp(temp.data());
  if (fd < 0) return false;
  ::close(fd);
  bool ok = false;
  if (sqlite3 *db = openConnection(temp)) {
    std::string setup = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                        ";PRAGMA user_version=" + std::to_string(kFormatVersion) +
                        ";PRAGMA journal_mode=WAL;" + kCatalogSchema;
    ok = execute(db, setup.c_str()) == SQLITE_OK;
    ok = sqlite3_close(db) == SQLITE_OK && ok;
  }
  if (ok) {
    fd = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC);
    ok = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
  }
  // link() refuses to replace: a store made meanwhile by someone else wins.
  if (ok && ::link(temp.c_str(), path.c_str()) != 0 && errno != EEXIST) ok = false;
  ::unlink(temp.c_str());
  ::unlink((temp + "-wal").c_str());
  ::unlink((temp + "-shm").c_str());
  fs::syncDirectory(fs::directoryOf(path));
  return ok;
}

class SqliteTable;

class SqliteSession final : public StoreSession {
 public:
  SqliteSession(sqlite3 *db, std::string path) : db_(db), path_(std::move(path)) {}
  ~SqliteSession() override;

  std::uint32_t configure(std::uint32_t mode, FileState state);

  const std::string &path() const override { return path_; }
  std::uint32_t table(const std::string &name, std::shared_ptr<TableHandle> *out) override;
  std::uint32_t createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) override;
  std::uint32_t addQueryType(const QueryTypeDef &type) override;
  std::uint32_t tableNames(std::vector<std::string> *names) override;
  std::uint32_t count(TableHandle &table, std::uint32_t *records) override;
  std::uint32_t insert(TableHandle &table, const std::string &record, std::int64_t *seq) override;
  std::uint32_t update(TableHandle &table, std::int64_t seq, const std::string &record) override;
  std::uint32_t remove(TableHandle &table, std::int64_t seq) override;
  std::uint32_t read(TableHandle &table, std::int64_t seq, Row *out) override;
  std::uint32_t seek(TableHandle &table, const KeyDef &key, const KeyValue &value,
                     Row *out) override;
  std::uint32_t first(TableHandle &table, const KeyDef &key, Row *out) override;
  std::uint32_t next(TableHandle &table, const KeyDef &key, const KeyValue &value, std::int64_t seq,
                     Row *out) override;
  std::uint32_t lockWrite() override;
  std::uint32_t unlockWrite() override;
  std::uint32_t lockRead() override;
  std::uint32_t unlockRead() override;

 private:
  std::uint32_t loadTable(const std::string &name, TableDef *def);
  std::uint32_t storeTable(const TableDef &def);
  std::uint32_t beginRead();
  std::uint32_t prepare(Statement &s, const std::string &sql);
  // Runs a statement that returns at most one (seq, record) row.
  std::uint32_t fetchRow(Statement &s, const TableDef &def, Row *out);

  sqlite3 *db_;
  std::string path_;
  std::map<std::string, std::shared_ptr<SqliteTable>> tables_;
  int writeDepth_ = 0;
  int readDepth_ = 0;
};

// Prepared statements of one table, made when first needed.
class SqliteTable final : public TableHandle {
 public:
  using TableHandle::TableHandle;

  struct KeyStatements {
    Statement seekEqual, seekRange, seekFrom, first, nextEqual, nextGreater;
  };

  Statement insert, update, remove, read;
  std::map<std::uint32_t, KeyStatements> keys;

  std::string quotedName() const { return quoted(def().name); }
};

SqliteSession::~SqliteSession() {
  if (writeDepth_ > 0 || readDepth_ > 0) execute(db_, "ROLLBACK");
  tables_.clear();  // finalizes the statements before the close
  sqlite3_close_v2(db_);
}

std::uint32_t SqliteSession::configure(std::uint32_t mode, FileState state) {
  // A page cache that holds the key indexes of a large table keeps seeks off the disk.
  if (execute(db_, "PRAGMA synchronous=FULL; PRAGMA cache_size=-32768") != SQLITE_OK)
    return QDB_E_IO;
  Statement journal;
  if (prepare(journal, "PRAGMA journal_mode") != QDB_OK) return QDB_E_IO;
  {
    Use q(journal);
    if (sqlite3_step(*q) != SQLITE_ROW) return QDB_E_IO;
    if (columnText(*q, 0) != "wal" && mode != kOpenRecover) return QDB_E_IO;
  }
  if (mode == kOpenRecover) {
    // The recovery open: check every page, then rebuild what can be rebuilt.
    Statement check;
    if (prepare(check, "PRAGMA quick_check") != QDB_OK) return QDB_E_IO;
    {
      Use q(check);
      if (sqlite3_step(*q) != SQLITE_ROW || columnText(*q, 0) != "ok") return QDB_E_IO;
    }
    std::string repair = std::string("PRAGMA journal_mode=WAL;BEGIN IMMEDIATE;") + kCatalogSchema +
                         "REINDEX;PRAGMA user_version=" + std::to_string(kFormatVersion) +
                         ";COMMIT;";
    if (execute(db_, repair.c_str()) != SQLITE_OK) {
      execute(db_, "ROLLBACK");
      return QDB_E_IO;
    }
    return QDB_OK;
  }
  if (state != FileState::Store) return QDB_E_IO;
  // A store without its catalog is only accepted by the recovery open.
  Statement catalog;
  if (prepare(catalog,
              "SELECT count(*) FROM sqlite_master WHERE type='table' AND name IN "
              "('alertdb_tables','alertdb_fields','alertdb_query_info',"
              "'alertdb_query_types','alertdb_query_type_values')") != QDB_OK) {
    return QDB_E_IO;
  }
  Use q(catalog);
  if (sqlite3_step(*q) != SQLITE_ROW || sqlite3_column_int(*q, 0) != 5) return QDB_E_IO;
  return QDB_OK;
}

std::uint32_t SqliteSession::prepare(Statement &s, const std::string &sql) {
  int rc = s.prepare(db_, sql);
  return rc == SQLITE_OK ? QDB_OK : resultOf(rc);
}

std::uint32_t SqliteSession::fetchRow(Statement &s, const TableDef &def, Row *out) {
  Use q(s);
  int rc = sqlite3_step(*q);
  if (rc == SQLITE_DONE) return QDB_E_NOTFOUND;
  if (rc != SQLITE_ROW) return resultOf(rc);
  out->seq = sqlite3_column_int64(*q, 0);
  if (!decodeRecord(sqlite3_column_blob(*q, 1),
                    static_cast<std::size_t>(sqlite3_column_bytes(*q, 1)), def.recordSize,
                    &out->record)) {
    return QDB_E_IO;
  }
  return QDB_OK;
}

std::uint32_t SqliteSession::loadTable(const std::string &name, TableDef *def) {
  Statement s;
  std::uint32_t r = prepare(s,
                            "SELECT title, id_key, second_key, callback_dll, callback_entry, "
                            "reserved FROM alertdb_tables WHERE name=?");
  if (r != QDB_OK) return r;
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
  }
  r = prepare(s,
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
      def->fields.push_back(std::move(f));
    }
    if (rc != SQLITE_DONE) return resultOf(rc);
  }
  r = prepare(s, "SELECT entry FROM alertdb_query_info WHERE table_name=? ORDER BY position");
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
  if (def->fields.empty()) return QDB_E_IO;
  def->derive();
  return QDB_OK;
}

std::uint32_t SqliteSession::table(const std::string &name, std::shared_ptr<TableHandle> *out) {
  auto it = tables_.find(name);
  if (it != tables_.end()) {
    *out = it->second;
    return QDB_OK;
  }
  TableDef def;
  std::uint32_t r = loadTable(name, &def);
  if (r != QDB_OK) return r;
  auto t = std::make_shared<SqliteTable>(std::move(def));
  tables_[name] = t;
  *out = t;
  return QDB_OK;
}

std::uint32_t SqliteSession::storeTable(const TableDef &def) {
  std::string columns = "seq INTEGER PRIMARY KEY AUTOINCREMENT, record BLOB NOT NULL";
  for (const KeyDef &k : def.keys) {
    columns += ", " + keyColumn(k.keyNumber) + (k.kind == KeyKind::Number ? " INTEGER" : " BLOB");
  }
  std::string ddl = "CREATE TABLE " + quoted(def.name) + "(" + columns + ");";
  for (const KeyDef &k : def.keys) {
    ddl += std::string("CREATE ") + (k.unique ? "UNIQUE " : "") + "INDEX " +
           quoted(def.name + ":" + keyColumn(k.keyNumber)) + " ON " + quoted(def.name) + "(" +
           keyColumn(k.keyNumber) + ");";
  }
  int rc = execute(db_, ddl.c_str());
  if (rc != SQLITE_OK) return resultOf(rc) == QDB_E_DUPLICATE ? QDB_E_IO : resultOf(rc);

  Statement s;
  std::uint32_t r = prepare(s, "INSERT INTO alertdb_tables VALUES(?,?,?,?,?,?,?,?)");
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
  r = prepare(s, "INSERT INTO alertdb_fields VALUES(?,?,?,?,?,?,?,?,?)");
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
  r = prepare(s, "INSERT INTO alertdb_query_info VALUES(?,?,?,?,?,?,?)");
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

std::uint32_t SqliteSession::createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) {
  if (execute(db_, "SAVEPOINT create_table") != SQLITE_OK) return QDB_E_BUSY;
  TableDef existing;
  std::uint32_t r = loadTable(def.name, &existing);
  if (r == QDB_OK) {
    r = existing.sameLayout(def) ? QDB_OK : QDB_E_EXISTS;
  } else if (r == QDB_E_NOTABLE) {
    // SQL names ignore case: a table of another case would clash.
    Statement s;
    r = prepare(s, "SELECT count(*) FROM sqlite_master WHERE name=? COLLATE NOCASE");
    if (r == QDB_OK) {
      Use q(s);
      bindText(*q, 1, def.name);
      int rc = sqlite3_step(*q);
      if (rc != SQLITE_ROW) {
        r = resultOf(rc);
      } else if (sqlite3_column_int(*q, 0) != 0) {
        r = QDB_E_EXISTS;
      }
    }
    if (r == QDB_OK) r = storeTable(def);
  }
  if (r != QDB_OK) {
    execute(db_, "ROLLBACK TO create_table");
    execute(db_, "RELEASE create_table");
    return r;
  }
  if (execute(db_, "RELEASE create_table") != SQLITE_OK) {
    execute(db_, "ROLLBACK TO create_table");
    execute(db_, "RELEASE create_table");
    return QDB_E_IO;
  }
  tables_.erase(def.name);
  return table(def.name, out);
}

std::uint32_t SqliteSession::addQueryType(const QueryTypeDef &type) {
  if (execute(db_, "SAVEPOINT query_type") != SQLITE_OK) return QDB_E_BUSY;
  std::uint32_t r = QDB_OK;
  Statement s;
  auto run = [&](const char *sql, auto bind) {
    if (r != QDB_OK) return;
    if ((r = prepare(s, sql)) != QDB_OK) return;
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
  if (r != QDB_OK) execute(db_, "ROLLBACK TO query_type");
  execute(db_, "RELEASE query_type");
  return r;
}

std::uint32_t SqliteSession::tableNames(std::vector<std::string> *names) {
  Statement s;
  std::uint32_t r = prepare(s, "SELECT name FROM alertdb_tables ORDER BY name");
  if (r != QDB_OK) return r;
  Use q(s);
  int rc;
  while ((rc = sqlite3_step(*q)) == SQLITE_ROW) names->push_back(columnText(*q, 0));
  return rc == SQLITE_DONE ? QDB_OK : resultOf(rc);
}

std::uint32_t SqliteSession::count(TableHandle &handle, std::uint32_t *records) {
  auto &t = static_cast<SqliteTable &>(handle);
  Statement s;
  std::uint32_t r = prepare(s, "SELECT count(*) FROM " + t.quotedName());
  if (r != QDB_OK) return r;
  Use q(s);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_ROW) return resultOf(rc);
  *records = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 0));
  return QDB_OK;
}

std::uint32_t SqliteSession::insert(TableHandle &handle, const std::string &record,
                                    std::int64_t *seq) {
  auto &t = static_cast<SqliteTable &>(handle);
  const TableDef &def = t.def();
  if (!t.insert.ready()) {
    std::string columns = "record", values = "?";
    for (const KeyDef &k : def.keys) {
      columns += ", " + keyColumn(k.keyNumber);
      values += ", ?";
    }
    std::uint32_t r = prepare(
        t.insert, "INSERT INTO " + t.quotedName() + "(" + columns + ") VALUES(" + values + ")");
    if (r != QDB_OK) return r;
  }
  std::string stored = encodeRecord(record);
  Use q(t.insert);
  bindBlob(*q, 1, stored);
  for (std::size_t i = 0; i < def.keys.size(); ++i) {
    bindKey(*q, static_cast<int>(i) + 2, keyOfRecord(def, def.keys[i], record));
  }
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_DONE) return resultOf(rc);
  *seq = sqlite3_last_insert_rowid(db_);
  return QDB_OK;
}

std::uint32_t SqliteSession::update(TableHandle &handle, std::int64_t seq,
                                    const std::string &record) {
  auto &t = static_cast<SqliteTable &>(handle);
  const TableDef &def = t.def();
  if (!t.update.ready()) {
    std::string sets = "record=?";
    for (const KeyDef &k : def.keys) sets += ", " + keyColumn(k.keyNumber) + "=?";
    std::uint32_t r =
        prepare(t.update, "UPDATE " + t.quotedName() + " SET " + sets + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  std::string stored = encodeRecord(record);
  Use q(t.update);
  bindBlob(*q, 1, stored);
  int index = 2;
  for (const KeyDef &k : def.keys) bindKey(*q, index++, keyOfRecord(def, k, record));
  sqlite3_bind_int64(*q, index, seq);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_DONE) return resultOf(rc);
  return sqlite3_changes(db_) == 1 ? QDB_OK : QDB_E_NOCURRENT;
}

std::uint32_t SqliteSession::remove(TableHandle &handle, std::int64_t seq) {
  auto &t = static_cast<SqliteTable &>(handle);
  if (!t.remove.ready()) {
    std::uint32_t r = prepare(t.remove, "DELETE FROM " + t.quotedName() + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  Use q(t.remove);
  sqlite3_bind_int64(*q, 1, seq);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_DONE) return resultOf(rc);
  return sqlite3_changes(db_) == 1 ? QDB_OK : QDB_E_NOCURRENT;
}

std::uint32_t SqliteSession::read(TableHandle &handle, std::int64_t seq, Row *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  if (!t.read.ready()) {
    std::uint32_t r = prepare(t.read, "SELECT seq, record FROM " + t.quotedName() + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  sqlite3_bind_int64(t.read.get(), 1, seq);
  return fetchRow(t.read, t.def(), out);
}

std::uint32_t SqliteSession::seek(TableHandle &handle, const KeyDef &key, const KeyValue &value,
                                  Row *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  auto &k = t.keys[key.keyNumber];
  std::string column = keyColumn(key.keyNumber);
  std::string from = "SELECT seq, record FROM " + t.quotedName() + " WHERE ";
  std::string order = " ORDER BY " + column + ", seq LIMIT 1";
  if (!value.isPrefix) {
    if (!k.seekEqual.ready()) {
      std::uint32_t r = prepare(k.seekEqual, from + column + "=?" + order);
      if (r != QDB_OK) return r;
    }
    bindKey(k.seekEqual.get(), 1, value);
    return fetchRow(k.seekEqual, t.def(), out);
  }
  // A shorter search value: the records whose key starts with it.
  std::string end = prefixEnd(value.bytes);
  Statement &s = end.empty() ? k.seekFrom : k.seekRange;
  if (!s.ready()) {
    std::uint32_t r =
        prepare(s, from + column + ">=?" + (end.empty() ? "" : " AND " + column + "<?") + order);
    if (r != QDB_OK) return r;
  }
  bindKey(s.get(), 1, value);
  if (!end.empty()) {
    sqlite3_bind_blob(s.get(), 2, end.data(), static_cast<int>(end.size()), SQLITE_TRANSIENT);
  }
  return fetchRow(s, t.def(), out);
}

std::uint32_t SqliteSession::first(TableHandle &handle, const KeyDef &key, Row *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  auto &k = t.keys[key.keyNumber];
  if (!k.first.ready()) {
    std::string column = keyColumn(key.keyNumber);
    std::uint32_t r = prepare(k.first, "SELECT seq, record FROM " + t.quotedName() + " ORDER BY " +
                                           column + ", seq LIMIT 1");
    if (r != QDB_OK) return r;
  }
  return fetchRow(k.first, t.def(), out);
}

std::uint32_t SqliteSession::next(TableHandle &handle, const KeyDef &key, const KeyValue &value,
                                  std::int64_t seq, Row *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  auto &k = t.keys[key.keyNumber];
  if (!k.nextGreater.ready()) {
    std::string column = keyColumn(key.keyNumber);
    std::string from = "SELECT seq, record FROM " + t.quotedName() + " WHERE ";
    std::string order = " ORDER BY " + column + ", seq LIMIT 1";
    std::uint32_t r = prepare(k.nextEqual, from + column + "=? AND seq>?" + order);
    if (r == QDB_OK) r = prepare(k.nextGreater, from + column + ">?" + order);
    if (r != QDB_OK) return r;
  }
  // Two indexed seeks: later records with the same key (none when the key
  // is unique), then greater keys.
  if (!key.unique) {
    bindKey(k.nextEqual.get(), 1, value);
    sqlite3_bind_int64(k.nextEqual.get(), 2, seq);
    std::uint32_t r = fetchRow(k.nextEqual, t.def(), out);
    if (r != QDB_E_NOTFOUND) return r;
  }
  bindKey(k.nextGreater.get(), 1, value);
  return fetchRow(k.nextGreater, t.def(), out);
}

std::uint32_t SqliteSession::beginRead() {
  if (execute(db_, "BEGIN") != SQLITE_OK) return QDB_E_IO;
  // The snapshot starts with the first read.
  int rc = execute(db_, "SELECT count(*) FROM alertdb_query_types");
  if (rc != SQLITE_OK) {
    execute(db_, "ROLLBACK");
    return resultOf(rc);
  }
  return QDB_OK;
}

std::uint32_t SqliteSession::lockWrite() {
  if (readDepth_ > 0 && writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (writeDepth_ == 0) {
    int rc = execute(db_, "BEGIN IMMEDIATE");
    if (rc != SQLITE_OK) return resultOf(rc);
  }
  ++writeDepth_;
  return QDB_OK;
}

std::uint32_t SqliteSession::unlockWrite() {
  if (writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (--writeDepth_ > 0) return QDB_OK;
  int rc = execute(db_, "COMMIT");
  if (rc != SQLITE_OK) {
    execute(db_, "ROLLBACK");
    readDepth_ = 0;
    return resultOf(rc);
  }
  // Read locks taken under the write lock keep a snapshot of their own.
  if (readDepth_ > 0 && beginRead() != QDB_OK) readDepth_ = 0;
  return QDB_OK;
}

std::uint32_t SqliteSession::lockRead() {
  if (readDepth_ == 0 && writeDepth_ == 0) {
    std::uint32_t r = beginRead();
    if (r != QDB_OK) return r;
  }
  ++readDepth_;
  return QDB_OK;
}

std::uint32_t SqliteSession::unlockRead() {
  if (readDepth_ == 0) return QDB_E_LOCKSTATE;
  if (--readDepth_ == 0 && writeDepth_ == 0) execute(db_, "COMMIT");
  return QDB_OK;
}

}  // namespace

std::shared_ptr<StoreSession> openSqliteStore(const std::string &requested, std::uint32_t mode,
                                              std::uint32_t *status) {
  *status = QDB_E_IO;
  if (mode != kOpenExisting && mode != kOpenRecover && mode != kOpenCreate) {
    *status = QDB_E_BADARG;
    return nullptr;
  }
  std::string path = ResolveFileName(requested);
  FileState state = inspect(path);
  if (state == FileState::Missing) {
    if (mode != kOpenCreate || !createStoreFile(path)) return nullptr;
    state = inspect(path);
  }
  bool acceptable =
      state == FileState::Store ||
      (mode == kOpenRecover && (state == FileState::OldFormat || state == FileState::Damaged));
  if (!acceptable) return nullptr;

  char canonical[PATH_MAX];
  if (!::realpath(path.c_str(), canonical)) return nullptr;
  sqlite3 *db = openConnection(canonical);
  if (!db) return nullptr;
  auto session = std::make_shared<SqliteSession>(db, canonical);
  *status = session->configure(mode, state);
  if (*status != QDB_OK) return nullptr;
  return session;
}

}  // namespace platform::store
