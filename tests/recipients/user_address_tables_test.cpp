#include "recipients/user_address_tables.h"

#include <cstring>
#include <memory>
#include <string>

#include "services/service_test_support.h"
#include "support/table_shape_checks.h"
#include "support/test_environment.h"

using alertdb_test::findBy;
using alertdb_test::makeId;
using alertdb_test::sameBytes;
using alertdb_test::tableInfo;

namespace {

template <class Table>
class UserAddressTableTest : public alertdb_test::IsolatedTest {};

using UserAddressTables =
    ::testing::Types<CAlertUSR_MHSDB, CAlertUSR_SNMPDB, CAlertUSR_MCIDB, CAlertUSR_COMPUDB,
                     CAlertUSR_SMTPDB, CAlertUSR_MAPIDB, CAlertUSR_CCMAILDB, CAlertUSR_APAGEDB,
                     CAlertUSR_NPAGEDB>;
TYPED_TEST_SUITE(UserAddressTableTest, UserAddressTables);

TYPED_TEST(UserAddressTableTest, RecordsRoundTripAndOnlyUpdatesAndDeletesSignal) {
  alertdb_test::expectRecordLifeAndSignals<TypeParam>(
      {.add = false, .update = true, .remove = true}, TypeParam::kUserKey);
}

TYPED_TEST(UserAddressTableTest, SchemaDescribesTheRecordInAnyFile) {
  platform::StoreTableInfo own =
      alertdb_test::describedAlikeInAnyFile<TypeParam>(this->dataDir(), "kepuser.dat");
  ASSERT_FALSE(own.fields.empty());
  EXPECT_NE(own.title.find("User Specific Table"), std::string::npos) << own.title;
  EXPECT_EQ(own.fields.front().description, "Record OID (KEPOID)");
  EXPECT_EQ(own.fields.back().name, "Replication");
  EXPECT_EQ(own.fields.back().description, "Replication");
  EXPECT_EQ(alertdb_test::recordBytesOf(own), sizeof(typename TypeParam::Record));
  bool userKey = false;
  for (const auto &f : own.fields)
    userKey |= f.name == "USR_OID" && f.keyNumber == TypeParam::kUserKey;
  EXPECT_TRUE(userKey);
}

class UserAddressTest : public alertdb_test::IsolatedTest {};

TEST_F(UserAddressTest, NumericPagerFieldsLandInTheirOwnMembers) {
  CAlertUSR_NPAGEDB table;
  ASSERT_EQ(table.DBCreate(), 0u);
  ALRTUSR_NPAGESERVICEREC r{};
  r.USR_OID = makeId(5);
  std::strcpy(r.NPAGE_Phone, "555-0100");
  std::strcpy(r.UserName, "Dana Scully");
  r.Enable = 1;
  r.Delay = 45;
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&r, &id), 0u);
  ALRTUSR_NPAGESERVICEREC read{};
  CAlertUSR_NPAGEDB reader;
  ASSERT_EQ(reader.DBOpen(), 0u);
  ASSERT_EQ(reader.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_STREQ(read.NPAGE_Phone, "555-0100");
  EXPECT_STREQ(read.UserName, "Dana Scully");
  EXPECT_EQ(std::uint32_t{read.Delay}, 45u);

  // The schema lists the user name first, and its key finds the record.
  platform::StoreTableInfo info = tableInfo(dataPath("kepuser.dat"), "USR_NPAGE_Service");
  ASSERT_EQ(info.fields.size(), 7u);
  EXPECT_EQ(info.fields[2].name, "UserName");
  EXPECT_EQ(info.fields[2].size, 65u);
  EXPECT_EQ(info.fields[3].name, "NPAGE_Phone");
  ALRTUSR_NPAGESERVICEREC byName{}, byPhone{};
  ASSERT_EQ(findBy(reader, 68, "Dana Scully", &byName), 0u);
  EXPECT_STREQ(byName.NPAGE_Phone, "555-0100");
  ASSERT_EQ(findBy(reader, 69, "555-0100", &byPhone), 0u);
  EXPECT_STREQ(byPhone.UserName, "Dana Scully");
}

TEST_F(UserAddressTest, AUsersAddressesComeFirstFromTheUserKeyThenTheWalkGoesOn) {
  CAlertUSR_SMTPDB table;
  ASSERT_EQ(table.DBCreate(), 0u);
  const unsigned char users[] = {0x20, 0x10, 0x20, 0x30, 0x10};
  for (unsigned i = 0; i < 5; ++i) {
    ALRTUSR_SMTPSERVICEREC r{};
    r.USR_OID = makeId(users[i]);
    std::snprintf(r.SMTPMailAddr, sizeof r.SMTPMailAddr, "addr%u@example.org", i);
    _GUID id{};
    ASSERT_EQ(table.DBAlertRecAdd(&r, &id), 0u);
  }
  ALRTUSR_SMTPSERVICEREC r{};
  ASSERT_EQ(findBy(table, CAlertUSR_SMTPDB::kUserKey, makeId(0x20), &r), 0u);
  EXPECT_STREQ(r.SMTPMailAddr, "addr0@example.org");
  ASSERT_EQ(table.DBAlertRecFindNext(&r), 0u);
  EXPECT_STREQ(r.SMTPMailAddr, "addr2@example.org") << "same user, in the order added";
  ASSERT_EQ(table.DBAlertRecFindNext(&r), 0u);
  EXPECT_TRUE(sameBytes(r.USR_OID, makeId(0x30))) << "past the user's own addresses";
  EXPECT_EQ(table.DBAlertRecFindNext(&r), ALRT_E_NOTFOUND);
}

TEST_F(UserAddressTest, AlphaPagerKeysTheSelectedServiceAndTheUserApart) {
  CAlertUSR_APAGEDB table;
  ASSERT_EQ(table.DBCreate(), 0u);
  ALRTUSR_APAGESERVICEREC r{};
  r.SelServiceOID = makeId(0x61);
  r.USR_OID = makeId(0x60);
  std::strcpy(r.Pin, "4711");
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&r, &id), 0u);
  ALRTUSR_APAGESERVICEREC byService{}, byUser{};
  ASSERT_EQ(findBy(table, 61, makeId(0x61), &byService), 0u);
  EXPECT_STREQ(byService.Pin, "4711");
  ASSERT_EQ(findBy(table, CAlertUSR_APAGEDB::kUserKey, makeId(0x60), &byUser), 0u);
  EXPECT_TRUE(sameBytes(byUser.KEPOID, id));
  EXPECT_NE(findBy(table, 61, makeId(0x60), &byUser), 0u) << "the user's ID is not a service";
}

}  // namespace
