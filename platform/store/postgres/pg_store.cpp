// The record store on a PostgreSQL server. A data file is one schema of the
// server's database; each record store table is one SQL table holding the
// stored record and one indexed column per key, with the same catalog as a
// data file. A file lock takes one advisory lock keyed by the schema, which
// other file locks and catalog writers wait for, and locks every table of the
// file against writes, which a single write's own table lock waits for; so
// the holder keeps every other writer out until its commit, while a write
// outside a lock pays for no lock of its own.
#include <xxhash.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "platform/store/lock_span_internal.h"
#include "platform/store/postgres/pg_catalog_internal.h"
#include "platform/store/postgres/pg_connection_internal.h"
#include "platform/store/server_notify_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform::store {

namespace {

using namespace postgres;

std::string lowered(std::string text) {
  for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The data file's name: what follows the last slash of its path.
std::string fileNameOf(const std::string &path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::int64_t hashOf(const std::string &text) {
  return static_cast<std::int64_t>(XXH3_64bits(text.data(), text.size()));
}

void addKey(Params &p, const KeyValue &v) {
  if (v.isNumber) {
    p.addInt64(static_cast<std::int64_t>(v.number));
  } else {
    p.addBytes(v.bytes, v.size);
  }
}

// Statements of one table, prepared on the session's connection when first
// needed.
class PgTable final : public TableHandle {
 public:
  struct KeyStatements {
    std::string first, equal, prefixRange, from, after;
    std::string lookup;  // a unique key's one record: no order, no limit
  };

  explicit PgTable(TableDef def)
      : TableHandle(std::move(def)),
        keys(this->def().keys.size()),
        prefixEnd(this->def().maxKeySize) {}

  // A new connection has none of the old one's prepared statements.
  void forgetStatements() {
    for (std::string *name :
         {&insert[0], &insert[1], &update[0], &update[1], &remove, &bySeq, &exists}) {
      name->clear();
    }
    for (KeyStatements &k : keys) k = KeyStatements{};
  }

  KeyStatements &statements(const KeyDef &key) {
    return keys[static_cast<std::size_t>(&key - def().keys.data())];
  }

  // Adds and updates: [0] is its own transaction, [1] runs in one that
  // holds the file's write locks.
  std::string insert[2], update[2], remove;
  std::string bySeq, exists;
  std::vector<KeyStatements> keys;
  std::vector<unsigned char> prefixEnd;
  Params params;
};

std::string castOf(const KeyDef &k) { return k.kind == KeyKind::Number ? "::int8" : "::bytea"; }

class PgSession final : public StoreSession {
 public:
  PgSession(std::unique_ptr<Connection> conn, std::string key, std::string schema)
      : connection_(std::move(conn)),
        conn_(*connection_),
        key_(std::move(key)),
        schema_(std::move(schema)),
        lockKey_(hashOf(lowered(schema_))) {}
  ~PgSession() override;

  std::uint32_t configure(std::uint32_t mode);

  const std::string &path() const override { return key_; }
  bool acceptsLegacyRecords() const override { return false; }
  void noteDamage() override {}
  // No commit counter: another machine's commits cannot be seen without
  // asking the server, so the cursor's window bound applies instead.
  bool fetchIsRoundTrip() const override { return true; }
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
  bool announceChange() override;

 private:
  std::uint32_t checkStore();
  std::uint32_t checkStoreInSnapshot();
  // Connects again after the server ended the connection (a restart, a
  // failover), when no transaction was lost with it; the call that met the
  // loss has failed already, later ones go on.
  bool usable();
  std::uint32_t prepare(std::string &slot, const std::string &sql) {
    return conn_.prepare(slot, sql) ? QDB_OK : QDB_E_IO;
  }
  std::uint32_t collect(const Result &r, RowBatch *out);
  std::string lockParam() const { return std::to_string(lockKey_) + "::int8"; }
  // Takes the file's write locks in the transaction, begun in the same round
  // trip when `begin`; a failure leaves no transaction begun here.
  std::uint32_t takeWriteLocks(bool begin);
  static std::string lockTables(const std::vector<std::string> &names);
  // Whether a write runs inside a transaction (whose write locks it then
  // takes first) or is one of its own.
  std::uint32_t writeMode(int *held);
  std::uint32_t beginRead();
  // Schema changes outside a transaction run in one of their own, under the
  // write lock; `own` tells whether it was begun here.
  std::uint32_t beginSchemaChange(bool *own);
  std::uint32_t endSchemaChange(bool own, bool commit);
  // Ends the transaction; false when the server rolled it back.
  bool commit();
  void rollback() {
    conn_.execute("ROLLBACK");
    writeLocks_ = false;
    announce_ = false;
  }
  void noteRollback() {
    for (auto &entry : tables_) entry.second->noteChange();
  }

  std::unique_ptr<Connection> connection_;
  Connection &conn_;
  std::string key_;
  std::string schema_;
  std::int64_t lockKey_;
  std::map<std::string, std::shared_ptr<PgTable>> tables_;
  // The file's tables as the last write lock found them, in byte order.
  std::vector<std::string> fileTables_;
  bool writeLocks_ = false;  // the open transaction holds them
  bool announce_ = false;    // its commit announces a change
  int writeDepth_ = 0;
  int readDepth_ = 0;
};

PgSession::~PgSession() {
  if (conn_.alive() && conn_.inTransaction()) conn_.execute("ROLLBACK");
  // A thread that loses its session while holding the lock loses the batch.
  for (; writeDepth_ > 0; --writeDepth_) lockSpanLeave(false);
}

std::uint32_t PgSession::configure(std::uint32_t) {
  Result r = conn_.execute("SET search_path TO " + quoted(schema_) + ", pg_catalog");
  if (!r.ok()) return resultOf(r);
  // The server recovers from crashes itself: the recovery open has nothing
  // more to repair, and opens what the normal open opens.
  return checkStore();
}

bool PgSession::usable() {
  if (conn_.alive()) return true;
  if (writeDepth_ > 0 || readDepth_ > 0) return false;
  if (!conn_.reconnect()) return false;
  for (auto &entry : tables_) entry.second->forgetStatements();
  return conn_.execute("SET search_path TO " + quoted(schema_) + ", pg_catalog").ok();
}

// A schema is a store when it carries the store's mark and its catalog and
// its SQL tables agree: every listed table is there, none unlisted. All is
// read in one snapshot, so that a table another process adds meanwhile is
// seen in both or in neither.
std::uint32_t PgSession::checkStore() {
  if (!conn_.execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY").ok()) return QDB_E_IO;
  std::uint32_t r = checkStoreInSnapshot();
  conn_.execute("ROLLBACK");
  return r;
}

std::uint32_t PgSession::checkStoreInSnapshot() {
  Params p;
  p.addText(schema_);
  Result r = conn_.execute(
      "SELECT"
      " (SELECT count(*) FROM pg_tables WHERE schemaname=$1::text AND tablename IN"
      "   ('alertdb_store', 'alertdb_tables', 'alertdb_fields', 'alertdb_query_info',"
      "    'alertdb_query_types', 'alertdb_query_type_values')),"
      " (SELECT count(*) FROM pg_tables WHERE schemaname=$1::text"
      "   AND tablename NOT LIKE 'alertdb\\_%')",
      p);
  if (!r.ok()) return resultOf(r);
  if (r.int64(0, 0) != 6) return QDB_E_DAMAGED;
  std::int64_t sqlTables = r.int64(0, 1);
  Params none;
  Result mark = conn_.execute(
      "SELECT (SELECT count(*) FROM alertdb_store WHERE application_id=1095517250 AND format=2),"
      " (SELECT count(*) FROM alertdb_tables t JOIN pg_tables s ON s.tablename=t.name"
      "   AND s.schemaname=current_schema()),"
      " (SELECT count(*) FROM alertdb_tables)",
      none);
  if (!mark.ok()) return resultOf(mark);
  if (mark.int64(0, 0) != 1) return QDB_E_DAMAGED;
  if (mark.int64(0, 1) != mark.int64(0, 2) || mark.int64(0, 2) != sqlTables) return QDB_E_DAMAGED;
  return QDB_OK;
}

std::uint32_t PgSession::collect(const Result &r, RowBatch *out) {
  if (!r.ok()) return resultOf(r);
  for (int i = 0; i < r.rows(); ++i) {
    out->add(r.int64(i, 0), r.value(i, 1), static_cast<std::size_t>(r.length(i, 1)));
  }
  return QDB_OK;
}

std::uint32_t PgSession::table(const std::string &name, std::shared_ptr<TableHandle> *out) {
  if (!usable()) return QDB_E_IO;
  auto it = tables_.find(name);
  if (it != tables_.end()) {
    *out = it->second;
    return QDB_OK;
  }
  TableDef def;
  std::uint32_t r = loadTableDef(conn_, name, &def);
  if (r != QDB_OK) return r;
  auto t = std::make_shared<PgTable>(std::move(def));
  tables_[name] = t;
  *out = t;
  return QDB_OK;
}

std::uint32_t PgSession::beginSchemaChange(bool *own) {
  *own = !conn_.inTransaction();
  // Inside a read lock the catalog is written as the records are.
  if (!*own) return writeLocks_ ? QDB_OK : takeWriteLocks(false);
  Result r = conn_.execute("BEGIN; SELECT pg_advisory_xact_lock(" + lockParam() + ")");
  if (r.ok()) return QDB_OK;
  std::uint32_t status = resultOf(r);
  rollback();
  return status == QDB_E_IO ? QDB_E_BUSY : status;
}

std::uint32_t PgSession::endSchemaChange(bool own, bool commit) {
  if (!own) return QDB_OK;
  if (!commit) {
    rollback();
    return QDB_OK;
  }
  return this->commit() ? QDB_OK : QDB_E_IO;
}

bool PgSession::commit() {
  // The notification is queued in the transaction, and sent by its commit.
  Result r = conn_.execute(announce_ ? std::string("NOTIFY ") + kChangeChannel + "; COMMIT"
                                     : std::string("COMMIT"));
  writeLocks_ = false;
  announce_ = false;
  // A transaction that failed earlier ends in a rollback, reported as such.
  bool committed = r.ok() && std::strcmp(PQcmdStatus(r.get()), "COMMIT") == 0;
  if (!committed && conn_.inTransaction()) conn_.execute("ROLLBACK");
  return committed;
}

std::string PgSession::lockTables(const std::vector<std::string> &names) {
  std::string sql = "LOCK TABLE ";
  for (std::size_t i = 0; i < names.size(); ++i) sql += (i ? ", " : "") + quoted(names[i]);
  return sql + " IN EXCLUSIVE MODE";
}

// EXCLUSIVE lets readers go on and keeps out every write of another
// transaction, whose own ROW EXCLUSIVE lock waits for it. The advisory lock
// comes first, so that two lockers never hold parts of the tables each, and
// a table added meanwhile (the catalog changes only under it) is counted.
std::uint32_t PgSession::takeWriteLocks(bool begin) {
  for (int attempt = 0;; ++attempt) {
    bool known = !fileTables_.empty();
    std::string sql = begin ? "BEGIN; " : "";
    sql += "SELECT pg_advisory_xact_lock(" + lockParam() + "); ";
    if (known) {
      sql += lockTables(fileTables_) + "; SELECT count(*) FROM alertdb_tables";
    } else {
      sql += "SELECT name FROM alertdb_tables ORDER BY name COLLATE \"C\"";
    }
    Result r = conn_.execute(sql);
    std::uint32_t status = resultOf(r);
    if (status == QDB_OK && known &&
        std::strtoull(r.value(0, 0), nullptr, 10) != fileTables_.size()) {
      r = conn_.execute("SELECT name FROM alertdb_tables ORDER BY name COLLATE \"C\"");
      status = resultOf(r);
      known = false;
    }
    if (status == QDB_OK && !known) {
      std::vector<std::string> names, added;
      for (int i = 0; i < r.rows(); ++i) names.push_back(r.text(i, 0));
      std::set_difference(names.begin(), names.end(), fileTables_.begin(), fileTables_.end(),
                          std::back_inserter(added));
      if (!added.empty()) {
        r = conn_.execute(lockTables(added));
        status = resultOf(r);
      }
      if (status == QDB_OK) fileTables_ = std::move(names);
    }
    if (status == QDB_OK) {
      writeLocks_ = true;
      return QDB_OK;
    }
    // A table that went (only damage removes one) is forgotten and the
    // lock tried again.
    bool gone = r.state() == "42P01";
    if (gone) fileTables_.clear();
    // A read lock's transaction stays, failed, for its unlock to report.
    if (!begin) return status;
    rollback();
    if (!gone || attempt > 0) return status;
  }
}

std::uint32_t PgSession::writeMode(int *held) {
  *held = conn_.inTransaction() ? 1 : 0;
  return !*held || writeLocks_ ? QDB_OK : takeWriteLocks(false);
}

std::uint32_t PgSession::createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) {
  if (!usable()) return QDB_E_IO;
  if (def.name.size() > kMaxIdentifier) return QDB_E_BADARG;
  bool own = false;
  std::uint32_t r = beginSchemaChange(&own);
  if (r != QDB_OK) return r;
  if (!conn_.execute("SAVEPOINT create_table").ok()) {
    endSchemaChange(own, false);
    return QDB_E_BUSY;
  }
  TableDef existing;
  r = loadTableDef(conn_, def.name, &existing);
  if (r == QDB_OK) {
    r = existing.sameLayout(def) ? QDB_OK : QDB_E_EXISTS;
  } else if (r == QDB_E_NOTABLE) {
    // Names of another case name the same table, as in a data file.
    Params p;
    p.addText(def.name);
    Result clash = conn_.execute(
        "SELECT count(*) FROM pg_class c JOIN pg_namespace n ON n.oid=c.relnamespace"
        " WHERE n.nspname=current_schema() AND lower(c.relname)=lower($1::text)",
        p);
    if (!clash.ok()) {
      r = resultOf(clash);
    } else if (clash.int64(0, 0) != 0) {
      r = QDB_E_EXISTS;
    } else {
      r = storeTableDef(conn_, def);
    }
  }
  if (r != QDB_OK) {
    conn_.execute("ROLLBACK TO create_table");
    conn_.execute("RELEASE create_table");
    endSchemaChange(own, false);
    return r;
  }
  if (!conn_.execute("RELEASE create_table").ok() || endSchemaChange(own, true) != QDB_OK) {
    if (conn_.inTransaction()) {
      conn_.execute("ROLLBACK TO create_table");
      conn_.execute("RELEASE create_table");
    }
    endSchemaChange(own, false);
    return QDB_E_IO;
  }
  tables_.erase(def.name);
  return table(def.name, out);
}

std::uint32_t PgSession::addQueryType(const QueryTypeDef &type) {
  if (!usable()) return QDB_E_IO;
  bool own = false;
  std::uint32_t r = beginSchemaChange(&own);
  if (r != QDB_OK) return r;
  if (!conn_.execute("SAVEPOINT query_type").ok()) {
    endSchemaChange(own, false);
    return QDB_E_BUSY;
  }
  r = storeQueryType(conn_, type);
  if (r != QDB_OK) conn_.execute("ROLLBACK TO query_type");
  conn_.execute("RELEASE query_type");
  if (endSchemaChange(own, r == QDB_OK) != QDB_OK && r == QDB_OK) r = QDB_E_IO;
  return r;
}

std::uint32_t PgSession::tableNames(std::vector<std::string> *names) {
  if (!usable()) return QDB_E_IO;
  // Byte order, as a data file lists them.
  Result r = conn_.execute("SELECT name FROM alertdb_tables ORDER BY name COLLATE \"C\"");
  if (!r.ok()) return resultOf(r);
  for (int i = 0; i < r.rows(); ++i) names->push_back(r.text(i, 0));
  return QDB_OK;
}

std::uint32_t PgSession::count(TableHandle &handle, std::uint32_t *records) {
  if (!usable()) return QDB_E_IO;
  Params p;
  Result r = conn_.execute("SELECT count(*) FROM " + quoted(handle.def().name), p);
  if (!r.ok()) return resultOf(r);
  *records = static_cast<std::uint32_t>(r.int64(0, 0));
  return QDB_OK;
}

std::uint32_t PgSession::insert(TableHandle &handle, const unsigned char *stored, std::size_t size,
                                const KeyValue *keys) {
  if (!usable()) return QDB_E_IO;
  auto &t = static_cast<PgTable &>(handle);
  const TableDef &def = t.def();
  int held = 0;
  std::uint32_t r = writeMode(&held);
  if (r != QDB_OK) return r;
  if (t.insert[held].empty()) {
    std::string columns = "record", values = "$1::bytea", unique;
    int n = 2;
    for (const KeyDef &k : def.keys) {
      std::string param = "$" + std::to_string(n++) + castOf(k);
      columns += ", " + keyColumn(k.keyNumber);
      values += ", " + param;
      if (k.unique && held) {
        unique += std::string(unique.empty() ? " WHERE" : " AND") + " NOT EXISTS(SELECT 1 FROM " +
                  quoted(def.name) + " WHERE " + keyColumn(k.keyNumber) + "=" + param + ")";
      }
    }
    // In a transaction a duplicate of a unique key is looked up first, so
    // that it adds nothing and fails nothing: an error would end the batch.
    // No one else writes meanwhile, so the look-up is exact. On its own the
    // add lets the unique index refuse a duplicate.
    r = prepare(t.insert[held],
                "INSERT INTO " + quoted(def.name) + "(" + columns + ")" +
                    (unique.empty() ? " VALUES(" + values + ")" : " SELECT " + values + unique));
    if (r != QDB_OK) return r;
  }
  Params &p = t.params;
  p.clear();
  p.addBytes(stored, size);
  for (std::size_t i = 0; i < def.keys.size(); ++i) addKey(p, keys[i]);
  Result result = conn_.run(t.insert[held], p);
  if (!result.ok()) return resultOf(result);
  if (result.changed() != 1) return QDB_E_DUPLICATE;
  t.noteChange();
  return QDB_OK;
}

std::uint32_t PgSession::update(TableHandle &handle, std::int64_t seq, const unsigned char *stored,
                                std::size_t size, const KeyValue *keys) {
  if (!usable()) return QDB_E_IO;
  auto &t = static_cast<PgTable &>(handle);
  const TableDef &def = t.def();
  std::string table = quoted(def.name);
  bool uniqueKeys =
      std::any_of(def.keys.begin(), def.keys.end(), [](const KeyDef &k) { return k.unique; });
  int held = 0;
  std::uint32_t r = writeMode(&held);
  if (r != QDB_OK) return r;
  if (t.update[held].empty()) {
    std::string sets = "record=$2::bytea";
    std::string unique;
    int n = 3;
    for (const KeyDef &k : def.keys) {
      std::string param = "$" + std::to_string(n++) + castOf(k);
      sets += ", " + keyColumn(k.keyNumber) + "=" + param;
      // In a transaction a duplicate is checked for here rather than left to
      // the index, whose refusal would end it; on its own the update lets
      // the index refuse it.
      if (k.unique && held) {
        unique += " AND NOT EXISTS(SELECT 1 FROM " + table + " o WHERE o." +
                  keyColumn(k.keyNumber) + "=" + param + " AND o.seq<>$1::int8)";
      }
    }
    r = prepare(t.update[held],
                "UPDATE " + table + " SET " + sets + " WHERE seq=$1::int8" + unique);
    if (r == QDB_OK && uniqueKeys && held && t.exists.empty()) {
      r = prepare(t.exists, "SELECT count(*) FROM " + table + " WHERE seq=$1::int8");
    }
    if (r != QDB_OK) return r;
  }
  Params &p = t.params;
  p.clear();
  p.addInt64(seq);
  p.addBytes(stored, size);
  for (std::size_t i = 0; i < def.keys.size(); ++i) addKey(p, keys[i]);
  Result result = conn_.run(t.update[held], p);
  if (!result.ok()) return resultOf(result);
  if (result.changed() != 1) {
    if (!uniqueKeys || !held) return QDB_E_NOCURRENT;
    p.clear();
    p.addInt64(seq);
    Result e = conn_.run(t.exists, p);
    if (!e.ok()) return resultOf(e);
    return e.int64(0, 0) == 1 ? QDB_E_DUPLICATE : QDB_E_NOCURRENT;
  }
  t.noteChange();
  return QDB_OK;
}

std::uint32_t PgSession::remove(TableHandle &handle, std::int64_t seq) {
  if (!usable()) return QDB_E_IO;
  auto &t = static_cast<PgTable &>(handle);
  int held = 0;
  std::uint32_t r = writeMode(&held);
  if (r != QDB_OK) return r;
  if (t.remove.empty()) {
    r = prepare(t.remove, "DELETE FROM " + quoted(t.def().name) + " WHERE seq=$1::int8");
    if (r != QDB_OK) return r;
  }
  Params &p = t.params;
  p.clear();
  p.addInt64(seq);
  Result result = conn_.run(t.remove, p);
  if (!result.ok()) return resultOf(result);
  if (result.changed() != 1) return QDB_E_NOCURRENT;
  t.noteChange();
  return QDB_OK;
}

std::uint32_t PgSession::fetchRow(TableHandle &handle, std::int64_t seq, RowBatch *out) {
  if (!usable()) return QDB_E_IO;
  auto &t = static_cast<PgTable &>(handle);
  if (t.bySeq.empty()) {
    std::uint32_t r =
        prepare(t.bySeq, "SELECT seq, record FROM " + quoted(t.def().name) + " WHERE seq=$1::int8");
    if (r != QDB_OK) return r;
  }
  out->clear();
  Params &p = t.params;
  p.clear();
  p.addInt64(seq);
  return collect(conn_.run(t.bySeq, p), out);
}

std::uint32_t PgSession::fetch(TableHandle &handle, const KeyDef &key, FetchFrom from,
                               const KeyValue &value, std::int64_t seq, std::uint32_t limit,
                               RowBatch *out) {
  if (!usable()) return QDB_E_IO;
  auto &t = static_cast<PgTable &>(handle);
  auto &k = t.statements(key);
  out->clear();
  if (k.first.empty()) {
    std::string column = keyColumn(key.keyNumber);
    std::string cast = castOf(key);
    std::string select = "SELECT seq, record FROM " + quoted(t.def().name);
    // A unique key's index orders by the key alone; the others' by key and
    // insertion number, so that each walk is one index range.
    std::string order = key.unique ? " ORDER BY " + column : " ORDER BY " + column + ", seq";
    std::uint32_t r = QDB_OK;
    auto make = [&](std::string &slot, const std::string &where, int limitParam) {
      if (r != QDB_OK) return;
      r = prepare(slot,
                  select + where + order + " LIMIT $" + std::to_string(limitParam) + "::int8");
    };
    make(k.equal, " WHERE " + column + "=$1" + cast, 2);
    make(k.prefixRange, " WHERE " + column + ">=$1" + cast + " AND " + column + "<$2" + cast, 3);
    make(k.from, " WHERE " + column + ">=$1" + cast, 2);
    if (key.unique) {
      make(k.after, " WHERE " + column + ">$1" + cast, 2);
    } else {
      make(k.after, " WHERE (" + column + ", seq)>($1" + cast + ", $2::int8)", 3);
    }
    make(k.first, "", 1);
    if (r == QDB_OK && key.unique) {
      r = prepare(k.lookup, select + " WHERE " + column + "=$1" + cast);
    }
    if (r != QDB_OK) return r;
  }
  Params &p = t.params;
  p.clear();
  const std::string *statement = &k.first;
  switch (from) {
    case FetchFrom::Start:
      break;
    case FetchFrom::Equal:
      addKey(p, value);
      statement = &k.equal;
      if (key.unique && !value.isPrefix && limit > 0) return collect(conn_.run(k.lookup, p), out);
      if (value.isPrefix) {
        // A shorter search value: the records whose key starts with it.
        std::size_t end = prefixEnd(value, t.prefixEnd.data());
        if (end) {
          p.addBytes(t.prefixEnd.data(), end);
          statement = &k.prefixRange;
        } else {
          statement = &k.from;
        }
      }
      break;
    case FetchFrom::From:
      addKey(p, value);
      statement = &k.from;
      break;
    case FetchFrom::AfterRow:
      addKey(p, value);
      if (!key.unique) p.addInt64(seq);
      statement = &k.after;
      break;
  }
  p.addInt64(limit);
  return collect(conn_.run(*statement, p), out);
}

std::uint32_t PgSession::beginRead() {
  // The snapshot starts with the first read.
  Result r =
      conn_.execute("BEGIN ISOLATION LEVEL REPEATABLE READ; SELECT count(*) FROM alertdb_tables");
  if (r.ok()) return QDB_OK;
  std::uint32_t status = resultOf(r);
  conn_.execute("ROLLBACK");
  return status;
}

std::uint32_t PgSession::lockWrite() {
  if (!usable()) return QDB_E_IO;
  if (readDepth_ > 0 && writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (writeDepth_ == 0) {
    std::uint32_t r = takeWriteLocks(true);
    if (r != QDB_OK) return r;
  }
  ++writeDepth_;
  lockSpanEnter();
  return QDB_OK;
}

std::uint32_t PgSession::unlockWrite() {
  if (writeDepth_ == 0) return QDB_E_LOCKSTATE;
  if (--writeDepth_ > 0) {
    lockSpanLeave(true);
    return QDB_OK;
  }
  if (!commit()) {
    noteRollback();
    readDepth_ = 0;
    lockSpanLeave(false);
    return QDB_E_IO;
  }
  lockSpanLeave(true);
  // Read locks taken under the write lock keep a snapshot of their own.
  if (readDepth_ > 0 && beginRead() != QDB_OK) readDepth_ = 0;
  return QDB_OK;
}

std::uint32_t PgSession::lockRead() {
  if (!usable()) return QDB_E_IO;
  if (readDepth_ == 0 && writeDepth_ == 0) {
    std::uint32_t r = beginRead();
    if (r != QDB_OK) return r;
  }
  ++readDepth_;
  return QDB_OK;
}

bool PgSession::announceChange() {
  if (!usable()) return false;
  if (conn_.inTransaction()) {
    announce_ = true;
    return true;
  }
  return conn_.execute(std::string("NOTIFY ") + kChangeChannel).ok();
}

std::uint32_t PgSession::unlockRead() {
  if (readDepth_ == 0) return QDB_E_LOCKSTATE;
  // A write made under the read lock commits here.
  if (--readDepth_ == 0 && writeDepth_ == 0 && !commit()) {
    noteRollback();
    return QDB_E_IO;
  }
  return QDB_OK;
}

// Finds the schema of the data file `name`, matched without regard to case;
// creates it when asked to. Empty with the reason in `status` otherwise.
std::string findSchema(Connection &conn, const std::string &name, bool create,
                       std::uint32_t *status) {
  Params p;
  p.addText(name);
  const char *find =
      "SELECT nspname FROM pg_namespace WHERE lower(nspname)=lower($1::text)"
      " ORDER BY nspname COLLATE \"C\" LIMIT 1";
  Result r = conn.execute(find, p);
  if (!r.ok()) {
    *status = resultOf(r);
    return {};
  }
  if (r.rows() == 1) return r.text(0, 0);
  if (!create) {
    *status = QDB_E_IO;
    return {};
  }
  // Makers of stores wait for each other, so that one of them makes it and
  // the others find it whole.
  Result begin = conn.execute("BEGIN; SELECT pg_advisory_xact_lock(1095517250, 1)");
  if (!begin.ok()) {
    *status = resultOf(begin);
    conn.execute("ROLLBACK");
    return {};
  }
  r = conn.execute(find, p);
  if (r.ok() && r.rows() == 1) {
    conn.execute("COMMIT");
    return r.text(0, 0);
  }
  Result made = conn.execute("CREATE SCHEMA " + quoted(name) + "; SET LOCAL search_path TO " +
                             quoted(name) + ", pg_catalog; " + kCatalogSchema);
  if (!made.ok()) {
    *status = resultOf(made);
    conn.execute("ROLLBACK");
    return {};
  }
  Result done = conn.execute("COMMIT");
  if (!done.ok() || std::strcmp(PQcmdStatus(done.get()), "COMMIT") != 0) {
    *status = QDB_E_IO;
    return {};
  }
  return name;
}

}  // namespace

bool usesServerStore() { return !serverUri().empty(); }

bool serverHoldsStore(const std::string &path) {
  std::string name = fileNameOf(path);
  if (name.empty() || name.size() > kMaxIdentifier) return false;
  Connection *conn = threadConnection(serverUri());
  if (!conn) return false;
  Params p;
  p.addText(name);
  Result r = conn->execute(
      "SELECT count(*) FROM pg_namespace n WHERE lower(n.nspname)=lower($1::text) AND EXISTS("
      "SELECT 1 FROM pg_tables t WHERE t.schemaname=n.nspname AND t.tablename='alertdb_store')",
      p);
  return r.ok() && r.int64(0, 0) > 0;
}

std::string serverSessionKey(const std::string &path) {
  std::string uri = serverUri();
  return "postgresql:" + std::to_string(static_cast<std::uint64_t>(hashOf(uri))) + "/" +
         lowered(fileNameOf(path));
}

std::shared_ptr<StoreSession> openPostgresStore(const std::string &path, std::uint32_t mode,
                                                std::uint32_t *status) {
  *status = QDB_E_IO;
  if (mode != kOpenExisting && mode != kOpenRecover && mode != kOpenCreate) {
    *status = QDB_E_BADARG;
    return nullptr;
  }
  std::string name = fileNameOf(path);
  if (name.empty() || name.size() > kMaxIdentifier || name.find('\0') != std::string::npos) {
    *status = QDB_E_BADARG;
    return nullptr;
  }
  std::string uri = serverUri();
  if (uri.empty()) return nullptr;
  auto conn = std::make_unique<Connection>();
  if (!conn->open(uri)) return nullptr;
  std::string schema = findSchema(*conn, name, mode == kOpenCreate, status);
  if (schema.empty()) return nullptr;
  auto session = std::make_shared<PgSession>(std::move(conn), serverSessionKey(path), schema);
  *status = session->configure(mode);
  if (*status != QDB_OK) return nullptr;
  return session;
}

}  // namespace platform::store
