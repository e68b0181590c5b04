#include "config/server_config_table.h"

#include <cstring>

#include "config/config_query_info.h"
#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "platform/object_manager.h"

template class CAlertDBTable<ALRT_SRV_CFGREC>;

namespace {

const platform::FieldTemplate kTemplates[] = {
    AlertField(1, 16, 16, 0x311),  // KEPOID
    AlertField(2, 10, 64, 0x1),    // MachineName
    AlertField(3, 4, 4, 0x7),      // status
    AlertField(6, 2, 4, 0x7),      // Primary
    AlertField(4, 2, 4, 0x7),      // Autoload
    AlertField(5, 2, 4, 0x7),      // snmpTrpMon
    AlertField(8, 2, 4, 0x7),      // ServCon
    AlertField(9, 2, 4, 0x7),      // Audoi
    AlertField(7, 2, 4, 0x7),      // FlashCon
    AlertField(10, 15, 29, 0x1),   // Addr
    AlertField(12, 10, 4, 0x7),    // UPTime
    AlertField(13, 4, 4, 0x7),     // EventStat
    AlertField(14, 0, 12, 0x30D),  // Replication
    AlertField(15, 16, 16, 0x11),  // Domain_Id
    AlertField(0, 5, 4, 0x7),      // OMFlags
};
const char *const kFieldNames[] = {"KEPOID",      "MachineName", "status",  "Primary",
                                   "Autoload",    "snmpTrpMon",  "ServCon", "Audoi",
                                   "FlashCon",    "Addr",        "UPTime",  "EventStat",
                                   "Replication", "Domain_Id",   "OMFlags"};
constexpr std::uint32_t kRecordFields = 12;

const AlertTableDefinition kDefinition = {
    "ALRT_Server_Config", kTemplates, 15,  kConfigQueryInfo,         kConfigQueryInfoCount,
    kFieldNames,          610,        611, CAlert_SRV_CFGDB::kIdKey, kConfigDataFile};

}  // namespace

CAlert_SRV_CFGDB::CAlert_SRV_CFGDB() : CAlert_SRV_CFGDB(nullptr) {}

CAlert_SRV_CFGDB::CAlert_SRV_CFGDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kConfigQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CAlert_SRV_CFGDB::CAlert_SRV_CFGDB(const CAlert_SRV_CFGDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  Bind();
}

CAlert_SRV_CFGDB &CAlert_SRV_CFGDB::operator=(const CAlert_SRV_CFGDB &other) {
  if (this != &other) {
    ReleaseNeighbours();
    CAlertDBTable::operator=(other);
  }
  return *this;
}

CAlert_SRV_CFGDB::~CAlert_SRV_CFGDB() { ReleaseNeighbours(); }

void CAlert_SRV_CFGDB::InitMemberVars() {
  m_pAutoPing = nullptr;
  m_pTrap = nullptr;
  m_pServAgntRel = nullptr;
  m_pInstService = nullptr;
  m_nQueryInfoBytes = 0;
  m_nTemplateBytes = 0;
  m_DomainId = {};
  m_nOMFlags = 0;
}

void CAlert_SRV_CFGDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CAlert_SRV_CFGDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
  BindField(13, &m_DomainId);
  BindField(14, &m_nOMFlags);
}

void CAlert_SRV_CFGDB::ReleaseNeighbours() {
  ReleaseNeighbour(m_pAutoPing);
  ReleaseNeighbour(m_pTrap);
  ReleaseNeighbour(m_pServAgntRel);
  ReleaseNeighbour(m_pInstService);
}

std::uint32_t CAlert_SRV_CFGDB::ActivateAutoPing() { return ActivateNeighbour(m_pAutoPing); }
std::uint32_t CAlert_SRV_CFGDB::ActivateTrap() { return ActivateNeighbour(m_pTrap); }
std::uint32_t CAlert_SRV_CFGDB::ActivateAgnt() { return ActivateNeighbour(m_pServAgntRel); }
std::uint32_t CAlert_SRV_CFGDB::ActivateInstService() { return ActivateNeighbour(m_pInstService); }

std::uint32_t CAlert_SRV_CFGDB::DBOpen() {
  std::uint32_t status = CAlertDBTable::DBOpen();
  if (status != 0) return status;
  ActivateAutoPing();
  return ActivateTrap();
}

std::uint32_t CAlert_SRV_CFGDB::DBAlertRecAdd(ALRT_SRV_CFGREC *record, _GUID *newId) {
  platform::KepOMGetDomainID(&m_DomainId);
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(record, newId));
}

std::uint32_t CAlert_SRV_CFGDB::DBAlertRecUpdate(ALRT_SRV_CFGREC *record) {
  return UpdateAndSignal(record);
}

std::uint32_t CAlert_SRV_CFGDB::DBAlertRecDelete(_GUID *serverId) {
  if (!serverId) return ALRT_E_INVALIDPARAM;
  std::uint32_t status = ActivateInstService();
  if (status != 0) return status;
  // Installed records are in server order; the walk stops where the server
  // changes.
  ALRTSERV_INST_NTFY_SERVREC installed{};
  for (std::uint32_t r = m_pInstService->DBAlertRecFindFirst(
           CAlertSERV_INST_NTFY_SERVDB::kServerKey, sizeof(_GUID),
           reinterpret_cast<unsigned char *>(serverId), &installed);
       r == 0 && std::memcmp(&installed.ServerOID, serverId, sizeof(_GUID)) == 0;
       r = m_pInstService->DBAlertRecFindNext(&installed)) {
    m_pInstService->DBAlertRecDelete(&installed.KEPOID);
  }
  return CAlertDBTable::DBAlertRecDelete(serverId);
}

template <class Table>
std::uint32_t CAlert_SRV_CFGDB::AddEntry(_GUID *serverId, typename Table::Record *entry,
                                         _GUID *newId, Table *&member,
                                         std::uint32_t (CAlert_SRV_CFGDB::*activate)()) {
  ALRT_SRV_CFGREC server{};
  if (DBAlertRecRetrieve(serverId, &server) != 0) return ALRT_E_NOTFOUND;
  std::uint32_t status = (this->*activate)();
  if (status != 0) return status;
  entry->ServerOID = *serverId;
  status = member->DBAlertRecAdd(entry, newId);
  // Opened afresh by the next call.
  if (status != 0) ReleaseNeighbour(member);
  return status;
}

std::uint32_t CAlert_SRV_CFGDB::QALRTServCfgAddAutoPingEntry(_GUID *serverId,
                                                             ALRTSERV_AUTOPING *entry,
                                                             _GUID *newId) {
  if (!serverId || !entry || !newId) return ALRT_E_INVALIDPARAM;
  *newId = {};
  return AddEntry(serverId, entry, newId, m_pAutoPing, &CAlert_SRV_CFGDB::ActivateAutoPing);
}

std::uint32_t CAlert_SRV_CFGDB::QALRTServCfgAddSNMPTrapEntry(_GUID *serverId,
                                                             ALRTSERV_SNMPTRAP *entry,
                                                             _GUID *newId) {
  if (!serverId || !entry || !newId) return ALRT_E_INVALIDPARAM;
  *newId = {};
  return AddEntry(serverId, entry, newId, m_pTrap, &CAlert_SRV_CFGDB::ActivateTrap);
}

std::uint32_t CAlert_SRV_CFGDB::QALRTServCfgAddAgentEntry(_GUID *serverId, _GUID *agentId,
                                                          _GUID *newId) {
  if (!serverId || !agentId || !newId) return ALRT_E_INVALIDPARAM;
  *newId = {};
  ALRTSERV_AGNT_RELREC relation{};
  relation.AgentOID = *agentId;
  return AddEntry(serverId, &relation, newId, m_pServAgntRel, &CAlert_SRV_CFGDB::ActivateAgnt);
}

std::uint32_t CAlert_SRV_CFGDB::QALRTServCfgAddNtfyServiceEntry(_GUID *serverId, _GUID *serviceId,
                                                                char const *serviceName,
                                                                _GUID *newId) {
  if (!serverId || !serviceId || !serviceName || !newId) return ALRT_E_INVALIDPARAM;
  *newId = {};
  ALRTSERV_INST_NTFY_SERVREC installed{};
  if (strnlen(serviceName, sizeof installed.ServiceName) > kMaxServiceName) {
    return ALRT_E_TOOLARGE;
  }
  installed.ServiceOID = *serviceId;
  std::memcpy(installed.ServiceName, serviceName, std::strlen(serviceName));
  return AddEntry(serverId, &installed, newId, m_pInstService,
                  &CAlert_SRV_CFGDB::ActivateInstService);
}
