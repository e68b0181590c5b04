// The full check of a data file on the server: its mark, its catalog against
// its SQL tables, key columns and indexes, and every record's checksum,
// decoding and key columns. The schema is only read, in one snapshot.
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "platform/store/postgres/pg_catalog_internal.h"
#include "platform/store/postgres/pg_connection_internal.h"
#include "platform/store/record_codec_internal.h"
#include "platform/store/store_backend_internal.h"
#include "platform/store/store_problems_internal.h"

namespace platform::store {

namespace {

using namespace postgres;

constexpr int kRowsPerRead = 1000;

class ServerCheck {
 public:
  ServerCheck(Connection &conn, const std::string &schema, StoreCheckReport *report,
              const StoreProgress &progress)
      : conn_(conn), schema_(schema), report_(report), progress_(progress) {}

  void run() {
    std::set<std::string> sqlTables = tablesOfSchema();
    for (const char *table : {"alertdb_tables", "alertdb_fields", "alertdb_query_info",
                              "alertdb_query_types", "alertdb_query_type_values"}) {
      if (!sqlTables.count(table))
        problem("", std::string("the catalog table ") + table + " is missing");
    }
    if (!sqlTables.count("alertdb_tables")) return;
    Result names = conn_.execute("SELECT name FROM alertdb_tables ORDER BY name COLLATE \"C\"");
    if (!names.ok()) {
      problem("", "the catalog cannot be read");
      return;
    }
    std::set<std::string> catalogued;
    std::vector<TableDef> defs;
    for (int i = 0; i < names.rows(); ++i) {
      std::string name = names.text(i, 0);
      catalogued.insert(name);
      TableDef def;
      std::uint32_t status = loadTableDef(conn_, name, &def);
      if (status != QDB_OK) {
        report_->tables.push_back({name, 0, 0});
        problem(name, status == QDB_E_DAMAGED ? "its catalog entry disagrees with itself"
                                              : "its catalog entry cannot be read");
        continue;
      }
      if (!sqlTables.count(name)) {
        report_->tables.push_back({name, 0, 0});
        problem(name, "the catalog lists it but its SQL table is missing");
        continue;
      }
      defs.push_back(std::move(def));
    }
    for (const std::string &table : sqlTables) {
      if (!catalogued.count(table) && !isReservedTableName(table)) {
        problem(table, "the SQL table is not in the catalog");
      }
    }
    for (const TableDef &def : defs) total_ += rowCount(def);
    for (const TableDef &def : defs) checkTable(def);
  }

 private:
  void problem(const std::string &table, const std::string &what, std::int64_t row = 0,
               const _GUID *objectId = nullptr) {
    addProblem(&report_->problems, table, what, row, objectId);
  }

  std::set<std::string> tablesOfSchema() {
    std::set<std::string> out;
    Params p;
    p.addText(schema_);
    Result r = conn_.execute("SELECT tablename FROM pg_tables WHERE schemaname=$1::text", p);
    for (int i = 0; i < r.rows(); ++i) out.insert(r.text(i, 0));
    return out;
  }

  std::uint64_t rowCount(const TableDef &def) {
    Params none;
    Result r = conn_.execute("SELECT count(*) FROM " + quoted(def.name), none);
    return r.ok() && r.rows() == 1 ? static_cast<std::uint64_t>(r.int64(0, 0)) : 0;
  }

  // Each key's column, of the type its kind needs, and its index.
  void checkKeys(const TableDef &def) {
    Params p;
    p.addText(schema_);
    p.addText(def.name);
    Result columns = conn_.execute(
        "SELECT column_name, data_type FROM information_schema.columns"
        " WHERE table_schema=$1::text AND table_name=$2::text",
        p);
    Result indexes = conn_.execute(
        "SELECT indexname, indexdef FROM pg_indexes WHERE schemaname=$1::text"
        " AND tablename=$2::text",
        p);
    for (const KeyDef &k : def.keys) {
      std::string column = keyColumn(k.keyNumber);
      std::string type = k.kind == KeyKind::Number ? "bigint" : "bytea";
      bool found = false;
      for (int i = 0; i < columns.rows(); ++i) {
        if (columns.text(i, 0) != column) continue;
        found = true;
        if (columns.text(i, 1) != type) {
          problem(def.name, "key column " + column + " is " + columns.text(i, 1) + ", not " + type);
        }
      }
      if (!found) problem(def.name, "key column " + column + " is missing");
      std::string index = keyIndexName(def.name, k.keyNumber);
      bool indexed = false;
      for (int i = 0; i < indexes.rows(); ++i) {
        if (indexes.text(i, 0) != index) continue;
        indexed = true;
        bool unique = indexes.text(i, 1).rfind("CREATE UNIQUE", 0) == 0;
        if (unique != k.unique) {
          problem(def.name, "key index " + index + (k.unique ? " is not unique" : " is unique"));
        }
      }
      if (!indexed) problem(def.name, "key index " + index + " is missing");
    }
  }

  void checkTable(const TableDef &def) {
    checkKeys(def);
    StoreTableCheck counts{def.name, 0, 0};
    std::string columns = "seq, record";
    for (const KeyDef &k : def.keys) columns += ", " + keyColumn(k.keyNumber);
    std::string sql = "SELECT " + columns + " FROM " + quoted(def.name) +
                      " WHERE seq>$1::int8 ORDER BY seq LIMIT " + std::to_string(kRowsPerRead);
    std::vector<unsigned char> image(def.recordSize);
    const FieldDef *idField = nullptr;
    for (const FieldDef &f : def.fields) {
      if (f.keyNumber == def.idKey && f.size == sizeof(_GUID)) idField = &f;
    }
    std::int64_t after = 0;
    for (;;) {
      Params p;
      p.addInt64(after);
      Result r = conn_.execute(sql, p);
      if (!r.ok()) {
        problem(def.name, "its rows cannot be read");
        break;
      }
      for (int i = 0; i < r.rows(); ++i) {
        std::int64_t seq = r.int64(i, 0);
        after = seq;
        ++counts.records;
        std::vector<std::string> wrong;
        _GUID id{};
        bool decoded =
            !r.isNull(i, 1) && decodeRecord(r.value(i, 1), static_cast<std::size_t>(r.length(i, 1)),
                                            def.recordSize, image.data(), false);
        if (!decoded) {
          wrong.push_back("the record fails its checksum or does not decode");
        } else {
          if (idField) std::memcpy(&id, image.data() + idField->offset, sizeof id);
          for (std::size_t k = 0; k < def.keys.size(); ++k) {
            if (!columnHolds(r, i, 2 + static_cast<int>(k),
                             keyOfRecord(def, def.keys[k], image.data()))) {
              wrong.push_back("key column " + keyColumn(def.keys[k].keyNumber) +
                              " disagrees with the record");
            }
          }
        }
        if (!wrong.empty()) {
          ++counts.damaged;
          for (const std::string &what : wrong) {
            problem(def.name, what, seq, decoded && idField ? &id : nullptr);
          }
        }
        if (progress_ && ++done_ % 1024 == 0) progress_(done_, total_);
      }
      if (r.rows() < kRowsPerRead) break;
    }
    report_->tables.push_back(counts);
    if (progress_) progress_(done_, total_);
  }

  static bool columnHolds(const Result &r, int row, int column, const KeyValue &v) {
    if (r.isNull(row, column)) return false;
    if (v.isNumber) {
      return r.length(row, column) == 8 &&
             static_cast<std::uint64_t>(r.int64(row, column)) == v.number;
    }
    auto n = static_cast<std::size_t>(r.length(row, column));
    return n == v.size && (n == 0 || std::memcmp(r.value(row, column), v.bytes, n) == 0);
  }

  Connection &conn_;
  std::string schema_;
  StoreCheckReport *report_;
  const StoreProgress &progress_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

std::uint32_t checkServerStore(const std::string &path, StoreCheckReport *report,
                               const StoreProgress &progress) {
  std::string uri = serverUri();
  Connection conn;
  if (uri.empty() || !conn.open(uri)) return QDB_E_IO;
  std::string name = path.substr(path.rfind('/') + 1);
  Params p;
  p.addText(name);
  Result schema = conn.execute(
      "SELECT nspname FROM pg_namespace WHERE lower(nspname)=lower($1::text)"
      " ORDER BY nspname COLLATE \"C\" LIMIT 1",
      p);
  if (!schema.ok()) return QDB_E_IO;
  if (schema.rows() == 0) return QDB_E_NOTFOUND;
  std::string found = schema.text(0, 0);
  // One snapshot for the whole check; nothing is written.
  if (!conn.execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY; SET LOCAL search_path TO " +
                    quoted(found) + ", pg_catalog")
           .ok()) {
    return QDB_E_IO;
  }
  Params none;
  Result mark = conn.execute(
      "SELECT count(*) FROM pg_tables WHERE schemaname=current_schema()"
      " AND tablename='alertdb_store'",
      none);
  bool marked = mark.ok() && mark.int64(0, 0) == 1;
  if (marked) {
    Result format = conn.execute("SELECT application_id, format::int8 FROM alertdb_store", none);
    marked = format.ok() && format.rows() == 1 && format.int64(0, 0) == 1095517250;
    if (marked) report->format = static_cast<int>(format.int64(0, 1));
  }
  if (!marked) {
    StoreProblem problem;
    problem.what = "not a record store: the schema carries no store mark";
    report->problems.push_back(std::move(problem));
    return QDB_E_DAMAGED;
  }
  report->isStore = true;
  ServerCheck(conn, found, report, progress).run();
  conn.execute("COMMIT");
  return report->problems.empty() ? QDB_OK : QDB_E_DAMAGED;
}

}  // namespace platform::store
