#include "config/installed_service_table.h"

#include <cstring>
#include <filesystem>
#include <memory>

#include "config/config_test_support.h"
#include "services/service_test_support.h"

using alertdb_test::addResponse;
using alertdb_test::addService;
using alertdb_test::addUser;
using alertdb_test::makeId;
using alertdb_test::response;
using alertdb_test::stored;

namespace {

class InstalledServiceTest : public alertdb_test::ConfigTest {
 protected:
  _GUID installRecord(const _GUID &service, const _GUID &settingsId, std::uint32_t backup) {
    ALRTSERV_INST_NTFY_SERVREC inst{};
    inst.ServiceOID = service;
    inst.ServerOID = makeId(0x10);
    inst.ServiceSpecOID = settingsId;
    inst.BackupServer = backup;
    _GUID id{};
    EXPECT_EQ(installed->DBAlertRecAdd(&inst, &id), 0u);
    return id;
  }
  bool settingsStored(const _GUID &settingsId) {
    CAlertSMTPNtfyServDB smtp;
    EXPECT_EQ(smtp.DBOpen(), 0u);
    return stored<ALRTSMTPSERVICEREC>(smtp, settingsId);
  }
};

TEST_F(InstalledServiceTest, DeletingTakesTheServicesResponsesAndInstancesAndNothingElse) {
  _GUID user = makeId(0x20), other = makeId(0x21);
  addUser(*users, user);
  addUser(*users, other);
  _GUID mail = addService(*catalogue, "mail"), pager = addService(*catalogue, "pager");
  giveService(user, mail, "user@example.org");
  giveService(other, mail, "other@example.org");
  giveService(user, pager, "pager@example.org");
  addResponse(*responses, response("user mail", user, mail));
  addResponse(*responses, response("other mail", other, mail));
  _GUID viaPager = addResponse(*responses, response("user pager", user, pager));
  ALERTRESPREC guarded = response("guarded", user, mail);
  guarded.Type = CAlertRespDB::kProtected;
  _GUID guardedId = addResponse(*responses, guarded);
  _GUID installedMail = installRecord(mail, makeId(0), 0);
  _GUID installedPager = installRecord(pager, makeId(0), 0);

  alertdb_test::ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(installed->DBAlertRecDelete(&installedMail), 0u);
  EXPECT_TRUE(watch.signalled()) << "through the dependents' own deletes";
  EXPECT_FALSE(stored<ALRTSERV_INST_NTFY_SERVREC>(*installed, installedMail));
  EXPECT_EQ(instancesOfService(mail), 0);
  EXPECT_EQ(responsesThrough(mail), 1) << "a protected response stays";
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, guardedId));
  EXPECT_TRUE(stored<ALRTSERV_INST_NTFY_SERVREC>(*installed, installedPager));
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, viaPager));
  EXPECT_EQ(instancesOfService(pager), 1);

  // Absent: the engine's own result, and nothing else is touched.
  EXPECT_NE(installed->DBAlertRecDelete(&installedMail), 0u);
  EXPECT_NE(installed->DBAlertRecDelete(&installedMail), ALRT_E_NOTFOUND);
  EXPECT_EQ(installed->DBAlertRecDelete(nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(instancesOfService(pager), 1);
}

TEST_F(InstalledServiceTest, OnlyABackupServersRecordTakesTheServiceSettingsWithIt) {
  _GUID keptSettings{}, goneSettings{};
  _GUID kept = addService(*catalogue, "kept", 5, &keptSettings);
  _GUID gone = addService(*catalogue, "gone", 5, &goneSettings);
  _GUID plain = installRecord(kept, keptSettings, 0);
  _GUID other = installRecord(kept, keptSettings, 2);
  _GUID backup = installRecord(gone, goneSettings, CAlertSERV_INST_NTFY_SERVDB::kBackupServer);
  ASSERT_EQ(installed->DBAlertRecDelete(&plain), 0u);
  ASSERT_EQ(installed->DBAlertRecDelete(&other), 0u);
  EXPECT_TRUE(settingsStored(keptSettings));
  ASSERT_EQ(installed->DBAlertRecDelete(&backup), 0u);
  EXPECT_FALSE(settingsStored(goneSettings));
  EXPECT_TRUE(stored<ALRTNTFYSERV>(*catalogue, gone)) << "the catalogue row stays";
}

TEST_F(InstalledServiceTest, ABackupRecordOfAKindWithoutSettingsOrServiceIsStillDeleted) {
  _GUID settingsId{};
  _GUID smtp = addService(*catalogue, "mail", 5, &settingsId);
  // A program launch service (type 14) has no settings table; a service
  // missing from the catalogue has no type at all.
  _GUID launch = addService(*catalogue, "launch", 14);
  _GUID forLaunch = installRecord(launch, settingsId, 1);
  _GUID forMissing = installRecord(makeId(0x77), settingsId, 1);
  EXPECT_EQ(installed->DBAlertRecDelete(&forLaunch), 0u);
  EXPECT_EQ(installed->DBAlertRecDelete(&forMissing), 0u);
  EXPECT_EQ(alertdb_test::rowCount(*installed), 0);
  EXPECT_TRUE(settingsStored(settingsId)) << "no table of the wrong kind was touched";
  EXPECT_TRUE(stored<ALRTNTFYSERV>(*catalogue, smtp));
}

TEST_F(InstalledServiceTest, DependentTablesThatCannotBeOpenedAreSkipped) {
  _GUID mail = addService(*catalogue, "mail");
  _GUID id = installRecord(mail, makeId(0), 1);
  responses.reset();
  instances.reset();
  users.reset();
  std::filesystem::remove(dataPath("AlRespDB.dat"));
  std::filesystem::remove(dataPath("kepuser.dat"));
  std::filesystem::remove(dataPath("AlServdb.dat"));
  EXPECT_EQ(installed->DBAlertRecDelete(&id), 0u);
  EXPECT_EQ(alertdb_test::rowCount(*installed), 0);
}

}  // namespace
