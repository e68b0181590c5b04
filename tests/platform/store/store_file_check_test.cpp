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

using FileCheckTest = WholeFileTest;

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

TEST_F(FileCheckTest, FilesNotThereAndBadArgumentsAreTold) {
  StoreCheckReport report;
  EXPECT_EQ(QDBCheckFile(dataPath("Missing.dat").c_str(), &report), QDB_E_NOTFOUND);
  EXPECT_FALSE(fileExists(dataPath("Missing.dat")));

  // Damaged files and files that are not stores: DamagedFileTest.
  writeFile(dataPath("Text.dat"), "text");
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
