// Damaged files are refused by every open mode and left byte for byte as
// they were; damaged records are never handed back as good; the recovery
// open repairs only what it can without losing or inventing a record.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "events/event_resp_table.h"
#include "platform/store/record_store.h"
#include "platform/store/whole_file_fixture.h"

using namespace platform;
using alertdb_test::kIdKey;
using alertdb_test::kNumberKey;
using alertdb_test::SampleTable;

namespace {

constexpr std::uint32_t kModes[] = {kOpenExisting, kOpenRecover, kOpenCreate};
constexpr unsigned char kChecksumMark = 0xC5;

class DamagedFileTest : public alertdb_test::WholeFileTest {
 protected:
  // Every open mode refuses the file and leaves it as it was.
  void expectRefusedUnchanged(const std::string &name) {
    std::string before = readFile(dataPath(name));
    for (std::uint32_t mode : kModes) {
      KEPDB *h = open(name, mode);
      EXPECT_EQ(h, nullptr) << "mode " << mode;
      if (h) close(h);
    }
    EXPECT_EQ(readFile(dataPath(name)), before) << "the refused file changed";
  }
};

TEST_F(DamagedFileTest, DamagedFilesAndFilesNotStoresAreRefusedUnchangedAndNamedByTheCheck) {
  makeStore("Store.dat", 400);
  const std::string whole = readFile(dataPath("Store.dat"));
  std::string random(8192, '\0');
  for (std::size_t i = 0; i < random.size(); ++i) random[i] = static_cast<char>(i * 131 + 7);
  auto bytes = [this](std::string b) {
    return [this, b](const std::string &name) { writeFile(dataPath(name), b); };
  };
  auto statements = [this](std::string s, bool store) {
    return [this, s, store](const std::string &name) {
      if (store) makeStore(name);
      sql(name, s);
    };
  };
  // Someone else's database that carries the store's application ID.
  auto foreign = [&](int format) {
    return statements(
        "PRAGMA application_id=1095517250; PRAGMA journal_mode=WAL; "
        "PRAGMA user_version=" +
            std::to_string(format) +
            "; CREATE TABLE things(a, b); INSERT INTO things VALUES(1, 2);",
        false);
  };
  struct Case {
    const char *what;
    std::function<void(const std::string &)> make;
    bool isStore;       // the check still takes it for a store
    const char *named;  // what the check says of the file
  };
  const Case cases[] = {
      {"cut by 100 bytes", bytes(whole.substr(0, whole.size() - 100)), true, "header shows damage"},
      {"cut by a page", bytes(whole.substr(0, whole.size() - 4096)), true, "header shows damage"},
      {"cut in half", bytes(whole.substr(0, whole.size() / 2)), true, "header shows damage"},
      {"random bytes", bytes(random), false, "not a record store"},
      {"empty", bytes(""), false, "not a record store"},
      {"text", bytes("[Directories]\nDataDir=/tmp\n"), false, "not a record store"},
      {"a header alone", bytes(std::string("SQLite format 3\0", 16) + "short"), false,
       "not a record store"},
      {"another program's database",
       statements("CREATE TABLE t(a); INSERT INTO t VALUES(1);", false), false,
       "another program's"},
      {"a foreign database, format 0", foreign(0), false, "another program's"},
      {"a foreign database, format 1", foreign(1), true, "alertdb_fields is missing"},
      {"a foreign database, format 2", foreign(2), true, "alertdb_fields is missing"},
      {"no field list", statements("DROP TABLE alertdb_fields", true), true,
       "alertdb_fields is missing"},
      {"no table list", statements("DROP TABLE alertdb_tables", true), true,
       "alertdb_tables is missing"},
      {"no query types", statements("DROP TABLE alertdb_query_info", true), true,
       "alertdb_query_info is missing"},
      // A schema entry SQLite cannot parse.
      {"an unreadable schema",
       statements("PRAGMA writable_schema=ON; UPDATE sqlite_master SET "
                  "sql='CREATE TABLE alertdb_query_info(' WHERE name='alertdb_query_info'",
                  true),
       true, "cannot read its schema"},
  };
  std::vector<std::string> names;
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    names.push_back("Case" + std::to_string(names.size()) + ".dat");
    c.make(names.back());
    expectRefusedUnchanged(names.back());
    StoreCheckReport report;
    ASSERT_EQ(check(names.back(), &report), QDB_E_DAMAGED);
    EXPECT_EQ(report.isStore, c.isStore);
    EXPECT_TRUE(mentions(report, "", c.named)) << listed(report);
    // Nor does it become a backup.
    EXPECT_EQ(QDBBackupFile(dataPath(names.back()).c_str(), dataPath("Case.BAK").c_str()),
              QDB_E_DAMAGED);
  }
  names.push_back("Store.dat");
  EXPECT_EQ(leftovers(names, names), std::vector<std::string>{}) << "nothing is left behind";
}

TEST_F(DamagedFileTest, AFlippedByteInARecordIsNeverReadAsGood) {
  makeStore("Store.dat");
  flipInRecord("Store.dat");
  const std::string bytes = readFile(dataPath("Store.dat"));

  // The normal open does not read the whole file; reads find the damage.
  SampleTable t;
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  _GUID id = idOf(42);
  ASSERT_EQ(QDBRecordFind(h, kIdKey, &id, 1, 16), 0u);
  std::memset(&t.record, 0x5A, sizeof t.record);
  EXPECT_EQ(QDBRecordRead(h), QDB_E_DAMAGED);
  EXPECT_EQ(std::uint32_t{t.record.number}, 0x5A5A5A5Au)
      << "nothing of the damaged record reached the fields";
  EXPECT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), QDB_E_DAMAGED);
  // An enumeration delivers the good records before it and stops there.
  std::vector<std::uint32_t> seen;
  std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst);
  for (; r == 0; r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    seen.push_back(std::uint32_t{t.record.number});
  }
  EXPECT_EQ(r, QDB_E_DAMAGED);
  ASSERT_EQ(seen.size(), 42u);
  for (std::uint32_t n = 0; n < 42; ++n) EXPECT_EQ(seen[n], n);
  // Other records stay readable.
  id = idOf(43);
  EXPECT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  EXPECT_EQ(std::uint32_t{t.record.number}, 43u);
  close(h);
  EXPECT_EQ(readFile(dataPath("Store.dat")), bytes) << "reading the damage wrote nothing back";
  // The recovery open checks every record, so it refuses the file.
  EXPECT_EQ(open("Store.dat", kOpenRecover), nullptr);
  EXPECT_EQ(readFile(dataPath("Store.dat")), bytes);
}

TEST_F(DamagedFileTest, TablesReportADamagedRecordAsAReadFailureOrTheEnd) {
  CAlertEVENT_RESPDB links;
  ASSERT_EQ(links.DBCreate(), 0u);
  ALRTEVENT_RESPREC link{};
  std::memcpy(&link.EventClassOID, "NEEDLE-EVENT-CLS", 16);
  std::memset(&link.ResponseOID, 7, 16);
  _GUID id;
  ASSERT_EQ(links.DBAlertRecAdd(&link, &id), 0u);
  links.~CAlertEVENT_RESPDB();
  new (&links) CAlertEVENT_RESPDB();
  std::string path = dataPath("AlEvntdb.dat");
  std::string bytes = readFile(path);
  std::size_t at = bytes.find("NEEDLE-EVENT-CLS");
  ASSERT_NE(at, std::string::npos);
  // The same bytes sit in the record, then in its key column and index.
  bytes[at + 1] ^= 0x01;
  writeFile(path, bytes);
  ASSERT_EQ(links.DBOpen(), 0u);
  ALRTEVENT_RESPREC out{};
  EXPECT_EQ(links.DBAlertRecRetrieve(&id, &out), ALRT_E_READFAILED);
  std::memset(&out, 0x5A, sizeof out);
  ALRTEVENT_RESPREC untouched = out;
  EXPECT_EQ(links.DBAlertRecFindFirst(CAlertEVENT_RESPDB::kIdKey, 0, nullptr, &out),
            ALRT_E_NOTFOUND);
  EXPECT_EQ(links.DBAlertRecFindFirst(CAlertEVENT_RESPDB::kResponseKey, 16,
                                      reinterpret_cast<unsigned char *>(&link.ResponseOID), &out),
            ALRT_E_NOTFOUND);
  EXPECT_EQ(std::memcmp(&out, &untouched, sizeof out), 0) << "the caller's record is untouched";
}

TEST_F(DamagedFileTest, KeyColumnsThatDisagreeWithTheRecordAreNamedRefusedAndMadeAgain) {
  makeStore("Store.dat");
  sql("Store.dat", "UPDATE Sample_Table SET k3=999 WHERE k3=7");
  // The cheap open cannot see it; the full check names it, so the recovery
  // open refuses the file.
  KEPDB *h = open("Store.dat", kOpenExisting);
  EXPECT_NE(h, nullptr);
  if (h) close(h);
  StoreCheckReport report;
  ASSERT_EQ(check("Store.dat", &report), QDB_E_DAMAGED);
  ASSERT_EQ(report.problems.size(), 1u) << listed(report);
  EXPECT_EQ(report.problems[0].row, 8);
  EXPECT_NE(report.problems[0].what.find("k3"), std::string::npos);
  EXPECT_NE(report.problems[0].what.find("Number"), std::string::npos);
  _GUID expected = idOf(7);
  ASSERT_TRUE(report.problems[0].hasObjectId);
  EXPECT_EQ(std::memcmp(&report.problems[0].objectId, &expected, sizeof expected), 0);
  std::string before = readFile(dataPath("Store.dat"));
  EXPECT_EQ(open("Store.dat", kOpenRecover), nullptr);
  EXPECT_EQ(readFile(dataPath("Store.dat")), before);

  // Salvage makes the key columns, and a lost index, again from the records.
  sql("Store.dat", "DROP INDEX \"Sample_Table:k2\"");
  StoreSalvageReport saved;
  ASSERT_EQ(salvage("Store.dat", "Saved.dat", &saved), QDB_OK);
  EXPECT_EQ(saved.tables[0].saved, 100u);
  EXPECT_EQ(saved.tables[0].lost, 0u);
  EXPECT_EQ(check("Saved.dat", &report), QDB_OK) << listed(report);
  EXPECT_EQ(records("Saved.dat"), expectedRecords(100));
}

TEST_F(DamagedFileTest, AnIndexThatLeadsBackEndsTheEnumerationInsteadOfLooping) {
  makeStore("Store.dat");
  // Record 10's key column says 90 where its image says 10: the index puts it
  // ahead of where its own key leads the cursor back to.
  sql("Store.dat", "UPDATE Sample_Table SET k3=90 WHERE k3=10");
  SampleTable t;
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  std::uint32_t steps = 0, r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst);
  for (; r == 0 && steps < 1000; r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) ++steps;
  EXPECT_EQ(r, QDB_E_DAMAGED);
  EXPECT_LT(steps, 100u);
}

TEST_F(DamagedFileTest, OlderFilesReadAsBeforeAndGainChecksumsWhenWrittenOrRecovered) {
  makeStore("Store.dat");
  // The form records had before they carried checksums: the same bytes
  // without the checksum and its mark.
  sql("Store.dat",
      "UPDATE Sample_Table SET record=substr(record, 1, length(record) - 9);"
      "PRAGMA user_version=1;");
  SampleTable t;
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr) << "an older file opens normally";
  ASSERT_EQ(t.select(h), 0u);
  EXPECT_EQ(namesInOrder(t, h, kNumberKey).size(), 100u);
  _GUID id = idOf(42);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  EXPECT_STREQ(t.record.comment, "NEEDLE-COMMENT");
  std::strcpy(t.record.comment, "rewritten");
  ASSERT_EQ(QDBRecordUpdate(h), 0u);
  close(h);

  auto lastBytes = [&](std::vector<int> *marks, std::int64_t *format) {
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(dataPath("Store.dat").c_str(), &db), SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db, "SELECT record FROM Sample_Table ORDER BY k3", -1, &s, nullptr);
    while (sqlite3_step(s) == SQLITE_ROW) {
      auto *p = static_cast<const unsigned char *>(sqlite3_column_blob(s, 0));
      marks->push_back(p[sqlite3_column_bytes(s, 0) - 1]);
    }
    sqlite3_finalize(s);
    sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &s, nullptr);
    sqlite3_step(s);
    *format = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    sqlite3_close(db);
  };
  std::vector<int> marks;
  std::int64_t format = 0;
  lastBytes(&marks, &format);
  ASSERT_EQ(marks.size(), 100u);
  EXPECT_EQ(marks[42], kChecksumMark) << "the record written again carries a checksum";
  EXPECT_NE(marks[41], kChecksumMark);
  EXPECT_EQ(format, 1);

  // The recovery open gives every record its checksum and records the format.
  h = open("Store.dat", kOpenRecover);
  ASSERT_NE(h, nullptr);
  close(h);
  marks.clear();
  lastBytes(&marks, &format);
  for (int mark : marks) EXPECT_EQ(mark, kChecksumMark);
  EXPECT_EQ(format, 2);
  h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  std::vector<std::string> names = namesInOrder(t, h, kNumberKey);
  ASSERT_EQ(names.size(), 100u);
  EXPECT_EQ(names[99], "r99");

  // In a file of the current format, a record without a checksum is damage.
  close(h);
  sql("Store.dat",
      "UPDATE Sample_Table SET record=substr(record, 1, length(record) - 9) WHERE k3=5");
  h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  id = idOf(5);
  EXPECT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), QDB_E_DAMAGED);
}

TEST_F(DamagedFileTest, AFileCheckedOnceIsCheckedAgainWhenItsSchemaOrItselfChanges) {
  makeStore("Store.dat");
  makeStore("Other.dat");
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  close(h);
  // A schema change: the index is gone, so the next open must see it.
  sql("Store.dat", "DROP INDEX \"Sample_Table:k3\"");
  EXPECT_EQ(open("Store.dat", kOpenExisting), nullptr);
  // Another file put in its place under the same name is checked as new.
  h = open("Other.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  close(h);
  sql("Other.dat", "DELETE FROM alertdb_fields");  // rows only: the schema stays
  std::string damaged = readFile(dataPath("Other.dat"));
  ASSERT_EQ(std::rename(dataPath("Other.dat").c_str(), dataPath("Moved.dat").c_str()), 0);
  writeFile(dataPath("Other.dat"), damaged);
  EXPECT_EQ(open("Other.dat", kOpenExisting), nullptr);
  // The same file, its catalog emptied in place by another program.
  makeStore("Third.dat");
  h = open("Third.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  close(h);
  // File times move in kernel clock ticks.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  sql("Third.dat", "DELETE FROM alertdb_fields");
  EXPECT_EQ(open("Third.dat", kOpenExisting), nullptr);
}

TEST_F(DamagedFileTest, RecoveryRebuildsLostQueryTypeTablesOnlyAfterTheFullCheck) {
  makeStore("Store.dat");
  sql("Store.dat", "DROP TABLE alertdb_query_type_values");
  EXPECT_EQ(open("Store.dat", kOpenExisting), nullptr);
  KEPDB *h = open("Store.dat", kOpenRecover);
  ASSERT_NE(h, nullptr);
  close(h);
  h = open("Store.dat", kOpenExisting);
  EXPECT_NE(h, nullptr) << "repaired for good";
}

}  // namespace
