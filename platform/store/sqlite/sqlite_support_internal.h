// Small pieces shared by the SQLite backend's sources: statements that reset
// themselves, binding key values, reading columns, result mapping.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "platform/store/record_store.h"
#include "platform/store/store_schema_internal.h"

namespace platform::store::sqlite {

constexpr std::uint32_t kApplicationId = 0x414C4442;  // "ALDB"
// 1: records without checksums; 2: every record carries one.
constexpr int kLegacyFormat = 1;
constexpr int kFormatVersion = 2;
constexpr int kBusyTimeoutMs = 60000;

inline std::uint32_t resultOf(int rc) {
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
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return QDB_E_DAMAGED;
    default:
      return QDB_E_IO;
  }
}

inline std::string quoted(const std::string &identifier) {
  std::string out = "\"";
  for (char c : identifier) {
    out += c;
    if (c == '"') out += '"';
  }
  return out + "\"";
}

inline std::string keyColumn(std::uint32_t keyNumber) { return "k" + std::to_string(keyNumber); }

// The name of a key's index: "<table>:k<N>".
inline std::string keyIndexName(const std::string &table, std::uint32_t keyNumber) {
  return table + ":" + keyColumn(keyNumber);
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
  void finalize() {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
  }
  bool ready() const { return stmt_ != nullptr; }
  sqlite3_stmt *get() const { return stmt_; }

 private:
  sqlite3_stmt *stmt_ = nullptr;
};

// Resets a statement when a step is done with it, so that no statement keeps
// a read transaction open between calls.
class Use {
 public:
  explicit Use(Statement &s) : stmt_(s.get()) {}
  Use(const Use &) = delete;
  Use &operator=(const Use &) = delete;
  ~Use() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  sqlite3_stmt *operator*() const { return stmt_; }

 private:
  sqlite3_stmt *stmt_;
};

// Key bytes are bound without a copy: they outlive the step.
inline void bindKey(sqlite3_stmt *s, int index, const KeyValue &v) {
  if (v.isNumber) {
    sqlite3_bind_int64(s, index, static_cast<sqlite3_int64>(v.number));
  } else {
    static const unsigned char empty = 0;
    sqlite3_bind_blob(s, index, v.size ? v.bytes : &empty, static_cast<int>(v.size), SQLITE_STATIC);
  }
}

inline void bindText(sqlite3_stmt *s, int index, const std::string &text) {
  sqlite3_bind_text(s, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

inline std::string columnBytes(sqlite3_stmt *s, int column) {
  const void *p = sqlite3_column_blob(s, column);
  int n = sqlite3_column_bytes(s, column);
  return p ? std::string(static_cast<const char *>(p), static_cast<std::size_t>(n)) : std::string();
}

inline std::string columnText(sqlite3_stmt *s, int column) {
  const unsigned char *p = sqlite3_column_text(s, column);
  int n = sqlite3_column_bytes(s, column);
  return p ? std::string(reinterpret_cast<const char *>(p), static_cast<std::size_t>(n))
           : std::string();
}

// Whether a stored key column holds the key value.
inline bool columnHoldsKey(sqlite3_stmt *s, int column, const KeyValue &v) {
  if (v.isNumber) {
    return sqlite3_column_type(s, column) == SQLITE_INTEGER &&
           static_cast<std::uint64_t>(sqlite3_column_int64(s, column)) == v.number;
  }
  if (sqlite3_column_type(s, column) != SQLITE_BLOB) return false;
  const void *p = sqlite3_column_blob(s, column);
  auto n = static_cast<std::size_t>(sqlite3_column_bytes(s, column));
  return n == v.size && (n == 0 || std::memcmp(p, v.bytes, n) == 0);
}

inline int execute(sqlite3 *db, const char *sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
}

// The single text or number a statement gives, run once.
bool queryText(sqlite3 *db, const std::string &sql, std::string *out);
bool queryNumber(sqlite3 *db, const std::string &sql, std::int64_t *out);

}  // namespace platform::store::sqlite
