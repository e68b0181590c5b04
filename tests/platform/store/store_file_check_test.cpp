// The full check of a file names every problem it finds, down to the record,
// and leaves the file, write-ahead log included, as it was.
#include <sqlite3.h>

#include <string>
#include <vector>

#include "platform/store/whole_file_fixture.h"

using namespace platform;
using alertdb_test::SampleTable;
using alertdb_test::WholeFileTest;

namespace {

class FileCheckTest : public WholeFileTest {
 protected:
  // Checks the file, expecting it unchanged afterwards.
  std::uint32_t check(const std::string &name, StoreCheckReport *report) {
    std::string before = fileAndLog(name);
    std::uint32_t status = QDBCheckFile(dataPath(name).c_str(), report);
    EXPECT_EQ(fileAndLog(name), before) << "the check changed " << name;
    return status;
  }

  static std::vector<const StoreProblem *> problemsOf(const StoreCheckReport &report,
                                                      const std::string &table) {
    std::vector<const StoreProblem *> out;
    for (const StoreProblem &p : report.problems) {
      if (p.table == table) out.push_back(&p);
    }
    return out;
  }

  static bool mentions(const StoreCheckReport &report, const std::string &table,
                       const std::string &text) {
    for (const StoreProblem *p : problemsOf(report, table)) {
      if (p->what.find(text) != std::string::npos) return true;
    }
    return false;
  }

  static std::string listed(const StoreCheckReport &report) {
    std::string out;
    for (const StoreProblem &p : report.problems) {
      out += "[" + p.table + " row " + std::to_string(p.row) + "] " + p.what + "\n";
    }
    return out;
  }
};

TEST_F(FileCheckTest, ASoundStoreIsSoundWithEveryRecordCounted) {
  makeStore("Store.dat");
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_OK) << listed(report);
  EXPECT_TRUE(report.isStore);
  EXPECT_EQ(report.format, 2);
  EXPECT_TRUE(report.problems.empty());
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].name, "Sample_Table");
  EXPECT_EQ(report.tables[0].records, 100u);
  EXPECT_EQ(report.tables[0].damaged, 0u);
  EXPECT_EQ(leftovers({"Store.dat"}), std::vector<std::string>{}) << "the check leaves nothing";
  // The name is matched without regard to case, as the store does.
  EXPECT_EQ(QDBCheckFile(dataPath("STORE.DAT").c_str(), &report), QDB_OK);
}

TEST_F(FileCheckTest, AFlippedByteInARecordNamesThatRecordAlone) {
  makeStore("Store.dat");
  flipInRecord("Store.dat");
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.problems.size(), 1u) << listed(report);
  const StoreProblem &p = report.problems[0];
  EXPECT_EQ(p.table, "Sample_Table");
  EXPECT_EQ(p.row, 43) << "record 42 was the 43rd added";
  ASSERT_TRUE(p.hasObjectId) << "the object ID comes from the record's key column";
  _GUID expected = idOf(42);
  EXPECT_EQ(std::memcmp(&p.objectId, &expected, sizeof expected), 0);
  EXPECT_NE(p.what.find("checksum"), std::string::npos) << p.what;
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].records, 100u);
  EXPECT_EQ(report.tables[0].damaged, 1u);
}

TEST_F(FileCheckTest, KeyColumnsThatDisagreeWithTheRecordAreNamed) {
  makeStore("Store.dat");
  sql("Store.dat", "UPDATE Sample_Table SET k3=999 WHERE k3=7");
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.problems.size(), 1u) << listed(report);
  EXPECT_EQ(report.problems[0].row, 8);
  EXPECT_NE(report.problems[0].what.find("k3"), std::string::npos);
  EXPECT_NE(report.problems[0].what.find("Number"), std::string::npos);
  _GUID expected = idOf(7);
  ASSERT_TRUE(report.problems[0].hasObjectId);
  EXPECT_EQ(std::memcmp(&report.problems[0].objectId, &expected, sizeof expected), 0);
}

TEST_F(FileCheckTest, ATruncatedFileIsDamagedAtItsHeaderAndInItsTables) {
  makeStore("Store.dat", 400);
  std::string whole = readFile(dataPath("Store.dat"));
  for (std::size_t cut : {std::size_t{100}, std::size_t{4096}, std::size_t{3 * 4096}}) {
    SCOPED_TRACE(cut);
    writeFile(dataPath("Cut.dat"), whole.substr(0, whole.size() - cut));
    StoreCheckReport report;
    ASSERT_EQ(check("Cut.dat", &report), QDB_E_DAMAGED);
    EXPECT_TRUE(report.isStore);
    EXPECT_TRUE(mentions(report, "", "header shows damage")) << listed(report);
  }
}

TEST_F(FileCheckTest, ADamagedIndexIsNamedWithItsTable) {
  makeStore("Store.dat");
  // An entry of the name index no longer names its record.
  changeInIndex("Store.dat", "Sample_Table:k2", "r1", "r7");
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "Sample_Table", "integrity check")) << listed(report);
  // Every record itself is whole.
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].damaged, 0u) << listed(report);
}

TEST_F(FileCheckTest, TheCatalogIsCheckedAgainstTheTables) {
  makeStore("Index.dat");
  sql("Index.dat", "DROP INDEX \"Sample_Table:k3\"");
  StoreCheckReport report;
  ASSERT_EQ(check("Index.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "Sample_Table", "Sample_Table:k3 is missing")) << listed(report);

  makeStore("Stray.dat");
  sql("Stray.dat", "CREATE TABLE Stray(a); ALTER TABLE Sample_Table ADD COLUMN extra");
  ASSERT_EQ(check("Stray.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "Stray", "not in the catalog")) << listed(report);
  EXPECT_TRUE(mentions(report, "Sample_Table", "column extra")) << listed(report);

  makeStore("Uncatalogued.dat");
  sql("Uncatalogued.dat", "DELETE FROM alertdb_tables; DROP TABLE alertdb_query_type_values");
  ASSERT_EQ(check("Uncatalogued.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "Sample_Table", "not in the catalog")) << listed(report);
  EXPECT_TRUE(mentions(report, "Sample_Table", "alertdb_fields describes")) << listed(report);
  EXPECT_TRUE(mentions(report, "", "alertdb_query_type_values is missing")) << listed(report);

  makeStore("NoCatalog.dat");
  sql("NoCatalog.dat", "DROP TABLE alertdb_fields");
  ASSERT_EQ(check("NoCatalog.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "", "alertdb_fields is missing")) << listed(report);

  // A schema entry SQLite cannot parse: the store's open refuses the file,
  // so the check may not call it sound.
  makeStore("Schema.dat");
  sql("Schema.dat",
      "PRAGMA writable_schema=ON; UPDATE sqlite_master SET sql='CREATE TABLE alertdb_query_info(' "
      "WHERE name='alertdb_query_info'");
  ASSERT_EQ(check("Schema.dat", &report), QDB_E_DAMAGED);
  EXPECT_TRUE(mentions(report, "", "cannot read its schema")) << listed(report);
  EXPECT_EQ(QDBInit(0, dataPath("Schema.dat").c_str(), kOpenExisting, 1), nullptr);
}

TEST_F(FileCheckTest, ALogBesideTheFileIsReadButNeverWrittenBack) {
  makeStore("Store.dat");
  // A damaged record that only the write-ahead log holds.
  sql("Store.dat",
      "UPDATE Sample_Table SET record=zeroblob(length(record)) WHERE k3=9;"
      "DELETE FROM Sample_Table WHERE k3>=90",
      true);
  ASSERT_GT(readFile(dataPath("Store.dat") + "-wal").size(), 0u);
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].records, 90u) << "the deletes in the log are seen";
  ASSERT_EQ(report.problems.size(), 1u) << listed(report);
  EXPECT_EQ(report.problems[0].row, 10);

  // A store a program is writing: what it committed is checked.
  makeStore("Live.dat");
  SampleTable t;
  KEPDB *h = open("Live.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  for (std::uint32_t n = 100; n < 150; ++n) {
    fillRecord(t, n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  ASSERT_EQ(check("Live.dat", &report), QDB_OK) << listed(report);
  EXPECT_EQ(report.tables[0].records, 150u);
  close(h);
}

TEST_F(FileCheckTest, FilesThatAreNotStoresOrNotThereAreTold) {
  StoreCheckReport report;
  EXPECT_EQ(QDBCheckFile(dataPath("Missing.dat").c_str(), &report), QDB_E_NOTFOUND);
  EXPECT_FALSE(fileExists(dataPath("Missing.dat")));

  writeFile(dataPath("Text.dat"), std::string(8192, 'x'));
  ASSERT_EQ(check("Text.dat", &report), QDB_E_DAMAGED);
  EXPECT_FALSE(report.isStore);
  EXPECT_TRUE(mentions(report, "", "not a record store")) << listed(report);

  sql("Foreign.dat", "CREATE TABLE things(a); INSERT INTO things VALUES(1)");
  ASSERT_EQ(check("Foreign.dat", &report), QDB_E_DAMAGED);
  EXPECT_FALSE(report.isStore);
  EXPECT_TRUE(mentions(report, "", "another program's")) << listed(report);
  EXPECT_TRUE(leftovers({"Text.dat", "Foreign.dat"}).empty());

  EXPECT_EQ(QDBCheckFile(nullptr, &report), QDB_E_BADARG);
  EXPECT_EQ(QDBCheckFile("", &report), QDB_E_BADARG);
  EXPECT_EQ(QDBCheckFile(dataPath("Text.dat").c_str(), nullptr), QDB_E_BADARG);
}

TEST_F(FileCheckTest, ProgressCountsTheRecordsUpToTheWhole) {
  makeStore("Store.dat", 3000);
  std::uint64_t lastDone = 0, lastTotal = 0;
  int calls = 0;
  StoreCheckReport report;
  ASSERT_EQ(QDBCheckFile(dataPath("Store.dat").c_str(), &report,
                         [&](std::uint64_t done, std::uint64_t total) {
                           EXPECT_GE(done, lastDone);
                           lastDone = done;
                           lastTotal = total;
                           ++calls;
                         }),
            QDB_OK);
  EXPECT_GT(calls, 1);
  EXPECT_EQ(lastDone, 3000u);
  EXPECT_EQ(lastTotal, 3000u);
}

}  // namespace
