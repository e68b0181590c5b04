#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "services/notify_services_table.h"
#include "services/service_test_support.h"
#include "support/table_shape_checks.h"
#include "support/test_environment.h"

using alertdb_test::fillRandom;
using alertdb_test::findBy;
using alertdb_test::sameBytes;
using alertdb_test::tableInfo;

namespace {

template <class Table>
class ServiceTableTest : public alertdb_test::IsolatedTest {
 protected:
  using Record = typename Table::Record;

  void SetUp() override {
    IsolatedTest::SetUp();
    CAlertNtfyServDB catalogue;
    ASSERT_EQ(catalogue.DBCreate(), 0u);
  }

  // What a read gives back of a stored record: everything but the bytes
  // that belong to no field.
  static void clearUnbound(Record &record) {
    if constexpr (std::is_same_v<Record, ALRTGENPORTSERVICEREC>) {
      std::memset(record.Unbound, 0, sizeof record.Unbound);
    }
  }
};

using ServiceTables =
    ::testing::Types<CAlertMHSNtfyServDB, CAlertSNMPNtfyServDB, CAlertMCINtfyServDB,
                     CAlertCOMPUSNtfyServDB, CAlertSMTPNtfyServDB, CAlertMAPINtfyServDB,
                     CAlertCCMAILNtfyServDB, CAlertWAVENtfyServDB, CAlertTTSNtfyServDB,
                     CAlertPHONENtfyServDB, CAlertAPAGENtfyServDB, CAlertNPAGENtfyServDB,
                     CAlertGENPORTNtfyServDB, CAlertBROADCASTNtfyServDB>;
TYPED_TEST_SUITE(ServiceTableTest, ServiceTables);

TYPED_TEST(ServiceTableTest, TypedAddAndRetrieveGiveBackEveryByte) {
  using Record = typename TestFixture::Record;
  auto settings = std::make_unique<Record>();
  fillRandom(*settings, TypeParam::kServiceType);
  auto expected = std::make_unique<Record>(*settings);
  TestFixture::clearUnbound(*expected);
  auto service = std::make_unique<ALRTNTFYSERV>();
  fillRandom(*service, 100 + TypeParam::kServiceType);
  auto expectedService = std::make_unique<ALRTNTFYSERV>(*service);

  _GUID serviceId{}, settingsId{};
  {
    CAlertNtfyServDB catalogue;
    ASSERT_EQ(OpenOrCreate(catalogue), 0u);
    ASSERT_EQ(catalogue.DBAlertRecAdd(service.get(), &serviceId, settings.get(), &settingsId), 0u);
  }
  EXPECT_TRUE(sameBytes(settingsId, expected->KEPOID)) << "a set ID is kept";
  EXPECT_TRUE(sameBytes(serviceId, expectedService->KEPOID));
  expectedService->ServiceType = TypeParam::kServiceType;
  expectedService->ServiceSpecific_KEPOID = settingsId;
  EXPECT_TRUE(sameBytes(*service, *expectedService));

  EXPECT_TRUE(alertdb_test::readsBackFresh<TypeParam>(settingsId, *expected));
  EXPECT_TRUE(alertdb_test::readsBackFresh<CAlertNtfyServDB>(serviceId, *expectedService));
}

TYPED_TEST(ServiceTableTest, EveryChangeIsSignalledButNoReadAndNoRefusal) {
  alertdb_test::expectRecordLifeAndSignals<TypeParam>({.add = true, .update = true, .remove = true},
                                                      7, TestFixture::clearUnbound);
}

TYPED_TEST(ServiceTableTest, SchemaIsTheSameInAnyFileAndCoversTheRecord) {
  platform::StoreTableInfo own =
      alertdb_test::describedAlikeInAnyFile<TypeParam>(this->dataDir(), "AlServdb.dat");
  ASSERT_FALSE(own.fields.empty());
  EXPECT_NE(own.title.find(" Notification Services"), std::string::npos) << own.title;
  for (const auto &field : own.fields) EXPECT_FALSE(field.description.empty()) << field.name;
  EXPECT_EQ(own.fields.front().name, "KEPOID");
  EXPECT_EQ(own.fields.back().size, 12u) << "the replication block ends every table";
  std::size_t unbound = std::is_same_v<TypeParam, CAlertGENPORTNtfyServDB> ? 4 : 0;
  EXPECT_EQ(alertdb_test::recordBytesOf(own) + unbound, sizeof(typename TypeParam::Record));
}

class ServiceKindTest : public alertdb_test::IsolatedTest {};

TEST_F(ServiceKindTest, SnmpFieldsKeepTheirStoredNamesAndTheRecordIsUnchanged) {
  CAlertSNMPNtfyServDB table;
  ASSERT_EQ(table.DBCreate(), 0u);
  platform::StoreTableInfo info = tableInfo(dataPath("AlServdb.dat"), "SNMP_Service");
  const char *names[] = {"KEPOID",  "Dir",      "Login",     "Password",        "Default_Message",
                         "Subject", "Priority", "ParamList", "SubjectParamList"};
  ASSERT_EQ(info.fields.size(), 9u);
  for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(info.fields[i].name, names[i]);
  EXPECT_EQ(info.fields[3].size, 1025u) << "the default message, under \"Password\"";

  // No password step: the caller's record is stored and left as it was.
  ALRTSNMPSERVICEREC record{}, before{};
  std::strcpy(record.Comment, "trap sink");
  std::strcpy(record.Community, "public");
  std::strcpy(record.Default_Message, "plain text stays plain");
  before = record;
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&record, &id), 0u);
  before.KEPOID = id;
  EXPECT_TRUE(sameBytes(record, before));
}

TEST_F(ServiceKindTest, BroadcastAndPagerServicesAreFoundByTheirKeys) {
  CAlertBROADCASTNtfyServDB broadcast;
  ASSERT_EQ(broadcast.DBCreate(), 0u);
  const char *servers[] = {"SRV-C", "SRV-A", "SRV-B"};
  for (std::uint32_t i = 0; i < 3; ++i) {
    ALRTBROADCASTSERVICEREC r{};
    r.BroadcastAll = i == 1 ? 1 : 0;
    std::strcpy(r.ServerName, servers[i]);
    std::snprintf(r.UserName, sizeof r.UserName, "user%u", i);
    _GUID id{};
    ASSERT_EQ(broadcast.DBAlertRecAdd(&r, &id), 0u);
  }
  ALRTBROADCASTSERVICEREC found{};
  ASSERT_EQ(findBy(broadcast, CAlertBROADCASTNtfyServDB::kServerNameKey, "SRV-A", &found), 0u);
  EXPECT_STREQ(found.ServerName, "SRV-A");
  EXPECT_EQ(std::uint32_t{found.BroadcastAll}, 1u);
  EXPECT_STREQ(found.UserName, "user1");
  ASSERT_EQ(broadcast.DBAlertRecFindNext(&found), 0u);
  EXPECT_STREQ(found.ServerName, "SRV-B") << "in server name order";
  ASSERT_EQ(findBy(broadcast, CAlertBROADCASTNtfyServDB::kUserNameKey, "user2", &found), 0u);
  EXPECT_STREQ(found.ServerName, "SRV-B");
  ASSERT_EQ(findBy(broadcast, CAlertBROADCASTNtfyServDB::kBroadcastAllKey, 1u, &found), 0u);
  EXPECT_STREQ(found.ServerName, "SRV-A");

  CAlertAPAGENtfyServDB apage;
  CAlertNPAGENtfyServDB npage;
  ASSERT_EQ(OpenOrCreate(apage), 0u);
  ASSERT_EQ(OpenOrCreate(npage), 0u);
  ALRTAPAGESERVICEREC a{};
  ALRTNPAGESERVICEREC n{};
  std::strcpy(a.Modem_name, "COM2 modem");
  std::strcpy(a.ServiceProvider, "PageCo");
  std::strcpy(n.Modem_name, "COM3 modem");
  n.Delay = 30;
  _GUID id{};
  ASSERT_EQ(apage.DBAlertRecAdd(&a, &id), 0u);
  ASSERT_EQ(npage.DBAlertRecAdd(&n, &id), 0u);
  ALRTAPAGESERVICEREC foundA{};
  ALRTNPAGESERVICEREC foundN{};
  ASSERT_EQ(findBy(apage, CAlertAPAGENtfyServDB::kModemNameKey, "COM2 modem", &foundA), 0u);
  EXPECT_STREQ(foundA.ServiceProvider, "PageCo");
  ASSERT_EQ(findBy(npage, CAlertNPAGENtfyServDB::kModemNameKey, "COM3 modem", &foundN), 0u);
  EXPECT_EQ(std::uint32_t{foundN.Delay}, 30u);
}

// The per-user table slot, reached the way the class itself reaches it.
template <class Table>
class SlotProbe : public Table {
 public:
  std::uint32_t init() { return this->InitUsrSpecifInfo(); }
  const void *slot() const { return this->m_pUserTable; }
};

TEST_F(ServiceKindTest, PerUserSlotOpensOnlyAnExistingUserFileAndIsNotShared) {
  SlotProbe<CAlertMHSNtfyServDB> mhs;
  ASSERT_EQ(mhs.DBCreate(), 0u);
  EXPECT_EQ(mhs.init(), ALRT_E_OPENFAILED) << "no user data file to open";
  EXPECT_EQ(mhs.slot(), nullptr);
  EXPECT_FALSE(fileExists(dataPath("kepuser.dat")));

  CAlertUSR_SMTPDB other;
  ASSERT_EQ(other.DBCreate(), 0u);  // the user file, without the MHS table
  EXPECT_EQ(mhs.init(), 0u);
  const void *slot = mhs.slot();
  EXPECT_NE(slot, nullptr);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("kepuser.dat"), "USR_MHS_Service"));
  EXPECT_EQ(mhs.init(), 0u);
  EXPECT_EQ(mhs.slot(), slot) << "opened once";

  SlotProbe<CAlertMHSNtfyServDB> copy(mhs);
  EXPECT_EQ(copy.slot(), nullptr);
  ASSERT_EQ(copy.DBOpen(), 0u);
  EXPECT_EQ(copy.init(), 0u);
  EXPECT_NE(copy.slot(), slot);
  copy = mhs;
  EXPECT_EQ(copy.slot(), nullptr) << "assignment releases the copy's own";

  SlotProbe<CAlertNPAGENtfyServDB> npage;
  EXPECT_EQ(npage.init(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("kepuser.dat"), "USR_NPAGE_Service"));
}

}  // namespace
