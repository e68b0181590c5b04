// The record store on a PostgreSQL server beside plain libpq doing the same
// work with prepared statements on the same schema and the same stored bytes,
// then the same on SQLite beside plain SQLite: batched and single adds, finds
// by the unique key, a walk in the order of a number key, a record read by
// its key and written back. Each figure is the median time per record of
// several runs of each side, the engine's median over the plain side's, and
// the median of the runs' own ratios. On a server of this machine the
// processor time of each side (the bench's thread and the server's
// connection processes) is given too: other work on the machine delays
// both sides' round trips by whole time slices, but it hardly changes the
// work each side makes the processor do.
//
// ALERTDB_BENCH_POSTGRES names the server (a connection URI of an empty
// database); without it a throw-away server is started with the test
// script, which turns its durability off (the same for both sides).
// ALERTDB_BENCH_RUNS and ALERTDB_BENCH_ONLY: see runs() and chosen().
#include <libpq-fe.h>
#include <sched.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/memory_blocks.h"
#include "platform/store/record_codec_internal.h"
#include "platform/store/record_store.h"

using namespace platform;

namespace {

constexpr std::uint32_t kRecords = 2000;

// ALERTDB_BENCH_RUNS (default 7) runs of each side.
int runs() {
  const char *text = std::getenv("ALERTDB_BENCH_RUNS");
  int n = text ? std::atoi(text) : 0;
  return n > 0 ? n : 7;
}

// ALERTDB_BENCH_ONLY: only the figures whose title ("PostgreSQL: ...",
// "SQLite: ...") and work name hold this text.
bool chosen(const std::string &title, const std::string &name) {
  const char *only = std::getenv("ALERTDB_BENCH_ONLY");
  return !only || (title + " " + name).find(only) != std::string::npos;
}

#pragma pack(push, 1)
struct Rec {
  _GUID id;              // key 1, unique
  char name[33];         // key 2
  std::uint32_t number;  // key 3
  unsigned char payload[200];
};
#pragma pack(pop)

struct Table {
  Rec rec{};
  std::vector<FieldTemplate> templates;
  Table() {
    auto field = [](std::uint32_t key, std::uint32_t size, void *at, std::uint32_t flags) {
      FieldTemplate t{};
      t.keyNumber = key;
      t.size = t.sizeAgain = size;
      t.storage = at;
      t.flags = flags;
      return t;
    };
    templates = {field(1, 16, &rec.id, 0x311), field(2, 33, rec.name, 0x1),
                 field(3, 4, &rec.number, 0x7), field(0, 200, rec.payload, 0x30D)};
  }
  void fill(std::uint32_t n) {
    std::memset(&rec, 0, sizeof rec);
    std::memcpy(&rec.id, &n, sizeof n);
    rec.id.Data4[0] = 0xB1;
    std::snprintf(rec.name, sizeof rec.name, "record %u", n % 97);
    rec.number = n;
    for (std::size_t i = 0; i < 40; ++i) rec.payload[i] = static_cast<unsigned char>(n + i);
  }
};

std::uint32_t createTable(KEPDB *h, Table &t) {
  const char *names[] = {"KEPOID", "Name", "Number", "Payload"};
  TableDescriptor d{};
  d.size = sizeof d;
  d.idKey = 1;
  d.tableName = const_cast<char *>("Bench_Table");
  SchmLoadStrings(nullptr, &d.fieldNames, &d.fieldNamesAux, names, 0, 4);
  SchmLoadStrings(nullptr, &d.descriptions, &d.descriptionsAux, names, 0, 4);
  d.title = const_cast<char *>("Bench");
  d.fieldCount = 4;
  std::vector<QueryInfoEntry> info(3);
  for (std::uint16_t k = 1; k <= 3; ++k) {
    info[k - 1] = QueryInfoEntry{};
    info[k - 1].entrySize = 20;
    info[k - 1].keyNumber = k;
    info[k - 1].fieldRef = k;
    info[k - 1].kind = k == 1 ? 1 : 2;
  }
  d.queryInfoCount = 3;
  d.secondKey = 0xFFFFFFFF;
  d.templateSize = 32;
  d.templates = t.templates.data();
  d.queryInfo = info.data();
  d.one = 1;
  std::uint32_t r = SchmAddTableEntry(h, &d);
  MemFree(d.fieldNames);
  MemFree(d.descriptions);
  return r == 0 ? SchmSetCurrentTbl(h, "Bench_Table", t.templates.data()) : r;
}

// The stored form of a record and its key values, as the engine makes them.
struct Row {
  std::string stored, id, name;
  std::int64_t number;
};

Row rowOf(const Rec &r) {
  std::vector<unsigned char> stored(store::storedSizeBound(sizeof r));
  std::size_t n =
      store::encodeRecord(reinterpret_cast<const unsigned char *>(&r), sizeof r, stored.data());
  return {std::string(reinterpret_cast<char *>(stored.data()), n),
          std::string(reinterpret_cast<const char *>(&r.id), 16),
          std::string(r.name, std::strlen(r.name)), r.number};
}

bool decode(const void *stored, std::size_t size, Rec *out) {
  return store::decodeRecord(stored, size, sizeof *out, reinterpret_cast<unsigned char *>(out),
                             false);
}

// A program that keeps the same rows without the library.
class PlainSide {
 public:
  virtual ~PlainSide() = default;
  virtual void begin() = 0;
  virtual void commit() = 0;
  virtual void add(const Row &row) = 0;
  virtual bool find(const std::string &id, Rec *out) = 0;
  // Reads up to `most` records in number order, 64 a statement.
  virtual std::uint32_t walk(std::uint32_t most) = 0;
  // Writes the row back by its object ID, in a commit of its own.
  virtual bool update(const Row &row) = 0;
};

// Plain libpq on the engine's schema, with prepared statements.
class PlainLibpq final : public PlainSide {
 public:
  explicit PlainLibpq(const std::string &uri) : conn_(PQconnectdb(uri.c_str())) {
    exec("SET search_path TO \"Bench.dat\"");
    prepare("add",
            "INSERT INTO \"Bench_Table\"(record, k1, k2, k3) VALUES($1::bytea, $2::bytea,"
            " $3::bytea, $4::int8)");
    prepare("find", "SELECT seq, record FROM \"Bench_Table\" WHERE k1=$1::bytea");
    prepare("first", "SELECT seq, record, k3 FROM \"Bench_Table\" ORDER BY k3, seq LIMIT 64");
    prepare("after",
            "SELECT seq, record, k3 FROM \"Bench_Table\" WHERE (k3, seq)>($1::int8, $2::int8)"
            " ORDER BY k3, seq LIMIT 64");
    prepare("update",
            "UPDATE \"Bench_Table\" SET record=$2::bytea, k2=$3::bytea, k3=$4::int8"
            " WHERE k1=$1::bytea");
  }
  ~PlainLibpq() override { PQfinish(conn_); }

  void begin() override { exec("BEGIN"); }
  void commit() override { exec("COMMIT"); }
  void add(const Row &row) override {
    PQclear(run("add", {row.stored, row.id, row.name, int8(row.number)}));
  }
  bool find(const std::string &id, Rec *out) override {
    PGresult *r = run("find", {id});
    bool ok = PQntuples(r) == 1 &&
              decode(PQgetvalue(r, 0, 1), static_cast<std::size_t>(PQgetlength(r, 0, 1)), out);
    PQclear(r);
    return ok;
  }
  std::uint32_t walk(std::uint32_t most) override {
    Rec out;
    std::uint32_t n = 0;
    PGresult *r = run("first", {});
    while (n < most && PQntuples(r) > 0) {
      int rows = PQntuples(r);
      for (int i = 0; i < rows && n < most; ++i, ++n) {
        decode(PQgetvalue(r, i, 1), static_cast<std::size_t>(PQgetlength(r, i, 1)), &out);
      }
      std::string seq(PQgetvalue(r, rows - 1, 0), 8), key(PQgetvalue(r, rows - 1, 2), 8);
      PQclear(r);
      r = run("after", {key, seq});
    }
    PQclear(r);
    return n;
  }
  bool update(const Row &row) override {
    PGresult *r = run("update", {row.id, row.stored, row.name, int8(row.number)});
    bool ok = PQresultStatus(r) == PGRES_COMMAND_OK && std::strcmp(PQcmdTuples(r), "1") == 0;
    PQclear(r);
    return ok;
  }

 private:
  static std::string int8(std::int64_t v) {
    std::string out(8, '\0');
    for (int i = 7; i >= 0; --i, v >>= 8) out[i] = static_cast<char>(v & 0xFF);
    return out;
  }
  void exec(const char *sql) { PQclear(PQexec(conn_, sql)); }
  void prepare(const char *name, const char *sql) {
    PQclear(PQprepare(conn_, name, sql, 0, nullptr));
  }
  PGresult *run(const char *name, const std::vector<std::string> &params) {
    std::vector<const char *> values;
    std::vector<int> lengths, formats(params.size(), 1);
    for (const std::string &p : params) {
      values.push_back(p.data());
      lengths.push_back(static_cast<int>(p.size()));
    }
    return PQexecPrepared(conn_, name, static_cast<int>(params.size()), values.data(),
                          lengths.data(), formats.data(), 1);
  }

  PGconn *conn_;
};

// Plain SQLite on the engine's file, with the engine's pragmas.
class PlainSqlite final : public PlainSide {
 public:
  explicit PlainSqlite(const std::string &path) {
    sqlite3_open(path.c_str(), &db_);
    sqlite3_busy_timeout(db_, 60000);
    sqlite3_exec(db_, "PRAGMA synchronous=FULL; PRAGMA cache_size=-32768", nullptr, nullptr,
                 nullptr);
    add_ = prepare("INSERT INTO \"Bench_Table\"(record, k1, k2, k3) VALUES(?, ?, ?, ?)");
    find_ = prepare("SELECT seq, record FROM \"Bench_Table\" WHERE k1=?");
    first_ = prepare("SELECT seq, record, k3 FROM \"Bench_Table\" ORDER BY k3, seq LIMIT 64");
    after_ = prepare(
        "SELECT seq, record, k3 FROM \"Bench_Table\" WHERE (k3, seq)>(?1, ?2)"
        " ORDER BY k3, seq LIMIT 64");
    update_ = prepare("UPDATE \"Bench_Table\" SET record=?2, k2=?3, k3=?4 WHERE k1=?1");
  }
  ~PlainSqlite() override {
    for (sqlite3_stmt *s : {add_, find_, first_, after_, update_}) sqlite3_finalize(s);
    sqlite3_close(db_);
  }

  void begin() override { sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); }
  void commit() override { sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr); }
  void add(const Row &row) override {
    bindRow(add_, row);
    sqlite3_step(add_);
    sqlite3_reset(add_);
  }
  bool find(const std::string &id, Rec *out) override {
    sqlite3_bind_blob(find_, 1, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
    bool ok = sqlite3_step(find_) == SQLITE_ROW &&
              decode(sqlite3_column_blob(find_, 1),
                     static_cast<std::size_t>(sqlite3_column_bytes(find_, 1)), out);
    sqlite3_reset(find_);
    return ok;
  }
  std::uint32_t walk(std::uint32_t most) override {
    Rec out;
    std::uint32_t n = 0;
    sqlite3_stmt *s = first_;
    for (;;) {
      std::int64_t seq = 0, key = 0;
      int rows = 0;
      while (n < most && sqlite3_step(s) == SQLITE_ROW) {
        decode(sqlite3_column_blob(s, 1), static_cast<std::size_t>(sqlite3_column_bytes(s, 1)),
               &out);
        seq = sqlite3_column_int64(s, 0);
        key = sqlite3_column_int64(s, 2);
        ++rows;
        ++n;
      }
      sqlite3_reset(s);
      if (rows == 0 || n >= most) return n;
      s = after_;
      sqlite3_bind_int64(s, 1, key);
      sqlite3_bind_int64(s, 2, seq);
    }
  }
  bool update(const Row &row) override {
    bindRow(update_, row);
    bool ok = sqlite3_step(update_) == SQLITE_DONE && sqlite3_changes(db_) == 1;
    sqlite3_reset(update_);
    return ok;
  }

 private:
  sqlite3_stmt *prepare(const char *sql) {
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr);
    return s;
  }
  // ?1 the ID for an update, the record for an add: both take the same four.
  void bindRow(sqlite3_stmt *s, const Row &row) {
    bool update = s == update_;
    sqlite3_bind_blob(s, update ? 2 : 1, row.stored.data(), static_cast<int>(row.stored.size()),
                      SQLITE_STATIC);
    sqlite3_bind_blob(s, update ? 1 : 2, row.id.data(), 16, SQLITE_STATIC);
    sqlite3_bind_blob(s, 3, row.name.data(), static_cast<int>(row.name.size()), SQLITE_STATIC);
    sqlite3_bind_int64(s, 4, row.number);
  }

  sqlite3 *db_ = nullptr;
  sqlite3_stmt *add_ = nullptr, *find_ = nullptr, *first_ = nullptr, *after_ = nullptr,
               *update_ = nullptr;
};

using Clock = std::chrono::steady_clock;

// Processor seconds of this thread and of the server's connection processes
// when the server runs on this machine (their scheduler's run time, in
// nanoseconds); empty when it cannot be had.
class ProcessorTime {
 public:
  // Finds the connection processes through a connection of its own: all but
  // it belong to the two sides, and only the working side's move.
  explicit ProcessorTime(const std::string &uri) {
    PGconn *conn = uri.empty() ? nullptr : PQconnectdb(uri.c_str());
    PGresult *r =
        conn ? PQexec(conn,
                      "SELECT pid FROM pg_stat_activity WHERE backend_type='client backend'"
                      " AND pid<>pg_backend_pid()")
             : nullptr;
    for (int i = 0; r && PQresultStatus(r) == PGRES_TUPLES_OK && i < PQntuples(r); ++i) {
      pids_.push_back(PQgetvalue(r, i, 0));
    }
    PQclear(r);
    PQfinish(conn);
    if (!now()) pids_.clear();
  }
  bool usable() const { return !pids_.empty(); }
  // False when a process's figure cannot be read (a server elsewhere).
  bool now(double *seconds = nullptr) const {
    timespec own{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &own);
    double total = static_cast<double>(own.tv_sec) + static_cast<double>(own.tv_nsec) * 1e-9;
    for (const std::string &pid : pids_) {
      std::ifstream in("/proc/" + pid + "/schedstat");
      unsigned long long ns = 0;
      if (!(in >> ns)) return false;
      total += static_cast<double>(ns) * 1e-9;
    }
    if (seconds) *seconds = total;
    return true;
  }

 private:
  std::vector<std::string> pids_;
};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

struct Figure {
  std::string name;
  std::vector<double> engine, plain;        // seconds per record
  std::vector<double> engineCpu, plainCpu;  // processor seconds per record
};

// Runs both sides of one work in turns; each returns the records it handled.
void measure(std::vector<Figure> &figures, const ProcessorTime &cpu, const char *title,
             const std::string &name, const std::function<std::uint32_t()> &engine,
             const std::function<std::uint32_t()> &plain) {
  if (!chosen(title, name)) return;
  Figure f{name, {}, {}, {}, {}};
  for (int run = 0, n = runs(); run < n; ++run) {
    // Which side goes first alternates, so that neither always meets a warm
    // server or a burst of the machine's other work first.
    for (int turn = 0; turn < 2; ++turn) {
      int side = (run + turn) % 2;
      double cpuStart = 0, cpuEnd = 0;
      bool timed = cpu.usable() && cpu.now(&cpuStart);
      auto start = Clock::now();
      std::uint32_t n = side == 0 ? engine() : plain();
      double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      (side == 0 ? f.engine : f.plain).push_back(n ? seconds / n : 0);
      if (timed && cpu.now(&cpuEnd)) {
        (side == 0 ? f.engineCpu : f.plainCpu).push_back(n ? (cpuEnd - cpuStart) / n : 0);
      }
    }
  }
  figures.push_back(std::move(f));
}

// Every figure on the store at `path` (made here) beside `makePlain`'s side.
bool runFigures(const char *title, const std::string &path, const std::string &serverUri,
                const std::function<std::unique_ptr<PlainSide>()> &makePlain) {
  Table t;
  KEPDB *h = QDBInit(0, path.c_str(), kOpenCreate, 1);
  if (!h || createTable(h, t) != 0) {
    std::fprintf(stderr, "cannot make the bench table (%s)\n", title);
    if (h) QDBDone(h);
    return false;
  }
  std::uint32_t next = 0;
  QDBFileLock(h);
  for (; next < kRecords; ++next) {
    t.fill(next);
    QDBRecordAdd(h);
  }
  QDBFileUnlock(h);
  std::unique_ptr<PlainSide> plain = makePlain();
  ProcessorTime cpu(serverUri);
  std::vector<Figure> figures;
  measure(
      figures, cpu, title, "add, 100 under one lock",
      [&] {
        QDBFileLock(h);
        for (int i = 0; i < 100; ++i) {
          t.fill(next++);
          QDBRecordAdd(h);
        }
        QDBFileUnlock(h);
        return 100u;
      },
      [&] {
        plain->begin();
        for (int i = 0; i < 100; ++i) {
          t.fill(next++);
          plain->add(rowOf(t.rec));
        }
        plain->commit();
        return 100u;
      });
  measure(
      figures, cpu, title, "add, each its own commit",
      [&] {
        for (int i = 0; i < 50; ++i) {
          t.fill(next++);
          QDBRecordAdd(h);
        }
        return 50u;
      },
      [&] {
        for (int i = 0; i < 50; ++i) {
          t.fill(next++);
          plain->add(rowOf(t.rec));
        }
        return 50u;
      });
  measure(
      figures, cpu, title, "find and read by object ID",
      [&] {
        Table probe;
        for (std::uint32_t i = 0; i < 500; ++i) {
          probe.fill((i * 7919) % kRecords);
          QDBRecordFindAndRead(h, 1, &probe.rec.id, 1, 16);
        }
        return 500u;
      },
      [&] {
        Table probe;
        Rec out;
        for (std::uint32_t i = 0; i < 500; ++i) {
          probe.fill((i * 7919) % kRecords);
          plain->find(std::string(reinterpret_cast<char *>(&probe.rec.id), 16), &out);
        }
        return 500u;
      });
  measure(
      figures, cpu, title, "walk in number order, 64 a read",
      [&] {
        std::uint32_t n = 0;
        for (std::uint32_t r = QDBRecordSkipAndRead(h, 3, kSkipFirst); r == 0 && n < 1000;
             r = QDBRecordSkipAndRead(h, 3, kSkipNext)) {
          ++n;
        }
        return n;
      },
      [&] { return plain->walk(1000); });
  measure(
      figures, cpu, title, "read by object ID and update",
      [&] {
        std::uint32_t n = 0;
        for (std::uint32_t i = 0; i < 200; ++i) {
          t.fill((i * 7919) % kRecords);
          if (QDBRecordFindAndRead(h, 1, &t.rec.id, 1, 16) != 0) continue;
          t.rec.payload[100] = static_cast<unsigned char>(i);
          n += QDBRecordUpdate(h) == 0;
        }
        return n;
      },
      [&] {
        // The same work: read the record by its key, change it, write it
        // back by its key in a commit of its own.
        Table probe;
        Rec rec;
        std::uint32_t n = 0;
        for (std::uint32_t i = 0; i < 200; ++i) {
          probe.fill((i * 7919) % kRecords);
          std::string id(reinterpret_cast<char *>(&probe.rec.id), 16);
          if (!plain->find(id, &rec)) continue;
          rec.payload[100] = static_cast<unsigned char>(i);
          n += plain->update(rowOf(rec));
        }
        return n;
      });
  plain.reset();
  QDBDone(h);
  std::printf("%s\n%-36s %12s %12s %8s %8s", title, "work (per record)", "engine us", "plain us",
              "ratio", "by runs");
  if (cpu.usable()) std::printf(" %10s %10s %8s", "engine cpu", "plain cpu", "cpu rat.");
  std::printf("\n");
  for (const Figure &f : figures) {
    double e = median(f.engine), p = median(f.plain);
    // The median of each run's own ratio, which a burst of other work on
    // the machine disturbs less.
    std::vector<double> ratios;
    for (std::size_t i = 0; i < f.engine.size(); ++i) {
      if (f.plain[i] > 0) ratios.push_back(f.engine[i] / f.plain[i]);
    }
    std::printf("%-36s %12.2f %12.2f %8.2f %8.2f", f.name.c_str(), e * 1e6, p * 1e6, e / p,
                ratios.empty() ? 0.0 : median(ratios));
    if (!f.engineCpu.empty() && f.engineCpu.size() == f.plainCpu.size()) {
      double ec = median(f.engineCpu), pc = median(f.plainCpu);
      std::printf(" %10.2f %10.2f %8.2f", ec * 1e6, pc * 1e6, ec / pc);
    }
    std::printf("\n");
  }
  std::printf("\n");
  return true;
}

}  // namespace

int main() {
  std::string uri;
  std::string serverDir;
  if (const char *given = std::getenv("ALERTDB_BENCH_POSTGRES")) {
    uri = given;
  } else {
    // The bench and the server it starts share one processor. Left free, each
    // connection's server process settles on a processor of its own, and on a
    // small machine one side of a pair then runs twice as dear for the whole run.
    if (!std::getenv("ALERTDB_BENCH_ANY_CPU")) {
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(0, &one);
      ::sched_setaffinity(0, sizeof one, &one);
    }
    char dir[] = "/tmp/alertdb-bench-pg-XXXXXX";
    if (!::mkdtemp(dir)) return 1;
    serverDir = dir;
    std::string start =
        "sh " ALERTDB_SOURCE_DIR "/tests/support/postgres_server.sh start " + serverDir;
    if (std::system(start.c_str()) != 0) return 1;
    uri = "postgresql:///postgres?host=" + serverDir + "&user=alertdb";
  }
  setenv("ALERTDB_STORE", uri.c_str(), 1);
  bool ok = runFigures("PostgreSQL: the engine beside plain libpq", "/nowhere/Bench.dat", uri,
                       [&] { return std::make_unique<PlainLibpq>(uri); });
  if (!serverDir.empty()) {
    std::string stop =
        "sh " ALERTDB_SOURCE_DIR "/tests/support/postgres_server.sh stop " + serverDir;
    std::system(stop.c_str());
  }
  unsetenv("ALERTDB_STORE");
  char dir[] = "/tmp/alertdb-bench-sqlite-XXXXXX";
  if (!::mkdtemp(dir)) return 1;
  std::string path = std::string(dir) + "/Bench.dat";
  ok = runFigures("SQLite: the engine beside plain SQLite", path, "",
                  [&] { return std::make_unique<PlainSqlite>(path); }) &&
       ok;
  for (const char *suffix : {"", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
  ::rmdir(dir);
  return ok ? 0 : 1;
}
