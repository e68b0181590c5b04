// Builders shared by the recipient, response and alert flow tests: services,
// users with addresses, responses, and an object manager that refuses.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "framework/link_table_probe.h"
#include "platform/object_manager.h"
#include "recipients/user_address_tables.h"
#include "recipients/user_instance_table.h"
#include "recipients/user_table.h"
#include "responses/response_table.h"
#include "services/notify_services_table.h"
#include "services/service_test_support.h"
#include "support/refusing_object_manager.h"
#include "support/test_environment.h"

namespace alertdb_test {

// An ID whose first byte decides its place in byte order.
inline _GUID orderedId(unsigned char first, unsigned char rest) {
  _GUID id = makeId(rest);
  reinterpret_cast<unsigned char *>(&id)[0] = first;
  return id;
}

// A catalogue service of the SMTP kind (type 5), its settings row's ID in
// `settingsOut`, or, with another type, a plain catalogue row of that type.
inline _GUID addService(CAlertNtfyServDB &catalogue, const char *name, std::uint32_t type = 5,
                        _GUID *settingsOut = nullptr) {
  ALRTNTFYSERV row{};
  std::snprintf(row.Service_Name, sizeof row.Service_Name, "%s", name);
  row.ServiceType = type;
  _GUID id{}, ownSettingsId{};
  _GUID &settingsId = settingsOut ? *settingsOut : ownSettingsId;
  std::uint32_t status;
  if (type == 5) {
    ALRTSMTPSERVICEREC settings{};
    status = catalogue.DBAlertRecAdd(&row, &id, &settings, &settingsId);
  } else {
    status = catalogue.DBAlertRecAdd(&row, &id);
  }
  EXPECT_EQ(status, 0u) << name;
  return id;
}

inline ALRTUSR_SMTPSERVICEREC smtpAddress(const _GUID &user, const char *address) {
  ALRTUSR_SMTPSERVICEREC r{};
  r.USR_OID = user;
  std::snprintf(r.SMTPMailAddr, sizeof r.SMTPMailAddr, "%s", address);
  return r;
}

// A user with the given ID, added through the table.
inline void addUser(CAlertUsrDB &users, const _GUID &id) {
  ALERTUSRREC user{};
  user.KEPOID = id;
  user.AlertRecp = 1;
  _GUID newId{};
  EXPECT_EQ(users.DBAlertRecAdd(&user, &newId), 0u);
}

// A response (not a service response) of a user through a service; names are unique.
inline ALERTRESPREC response(const std::string &name, const _GUID &user, const _GUID &service) {
  ALERTRESPREC r{};
  std::snprintf(r.Name, sizeof r.Name, "%s", name.c_str());
  std::strcpy(r.Target, "someone");
  r.UserOID = user;
  r.ServiceOID = service;
  return r;
}

inline _GUID addResponse(CAlertRespDB &responses, ALERTRESPREC r) {
  _GUID id{};
  EXPECT_EQ(responses.DBAlertRecAdd(&r, &id), 0u) << r.Name;
  return id;
}

template <class Rec, class Table>
bool stored(Table &table, _GUID id) {
  auto record = std::make_unique<Rec>();
  return table.DBAlertRecRetrieve(&id, record.get()) == 0;
}

// The records of `Table` whose field at `key` holds `value`, in key order.
template <class Table, class Rec>
int countByKey(Table &table, std::uint32_t key, _GUID value, _GUID Rec::*field) {
  auto record = std::make_unique<Rec>();
  int n = 0;
  for (std::uint32_t r = findBy(table, key, value, record.get());
       r == 0 && std::memcmp(&(record.get()->*field), &value, 16) == 0;
       r = table.DBAlertRecFindNext(record.get())) {
    ++n;
  }
  return n;
}

// The tables that users' services and responses reach, created empty. The
// objects are made once the data directory is set: the path is fixed at
// construction.
class RecipientTablesTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    catalogue = std::make_unique<CAlertNtfyServDB>();
    ASSERT_EQ(catalogue->DBCreate(), 0u);
    responses = std::make_unique<CAlertRespDB>();
    ASSERT_EQ(responses->DBCreate(), 0u);
    CAlertEVENT_RESPDB links;
    ASSERT_EQ(links.DBCreate(), 0u);
    users = std::make_unique<CAlertUsrDB>();
    ASSERT_EQ(users->DBCreate(), 0u);
    instances = std::make_unique<CAlertUsrInstServDB>();
    ASSERT_EQ(instances->DBCreate(), 0u);
    smtp = std::make_unique<CAlertUSR_SMTPDB>();
    ASSERT_EQ(smtp->DBCreate(), 0u);
  }
  void TearDown() override {
    smtp.reset();
    instances.reset();
    users.reset();
    responses.reset();
    catalogue.reset();
    IsolatedTest::TearDown();
  }

  // Gives the user the service with an SMTP address.
  void giveService(const _GUID &user, const _GUID &service, const char *address) {
    ALRTUSR_SMTPSERVICEREC a = smtpAddress(user, address);
    _GUID u = user, s = service;
    ASSERT_EQ(users->QALRTUsrAddService(&u, &s, &a), 0u) << address;
  }
  int instancesOfUser(const _GUID &user) {
    return countByKey(*instances, CAlertUsrInstServDB::kUserKey, user, &ALRTUSRINSTSERV::UserOid);
  }
  int instancesOfService(const _GUID &service) {
    return countByKey(*instances, CAlertUsrInstServDB::kServiceKey, service,
                      &ALRTUSRINSTSERV::Service_KEPOID);
  }
  int addressesOf(const _GUID &user) {
    return countByKey(*smtp, CAlertUSR_SMTPDB::kUserKey, user, &ALRTUSR_SMTPSERVICEREC::USR_OID);
  }
  int responsesOfUser(const _GUID &user) {
    return countByKey(*responses, CAlertRespDB::kUserKey, user, &ALERTRESPREC::UserOID);
  }
  int responsesThrough(const _GUID &service) {
    return countByKey(*responses, CAlertRespDB::kServiceKey, service, &ALERTRESPREC::ServiceOID);
  }

  std::unique_ptr<CAlertNtfyServDB> catalogue;
  std::unique_ptr<CAlertRespDB> responses;
  std::unique_ptr<CAlertUsrDB> users;
  std::unique_ptr<CAlertUsrInstServDB> instances;
  std::unique_ptr<CAlertUSR_SMTPDB> smtp;
};

}  // namespace alertdb_test
