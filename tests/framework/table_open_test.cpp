#include <sqlite3.h>

#include <cstdlib>
#include <string>

#include "framework/link_table_probe.h"
#include "framework/open_or_create.h"
#include "platform/store/record_store.h"
#include "support/test_environment.h"

using alertdb_test::makeLink;
using alertdb_test::ProbedLinkTable;

namespace {

class TableOpenTest : public alertdb_test::IsolatedTest {
 protected:
  // A data file holding one link, closed again.
  _GUID makeFileWithLink(const char *name) {
    ProbedLinkTable table(name);
    EXPECT_EQ(table.DBCreate(), 0u);
    ALRTEVENT_RESPREC link = makeLink(1, 2);
    _GUID id{};
    EXPECT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
    return id;
  }
};

TEST_F(TableOpenTest, MissingFileWithoutBackupIsNotMadeFromNothing) {
  ProbedLinkTable restorable;
  EXPECT_EQ(restorable.DBOpen(), 65535u);
  EXPECT_EQ(restorable.m_hTable, nullptr);
  ProbedLinkTable other("Other.dat");
  EXPECT_EQ(other.DBOpen(), 65535u);
  EXPECT_EQ(OpenOrCreate(other), 65535u);
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat")));
  EXPECT_FALSE(fileExists(dataPath("Other.dat")));
}

TEST_F(TableOpenTest, MissingRestorableFileIsRestoredFromItsBackup) {
  _GUID id = makeFileWithLink("AlEvntdb.dat");
  ASSERT_EQ(std::rename(dataPath("AlEvntdb.dat").c_str(), dataPath("AlEvntdb.BAK").c_str()), 0);
  std::string backup = readFile(dataPath("AlEvntdb.BAK"));

  ProbedLinkTable table;
  ASSERT_EQ(table.DBOpen(), 0u);
  ALRTEVENT_RESPREC read{};
  EXPECT_EQ(table.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_TRUE(fileExists(dataPath("AlEvntdb.dat")));
  EXPECT_EQ(readFile(dataPath("AlEvntdb.BAK")), backup) << "backups are only read";
}

TEST_F(TableOpenTest, OnlyTheFiveNamesAreRestoredAndTheirCaseCounts) {
  makeFileWithLink("Links.dat");
  ASSERT_EQ(std::rename(dataPath("Links.dat").c_str(), dataPath("Links.BAK").c_str()), 0);
  ProbedLinkTable other("Links.dat");
  EXPECT_EQ(other.DBOpen(), 65535u);

  makeFileWithLink("KepUser.dat");
  ASSERT_EQ(std::rename(dataPath("KepUser.dat").c_str(), dataPath("KepUser.BAK").c_str()), 0);
  ProbedLinkTable wrongCase("KepUser.dat");
  EXPECT_EQ(wrongCase.DBOpen(), 65535u);
  EXPECT_FALSE(fileExists(dataPath("KepUser.dat")));

  // "kepuser.dat" is one of the five; its backup is found whatever its case.
  ProbedLinkTable users("kepuser.dat");
  EXPECT_EQ(users.DBOpen(), 0u);
}

TEST_F(TableOpenTest, FileWithoutTheTableGivesNoTableThenCreateAddsIt) {
  KEPDB *h = platform::QDBInit(0, dataPath("AlEvntdb.dat").c_str(), platform::kOpenCreate, 1);
  ASSERT_NE(h, nullptr);
  platform::QDBDone(h);

  ProbedLinkTable table;
  EXPECT_EQ(table.DBOpen(), ALRT_E_NOTABLE);
  EXPECT_EQ(ALRT_E_NOTABLE & 0xFFFF, 223u);
  EXPECT_EQ(table.m_hTable, nullptr);
  ASSERT_EQ(table.DBCreate(), 0u);
  EXPECT_EQ(table.DBOpen(), 0u);
  EXPECT_EQ(table.DBCreate(), 0u);

  ProbedLinkTable second;
  EXPECT_EQ(OpenOrCreate(second), 0u);
}

TEST_F(TableOpenTest, NeighbourTablesAreOpenedOrCreatedOnDemand) {
  CAlertEVENT_RESPDB *neighbour = nullptr;
  EXPECT_EQ(ActivateNeighbour(neighbour), ALRT_E_OPENFAILED) << "no data file to add it to";
  EXPECT_EQ(neighbour, nullptr);

  KEPDB *h = platform::QDBInit(0, dataPath("AlEvntdb.dat").c_str(), platform::kOpenCreate, 1);
  ASSERT_NE(h, nullptr);
  platform::QDBDone(h);
  ASSERT_EQ(ActivateNeighbour(neighbour), 0u);
  ASSERT_NE(neighbour, nullptr);
  CAlertEVENT_RESPDB *kept = neighbour;
  EXPECT_EQ(ActivateNeighbour(neighbour), 0u);
  EXPECT_EQ(neighbour, kept) << "an active neighbour is kept";
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id;
  EXPECT_EQ(neighbour->DBAlertRecAdd(&link, &id), 0u);
  ReleaseNeighbour(neighbour);
  EXPECT_EQ(neighbour, nullptr);
}

TEST_F(TableOpenTest, CreateDescribesTheTableWithItsStrings) {
  ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  platform::StoreTableInfo info;
  ASSERT_EQ(platform::QDBTableInfo(table.m_hTable, "EVENT_RESP", &info), 0u);
  EXPECT_EQ(info.title, "Event Response Table");
  EXPECT_EQ(info.idKey, 42u);
  ASSERT_EQ(info.fields.size(), 4u);
  EXPECT_EQ(info.fields[1].name, "EventClassOID");
  EXPECT_EQ(info.fields[1].description, "Registered Events OID");
  EXPECT_EQ(info.fields[3].name, "Replication");
  EXPECT_EQ(info.fields[3].keyNumber, 45u);
  EXPECT_EQ(info.fields[3].flags, 0x30Du);
}

TEST_F(TableOpenTest, FileThatIsNotAStoreFailsToOpenAndIsLeftAlone) {
  writeFile(dataPath("AlEvntdb.dat"), "not a store at all");
  ProbedLinkTable table;
  EXPECT_EQ(table.DBOpen(), ALRT_E_INITFAILED);
  EXPECT_EQ(table.DBCreate(), ALRT_E_INITFAILED);
  EXPECT_EQ(readFile(dataPath("AlEvntdb.dat")), "not a store at all");
}

TEST_F(TableOpenTest, StoreOpenedOnlyInTheSecondModeHoldsAHandleWithoutTable) {
  makeFileWithLink("AlEvntdb.dat");
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(dataPath("AlEvntdb.dat").c_str(), &db), SQLITE_OK);
  // A lost key index: the normal open refuses, the recovery open rebuilds it.
  ASSERT_EQ(sqlite3_exec(db, "DROP INDEX \"EVENT_RESP:k43\"", nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);

  ProbedLinkTable table;
  EXPECT_EQ(table.DBOpen(), ALRT_E_ALTOPEN);
  EXPECT_NE(table.m_hTable, nullptr);
  EXPECT_EQ(table.DBOpen(), 0u) << "a held handle answers at once";
  ALRTEVENT_RESPREC link = makeLink(5, 6);
  _GUID id;
  EXPECT_EQ(table.DBAlertRecAdd(&link, &id), ALRT_E_ADDFAILED) << "no table selected";
  // The recovery open brought the file up to date: the next object opens it.
  ProbedLinkTable next;
  EXPECT_EQ(next.DBOpen(), 0u);
}

}  // namespace
