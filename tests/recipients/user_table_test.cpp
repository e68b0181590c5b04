#include "recipients/user_table.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "recipients/recipient_test_support.h"
#include "services/service_test_support.h"
#include "support/test_environment.h"

using alertdb_test::addResponse;
using alertdb_test::addService;
using alertdb_test::addUser;
using alertdb_test::ChangeEventWatch;
using alertdb_test::kRefused;
using alertdb_test::makeId;
using alertdb_test::orderedId;
using alertdb_test::RefusingObjectManager;
using alertdb_test::response;
using alertdb_test::smtpAddress;
using alertdb_test::stored;

namespace {

class UserTableTest : public alertdb_test::RecipientTablesTest {
 protected:
  ALRTUSRINSTSERV firstInstanceOf(_GUID user) {
    ALRTUSRINSTSERV i{};
    EXPECT_EQ(alertdb_test::findBy(*instances, CAlertUsrInstServDB::kUserKey, user, &i), 0u);
    return i;
  }
};

TEST_F(UserTableTest, UsersAreMirroredIntoTheObjectManager) {
  ALERTUSRREC user{};
  user.AlertRecp = 1;
  _GUID id{}, classId{};
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(users->DBAlertRecAdd(&user, &id), 0u);
  EXPECT_TRUE(watch.signalled());
  char name[64] = {};
  ASSERT_EQ(platform::KepOMGetInstance(&id, &classId, name, sizeof name), 0u);
  EXPECT_STREQ(name, "AlertUsr_Table");
  EXPECT_EQ(std::memcmp(&classId, &platform::kClassIdUser, 16), 0);

  RefusingObjectManager{.update = true}.install();
  ALERTUSRREC same{};
  ASSERT_EQ(users->DBAlertRecRetrieve(&id, &same), 0u);
  watch.reset();
  EXPECT_EQ(users->DBAlertRecUpdate(&same), 0u) << "unchanged: the object manager is not asked";
  EXPECT_FALSE(watch.signalled());
  same.AlertRecp = 0;
  EXPECT_EQ(users->DBAlertRecUpdate(&same), ALRT_E_OMFAILED);
  EXPECT_TRUE(watch.signalled());
  ALERTUSRREC read{};
  ASSERT_EQ(users->DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_EQ(std::uint32_t{read.AlertRecp}, 0u) << "the change stays";

  EXPECT_EQ(users->GetNoDefFlds(), 1u);
  EXPECT_STREQ(users->GetDefFldView()[0].pszName, "AlertRecp");
}

TEST_F(UserTableTest, AnObjectManagerRefusalIsReportedAfterTheChange) {
  RefusingObjectManager{.add = true}.install();
  ALERTUSRREC two{}, three{};
  _GUID twoId{}, threeId{};
  EXPECT_EQ(users->DBAlertRecAdd(&two, &twoId), kRefused) << "its own result";
  EXPECT_EQ(users->DBAlertRecAdd(&three, &threeId, 0), ALRT_E_OMFAILED);
  EXPECT_TRUE(stored<ALERTUSRREC>(*users, twoId));
  EXPECT_TRUE(stored<ALERTUSRREC>(*users, threeId));

  RefusingObjectManager{.open = true}.install();
  ALERTUSRREC more{};
  _GUID moreId{};
  EXPECT_EQ(users->DBAlertRecAdd(&more, &moreId), ALRT_E_OMOPEN);
  EXPECT_EQ(users->DBAlertRecAdd(&more, &moreId, 0), ALRT_E_OMOPEN);
  EXPECT_EQ(alertdb_test::rowCount(*users), 2);
  two.AlertRecp = 5;
  EXPECT_EQ(users->DBAlertRecUpdate(&two), ALRT_E_OMOPEN);
  EXPECT_EQ(users->DBAlertRecDelete(&twoId), ALRT_E_OMOPEN);
  ALERTUSRREC read{};
  ASSERT_EQ(users->DBAlertRecRetrieve(&twoId, &read), 0u);
  EXPECT_EQ(std::uint32_t{read.AlertRecp}, 0u);

  // A delete neither asks the object manager to remove the user nor
  // depends on its consent.
  RefusingObjectManager{.remove = true}.install();
  EXPECT_EQ(users->DBAlertRecDelete(&twoId), 0u);
  EXPECT_FALSE(stored<ALERTUSRREC>(*users, twoId));
}

// Gives the user a service of the kind of `Table` with an address; checks the
// one address record and the one instance that the call stored.
template <class Table>
void expectServiceAdded(CAlertUsrDB &users, _GUID user, _GUID service, std::uint32_t type,
                        const char *serviceName) {
  SCOPED_TRACE(serviceName);
  using Address = typename Table::Record;
  auto address = std::make_unique<Address>();
  std::memset(address.get(), 0, sizeof(Address));
  address->USR_OID = user;
  ASSERT_EQ(users.QALRTUsrAddService(&user, &service, address.get()), 0u);
  CAlertUsrInstServDB instances;
  ASSERT_EQ(instances.DBOpen(), 0u);
  ALRTUSRINSTSERV i{};
  ASSERT_EQ(alertdb_test::findBy(instances, CAlertUsrInstServDB::kServiceKey, service, &i), 0u);
  EXPECT_EQ(std::memcmp(&i.UserOid, &user, 16), 0);
  EXPECT_EQ(std::uint32_t{i.ServiceType}, type);
  EXPECT_STREQ(i.Service_Name, serviceName);
  EXPECT_EQ(std::uint32_t{i.Enable}, 0u);
  Table table;
  ASSERT_EQ(table.DBOpen(), 0u);
  EXPECT_EQ(alertdb_test::rowCount(table), 1);
  auto read = std::make_unique<Address>();
  std::memset(read.get(), 0, sizeof(Address));
  ASSERT_EQ(table.DBAlertRecRetrieve(&i.ServicePerInfo_KEPOID, read.get()), 0u);
  EXPECT_EQ(std::memcmp(&read->USR_OID, &user, 16), 0);
}

TEST_F(UserTableTest, AServiceOfEachKindIsAddedWithItsAddress) {
  _GUID user = makeId(0x10);
  addUser(*users, user);
  ChangeEventWatch watch;
  watch.reset();
  expectServiceAdded<CAlertUSR_MHSDB>(*users, user, makeId(0x21), 1, "MHS");
  expectServiceAdded<CAlertUSR_SNMPDB>(*users, user, makeId(0x22), 2, "SNMP Trap");
  expectServiceAdded<CAlertUSR_MCIDB>(*users, user, makeId(0x23), 3, "MCI Mail");
  expectServiceAdded<CAlertUSR_COMPUDB>(*users, user, makeId(0x24), 4, "CompuServe");
  expectServiceAdded<CAlertUSR_SMTPDB>(*users, user, makeId(0x25), 5, "Internet Mail");
  expectServiceAdded<CAlertUSR_MAPIDB>(*users, user, makeId(0x26), 6, "Microsoft Mail");
  expectServiceAdded<CAlertUSR_CCMAILDB>(*users, user, makeId(0x27), 7, "CC:Mail");
  expectServiceAdded<CAlertUSR_APAGEDB>(*users, user, makeId(0x28), 11, "Alphanumeric Pager");
  expectServiceAdded<CAlertUSR_NPAGEDB>(*users, user, makeId(0x29), 12, "Numeric Pager");
  EXPECT_FALSE(watch.signalled()) << "these adds are not signalled";
  EXPECT_EQ(instancesOfUser(user), 9);
}

TEST_F(UserTableTest, AServiceIsGivenOnlyToAUserThatExists) {
  _GUID user = makeId(0x10), nobody = makeId(0x11), service = makeId(0x20);
  addUser(*users, user);
  ALRTUSR_SMTPSERVICEREC a = smtpAddress(nobody, "nobody@example.org");
  EXPECT_EQ(users->QALRTUsrAddService(&nobody, &service, &a), ALRT_E_NOTFOUND);
  EXPECT_EQ(users->QALRTUsrAddService(nullptr, &service, &a), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(users->QALRTUsrAddService(&user, nullptr, &a), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(users->QALRTUsrAddService(&user, &service, (ALRTUSR_SMTPSERVICEREC *)nullptr),
            ALRT_E_INVALIDPARAM);
  EXPECT_EQ(alertdb_test::rowCount(*smtp), 0);
  EXPECT_EQ(alertdb_test::rowCount(*instances), 0);

  // An address record under an ID already taken: refused, and no instance.
  ALRTUSR_SMTPSERVICEREC first = smtpAddress(user, "a@example.org");
  first.KEPOID = makeId(0x55);
  ALRTUSR_SMTPSERVICEREC clash = first;
  ASSERT_EQ(users->QALRTUsrAddService(&user, &service, &first), 0u);
  EXPECT_EQ(users->QALRTUsrAddService(&user, &service, &clash), ALRT_E_ADDFAILED);
  EXPECT_EQ(instancesOfUser(user), 1);
  EXPECT_EQ(addressesOf(user), 1);
  ALRTUSR_SMTPSERVICEREC again = smtpAddress(user, "b@example.org");
  EXPECT_EQ(users->QALRTUsrAddService(&user, &service, &again), 0u) << "opened afresh";
  EXPECT_EQ(instancesOfUser(user), 2);
}

TEST_F(UserTableTest, AnInstanceAddWithAddressNeedsEveryArgument) {
  ALRTUSRINSTSERV i{};
  ALRTUSR_NPAGESERVICEREC a{};
  _GUID instanceId{}, addressId{};
  EXPECT_EQ(instances->DBAlertRecAdd(nullptr, &instanceId, &a, &addressId), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(instances->DBAlertRecAdd(&i, nullptr, &a, &addressId), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(instances->DBAlertRecAdd(&i, &instanceId, &a, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(alertdb_test::rowCount(*instances), 0);

  // An instance that cannot be stored leaves its address record behind.
  i.KEPOID = makeId(0x31);
  ASSERT_EQ(instances->DBAlertRecAdd(&i, &instanceId, &a, &addressId), 0u);
  EXPECT_EQ(std::uint32_t{i.ServiceType}, 12u) << "the caller's record is completed";
  EXPECT_EQ(std::memcmp(&i.ServicePerInfo_KEPOID, &addressId, 16), 0);
  ALRTUSR_NPAGESERVICEREC b{};
  EXPECT_EQ(instances->DBAlertRecAdd(&i, &instanceId, &b, &addressId), ALRT_E_ADDFAILED);
  CAlertUSR_NPAGEDB npage;
  ASSERT_EQ(npage.DBOpen(), 0u);
  EXPECT_EQ(alertdb_test::rowCount(npage), 2);
}

TEST_F(UserTableTest, DeletingAnInstanceTakesItsAddressAndItsServicesResponses) {
  _GUID user = makeId(0x10), other = makeId(0x12);
  addUser(*users, user);
  addUser(*users, other);
  _GUID mail = addService(*catalogue, "mail"), pager = addService(*catalogue, "pager");
  giveService(user, mail, "user@example.org");
  giveService(user, pager, "pager@example.org");
  giveService(other, mail, "other@example.org");
  _GUID viaMail = addResponse(*responses, response("user mail", user, mail));
  _GUID viaPager = addResponse(*responses, response("user pager", user, pager));
  _GUID otherMail = addResponse(*responses, response("other mail", other, mail));

  // The user's instance of the mail service.
  ALRTUSRINSTSERV instance{};
  for (std::uint32_t r =
           alertdb_test::findBy(*instances, CAlertUsrInstServDB::kUserKey, user, &instance);
       r == 0 && std::memcmp(&instance.Service_KEPOID, &mail, 16) != 0;
       r = instances->DBAlertRecFindNext(&instance)) {
  }
  ASSERT_EQ(std::memcmp(&instance.Service_KEPOID, &mail, 16), 0);
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(instances->DBAlertRecDelete(&instance.KEPOID), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_EQ(instancesOfUser(user), 1);
  EXPECT_FALSE(stored<ALRTUSR_SMTPSERVICEREC>(*smtp, instance.ServicePerInfo_KEPOID));
  EXPECT_EQ(addressesOf(user), 1);
  EXPECT_FALSE(stored<ALERTRESPREC>(*responses, viaMail));
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, viaPager)) << "another service of the user";
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, otherMail)) << "another user of the service";
  EXPECT_EQ(instancesOfUser(other), 1);

  EXPECT_NE(instances->DBAlertRecDelete(&instance.KEPOID), 0u) << "gone already";
  _GUID none{};
  EXPECT_EQ(instances->DBAlertRecDelete(&none), ALRT_E_INVALIDPARAM);
}

TEST_F(UserTableTest, AnAddressRecordIsDeletedInTheTableOfItsKind) {
  ALRTUSRINSTSERV i{};
  i.ServiceType = 8;  // Wave File: no per-user table
  EXPECT_EQ(instances->DeleteUsrSpecifRec(&i), ALRT_E_NOUSERTABLE);
  i.ServiceType = 0;
  EXPECT_EQ(instances->DeleteUsrSpecifRec(&i), ALRT_E_NOUSERTABLE);
  _GUID user = makeId(0x10);
  addUser(*users, user);
  giveService(user, makeId(0x20), "user@example.org");
  i = firstInstanceOf(user);
  EXPECT_EQ(instances->DeleteUsrSpecifRec(&i), 0u);
  EXPECT_EQ(addressesOf(user), 0);
  EXPECT_EQ(instancesOfUser(user), 1) << "only the address record";
  EXPECT_NE(instances->DeleteUsrSpecifRec(&i), 0u) << "the per-user table's own result";
}

TEST_F(UserTableTest, DeletingAUserTakesOnlyItsOwnRecordsAmongInterleavedOthers) {
  // Three users in ID order; each has services and responses whose own IDs
  // interleave with the others' in every key order.
  const _GUID before = orderedId(0x40, 1), user = orderedId(0x50, 2), after = orderedId(0x60, 3);
  std::vector<_GUID> services;
  for (int s = 0; s < 4; ++s)
    services.push_back(addService(*catalogue, ("s" + std::to_string(s)).c_str()));
  for (const _GUID &u : {before, user, after}) addUser(*users, u);
  int n = 0;
  for (int s = 0; s < 4; ++s) {
    for (const _GUID &u : {after, user, before}) {
      std::string name = std::to_string(n++);
      giveService(u, services[s], (name + "@example.org").c_str());
      ALERTRESPREC r = response("r" + name, u, services[s]);
      r.KEPOID = orderedId(static_cast<unsigned char>(0x80 - n), static_cast<unsigned char>(n));
      addResponse(*responses, r);
    }
  }
  // A response of the user through no instance of it, and a protected one.
  addResponse(*responses, response("loose", user, makeId(0x99)));
  ALERTRESPREC guarded = response("guarded", user, makeId(0x98));
  guarded.Type = 0x4000;
  _GUID guardedId = addResponse(*responses, guarded);

  ChangeEventWatch watch;
  watch.reset();
  _GUID id = user;
  ASSERT_EQ(users->DBAlertRecDelete(&id), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_FALSE(stored<ALERTUSRREC>(*users, user));
  EXPECT_EQ(instancesOfUser(user), 0);
  EXPECT_EQ(addressesOf(user), 0);
  EXPECT_EQ(responsesOfUser(user), 1) << "the protected response stays";
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, guardedId));
  for (const _GUID &u : {before, after}) {
    EXPECT_TRUE(stored<ALERTUSRREC>(*users, u));
    EXPECT_EQ(instancesOfUser(u), 4);
    EXPECT_EQ(addressesOf(u), 4);
    EXPECT_EQ(responsesOfUser(u), 4);
  }
}

TEST_F(UserTableTest, AUserWhoseInstancesPointAtMissingRowsIsDeletedAllTheSame) {
  _GUID user = makeId(0x10);
  addUser(*users, user);
  giveService(user, makeId(0x20), "gone@example.org");  // service not in the catalogue
  ALRTUSRINSTSERV i = firstInstanceOf(user);
  ASSERT_EQ(smtp->DBAlertRecDelete(&i.ServicePerInfo_KEPOID), 0u);  // address gone
  ALRTUSRINSTSERV wave{}, unknown{};
  wave.UserOid = unknown.UserOid = user;
  wave.ServiceType = 8;
  unknown.ServiceType = 99;
  _GUID waveId{}, unknownId{};
  ASSERT_EQ(instances->DBAlertRecAdd(&wave, &waveId), 0u);
  ASSERT_EQ(instances->DBAlertRecAdd(&unknown, &unknownId), 0u);
  addResponse(*responses, response("r", user, makeId(0x20)));
  _GUID lone = makeId(0x11);  // nothing to cascade to
  addUser(*users, lone);

  ASSERT_EQ(users->DBAlertRecDelete(&user), 0u);
  EXPECT_FALSE(stored<ALERTUSRREC>(*users, user));
  EXPECT_EQ(instancesOfUser(user), 0);
  EXPECT_EQ(responsesOfUser(user), 0);
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(users->DBAlertRecDelete(&lone), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_FALSE(stored<ALERTUSRREC>(*users, lone));
  watch.reset();
  std::uint32_t again = users->DBAlertRecDelete(&lone);
  EXPECT_NE(again, 0u);
  EXPECT_LT(again, 0x10000u) << "the record store's own result";
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(users->DBAlertRecDelete(nullptr), ALRT_E_INVALIDPARAM);
}

TEST_F(UserTableTest, AResponseTableThatCannotBeOpenedStopsTheCascadeAndSaysSo) {
  _GUID user = makeId(0x10);
  addUser(*users, user);
  giveService(user, makeId(0x20), "user@example.org");
  responses.reset();
  writeFile(dataPath("AlRespDB.dat"), "not a record store");
  EXPECT_EQ(users->DBAlertRecDelete(&user), ALRT_E_OPENFAILED);
  EXPECT_TRUE(stored<ALERTUSRREC>(*users, user)) << "the user record stays";
  EXPECT_EQ(instancesOfUser(user), 0) << "deleted before the failure";
  EXPECT_EQ(addressesOf(user), 0);

  // An instance alone reports it as well, once its own record is gone.
  giveService(user, makeId(0x21), "again@example.org");
  ALRTUSRINSTSERV i = firstInstanceOf(user);
  EXPECT_EQ(instances->DBAlertRecDelete(&i.KEPOID), ALRT_E_OPENFAILED);
  EXPECT_EQ(instancesOfUser(user), 0);
  EXPECT_EQ(addressesOf(user), 0);
}

}  // namespace
