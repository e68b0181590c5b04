// Salvaging a damaged data file: every record that can still be read, with
// the catalog that describes it, copied into a new store. The damaged file is
// only read.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "platform/file_names.h"
#include "platform/store/record_codec_internal.h"
#include "platform/store/record_store.h"
#include "platform/store/sqlite/sqlite_catalog_internal.h"
#include "platform/store/sqlite/sqlite_file_check_internal.h"
#include "platform/store/sqlite/sqlite_file_reader_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"
#include "platform/store/store_file_placement_internal.h"
#include "platform/store/store_problems_internal.h"

namespace platform {

namespace {

using namespace store;
using namespace store::sqlite;

class Salvage {
 public:
  Salvage(sqlite3 *source, int format, StoreSalvageReport *report, const StoreProgress &progress)
      : source_(source), format_(format), report_(report), progress_(progress) {}
  ~Salvage() {
    insert_.finalize();
    sqlite3_close_v2(target_);
    sqlite3_close_v2(catalog_);
  }

  // Copies the catalog's rows, each table scanned whole, into memory, so
  // that a damaged index of the catalog cannot hide a field; QDB_E_DAMAGED
  // when no table can be told.
  std::uint32_t readCatalog() {
    if (sqlite3_open_v2(":memory:", &catalog_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK ||
        execute(catalog_, kCatalogSchema) != SQLITE_OK) {
      return QDB_E_NOMEMORY;
    }
    for (const char *table : {"alertdb_tables", "alertdb_fields", "alertdb_query_info",
                              "alertdb_query_types", "alertdb_query_type_values"}) {
      copyCatalogTable(table);
    }
    Statement s;
    if (s.prepare(catalog_, "SELECT name FROM alertdb_tables ORDER BY name") != SQLITE_OK) {
      return QDB_E_NOMEMORY;
    }
    Use q(s);
    while (sqlite3_step(*q) == SQLITE_ROW) names_.push_back(columnText(*q, 0));
    if (names_.empty()) {
      problem("", "the catalog lists no table that can be read: nothing can be saved");
      return QDB_E_DAMAGED;
    }
    return QDB_OK;
  }

  std::uint32_t open(const std::string &path) {
    if (sqlite3_open_v2(path.c_str(), &target_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
      return QDB_E_IO;
    }
    // Synced as a whole once it is complete.
    std::string setup = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                        ";PRAGMA user_version=" + std::to_string(kFormatVersion) +
                        ";PRAGMA journal_mode=WAL;PRAGMA synchronous=OFF;" + kCatalogSchema +
                        ";BEGIN";
    return execute(target_, setup.c_str()) == SQLITE_OK ? QDB_OK : QDB_E_IO;
  }

  std::uint32_t copyTables() {
    // A table the catalog no longer lists cannot be told apart either; its
    // records are counted lost, not left out unsaid.
    Statement tables;
    if (tables.prepare(source_,
                       "SELECT name FROM sqlite_master WHERE type='table' AND "
                       "name NOT LIKE 'sqlite%' AND name NOT LIKE 'alertdb%'") == SQLITE_OK) {
      Use q(tables);
      while (sqlite3_step(*q) == SQLITE_ROW) {
        std::string name = columnText(*q, 0);
        if (std::find(names_.begin(), names_.end(), name) != names_.end()) continue;
        report_->tables.push_back({name, 0, static_cast<std::uint32_t>(countRows(source_, name))});
        problem(name, "the catalog does not list it: its records cannot be told apart");
      }
    }
    std::vector<TableDef> defs;
    for (const std::string &name : names_) {
      TableDef def;
      if (loadTableDef(catalog_, name, &def) != QDB_OK) {
        StoreSalvageTable lost{name, 0, static_cast<std::uint32_t>(countRows(source_, name))};
        report_->tables.push_back(lost);
        problem(name, "its catalog entry cannot be read: its records cannot be told apart");
        continue;
      }
      total_ += countRows(source_, name);
      defs.push_back(std::move(def));
    }
    // A store without any table would only take the damaged file's place.
    if (defs.empty()) {
      problem("", "no table of the catalog can be read whole: nothing can be saved");
      return QDB_E_DAMAGED;
    }
    for (const TableDef &def : defs) {
      std::uint32_t status = copyTable(def);
      if (status != QDB_OK) return status;
    }
    return QDB_OK;
  }

  void copyQueryTypes() {
    copyRows("SELECT name, mask FROM alertdb_query_types",
             "INSERT OR REPLACE INTO alertdb_query_types VALUES(?,?)", 2);
    copyRows("SELECT type_name, position, value, text FROM alertdb_query_type_values",
             "INSERT OR REPLACE INTO alertdb_query_type_values VALUES(?,?,?,?)", 4);
  }

  std::uint32_t finish() {
    insert_.finalize();
    int rc = execute(target_, "COMMIT");
    // The last close moves the log into the file.
    int closed = sqlite3_close(target_);
    if (closed != SQLITE_OK) sqlite3_close_v2(target_);
    target_ = nullptr;
    return rc == SQLITE_OK && closed == SQLITE_OK ? QDB_OK : QDB_E_IO;
  }

 private:
  void problem(const std::string &table, const std::string &what, std::int64_t row = 0,
               const _GUID *objectId = nullptr) {
    addProblem(&report_->problems, table, what, row, objectId);
  }

  // Copies a catalog table's rows as they are, as far as they can be read.
  void copyCatalogTable(const std::string &table) {
    Statement from, to;
    if (from.prepare(source_, "SELECT * FROM " + table + " NOT INDEXED") != SQLITE_OK) {
      problem("", "the catalog table " + table + " cannot be read: " + sqlite3_errmsg(source_));
      return;
    }
    int columns = sqlite3_column_count(from.get());
    std::string values = "?";
    for (int i = 1; i < columns; ++i) values += ",?";
    if (to.prepare(catalog_, "INSERT OR IGNORE INTO " + table + " VALUES(" + values + ")") !=
        SQLITE_OK) {
      problem("", "the catalog table " + table + " does not have its columns");
      return;
    }
    Use q(from);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      Use w(to);
      for (int i = 0; i < columns; ++i) sqlite3_bind_value(*w, i + 1, sqlite3_column_value(*q, i));
      sqlite3_step(*w);
    }
    if (rc != SQLITE_DONE) {
      problem("",
              "the catalog table " + table + " cannot be read whole: " + sqlite3_errmsg(source_));
    }
  }

  // The query types as the catalog copy holds them.
  void copyRows(const char *select, const char *insert, int columns) {
    Statement from, to;
    if (from.prepare(catalog_, select) != SQLITE_OK || to.prepare(target_, insert) != SQLITE_OK) {
      return;
    }
    Use q(from);
    while (sqlite3_step(*q) == SQLITE_ROW) {
      Use w(to);
      for (int i = 0; i < columns; ++i) sqlite3_bind_value(*w, i + 1, sqlite3_column_value(*q, i));
      sqlite3_step(*w);
    }
  }

  std::uint32_t copyTable(const TableDef &def) {
    StoreSalvageTable counts{def.name, 0, 0};
    if (execute(target_, "SAVEPOINT salvage_table") != SQLITE_OK) return QDB_E_IO;
    std::uint32_t status = storeTableDef(target_, def);
    if (status != QDB_OK) {
      execute(target_, "ROLLBACK TO salvage_table");
      execute(target_, "RELEASE salvage_table");
      counts.lost = static_cast<std::uint32_t>(countRows(source_, def.name));
      report_->tables.push_back(counts);
      problem(def.name, "the table cannot be made again from its catalog entry");
      return QDB_OK;
    }
    std::string columns = "seq, record", values = "?, ?";
    for (const KeyDef &k : def.keys) {
      columns += ", " + keyColumn(k.keyNumber);
      values += ", ?";
    }
    if (insert_.prepare(target_, "INSERT INTO " + quoted(def.name) + "(" + columns + ") VALUES(" +
                                     values + ")") != SQLITE_OK) {
      return QDB_E_IO;
    }
    std::vector<unsigned char> image(def.recordSize), encoded(storedSizeBound(def.recordSize));
    std::vector<LostRow> lost;
    std::vector<std::string> breaks;
    RowVerdict verdict;
    std::uint32_t failure = QDB_OK;
    std::uint32_t readStatus = readRows(
        source_, def,
        [&](sqlite3_stmt *row) {
          if (progress_ && ++done_ % 1024 == 0) progress_(done_, total_);
          if (failure != QDB_OK) return;
          std::int64_t seq = sqlite3_column_int64(row, 0);
          judgeRow(def, format_ == kLegacyFormat, row, image.data(), &verdict);
          const _GUID *id = verdict.hasObjectId ? &verdict.objectId : nullptr;
          if (!verdict.imageWhole) {
            ++counts.lost;
            problem(def.name, verdict.problems.front(), seq, id);
            return;
          }
          Use q(insert_);
          sqlite3_bind_int64(*q, 1, seq);
          // A checked record goes over as it is; an older one gains its checksum.
          if (verdict.legacyForm) {
            std::size_t size = encodeRecord(image.data(), image.size(), encoded.data());
            sqlite3_bind_blob(*q, 2, encoded.data(), static_cast<int>(size), SQLITE_STATIC);
          } else {
            sqlite3_bind_blob(*q, 2, sqlite3_column_blob(row, 1), sqlite3_column_bytes(row, 1),
                              SQLITE_STATIC);
          }
          // Key columns are made again from the record, whatever the old ones held.
          for (std::size_t i = 0; i < def.keys.size(); ++i) {
            bindKey(*q, static_cast<int>(i) + 3, keyOfRecord(def, def.keys[i], image.data()));
          }
          int rc = sqlite3_step(*q);
          if (rc == SQLITE_DONE) {
            ++counts.saved;
          } else if ((rc & 0xFF) == SQLITE_CONSTRAINT) {
            ++counts.lost;
            problem(def.name, "a unique key of the record repeats that of a record saved before",
                    seq, id);
          } else {
            failure = resultOf(rc) == QDB_OK ? QDB_E_IO : resultOf(rc);
          }
        },
        &lost, &breaks);
    if (failure != QDB_OK) return failure;
    if (readStatus != QDB_OK) {
      // A catalog entry that cannot read the table's rows does not describe
      // them: the table is left out, its rows lost, not made again empty.
      problem(def.name, std::string("its rows cannot be read: ") + sqlite3_errmsg(source_));
      insert_.finalize();
      execute(target_, "ROLLBACK TO salvage_table");
      counts.saved = 0;
      counts.lost = static_cast<std::uint32_t>(countRows(source_, def.name));
    }
    execute(target_, "RELEASE salvage_table");
    for (const std::string &what : breaks) problem(def.name, what);
    for (const LostRow &row : lost) {
      ++counts.lost;
      problem(def.name, row.why, row.seq, row.hasObjectId ? &row.objectId : nullptr);
    }
    report_->tables.push_back(counts);
    if (progress_) progress_(done_, total_);
    return QDB_OK;
  }

  sqlite3 *source_;
  int format_;
  StoreSalvageReport *report_;
  const StoreProgress &progress_;
  sqlite3 *catalog_ = nullptr;
  sqlite3 *target_ = nullptr;
  Statement insert_;
  std::vector<std::string> names_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

std::uint32_t QDBSalvageFile(const char *source, const char *target, StoreSalvageReport *report,
                             const StoreProgress &progress) {
  if (!source || !*source || !target || !*target || !report) return QDB_E_BADARG;
  try {
    *report = StoreSalvageReport{};
    std::string from = ResolveFileName(source), to = ResolveFileName(target);
    std::string reason;
    FileState state = inspectFile(from, &reason);
    if (state == FileState::Missing) return QDB_E_NOTFOUND;
    if (state == FileState::NotStore) {
      report->problems.push_back({"", 0, false, {}, "not a record store: " + reason});
      return QDB_E_DAMAGED;
    }
    if (inspectFile(to) != FileState::Missing) return QDB_E_EXISTS;
    ReadOnlyFile reader;
    std::uint32_t status = reader.open(from);
    if (status != QDB_OK) return status;
    FileInMaking made;
    if (!made.create(to)) return QDB_E_IO;
    made.takeModeOf(from);
    {
      Salvage salvage(reader.db(), reader.format(), report, progress);
      if ((status = salvage.readCatalog()) != QDB_OK) return status;
      if ((status = salvage.open(made.path())) != QDB_OK) return status;
      if ((status = salvage.copyTables()) != QDB_OK) return status;
      salvage.copyQueryTypes();
      if ((status = salvage.finish()) != QDB_OK) return status;
    }
    // What is put in place opens as a sound store.
    StoreCheckReport check;
    if (QDBCheckFile(made.path().c_str(), &check) != QDB_OK) return QDB_E_IO;
    return made.placeAsNewTarget();
  } catch (const std::bad_alloc &) {
    return QDB_E_NOMEMORY;
  } catch (...) {
    return QDB_E_IO;
  }
}

}  // namespace platform
