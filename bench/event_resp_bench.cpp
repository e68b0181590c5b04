// Adding the n-th event-response link: the duplicate check must cost the same
// however many links the table holds. Beside it, raw SQLite doing the same
// check and insert with prepared statements.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "alertdb.h"

namespace {

class TempDataDir {
 public:
  TempDataDir() {
    char pattern[] = "/tmp/alertdb-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    setenv("ALERTDB_DATA_DIR", path_.c_str(), 1);
  }
  ~TempDataDir() { std::filesystem::remove_all(path_); }
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

class LinkTable : public CAlertEVENT_RESPDB {
 public:
  KEPDB *handle() const { return m_hTable; }
};

ALRTEVENT_RESPREC randomLink(std::mt19937_64 &random) {
  ALRTEVENT_RESPREC link{};
  std::uint64_t words[4] = {random(), random(), random(), random()};
  std::memcpy(&link.EventClassOID, words, 16);
  std::memcpy(&link.ResponseOID, words + 2, 16);
  return link;
}

// Commits every 1000 adds, so that the figure is the add, not the disk sync.
constexpr int kBatch = 1000;

void Engine_LinkAdd(benchmark::State &state) {
  TempDataDir dir;
  auto table = std::make_unique<LinkTable>();
  table->DBCreate();
  std::mt19937_64 random(7);
  _GUID id;
  DBFileLock(table->handle());
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    ALRTEVENT_RESPREC link = randomLink(random);
    table->DBAlertRecAdd(&link, &id);
  }
  DBFileUnlock(table->handle());
  int pending = 0;
  DBFileLock(table->handle());
  for (auto _ : state) {
    ALRTEVENT_RESPREC link = randomLink(random);
    if (table->DBAlertRecAdd(&link, &id) != 0) state.SkipWithError("add failed");
    if (++pending == kBatch) {
      DBFileUnlock(table->handle());
      DBFileLock(table->handle());
      pending = 0;
    }
  }
  DBFileUnlock(table->handle());
}

void Sqlite_LinkAdd(benchmark::State &state) {
  TempDataDir dir;
  sqlite3 *db = nullptr;
  sqlite3_open((dir.path() + "/links.db").c_str(), &db);
  sqlite3_exec(db,
               "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
               "CREATE TABLE links(id BLOB UNIQUE, event_class BLOB, response BLOB);"
               "CREATE INDEX links_event_class ON links(event_class);"
               "CREATE INDEX links_response ON links(response);",
               nullptr, nullptr, nullptr);
  sqlite3_stmt *exists = nullptr, *insert = nullptr;
  sqlite3_prepare_v2(db, "SELECT 1 FROM links WHERE response=? AND event_class=?", -1, &exists,
                     nullptr);
  sqlite3_prepare_v2(db, "INSERT INTO links VALUES(?,?,?)", -1, &insert, nullptr);
  std::mt19937_64 random(7);
  auto add = [&](ALRTEVENT_RESPREC &link) {
    sqlite3_bind_blob(exists, 1, &link.ResponseOID, 16, SQLITE_STATIC);
    sqlite3_bind_blob(exists, 2, &link.EventClassOID, 16, SQLITE_STATIC);
    bool duplicate = sqlite3_step(exists) == SQLITE_ROW;
    sqlite3_reset(exists);
    if (duplicate) return;
    _GUID id;
    platform::CoCreateGuid(&id);
    sqlite3_bind_blob(insert, 1, &id, 16, SQLITE_STATIC);
    sqlite3_bind_blob(insert, 2, &link.EventClassOID, 16, SQLITE_STATIC);
    sqlite3_bind_blob(insert, 3, &link.ResponseOID, 16, SQLITE_STATIC);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  };
  sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    ALRTEVENT_RESPREC link = randomLink(random);
    add(link);
  }
  sqlite3_exec(db, "COMMIT; BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  int pending = 0;
  for (auto _ : state) {
    ALRTEVENT_RESPREC link = randomLink(random);
    add(link);
    if (++pending == kBatch) {
      sqlite3_exec(db, "COMMIT; BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
      pending = 0;
    }
  }
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_finalize(exists);
  sqlite3_finalize(insert);
  sqlite3_close(db);
}

}  // namespace

BENCHMARK(Engine_LinkAdd)->Name("Engine/LinkAdd")->Arg(100)->Arg(100000);
BENCHMARK(Sqlite_LinkAdd)->Name("Sqlite/LinkAdd")->Arg(100)->Arg(100000);
