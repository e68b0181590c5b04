// The record store on a PostgreSQL server beside plain libpq doing the same
// work with prepared statements on the same schema and the same stored bytes:
// batched and single adds, finds by the unique key, a walk in the order of a
// number key, updates. Each figure is the median time per record of several
// runs of each side, and the engine's median over libpq's.
//
// ALERTDB_BENCH_POSTGRES names the server (a connection URI of an empty
// database); without it a throw-away server is started with the test
// script, which turns its durability off (the same for both sides).
#include <libpq-fe.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "platform/memory_blocks.h"
#include "platform/store/record_codec_internal.h"
#include "platform/store/record_store.h"

using namespace platform;

namespace {

constexpr std::uint32_t kRecords = 2000;
constexpr int kRuns = 7;

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

// Plain libpq on the engine's schema: the same rows, keys and stored bytes.
class Plain {
 public:
  explicit Plain(const std::string &uri) : conn_(PQconnectdb(uri.c_str())) {
    exec("SET search_path TO \"Bench.dat\"");
    prepare("add",
            "INSERT INTO \"Bench_Table\"(record, k1, k2, k3) VALUES($1::bytea, $2::bytea,"
            " $3::bytea, $4::int8)");
    prepare("find", "SELECT seq, record FROM \"Bench_Table\" WHERE k1=$1::bytea");
    prepare("first", "SELECT seq, record, k3 FROM \"Bench_Table\" ORDER BY k3, seq LIMIT $1::int8");
    prepare("after",
            "SELECT seq, record, k3 FROM \"Bench_Table\" WHERE (k3, seq)>($1::int8, $2::int8)"
            " ORDER BY k3, seq LIMIT $3::int8");
    prepare("update",
            "UPDATE \"Bench_Table\" SET record=$2::bytea, k2=$3::bytea, k3=$4::int8"
            " WHERE k1=$1::bytea");
  }
  ~Plain() { PQfinish(conn_); }
  bool ok() const { return PQstatus(conn_) == CONNECTION_OK; }
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

  static std::string int8(std::int64_t v) {
    std::string out(8, '\0');
    for (int i = 7; i >= 0; --i, v >>= 8) out[i] = static_cast<char>(v & 0xFF);
    return out;
  }
  static std::int64_t int8(const char *b) {
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = (v << 8) | static_cast<unsigned char>(b[i]);
    return static_cast<std::int64_t>(v);
  }
  // The stored form and key values of a record, as the engine makes them.
  std::vector<std::string> rowOf(const Rec &r) {
    std::vector<unsigned char> stored(store::storedSizeBound(sizeof r));
    std::size_t n =
        store::encodeRecord(reinterpret_cast<const unsigned char *>(&r), sizeof r, stored.data());
    return {std::string(reinterpret_cast<char *>(stored.data()), n),
            std::string(reinterpret_cast<const char *>(&r.id), 16),
            std::string(r.name, std::strlen(r.name)), int8(r.number)};
  }
  bool decode(PGresult *res, int row, Rec *out) {
    return store::decodeRecord(PQgetvalue(res, row, 1),
                               static_cast<std::size_t>(PQgetlength(res, row, 1)), sizeof *out,
                               reinterpret_cast<unsigned char *>(out), false);
  }

 private:
  PGconn *conn_;
};

using Clock = std::chrono::steady_clock;

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

struct Figure {
  std::string name;
  std::vector<double> engine, plain;  // seconds per record
};

// Runs both sides of one work in turns; each returns the records it handled.
void measure(std::vector<Figure> &figures, const std::string &name,
             const std::function<std::uint32_t()> &engine,
             const std::function<std::uint32_t()> &plain) {
  Figure f{name, {}, {}};
  for (int run = 0; run < kRuns; ++run) {
    for (int side = 0; side < 2; ++side) {
      auto start = Clock::now();
      std::uint32_t n = side == 0 ? engine() : plain();
      double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      (side == 0 ? f.engine : f.plain).push_back(n ? seconds / n : 0);
    }
  }
  figures.push_back(std::move(f));
}

}  // namespace

int main() {
  std::string uri;
  std::string serverDir;
  if (const char *given = std::getenv("ALERTDB_BENCH_POSTGRES")) {
    uri = given;
  } else {
    char dir[] = "/tmp/alertdb-bench-pg-XXXXXX";
    if (!::mkdtemp(dir)) return 1;
    serverDir = dir;
    std::string start =
        "sh " ALERTDB_SOURCE_DIR "/tests/support/postgres_server.sh start " + serverDir;
    if (std::system(start.c_str()) != 0) return 1;
    uri = "postgresql:///postgres?host=" + serverDir + "&user=alertdb";
  }
  setenv("ALERTDB_STORE", uri.c_str(), 1);
  int status = 0;
  {
    Table t;
    KEPDB *h = QDBInit(0, "/nowhere/Bench.dat", kOpenCreate, 1);
    if (!h || createTable(h, t) != 0) {
      std::fprintf(stderr, "cannot make the bench table on the server\n");
      status = 1;
    } else {
      Plain plain(uri);
      std::uint32_t next = 0;
      std::vector<Figure> figures;
      // The table starts with kRecords; each add run adds 200 more.
      QDBFileLock(h);
      for (; next < kRecords; ++next) {
        t.fill(next);
        QDBRecordAdd(h);
      }
      QDBFileUnlock(h);
      measure(
          figures, "add, 100 under one lock",
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
            plain.exec("BEGIN");
            for (int i = 0; i < 100; ++i) {
              t.fill(next++);
              PQclear(plain.run("add", plain.rowOf(t.rec)));
            }
            plain.exec("COMMIT");
            return 100u;
          });
      measure(
          figures, "add, each its own commit",
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
              PQclear(plain.run("add", plain.rowOf(t.rec)));
            }
            return 50u;
          });
      measure(
          figures, "find and read by object ID",
          [&] {
            for (std::uint32_t i = 0; i < 500; ++i) {
              Table probe;
              probe.fill((i * 7919) % kRecords);
              QDBRecordFindAndRead(h, 1, &probe.rec.id, 1, 16);
            }
            return 500u;
          },
          [&] {
            Rec out;
            for (std::uint32_t i = 0; i < 500; ++i) {
              Table probe;
              probe.fill((i * 7919) % kRecords);
              PGresult *r =
                  plain.run("find", {std::string(reinterpret_cast<char *>(&probe.rec.id), 16)});
              if (PQntuples(r) == 1) plain.decode(r, 0, &out);
              PQclear(r);
            }
            return 500u;
          });
      measure(
          figures, "walk in number order, 64 a read",
          [&] {
            std::uint32_t n = 0;
            for (std::uint32_t r = QDBRecordSkipAndRead(h, 3, kSkipFirst); r == 0 && n < 1000;
                 r = QDBRecordSkipAndRead(h, 3, kSkipNext)) {
              ++n;
            }
            return n;
          },
          [&] {
            Rec out;
            std::uint32_t n = 0;
            PGresult *r = plain.run("first", {Plain::int8(64)});
            while (n < 1000 && PQntuples(r) > 0) {
              int rows = PQntuples(r);
              for (int i = 0; i < rows && n < 1000; ++i, ++n) plain.decode(r, i, &out);
              std::string seq(PQgetvalue(r, rows - 1, 0), 8), key(PQgetvalue(r, rows - 1, 2), 8);
              PQclear(r);
              r = plain.run("after", {key, seq, Plain::int8(64)});
            }
            PQclear(r);
            return n;
          });
      measure(
          figures, "find by object ID and update",
          [&] {
            for (std::uint32_t i = 0; i < 200; ++i) {
              t.fill((i * 7919) % kRecords);
              QDBRecordFind(h, 1, &t.rec.id, 1, 16);
              t.rec.payload[100] = static_cast<unsigned char>(i);
              QDBRecordUpdate(h);
            }
            return 200u;
          },
          [&] {
            for (std::uint32_t i = 0; i < 200; ++i) {
              t.fill((i * 7919) % kRecords);
              t.rec.payload[100] = static_cast<unsigned char>(i);
              std::vector<std::string> row = plain.rowOf(t.rec);
              PQclear(plain.run("update", {row[1], row[0], row[2], row[3]}));
            }
            return 200u;
          });
      std::printf("%-36s %12s %12s %8s\n", "work (per record)", "engine us", "libpq us", "ratio");
      for (const Figure &f : figures) {
        double e = median(f.engine), p = median(f.plain);
        std::printf("%-36s %12.2f %12.2f %8.2f\n", f.name.c_str(), e * 1e6, p * 1e6, e / p);
      }
    }
    if (h) QDBDone(h);
  }
  if (!serverDir.empty()) {
    std::string stop =
        "sh " ALERTDB_SOURCE_DIR "/tests/support/postgres_server.sh stop " + serverDir;
    std::system(stop.c_str());
  }
  return status;
}
