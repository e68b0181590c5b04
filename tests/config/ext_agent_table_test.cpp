#include "config/ext_agent_table.h"

#include <cstring>
#include <memory>

#include "config/config_test_support.h"
#include "services/service_test_support.h"
#include "support/created_table_test.h"

using alertdb_test::kZeroId;
using alertdb_test::makeId;
using alertdb_test::rowCount;
using alertdb_test::sameBytes;
using alertdb_test::stored;

namespace {

class ExtAgentTest : public alertdb_test::CreatedTableTest<CAlert_EXTAGT_CFGDB> {
 protected:
  void SetUp() override {
    CreatedTableTest::SetUp();
    ALRT_EXTAGT_CFGREC agent{};
    std::strcpy(agent.MachineName, "agent-1");
    ASSERT_EQ(table->DBAlertRecAdd(&agent, &agentId), 0u);
  }
  int relations() {
    CAlertAGNT_SERV_RELDB agentSide;
    CAlertSERV_AGNT_RELDB serverSide;
    EXPECT_EQ(OpenOrCreate(agentSide), 0u);
    EXPECT_EQ(OpenOrCreate(serverSide), 0u);
    int n = rowCount(agentSide);
    EXPECT_EQ(rowCount(serverSide), n) << "both sides hold each relation";
    return n;
  }

  _GUID agentId{};
};

TEST_F(ExtAgentTest, ARelationIsStoredOnBothSidesUnderTwoIds) {
  _GUID server = makeId(0x10), id{};
  ASSERT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, &agentId, &id), 0u);
  CAlertAGNT_SERV_RELDB agentSide;
  CAlertSERV_AGNT_RELDB serverSide;
  ASSERT_EQ(agentSide.DBOpen(), 0u);
  ASSERT_EQ(serverSide.DBOpen(), 0u);
  ALRTSERV_AGNT_RELREC serverRecord{};
  ASSERT_EQ(serverSide.DBAlertRecRetrieve(&id, &serverRecord), 0u) << "newId is the second's";
  EXPECT_TRUE(sameBytes(serverRecord.AgentOID, agentId));
  EXPECT_TRUE(sameBytes(serverRecord.ServerOID, server));
  ALRTAGNT_SERV_RELREC agentRecord{};
  ASSERT_EQ(
      alertdb_test::findBy(agentSide, CAlertAGNT_SERV_RELDB::kAgentKey, agentId, &agentRecord), 0u);
  EXPECT_TRUE(sameBytes(agentRecord.ServerOID, server));
  EXPECT_FALSE(sameBytes(agentRecord.KEPOID, serverRecord.KEPOID));

  // No duplicate check; the server is not looked up.
  ASSERT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, &agentId, &id), 0u);
  EXPECT_EQ(relations(), 2);
}

TEST_F(ExtAgentTest, AnUnknownAgentOrAMissingArgumentWritesNothing) {
  _GUID server = makeId(0x10), unknown = makeId(0x99), id = makeId(0xEE);
  EXPECT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, &unknown, &id), ALRT_E_NOTFOUND);
  EXPECT_TRUE(sameBytes(id, kZeroId));
  EXPECT_EQ(table->QALRTAgntCfgAddServiceEntry(nullptr, &agentId, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, &agentId, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(relations(), 0);
}

TEST_F(ExtAgentTest, DeletingAnAgentLeavesItsRelationsAndSignalsNothing) {
  _GUID server = makeId(0x10), id{};
  ASSERT_EQ(table->QALRTAgntCfgAddServiceEntry(&server, &agentId, &id), 0u);
  alertdb_test::ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(table->DBAlertRecDelete(&agentId), 0u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_FALSE(stored<ALRT_EXTAGT_CFGREC>(*table, agentId));
  EXPECT_EQ(relations(), 1);
  EXPECT_NE(table->DBAlertRecDelete(&agentId), 0u);
}

TEST_F(ExtAgentTest, OpeningMakesTheAgentSideTableAndACopyStandsAlone) {
  CAlert_EXTAGT_CFGDB opened;
  ASSERT_EQ(opened.DBOpen(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("AlCfgdb.dat"), "AGNT_SERV_Relation_"));
  EXPECT_FALSE(alertdb_test::holdsTable(dataPath("AlCfgdb.dat"), "SERV_AGNT_REL_Service"));
  CAlert_EXTAGT_CFGDB copy(opened);
  ASSERT_EQ(copy.DBOpen(), 0u);
  _GUID server = makeId(0x10), id{};
  ASSERT_EQ(copy.QALRTAgntCfgAddServiceEntry(&server, &agentId, &id), 0u);
  copy = opened;
  ALRT_EXTAGT_CFGREC read{};
  ASSERT_EQ(copy.DBOpen(), 0u);
  EXPECT_EQ(copy.DBAlertRecRetrieve(&agentId, &read), 0u);
  EXPECT_STREQ(read.MachineName, "agent-1");
}

}  // namespace
