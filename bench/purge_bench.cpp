// PurgeLog over a full log (a copy of the log data set, every entry older
// than the 30 days the run's settings keep), beside plain SQLite doing the
// same: the entries in time order, each decoded and its age tested, the old
// ones deleted with a commit every 256 deletes.
#include <benchmark/benchmark.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_main.h"
#include "events/purge_log.h"
#include "table_sides.h"

namespace alertdb_bench {

namespace {

constexpr int kPurgeWindow = 256;
constexpr std::uint32_t kPurgeDays = 30;
constexpr std::uint32_t kActivityEventId = 12545;    // kept by this purge
constexpr const char *kPurgedFile = "KEPLogDB.dat";  // the file PurgeLog opens
constexpr const char *kBaselineFile = "SqlitePurge.dat";

// The purge's age test: the stamp's bytes through mktime, now minus then.
bool olderThan(std::time_t now, const unsigned char *stamp, std::uint32_t days) {
  std::tm t{};
  t.tm_year = stamp[0];
  t.tm_mon = stamp[1];
  t.tm_mday = stamp[2];
  t.tm_hour = stamp[3];
  t.tm_min = stamp[4];
  t.tm_sec = stamp[5];
  return static_cast<double>(std::uint64_t{days} * 86400u) < std::difftime(now, std::mktime(&t));
}

// A copy of a data set's store, the WAL moved into the file first.
bool copyStore(const std::string &from, const std::string &to) {
  if (!checkpoint(from)) return false;
  std::error_code error;
  for (const char *suffix : {"", "-wal", "-shm"}) std::filesystem::remove(to + suffix, error);
  std::filesystem::copy_file(from, to, error);
  return !error;
}

bool purgeWithSqlite(const std::string &path) {
  sqlite3 *db = openLikeEngine(path);
  if (!db) return false;
  bool ok = true;
  {
    Statement scan(db,
                   "SELECT seq, k35, record FROM \"EVENT_LOG\" WHERE (k35, seq) > (?, ?)"
                   " ORDER BY k35, seq LIMIT 256");
    Statement remove(db, "DELETE FROM \"EVENT_LOG\" WHERE seq=?");
    ok = scan.ready() && remove.ready();
    auto e = std::make_unique<LogKind::Rec>();
    LogKind::Extra extra;
    Segment segments[LogKind::kSegments];
    LogKind::segments(e.get(), &extra, segments);
    const std::time_t now = std::time(nullptr);
    unsigned char lastTime[8] = {};
    std::int64_t lastSeq = -1;
    std::vector<std::int64_t> doomed;
    for (bool more = ok; more;) {
      sqlite3_bind_blob(scan.get(), 1, lastTime, sizeof lastTime, SQLITE_STATIC);
      sqlite3_bind_int64(scan.get(), 2, lastSeq);
      int rows = 0, rc;
      doomed.clear();
      while ((rc = sqlite3_step(scan.get())) == SQLITE_ROW) {
        ++rows;
        lastSeq = sqlite3_column_int64(scan.get(), 0);
        std::memcpy(lastTime, sqlite3_column_blob(scan.get(), 1), sizeof lastTime);
        if (!decodeImage(sqlite3_column_blob(scan.get(), 2),
                         static_cast<std::size_t>(sqlite3_column_bytes(scan.get(), 2)), segments,
                         LogKind::kSegments)) {
          rc = SQLITE_CORRUPT;
          break;
        }
        if (e->EventID != kActivityEventId && olderThan(now, e->Time, kPurgeDays)) {
          doomed.push_back(lastSeq);
        }
      }
      sqlite3_reset(scan.get());
      ok = rc == SQLITE_DONE && execute(db, "BEGIN IMMEDIATE");
      for (std::size_t i = 0; ok && i < doomed.size(); ++i) {
        sqlite3_bind_int64(remove.get(), 1, doomed[i]);
        ok = sqlite3_step(remove.get()) == SQLITE_DONE;
        sqlite3_reset(remove.get());
      }
      ok = execute(db, "COMMIT") && ok;
      more = ok && rows == kPurgeWindow;
    }
  }
  sqlite3_close_v2(db);
  return ok;
}

void enginePurge(benchmark::State &state, std::uint64_t count) {
  Dataset<LogKind> &d = dataset<LogKind>(count);
  if (!d.error.empty()) {
    state.SkipWithError(d.error.c_str());
    return;
  }
  const std::string file = BenchEnvironment::get().file(kPurgedFile);
  for (auto _ : state) {
    state.PauseTiming();
    bool ok = copyStore(d.enginePath(), file);
    state.ResumeTiming();
    ok = ok && PurgeLog(kPurgeOldEvents) == 0;
    state.PauseTiming();
    ok = ok && rowCount(file, LogKind::kTable) == 0;
    state.ResumeTiming();
    if (!ok) {
      state.SkipWithError("the purge left entries or failed");
      break;
    }
  }
  countRecords(state, state.iterations() * count);
}

void baselinePurge(benchmark::State &state, std::uint64_t count) {
  Dataset<LogKind> &d = dataset<LogKind>(count);
  if (!d.error.empty()) {
    state.SkipWithError(d.error.c_str());
    return;
  }
  const std::string file = BenchEnvironment::get().file(kBaselineFile);
  for (auto _ : state) {
    state.PauseTiming();
    bool ok = copyStore(d.baselinePath(), file);
    state.ResumeTiming();
    ok = ok && purgeWithSqlite(file);
    state.PauseTiming();
    ok = ok && rowCount(file, LogKind::kTable) == 0;
    state.ResumeTiming();
    if (!ok) {
      state.SkipWithError("the purge left entries or failed");
      break;
    }
  }
  countRecords(state, state.iterations() * count);
}

}  // namespace

void registerPurgeBenchmarks(std::uint64_t count) {
  registerPaired(
      "PurgeLog/" + std::to_string(count), [count](benchmark::State &s) { enginePurge(s, count); },
      [count](benchmark::State &s) { baselinePurge(s, count); });
}

}  // namespace alertdb_bench
