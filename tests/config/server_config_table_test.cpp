#include "config/server_config_table.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "config/config_test_support.h"
#include "config/modem_location_table.h"
#include "services/service_test_support.h"
#include "support/data_file_query.h"
#include "support/table_shape_checks.h"

using alertdb_test::addResponse;
using alertdb_test::addService;
using alertdb_test::addUser;
using alertdb_test::ChangeEventWatch;
using alertdb_test::countByKey;
using alertdb_test::holdsTable;
using alertdb_test::kZeroId;
using alertdb_test::makeId;
using alertdb_test::orderedId;
using alertdb_test::response;
using alertdb_test::sameBytes;
using alertdb_test::stored;

namespace {

class ServerConfigTest : public alertdb_test::ConfigTest {};

TEST_F(ServerConfigTest, EntriesAreAddedOnlyForAStoredServerAndWithEveryArgument) {
  _GUID server = makeId(0x10), unknown = makeId(0x11), agent = makeId(0x20), service = makeId(0x30);
  addServer(server, "alpha");
  _GUID id = makeId(0xEE);
  EXPECT_EQ(servers->QALRTServCfgAddAgentEntry(&unknown, &agent, &id), ALRT_E_NOTFOUND);
  EXPECT_TRUE(sameBytes(id, kZeroId));
  auto ping = std::make_unique<ALRTSERV_AUTOPING>();
  auto trap = std::make_unique<ALRTSERV_SNMPTRAP>();
  id = makeId(0xEE);
  EXPECT_EQ(servers->QALRTServCfgAddAutoPingEntry(&unknown, ping.get(), &id), ALRT_E_NOTFOUND);
  EXPECT_TRUE(sameBytes(id, kZeroId));
  EXPECT_EQ(servers->QALRTServCfgAddSNMPTrapEntry(&unknown, trap.get(), &id), ALRT_E_NOTFOUND);
  EXPECT_EQ(servers->QALRTServCfgAddNtfyServiceEntry(&unknown, &service, "mail", &id),
            ALRT_E_NOTFOUND);

  EXPECT_EQ(servers->QALRTServCfgAddAgentEntry(nullptr, &agent, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddAgentEntry(&server, nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddAgentEntry(&server, &agent, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddAutoPingEntry(&server, nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddSNMPTrapEntry(&server, nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddNtfyServiceEntry(&server, &service, nullptr, &id),
            ALRT_E_INVALIDPARAM);
  EXPECT_EQ(servers->QALRTServCfgAddNtfyServiceEntry(&server, nullptr, "mail", &id),
            ALRT_E_INVALIDPARAM);
  // A name too long for its field is refused, not cut.
  const std::string tooLong(CAlert_SRV_CFGDB::kMaxServiceName + 1, 'n');
  id = makeId(0xEE);
  EXPECT_EQ(servers->QALRTServCfgAddNtfyServiceEntry(&server, &service, tooLong.c_str(), &id),
            ALRT_E_TOOLARGE);
  EXPECT_TRUE(sameBytes(id, kZeroId));

  CAlertSERV_AGNT_RELDB relations;
  ASSERT_EQ(OpenOrCreate(relations), 0u);
  EXPECT_EQ(alertdb_test::rowCount(relations), 0);
  EXPECT_EQ(installedOn(unknown), 0);
  EXPECT_EQ(installedOn(server), 0);
}

TEST_F(ServerConfigTest, EachEntryNamesItsServerAndLandsInItsTable) {
  _GUID server = makeId(0x10), agent = makeId(0x20), service = makeId(0x30);
  addServer(server, "alpha");
  ChangeEventWatch watch;

  auto ping = std::make_unique<ALRTSERV_AUTOPING>();
  alertdb_test::fillRandom(*ping, 1);
  ping->KEPOID = {};
  _GUID pingId{};
  watch.reset();
  ASSERT_EQ(servers->QALRTServCfgAddAutoPingEntry(&server, ping.get(), &pingId), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_TRUE(sameBytes(ping->ServerOID, server)) << "the caller's entry gets the server";
  EXPECT_TRUE(sameBytes(ping->KEPOID, pingId));

  auto trap = std::make_unique<ALRTSERV_SNMPTRAP>();
  alertdb_test::fillRandom(*trap, 2);
  _GUID trapId{};
  ASSERT_EQ(servers->QALRTServCfgAddSNMPTrapEntry(&server, trap.get(), &trapId), 0u);
  EXPECT_TRUE(sameBytes(trap->ServerOID, server));

  _GUID relationId{};
  ASSERT_EQ(servers->QALRTServCfgAddAgentEntry(&server, &agent, &relationId), 0u);
  const std::string longest(CAlert_SRV_CFGDB::kMaxServiceName, 'n');
  _GUID installedId{};
  ASSERT_EQ(
      servers->QALRTServCfgAddNtfyServiceEntry(&server, &service, longest.c_str(), &installedId),
      0u);

  EXPECT_TRUE(alertdb_test::readsBackFresh<CAlertSERV_AUTOPINGDB>(pingId, *ping));
  EXPECT_TRUE(alertdb_test::readsBackFresh<CAlertSERV_TRAPListDB>(trapId, *trap));

  // Only the server's side of the agent relation is written.
  CAlertSERV_AGNT_RELDB serverSide;
  ASSERT_EQ(serverSide.DBOpen(), 0u);
  ALRTSERV_AGNT_RELREC relation{};
  ASSERT_EQ(serverSide.DBAlertRecRetrieve(&relationId, &relation), 0u);
  EXPECT_TRUE(sameBytes(relation.AgentOID, agent));
  EXPECT_TRUE(sameBytes(relation.ServerOID, server));
  CAlertAGNT_SERV_RELDB agentSide;
  EXPECT_EQ(OpenOrCreate(agentSide), 0u);
  EXPECT_EQ(alertdb_test::rowCount(agentSide), 0);

  ALRTSERV_INST_NTFY_SERVREC inst{};
  ASSERT_EQ(installed->DBAlertRecRetrieve(&installedId, &inst), 0u);
  EXPECT_TRUE(sameBytes(inst.ServiceOID, service));
  EXPECT_TRUE(sameBytes(inst.ServerOID, server));
  EXPECT_EQ(std::string(inst.ServiceName), longest);
  EXPECT_TRUE(sameBytes(inst.ServiceSpecOID, kZeroId));
  EXPECT_EQ(std::uint32_t{inst.BackupServer}, 0u);
}

TEST_F(ServerConfigTest, AFailedAddDropsTheNeighbourAndTheNextCallOpensItAfresh) {
  _GUID server = makeId(0x10);
  addServer(server, "alpha");
  ALRTSERV_AUTOPING ping{};
  std::strcpy(ping.Name, "gateway");
  _GUID first{}, second = makeId(0xEE), third{};
  ASSERT_EQ(servers->QALRTServCfgAddAutoPingEntry(&server, &ping, &first), 0u);
  // "Name" is a unique key; the ID given is kept by the failed add.
  ping.KEPOID = {};
  EXPECT_EQ(servers->QALRTServCfgAddAutoPingEntry(&server, &ping, &second), ALRT_E_ADDFAILED);
  EXPECT_TRUE(sameBytes(second, kZeroId));
  ALRTSERV_AUTOPING other{};
  std::strcpy(other.Name, "printer");
  EXPECT_EQ(servers->QALRTServCfgAddAutoPingEntry(&server, &other, &third), 0u);
  CAlertSERV_AUTOPINGDB pings;
  ASSERT_EQ(pings.DBOpen(), 0u);
  EXPECT_EQ(alertdb_test::rowCount(pings), 2);
}

TEST_F(ServerConfigTest, AServerNamedByAnotherFileKeepsItsNeighboursInTheirOwnFile) {
  CAlert_SRV_CFGDB named("Servers.dat");
  ASSERT_EQ(named.DBCreate(), 0u);
  ALRT_SRV_CFGREC server{};
  std::strcpy(server.MachineName, "elsewhere");
  _GUID serverId{};
  ASSERT_EQ(named.DBAlertRecAdd(&server, &serverId), 0u);
  ALRTSERV_SNMPTRAP trap{};
  _GUID trapId{};
  ASSERT_EQ(named.QALRTServCfgAddSNMPTrapEntry(&serverId, &trap, &trapId), 0u);
  EXPECT_TRUE(holdsTable(dataPath("AlCfgdb.dat"), "SNMPTrapList"));
  EXPECT_FALSE(holdsTable(dataPath("Servers.dat"), "SNMPTrapList"));
  EXPECT_TRUE(stored<ALRT_SRV_CFGREC>(named, serverId));
  EXPECT_FALSE(stored<ALRT_SRV_CFGREC>(*servers, serverId));
  // Opening makes the auto-ping and trap tables; the result is the trap table's.
  CAlert_SRV_CFGDB reopened("Servers.dat");
  EXPECT_EQ(reopened.DBOpen(), 0u);
  EXPECT_TRUE(holdsTable(dataPath("AlCfgdb.dat"), "AutoPingList"));
}

class LoneServerFileTest : public alertdb_test::IsolatedTest {};

TEST_F(LoneServerFileTest, WithoutItsInstalledServiceTableAServerIsNotDeleted) {
  // No "AlCfgdb.dat": the neighbour tables cannot be opened.
  CAlert_SRV_CFGDB named("Servers.dat");
  ASSERT_EQ(named.DBCreate(), 0u);
  ALRT_SRV_CFGREC server{};
  std::strcpy(server.MachineName, "alone");
  _GUID serverId{}, id{};
  ASSERT_EQ(named.DBAlertRecAdd(&server, &serverId), 0u);
  EXPECT_EQ(named.DBAlertRecDelete(&serverId), ALRT_E_OPENFAILED);
  EXPECT_TRUE(stored<ALRT_SRV_CFGREC>(named, serverId));
  ALRTSERV_AUTOPING ping{};
  EXPECT_EQ(named.QALRTServCfgAddAutoPingEntry(&serverId, &ping, &id), ALRT_E_OPENFAILED);
  EXPECT_EQ(named.DBAlertRecDelete(nullptr), ALRT_E_INVALIDPARAM);
  CAlert_SRV_CFGDB reopened("Servers.dat");
  EXPECT_EQ(reopened.DBOpen(), ALRT_E_OPENFAILED) << "the trap table's result";
}

TEST_F(ServerConfigTest, DeletingAServerTakesOnlyItsOwnServicesAmongInterleavedOthers) {
  // Three servers in ID order, each with services installed whose record IDs
  // interleave with the others' in every key order.
  const _GUID before = orderedId(0x40, 1), server = orderedId(0x50, 2), after = orderedId(0x60, 3);
  addServer(before, "before");
  addServer(server, "server");
  addServer(after, "after");
  _GUID user = makeId(0x10), otherUser = makeId(0x11);
  addUser(*users, user);
  addUser(*users, otherUser);
  std::vector<_GUID> services;
  int n = 0;
  for (int s = 0; s < 3; ++s) {
    for (const _GUID &owner : {after, server, before}) {
      std::string name = "s" + std::to_string(n++);
      _GUID service = addService(*catalogue, name.c_str());
      services.push_back(service);
      _GUID id{};
      ALRTSERV_INST_NTFY_SERVREC inst{};
      inst.KEPOID = orderedId(static_cast<unsigned char>(0x90 - n), static_cast<unsigned char>(n));
      inst.ServiceOID = service;
      inst.ServerOID = owner;
      std::strcpy(inst.ServiceName, name.c_str());
      ASSERT_EQ(installed->DBAlertRecAdd(&inst, &id), 0u);
      giveService(user, service, (name + "@example.org").c_str());
      giveService(otherUser, service, (name + ".other@example.org").c_str());
      addResponse(*responses, response("r" + name, user, service));
    }
  }
  // Trap sources, ping targets, agent relations and a modem of the server and
  // of another: not part of the delete, they hang on by their own "ServerOID".
  CAlert_EXTAGT_CFGDB agents;
  ASSERT_EQ(agents.DBCreate(), 0u);
  ALRT_EXTAGT_CFGREC agent{};
  std::strcpy(agent.MachineName, "agent");
  _GUID agentId{}, id{};
  ASSERT_EQ(agents.DBAlertRecAdd(&agent, &agentId), 0u);
  for (_GUID s : {server, before}) {
    for (int i = 0; i < 2; ++i) {
      ALRTSERV_SNMPTRAP trap{};
      ASSERT_EQ(servers->QALRTServCfgAddSNMPTrapEntry(&s, &trap, &id), 0u);
      ALRTSERV_AUTOPING ping{};
      std::snprintf(ping.Name, sizeof ping.Name, "%02x%d", s.Data4[0], i);
      ASSERT_EQ(servers->QALRTServCfgAddAutoPingEntry(&s, &ping, &id), 0u);
    }
    ASSERT_EQ(agents.QALRTAgntCfgAddServiceEntry(&s, &agentId, &id), 0u);
    ASSERT_EQ(servers->QALRTServCfgAddAgentEntry(&s, &agentId, &id), 0u);
  }
  CAlertMODEM_LOCATIONDB locations;
  ASSERT_EQ(OpenOrCreate(locations), 0u);
  ALRTMODEM_LOCATION location{};
  std::strcpy(location.LocationName, "office");
  _GUID locationId{}, modemId{};
  ASSERT_EQ(locations.DBAlertRecAdd(&location, &locationId), 0u);
  CAlertSERV_MODEMDB modems;
  ASSERT_EQ(OpenOrCreate(modems), 0u);
  auto modem = std::make_unique<ALRTSERV_MODEM>();
  modem->ServerOID = server;
  modem->LocationOID = locationId;
  std::strcpy(modem->ModemName, "COM1");
  ASSERT_EQ(modems.DBAlertRecAdd(modem.get(), &modemId), 0u);

  _GUID serverId = server;
  ASSERT_EQ(servers->DBAlertRecDelete(&serverId), 0u);
  EXPECT_FALSE(stored<ALRT_SRV_CFGREC>(*servers, server));
  EXPECT_EQ(installedOn(server), 0);
  for (std::size_t i = 0; i < services.size(); ++i) {
    bool gone = i % 3 == 1;  // the services installed on `server`
    EXPECT_EQ(responsesThrough(services[i]), gone ? 0 : 1) << i;
    EXPECT_EQ(instancesOfService(services[i]), gone ? 0 : 2) << i;
  }
  for (const _GUID &other : {before, after}) {
    EXPECT_TRUE(stored<ALRT_SRV_CFGREC>(*servers, other));
    EXPECT_EQ(installedOn(other), 3);
  }
  CAlertSERV_TRAPListDB traps;
  CAlertSERV_AUTOPINGDB pings;
  CAlertSERV_AGNT_RELDB serverSide;
  CAlertAGNT_SERV_RELDB agentSide;
  ASSERT_EQ(traps.DBOpen(), 0u);
  ASSERT_EQ(pings.DBOpen(), 0u);
  ASSERT_EQ(serverSide.DBOpen(), 0u);
  ASSERT_EQ(agentSide.DBOpen(), 0u);
  EXPECT_EQ(
      countByKey(traps, CAlertSERV_TRAPListDB::kServerKey, server, &ALRTSERV_SNMPTRAP::ServerOID),
      2);
  EXPECT_EQ(
      countByKey(pings, CAlertSERV_AUTOPINGDB::kServerKey, server, &ALRTSERV_AUTOPING::ServerOID),
      2);
  EXPECT_EQ(countByKey(serverSide, CAlertSERV_AGNT_RELDB::kServerKey, server,
                       &ALRTSERV_AGNT_RELREC::ServerOID),
            2);
  EXPECT_EQ(alertdb_test::rowCount(agentSide), 2);
  EXPECT_TRUE(stored<ALRTSERV_MODEM>(modems, modemId));
  EXPECT_TRUE(stored<ALRT_EXTAGT_CFGREC>(agents, agentId));
  EXPECT_NE(servers->DBAlertRecDelete(&serverId), 0u) << "gone already";
}

TEST_F(ServerConfigTest, AServerDeleteSignalsOnlyThroughTheDependentsItRemoves) {
  _GUID server = makeId(0x10), bare = makeId(0x11);
  addServer(server, "alpha");
  addServer(bare, "beta");
  install(server, makeId(0x30), "no dependents");
  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(servers->DBAlertRecDelete(&server), 0u);
  ASSERT_EQ(servers->DBAlertRecDelete(&bare), 0u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(alertdb_test::rowCount(*installed), 0);
}

TEST_F(ServerConfigTest, ServerRecordsKeepEveryFieldAndAddsAndUpdatesAreSignalled) {
  // Deletes signal only through the dependents they remove.
  alertdb_test::expectRecordLifeAndSignals<CAlert_SRV_CFGDB>(
      {.add = true, .update = true, .remove = false}, 3);
  addServer(makeId(0x10), "alpha");
  ALRT_SRV_CFGREC twin{};
  std::strcpy(twin.MachineName, "alpha");
  _GUID twinId{};
  EXPECT_EQ(servers->DBAlertRecAdd(&twin, &twinId), ALRT_E_ADDFAILED) << "machine names are unique";
}

TEST_F(ServerConfigTest, AServerIsStampedWithTheDomainAndACopyOpensItsOwnNeighbours) {
  _GUID server = makeId(0x10), domain{};
  addServer(server, "alpha");
  ASSERT_EQ(platform::KepOMGetDomainID(&domain), 0u);
  std::string hex;
  for (unsigned char b : std::string(reinterpret_cast<const char *>(&domain), 16)) {
    hex += "0123456789abcdef"[b >> 4];
    hex += "0123456789abcdef"[b & 0xF];
  }
  const char *sql = alertdb_test::IsolatedTest::onServerStore()
                        ? "SELECT encode(k15, 'hex') FROM \"ALRT_Server_Config\""
                        : "SELECT lower(hex(k15)) FROM \"ALRT_Server_Config\"";
  EXPECT_EQ(alertdb_test::queryDataFile(dataPath("AlCfgdb.dat"), sql),
            std::vector<std::string>{hex})
      << "the Domain_Id field";

  CAlert_SRV_CFGDB copy(*servers);
  ASSERT_EQ(copy.DBOpen(), 0u);
  ALRTSERV_SNMPTRAP trap{};
  _GUID trapId{};
  ASSERT_EQ(copy.QALRTServCfgAddSNMPTrapEntry(&server, &trap, &trapId), 0u);
  copy = *servers;
  EXPECT_EQ(copy.QALRTServCfgAddSNMPTrapEntry(&server, &trap, &trapId), ALRT_E_NOTFOUND)
      << "an assigned copy holds no handle until it opens";
  ASSERT_EQ(copy.DBOpen(), 0u);
  trap.KEPOID = {};
  EXPECT_EQ(copy.QALRTServCfgAddSNMPTrapEntry(&server, &trap, &trapId), 0u);
}

}  // namespace
