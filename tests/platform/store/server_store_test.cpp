// What holds only when the data files live on a PostgreSQL server: how a data
// file looks there, and the server's forms of the cursor's promises.
#include <cstring>
#include <string>
#include <vector>

#include "platform/store/record_store.h"
#include "platform/store/record_store_fixture.h"
#include "support/child_process.h"
#include "support/data_file_query.h"

using namespace platform;
using alertdb_test::ChildProcess;
using alertdb_test::kNumberKey;
using alertdb_test::queryDataFile;
using alertdb_test::queryServer;
using alertdb_test::SampleTable;

namespace {

class ServerStoreTest : public alertdb_test::RecordStoreTest {
 protected:
  void SetUp() override {
    RecordStoreTest::SetUp();
    if (!onServerStore()) GTEST_SKIP() << "runs only with the data files on a server";
  }
};

TEST_F(ServerStoreTest, ADataFileIsASchemaWithTheCatalogTablesAndKeyColumns) {
  SampleTable t;
  KEPDB *h = createSample(t, "KepUser.dat");
  ASSERT_EQ(add(t, h, 1, "one", 7), 0u);
  EXPECT_EQ(queryServer("SELECT nspname FROM pg_namespace WHERE nspname ILIKE 'kepuser.dat'"),
            std::vector<std::string>{"KepUser.dat"})
      << "one schema, under the name it was made with";
  EXPECT_EQ(queryDataFile(dataPath("KEPUSER.DAT"),
                          "SELECT column_name || ' ' || data_type FROM information_schema.columns"
                          " WHERE table_schema = current_schema() AND table_name = 'Sample_Table'"
                          " ORDER BY ordinal_position"),
            (std::vector<std::string>{"seq bigint", "record bytea", "k1 bytea", "k2 bytea",
                                      "k3 bigint", "k4 bytea", "k5 bigint", "k6 bytea"}));
  EXPECT_EQ(queryDataFile(dataPath("KepUser.dat"),
                          "SELECT indexname FROM pg_indexes WHERE schemaname = current_schema()"
                          " AND tablename = 'Sample_Table' AND indexname LIKE 'Sample_Table:%'"
                          " ORDER BY indexname"),
            (std::vector<std::string>{"Sample_Table:k1", "Sample_Table:k2", "Sample_Table:k3",
                                      "Sample_Table:k4", "Sample_Table:k5", "Sample_Table:k6"}));
  EXPECT_EQ(queryDataFile(dataPath("KepUser.dat"),
                          "SELECT k2, k3, length(record) > 0 FROM \"Sample_Table\""),
            std::vector<std::string>{"\\x6f6e65|7|t"});
}

TEST_F(ServerStoreTest, AnIdleEnumerationHoldsNoTransactionOpen) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(QDBFileLock(h), 0u);
  for (std::uint32_t n = 0; n < 200; ++n) {
    t.fill(0, "r", n);
    std::memcpy(&t.record.id, &n, sizeof n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  EXPECT_EQ(queryServer("SELECT count(*) FROM pg_stat_activity WHERE datname = current_database()"
                        " AND state LIKE 'idle in transaction%'"),
            std::vector<std::string>{"0"});
  // The lock calls do hold one, until they end.
  ASSERT_EQ(QDBReadLock(h), 0u);
  EXPECT_EQ(queryServer("SELECT count(*) FROM pg_stat_activity WHERE datname = current_database()"
                        " AND state LIKE 'idle in transaction%'"),
            std::vector<std::string>{"1"});
  ASSERT_EQ(QDBReadUnlock(h), 0u);
}

// The server's form of the files that are not stores: schemas without the
// store's mark, or whose catalog and SQL tables do not agree, are refused by
// every open mode and left exactly as they were.
TEST_F(ServerStoreTest, SchemasThatAreNotStoresAreRefusedAndUntouched) {
  queryServer(
      "CREATE SCHEMA \"Foreign.dat\"; CREATE TABLE \"Foreign.dat\".t(a int);"
      " INSERT INTO \"Foreign.dat\".t VALUES (1); CREATE SCHEMA \"Empty.dat\"");
  for (const char *name : {"Missing.dat", "Extra.dat"}) {
    SampleTable t;
    KEPDB *h = createSample(t, name);
    ASSERT_EQ(add(t, h, 1, "one", 1), 0u);
    close(h);
  }
  queryServer("DROP TABLE \"Missing.dat\".\"Sample_Table\"");
  queryServer("CREATE TABLE \"Extra.dat\".stranger(a int)");
  auto everything = [] {
    std::vector<std::string> rows = queryServer(
        "SELECT table_schema || '.' || table_name FROM information_schema.tables"
        " WHERE table_schema LIKE '%.dat' ORDER BY 1");
    for (const char *table : {"\"Foreign.dat\".t", "\"Extra.dat\".\"Sample_Table\"",
                              "\"Missing.dat\".alertdb_tables"}) {
      std::vector<std::string> count = queryServer(std::string("SELECT count(*) FROM ") + table);
      rows.push_back(table + std::string(" ") + (count.empty() ? "?" : count[0]));
    }
    return rows;
  };
  std::vector<std::string> before = everything();
  ASSERT_EQ(before.back(), "\"Missing.dat\".alertdb_tables 1") << "the stores were made";
  ASSERT_EQ(before[before.size() - 3], "\"Foreign.dat\".t 1") << "the foreign schema was made";
  for (const char *name : {"Foreign.dat", "Empty.dat", "Missing.dat", "Extra.dat"}) {
    for (std::uint32_t mode : {kOpenExisting, kOpenRecover, kOpenCreate}) {
      EXPECT_EQ(open(name, mode), nullptr) << name << " mode " << mode;
    }
  }
  EXPECT_EQ(everything(), before);
}

// Another machine's commits cannot be seen through shared memory: a walk
// meets them once its window (at most 64 rows) is used up.
TEST_F(ServerStoreTest, AnotherProcessCommitIsSeenWithinTheWindowBound) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(QDBFileLock(h), 0u);
  for (std::uint32_t n = 0; n < 300; ++n) {
    t.fill(0, "r", n * 2);
    std::memcpy(&t.record.id, &n, sizeof n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  std::uint32_t steps = 0;
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst); r == 0 && steps < 20;
       r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    ++steps;
  }
  ASSERT_EQ(std::uint32_t{t.record.number}, 40u);
  // A record behind the walk (1) and records ahead of it, past its window.
  ChildProcess behind("store_child", {"add", dataPath("Store.dat"), "1", "1"});
  ASSERT_EQ(behind.readLine().rfind("added", 0), 0u);
  ASSERT_EQ(behind.wait(), 0);
  ChildProcess ahead("store_child", {"add", dataPath("Store.dat"), "1001", "3"});
  for (int i = 0; i < 3; ++i) ASSERT_EQ(ahead.readLine().rfind("added", 0), 0u);
  ASSERT_EQ(ahead.wait(), 0);
  std::vector<std::uint32_t> odd;
  std::uint32_t last = t.record.number, rest = 0;
  while (QDBRecordSkipAndRead(h, kNumberKey, kSkipNext) == 0) {
    std::uint32_t number = t.record.number;  // a copy: the record is packed
    EXPECT_GT(number, last) << "the walk goes forward";
    last = number;
    if (number % 2) odd.push_back(number);
    ++rest;
  }
  EXPECT_EQ(odd, (std::vector<std::uint32_t>{1001, 1003}));
  EXPECT_EQ(rest, 300u - 21u + 3u);
}

// A server that ends the sessions' connections (a restart, a failover) fails
// the call that meets it; the next calls connect again and lose nothing.
TEST_F(ServerStoreTest, ASessionWhoseConnectionTheServerEndedConnectsAgain) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "one", 1), 0u);
  auto endConnections = [] {
    queryServer(
        "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity"
        " WHERE datname = current_database() AND pid <> pg_backend_pid()");
  };
  endConnections();
  EXPECT_EQ(add(t, h, 2, "two", 2), QDB_E_IO);
  ASSERT_EQ(add(t, h, 2, "two", 2), 0u);
  endConnections();
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), QDB_E_IO);
  EXPECT_EQ(namesInOrder(t, h, kNumberKey), (std::vector<std::string>{"one", "two"}));
  // Under the file lock the transaction is lost with the connection: the
  // unlock says so, and the handle works again afterwards.
  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(add(t, h, 3, "three", 3), 0u);
  endConnections();
  EXPECT_EQ(add(t, h, 4, "four", 4), QDB_E_IO);
  EXPECT_EQ(QDBFileUnlock(h), QDB_E_IO);
  EXPECT_EQ(namesInOrder(t, h, kNumberKey), (std::vector<std::string>{"one", "two"}));
}

// On a server, the check reads the schema as it reads a file: every record's
// checksum and key columns, the catalog against the SQL tables.
TEST_F(ServerStoreTest, TheCheckFindsDamageInTheSchemaAndNamesTheRecord) {
  SampleTable t;
  KEPDB *h = createSample(t);
  for (std::uint8_t i = 1; i <= 5; ++i) ASSERT_EQ(add(t, h, i, "r", i), 0u);
  close(h);
  StoreCheckReport report;
  ASSERT_EQ(QDBCheckFile(dataPath("store.dat").c_str(), &report), QDB_OK);
  EXPECT_TRUE(report.isStore);
  EXPECT_EQ(report.format, 2);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].records, 5u);
  EXPECT_EQ(report.tables[0].damaged, 0u);
  EXPECT_EQ(QDBCheckFile(dataPath("Other.dat").c_str(), &report), QDB_E_NOTFOUND);

  // A flipped byte in one record, a key column changed behind another's
  // back, a table the catalog does not list.
  queryDataFile(dataPath("Store.dat"),
                "UPDATE \"Sample_Table\" SET record = set_byte(record, 3, get_byte(record, 3) # 1)"
                " WHERE seq = 2");
  queryDataFile(dataPath("Store.dat"), "UPDATE \"Sample_Table\" SET k3 = 99 WHERE seq = 4");
  queryDataFile(dataPath("Store.dat"), "CREATE TABLE stray(x int)");
  ASSERT_EQ(QDBCheckFile(dataPath("Store.dat").c_str(), &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.tables.size(), 1u);
  EXPECT_EQ(report.tables[0].records, 5u);
  EXPECT_EQ(report.tables[0].damaged, 2u);
  std::vector<std::string> problems;
  for (const StoreProblem &p : report.problems) {
    problems.push_back(p.table + "|" + std::to_string(p.row) + "|" + p.what);
  }
  EXPECT_EQ(problems, (std::vector<std::string>{
                          "stray|0|the SQL table is not in the catalog",
                          "Sample_Table|2|the record fails its checksum or does not decode",
                          "Sample_Table|4|key column k3 disagrees with the record"}));
  EXPECT_TRUE(report.problems[2].hasObjectId);
  EXPECT_EQ(std::uint32_t{report.problems[2].objectId.Data1}, 0x04040404u);
}

}  // namespace
