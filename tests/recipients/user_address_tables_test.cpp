#include "recipients/user_address_tables.h"

#include <cstring>
#include <memory>
#include <string>

#include "services/service_test_support.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::fillRandom;
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
  using Record = typename TypeParam::Record;
  {
    TypeParam table;
    ASSERT_EQ(table.DBCreate(), 0u);
  }
  TypeParam table;
  ASSERT_EQ(table.DBOpen(), 0u);
  auto record = std::make_unique<Record>();
  fillRandom(*record, TypeParam::kUserKey);
  auto stored = std::make_unique<Record>(*record);
  _GUID id{};
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(table.DBAlertRecAdd(record.get(), &id), 0u);
  EXPECT_FALSE(watch.signalled()) << "an add is not signalled";
  EXPECT_TRUE(sameBytes(id, stored->KEPOID));

  TypeParam reader;  // reads from the file, not from the writer's buffer
  ASSERT_EQ(reader.DBOpen(), 0u);
  auto read = std::make_unique<Record>();
  ASSERT_EQ(reader.DBAlertRecRetrieve(&id, read.get()), 0u);
  EXPECT_TRUE(sameBytes(*read, *stored));
  EXPECT_EQ(reader.DBAlertRecUpdate(read.get()), 0u);
  EXPECT_FALSE(watch.signalled()) << "nothing changed";

  reinterpret_cast<unsigned char *>(read.get())[sizeof(Record) - 1] ^= 0xFF;
  EXPECT_EQ(reader.DBAlertRecUpdate(read.get()), 0u);
  EXPECT_TRUE(watch.signalled()) << "update";
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, stored.get()), 0u);
  EXPECT_TRUE(sameBytes(*stored, *read));

  watch.reset();
  _GUID unknown = makeId(0x99);
  EXPECT_NE(table.DBAlertRecDelete(&unknown), 0u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(table.DBAlertRecDelete(&id), 0u);
  EXPECT_TRUE(watch.signalled()) << "delete";
  EXPECT_EQ(reader.DBAlertRecRetrieve(&id, read.get()), ALRT_E_NOTFOUND);
}

TYPED_TEST(UserAddressTableTest, SchemaDescribesTheRecordInAnyFile) {
  const char *name = TypeParam::kDefinition.table.tableName;
  TypeParam byDefault, named("Other.dat");
  ASSERT_EQ(byDefault.DBCreate(), 0u);
  ASSERT_EQ(named.DBCreate(), 0u);
  platform::StoreTableInfo own = tableInfo(this->dataPath("kepuser.dat"), name);
  platform::StoreTableInfo other = tableInfo(this->dataPath("Other.dat"), name);
  ASSERT_EQ(own.fields.size(), TypeParam::kDefinition.table.fieldCount);
  ASSERT_EQ(other.fields.size(), own.fields.size());
  EXPECT_NE(own.title.find("User Specific Table"), std::string::npos) << own.title;
  std::size_t recordBytes = 0;
  for (std::size_t i = 0; i < own.fields.size(); ++i) {
    SCOPED_TRACE(own.fields[i].name);
    EXPECT_EQ(other.fields[i].name, own.fields[i].name);
    EXPECT_EQ(other.fields[i].keyNumber, own.fields[i].keyNumber);
    EXPECT_EQ(other.fields[i].description, own.fields[i].description);
    recordBytes += own.fields[i].size;
  }
  EXPECT_EQ(own.fields.front().description, "Record OID (KEPOID)");
  EXPECT_EQ(own.fields.back().name, "Replication");
  EXPECT_EQ(own.fields.back().description, "Replication");
  EXPECT_EQ(recordBytes - 12, sizeof(typename TypeParam::Record));
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
  char name[65] = "Dana Scully";
  ALRTUSR_NPAGESERVICEREC found{};
  ASSERT_EQ(reader.DBAlertRecFindFirst(68, 12, reinterpret_cast<unsigned char *>(name), &found),
            0u);
  EXPECT_STREQ(found.NPAGE_Phone, "555-0100");
  char phone[26] = "555-0100";
  ASSERT_EQ(reader.DBAlertRecFindFirst(69, 9, reinterpret_cast<unsigned char *>(phone), &found),
            0u);
  EXPECT_STREQ(found.UserName, "Dana Scully");
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
  _GUID user = makeId(0x20);
  ALRTUSR_SMTPSERVICEREC r{};
  ASSERT_EQ(table.DBAlertRecFindFirst(CAlertUSR_SMTPDB::kUserKey, 16,
                                      reinterpret_cast<unsigned char *>(&user), &r),
            0u);
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
  ALRTUSR_APAGESERVICEREC found{};
  _GUID service = makeId(0x61), user = makeId(0x60);
  ASSERT_EQ(table.DBAlertRecFindFirst(61, 16, reinterpret_cast<unsigned char *>(&service), &found),
            0u);
  EXPECT_STREQ(found.Pin, "4711");
  ASSERT_EQ(table.DBAlertRecFindFirst(CAlertUSR_APAGEDB::kUserKey, 16,
                                      reinterpret_cast<unsigned char *>(&user), &found),
            0u);
  EXPECT_TRUE(sameBytes(found.KEPOID, id));
  EXPECT_NE(table.DBAlertRecFindFirst(61, 16, reinterpret_cast<unsigned char *>(&user), &found), 0u)
      << "the user's ID is not a selected service";
}

}  // namespace
