// What every benchmark shares: the data directory of the run, the sizes, the
// pairing of engine and baseline runs, and the plain SQLite side's tools.
#pragma once

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/win_types.h"

namespace alertdb_bench {

// One temporary data directory for the whole run (the object manager's
// domain ID lives there, and both sides must store the same one).
class BenchEnvironment {
 public:
  // Made at the first use, before the library is first called.
  static BenchEnvironment &get();
  std::string file(const std::string &name) const { return dir_ + "/" + name; }
  // Removes the directory if it was made; call once every handle on its
  // files is closed.
  static void remove();

 private:
  BenchEnvironment();
  std::string dir_;
};

// 1,000 and 100,000 records; 1,000,000 too when ALERTDB_BENCH_LARGE=1.
std::vector<std::uint64_t> benchSizes();
// Engine and baseline runs of each figure: ALERTDB_BENCH_PAIRS, default 5.
int benchPairs();
// Least time each run measures, in seconds: ALERTDB_BENCH_MIN_TIME, default
// 0.2. A run whose first iteration takes longer stops after it.
double benchMinTime();

using BenchFunction = std::function<void(benchmark::State &)>;

// Registers "Engine/<work>/pair:<p>" and "Sqlite/<work>/pair:<p>" for each
// pair, alternating which side goes first, so that drift of the machine hits
// both sides alike.
void registerPaired(const std::string &work, const BenchFunction &engine,
                    const BenchFunction &baseline);

// Reports `records` records done, so that the figures are per record.
void countRecords(benchmark::State &state, std::uint64_t records);

// A table class whose record store handle can be given to the file locks.
template <class Table>
class Lockable : public Table {
 public:
  using Table::Table;
  KEPDB *handle() const { return this->m_hTable; }
};

// ------------------------------------------------------------ plain SQLite

// A prepared statement, finalized when it goes.
class Statement {
 public:
  Statement() = default;
  Statement(sqlite3 *db, const std::string &sql);
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }
  bool ready() const { return stmt_ != nullptr; }
  sqlite3_stmt *get() const { return stmt_; }

 private:
  sqlite3_stmt *stmt_ = nullptr;
};

// A connection with the engine's settings: full sync, a 32 MB page cache,
// the same busy timeout and mutex mode; null unless the file is in WAL mode.
sqlite3 *openLikeEngine(const std::string &path);
bool execute(sqlite3 *db, const char *sql);
// SELECT count(*) of a table; -1 on failure.
std::int64_t rowCount(const std::string &path, const char *table);
// Deletes the rows after the first `keep` (undoing a benchmark's adds).
bool trimTable(const std::string &path, const char *table, std::uint64_t keep);
// Moves the WAL into the file, so that the file alone is the whole store.
bool checkpoint(const std::string &path);
// "" when both files hold the same rows, column by column; else the difference.
std::string compareTables(const std::string &enginePath, const std::string &baselinePath,
                          const char *table);

// A stretch of the record image and where its bytes go.
struct Segment {
  std::size_t size;
  unsigned char *to;
};

// Decodes a stored record image (literal length, literal bytes, zero-run
// length, and so on; lengths as 7-bit varints) into consecutive segments,
// ignoring the 9 trailing bytes (checksum and mark). False when the bytes do
// not fill the segments exactly.
bool decodeImage(const void *stored, std::size_t storedSize, const Segment *segments,
                 std::size_t segmentCount);

bool isZeroId(const _GUID &id);

}  // namespace alertdb_bench
