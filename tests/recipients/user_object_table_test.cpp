#include "recipients/user_object_table.h"

#include <cstring>
#include <memory>
#include <string>

#include "recipients/recipient_test_support.h"
#include "recipients/user_names.h"
#include "recipients/user_object_table_setup.h"
#include "recipients/user_table.h"
#include "services/service_test_support.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::kRefused;
using alertdb_test::makeId;
using alertdb_test::RefusingObjectManager;
using alertdb_test::stored;

namespace {

// The object's own fields, which callers never see.
class ProbedUserObjects : public CUsrDB {
 public:
  _GUID domainOfLastRecord() {
    _GUID id;
    std::memcpy(&id, m_pFieldTemplates[0].storage, sizeof id);
    return id;
  }
};

class UserObjectTest : public alertdb_test::IsolatedTest {
 protected:
  static tagUSEROBJ userObject(const char *login, const char *fullName) {
    tagUSEROBJ u{};
    std::strcpy(u.LoginName, login);
    std::strcpy(u.FullName, fullName);
    std::strcpy(u.Department, "Operations");
    return u;
  }
  _GUID addUserObject(const char *login, const char *fullName) {
    CUsrDB table;
    EXPECT_EQ(table.DBOpen(), 0u);
    tagUSEROBJ u = userObject(login, fullName);
    _GUID id{};
    EXPECT_EQ(table.DBAlertRecAdd(&u, &id), 0u);
    return id;
  }
};

TEST_F(UserObjectTest, TheTableIsCreatedByTheObjectManagerNotByTheLibrary) {
  CUsrDB table;
  EXPECT_EQ(table.DBCreate(), 0xFFFFu);
  EXPECT_FALSE(fileExists(dataPath("KepUser.dat")));
  EXPECT_EQ(table.DBOpen(), 0xFFFFu) << "no file, and none restored under this name";

  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u) << "there already";
  platform::StoreTableInfo info = alertdb_test::tableInfo(dataPath("KepUser.dat"), "UserObj");
  ASSERT_EQ(info.fields.size(), 11u);
  EXPECT_EQ(info.idKey, 2u);
  EXPECT_EQ(info.fields[0].name, "Domain Id");
  EXPECT_EQ(info.fields[9].name, "Replicate");
  EXPECT_EQ(info.title, "User Objects");
  EXPECT_EQ(info.fields[3].description, "Full Name");
  std::uint32_t recordBytes = 0;
  for (int i = 1; i <= 8; ++i) recordBytes += info.fields[i].size;
  EXPECT_EQ(recordBytes, sizeof(tagUSEROBJ));
  ASSERT_EQ(table.DBOpen(), 0u);

  // The alert user tables share the file, whichever table came first.
  CAlertUsrDB users;
  EXPECT_EQ(users.DBCreate(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("KepUser.dat"), "AlertUsr_Table"));
}

TEST_F(UserObjectTest, TheUserObjectTableIsAddedToAnExistingUserFile) {
  CAlertUsrDB users;
  ASSERT_EQ(users.DBCreate(), 0u);
  _GUID id = makeId(1);
  char name[65];
  std::strcpy(name, "untouched");
  EXPECT_EQ(KepGetUserName(&id, 64, name), ALRT_E_OPENFAILED);
  EXPECT_STREQ(name, "untouched");
  EXPECT_FALSE(alertdb_test::holdsTable(dataPath("kepuser.dat"), "UserObj")) << "nothing created";
  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("kepuser.dat"), "UserObj"));
  EXPECT_EQ(KepGetUserName(&id, 64, name), ALRT_E_NOTFOUND);
}

TEST_F(UserObjectTest, ChangesAreStoredUnderTheDomainAndMirrored) {
  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
  ProbedUserObjects table;
  ASSERT_EQ(table.DBOpen(), 0u);
  tagUSEROBJ u = userObject("jdoe", "Jane Doe");
  _GUID id{}, domain{}, classId{};
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(table.DBAlertRecAdd(&u, &id), 0u);
  EXPECT_FALSE(watch.signalled()) << "an add is not signalled";
  char name[64] = {};
  ASSERT_EQ(platform::KepOMGetInstance(&id, &classId, name, sizeof name), 0u);
  EXPECT_STREQ(name, "UserObj");
  EXPECT_EQ(std::memcmp(&classId, &platform::kClassIdUser, 16), 0);

  ProbedUserObjects reader;
  ASSERT_EQ(reader.DBOpen(), 0u);
  tagUSEROBJ read{};
  ASSERT_EQ(reader.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_EQ(std::memcmp(&read, &u, sizeof u), 0);
  ASSERT_EQ(platform::KepOMGetDomainID(&domain), 0u);
  _GUID storedDomain = reader.domainOfLastRecord();
  EXPECT_EQ(std::memcmp(&storedDomain, &domain, 16), 0);

  std::strcpy(read.Title, "Engineer");
  EXPECT_EQ(reader.DBAlertRecUpdate(&read), 0u);
  EXPECT_TRUE(watch.signalled());
  watch.reset();
  EXPECT_EQ(reader.DBAlertRecUpdate(&read), 0u);
  EXPECT_FALSE(watch.signalled()) << "unchanged";
  EXPECT_EQ(reader.DBAlertRecDelete(&id), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_NE(platform::KepOMGetInstance(&id, nullptr, nullptr, 0), 0u) << "unregistered";

  tagUSEROBJ same = userObject("jdoe2", "");
  std::strcpy(same.LoginName, "jdoe");
  ASSERT_EQ(table.DBAlertRecAdd(&u, &id), 0u) << "the login name is free again";
  EXPECT_EQ(table.DBAlertRecAdd(&same, &id), ALRT_E_ADDFAILED) << "login names are unique";
}

TEST_F(UserObjectTest, EachRefusalOfTheObjectManagerHasItsStatus) {
  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
  CUsrDB table;
  ASSERT_EQ(table.DBOpen(), 0u);
  tagUSEROBJ u = userObject("jdoe", "Jane Doe"), v = userObject("rroe", "Richard Roe");
  _GUID id{}, other{};

  RefusingObjectManager{.open = true}.install();
  EXPECT_EQ(table.DBAlertRecAdd(&u, &id), ALRT_E_OMFAILED);
  EXPECT_EQ(table.DBAlertRecFindFirst(CUsrDB::kIdKey, 0, nullptr, &v), ALRT_E_NOTFOUND)
      << "nothing stored";

  RefusingObjectManager{.add = true, .domain = true}.install();
  EXPECT_EQ(table.DBAlertRecAdd(&u, &id), ALRT_E_OMFAILED);
  EXPECT_TRUE(stored<tagUSEROBJ>(table, id)) << "stored all the same";

  RefusingObjectManager{.open = true}.install();
  std::strcpy(u.Title, "Lead");
  EXPECT_EQ(table.DBAlertRecUpdate(&u), ALRT_E_OMFAILED);
  EXPECT_EQ(table.DBAlertRecDelete(&id), ALRT_E_OMFAILED);
  tagUSEROBJ read{};
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_STREQ(read.Title, "") << "not updated";

  RefusingObjectManager{.update = true}.install();
  EXPECT_EQ(table.DBAlertRecUpdate(&u), ALRT_E_OMFAILED);
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_STREQ(read.Title, "Lead") << "updated all the same";

  // A user object the object manager does not know: its own result, after the record is gone.
  platform::KepOMSetProvider(nullptr);
  EXPECT_EQ(table.DBAlertRecDelete(&id), 0x80070490u);
  EXPECT_FALSE(stored<tagUSEROBJ>(table, id));
  ASSERT_EQ(table.DBAlertRecAdd(&v, &other), 0u);
  RefusingObjectManager{.remove = true}.install();
  EXPECT_EQ(table.DBAlertRecDelete(&other), kRefused);
  EXPECT_FALSE(stored<tagUSEROBJ>(table, other));
}

TEST_F(UserObjectTest, NamesAreCopiedWhenTheyFit) {
  ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
  _GUID id = addUserObject("jd", "Jane Marie Doe");  // 14 characters
  char name[32];
  ASSERT_EQ(KepGetUserName(&id, 14, name), 0u);
  EXPECT_STREQ(name, "Jane Marie Doe");
  std::strcpy(name, "untouched");
  EXPECT_EQ(KepGetUserName(&id, 13, name), ALRT_E_TOOLARGE);
  EXPECT_STREQ(name, "untouched");
  ASSERT_EQ(KepGetUserLoginName(&id, 2, name), 0u);
  EXPECT_STREQ(name, "jd");
  EXPECT_EQ(KepGetUserLoginName(&id, 1, name), ALRT_E_TOOLARGE);

  _GUID unknown = makeId(0x77);
  EXPECT_EQ(KepGetUserName(&unknown, 31, name), ALRT_E_NOTFOUND);
  EXPECT_EQ(KepGetUserLoginName(&unknown, 31, name), ALRT_E_NOTFOUND);
  EXPECT_EQ(KepGetUserName(nullptr, 31, name), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(KepGetUserName(&id, 31, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(KepGetUserLoginName(&id, 0, name), ALRT_E_INVALIDPARAM);

  // A name that fills its field without a terminator.
  CUsrDB table;
  ASSERT_EQ(table.DBOpen(), 0u);
  tagUSEROBJ full = userObject("full", "");
  std::memset(full.FullName, 'F', sizeof full.FullName);
  _GUID fullId{};
  ASSERT_EQ(table.DBAlertRecAdd(&full, &fullId), 0u);
  char wide[80];
  ASSERT_EQ(KepGetUserName(&fullId, 64, wide), 0u);
  EXPECT_EQ(std::string(wide), std::string(64, 'F'));
}

}  // namespace
