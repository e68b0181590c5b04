#include "bench_support.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace alertdb_bench {

namespace {

constexpr int kBusyTimeoutMs = 60000;  // as the engine waits
constexpr std::size_t kTrailerSize = 9;

bool readLength(const unsigned char *&p, const unsigned char *end, std::size_t *n) {
  std::size_t value = 0;
  for (int shift = 0; p < end && shift < 35; shift += 7) {
    unsigned char byte = *p++;
    value |= static_cast<std::size_t>(byte & 0x7F) << shift;
    if (!(byte & 0x80)) {
      *n = value;
      return true;
    }
  }
  return false;
}

int envInt(const char *name, int fallback) {
  const char *value = std::getenv(name);
  return value && *value ? std::atoi(value) : fallback;
}

}  // namespace

namespace {
BenchEnvironment *g_environment = nullptr;
}  // namespace

BenchEnvironment &BenchEnvironment::get() {
  if (!g_environment) g_environment = new BenchEnvironment;
  return *g_environment;
}

BenchEnvironment::BenchEnvironment() {
  const char *tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/alertdb-bench-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary directory");
  dir_ = pattern;
  setenv("ALERTDB_DATA_DIR", dir_.c_str(), 1);
  setenv("ALERTDB_CONSOLE_DIR", dir_.c_str(), 1);
  // Change signals of the link table stay out of other programs' way.
  setenv("ALERTDB_EVENT_NAMESPACE", "alertdb-bench.", 1);
  std::ofstream(file("QADMIN.DAT")) << "[Directories]\nDataDir=" << dir_ << "\n";
  std::ofstream(file("QADMIN.INI")) << "[Alert Log Purge Settings]\nPurgeEventLogDays=30\n";
}

void BenchEnvironment::remove() {
  if (!g_environment) return;
  std::error_code ignored;
  std::filesystem::remove_all(g_environment->dir_, ignored);
  delete g_environment;
  g_environment = nullptr;
}

std::vector<std::uint64_t> benchSizes() {
  std::vector<std::uint64_t> sizes = {1000, 100000};
  if (envInt("ALERTDB_BENCH_LARGE", 0) == 1) sizes.push_back(1000000);
  return sizes;
}

int benchPairs() { return std::max(1, envInt("ALERTDB_BENCH_PAIRS", 5)); }

double benchMinTime() {
  const char *value = std::getenv("ALERTDB_BENCH_MIN_TIME");
  double seconds = value && *value ? std::atof(value) : 0.2;
  return seconds > 0 ? seconds : 0.2;
}

void registerPaired(const std::string &work, const BenchFunction &engine,
                    const BenchFunction &baseline) {
  for (int pair = 0; pair < benchPairs(); ++pair) {
    std::string suffix = "/" + work + "/pair:" + std::to_string(pair);
    auto side = [&](const char *name, const BenchFunction &body) {
      auto *b = benchmark::RegisterBenchmark((name + suffix).c_str(),
                                             [body](benchmark::State &state) { body(state); });
      b->UseRealTime()->Unit(benchmark::kMicrosecond)->MinTime(benchMinTime());
    };
    if (pair % 2 == 0) {
      side("Engine", engine);
      side("Sqlite", baseline);
    } else {
      side("Sqlite", baseline);
      side("Engine", engine);
    }
  }
}

void countRecords(benchmark::State &state, std::uint64_t records) {
  state.counters["records"] = benchmark::Counter(static_cast<double>(records));
  state.counters["per_record"] = benchmark::Counter(
      static_cast<double>(records), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// ------------------------------------------------------------ plain SQLite

Statement::Statement(sqlite3 *db, const std::string &sql) {
  if (db && sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt_, nullptr) != SQLITE_OK) {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
  }
}

bool execute(sqlite3 *db, const char *sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

sqlite3 *openLikeEngine(const std::string &path) {
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) !=
      SQLITE_OK) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  bool wal = false;
  if (execute(db, "PRAGMA synchronous=FULL; PRAGMA cache_size=-32768")) {
    Statement journal(db, "PRAGMA journal_mode");
    wal = journal.ready() && sqlite3_step(journal.get()) == SQLITE_ROW &&
          std::strcmp(reinterpret_cast<const char *>(sqlite3_column_text(journal.get(), 0)),
                      "wal") == 0;
  }
  if (!wal) {
    sqlite3_close_v2(db);
    return nullptr;
  }
  return db;
}

std::int64_t rowCount(const std::string &path, const char *table) {
  sqlite3 *db = openLikeEngine(path);
  if (!db) return -1;
  std::int64_t n = -1;
  {
    Statement count(db, std::string("SELECT count(*) FROM ") + table);
    if (count.ready() && sqlite3_step(count.get()) == SQLITE_ROW) {
      n = sqlite3_column_int64(count.get(), 0);
    }
  }
  sqlite3_close_v2(db);
  return n;
}

bool trimTable(const std::string &path, const char *table, std::uint64_t keep) {
  sqlite3 *db = openLikeEngine(path);
  if (!db) return false;
  bool ok = false;
  {
    Statement trim(db, std::string("DELETE FROM ") + table + " WHERE seq>?");
    if (trim.ready()) {
      sqlite3_bind_int64(trim.get(), 1, static_cast<sqlite3_int64>(keep));
      ok = sqlite3_step(trim.get()) == SQLITE_DONE;
    }
  }
  sqlite3_close_v2(db);
  return ok;
}

bool checkpoint(const std::string &path) {
  sqlite3 *db = openLikeEngine(path);
  if (!db) return false;
  bool ok = execute(db, "PRAGMA wal_checkpoint(TRUNCATE)");
  sqlite3_close_v2(db);
  return ok;
}

std::string compareTables(const std::string &enginePath, const std::string &baselinePath,
                          const char *table) {
  sqlite3 *a = openLikeEngine(enginePath);
  sqlite3 *b = openLikeEngine(baselinePath);
  std::string difference;
  {
    std::string sql = std::string("SELECT * FROM ") + table + " ORDER BY seq";
    Statement left(a, sql), right(b, sql);
    if (!a || !b || !left.ready() || !right.ready()) {
      difference = "cannot read both files";
    } else {
      for (std::int64_t row = 1; difference.empty(); ++row) {
        int l = sqlite3_step(left.get()), r = sqlite3_step(right.get());
        if (l == SQLITE_DONE && r == SQLITE_DONE) break;
        if (l != SQLITE_ROW || r != SQLITE_ROW) {
          difference = "row " + std::to_string(row) + " is missing on one side";
          break;
        }
        int columns = sqlite3_column_count(left.get());
        if (columns != sqlite3_column_count(right.get())) difference = "column counts differ";
        for (int c = 0; c < columns && difference.empty(); ++c) {
          int type = sqlite3_column_type(left.get(), c);
          bool same = type == sqlite3_column_type(right.get(), c);
          if (same && type == SQLITE_INTEGER) {
            same = sqlite3_column_int64(left.get(), c) == sqlite3_column_int64(right.get(), c);
          } else if (same && type != SQLITE_NULL) {
            const void *x = sqlite3_column_blob(left.get(), c);
            const void *y = sqlite3_column_blob(right.get(), c);
            int n = sqlite3_column_bytes(left.get(), c);
            same =
                n == sqlite3_column_bytes(right.get(), c) && (n == 0 || std::memcmp(x, y, n) == 0);
          }
          if (!same) {
            difference = std::string("row ") + std::to_string(row) + " differs in column " +
                         sqlite3_column_name(left.get(), c);
          }
        }
      }
    }
  }
  sqlite3_close_v2(a);
  sqlite3_close_v2(b);
  return difference;
}

bool decodeImage(const void *stored, std::size_t storedSize, const Segment *segments,
                 std::size_t segmentCount) {
  if (storedSize < kTrailerSize) return false;
  const auto *p = static_cast<const unsigned char *>(stored);
  const unsigned char *end = p + storedSize - kTrailerSize;
  std::size_t segment = 0, within = 0;
  // Writes n bytes from `from`, or n zeros, at the current place.
  auto put = [&](const unsigned char *from, std::size_t n) {
    while (n > 0) {
      if (segment == segmentCount) return false;
      std::size_t part = std::min(n, segments[segment].size - within);
      if (from) {
        std::memcpy(segments[segment].to + within, from, part);
        from += part;
      } else {
        std::memset(segments[segment].to + within, 0, part);
      }
      n -= part;
      within += part;
      if (within == segments[segment].size) {
        ++segment;
        within = 0;
      }
    }
    return true;
  };
  while (p < end) {
    std::size_t literal = 0, zeros = 0;
    if (!readLength(p, end, &literal) || literal > static_cast<std::size_t>(end - p) ||
        !put(p, literal)) {
      return false;
    }
    p += literal;
    if (!readLength(p, end, &zeros) || !put(nullptr, zeros)) return false;
  }
  return segment == segmentCount;
}

bool isZeroId(const _GUID &id) {
  static const _GUID zero{};
  return std::memcmp(&id, &zero, sizeof id) == 0;
}

}  // namespace alertdb_bench
