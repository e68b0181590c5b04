// The event log: PurgeLog over a full log, and adding entries one at a time
// and in batches. Beside each, raw SQLite doing the same work: a table with
// the record image (kept as it is, where the engine stores runs of zero bytes
// as their length), the same fourteen key columns with their indexes and the
// engine's page cache size, purged by a time-ordered scan in batches of the
// same size.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "events/event_log_table.h"
#include "events/purge_log.h"
#include "framework/file_locks.h"
#include "platform/guid.h"

namespace {

constexpr int kCommitEvery = 1000;  // adds per transaction when batching
constexpr int kPurgeBatch = 256;    // as the purge groups its deletes

class TempDataDir {
 public:
  TempDataDir() {
    char pattern[] = "/tmp/alertdb-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    setenv("ALERTDB_DATA_DIR", path_.c_str(), 1);
    setenv("ALERTDB_CONSOLE_DIR", path_.c_str(), 1);
    std::ofstream(path_ + "/QADMIN.DAT") << "[Directories]\nDataDir=" << path_ << "\n";
    std::ofstream(path_ + "/QADMIN.INI") << "[Alert Log Purge Settings]\nPurgeEventLogDays=30\n";
  }
  ~TempDataDir() { std::filesystem::remove_all(path_); }
  std::string file(const char *name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The log file the purge opens, written without object manager mirroring.
class BenchLog : public CAlertEVENT_LOGDB {
 public:
  BenchLog() : CAlertEVENT_LOGDB("KEPLogDB.dat") {}
  KEPDB *handle() const { return m_hTable; }
};

// Entry n of a log written as events happened: ten seconds apart, from the
// start of 2000 on, so that all are older than 30 days.
void makeEntry(ALRTEVENT_LOGREC *e, std::uint64_t n) {
  std::memset(e, 0, sizeof *e);
  std::memset(&e->EventClass_OID, static_cast<int>(n % 50), sizeof e->EventClass_OID);
  std::time_t at = 946684800 + static_cast<std::time_t>(n) * 10;
  std::tm t{};
  gmtime_r(&at, &t);
  const unsigned char time[8] = {static_cast<unsigned char>(t.tm_year),
                                 static_cast<unsigned char>(t.tm_mon + 1),
                                 static_cast<unsigned char>(t.tm_mday),
                                 static_cast<unsigned char>(t.tm_hour),
                                 static_cast<unsigned char>(t.tm_min),
                                 static_cast<unsigned char>(t.tm_sec),
                                 0,
                                 0};
  std::memcpy(e->Time, time, sizeof time);
  e->EventID = 5 + static_cast<std::uint32_t>(n % 3);
  e->Severity = static_cast<std::uint32_t>(n % 5);
  std::strcpy(e->EventName, "Service stopped");
  std::strcpy(e->ProductName, "Alert Manager");
  std::strcpy(e->MachineName, "WORKSTATION-17");
  std::strcpy(e->UserName, "operator");
  std::strcpy(e->domainName, "HEADQUARTERS");
  std::strcpy(e->EventText, "The service stopped unexpectedly and was restarted.");
}

// The purge's own age test: the bytes through mktime, now minus then.
bool olderThanDays(const unsigned char *stamp, std::time_t now, std::uint32_t days) {
  std::tm t{};
  t.tm_year = stamp[0];
  t.tm_mon = stamp[1];
  t.tm_mday = stamp[2];
  t.tm_hour = stamp[3];
  t.tm_min = stamp[4];
  t.tm_sec = stamp[5];
  return static_cast<double>(std::uint64_t{days} * 86400u) < std::difftime(now, std::mktime(&t));
}

// ------------------------------------------------------------------- engine

void engineFill(BenchLog &log, std::int64_t count) {
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  _GUID id;
  DBFileLock(log.handle());
  for (std::int64_t n = 0; n < count; ++n) {
    makeEntry(e.get(), static_cast<std::uint64_t>(n));
    log.DBAlertRecAdd(e.get(), &id);
    if ((n + 1) % 10000 == 0) {
      DBFileUnlock(log.handle());
      DBFileLock(log.handle());
    }
  }
  DBFileUnlock(log.handle());
}

void Engine_PurgeLog(benchmark::State &state) {
  TempDataDir dir;
  BenchLog log;
  log.DBCreate();
  for (auto _ : state) {
    state.PauseTiming();
    engineFill(log, state.range(0));
    state.ResumeTiming();
    if (PurgeLog(kPurgeOldEvents) != 0) state.SkipWithError("purge failed");
  }
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  if (log.DBAlertRecFindFirst(CAlertEVENT_LOGDB::kTimeKey, 0, nullptr, e.get()) == 0) {
    state.SkipWithError("entries left");
  }
  state.counters["entries"] = static_cast<double>(state.range(0));
}

void Engine_LogAdd(benchmark::State &state) {
  TempDataDir dir;
  BenchLog log;
  log.DBCreate();
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  _GUID id;
  std::uint64_t n = 0;
  for (auto _ : state) {
    makeEntry(e.get(), n++);
    if (log.DBAlertRecAdd(e.get(), &id) != 0) state.SkipWithError("add failed");
  }
}

void Engine_LogAddBatched(benchmark::State &state) {
  TempDataDir dir;
  BenchLog log;
  log.DBCreate();
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  _GUID id;
  std::uint64_t n = 0;
  DBFileLock(log.handle());
  for (auto _ : state) {
    makeEntry(e.get(), n++);
    if (log.DBAlertRecAdd(e.get(), &id) != 0) state.SkipWithError("add failed");
    if (n % kCommitEvery == 0) {
      DBFileUnlock(log.handle());
      DBFileLock(log.handle());
    }
  }
  DBFileUnlock(log.handle());
}

// --------------------------------------------------------------- raw SQLite

// The key columns of the log, as the engine keeps them: texts up to their
// terminator, small numbers as integers, object IDs and stamps as bytes.
class SqliteLog {
 public:
  explicit SqliteLog(const std::string &path) {
    sqlite3_open(path.c_str(), &db_);
    std::string ddl =
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768;"
        "CREATE TABLE log(seq INTEGER PRIMARY KEY AUTOINCREMENT, record BLOB NOT NULL,"
        " k20 BLOB, k21 BLOB, k22 BLOB, k38 INTEGER, k23 BLOB, k24 INTEGER, k25 INTEGER,"
        " k35 BLOB, k37 BLOB, k36 BLOB, k26 BLOB, k39 BLOB, k40 BLOB, k41 BLOB);"
        "CREATE UNIQUE INDEX log_k20 ON log(k20);";
    for (const char *k : {"k21", "k22", "k38", "k23", "k24", "k25", "k35", "k37", "k36", "k26",
                          "k39", "k40", "k41"}) {
      ddl += std::string("CREATE INDEX log_") + k + " ON log(" + k + ");";
    }
    sqlite3_exec(db_, ddl.c_str(), nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db_, "INSERT INTO log VALUES(NULL,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)", -1,
                       &insert_, nullptr);
    sqlite3_prepare_v2(db_,
                       "SELECT seq, k35, record FROM log WHERE (k35, seq) > (?, ?)"
                       " ORDER BY k35, seq LIMIT 256",
                       -1, &scan_, nullptr);
    sqlite3_prepare_v2(db_, "DELETE FROM log WHERE seq=?", -1, &remove_, nullptr);
    std::memset(image_, 0, sizeof image_);
  }
  ~SqliteLog() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(scan_);
    sqlite3_finalize(remove_);
    sqlite3_close(db_);
  }

  void exec(const char *sql) { sqlite3_exec(db_, sql, nullptr, nullptr, nullptr); }

  bool add(ALRTEVENT_LOGREC *e) {
    // What the engine's add does first: a new ID, the derived fields.
    platform::CoCreateGuid(&e->KEPOID);
    e->Icon = e->EventClass_OID;
    std::memcpy(image_, e, sizeof *e);
    sqlite3_bind_blob(insert_, 1, image_, sizeof image_, SQLITE_STATIC);
    int column = 2;
    auto blob = [&](const void *p, int n) {
      sqlite3_bind_blob(insert_, column++, p, n, SQLITE_STATIC);
    };
    auto text = [&](const char *s) { blob(s, static_cast<int>(std::strlen(s))); };
    auto number = [&](std::uint32_t v) { sqlite3_bind_int64(insert_, column++, v); };
    blob(&e->KEPOID, 16);
    blob(&e->EventClass_OID, 16);
    blob(&e->SourceOID, 16);
    number(e->Ack);
    text(e->EventName);
    number(e->EventID);
    number(e->Severity);
    blob(e->Time, 8);
    text(e->MachineName);
    text(e->UserName);
    text(e->ProductName);
    text(e->domainName);
    blob(image_ + sizeof *e, 12);
    blob(image_ + sizeof *e + 12, 16);
    bool ok = sqlite3_step(insert_) == SQLITE_DONE;
    sqlite3_reset(insert_);
    return ok;
  }

  // Deletes every entry older than `days` (all but activity entries), in time order.
  void purge(std::uint32_t days) {
    std::time_t now = std::time(nullptr);
    std::string lastTime(8, '\0');
    std::int64_t lastSeq = -1;
    std::vector<std::int64_t> doomed;
    for (bool more = true; more;) {
      sqlite3_bind_blob(scan_, 1, lastTime.data(), 8, SQLITE_TRANSIENT);
      sqlite3_bind_int64(scan_, 2, lastSeq);
      int rows = 0;
      doomed.clear();
      while (sqlite3_step(scan_) == SQLITE_ROW) {
        ++rows;
        lastSeq = sqlite3_column_int64(scan_, 0);
        lastTime.assign(static_cast<const char *>(sqlite3_column_blob(scan_, 1)), 8);
        ALRTEVENT_LOGREC e;
        std::memcpy(&e, sqlite3_column_blob(scan_, 2), sizeof e);
        if (e.EventID != 12545 && olderThanDays(e.Time, now, days)) doomed.push_back(lastSeq);
      }
      sqlite3_reset(scan_);
      more = rows == kPurgeBatch;
      exec("BEGIN IMMEDIATE");
      for (std::int64_t seq : doomed) {
        sqlite3_bind_int64(remove_, 1, seq);
        sqlite3_step(remove_);
        sqlite3_reset(remove_);
      }
      exec("COMMIT");
    }
  }

  std::int64_t count() {
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db_, "SELECT count(*) FROM log", -1, &s, nullptr);
    sqlite3_step(s);
    std::int64_t n = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    return n;
  }

 private:
  sqlite3 *db_ = nullptr;
  sqlite3_stmt *insert_ = nullptr, *scan_ = nullptr, *remove_ = nullptr;
  // The record and the three fields the engine keeps beside it.
  unsigned char image_[sizeof(ALRTEVENT_LOGREC) + 12 + 16 + 4];
};

void sqliteFill(SqliteLog &log, std::int64_t count) {
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  log.exec("BEGIN IMMEDIATE");
  for (std::int64_t n = 0; n < count; ++n) {
    makeEntry(e.get(), static_cast<std::uint64_t>(n));
    log.add(e.get());
    if ((n + 1) % 10000 == 0) log.exec("COMMIT; BEGIN IMMEDIATE");
  }
  log.exec("COMMIT");
}

void Sqlite_PurgeLog(benchmark::State &state) {
  TempDataDir dir;
  SqliteLog log(dir.file("log.db"));
  for (auto _ : state) {
    state.PauseTiming();
    sqliteFill(log, state.range(0));
    state.ResumeTiming();
    log.purge(30);
  }
  if (log.count() != 0) state.SkipWithError("entries left");
  state.counters["entries"] = static_cast<double>(state.range(0));
}

void Sqlite_LogAdd(benchmark::State &state) {
  TempDataDir dir;
  SqliteLog log(dir.file("log.db"));
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  std::uint64_t n = 0;
  for (auto _ : state) {
    makeEntry(e.get(), n++);
    if (!log.add(e.get())) state.SkipWithError("add failed");
  }
}

void Sqlite_LogAddBatched(benchmark::State &state) {
  TempDataDir dir;
  SqliteLog log(dir.file("log.db"));
  auto e = std::make_unique<ALRTEVENT_LOGREC>();
  std::uint64_t n = 0;
  log.exec("BEGIN IMMEDIATE");
  for (auto _ : state) {
    makeEntry(e.get(), n++);
    if (!log.add(e.get())) state.SkipWithError("add failed");
    if (n % kCommitEvery == 0) log.exec("COMMIT; BEGIN IMMEDIATE");
  }
  log.exec("COMMIT");
}

}  // namespace

BENCHMARK(Engine_PurgeLog)
    ->Name("Engine/PurgeLog")
    ->Arg(100000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(Sqlite_PurgeLog)
    ->Name("Sqlite/PurgeLog")
    ->Arg(100000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(Engine_PurgeLog)
    ->Name("Engine/PurgeLog")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(Sqlite_PurgeLog)
    ->Name("Sqlite/PurgeLog")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);
BENCHMARK(Engine_LogAdd)->Name("Engine/LogAdd")->Unit(benchmark::kMicrosecond);
BENCHMARK(Sqlite_LogAdd)->Name("Sqlite/LogAdd")->Unit(benchmark::kMicrosecond);
BENCHMARK(Engine_LogAddBatched)->Name("Engine/LogAddBatched")->Unit(benchmark::kMicrosecond);
BENCHMARK(Sqlite_LogAddBatched)->Name("Sqlite/LogAddBatched")->Unit(benchmark::kMicrosecond);
