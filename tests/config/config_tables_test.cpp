#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "config/agent_relation_tables.h"
#include "config/ext_agent_table.h"
#include "config/installed_service_table.h"
#include "config/modem_location_table.h"
#include "config/pager_provider_table.h"
#include "config/server_config_table.h"
#include "config/server_sub_tables.h"
#include "services/service_test_support.h"
#include "support/table_shape_checks.h"
#include "support/test_environment.h"

using alertdb_test::tableInfo;

namespace {

// What each table must be, as the data file's catalog reports it.
struct Expected {
  const char *name, *title, *file;
  std::uint32_t fields, idKey;
};
template <class Table>
constexpr Expected kExpected{};
template <>
constexpr Expected kExpected<CAlertSERV_TRAPListDB>{"SNMPTrapList", "SNMP Trap List", "AlCfgdb.dat",
                                                    13, 32};
template <>
constexpr Expected kExpected<CAlertSERV_AUTOPINGDB>{"AutoPingList", "AUTOPING Trap List",
                                                    "AlCfgdb.dat", 14, 41};
template <>
constexpr Expected kExpected<CAlertSERV_MODEMDB>{"ModemTable", "Modem List", "AlCfgdb.dat", 20, 51};
template <>
constexpr Expected kExpected<CAlertSERV_INST_NTFY_SERVDB>{
    "ServerInstService", "Server Installed Ntfy Services", "AlCfgdb.dat", 7, 65};
template <>
constexpr Expected kExpected<CAlertAGNT_SERV_RELDB>{
    "AGNT_SERV_Relation_", "Agent to Server relation Table", "AlCfgdb.dat", 4, 24};
template <>
constexpr Expected kExpected<CAlertSERV_AGNT_RELDB>{
    "SERV_AGNT_REL_Service", "Server to agent relation Table", "AlCfgdb.dat", 4, 28};
template <>
constexpr Expected kExpected<CAlertMODEM_LOCATIONDB>{"ModemLocation", "Modem Location Table",
                                                     "AlCfgdb.dat", 11, 70};
template <>
constexpr Expected kExpected<CAlertAPAGE_SERVICE_PROVIDERDB>{
    "APageServProvider", "Apage Service Provider", "APgeProv.dat", 12, 73};

template <class Table>
class ConfigTableTest : public alertdb_test::IsolatedTest {
 protected:
  static constexpr Expected want = kExpected<Table>;
};

using ConfigTables =
    ::testing::Types<CAlertSERV_TRAPListDB, CAlertSERV_AUTOPINGDB, CAlertSERV_MODEMDB,
                     CAlertSERV_INST_NTFY_SERVDB, CAlertAGNT_SERV_RELDB, CAlertSERV_AGNT_RELDB,
                     CAlertMODEM_LOCATIONDB, CAlertAPAGE_SERVICE_PROVIDERDB>;
TYPED_TEST_SUITE(ConfigTableTest, ConfigTables);

TYPED_TEST(ConfigTableTest, AddAndUpdateSignalButDeleteDoesNot) {
  alertdb_test::expectRecordLifeAndSignals<TypeParam>(
      {.add = true, .update = true, .remove = false}, 7);
}

TYPED_TEST(ConfigTableTest, AnotherFileNameGetsTheSameTableDescription) {
  constexpr Expected want = TestFixture::want;
  platform::StoreTableInfo own =
      alertdb_test::describedAlikeInAnyFile<TypeParam>(this->dataDir(), want.file);
  EXPECT_EQ(own.title, want.title);
  EXPECT_EQ(std::filesystem::exists(this->dataPath("AlCfgdb.dat")),
            std::string(want.file) == "AlCfgdb.dat");
  EXPECT_EQ(own.idKey, want.idKey);
  ASSERT_EQ(own.fields.size(), want.fields);
  EXPECT_EQ(own.fields.front().description.rfind("Record OID", 0), 0u);
  EXPECT_EQ(own.fields.back().name, "Replication");
  EXPECT_EQ(own.fields.back().flags, 0x30Du);
  // "Replication" has no description of its own.
  for (std::size_t i = 0; i + 1 < own.fields.size(); ++i) {
    EXPECT_FALSE(own.fields[i].description.empty()) << i;
  }
}

class DialingTablesTest : public alertdb_test::IsolatedTest {};

TEST_F(DialingTablesTest, TheTwoByteCountryCodeDoesNotDisturbTheCountryId) {
  CAlertMODEM_LOCATIONDB locations;
  ASSERT_EQ(locations.DBCreate(), 0u);
  ALRTMODEM_LOCATION location{};
  std::strcpy(location.LocationName, "Office");
  location.Tone = 1;
  location.CountryCode = 49;
  location.CountryID = 0x10000;
  _GUID id{};
  ASSERT_EQ(locations.DBAlertRecAdd(&location, &id), 0u);
  ALRTMODEM_LOCATION read{};
  ASSERT_EQ(locations.DBAlertRecRetrieve(&id, &read), 0u);
  // Packed members are read by value.
  EXPECT_EQ(std::uint32_t{read.CountryCode}, 49u);
  EXPECT_EQ(std::uint32_t{read.CountryID}, 0x10000u);
  EXPECT_EQ(std::uint32_t{read.Tone}, 1u);
  platform::StoreTableInfo info = tableInfo(dataPath("AlCfgdb.dat"), "ModemLocation");
  ASSERT_EQ(info.fields.size(), 11u);
  EXPECT_EQ(info.fields[8].name, "CountryCode");
  EXPECT_EQ(info.fields[8].size, 2u);
}

TEST_F(DialingTablesTest, OnlyTheConfigurationFileIsRestoredFromItsBackup) {
  {
    CAlertAPAGE_SERVICE_PROVIDERDB providers;
    ASSERT_EQ(providers.DBCreate(), 0u);
    CAlertMODEM_LOCATIONDB locations;
    ASSERT_EQ(locations.DBCreate(), 0u);
  }
  platform::StoreTableInfo info = tableInfo(dataPath("APgeProv.dat"), "APageServProvider");
  ASSERT_EQ(info.fields.size(), 12u);
  EXPECT_EQ(info.fields[1].name, "Company Name");
  for (const char *stem : {"APgeProv", "AlCfgdb"}) {
    std::filesystem::rename(dataPath(std::string(stem) + ".dat"),
                            dataPath(std::string(stem) + ".BAK"));
  }
  CAlertAPAGE_SERVICE_PROVIDERDB providers;
  EXPECT_EQ(providers.DBOpen(), ALRT_MISSINGFILE);
  EXPECT_FALSE(std::filesystem::exists(dataPath("APgeProv.dat")));
  CAlertMODEM_LOCATIONDB locations;
  EXPECT_EQ(locations.DBOpen(), 0u);
}

}  // namespace

namespace {

// Each table's query-information list as the file's catalog keeps it: the
// entries' bytes, then their key numbers and kinds.
struct QueryInfoList {
  std::string bytes, keys, kinds;
};
std::vector<QueryInfoList> queryInfoLists(const std::string &path) {
  std::vector<QueryInfoList> lists;
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT group_concat(hex(entry), ''), group_concat(key_number),"
                       " group_concat(kind, '') FROM (SELECT * FROM alertdb_query_info"
                       " ORDER BY table_name, position) GROUP BY table_name",
                       -1, &s, nullptr);
    auto text = [&](int column) {
      return std::string(reinterpret_cast<const char *>(sqlite3_column_text(s, column)));
    };
    while (sqlite3_step(s) == SQLITE_ROW) lists.push_back({text(0), text(1), text(2)});
    sqlite3_finalize(s);
  }
  sqlite3_close(db);
  return lists;
}

TEST_F(DialingTablesTest, EveryConfigurationTablePassesTheWholeSharedList) {
  CAlert_SRV_CFGDB servers;
  CAlert_EXTAGT_CFGDB agents;
  CAlertAGNT_SERV_RELDB agentSide;
  CAlertSERV_AGNT_RELDB serverSide;
  CAlertSERV_TRAPListDB traps;
  CAlertSERV_AUTOPINGDB pings;
  CAlertSERV_MODEMDB modems;
  CAlertSERV_INST_NTFY_SERVDB installed;
  CAlertMODEM_LOCATIONDB locations;
  CAlertAPAGE_SERVICE_PROVIDERDB providers;
  for (std::uint32_t status :
       {servers.DBCreate(), agents.DBCreate(), agentSide.DBCreate(), serverSide.DBCreate(),
        traps.DBCreate(), pings.DBCreate(), modems.DBCreate(), installed.DBCreate(),
        locations.DBCreate(), providers.DBCreate()}) {
    ASSERT_EQ(status, 0u);
  }
  std::vector<QueryInfoList> lists = queryInfoLists(dataPath("AlCfgdb.dat"));
  ASSERT_EQ(lists.size(), 9u);
  std::vector<QueryInfoList> own = queryInfoLists(dataPath("APgeProv.dat"));
  ASSERT_EQ(own.size(), 1u);
  lists.push_back(own[0]);
  // Keys 1 to 77 in order but for the installed services' 66, 68, 67; the
  // object-ID keys and the four name keys are of kind 1.
  std::string keys, kinds;
  for (int k = 1; k <= 77; ++k) {
    int key = k == 67 ? 68 : k == 68 ? 67 : k;
    keys += (k > 1 ? "," : "") + std::to_string(key);
    bool unique = false;
    for (int one : {1, 2, 16, 17, 24, 28, 32, 41, 46, 51, 52, 65, 70, 73}) unique |= key == one;
    kinds += unique ? '1' : '2';
  }
  for (const QueryInfoList &list : lists) {
    EXPECT_EQ(list.bytes.size(), 77u * 20 * 2);
    EXPECT_EQ(list.bytes.substr(0, 4), "1400");
    EXPECT_EQ(list.bytes, lists[0].bytes);
    EXPECT_EQ(list.keys, keys);
    EXPECT_EQ(list.kinds, kinds);
  }
}

}  // namespace
