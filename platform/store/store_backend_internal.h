// The one interface between the record store API and the database that keeps
// its files. SQLite is the backend today; a server database would be another.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/store_schema_internal.h"

namespace platform::store {

// A stored record: its place in insertion order and its image.
struct Row {
  std::int64_t seq = 0;
  std::string record;
};

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

 private:
  TableDef def_;
};

// One open data file, shared by the handles that one thread opened on it.
// Every result is an engine result (QDB_...).
class StoreSession {
 public:
  virtual ~StoreSession() = default;

  // The canonical path of the file, which identifies the session.
  virtual const std::string &path() const = 0;

  // The table of that name, or QDB_E_NOTABLE.
  virtual std::uint32_t table(const std::string &name, std::shared_ptr<TableHandle> *out) = 0;
  // Adds a table; an existing one with the same layout is accepted.
  virtual std::uint32_t createTable(const TableDef &def, std::shared_ptr<TableHandle> *out) = 0;
  virtual std::uint32_t addQueryType(const QueryTypeDef &type) = 0;
  virtual std::uint32_t tableNames(std::vector<std::string> *names) = 0;
  virtual std::uint32_t count(TableHandle &table, std::uint32_t *records) = 0;

  virtual std::uint32_t insert(TableHandle &table, const std::string &record,
                               std::int64_t *seq) = 0;
  virtual std::uint32_t update(TableHandle &table, std::int64_t seq, const std::string &record) = 0;
  virtual std::uint32_t remove(TableHandle &table, std::int64_t seq) = 0;
  virtual std::uint32_t read(TableHandle &table, std::int64_t seq, Row *out) = 0;

  // The first record, in the order of `key`, whose key equals `value`.
  virtual std::uint32_t seek(TableHandle &table, const KeyDef &key, const KeyValue &value,
                             Row *out) = 0;
  // The first record in the order of `key`.
  virtual std::uint32_t first(TableHandle &table, const KeyDef &key, Row *out) = 0;
  // The first record after (value, seq) in the order of `key`.
  virtual std::uint32_t next(TableHandle &table, const KeyDef &key, const KeyValue &value,
                             std::int64_t seq, Row *out) = 0;

  // Write transaction; changes made under it become durable together at the end.
  virtual std::uint32_t lockWrite() = 0;
  virtual std::uint32_t unlockWrite() = 0;
  // Consistent read snapshot.
  virtual std::uint32_t lockRead() = 0;
  virtual std::uint32_t unlockRead() = 0;
};

// Opens the data file at `path` in an open mode of QDBInit; null with the
// reason in `status` when the file is refused.
std::shared_ptr<StoreSession> openSqliteStore(const std::string &path, std::uint32_t mode,
                                              std::uint32_t *status);

}  // namespace platform::store
