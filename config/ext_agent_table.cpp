#include "config/ext_agent_table.h"

#include "config/config_query_info.h"
#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"

template class CAlertDBTable<ALRT_EXTAGT_CFGREC>;

namespace {

const platform::FieldTemplate kTemplates[] = {
    AlertField(16, 16, 16, 0x311),  // KEPOID
    AlertField(17, 10, 65, 0x1),    // MachineName
    AlertField(18, 4, 4, 0x7),      // status
    AlertField(19, 2, 4, 0x7),      // AgntAutoHide
    AlertField(20, 15, 29, 0x1),    // Addr
    AlertField(21, 10, 4, 0x7),     // UPTime
    AlertField(22, 4, 4, 0x7),      // EventStat
    AlertField(23, 0, 12, 0x30D),   // Replication
};
const char *const kFieldNames[] = {"KEPOID", "MachineName", "status",    "AgntAutoHide",
                                   "Addr",   "UPTime",      "EventStat", "Replication"};
constexpr std::uint32_t kRecordFields = 7;

const AlertTableDefinition kDefinition = {
    "ALRT_ExtAgent_Config",      kTemplates,     8,   kConfigQueryInfo,
    kConfigQueryInfoCount,       kFieldNames,    640, 641,
    CAlert_EXTAGT_CFGDB::kIdKey, kConfigDataFile};

}  // namespace

CAlert_EXTAGT_CFGDB::CAlert_EXTAGT_CFGDB() : CAlert_EXTAGT_CFGDB(nullptr) {}

CAlert_EXTAGT_CFGDB::CAlert_EXTAGT_CFGDB(const char *fileName)
    : m_pAgntServRel(nullptr),
      m_pServAgntRel(nullptr),
      m_nQueryInfoBytes(sizeof kConfigQueryInfo),
      m_nTemplateBytes(sizeof kTemplates) {
  ApplyDefinition(kDefinition, fileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

CAlert_EXTAGT_CFGDB::CAlert_EXTAGT_CFGDB(const CAlert_EXTAGT_CFGDB &other)
    : CAlertDBTable(other),
      m_pAgntServRel(nullptr),
      m_pServAgntRel(nullptr),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes) {
  Bind();
}

CAlert_EXTAGT_CFGDB &CAlert_EXTAGT_CFGDB::operator=(const CAlert_EXTAGT_CFGDB &other) {
  if (this != &other) {
    ReleaseNeighbours();
    CAlertDBTable::operator=(other);
  }
  return *this;
}

CAlert_EXTAGT_CFGDB::~CAlert_EXTAGT_CFGDB() { ReleaseNeighbours(); }

void CAlert_EXTAGT_CFGDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
}

void CAlert_EXTAGT_CFGDB::ReleaseNeighbours() {
  ReleaseNeighbour(m_pAgntServRel);
  ReleaseNeighbour(m_pServAgntRel);
}

std::uint32_t CAlert_EXTAGT_CFGDB::ActivateServ() { return ActivateNeighbour(m_pAgntServRel); }

std::uint32_t CAlert_EXTAGT_CFGDB::ActivateServAgntRel() {
  return ActivateNeighbour(m_pServAgntRel);
}

std::uint32_t CAlert_EXTAGT_CFGDB::DBOpen() {
  std::uint32_t status = CAlertDBTable::DBOpen();
  return status != 0 ? status : ActivateServ();
}

std::uint32_t CAlert_EXTAGT_CFGDB::DBAlertRecAdd(ALRT_EXTAGT_CFGREC *record, _GUID *newId) {
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(record, newId));
}

std::uint32_t CAlert_EXTAGT_CFGDB::DBAlertRecUpdate(ALRT_EXTAGT_CFGREC *record) {
  return UpdateAndSignal(record);
}

std::uint32_t CAlert_EXTAGT_CFGDB::DBAlertRecDelete(_GUID *id) {
  return CAlertDBTable::DBAlertRecDelete(id);
}

std::uint32_t CAlert_EXTAGT_CFGDB::QALRTAgntCfgAddServiceEntry(_GUID *serverId, _GUID *agentId,
                                                               _GUID *newId) {
  if (!serverId || !agentId || !newId) return ALRT_E_INVALIDPARAM;
  *newId = {};
  ALRT_EXTAGT_CFGREC agent{};
  if (DBAlertRecRetrieve(agentId, &agent) != 0) return ALRT_E_NOTFOUND;
  std::uint32_t status = ActivateServ();
  if (status == 0) status = ActivateServAgntRel();
  if (status == 0) {
    ALRTAGNT_SERV_RELREC agentToServer{};
    agentToServer.AgentOID = *agentId;
    agentToServer.ServerOID = *serverId;
    status = m_pAgntServRel->DBAlertRecAdd(&agentToServer, newId);
  }
  if (status == 0) {
    ALRTSERV_AGNT_RELREC serverToAgent{};
    serverToAgent.AgentOID = *agentId;
    serverToAgent.ServerOID = *serverId;
    status = m_pServAgntRel->DBAlertRecAdd(&serverToAgent, newId);
  }
  // Opened afresh by the next call.
  if (status != 0) ReleaseNeighbours();
  return status;
}
