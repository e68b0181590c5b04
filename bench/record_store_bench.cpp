// The record store engine beside raw SQLite doing the same work with
// prepared statements: add, find by key, next in key order.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "platform/store/record_store.h"
#include "platform/store/record_store_fixture.h"

namespace {

using alertdb_test::SampleTable;

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/alertdb-bench-XXXXXX";
    path_ = mkdtemp(pattern);
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string file(const char *name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void setId(_GUID *id, std::uint32_t n) {
  std::memset(id, 0, sizeof *id);
  // Spread the IDs over the key space as random GUIDs are.
  std::uint32_t mixed = n * 2654435761u;
  std::memcpy(id, &mixed, 4);
  std::memcpy(id->Data4, &n, 4);
}

// ------------------------------------------------------------------- engine

struct EngineStore {
  TempDir dir;
  SampleTable table;
  KEPDB *handle = nullptr;

  EngineStore() {
    handle = platform::QDBInit(0, dir.file("Bench.dat").c_str(), platform::kOpenCreate, 1);
    table.create(handle);
  }
  ~EngineStore() { platform::QDBDone(handle); }

  void add(std::uint32_t n) {
    table.fill(0, "benchmark record", n);
    setId(&table.record.id, n);
    platform::QDBRecordAdd(handle);
  }
  void fill(std::uint32_t count) {
    platform::QDBFileLock(handle);
    for (std::uint32_t n = 0; n < count; ++n) add(n);
    platform::QDBFileUnlock(handle);
  }
};

void Engine_Add(benchmark::State &state) {
  EngineStore s;
  std::uint32_t n = 0;
  for (auto _ : state) s.add(n++);
}

void Engine_AddBatched(benchmark::State &state) {
  EngineStore s;
  std::uint32_t n = 0;
  platform::QDBFileLock(s.handle);
  for (auto _ : state) {
    s.add(n++);
    if (n % 1000 == 0) {
      platform::QDBFileUnlock(s.handle);
      platform::QDBFileLock(s.handle);
    }
  }
  platform::QDBFileUnlock(s.handle);
}

void Engine_FindById(benchmark::State &state) {
  EngineStore s;
  auto count = static_cast<std::uint32_t>(state.range(0));
  s.fill(count);
  std::mt19937 random(42);
  _GUID id;
  for (auto _ : state) {
    setId(&id, random() % count);
    if (platform::QDBRecordFindAndRead(s.handle, alertdb_test::kIdKey, &id, 1, 16) != 0) {
      state.SkipWithError("not found");
    }
  }
}

void Engine_Next(benchmark::State &state) {
  EngineStore s;
  s.fill(static_cast<std::uint32_t>(state.range(0)));
  platform::QDBRecordSkipAndRead(s.handle, alertdb_test::kNumberKey, platform::kSkipFirst);
  for (auto _ : state) {
    if (platform::QDBRecordSkipAndRead(s.handle, alertdb_test::kNumberKey, platform::kSkipNext)) {
      platform::QDBRecordSkipAndRead(s.handle, alertdb_test::kNumberKey, platform::kSkipFirst);
    }
  }
}

// --------------------------------------------------------------- raw SQLite

struct SqliteStore {
  TempDir dir;
  sqlite3 *db = nullptr;
  sqlite3_stmt *insert = nullptr, *find = nullptr, *scan = nullptr;
  alertdb_test::SampleRecord record{};

  SqliteStore() {
    sqlite3_open(dir.file("Bench.db").c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                 "CREATE TABLE t(seq INTEGER PRIMARY KEY, id BLOB UNIQUE, name BLOB,"
                 " number INTEGER, record BLOB);"
                 "CREATE INDEX t_number ON t(number);",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db, "INSERT INTO t(id, name, number, record) VALUES(?,?,?,?)", -1, &insert,
                       nullptr);
    sqlite3_prepare_v2(db, "SELECT record FROM t WHERE id=?", -1, &find, nullptr);
    sqlite3_prepare_v2(db, "SELECT record FROM t ORDER BY number, seq", -1, &scan, nullptr);
  }
  ~SqliteStore() {
    sqlite3_finalize(insert);
    sqlite3_finalize(find);
    sqlite3_finalize(scan);
    sqlite3_close(db);
  }

  void add(std::uint32_t n) {
    std::memset(&record, 0, sizeof record);
    std::strcpy(record.name, "benchmark record");
    record.number = n;
    setId(&record.id, n);
    sqlite3_bind_blob(insert, 1, &record.id, 16, SQLITE_STATIC);
    sqlite3_bind_blob(insert, 2, record.name, static_cast<int>(std::strlen(record.name)),
                      SQLITE_STATIC);
    sqlite3_bind_int64(insert, 3, record.number);
    sqlite3_bind_blob(insert, 4, &record, sizeof record, SQLITE_STATIC);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  }
  void fill(std::uint32_t count) {
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    for (std::uint32_t n = 0; n < count; ++n) add(n);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  }
};

void Sqlite_Add(benchmark::State &state) {
  SqliteStore s;
  std::uint32_t n = 0;
  for (auto _ : state) s.add(n++);
}

void Sqlite_AddBatched(benchmark::State &state) {
  SqliteStore s;
  std::uint32_t n = 0;
  sqlite3_exec(s.db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  for (auto _ : state) {
    s.add(n++);
    if (n % 1000 == 0) {
      sqlite3_exec(s.db, "COMMIT; BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    }
  }
  sqlite3_exec(s.db, "COMMIT", nullptr, nullptr, nullptr);
}

void Sqlite_FindById(benchmark::State &state) {
  SqliteStore s;
  auto count = static_cast<std::uint32_t>(state.range(0));
  s.fill(count);
  std::mt19937 random(42);
  _GUID id;
  for (auto _ : state) {
    setId(&id, random() % count);
    sqlite3_bind_blob(s.find, 1, &id, 16, SQLITE_STATIC);
    if (sqlite3_step(s.find) != SQLITE_ROW) state.SkipWithError("not found");
    std::memcpy(&s.record, sqlite3_column_blob(s.find, 0), sizeof s.record);
    sqlite3_reset(s.find);
  }
}

void Sqlite_Next(benchmark::State &state) {
  SqliteStore s;
  s.fill(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    if (sqlite3_step(s.scan) != SQLITE_ROW) {
      sqlite3_reset(s.scan);
      sqlite3_step(s.scan);
    }
    std::memcpy(&s.record, sqlite3_column_blob(s.scan, 0), sizeof s.record);
  }
  sqlite3_reset(s.scan);
}

}  // namespace

BENCHMARK(Engine_Add)->Name("Engine/Add");
BENCHMARK(Sqlite_Add)->Name("Sqlite/Add");
BENCHMARK(Engine_AddBatched)->Name("Engine/AddBatched");
BENCHMARK(Sqlite_AddBatched)->Name("Sqlite/AddBatched");
BENCHMARK(Engine_FindById)->Name("Engine/FindById")->Arg(1000)->Arg(100000);
BENCHMARK(Sqlite_FindById)->Name("Sqlite/FindById")->Arg(1000)->Arg(100000);
BENCHMARK(Engine_Next)->Name("Engine/Next")->Arg(1000)->Arg(100000);
BENCHMARK(Sqlite_Next)->Name("Sqlite/Next")->Arg(1000)->Arg(100000);
