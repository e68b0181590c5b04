// The record store on SQLite. A data file is one SQLite database in WAL mode;
// each record store table is one SQL table holding the stored record and one
// indexed column per key; a catalog keeps the table definitions.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/file_names.h"
#include "platform/file_system_internal.h"
#include "platform/store/change_counter_internal.h"
#include "platform/store/lock_span_internal.h"
#include "platform/store/sqlite/sqlite_catalog_internal.h"
#include "platform/store/sqlite/sqlite_file_check_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform::store {

namespace {

using namespace sqlite;

sqlite3 *openConnection(const std::string &path) {
  sqlite3 *db = nullptr;
  // The session serialises its own operations (StoreSession::operationLock).
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  // Nothing goes back into the file on close until the file passed its checks.
  sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
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
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
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

// The files this process found sound, by identity and schema version.
// A file is known by its inode, schema and last write: another file that
// reuses a freed inode, or a file written by other means, is checked afresh.
struct CheckedFile {
  dev_t device;
  ino_t inode;
  std::int64_t schema;
  std::int64_t modified;
  bool operator==(const CheckedFile &) const = default;
};

class CheckedFiles {
 public:
  bool contains(const CheckedFile &file) {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::find(files_.begin(), files_.end(), file) != files_.end();
  }
  void add(const CheckedFile &file) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Another schema of the same file replaces the one known.
    files_.erase(std::remove_if(files_.begin(), files_.end(),
                                [&](const CheckedFile &f) {
                                  return f.device == file.device && f.inode == file.inode;
                                }),
                 files_.end());
    files_.push_back(file);
  }

 private:
  std::mutex mutex_;
  std::vector<CheckedFile> files_;
};

CheckedFiles &checkedFiles() {
  static CheckedFiles *files = new CheckedFiles;  // outlives static destructors
  return *files;
}

// Prepared statements of one table, made when first needed.
class SqliteTable final : public TableHandle {
 public:
  struct KeyStatements {
    Statement first, equal, prefixRange, from, afterEqual, afterGreater;
  };

  explicit SqliteTable(TableDef def)
      : TableHandle(std::move(def)),
        keys(new KeyStatements[this->def().keys.size()]),
        prefixEnd(this->def().maxKeySize) {}

  KeyStatements &statements(const KeyDef &key) {
    return keys[static_cast<std::size_t>(&key - def().keys.data())];
  }
  std::string quotedName() const { return quoted(def().name); }

  Statement insert, update, remove, bySeq;
  std::unique_ptr<KeyStatements[]> keys;
  std::vector<unsigned char> prefixEnd;
};

class SqliteSession final : public StoreSession {
 public:
  SqliteSession(sqlite3 *db, std::string path) : db_(db), path_(std::move(path)) {}
  ~SqliteSession() override;

  std::uint32_t configure(std::uint32_t mode);

  const std::string &path() const override { return path_; }
  bool acceptsLegacyRecords() const override { return format_ == kLegacyFormat; }
  void noteDamage() override {
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  }
  std::uint32_t table(const std::string &name, std::shared_ptr<TableHandle> *out) override;
  std::uint32_t createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) override;
  std::uint32_t addQueryType(const QueryTypeDef &type) override;
  std::uint32_t tableNames(std::vector<std::string> *names) override;
  std::uint32_t count(TableHandle &table, std::uint32_t *records) override;
  std::uint32_t insert(TableHandle &table, const unsigned char *stored, std::size_t size,
                       const KeyValue *keys) override;
  std::uint32_t update(TableHandle &table, std::int64_t seq, const unsigned char *stored,
                       std::size_t size, const KeyValue *keys) override;
  std::uint32_t remove(TableHandle &table, std::int64_t seq) override;
  std::uint32_t fetchRow(TableHandle &table, std::int64_t seq, RowBatch *out) override;
  std::uint32_t fetch(TableHandle &table, const KeyDef &key, FetchFrom from, const KeyValue &value,
                      std::int64_t seq, std::uint32_t limit, RowBatch *out) override;
  std::uint32_t lockWrite() override;
  std::uint32_t unlockWrite() override;
  std::uint32_t lockRead() override;
  std::uint32_t unlockRead() override;

 private:
  // The checks of an open, in the caller's read transaction.
  std::uint32_t checkFile(std::uint32_t mode, Repairs *repairs, std::vector<TableDef> *defs);
  std::uint32_t prepare(Statement &s, const std::string &sql);
  // Maps a SQLite result, remembering damage.
  std::uint32_t failure(int rc);
  // Runs a statement that gives (seq, stored record) rows, appending at most
  // `limit` of them to `out`.
  std::uint32_t collect(Statement &s, std::uint32_t limit, RowBatch *out);
  std::uint32_t beginRead();
  // Schema changes outside a transaction run in one of their own, begun
  // with the write lock; `own` tells whether it was begun here.
  int beginSchemaChange(bool *own);
  int endSchemaChange(bool own, bool commit);
  // A rollback undoes this session's changes: rows fetched since are stale.
  void noteRollback();
  // Runs a write; outside a transaction it commits, so the counter is
  // bumped before and after it.
  template <typename Write>
  int committing(Write write) {
    if (writeDepth_ > 0 || readDepth_ > 0) return write();
    commits_.bump();
    int rc = write();
    commits_.bump();
    return rc;
  }

  sqlite3 *db_;
  std::string path_;
  int format_ = kFormatVersion;
  std::map<std::string, std::shared_ptr<SqliteTable>> tables_;
  Statement begin_, commit_;
  int writeDepth_ = 0;
  int readDepth_ = 0;
};

SqliteSession::~SqliteSession() {
  if (writeDepth_ > 0 || readDepth_ > 0) execute(db_, "ROLLBACK");
  // A thread that loses its session while holding the lock loses the batch.
  for (; writeDepth_ > 0; --writeDepth_) lockSpanLeave(false);
  tables_.clear();  // finalizes the statements before the close
  sqlite3_close_v2(db_);
}

std::uint32_t SqliteSession::configure(std::uint32_t mode) {
  // A page cache that holds the key indexes of a large table keeps seeks off the disk.
  if (execute(db_, "PRAGMA synchronous=FULL; PRAGMA cache_size=-32768") != SQLITE_OK)
    return QDB_E_IO;
  // Every check reads in one transaction: one lock, one snapshot.
  if (execute(db_, "BEGIN") != SQLITE_OK) return QDB_E_IO;
  Repairs repairs;
  std::vector<TableDef> defs;
  std::uint32_t status = checkFile(mode, &repairs, &defs);
  execute(db_, "COMMIT");
  if (status != QDB_OK) return status;
  if (!repairs.empty()) {
    if (mode != kOpenRecover) return QDB_E_DAMAGED;
    if ((status = applyRepairs(db_, repairs)) != QDB_OK) return status;
    format_ = kFormatVersion;
  }
  // The tables as checked serve the handles that select them.
  for (TableDef &def : defs) {
    std::string name = def.name;
    tables_[name] = std::make_shared<SqliteTable>(std::move(def));
  }
  // Checked: the WAL may go back into the file when the last connection closes.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
  return QDB_OK;
}

std::uint32_t SqliteSession::checkFile(std::uint32_t mode, Repairs *repairs,
                                       std::vector<TableDef> *defs) {
  std::string journal;
  std::int64_t applicationId = 0, format = 0;
  if (!queryText(db_, "PRAGMA journal_mode", &journal) || journal != "wal" ||
      !queryNumber(db_, "PRAGMA application_id", &applicationId) ||
      applicationId != kApplicationId || !queryNumber(db_, "PRAGMA user_version", &format) ||
      (format != kLegacyFormat && format != kFormatVersion)) {
    return QDB_E_DAMAGED;
  }
  format_ = static_cast<int>(format);
  // A file this process has checked keeps its structure until its schema
  // changes or the file itself is written (a checkpoint, another program):
  // the normal open then reads only the header and these pragmas.
  std::int64_t schema = 0;
  struct stat st;
  bool identified =
      queryNumber(db_, "PRAGMA schema_version", &schema) && ::stat(path_.c_str(), &st) == 0;
  CheckedFile file{st.st_dev, st.st_ino, schema,
                   identified ? st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec : 0};
  if (identified) commits_ = ChangeCounter::forFile(st.st_dev, st.st_ino);
  if (mode != kOpenRecover && identified && checkedFiles().contains(file)) return QDB_OK;
  std::uint32_t status = checkStructure(db_, format_, repairs, defs);
  if (status == QDB_OK && repairs->empty() && identified) checkedFiles().add(file);
  if (status != QDB_OK || mode != kOpenRecover) return status;
  // The recovery open changes nothing before the whole file has passed.
  if ((status = checkContents(db_, format_)) != QDB_OK) return status;
  repairs->legacyRecords = format_ == kLegacyFormat;
  return QDB_OK;
}

std::uint32_t SqliteSession::prepare(Statement &s, const std::string &sql) {
  int rc = s.prepare(db_, sql);
  return rc == SQLITE_OK ? QDB_OK : failure(rc);
}

std::uint32_t SqliteSession::failure(int rc) {
  std::uint32_t r = resultOf(rc);
  if (r == QDB_E_DAMAGED) noteDamage();
  return r;
}

std::uint32_t SqliteSession::collect(Statement &s, std::uint32_t limit, RowBatch *out) {
  Use q(s);
  int rc;
  std::uint32_t rows = 0;
  while (rows < limit && (rc = sqlite3_step(*q)) == SQLITE_ROW) {
    // The record through one column call: the value calls skip the
    // connection's mutex and error bookkeeping, which a session serialised
    // by its own lock does not need.
    sqlite3_value *record = sqlite3_column_value(*q, 1);
    const void *stored = sqlite3_value_blob(record);
    out->add(sqlite3_column_int64(*q, 0), stored,
             static_cast<std::size_t>(sqlite3_value_bytes(record)));
    ++rows;
  }
  if (rows < limit && rc != SQLITE_DONE) return failure(rc);
  return QDB_OK;
}

std::uint32_t SqliteSession::table(const std::string &name, std::shared_ptr<TableHandle> *out) {
  auto it = tables_.find(name);
  if (it != tables_.end()) {
    *out = it->second;
    return QDB_OK;
  }
  TableDef def;
  std::uint32_t r = loadTableDef(db_, name, &def);
  if (r != QDB_OK) return r;
  auto t = std::make_shared<SqliteTable>(std::move(def));
  tables_[name] = t;
  *out = t;
  return QDB_OK;
}

std::uint32_t SqliteSession::createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) {
  bool own = false;
  if (beginSchemaChange(&own) != SQLITE_OK) return QDB_E_BUSY;
  if (execute(db_, "SAVEPOINT create_table") != SQLITE_OK) {
    endSchemaChange(own, false);
    return QDB_E_BUSY;
  }
  TableDef existing;
  std::uint32_t r = loadTableDef(db_, def.name, &existing);
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
        r = failure(rc);
      } else if (sqlite3_column_int(*q, 0) != 0) {
        r = QDB_E_EXISTS;
      }
    }
    if (r == QDB_OK) r = storeTableDef(db_, def);
  }
  if (r != QDB_OK) {
    execute(db_, "ROLLBACK TO create_table");
    execute(db_, "RELEASE create_table");
    endSchemaChange(own, false);
    return r;
  }
  if (execute(db_, "RELEASE create_table") != SQLITE_OK ||
      endSchemaChange(own, true) != SQLITE_OK) {
    execute(db_, "ROLLBACK TO create_table");
    execute(db_, "RELEASE create_table");
    endSchemaChange(own, false);
    return QDB_E_IO;
  }
  tables_.erase(def.name);
  return table(def.name, out);
}

std::uint32_t SqliteSession::addQueryType(const QueryTypeDef &type) {
  bool own = false;
  if (beginSchemaChange(&own) != SQLITE_OK) return QDB_E_BUSY;
  if (execute(db_, "SAVEPOINT query_type") != SQLITE_OK) {
    endSchemaChange(own, false);
    return QDB_E_BUSY;
  }
  std::uint32_t r = storeQueryType(db_, type);
  if (r != QDB_OK) execute(db_, "ROLLBACK TO query_type");
  execute(db_, "RELEASE query_type");
  if (endSchemaChange(own, r == QDB_OK) != SQLITE_OK && r == QDB_OK) r = QDB_E_IO;
  return r;
}

int SqliteSession::beginSchemaChange(bool *own) {
  *own = sqlite3_get_autocommit(db_) != 0;
  // A savepoint alone would start a deferred transaction that reads the
  // catalog before it writes, and SQLite refuses that upgrade at once when
  // another connection committed meanwhile; the write lock taken first
  // waits for the others instead.
  return *own ? execute(db_, "BEGIN IMMEDIATE") : SQLITE_OK;
}

int SqliteSession::endSchemaChange(bool own, bool commit) {
  if (!own) return SQLITE_OK;
  if (!commit) return execute(db_, "ROLLBACK");
  int rc = committing([&] { return execute(db_, "COMMIT"); });
  if (rc != SQLITE_OK) execute(db_, "ROLLBACK");
  return rc;
}

std::uint32_t SqliteSession::tableNames(std::vector<std::string> *names) {
  Statement s;
  std::uint32_t r = prepare(s, "SELECT name FROM alertdb_tables ORDER BY name");
  if (r != QDB_OK) return r;
  Use q(s);
  int rc;
  while ((rc = sqlite3_step(*q)) == SQLITE_ROW) names->push_back(columnText(*q, 0));
  return rc == SQLITE_DONE ? QDB_OK : failure(rc);
}

std::uint32_t SqliteSession::count(TableHandle &handle, std::uint32_t *records) {
  auto &t = static_cast<SqliteTable &>(handle);
  Statement s;
  std::uint32_t r = prepare(s, "SELECT count(*) FROM " + t.quotedName());
  if (r != QDB_OK) return r;
  Use q(s);
  int rc = sqlite3_step(*q);
  if (rc != SQLITE_ROW) return failure(rc);
  *records = static_cast<std::uint32_t>(sqlite3_column_int64(*q, 0));
  return QDB_OK;
}

std::uint32_t SqliteSession::insert(TableHandle &handle, const unsigned char *stored,
                                    std::size_t size, const KeyValue *keys) {
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
  Use q(t.insert);
  sqlite3_bind_blob(*q, 1, stored, static_cast<int>(size), SQLITE_STATIC);
  for (std::size_t i = 0; i < def.keys.size(); ++i) bindKey(*q, static_cast<int>(i) + 2, keys[i]);
  int rc = committing([&] { return sqlite3_step(*q); });
  if (rc != SQLITE_DONE) return failure(rc);
  t.noteChange();
  return QDB_OK;
}

std::uint32_t SqliteSession::update(TableHandle &handle, std::int64_t seq,
                                    const unsigned char *stored, std::size_t size,
                                    const KeyValue *keys) {
  auto &t = static_cast<SqliteTable &>(handle);
  const TableDef &def = t.def();
  if (!t.update.ready()) {
    std::string sets = "record=?";
    for (const KeyDef &k : def.keys) sets += ", " + keyColumn(k.keyNumber) + "=?";
    std::uint32_t r =
        prepare(t.update, "UPDATE " + t.quotedName() + " SET " + sets + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  Use q(t.update);
  sqlite3_bind_blob(*q, 1, stored, static_cast<int>(size), SQLITE_STATIC);
  int index = 2;
  for (std::size_t i = 0; i < def.keys.size(); ++i) bindKey(*q, index++, keys[i]);
  sqlite3_bind_int64(*q, index, seq);
  int rc = committing([&] { return sqlite3_step(*q); });
  if (rc != SQLITE_DONE) return failure(rc);
  if (sqlite3_changes(db_) != 1) return QDB_E_NOCURRENT;
  t.noteChange();
  return QDB_OK;
}

std::uint32_t SqliteSession::remove(TableHandle &handle, std::int64_t seq) {
  auto &t = static_cast<SqliteTable &>(handle);
  if (!t.remove.ready()) {
    std::uint32_t r = prepare(t.remove, "DELETE FROM " + t.quotedName() + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  Use q(t.remove);
  sqlite3_bind_int64(*q, 1, seq);
  int rc = committing([&] { return sqlite3_step(*q); });
  if (rc != SQLITE_DONE) return failure(rc);
  if (sqlite3_changes(db_) != 1) return QDB_E_NOCURRENT;
  t.noteChange();
  return QDB_OK;
}

std::uint32_t SqliteSession::fetchRow(TableHandle &handle, std::int64_t seq, RowBatch *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  if (!t.bySeq.ready()) {
    std::uint32_t r =
        prepare(t.bySeq, "SELECT seq, record FROM " + t.quotedName() + " WHERE seq=?");
    if (r != QDB_OK) return r;
  }
  out->clear();
  sqlite3_bind_int64(t.bySeq.get(), 1, seq);
  return collect(t.bySeq, 1, out);
}

std::uint32_t SqliteSession::fetch(TableHandle &handle, const KeyDef &key, FetchFrom from,
                                   const KeyValue &value, std::int64_t seq, std::uint32_t limit,
                                   RowBatch *out) {
  auto &t = static_cast<SqliteTable &>(handle);
  auto &k = t.statements(key);
  out->clear();
  if (!k.first.ready()) {
    std::string column = keyColumn(key.keyNumber);
    std::string select = "SELECT seq, record FROM " + t.quotedName();
    // No LIMIT: collect stops stepping at the limit, and SQLite's counter
    // would cost a step of work on every row.
    std::string order = " ORDER BY " + column + ", seq";
    std::uint32_t r = prepare(k.first, select + order);
    if (r == QDB_OK) r = prepare(k.equal, select + " WHERE " + column + "=?1" + order);
    if (r == QDB_OK) {
      r = prepare(k.prefixRange,
                  select + " WHERE " + column + ">=?1 AND " + column + "<?2" + order);
    }
    if (r == QDB_OK) r = prepare(k.from, select + " WHERE " + column + ">=?1" + order);
    if (r == QDB_OK) {
      r = prepare(k.afterEqual, select + " WHERE " + column + "=?1 AND seq>?2" + order);
    }
    if (r == QDB_OK) r = prepare(k.afterGreater, select + " WHERE " + column + ">?1" + order);
    if (r != QDB_OK) {
      k.first.finalize();
      return r;
    }
  }
  switch (from) {
    case FetchFrom::Start:
      return collect(k.first, limit, out);
    case FetchFrom::Equal: {
      if (!value.isPrefix) {
        bindKey(k.equal.get(), 1, value);
        return collect(k.equal, limit, out);
      }
      // A shorter search value: the records whose key starts with it.
      std::size_t end = prefixEnd(value, t.prefixEnd.data());
      Statement &s = end ? k.prefixRange : k.from;
      bindKey(s.get(), 1, value);
      if (end)
        sqlite3_bind_blob(s.get(), 2, t.prefixEnd.data(), static_cast<int>(end), SQLITE_STATIC);
      return collect(s, limit, out);
    }
    case FetchFrom::From:
      bindKey(k.from.get(), 1, value);
      return collect(k.from, limit, out);
    case FetchFrom::AfterRow:
      break;
  }
  // Later records with the same key (none when the key is unique), then
  // greater keys: two indexed seeks, read in one snapshot.
  if (key.unique) {
    bindKey(k.afterGreater.get(), 1, value);
    return collect(k.afterGreater, limit, out);
  }
  bool ownRead = sqlite3_get_autocommit(db_) != 0;
  if (ownRead) {
    if (!begin_.ready() &&
        (prepare(begin_, "BEGIN") != QDB_OK || prepare(commit_, "COMMIT") != QDB_OK)) {
      begin_.finalize();
      return QDB_E_IO;
    }
    Use q(begin_);
    int rc = sqlite3_step(*q);
    if (rc != SQLITE_DONE) return failure(rc);
  }
  bindKey(k.afterEqual.get(), 1, value);
  sqlite3_bind_int64(k.afterEqual.get(), 2, seq);
  std::uint32_t r = collect(k.afterEqual, limit, out);
  if (r == QDB_OK && out->size() < limit) {
    auto rest = static_cast<std::uint32_t>(limit - out->size());
    bindKey(k.afterGreater.get(), 1, value);
    r = collect(k.afterGreater, rest, out);
  }
  if (ownRead) {
    Use q(commit_);
    sqlite3_step(*q);
  }
  return r;
}

void SqliteSession::noteRollback() {
  for (auto &entry : tables_) entry.second->noteChange();
}

std::uint32_t SqliteSession::beginRead() {
  if (execute(db_, "BEGIN") != SQLITE_OK) return QDB_E_IO;
  // The snapshot starts with the first read.
  int rc = execute(db_, "SELECT count(*) FROM alertdb_tables");
  if (rc != SQLITE_OK) {
    execute(db_, "ROLLBACK");
    return failure(rc);
  }
  return QDB_OK;
}

std::uint32_t SqliteSession::lockWrite() {
  if (readDepth_ > 0 && writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (writeDepth_ == 0) {
    int rc = execute(db_, "BEGIN IMMEDIATE");
    if (rc != SQLITE_OK) return failure(rc);
  }
  ++writeDepth_;
  lockSpanEnter();
  return QDB_OK;
}

std::uint32_t SqliteSession::unlockWrite() {
  if (writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (--writeDepth_ > 0) {
    lockSpanLeave(true);
    return QDB_OK;
  }
  commits_.bump();
  int rc = execute(db_, "COMMIT");
  commits_.bump();
  if (rc != SQLITE_OK) {
    execute(db_, "ROLLBACK");
    noteRollback();
    readDepth_ = 0;
    lockSpanLeave(false);
    return failure(rc);
  }
  lockSpanLeave(true);
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
  // A write made under the read lock commits here.
  if (--readDepth_ == 0 && writeDepth_ == 0) committing([&] { return execute(db_, "COMMIT"); });
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
  FileState state = inspectFile(path);
  if (state == FileState::Missing) {
    if (mode != kOpenCreate || !createStoreFile(path)) return nullptr;
    state = inspectFile(path);
  }
  if (state != FileState::Store) {
    if (state == FileState::Damaged) *status = QDB_E_DAMAGED;
    return nullptr;
  }
  char canonical[PATH_MAX];
  if (!::realpath(path.c_str(), canonical)) return nullptr;
  sqlite3 *db = openConnection(canonical);
  if (!db) return nullptr;
  auto session = std::make_shared<SqliteSession>(db, canonical);
  *status = session->configure(mode);
  if (*status != QDB_OK) return nullptr;
  return session;
}

}  // namespace platform::store
