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
#include <vector>

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

// The duplicate check alone: re-adding pairs that are linked already.
void Engine_LinkRefused(benchmark::State &state) {
  TempDataDir dir;
  auto table = std::make_unique<LinkTable>();
  table->DBCreate();
  std::mt19937_64 random(7);
  std::vector<ALRTEVENT_RESPREC> links;
  _GUID id;
  DBFileLock(table->handle());
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    links.push_back(randomLink(random));
    table->DBAlertRecAdd(&links.back(), &id);
  }
  DBFileUnlock(table->handle());
  std::size_t next = 0;
  for (auto _ : state) {
    ALRTEVENT_RESPREC again = links[next++ % links.size()];
    again.KEPOID = {};
    if (table->DBAlertRecAdd(&again, &id) != ALRT_E_LINKEXISTS) state.SkipWithError("accepted");
  }
}

// The same links in a plain SQLite table, checked and inserted by hand.
class SqliteLinks {
 public:
  explicit SqliteLinks(const std::string &dir) {
    sqlite3_open((dir + "/links.db").c_str(), &db_);
    sqlite3_exec(db_,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768;"
                 "CREATE TABLE links(id BLOB UNIQUE, event_class BLOB, response BLOB);"
                 "CREATE INDEX links_event_class ON links(event_class);"
                 "CREATE INDEX links_response ON links(response);",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db_, "SELECT 1 FROM links WHERE response=? AND event_class=?", -1, &exists_,
                       nullptr);
    sqlite3_prepare_v2(db_, "INSERT INTO links VALUES(?,?,?)", -1, &insert_, nullptr);
  }
  ~SqliteLinks() {
    sqlite3_finalize(exists_);
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
  }
  void begin() { sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); }
  void commit() { sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr); }
  // False when the pair is linked already.
  bool add(const ALRTEVENT_RESPREC &link) {
    sqlite3_bind_blob(exists_, 1, &link.ResponseOID, 16, SQLITE_STATIC);
    sqlite3_bind_blob(exists_, 2, &link.EventClassOID, 16, SQLITE_STATIC);
    bool duplicate = sqlite3_step(exists_) == SQLITE_ROW;
    sqlite3_reset(exists_);
    if (duplicate) return false;
    _GUID id;
    platform::CoCreateGuid(&id);
    sqlite3_bind_blob(insert_, 1, &id, 16, SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 2, &link.EventClassOID, 16, SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 3, &link.ResponseOID, 16, SQLITE_STATIC);
    sqlite3_step(insert_);
    sqlite3_reset(insert_);
    return true;
  }

 private:
  sqlite3 *db_ = nullptr;
  sqlite3_stmt *exists_ = nullptr, *insert_ = nullptr;
};

void Sqlite_LinkAdd(benchmark::State &state) {
  TempDataDir dir;
  SqliteLinks links(dir.path());
  std::mt19937_64 random(7);
  links.begin();
  for (std::int64_t i = 0; i < state.range(0); ++i) links.add(randomLink(random));
  links.commit();
  int pending = 0;
  links.begin();
  for (auto _ : state) {
    links.add(randomLink(random));
    if (++pending == kBatch) {
      links.commit();
      links.begin();
      pending = 0;
    }
  }
  links.commit();
}

void Sqlite_LinkRefused(benchmark::State &state) {
  TempDataDir dir;
  SqliteLinks links(dir.path());
  std::mt19937_64 random(7);
  std::vector<ALRTEVENT_RESPREC> added;
  links.begin();
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    added.push_back(randomLink(random));
    links.add(added.back());
  }
  links.commit();
  std::size_t next = 0;
  for (auto _ : state) {
    if (links.add(added[next++ % added.size()])) state.SkipWithError("accepted");
  }
}

}  // namespace

BENCHMARK(Engine_LinkRefused)->Name("Engine/LinkRefused")->Arg(100)->Arg(100000);
BENCHMARK(Engine_LinkAdd)->Name("Engine/LinkAdd")->Arg(100)->Arg(100000);
BENCHMARK(Sqlite_LinkAdd)->Name("Sqlite/LinkAdd")->Arg(100)->Arg(100000);
BENCHMARK(Sqlite_LinkRefused)->Name("Sqlite/LinkRefused")->Arg(100)->Arg(100000);
