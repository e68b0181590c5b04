// Small pieces of the PostgreSQL backend: which server the library uses, a
// connection to it, results that free themselves, and statements prepared
// once per connection and run with binary parameters and results.
#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <string>
#include <vector>

namespace platform::store::postgres {

// The connection URI in ALERTDB_STORE when it names a PostgreSQL server;
// empty when the data files live in the data directory.
std::string serverUri();
// The URI without its password, for messages.
std::string uriForMessages(const std::string &uri);

// The server's result codes that the engine tells apart.
constexpr const char *kUniqueViolation = "23505";
constexpr const char *kSerializationFailure = "40001";
constexpr const char *kDeadlockDetected = "40P01";
constexpr const char *kLockNotAvailable = "55P03";
constexpr const char *kQueryCanceled = "57014";

class Result {
 public:
  Result() = default;
  explicit Result(PGresult *r) : r_(r) {}
  Result(const Result &) = delete;
  Result &operator=(const Result &) = delete;
  Result(Result &&other) noexcept : r_(other.r_) { other.r_ = nullptr; }
  Result &operator=(Result &&other) noexcept {
    std::swap(r_, other.r_);
    return *this;
  }
  ~Result() { PQclear(r_); }

  PGresult *get() const { return r_; }
  ExecStatusType status() const { return r_ ? PQresultStatus(r_) : PGRES_FATAL_ERROR; }
  bool ok() const { return status() == PGRES_COMMAND_OK || status() == PGRES_TUPLES_OK; }
  int rows() const { return r_ ? PQntuples(r_) : 0; }
  bool isNull(int row, int column) const { return PQgetisnull(r_, row, column) != 0; }
  const char *value(int row, int column) const { return PQgetvalue(r_, row, column); }
  int length(int row, int column) const { return PQgetlength(r_, row, column); }
  std::string text(int row, int column) const {
    return std::string(value(row, column), static_cast<std::size_t>(length(row, column)));
  }
  // A binary int8 column.
  std::int64_t int64(int row, int column) const;
  // The five-character SQLSTATE of a failure, or "".
  std::string state() const;
  // The number of rows an INSERT, UPDATE or DELETE changed.
  long changed() const;

 private:
  PGresult *r_ = nullptr;
};

// Parameters of one statement, in binary: 8-byte integers big-endian, bytes
// as they are. Byte values are borrowed and must outlive the call.
class Params {
 public:
  void clear() {
    values_.clear();
    lengths_.clear();
    numberOf_.clear();
    numbers_.clear();
  }
  void addInt64(std::int64_t v);
  void addBytes(const void *bytes, std::size_t size);
  // A text parameter (sent in binary, which for text is the text itself).
  void addText(const std::string &text) { addBytes(text.data(), text.size()); }

  int count() const { return static_cast<int>(values_.size()); }
  // The arrays libpq takes; valid until the next add or clear.
  const char *const *values();
  const int *lengths() const { return lengths_.data(); }
  const int *formats();

 private:
  std::vector<const char *> values_;
  std::vector<int> lengths_;
  std::vector<int> formats_;
  // Numbers are kept apart and pointed to only when the call is made, so
  // that growing their storage moves nothing already handed out.
  std::vector<int> numberOf_;  // per parameter: index into numbers_, or -1
  std::vector<std::uint64_t> numbers_;
};

// One connection to the server.
class Connection {
 public:
  Connection() = default;
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection() { PQfinish(conn_); }

  // Connects to `uri`; false when the server cannot be reached.
  bool open(const std::string &uri);
  // Connects again to the same server, with the same settings.
  bool reconnect();
  PGconn *get() const { return conn_; }
  bool alive() const { return conn_ && PQstatus(conn_) == CONNECTION_OK; }

  // Runs SQL without parameters (several statements allowed).
  Result execute(const std::string &sql);
  // Runs SQL with parameters, giving binary results.
  Result execute(const std::string &sql, Params &params);
  // Prepares `sql` under a name of this connection, once; empty on failure.
  // `slot` remembers the name.
  bool prepare(std::string &slot, const std::string &sql);
  Result run(const std::string &name, Params &params);

  // Whether the connection is inside a transaction block.
  bool inTransaction() const { return conn_ && PQtransactionStatus(conn_) != PQTRANS_IDLE; }

 private:
  bool configure();

  PGconn *conn_ = nullptr;
  unsigned prepared_ = 0;
};

// A connection of the calling thread for work outside any session, kept
// while the server stays the same; null when the server cannot be reached.
Connection *threadConnection(const std::string &uri);

// Doubles quotes, for SQL identifiers.
std::string quoted(const std::string &identifier);

}  // namespace platform::store::postgres
