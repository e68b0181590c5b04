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

class ConfigTest : public RecipientTablesTest {
 protected:
  void SetUp() override {
    RecipientTablesTest::SetUp();
    servers = std::make_unique<CAlert_SRV_CFGDB>();
    ASSERT_EQ(servers->DBCreate(), 0u);
    installed = std::make_unique<CAlertSERV_INST_NTFY_SERVDB>();
    ASSERT_EQ(installed->DBCreate(), 0u);
  }
  void TearDown() override {
    installed.reset();
    servers.reset();
    RecipientTablesTest::TearDown();
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
  int installedOn(const _GUID &server) {
    return countByKey(*installed, CAlertSERV_INST_NTFY_SERVDB::kServerKey, server,
                      &ALRTSERV_INST_NTFY_SERVREC::ServerOID);
  }

  std::unique_ptr<CAlert_SRV_CFGDB> servers;
  std::unique_ptr<CAlertSERV_INST_NTFY_SERVDB> installed;
};

}  // namespace alertdb_test
