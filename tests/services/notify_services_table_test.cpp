#include "services/notify_services_table.h"

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "services/service_test_support.h"
#include "support/created_table_test.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::holdsTable;
using alertdb_test::makeId;
using alertdb_test::rowCount;
using alertdb_test::sameBytes;
using alertdb_test::tablesOf;

namespace {

class NotifyServicesTest : public alertdb_test::CreatedTableTest<CAlertNtfyServDB> {
 protected:
  static ALRTNTFYSERV service(const char *name, std::uint32_t type) {
    ALRTNTFYSERV s{};
    std::strcpy(s.Service_Name, name);
    std::strcpy(s.Product, "Alert Manager");
    s.ServiceType = type;
    s.Enabled = 1;
    return s;
  }

  // Stores a row as it is, past the type check, as another writer could.
  std::uint32_t storeRaw(ALRTNTFYSERV *row) {
    _GUID id{};
    return static_cast<CAlertDBTable<ALRTNTFYSERV> &>(*table).DBAlertRecAdd(row, &id);
  }

  int catalogueRows() {
    ALRTNTFYSERV row{};
    int rows = 0;
    for (std::uint32_t r = table->DBAlertRecFindFirst(CAlertNtfyServDB::kIdKey, 0, nullptr, &row);
         r == 0 || r == ALRT_E_BADSERVICETYPE; r = table->DBAlertRecFindNext(&row)) {
      ++rows;
    }
    return rows;
  }
};

TEST_F(NotifyServicesTest, SchemaHoldsTheRecordThenTheObjectsOwnFields) {
  platform::StoreTableInfo info =
      alertdb_test::tableInfo(dataPath("AlServdb.dat"), "Notify_Services");
  EXPECT_EQ(info.title, "Notification Services");
  EXPECT_EQ(info.idKey, CAlertNtfyServDB::kIdKey);
  ASSERT_EQ(info.fields.size(), 15u);
  std::size_t recordBytes = 0;
  for (std::size_t i = 0; i < 12; ++i) recordBytes += info.fields[i].size;
  EXPECT_EQ(recordBytes, sizeof(ALRTNTFYSERV));
  EXPECT_EQ(info.fields[10].name, "ServiceType");
  EXPECT_EQ(info.fields[12].name, "Replication");
  EXPECT_EQ(info.fields[13].name, "Domain_Id");
  EXPECT_EQ(info.fields[13].keyNumber, 11u);
  EXPECT_EQ(info.fields[14].name, "OMFlags");
  EXPECT_EQ(info.fields[2].description, "Serviice Name") << "the string table's own text";
}

TEST_F(NotifyServicesTest, TypedAddWritesTheSpecificRowThenTheCatalogueRow) {
  ALRTNTFYSERV rec = service("Mail relay", 0);
  ALRTMHSSERVICEREC settings{};
  _GUID oid{}, settingsOid{};
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, &settingsOid), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_EQ(std::uint32_t{rec.ServiceType}, 1u);
  EXPECT_FALSE(sameBytes(oid, alertdb_test::kZeroId));
  EXPECT_FALSE(sameBytes(settingsOid, alertdb_test::kZeroId));
  EXPECT_FALSE(sameBytes(oid, settingsOid));
  EXPECT_TRUE(sameBytes(rec.KEPOID, oid));
  EXPECT_TRUE(sameBytes(rec.ServiceSpecific_KEPOID, settingsOid));
  EXPECT_TRUE(sameBytes(settings.KEPOID, settingsOid));
}

TEST_F(NotifyServicesTest, TypedAddRefusesMissingArgumentsWithoutAnyTrace) {
  ALRTNTFYSERV rec = service("Pager", 0);
  ALRTAPAGESERVICEREC settings{};
  _GUID oid{}, settingsOid{};
  ChangeEventWatch watch;
  watch.reset();
  EXPECT_EQ(table->DBAlertRecAdd(nullptr, &oid, &settings, &settingsOid), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecAdd(&rec, nullptr, &settings, &settingsOid), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(
      table->DBAlertRecAdd(&rec, &oid, static_cast<ALRTAPAGESERVICEREC *>(nullptr), &settingsOid),
      ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecAdd(nullptr, &oid), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(std::uint32_t{rec.ServiceType}, 0u) << "the caller's record is left alone";
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(catalogueRows(), 0);
  EXPECT_FALSE(holdsTable(dataPath("AlServdb.dat"), "APAGE_Service")) << "nothing opened";
}

TEST_F(NotifyServicesTest, TypedAddStopsAtTheStepThatFails) {
  ALRTNTFYSERV first = service("first", 0);
  ALRTSMTPSERVICEREC settings{};
  _GUID oid{}, settingsOid{};
  ASSERT_EQ(table->DBAlertRecAdd(&first, &oid, &settings, &settingsOid), 0u);
  CAlertSMTPNtfyServDB smtp;
  ASSERT_EQ(smtp.DBOpen(), 0u);
  ChangeEventWatch watch;

  // The specific row cannot be added (its ID is taken): no catalogue row.
  watch.reset();
  ALRTNTFYSERV second = service("second", 0);
  ALRTSMTPSERVICEREC clash{};
  clash.KEPOID = settingsOid;
  _GUID oid2 = makeId(1), settingsOid2 = makeId(2);
  EXPECT_EQ(table->DBAlertRecAdd(&second, &oid2, &clash, &settingsOid2), ALRT_E_ADDFAILED);
  EXPECT_TRUE(sameBytes(settingsOid2, alertdb_test::kZeroId));
  EXPECT_TRUE(sameBytes(oid2, makeId(1))) << "the catalogue add never ran";
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(catalogueRows(), 1);
  EXPECT_EQ(rowCount(smtp), 1);

  // The catalogue row cannot be added: the specific row stays.
  ALRTNTFYSERV third = service("third", 0);
  third.KEPOID = oid;
  ALRTSMTPSERVICEREC fresh{};
  std::strcpy(fresh.Server_addr, "smtp.example.org");
  _GUID oid3{}, settingsOid3{};
  EXPECT_EQ(table->DBAlertRecAdd(&third, &oid3, &fresh, &settingsOid3), ALRT_E_ADDFAILED);
  EXPECT_TRUE(sameBytes(third.ServiceSpecific_KEPOID, settingsOid3));
  EXPECT_EQ(catalogueRows(), 1);
  EXPECT_EQ(rowCount(smtp), 2);
  ALRTSMTPSERVICEREC kept{};
  EXPECT_EQ(smtp.DBAlertRecRetrieve(&settingsOid3, &kept), 0u);
  EXPECT_STREQ(kept.Server_addr, "smtp.example.org");
}

TEST_F(NotifyServicesTest, SpecificTableThatCannotBeOpenedStopsEveryWrite) {
  // The catalogue in a file of its own; the specific tables' file is missing.
  table = std::make_unique<CAlertNtfyServDB>("Catalogue.dat");
  ASSERT_EQ(table->DBCreate(), 0u);
  ASSERT_EQ(std::remove(dataPath("AlServdb.dat").c_str()), 0);
  ALRTNTFYSERV rec = service("Phone", 0);
  ALRTPHONESERVICEREC settings{};
  _GUID oid{}, settingsOid{};
  ChangeEventWatch watch;
  watch.reset();
  EXPECT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, &settingsOid), ALRT_E_OPENFAILED);
  ALRTNTFYSERV plain = service("Mail", 5);
  EXPECT_EQ(table->DBAlertRecAdd(&plain, &oid), ALRT_E_OPENFAILED);
  EXPECT_FALSE(fileExists(dataPath("AlServdb.dat"))) << "no data file made from nothing";
  EXPECT_EQ(catalogueRows(), 0);

  // A data file that is not a record store is refused and left as it was.
  const std::string junk(8192, 'x');
  writeFile(dataPath("AlServdb.dat"), junk);
  EXPECT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, &settingsOid), ALRT_E_OPENFAILED);
  EXPECT_EQ(table->DBAlertRecAdd(&plain, &oid), ALRT_E_OPENFAILED);
  EXPECT_EQ(readFile(dataPath("AlServdb.dat")), junk);
  EXPECT_EQ(catalogueRows(), 0);
  EXPECT_FALSE(watch.signalled());

  // Types without a specific table need none.
  ALRTNTFYSERV launch = service("Launch", 14);
  EXPECT_EQ(table->DBAlertRecAdd(&launch, &oid), 0u);
  EXPECT_EQ(catalogueRows(), 1);
}

TEST_F(NotifyServicesTest, PlainAddChecksTheTypeAndOpensOnlyItsKindsTable) {
  ChangeEventWatch watch;
  watch.reset();
  for (std::uint32_t type : {0u, 17u, 0xFFFFFFFFu}) {
    ALRTNTFYSERV bad = service("bad", type);
    _GUID oid{};
    EXPECT_EQ(table->DBAlertRecAdd(&bad, &oid), ALRT_E_BADSERVICETYPE) << type;
  }
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(catalogueRows(), 0);

  for (std::uint32_t type : {14u, 15u}) {
    ALRTNTFYSERV none = service("no specific table", type);
    _GUID oid{};
    EXPECT_EQ(table->DBAlertRecAdd(&none, &oid), 0u) << type;
  }
  EXPECT_TRUE(watch.signalled());
  EXPECT_EQ(tablesOf(dataPath("AlServdb.dat")).size(), 1u) << "only the catalogue";

  ALRTNTFYSERV wave = service("Sound", 8);
  _GUID oid{};
  EXPECT_EQ(table->DBAlertRecAdd(&wave, &oid), 0u);
  EXPECT_TRUE(holdsTable(dataPath("AlServdb.dat"), "WAVE_Service"));
  EXPECT_EQ(tablesOf(dataPath("AlServdb.dat")).size(), 2u);
  EXPECT_EQ(catalogueRows(), 3);
}

TEST_F(NotifyServicesTest, EnumerationMeetsEveryTypeAndOpensEachKindsTable) {
  std::map<std::uint32_t, std::uint32_t> typeOfRow;  // first ID byte -> type
  for (std::uint32_t type = 0; type <= 17; ++type) {
    ALRTNTFYSERV row = service(("type " + std::to_string(type)).c_str(), type);
    // IDs in reverse type order, so the walk meets the kinds out of order.
    row.KEPOID = makeId(static_cast<unsigned char>(0xF0 - type));
    typeOfRow[0xF0 - type] = type;
    ASSERT_EQ(storeRaw(&row), 0u);
  }
  ASSERT_EQ(tablesOf(dataPath("AlServdb.dat")).size(), 1u);
  // A single read opens its kind's table as well.
  ALRTNTFYSERV row{};
  _GUID seventeen = makeId(0xF0 - 17), npage = makeId(0xF0 - 12);
  EXPECT_EQ(table->DBAlertRecRetrieve(&npage, &row), 0u);
  EXPECT_TRUE(holdsTable(dataPath("AlServdb.dat"), "NPAGE_Service"));
  EXPECT_EQ(tablesOf(dataPath("AlServdb.dat")).size(), 2u);

  CAlertNtfyServDB reader;
  ASSERT_EQ(reader.DBOpen(), 0u);
  int rows = 0;
  std::uint32_t r = reader.DBAlertRecFindFirst(CAlertNtfyServDB::kIdKey, 0, nullptr, &row);
  for (; r != ALRT_E_NOTFOUND; r = reader.DBAlertRecFindNext(&row)) {
    std::uint32_t type = typeOfRow[row.KEPOID.Data4[0]];
    SCOPED_TRACE(type);
    ASSERT_EQ(std::uint32_t{row.ServiceType}, type) << "the row is delivered either way";
    EXPECT_EQ(std::string(row.Service_Name), "type " + std::to_string(type));
    EXPECT_EQ(r, type == 0 || type == 17 ? ALRT_E_BADSERVICETYPE : 0u);
    ++rows;
  }
  EXPECT_EQ(rows, 18);
  EXPECT_EQ(tablesOf(dataPath("AlServdb.dat")).size(), 15u) << "the catalogue and 14 kinds";

  // Single reads report the same.
  EXPECT_EQ(reader.DBAlertRecRetrieve(&seventeen, &row), ALRT_E_BADSERVICETYPE);
  EXPECT_EQ(std::uint32_t{row.ServiceType}, 17u);
  row = {};
  EXPECT_EQ(reader.DBAlertRecRetrieve(&npage, &row), 0u);
  EXPECT_EQ(std::uint32_t{row.ServiceType}, 12u);
  unsigned char key[16];
  std::memcpy(key, &seventeen, 16);
  EXPECT_EQ(reader.DBAlertRecFindFirst(CAlertNtfyServDB::kIdKey, 16, key, &row),
            ALRT_E_BADSERVICETYPE);
  EXPECT_EQ(reader.DBAlertRecFindNext(&row), 0u) << "the walk goes on after it";
  EXPECT_EQ(std::uint32_t{row.ServiceType}, 16u);
}

TEST_F(NotifyServicesTest, UpdateAndDeleteTouchOnlyTheCatalogueRow) {
  ALRTNTFYSERV rec = service("Broadcast", 0);
  ALRTBROADCASTSERVICEREC settings{};
  std::strcpy(settings.ServerName, "FILESRV");
  _GUID oid{}, settingsOid{};
  ASSERT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, &settingsOid), 0u);
  ChangeEventWatch watch;
  watch.reset();

  ALRTNTFYSERV read{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&oid, &read), 0u);
  EXPECT_EQ(table->DBAlertRecUpdate(&read), 0u);
  EXPECT_FALSE(watch.signalled()) << "nothing changed";
  read.ServiceType = 17;
  EXPECT_EQ(table->DBAlertRecUpdate(&read), ALRT_E_BADSERVICETYPE);
  read.ServiceType = 16;
  read.KEPOID = makeId(0x44);
  EXPECT_EQ(table->DBAlertRecUpdate(&read), ALRT_E_NOTFOUND);
  EXPECT_FALSE(watch.signalled());

  read.KEPOID = oid;
  std::strcpy(read.Comment, "second floor");
  EXPECT_EQ(table->DBAlertRecUpdate(&read), 0u);
  EXPECT_TRUE(watch.signalled());
  ALRTNTFYSERV check{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&oid, &check), 0u);
  EXPECT_STREQ(check.Comment, "second floor");
  read.ServiceType = 0;
  EXPECT_EQ(table->DBAlertRecUpdate(&read), ALRT_E_BADSERVICETYPE);
  ASSERT_EQ(table->DBAlertRecRetrieve(&oid, &check), 0u);
  EXPECT_EQ(std::uint32_t{check.ServiceType}, 16u) << "a refused update writes nothing";

  watch.reset();
  _GUID unknown = makeId(0x45);
  std::uint32_t missing = table->DBAlertRecDelete(&unknown);
  EXPECT_NE(missing, 0u);
  EXPECT_LT(missing, 0x10000u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(table->DBAlertRecDelete(&oid), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_EQ(table->DBAlertRecRetrieve(&oid, &check), ALRT_E_NOTFOUND);
  CAlertBROADCASTNtfyServDB broadcast;
  ASSERT_EQ(broadcast.DBOpen(), 0u);
  ALRTBROADCASTSERVICEREC left{};
  EXPECT_EQ(broadcast.DBAlertRecRetrieve(&settingsOid, &left), 0u);
  EXPECT_STREQ(left.ServerName, "FILESRV");
}

TEST_F(NotifyServicesTest, CopiesOpenTheirOwnSpecificTables) {
  ALRTNTFYSERV rec = service("TTS", 0);
  ALRTTTSSERVICEREC settings{};
  _GUID oid{}, settingsOid{};
  ASSERT_EQ(table->DBAlertRecAdd(&rec, &oid, &settings, &settingsOid), 0u);
  {
    CAlertNtfyServDB copy(*table);
    ASSERT_EQ(copy.DBOpen(), 0u);
    ALRTNTFYSERV read{};
    EXPECT_EQ(copy.DBAlertRecRetrieve(&oid, &read), 0u);
    EXPECT_EQ(std::uint32_t{read.ServiceType}, 9u);
    CAlertNtfyServDB assigned("Other.dat");
    assigned = copy;
    ASSERT_EQ(assigned.DBOpen(), 0u);
    EXPECT_EQ(assigned.DBAlertRecRetrieve(&oid, &read), 0u);
  }
  // The source's own specific table survived the copies.
  ALRTNTFYSERV next = service("TTS 2", 0);
  _GUID oid2{}, settingsOid2{};
  EXPECT_EQ(table->DBAlertRecAdd(&next, &oid2, &settings, &settingsOid2), ALRT_E_ADDFAILED)
      << "settings still carries the first row's ID";
  settings.KEPOID = {};
  EXPECT_EQ(table->DBAlertRecAdd(&next, &oid2, &settings, &settingsOid2), 0u);
}

}  // namespace
