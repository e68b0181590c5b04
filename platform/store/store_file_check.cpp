// The full check of a data file, reporting every problem it finds instead of
// stopping at the first, and reading the file without changing it.
#include <cstdlib>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "platform/file_names.h"
#include "platform/store/record_store.h"
#include "platform/store/sqlite/sqlite_catalog_internal.h"
#include "platform/store/sqlite/sqlite_file_check_internal.h"
#include "platform/store/sqlite/sqlite_file_reader_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"
#include "platform/store/store_backend_internal.h"
#include "platform/store/store_problems_internal.h"

namespace platform {

namespace {

using namespace store;
using namespace store::sqlite;

constexpr const char *kRequiredCatalog[] = {"alertdb_tables", "alertdb_fields",
                                            "alertdb_query_info"};
constexpr const char *kQueryTypeCatalog[] = {"alertdb_query_types", "alertdb_query_type_values"};
constexpr int kMostIntegrityMessages = 1000;

class FileCheck {
 public:
  FileCheck(sqlite3 *db, int format, StoreCheckReport *report, const StoreProgress &progress)
      : db_(db), format_(format), report_(report), progress_(progress) {}

  void run() {
    readSchema();
    checkIntegrity();
    std::vector<std::string> names;
    if (!checkCatalog(&names)) return;
    std::vector<TableDef> defs;
    for (const std::string &name : names) {
      TableDef def;
      std::uint32_t status = loadTableDef(db_, name, &def);
      if (status != QDB_OK) {
        report_->tables.push_back({name, 0, 0});
        problem(name, status == QDB_E_DAMAGED ? "its catalog entry disagrees with itself"
                                              : "its catalog entry cannot be read");
        continue;
      }
      defs.push_back(std::move(def));
    }
    for (const TableDef &def : defs) total_ += countRows(db_, def.name);
    for (const TableDef &def : defs) checkTable(def);
  }

 private:
  void problem(const std::string &table, const std::string &what, std::int64_t row = 0,
               const _GUID *objectId = nullptr) {
    addProblem(&report_->problems, table, what, row, objectId);
  }

  // Which table each b-tree and index belongs to, so that integrity messages
  // can name it.
  void readSchema() {
    Statement s;
    if (s.prepare(db_, "SELECT type, name, tbl_name, rootpage FROM sqlite_master") != SQLITE_OK) {
      return;
    }
    Use q(s);
    while (sqlite3_step(*q) == SQLITE_ROW) {
      std::string type = columnText(*q, 0), name = columnText(*q, 1), table = columnText(*q, 2);
      if (type == "table") sqlTables_.insert(name);
      if (type == "index") indexes_[name] = table;
      roots_[sqlite3_column_int64(*q, 3)] = table;
    }
  }

  std::string tableOfMessage(const std::string &message) const {
    // "Tree 5 page 9 cell 0: ..." names the b-tree by its root page.
    if (message.rfind("Tree ", 0) == 0) {
      auto it = roots_.find(std::strtoll(message.c_str() + 5, nullptr, 10));
      if (it != roots_.end()) return it->second;
    }
    // "row 3 missing from index T:k2", "wrong # of entries in index T:k2"
    std::size_t at = message.find(" index ");
    if (at != std::string::npos) {
      auto it = indexes_.find(message.substr(at + 7));
      if (it != indexes_.end()) return it->second;
    }
    return "";
  }

  void checkIntegrity() {
    Statement s;
    std::string sql = "PRAGMA integrity_check(" + std::to_string(kMostIntegrityMessages) + ")";
    if (s.prepare(db_, sql) != SQLITE_OK) {
      problem("", std::string("SQLite's integrity check cannot run: ") + sqlite3_errmsg(db_));
      return;
    }
    Use q(s);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      std::string message = columnText(*q, 0);
      if (message == "ok") continue;
      const std::string prefix = "*** in database main ***\n";
      if (message.rfind(prefix, 0) == 0) message.erase(0, prefix.size());
      problem(tableOfMessage(message), "integrity check: " + message);
    }
    if (rc != SQLITE_DONE) {
      problem("", std::string("SQLite's integrity check broke off: ") + sqlite3_errmsg(db_));
    }
  }

  // The catalog tables, the tables they list, and the SQL tables they do
  // not; false when there is no catalog to go on with.
  bool checkCatalog(std::vector<std::string> *names) {
    bool whole = true;
    for (const char *table : kRequiredCatalog) {
      if (!sqlTables_.count(table)) {
        problem("", std::string("the catalog table ") + table + " is missing");
        whole = false;
      }
    }
    for (const char *table : kQueryTypeCatalog) {
      if (!sqlTables_.count(table)) {
        problem("", std::string("the catalog table ") + table +
                        " is missing (the recovery open rebuilds it)");
      }
    }
    if (!sqlTables_.count("alertdb_tables")) return false;
    {
      Statement s;
      if (s.prepare(db_, "SELECT name FROM alertdb_tables ORDER BY name") != SQLITE_OK) {
        problem("", std::string("the catalog cannot be read: ") + sqlite3_errmsg(db_));
        return false;
      }
      Use q(s);
      int rc;
      while ((rc = sqlite3_step(*q)) == SQLITE_ROW) names->push_back(columnText(*q, 0));
      if (rc != SQLITE_DONE) {
        problem("", std::string("the catalog cannot be read whole: ") + sqlite3_errmsg(db_));
      }
    }
    std::set<std::string> catalogued(names->begin(), names->end());
    for (const std::string &table : sqlTables_) {
      if (!catalogued.count(table) && !isReservedTableName(table)) {
        problem(table, "the SQL table is not in the catalog");
      }
    }
    if (whole) {
      for (const char *table : {"alertdb_fields", "alertdb_query_info"}) {
        Statement s;
        if (s.prepare(db_, std::string("SELECT DISTINCT table_name FROM ") + table) != SQLITE_OK) {
          continue;
        }
        Use q(s);
        while (sqlite3_step(*q) == SQLITE_ROW) {
          std::string name = columnText(*q, 0);
          if (!catalogued.count(name)) {
            problem(name, std::string(table) + " describes a table that alertdb_tables lacks");
          }
        }
      }
    }
    return true;
  }

  void checkTable(const TableDef &def) {
    StoreTableCheck counts{def.name, 0, 0};
    Repairs repairs;
    std::vector<std::string> problems;
    if (describeTable(db_, def, &repairs, &problems) != QDB_OK) {
      problems.push_back(std::string("its SQL schema cannot be read: ") + sqlite3_errmsg(db_));
    }
    for (const std::string &what : problems) problem(def.name, what);
    for (const KeyDef &k : def.keys) {
      std::string index = keyIndexName(def.name, k.keyNumber);
      if (!indexes_.count(index)) {
        problem(def.name, "key index " + index + " is missing (the recovery open rebuilds it)");
      }
    }
    std::vector<unsigned char> image(def.recordSize);
    std::vector<LostRow> lost;
    std::vector<std::string> breaks;
    RowVerdict verdict;
    std::uint32_t status = readRows(
        db_, def,
        [&](sqlite3_stmt *row) {
          ++counts.records;
          judgeRow(def, format_ == kLegacyFormat, row, image.data(), &verdict);
          if (!verdict.problems.empty()) {
            ++counts.damaged;
            for (const std::string &what : verdict.problems) {
              problem(def.name, what, sqlite3_column_int64(row, 0),
                      verdict.hasObjectId ? &verdict.objectId : nullptr);
            }
          }
          if (progress_ && ++done_ % 1024 == 0) progress_(done_, total_);
        },
        &lost, &breaks);
    if (status != QDB_OK) {
      problem(def.name, std::string("its rows cannot be read: ") + sqlite3_errmsg(db_));
    }
    for (const std::string &what : breaks) problem(def.name, what);
    for (const LostRow &row : lost) {
      ++counts.records;
      ++counts.damaged;
      problem(def.name, row.why, row.seq, row.hasObjectId ? &row.objectId : nullptr);
    }
    report_->tables.push_back(counts);
    if (progress_) progress_(done_, total_);
  }

  sqlite3 *db_;
  int format_;
  StoreCheckReport *report_;
  const StoreProgress &progress_;
  std::set<std::string> sqlTables_;
  std::map<std::string, std::string> indexes_;
  std::map<std::int64_t, std::string> roots_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

std::uint32_t QDBCheckFile(const char *path, StoreCheckReport *report,
                           const StoreProgress &progress) {
  if (!path || !*path || !report) return QDB_E_BADARG;
  try {
    *report = StoreCheckReport{};
    if (usesServerStore()) return checkServerStore(path, report, progress);
    std::string file = ResolveFileName(path);
    auto fileProblem = [&](const std::string &what) { addProblem(&report->problems, "", what); };
    std::string reason;
    FileState state = inspectFile(file, &reason);
    if (state == FileState::Missing) return QDB_E_NOTFOUND;
    if (state == FileState::NotStore) {
      fileProblem("not a record store: " + reason);
      return QDB_E_DAMAGED;
    }
    report->isStore = true;
    // A damaged header is no reason to stop: the rest says what can be saved.
    if (state == FileState::Damaged) fileProblem("the header shows damage: " + reason);
    ReadOnlyFile source;
    std::uint32_t opened = source.open(file);
    if (opened != QDB_OK) {
      fileProblem("SQLite cannot open the file");
      return opened == QDB_E_IO ? QDB_E_IO : QDB_E_DAMAGED;
    }
    std::string why;
    if (!source.schemaReadable(&why)) fileProblem("SQLite cannot read its schema: " + why);
    report->format = source.format();
    if (report->format != kLegacyFormat && report->format != kFormatVersion) {
      fileProblem(std::string("the store format cannot be read: ") + sqlite3_errmsg(source.db()));
    }
    FileCheck(source.db(), report->format, report, progress).run();
    if (!report->problems.empty()) return QDB_E_DAMAGED;
    source.closeSound();
    return QDB_OK;
  } catch (const std::bad_alloc &) {
    return QDB_E_NOMEMORY;
  } catch (...) {
    return QDB_E_IO;
  }
}

}  // namespace platform
