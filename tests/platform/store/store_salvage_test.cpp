// Salvage copies every record that can still be read into a new, sound store
// with the same catalog, counts what it could not save, and never changes the
// damaged file.
#include <string>
#include <vector>

#include "platform/store/whole_file_fixture.h"

using namespace platform;
using alertdb_test::SampleTable;
using alertdb_test::WholeFileTest;

namespace {

class SalvageTest : public WholeFileTest {
 protected:
  // The catalog of a file as the store describes it, and its query types.
  std::string catalog(const std::string &name) {
    KEPDB *h = open(name, kOpenExisting);
    EXPECT_NE(h, nullptr);
    if (!h) return "";
    StoreTableInfo info;
    EXPECT_EQ(QDBTableInfo(h, "Sample_Table", &info), 0u);
    close(h);
    std::string out = info.name + "|" + info.title + "|" + std::to_string(info.idKey);
    for (const StoreFieldInfo &f : info.fields) {
      out += "|" + f.name + "," + std::to_string(f.keyNumber) + "," + std::to_string(f.attribute) +
             "," + std::to_string(f.size) + "," + std::to_string(f.flags) + "," + f.description +
             "," + f.queryType;
    }
    sqlite3 *db = nullptr;
    EXPECT_EQ(sqlite3_open_v2(dataPath(name).c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    for (const char *sql :
         {"SELECT group_concat(name || ':' || mask) FROM alertdb_query_types",
          "SELECT group_concat(type_name || position || value || text) FROM "
          "alertdb_query_type_values",
          "SELECT group_concat(hex(entry)) FROM alertdb_query_info",
          "SELECT group_concat(callback_dll || callback_entry || reserved || second_key) FROM "
          "alertdb_tables"}) {
      sqlite3_stmt *s = nullptr;
      sqlite3_prepare_v2(db, sql, -1, &s, nullptr);
      if (sqlite3_step(s) == SQLITE_ROW && sqlite3_column_text(s, 0)) {
        out += "|" + std::string(reinterpret_cast<const char *>(sqlite3_column_text(s, 0)));
      }
      sqlite3_finalize(s);
    }
    sqlite3_close(db);
    return out;
  }
};

TEST_F(SalvageTest, EveryIntactRecordIsSavedAndTheDamagedOneCounted) {
  makeStore("Store.dat");
  std::string expectedCatalog = catalog("Store.dat");
  flipInRecord("Store.dat");
  StoreSalvageReport report;
  ASSERT_EQ(salvage("Store.dat", "Saved.dat", &report), QDB_OK);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].name, "Sample_Table");
  EXPECT_EQ(report.tables[0].saved, 99u);
  EXPECT_EQ(report.tables[0].lost, 1u);
  ASSERT_EQ(report.problems.size(), 1u);
  EXPECT_EQ(report.problems[0].row, 43);
  _GUID lostId = idOf(42);
  ASSERT_TRUE(report.problems[0].hasObjectId);
  EXPECT_EQ(std::memcmp(&report.problems[0].objectId, &lostId, sizeof lostId), 0);

  // A sound store, the same catalog, the records byte for byte.
  StoreCheckReport check;
  EXPECT_EQ(QDBCheckFile(dataPath("Saved.dat").c_str(), &check), QDB_OK);
  EXPECT_EQ(check.tables[0].records, 99u);
  EXPECT_EQ(catalog("Saved.dat"), expectedCatalog);
  EXPECT_EQ(records("Saved.dat"), expectedRecords(100, 42));
  EXPECT_EQ(leftovers({"Store.dat", "Saved.dat"}, {"Store.dat"}), std::vector<std::string>{});

  // Records keep their insertion numbers, which order records of equal keys.
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(dataPath("Saved.dat").c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
            SQLITE_OK);
  sqlite3_stmt *s = nullptr;
  sqlite3_prepare_v2(db, "SELECT count(*), sum(seq = k3 + 1) FROM Sample_Table", -1, &s, nullptr);
  ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(s, 0), 99);
  EXPECT_EQ(sqlite3_column_int(s, 1), 99);
  sqlite3_finalize(s);
  sqlite3_close(db);
}

TEST_F(SalvageTest, ADamagedIndexOfTheCatalogHidesNoField) {
  makeStore("Store.dat");
  std::string expectedCatalog = catalog("Store.dat");
  // The catalog's own index no longer finds the table's third field.
  changeInIndex("Store.dat", "sqlite_autoindex_alertdb_fields_1", "Sample_Table", "Sample_TablX");
  StoreSalvageReport report;
  ASSERT_EQ(salvage("Store.dat", "Saved.dat", &report), QDB_OK);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].saved, 100u);
  EXPECT_EQ(catalog("Saved.dat"), expectedCatalog);
  EXPECT_EQ(records("Saved.dat"), expectedRecords(100));
}

TEST_F(SalvageTest, ARecordDamagedInTheLogIsLostAndTheLogLeftAlone) {
  makeStore("Store.dat");
  sql("Store.dat", "UPDATE Sample_Table SET record=x'00' WHERE k3=9", true);
  ASSERT_NE(readFile(dataPath("Store.dat-wal")), "");
  StoreSalvageReport report;
  ASSERT_EQ(salvage("Store.dat", "Saved.dat", &report), QDB_OK);
  EXPECT_EQ(report.tables[0].saved, 99u);
  EXPECT_EQ(report.tables[0].lost, 1u);
  EXPECT_EQ(records("Saved.dat"), expectedRecords(100, 9));
}

TEST_F(SalvageTest, AFileCutShortGivesUpOnlyWhatIsGone) {
  makeStore("Store.dat", 2000);
  std::string whole = readFile(dataPath("Store.dat"));
  writeFile(dataPath("Cut.dat"), whole.substr(0, whole.size() - 6 * 4096));
  StoreSalvageReport report;
  ASSERT_EQ(salvage("Cut.dat", "Saved.dat", &report), QDB_OK);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_GT(report.tables[0].saved, 0u);
  EXPECT_LE(report.tables[0].saved + report.tables[0].lost, 2000u);
  StoreCheckReport check;
  EXPECT_EQ(QDBCheckFile(dataPath("Saved.dat").c_str(), &check), QDB_OK);
  // What was saved is what was there.
  std::vector<std::string> all = expectedRecords(2000), saved = records("Saved.dat");
  EXPECT_EQ(saved.size(), report.tables[0].saved);
  for (const std::string &record : saved) {
    EXPECT_NE(std::find(all.begin(), all.end(), record), all.end());
  }
}

TEST_F(SalvageTest, APageLostInTheMiddleCostsOnlyTheRecordsOnIt) {
  makeStore("Store.dat", 2000);
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(dataPath("Store.dat").c_str(), &db), SQLITE_OK);
  sqlite3_stmt *s = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA page_size", -1, &s, nullptr);
  ASSERT_EQ(sqlite3_step(s), SQLITE_ROW);
  auto pageSize = static_cast<std::size_t>(sqlite3_column_int64(s, 0));
  sqlite3_finalize(s);
  sqlite3_close(db);
  std::string bytes = readFile(dataPath("Store.dat"));
  std::size_t page = bytes.find(kNeedle) / pageSize;
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page * pageSize), pageSize, '\0');
  writeFile(dataPath("Store.dat"), bytes);

  StoreSalvageReport report;
  ASSERT_EQ(salvage("Store.dat", "Saved.dat", &report), QDB_OK);
  ASSERT_EQ(report.tables.size(), 1u);
  const StoreSalvageTable &counts = report.tables[0];
  // The key indexes still list every record, so each lost one is counted.
  EXPECT_EQ(counts.saved + counts.lost, 2000u);
  EXPECT_GT(counts.lost, 0u);
  EXPECT_LT(counts.lost, 100u);
  std::vector<std::string> all = expectedRecords(2000), saved = records("Saved.dat");
  ASSERT_EQ(saved.size(), counts.saved);
  EXPECT_EQ(saved.front(), all.front());
  EXPECT_EQ(saved.back(), all.back()) << "reading went on past the damaged page";
  for (const std::string &record : saved) {
    EXPECT_NE(std::find(all.begin(), all.end(), record), all.end());
  }

  // The check counts the same records as damaged, each named.
  StoreCheckReport check;
  ASSERT_EQ(QDBCheckFile(dataPath("Store.dat").c_str(), &check), QDB_E_DAMAGED);
  ASSERT_EQ(check.tables.size(), 1u);
  EXPECT_EQ(check.tables[0].damaged, counts.lost);
  EXPECT_EQ(check.tables[0].records, 2000u);
}

TEST_F(SalvageTest, ATargetThatExistsOrASourceThatIsNoStoreIsRefused) {
  makeStore("Store.dat");
  flipInRecord("Store.dat");
  writeFile(dataPath("Saved.dat"), "something of value");
  StoreSalvageReport report;
  EXPECT_EQ(salvage("Store.dat", "Saved.dat", &report), QDB_E_EXISTS);
  EXPECT_EQ(salvage("Store.dat", "SAVED.DAT", &report), QDB_E_EXISTS);
  EXPECT_EQ(readFile(dataPath("Saved.dat")), "something of value");

  EXPECT_EQ(salvage("Missing.dat", "New.dat", &report), QDB_E_NOTFOUND);
  writeFile(dataPath("Text.dat"), std::string(8192, 'x'));
  EXPECT_EQ(salvage("Text.dat", "New.dat", &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.problems.size(), 1u);
  EXPECT_NE(report.problems[0].what.find("not a record store"), std::string::npos);
  // A store whose catalog is gone cannot tell its records apart.
  makeStore("NoCatalog.dat");
  sql("NoCatalog.dat", "DROP TABLE alertdb_tables");
  EXPECT_EQ(salvage("NoCatalog.dat", "New.dat", &report), QDB_E_DAMAGED);
  EXPECT_FALSE(fileExists(dataPath("New.dat")));
  EXPECT_EQ(QDBSalvageFile(nullptr, "x", &report), QDB_E_BADARG);
  EXPECT_EQ(QDBSalvageFile(dataPath("Store.dat").c_str(), dataPath("New.dat").c_str(), nullptr),
            QDB_E_BADARG);
  EXPECT_EQ(leftovers({"Store.dat", "Saved.dat", "Text.dat", "NoCatalog.dat"},
                      {"Store.dat", "NoCatalog.dat"}),
            std::vector<std::string>{});
}

}  // namespace
