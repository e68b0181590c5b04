// The one interface between the record store API and the database that keeps
// its files: SQLite, or a PostgreSQL server shared by several machines.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/change_counter_internal.h"
#include "platform/store/operation_lock_internal.h"
#include "platform/store/row_batch_internal.h"
#include "platform/store/store_schema_internal.h"

namespace platform::store {

// A query type registered with SchmAddQueryInfo.
struct QueryTypeDef {
  std::string name;
  std::uint32_t mask = 0;
  std::vector<std::uint32_t> values;
  std::vector<std::string> texts;
};

// A table as a session serves it; backends extend it with their own state.
class TableHandle {
 public:
  explicit TableHandle(TableDef def) : def_(std::move(def)) {}
  virtual ~TableHandle() = default;
  const TableDef &def() const { return def_; }

  // Counts this session's changes to the table (and its rollbacks), so that
  // rows fetched earlier are known to be stale.
  std::uint64_t changes() const { return changes_; }
  void noteChange() { ++changes_; }

 private:
  TableDef def_;
  std::uint64_t changes_ = 0;
};

// Where a fetch in key order starts.
enum class FetchFrom {
  Start,     // the first record
  Equal,     // the records whose key equals (or starts with) the value
  From,      // the records whose key is the value or after it
  AfterRow,  // the records after (value, seq)
};

// One open data file, shared by the handles that one thread opened on it.
// Every result is an engine result (QDB_...).
class StoreSession {
 public:
  virtual ~StoreSession() = default;

  // The canonical path of the file, which identifies the session.
  virtual const std::string &path() const = 0;
  // Held for each operation: the handles of a session may be used by more
  // than one thread, each one at a time.
  OperationLock &operationLock() { return operationLock_; }
  // Whether records written before checksums may be read (an older format).
  virtual bool acceptsLegacyRecords() const = 0;
  // Remembers that damage was met, so that nothing more is written back.
  virtual void noteDamage() = 0;

  // A mark that moves whenever any session, here or in another process,
  // commits a change to the file (and sometimes when none did). Rows fetched
  // after taking a mark are still what the file holds while it stays. Read
  // on every step of a walk, so not through a virtual call.
  bool tracksCommits() const { return commits_.available(); }
  std::uint64_t commitMark() const { return commits_.value(); }
  // Whether every fetch is a round trip to a server, which costs more than
  // the rows it brings: an enumeration then reads its largest window from
  // its second fetch on instead of growing to it.
  virtual bool fetchIsRoundTrip() const { return false; }

  // The table of that name, or QDB_E_NOTABLE.
  virtual std::uint32_t table(const std::string &name, std::shared_ptr<TableHandle> *out) = 0;
  // Adds a table; an existing one with the same layout is accepted.
  virtual std::uint32_t createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) = 0;
  virtual std::uint32_t addQueryType(const QueryTypeDef &type) = 0;
  virtual std::uint32_t tableNames(std::vector<std::string> *names) = 0;
  virtual std::uint32_t count(TableHandle &table, std::uint32_t *records) = 0;

  // Writes take the stored form of the record and its key values, in the
  // order of the table's keys.
  virtual std::uint32_t insert(TableHandle &table, const unsigned char *stored, std::size_t size,
                               const KeyValue *keys) = 0;
  virtual std::uint32_t update(TableHandle &table, std::int64_t seq, const unsigned char *stored,
                               std::size_t size, const KeyValue *keys) = 0;
  virtual std::uint32_t remove(TableHandle &table, std::int64_t seq) = 0;

  // Replaces `out` with the record at `seq`, if it is there.
  virtual std::uint32_t fetchRow(TableHandle &table, std::int64_t seq, RowBatch *out) = 0;
  // Replaces `out` with up to `limit` records in the order of `key`, in one
  // short read; QDB_OK also when none is there.
  virtual std::uint32_t fetch(TableHandle &table, const KeyDef &key, FetchFrom from,
                              const KeyValue &value, std::int64_t seq, std::uint32_t limit,
                              RowBatch *out) = 0;

  // Write transaction; changes made under it become durable together at the end.
  virtual std::uint32_t lockWrite() = 0;
  virtual std::uint32_t unlockWrite() = 0;
  // Consistent read snapshot.
  virtual std::uint32_t lockRead() = 0;
  virtual std::uint32_t unlockRead() = 0;

  // Announces a change to the other machines through the server; false when
  // the session has no server to tell.
  virtual bool announceChange() { return false; }

 protected:
  // A backend whose commits are all told to this machine's counter sets it.
  ChangeCounter commits_ = ChangeCounter::none();

 private:
  OperationLock operationLock_;
};

// Opens the data file at `path` in an open mode of QDBInit; null with the
// reason in `status` when the file is refused.
std::shared_ptr<StoreSession> openSqliteStore(const std::string &path, std::uint32_t mode,
                                              std::uint32_t *status);

// Whether the data files live on a PostgreSQL server: ALERTDB_STORE holds its
// connection URI (read at every call).
bool usesServerStore();
// The same for a data file on the server, where it is the schema named like
// the file (matched without regard to case); the directory of `path` plays
// no part.
std::shared_ptr<StoreSession> openPostgresStore(const std::string &path, std::uint32_t mode,
                                                std::uint32_t *status);
// What identifies the session of `path` on the server (its path()).
std::string serverSessionKey(const std::string &path);
// Whether the server holds a store named like the data file at `path`.
bool serverHoldsStore(const std::string &path);
// QDBCheckFile for the data file at `path` on the server.
std::uint32_t checkServerStore(const std::string &path, StoreCheckReport *report,
                               const StoreProgress &progress);

}  // namespace platform::store
