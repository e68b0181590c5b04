// "ALRT_ExtAgent_Config": the extension agents that report events to alert
// servers. An agent is related to a server in both relation tables at once.
// The numbers of an agent record are the caller's and are stored unchanged.
#pragma once

#include <cstdint>

#include "config/agent_relation_tables.h"
#include "framework/alert_db_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRT_EXTAGT_CFGREC {
  _GUID KEPOID;
  char MachineName[65];  // a unique key: one record per agent computer
  std::uint32_t status;
  std::uint32_t AgntAutoHide;
  char Addr[29];
  std::uint32_t UPTime;
  std::uint32_t EventStat;
};
#pragma pack(pop)
static_assert(sizeof(ALRT_EXTAGT_CFGREC) == 126, "ALRT_EXTAGT_CFGREC is 126 bytes");

extern template class CAlertDBTable<ALRT_EXTAGT_CFGREC>;

class ALERTDB_API CAlert_EXTAGT_CFGDB : public CAlertDBTable<ALRT_EXTAGT_CFGREC> {
 public:
  static constexpr std::uint32_t kIdKey = 16;
  static constexpr std::uint32_t kMachineNameKey = 17;

  CAlert_EXTAGT_CFGDB();
  explicit CAlert_EXTAGT_CFGDB(const char *fileName);
  // A copy opens its own relation tables when it needs them.
  CAlert_EXTAGT_CFGDB(const CAlert_EXTAGT_CFGDB &other);
  CAlert_EXTAGT_CFGDB &operator=(const CAlert_EXTAGT_CFGDB &other);
  ~CAlert_EXTAGT_CFGDB() override;

  // The base open, then the agent-to-server table is opened.
  std::uint32_t DBOpen();
  std::uint32_t DBAlertRecAdd(ALRT_EXTAGT_CFGREC *record, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(ALRT_EXTAGT_CFGREC *record);
  // The agent's relation records stay; nothing is signalled.
  std::uint32_t DBAlertRecDelete(_GUID *id);

  // Relates a stored agent to a server (not looked up) in both relation
  // tables; `newId` gets the server-to-agent record's ID. When the second
  // add fails, `newId` is zero and the first record stays.
  std::uint32_t QALRTAgntCfgAddServiceEntry(_GUID *serverId, _GUID *agentId, _GUID *newId);

 private:
  std::uint32_t ActivateServ();
  std::uint32_t ActivateServAgntRel();
  void Bind();
  void ReleaseNeighbours();

  CAlertAGNT_SERV_RELDB *m_pAgntServRel;
  CAlertSERV_AGNT_RELDB *m_pServAgntRel;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
};
