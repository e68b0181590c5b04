// The two sides of every figure: the engine through its table classes, as a
// user calls them, and plain SQLite doing the same work on a file of the same
// shape (created by the engine), storing the same bytes. A data set of each
// size is filled once on both sides, checked to hold the same rows, and
// reused by every benchmark of that size.
#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "framework/file_locks.h"
#include "platform/guid.h"
#include "platform/object_manager.h"
#include "platform/store/record_codec_internal.h"
#include "record_kinds.h"

namespace alertdb_bench {

constexpr std::uint64_t kCommitEvery = 1000;  // adds per transaction when batching

enum class Added { Ok, Refused, Failed };

// Calls add(i) for i from 0 to n-1 in transactions of kCommitEvery adds;
// each transaction is closed, whatever happens in it.
template <class Begin, class Commit, class Add>
bool inBatches(std::uint64_t n, Begin begin, Commit commit, Add add) {
  bool ok = true;
  for (std::uint64_t i = 0; ok && i < n;) {
    if (!begin()) return false;
    for (std::uint64_t end = std::min(n, i + kCommitEvery); ok && i < end; ++i) ok = add(i);
    ok = commit() && ok;
  }
  return ok;
}

template <class Kind>
class Baseline {
 public:
  using Rec = typename Kind::Rec;

  Baseline(const std::string &path, const _GUID &domain)
      : db_(openLikeEngine(path)),
        domain_(domain),
        image_(Kind::kImageSize),
        stored_(platform::store::storedSizeBound(Kind::kImageSize)) {
    if (!db_) return;
    insert_ = prepare(Kind::kInsert);
    if (Kind::kDuplicate) duplicate_ = prepare(Kind::kDuplicate);
    std::string from = std::string("SELECT seq, record FROM ") + Kind::kTable;
    for (std::uint32_t key : {Kind::kIdKey, Kind::kGroupKey}) {
      std::string column = key == Kind::kIdKey ? Kind::kIdColumn : Kind::kGroupColumn;
      std::string order = " ORDER BY " + column + ", seq";
      Statements &s = key == Kind::kIdKey ? byId_ : byGroup_;
      s.scan = prepare(from + order);
      s.seek = prepare(from + " WHERE " + column + ">=?" + order);
    }
    retrieve_ = prepare(std::string("SELECT record FROM ") + Kind::kTable + " WHERE " +
                        Kind::kIdColumn + "=?");
  }
  ~Baseline() {
    insert_.reset();
    duplicate_.reset();
    byId_ = {};
    byGroup_ = {};
    retrieve_.reset();
    sqlite3_close_v2(db_);
  }
  Baseline(const Baseline &) = delete;
  Baseline &operator=(const Baseline &) = delete;

  bool ready() const {
    return db_ && insert_->ready() && (!Kind::kDuplicate || duplicate_->ready()) &&
           byId_.scan->ready() && byId_.seek->ready() && byGroup_.scan->ready() &&
           byGroup_.seek->ready() && retrieve_->ready();
  }
  bool begin() { return execute(db_, "BEGIN IMMEDIATE"); }
  bool commit() { return execute(db_, "COMMIT"); }

  // What the table's add does: the duplicate check where the table has one,
  // a new object ID when the record has none, then the record and its keys.
  Added add(Rec *r) {
    if (duplicate_) {
      sqlite3_stmt *s = duplicate_->get();
      Kind::bindDuplicate(s, *r);
      int rc = sqlite3_step(s);
      sqlite3_reset(s);
      if (rc == SQLITE_ROW) return Added::Refused;
      if (rc != SQLITE_DONE) return Added::Failed;
    }
    if (isZeroId(r->KEPOID) && platform::CoCreateGuid(&r->KEPOID) != 0) return Added::Failed;
    Kind::prepare(r, &extra_, domain_);
    Kind::gather(*r, extra_, image_.data());
    std::size_t size = platform::store::encodeRecord(image_.data(), image_.size(), stored_.data());
    sqlite3_stmt *s = insert_->get();
    sqlite3_bind_blob(s, 1, stored_.data(), static_cast<int>(size), SQLITE_STATIC);
    Kind::bindKeys(s, *r, extra_);
    int rc = sqlite3_step(s);
    sqlite3_reset(s);
    return rc == SQLITE_DONE ? Added::Ok : Added::Failed;
  }

  // A walk in key order: one streaming statement, every row decoded.
  sqlite3_stmt *scan(std::uint32_t key) {
    sqlite3_stmt *s = statements(key).scan->get();
    sqlite3_reset(s);
    return s;
  }
  // 1 when the next row of `s` is in `r`, 0 at the end, -1 on failure.
  int step(sqlite3_stmt *s, Rec *r, int column = 1) {
    int rc = sqlite3_step(s);
    if (rc == SQLITE_DONE) return 0;
    if (rc != SQLITE_ROW) return -1;
    return decode(s, column, r) ? 1 : -1;
  }

  // The first record whose key is the value or after it.
  bool findFirst(std::uint32_t key, const KeyBytes &value, Rec *r) {
    sqlite3_stmt *s = statements(key).seek->get();
    if (key == Kind::kIdKey) {
      sqlite3_bind_blob(s, 1, value.bytes, static_cast<int>(value.length), SQLITE_STATIC);
    } else {
      Kind::bindGroup(s, 1, value);
    }
    bool found = step(s, r) == 1;
    sqlite3_reset(s);
    return found;
  }

  bool retrieve(const _GUID &id, Rec *r) {
    sqlite3_stmt *s = retrieve_->get();
    sqlite3_bind_blob(s, 1, &id, sizeof id, SQLITE_STATIC);
    bool found = step(s, r, 0) == 1;
    sqlite3_reset(s);
    return found;
  }

  // "" when every stored record decodes to the record it was made from,
  // with the fields beside it as the engine's table keeps them.
  std::string checkContents(std::uint64_t count) {
    Statement all(db_, std::string("SELECT seq, record FROM ") + Kind::kTable + " ORDER BY seq");
    auto r = std::make_unique<Rec>();
    typename Kind::Extra expected{};
    auto probe = std::make_unique<Rec>();
    Kind::prepare(probe.get(), &expected, domain_);
    std::uint64_t n = 0;
    for (int got; (got = step(all.get(), r.get())) != 0; ++n) {
      if (got < 0) return "a stored record does not decode";
      if (!Kind::is(*r, n, count) || std::memcmp(&extra_, &expected, sizeof expected) != 0) {
        return "record " + std::to_string(n) + " does not read back as written";
      }
    }
    return n == count ? "" : "the data set holds " + std::to_string(n) + " records";
  }

 private:
  struct Statements {
    std::unique_ptr<Statement> scan, seek;
  };

  std::unique_ptr<Statement> prepare(const std::string &sql) {
    return std::make_unique<Statement>(db_, sql);
  }
  Statements &statements(std::uint32_t key) { return key == Kind::kIdKey ? byId_ : byGroup_; }

  bool decode(sqlite3_stmt *s, int column, Rec *r) {
    Segment segments[Kind::kSegments];
    Kind::segments(r, &extra_, segments);
    return decodeImage(sqlite3_column_blob(s, column),
                       static_cast<std::size_t>(sqlite3_column_bytes(s, column)), segments,
                       Kind::kSegments);
  }

  sqlite3 *db_;
  _GUID domain_;
  // The fields the engine's table object keeps beside the record.
  typename Kind::Extra extra_{};
  std::vector<unsigned char> image_, stored_;
  std::unique_ptr<Statement> insert_, duplicate_, retrieve_;
  Statements byId_, byGroup_;
};

// A record of the data set, looked up by ID or by its group's key value.
struct Probe {
  std::uint64_t index;
  KeyBytes id;
  KeyBytes group;
};

template <class Kind>
struct Dataset {
  using Rec = typename Kind::Rec;

  std::uint64_t count = 0;
  std::string engineName, baselineName;  // in the data directory
  std::unique_ptr<typename Kind::Table> engine;
  std::unique_ptr<Baseline<Kind>> baseline;
  std::vector<Probe> probes;  // in a random order
  std::string error;          // why the data set is unusable

  std::string enginePath() const { return BenchEnvironment::get().file(engineName); }
  std::string baselinePath() const { return BenchEnvironment::get().file(baselineName); }

  ~Dataset() {
    engine.reset();
    baseline.reset();
    for (const std::string &path : {enginePath(), baselinePath()}) {
      for (const char *suffix : {"", "-wal", "-shm"}) {
        std::error_code ignored;
        std::filesystem::remove(path + suffix, ignored);
      }
    }
  }

  void fill() {
    auto r = std::make_unique<Rec>();
    KEPDB *h = engine->handle();
    _GUID id;
    if (!inBatches(
            count, [h] { return DBFileLock(h) == 0; }, [h] { return DBFileUnlock(h) == 0; },
            [&](std::uint64_t n) {
              Kind::make(n, count, r.get());
              return engine->DBAlertRecAdd(r.get(), &id) == 0;
            })) {
      error = "the engine's fill failed";
      return;
    }
    Baseline<Kind> &b = *baseline;
    if (!inBatches(
            count, [&b] { return b.begin(); }, [&b] { return b.commit(); },
            [&](std::uint64_t n) {
              Kind::make(n, count, r.get());
              return b.add(r.get()) == Added::Ok;
            })) {
      error = "the baseline's fill failed";
    }
  }

  void makeProbes() {
    std::mt19937_64 random(count);
    auto r = std::make_unique<Rec>();
    probes.resize(count < 65536 ? count : 65536);
    for (Probe &p : probes) {
      p.index = random() % count;
      Kind::make(p.index, count, r.get());
      std::memcpy(p.id.bytes, &r->KEPOID, 16);
      p.id.length = 16;
      p.group = Kind::groupValue(*r);
    }
  }
};

template <class Kind>
std::unique_ptr<Dataset<Kind>> buildDataset(std::uint64_t count) {
  BenchEnvironment::get();  // the library reads the data directory from it
  auto d = std::make_unique<Dataset<Kind>>();
  d->count = count;
  d->engineName = std::string("Engine") + Kind::kName + std::to_string(count) + ".dat";
  d->baselineName = std::string("Sqlite") + Kind::kName + std::to_string(count) + ".dat";
  _GUID domain{};
  if (platform::KepOMGetDomainID(&domain) != 0) {
    d->error = "no domain ID";
    return d;
  }
  {
    // The baseline's file and table are made by the engine, then left to SQLite.
    typename Kind::Table maker(d->baselineName.c_str());
    if (maker.DBCreate() != 0) d->error = "cannot create the baseline's table";
  }
  d->baseline = std::make_unique<Baseline<Kind>>(d->baselinePath(), domain);
  d->engine = std::make_unique<typename Kind::Table>(d->engineName.c_str());
  if (d->error.empty() && !d->baseline->ready()) d->error = "cannot open the baseline's table";
  if (d->error.empty() && d->engine->DBCreate() != 0) d->error = "cannot create the engine's table";
  if (d->error.empty()) d->fill();
  if (d->error.empty()) {
    std::string difference = compareTables(d->enginePath(), d->baselinePath(), Kind::kTable);
    if (!difference.empty()) d->error = "the sides store different rows: " + difference;
  }
  if (d->error.empty()) d->error = d->baseline->checkContents(count);
  d->makeProbes();
  return d;
}

// Closes every data set (before the data directory goes).
void releaseDatasets();
void onRelease(std::function<void()> release);

// The data set of `count` records; the one of another size made before is
// dropped first, so that at most one of each record size is on disk.
template <class Kind>
Dataset<Kind> &dataset(std::uint64_t count) {
  static std::unique_ptr<Dataset<Kind>> current;
  static bool registered = false;
  if (!registered) {
    onRelease([] { current.reset(); });
    registered = true;
  }
  if (!current || current->count != count) {
    current.reset();
    current = buildDataset<Kind>(count);
  }
  return *current;
}

}  // namespace alertdb_bench
