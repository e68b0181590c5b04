// "ALRT_Server_Config": the alert servers. A server is the hub of its SNMP
// trap sources, auto-ping targets, installed notification services and of
// the agents that report to it; deleting a server deletes its installed
// services with their dependents. The numbers of a server record are the
// caller's and are stored unchanged.
#pragma once

#include <cstdint>

#include "config/agent_relation_tables.h"
#include "config/installed_service_table.h"
#include "config/server_sub_tables.h"
#include "framework/alert_db_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRT_SRV_CFGREC {
  _GUID KEPOID;
  char MachineName[64];  // a unique key: one record per server computer
  std::uint32_t status;
  std::uint32_t Primary;
  std::uint32_t Autoload;
  std::uint32_t snmpTrpMon;
  std::uint32_t ServCon;
  std::uint32_t Audoi;
  std::uint32_t FlashCon;
  char Addr[29];
  std::uint32_t UPTime;
  std::uint32_t EventStat;
};
#pragma pack(pop)
static_assert(sizeof(ALRT_SRV_CFGREC) == 145, "ALRT_SRV_CFGREC is 145 bytes");

extern template class CAlertDBTable<ALRT_SRV_CFGREC>;

class ALERTDB_API CAlert_SRV_CFGDB : public CAlertDBTable<ALRT_SRV_CFGREC> {
 public:
  static constexpr std::uint32_t kIdKey = 1;
  static constexpr std::uint32_t kMachineNameKey = 2;
  // The longest service name an installed-service record holds.
  static constexpr std::uint32_t kMaxServiceName = 32;

  CAlert_SRV_CFGDB();
  // The neighbour tables use their default file whatever `fileName` is.
  explicit CAlert_SRV_CFGDB(const char *fileName);
  // A copy opens its own neighbour tables when it needs them.
  CAlert_SRV_CFGDB(const CAlert_SRV_CFGDB &other);
  CAlert_SRV_CFGDB &operator=(const CAlert_SRV_CFGDB &other);
  ~CAlert_SRV_CFGDB() override;

  // The base open, then the auto-ping table (its result unused) and the SNMP
  // trap table, whose result is the result.
  std::uint32_t DBOpen();
  // Stamps the record with the data directory's domain ID.
  std::uint32_t DBAlertRecAdd(ALRT_SRV_CFGREC *record, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(ALRT_SRV_CFGREC *record);
  // Deletes the server's installed services (with their dependents), then
  // the server; nothing is signalled. When the installed-service table
  // cannot be opened, its status (ALRT_E_NOMEMORY or ALRT_E_OPENFAILED) is
  // returned and nothing is deleted, so that no installed service outlives
  // its server.
  std::uint32_t DBAlertRecDelete(_GUID *serverId);

  // Each adds an entry for a stored server: null arguments give
  // ALRT_E_INVALIDPARAM, a server that is not stored ALRT_E_NOTFOUND, and
  // `newId` is zero unless the entry was added. The auto-ping and SNMP trap
  // entries are the caller's records, which get the server's ID.
  std::uint32_t QALRTServCfgAddAutoPingEntry(_GUID *serverId, ALRTSERV_AUTOPING *entry,
                                             _GUID *newId);
  std::uint32_t QALRTServCfgAddSNMPTrapEntry(_GUID *serverId, ALRTSERV_SNMPTRAP *entry,
                                             _GUID *newId);
  std::uint32_t QALRTServCfgAddAgentEntry(_GUID *serverId, _GUID *agentId, _GUID *newId);
  // A `serviceName` longer than kMaxServiceName is refused with
  // ALRT_E_TOOLARGE rather than stored cut short.
  std::uint32_t QALRTServCfgAddNtfyServiceEntry(_GUID *serverId, _GUID *serviceId,
                                                char const *serviceName, _GUID *newId);

 private:
  std::uint32_t ActivateAutoPing();
  std::uint32_t ActivateTrap();
  std::uint32_t ActivateAgnt();
  std::uint32_t ActivateInstService();
  // Steps shared by the add-entry members, once `entry` holds all but the
  // server's ID.
  template <class Table>
  std::uint32_t AddEntry(_GUID *serverId, typename Table::Record *entry, _GUID *newId,
                         Table *&member, std::uint32_t (CAlert_SRV_CFGDB::*activate)());
  void InitMemberVars();
  void SetTemplatePointers();
  void Bind();
  void ReleaseNeighbours();

  CAlertSERV_AUTOPINGDB *m_pAutoPing;
  CAlertSERV_TRAPListDB *m_pTrap;
  CAlertSERV_AGNT_RELDB *m_pServAgntRel;
  CAlertSERV_INST_NTFY_SERVDB *m_pInstService;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  KEPOID m_DomainId;
  std::uint32_t m_nOMFlags;
};
