// A data directory with every table the alert configuration reaches, and
// builders for servers and their installed services.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "config/ext_agent_table.h"
#include "config/server_config_table.h"
#include "recipients/recipient_test_support.h"
#include "support/test_environment.h"

namespace alertdb_test {

class ConfigTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    servers = std::make_unique<CAlert_SRV_CFGDB>();
    ASSERT_EQ(servers->DBCreate(), 0u);
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
    CAlertUSR_SMTPDB smtp;
    ASSERT_EQ(smtp.DBCreate(), 0u);
    installed = std::make_unique<CAlertSERV_INST_NTFY_SERVDB>();
    ASSERT_EQ(installed->DBCreate(), 0u);
  }
  void TearDown() override {
    installed.reset();
    instances.reset();
    users.reset();
    responses.reset();
    catalogue.reset();
    servers.reset();
    IsolatedTest::TearDown();
  }

  // A server of that ID and (unique) machine name.
  void addServer(const _GUID &id, const char *name) {
    ALRT_SRV_CFGREC server{};
    server.KEPOID = id;
    std::snprintf(server.MachineName, sizeof server.MachineName, "%s", name);
    _GUID newId{};
    ASSERT_EQ(servers->DBAlertRecAdd(&server, &newId), 0u) << name;
  }
  // Installs the service on the server; the installed record's ID.
  _GUID install(const _GUID &server, const _GUID &service, const char *name) {
    _GUID s = server, v = service, id{};
    EXPECT_EQ(servers->QALRTServCfgAddNtfyServiceEntry(&s, &v, name, &id), 0u) << name;
    return id;
  }
  // Gives the user the service with an SMTP address.
  void giveService(const _GUID &user, const _GUID &service, const char *address) {
    ALRTUSR_SMTPSERVICEREC a = smtpAddress(user, address);
    _GUID u = user, s = service;
    ASSERT_EQ(users->QALRTUsrAddService(&u, &s, &a), 0u) << address;
  }
  int installedOn(const _GUID &server) {
    return countByKey(*installed, CAlertSERV_INST_NTFY_SERVDB::kServerKey, server,
                      &ALRTSERV_INST_NTFY_SERVREC::ServerOID);
  }
  int responsesThrough(const _GUID &service) {
    return countByKey(*responses, CAlertRespDB::kServiceKey, service, &ALERTRESPREC::ServiceOID);
  }
  int instancesOf(const _GUID &service) {
    return countByKey(*instances, CAlertUsrInstServDB::kServiceKey, service,
                      &ALRTUSRINSTSERV::Service_KEPOID);
  }

  std::unique_ptr<CAlert_SRV_CFGDB> servers;
  std::unique_ptr<CAlertNtfyServDB> catalogue;
  std::unique_ptr<CAlertRespDB> responses;
  std::unique_ptr<CAlertUsrDB> users;
  std::unique_ptr<CAlertUsrInstServDB> instances;
  std::unique_ptr<CAlertSERV_INST_NTFY_SERVDB> installed;
};

}  // namespace alertdb_test
