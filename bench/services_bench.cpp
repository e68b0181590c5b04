// Notification services: typed adds of all fourteen kinds (a specific row and
// a catalogue row each), and a walk through the catalogue that opens the
// table of every kind it meets. Beside each, plain SQLite doing the same
// rows: the very tables and indexes the engine made (their SQL copied from a
// file it wrote), the very record images it stored, the engine's pragmas.
// The baseline skips the engine's encoding and decoding of record images and
// knows each row's type without reading it, so it is the stricter side.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "bench_support.h"
#include "framework/file_locks.h"
#include "platform/guid.h"
#include "services/notify_services_table.h"

namespace {

constexpr int kBatch = 100;      // service sets per transaction when adding
constexpr int kWalkSets = 200;   // service sets in the walked catalogue
constexpr int kKinds = 14;       // kinds with a specific table
constexpr int kRowsPerSet = 16;  // one row of every type but 0 and 17

// A data directory of its own for one run; the previous one comes back after.
class TempDataDir {
 public:
  TempDataDir() {
    const char *previous = std::getenv("ALERTDB_DATA_DIR");
    if (previous) previous_ = previous;
    char pattern[] = "/tmp/alertdb-bench-XXXXXX";
    path_ = mkdtemp(pattern);
    setenv("ALERTDB_DATA_DIR", path_.c_str(), 1);
  }
  ~TempDataDir() {
    std::filesystem::remove_all(path_);
    if (previous_.empty()) {
      unsetenv("ALERTDB_DATA_DIR");
    } else {
      setenv("ALERTDB_DATA_DIR", previous_.c_str(), 1);
    }
  }
  std::string file(const char *name) const { return path_ + "/" + name; }

 private:
  std::string path_, previous_;
};

using Catalogue = alertdb_bench::Lockable<CAlertNtfyServDB>;

// One service of every kind with a specific table, in service type order.
using SpecificRecords =
    std::tuple<ALRTMHSSERVICEREC, ALRTSNMPSERVICEREC, ALRTMCISERVICEREC, ALRTCOMPUSSERVICEREC,
               ALRTSMTPSERVICEREC, ALRTMAPISERVICEREC, ALRTCCMAILSERVICEREC, ALRTWAVESERVICEREC,
               ALRTTTSSERVICEREC, ALRTPHONESERVICEREC, ALRTAPAGESERVICEREC, ALRTNPAGESERVICEREC,
               ALRTGENPORTSERVICEREC, ALRTBROADCASTSERVICEREC>;
constexpr const char *kSpecificTables[kKinds] = {
    "MHS_Service",   "SNMP_Service",   "MCI_Service",     "COMPUS_Service",   "SMTP_Service",
    "MAPI_Service",  "CCMAIL_Service", "WAVE_Service",    "TTS_Service",      "PHONE_Service",
    "APAGE_Service", "NPAGE_Service",  "GENPORT_Service", "BROADCAST_Service"};
constexpr std::uint32_t kSpecificTypes[kKinds] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16};

struct ServiceSet {
  SpecificRecords specific;
  ALRTNTFYSERV catalogue[kKinds];
};

// Settings as a configuration tool writes them: short texts, zeros after.
std::unique_ptr<ServiceSet> makeServiceSet() {
  auto set = std::make_unique<ServiceSet>();
  int k = 0;
  std::apply(
      [&](auto &...settings) {
        ((std::memset(&settings, 0, sizeof settings),
          std::snprintf(reinterpret_cast<char *>(&settings) + 20, 24, "settings of kind %d", k),
          std::memset(&set->catalogue[k], 0, sizeof set->catalogue[k]),
          std::snprintf(set->catalogue[k].Service_Name, 33, "Service %d", k),
          std::strcpy(set->catalogue[k].Product, "Alert Manager"),
          std::strcpy(set->catalogue[k].Comment, "Delivers alerts of the night shift."),
          set->catalogue[k].Enabled = 1, ++k),
         ...);
      },
      set->specific);
  return set;
}

// Typed adds of the whole set, every row under a new object ID.
std::uint32_t addServiceSet(Catalogue &catalogue, ServiceSet &set) {
  std::uint32_t failed = 0;
  int k = 0;
  std::apply(
      [&](auto &...settings) {
        ((
             settings.KEPOID = {}, set.catalogue[k].KEPOID = {},
             failed |=
             [&] {
               _GUID oid, settingsOid;
               return catalogue.DBAlertRecAdd(&set.catalogue[k], &oid, &settings, &settingsOid);
             }(),
             ++k),
         ...);
      },
      set.specific);
  return failed;
}

// The rows of a catalogue with every type (but 0 and 17) in it.
void fillCatalogue(Catalogue &catalogue, int sets) {
  auto set = makeServiceSet();
  DBFileLock(catalogue.handle());
  for (int i = 0; i < sets; ++i) {
    addServiceSet(catalogue, *set);
    for (std::uint32_t type : {14u, 15u}) {
      ALRTNTFYSERV row = set->catalogue[0];
      row.KEPOID = {};
      row.ServiceType = type;
      _GUID oid;
      catalogue.DBAlertRecAdd(&row, &oid);
    }
  }
  DBFileUnlock(catalogue.handle());
}

// ------------------------------------------------------------ plain SQLite

using alertdb_bench::decodeImage;
using alertdb_bench::Segment;
using alertdb_bench::Statement;

// A new file in WAL mode, then the engine's connection settings on it.
sqlite3 *openLikeEngine(const std::string &path) {
  sqlite3 *db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
  }
  sqlite3_close(db);
  return alertdb_bench::openLikeEngine(path);
}

std::string sqlName(const std::string &name) { return "\"" + name + "\""; }

// One stored row of a table as the engine wrote it, its row number aside;
// its first column is the record image.
struct StoredRow {
  std::vector<std::string> columns;
  std::vector<int> types;
  std::vector<std::string> values;
  int idColumn = -1;  // the column of the unique object-ID key
};

// What the engine made of one service set: the SQL of its tables and
// indexes, and each table's row.
struct EngineImage {
  std::vector<std::string> ddl;
  std::size_t catalogueImageSize = 0;  // bytes of a decoded catalogue row
  StoredRow specific[kKinds];
  StoredRow catalogue[kKinds];
};

std::string uniqueColumn(sqlite3 *db, const std::string &table) {
  std::string column;
  Statement indexes(db, "PRAGMA index_list(" + sqlName(table) + ")");
  while (sqlite3_step(indexes.get()) == SQLITE_ROW) {
    if (sqlite3_column_int(indexes.get(), 2) != 1) continue;
    std::string index = reinterpret_cast<const char *>(sqlite3_column_text(indexes.get(), 1));
    Statement info(db, "PRAGMA index_info(" + sqlName(index) + ")");
    if (sqlite3_step(info.get()) == SQLITE_ROW) {
      column = reinterpret_cast<const char *>(sqlite3_column_text(info.get(), 2));
    }
  }
  return column;
}

// The integer primary key of a table: SQLite numbers new rows itself.
std::string rowNumberColumn(sqlite3 *db, const std::string &table) {
  Statement info(db, "PRAGMA table_info(" + sqlName(table) + ")");
  while (sqlite3_step(info.get()) == SQLITE_ROW) {
    if (sqlite3_column_int(info.get(), 5) == 1) {
      return reinterpret_cast<const char *>(sqlite3_column_text(info.get(), 1));
    }
  }
  return "";
}

// The rows of `table` in insertion order, without the row number column.
std::vector<StoredRow> storedRows(sqlite3 *db, const std::string &table) {
  std::vector<StoredRow> rows;
  const std::string id = uniqueColumn(db, table), rowNumber = rowNumberColumn(db, table);
  Statement select(db, "SELECT * FROM " + sqlName(table) + " ORDER BY rowid");
  while (sqlite3_step(select.get()) == SQLITE_ROW) {
    StoredRow row;
    for (int c = 0; c < sqlite3_column_count(select.get()); ++c) {
      std::string name = sqlite3_column_name(select.get(), c);
      if (name == rowNumber) continue;
      if (name == id) row.idColumn = static_cast<int>(row.columns.size());
      row.columns.push_back(name);
      row.types.push_back(sqlite3_column_type(select.get(), c));
      const void *bytes = sqlite3_column_blob(select.get(), c);
      row.values.emplace_back(static_cast<const char *>(bytes),
                              static_cast<std::size_t>(sqlite3_column_bytes(select.get(), c)));
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

// Written once per run by the engine itself, in a directory of its own.
const EngineImage &engineImage() {
  static const EngineImage image = [] {
    EngineImage made;
    TempDataDir dir;
    {
      Catalogue catalogue;
      catalogue.DBCreate();
      auto set = makeServiceSet();
      addServiceSet(catalogue, *set);
    }
    sqlite3 *db = nullptr;
    sqlite3_open_v2(dir.file("AlServdb.dat").c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::vector<std::string> tables(kSpecificTables, kSpecificTables + kKinds);
    tables.push_back("Notify_Services");
    for (const std::string &table : tables) {
      Statement sql(db, "SELECT sql FROM sqlite_master WHERE tbl_name=" + sqlName(table) +
                            " AND sql NOT NULL ORDER BY type DESC");
      while (sqlite3_step(sql.get()) == SQLITE_ROW) {
        made.ddl.push_back(reinterpret_cast<const char *>(sqlite3_column_text(sql.get(), 0)));
      }
    }
    {
      Statement size(db, "SELECT record_size FROM alertdb_tables WHERE name='Notify_Services'");
      if (sqlite3_step(size.get()) == SQLITE_ROW) {
        made.catalogueImageSize = static_cast<std::size_t>(sqlite3_column_int64(size.get(), 0));
      }
    }
    std::vector<StoredRow> catalogueRows = storedRows(db, "Notify_Services");
    for (int k = 0; k < kKinds; ++k) {
      made.specific[k] = storedRows(db, kSpecificTables[k]).at(0);
      made.catalogue[k] = catalogueRows.at(static_cast<std::size_t>(k));
    }
    sqlite3_close(db);
    return made;
  }();
  return image;
}

// Inserts rows shaped like a stored row, with new object IDs.
class RowWriter {
 public:
  RowWriter(sqlite3 *db, const std::string &table, const StoredRow &row) : row_(row) {
    std::string names, marks;
    for (std::size_t c = 0; c < row.columns.size(); ++c) {
      names += (c ? "," : "") + sqlName(row.columns[c]);
      marks += c ? ",?" : "?";
    }
    insert_ = std::make_unique<Statement>(
        db, "INSERT INTO " + sqlName(table) + "(" + names + ") VALUES(" + marks + ")");
  }

  // `linkFrom` columns holding the prototype's `linkFrom` value get `linkTo`.
  bool add(const _GUID &id, const std::string *linkFrom = nullptr, const _GUID *linkTo = nullptr) {
    sqlite3_stmt *s = insert_->get();
    for (std::size_t c = 0; c < row_.columns.size(); ++c) {
      int column = static_cast<int>(c) + 1;
      const std::string &v = row_.values[c];
      if (static_cast<int>(c) == row_.idColumn) {
        sqlite3_bind_blob(s, column, &id, 16, SQLITE_STATIC);
      } else if (linkFrom && v == *linkFrom && row_.types[c] == SQLITE_BLOB) {
        sqlite3_bind_blob(s, column, linkTo, 16, SQLITE_STATIC);
      } else if (row_.types[c] == SQLITE_INTEGER) {
        sqlite3_bind_int64(s, column, std::stoll(v));
      } else if (row_.types[c] == SQLITE_NULL) {
        sqlite3_bind_null(s, column);
      } else {
        sqlite3_bind_blob(s, column, v.data(), static_cast<int>(v.size()), SQLITE_STATIC);
      }
    }
    bool done = sqlite3_step(s) == SQLITE_DONE;
    sqlite3_reset(s);
    return done;
  }
  const std::string &prototypeId() const { return row_.values[row_.idColumn]; }

 private:
  const StoredRow &row_;
  std::unique_ptr<Statement> insert_;
};

class PlainServices {
 public:
  explicit PlainServices(const std::string &path) : db_(openLikeEngine(path)) {
    const EngineImage &image = engineImage();
    for (const std::string &sql : image.ddl)
      sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
    for (int k = 0; k < kKinds; ++k) {
      specific_.push_back(std::make_unique<RowWriter>(db_, kSpecificTables[k], image.specific[k]));
      catalogue_.push_back(std::make_unique<RowWriter>(db_, "Notify_Services", image.catalogue[k]));
    }
  }
  ~PlainServices() {
    specific_.clear();
    catalogue_.clear();
    sqlite3_close(db_);
  }
  sqlite3 *db() const { return db_; }
  void begin() { sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr); }
  void commit() { sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr); }

  // The same rows as a typed add of every kind; false on a failed insert.
  bool addServiceSet() {
    bool ok = true;
    for (int k = 0; k < kKinds; ++k) {
      _GUID settingsId, id;
      platform::CoCreateGuid(&settingsId);
      platform::CoCreateGuid(&id);
      ok &= specific_[k]->add(settingsId);
      ok &= catalogue_[k]->add(id, &specific_[k]->prototypeId(), &settingsId);
    }
    return ok;
  }
  // A catalogue row of a type without a specific table.
  bool addPlainRow() {
    _GUID id;
    platform::CoCreateGuid(&id);
    return catalogue_[0]->add(id);
  }

 private:
  sqlite3 *db_;
  std::vector<std::unique_ptr<RowWriter>> specific_, catalogue_;
};

// ------------------------------------------------------------ typed adds

// Rows done, for the figures per row beside the baseline's.
void countRows(benchmark::State &state, std::int64_t perIteration) {
  state.SetItemsProcessed(state.iterations() * perIteration);
  state.counters["records"] =
      benchmark::Counter(static_cast<double>(state.iterations() * perIteration));
}

void Engine_ServiceTypedAdd(benchmark::State &state) {
  TempDataDir dir;
  Catalogue catalogue;
  catalogue.DBCreate();
  auto set = makeServiceSet();
  addServiceSet(catalogue, *set);  // every kind's table open before timing
  int pending = 0;
  DBFileLock(catalogue.handle());
  for (auto _ : state) {
    if (addServiceSet(catalogue, *set) != 0) state.SkipWithError("typed add failed");
    if (++pending == kBatch) {
      DBFileUnlock(catalogue.handle());
      DBFileLock(catalogue.handle());
      pending = 0;
    }
  }
  DBFileUnlock(catalogue.handle());
  countRows(state, kKinds);
}

void Sqlite_ServiceTypedAdd(benchmark::State &state) {
  TempDataDir dir;
  PlainServices services(dir.file("AlServdb.dat"));
  services.addServiceSet();
  int pending = 0;
  services.begin();
  for (auto _ : state) {
    if (!services.addServiceSet()) state.SkipWithError("insert failed");
    if (++pending == kBatch) {
      services.commit();
      services.begin();
      pending = 0;
    }
  }
  services.commit();
  countRows(state, kKinds);
}

// ------------------------------------------------------------ catalogue walk

// Each walk is a fresh catalogue object, as a reader process makes one.
void Engine_CatalogueWalk(benchmark::State &state) {
  TempDataDir dir;
  {
    Catalogue catalogue;
    catalogue.DBCreate();
    fillCatalogue(catalogue, kWalkSets);
  }
  for (auto _ : state) {
    Catalogue catalogue;
    catalogue.DBOpen();
    ALRTNTFYSERV row;
    int rows = 0;
    for (std::uint32_t r =
             catalogue.DBAlertRecFindFirst(CAlertNtfyServDB::kIdKey, 0, nullptr, &row);
         r == 0; r = catalogue.DBAlertRecFindNext(&row)) {
      ++rows;
    }
    if (rows != kWalkSets * kRowsPerSet) state.SkipWithError("rows missing");
  }
  countRows(state, kWalkSets * kRowsPerSet);
}

void Sqlite_CatalogueWalk(benchmark::State &state) {
  TempDataDir dir;
  const std::string path = dir.file("AlServdb.dat");
  std::vector<std::uint32_t> typeOfRow(1, 0);  // by row number
  {
    PlainServices services(path);
    services.begin();
    for (int i = 0; i < kWalkSets; ++i) {
      services.addServiceSet();
      typeOfRow.insert(typeOfRow.end(), kSpecificTypes, kSpecificTypes + kKinds);
      for (std::uint32_t type : {14u, 15u}) {
        services.addPlainRow();
        typeOfRow.push_back(type);
      }
    }
    services.commit();
  }
  const EngineImage &image = engineImage();
  const StoredRow &prototype = image.catalogue[0];
  const std::string select = "SELECT rowid, " + sqlName(prototype.columns[0]) +
                             " FROM \"Notify_Services\" ORDER BY " +
                             sqlName(prototype.columns[prototype.idColumn]);
  const std::size_t imageSize = engineImage().catalogueImageSize;
  if (imageSize < sizeof(ALRTNTFYSERV)) {
    state.SkipWithError("no catalogue table");
    return;
  }
  std::vector<unsigned char> beside(imageSize - sizeof(ALRTNTFYSERV));
  for (auto _ : state) {
    sqlite3 *db = openLikeEngine(path);
    {
      std::unique_ptr<Statement> kindTables[17];
      Statement walk(db, select);
      ALRTNTFYSERV row;
      int rows = 0;
      while (sqlite3_step(walk.get()) == SQLITE_ROW) {
        // Decoded as the engine decodes it: the record and the fields the
        // table object keeps beside it.
        const Segment segments[] = {{sizeof row, reinterpret_cast<unsigned char *>(&row)},
                                    {imageSize - sizeof row, beside.data()}};
        if (!decodeImage(sqlite3_column_blob(walk.get(), 1),
                         static_cast<std::size_t>(sqlite3_column_bytes(walk.get(), 1)), segments,
                         2)) {
          state.SkipWithError("a stored row does not decode");
          break;
        }
        std::uint32_t type =
            typeOfRow[static_cast<std::size_t>(sqlite3_column_int64(walk.get(), 0))];
        for (int k = 0; k < kKinds; ++k) {
          if (kSpecificTypes[k] != type || kindTables[type]) continue;
          const StoredRow &settings = image.specific[k];
          kindTables[type] = std::make_unique<Statement>(
              db, "SELECT " + sqlName(settings.columns[0]) + " FROM " +
                      sqlName(kSpecificTables[k]) + " WHERE " +
                      sqlName(settings.columns[settings.idColumn]) + "=?");
        }
        ++rows;
      }
      if (rows != kWalkSets * kRowsPerSet) state.SkipWithError("rows missing");
    }
    sqlite3_close(db);
  }
  countRows(state, kWalkSets * kRowsPerSet);
}

}  // namespace

BENCHMARK(Engine_ServiceTypedAdd)->Name("Engine/ServiceTypedAdd")->MinTime(0.2);
BENCHMARK(Sqlite_ServiceTypedAdd)->Name("Sqlite/ServiceTypedAdd")->MinTime(0.2);
BENCHMARK(Engine_CatalogueWalk)->Name("Engine/CatalogueWalk")->MinTime(0.2);
BENCHMARK(Sqlite_CatalogueWalk)->Name("Sqlite/CatalogueWalk")->MinTime(0.2);
