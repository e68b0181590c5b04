#include "services/notify_services_table.h"

#include <cstring>

#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "services/service_query_info.h"

template class CAlertDBTable<ALRTNTFYSERV>;

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(1, 16, 16, 0x311), AlertField(2, 16, 16, 0x311), AlertField(3, 16, 33, 0x1),
    AlertField(4, 10, 65, 0x1),   AlertField(9, 3, 4, 0x7),     AlertField(8, 5, 4, 0x7),
    AlertField(0, 3, 4, 0x7),     AlertField(0, 10, 2049, 0x1), AlertField(0, 10, 65, 0x1),
    AlertField(0, 5, 4, 0x7),     AlertField(0, 5, 4, 0x307),   AlertField(0, 16, 16, 0x311),
    AlertField(10, 0, 12, 0x30D), AlertField(11, 16, 16, 0x11), AlertField(0, 5, 4, 0x307),
};
constexpr std::uint32_t kFieldCount = 15;
constexpr std::uint32_t kRecordFields = 12;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {"KEPOID",       "ServiceSpecific_KEPOID",
                                                  "Service_Name", "Product",
                                                  "Enabled",      "Status",
                                                  "Remote",       "Comment",
                                                  "Location",     "NeverInstalled",
                                                  "ServiceType",  "BackupService",
                                                  "Replication",  "Domain_Id",
                                                  "OMFlags"};

const AlertTableDefinition kDefinition = {
    "Notify_Services", kTemplates, kFieldCount, kServiceQueryInfo,        kServiceQueryInfoCount,
    kFieldNames,       150,        151,         CAlertNtfyServDB::kIdKey, kServiceDataFile};

constexpr std::uint32_t kProgramLaunchType = 14;
constexpr std::uint32_t kScriptType = 15;
constexpr std::uint32_t kHighestType = 16;

}  // namespace

CAlertNtfyServDB::CAlertNtfyServDB() : CAlertNtfyServDB(nullptr) {}

CAlertNtfyServDB::CAlertNtfyServDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kServiceQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CAlertNtfyServDB::CAlertNtfyServDB(const CAlertNtfyServDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  m_DomainId = other.m_DomainId;
  m_nOMFlags = other.m_nOMFlags;
  BindRecordFields(kRecordFields);
  BindReplication(12);
  BindField(13, &m_DomainId);
  BindField(14, &m_nOMFlags);
}

CAlertNtfyServDB &CAlertNtfyServDB::operator=(const CAlertNtfyServDB &other) {
  if (this != &other) {
    ReleaseSpecificTables();
    CAlertDBTable::operator=(other);
    m_DomainId = other.m_DomainId;
    m_nOMFlags = other.m_nOMFlags;
  }
  return *this;
}

CAlertNtfyServDB::~CAlertNtfyServDB() { ReleaseSpecificTables(); }

void CAlertNtfyServDB::InitMemberVars() {
  m_pMHSServ = nullptr;
  m_pSNMPServ = nullptr;
  m_pMCIServ = nullptr;
  m_pCOMPUSServ = nullptr;
  m_pSMTPServ = nullptr;
  m_pMAPIServ = nullptr;
  m_pCCMAILServ = nullptr;
  m_pWAVEServ = nullptr;
  m_pTTSServ = nullptr;
  m_pAPAGEServ = nullptr;
  m_pPHONEServ = nullptr;
  m_pNPAGEServ = nullptr;
  m_pGENPORTServ = nullptr;
  m_pBROADCASTServ = nullptr;
  m_nQueryInfoBytes = 0;
  m_nTemplateBytes = 0;
  m_DomainId = {};
  m_nOMFlags = 0;
}

void CAlertNtfyServDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  BindRecordFields(kRecordFields);
  BindReplication(12);
  BindField(13, &m_DomainId);
  BindField(14, &m_nOMFlags);
}

void CAlertNtfyServDB::ReleaseSpecificTables() {
  ReleaseNeighbour(m_pMHSServ);
  ReleaseNeighbour(m_pSNMPServ);
  ReleaseNeighbour(m_pMCIServ);
  ReleaseNeighbour(m_pCOMPUSServ);
  ReleaseNeighbour(m_pSMTPServ);
  ReleaseNeighbour(m_pMAPIServ);
  ReleaseNeighbour(m_pCCMAILServ);
  ReleaseNeighbour(m_pWAVEServ);
  ReleaseNeighbour(m_pTTSServ);
  ReleaseNeighbour(m_pAPAGEServ);
  ReleaseNeighbour(m_pPHONEServ);
  ReleaseNeighbour(m_pNPAGEServ);
  ReleaseNeighbour(m_pGENPORTServ);
  ReleaseNeighbour(m_pBROADCASTServ);
}

std::uint32_t CAlertNtfyServDB::ActivateSpecificInfo(std::uint32_t serviceType) {
  // Unsigned, so that type 0 wraps above the range as well.
  if (serviceType - 1 > kHighestType - 1) return ALRT_E_BADSERVICETYPE;
  switch (serviceType) {
    case CAlertMHSNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pMHSServ);
    case CAlertSNMPNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pSNMPServ);
    case CAlertMCINtfyServDB::kServiceType:
      return ActivateNeighbour(m_pMCIServ);
    case CAlertCOMPUSNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pCOMPUSServ);
    case CAlertSMTPNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pSMTPServ);
    case CAlertMAPINtfyServDB::kServiceType:
      return ActivateNeighbour(m_pMAPIServ);
    case CAlertCCMAILNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pCCMAILServ);
    case CAlertWAVENtfyServDB::kServiceType:
      return ActivateNeighbour(m_pWAVEServ);
    case CAlertTTSNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pTTSServ);
    case CAlertPHONENtfyServDB::kServiceType:
      return ActivateNeighbour(m_pPHONEServ);
    case CAlertAPAGENtfyServDB::kServiceType:
      return ActivateNeighbour(m_pAPAGEServ);
    case CAlertNPAGENtfyServDB::kServiceType:
      return ActivateNeighbour(m_pNPAGEServ);
    case CAlertGENPORTNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pGENPORTServ);
    case CAlertBROADCASTNtfyServDB::kServiceType:
      return ActivateNeighbour(m_pBROADCASTServ);
    case kProgramLaunchType:
    case kScriptType:
    default:
      return 0;  // these kinds have no specific table
  }
}

// ------------------------------------------------------------ adds

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid) {
  if (!rec) return ALRT_E_INVALIDPARAM;
  std::uint32_t status = ActivateSpecificInfo(rec->ServiceType);
  if (status != 0) return status;
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(rec, oid));
}

template <class Table>
std::uint32_t CAlertNtfyServDB::AddWithSpecific(ALRTNTFYSERV *rec, _GUID *oid,
                                                typename Table::Record *settings,
                                                _GUID *settingsOid, Table *&slot) {
  if (!rec || !oid || !settings || !settingsOid) return ALRT_E_INVALIDPARAM;
  rec->ServiceType = Table::kServiceType;
  std::uint32_t status = ActivateSpecificInfo(Table::kServiceType);
  if (status != 0) return status;
  status = slot->DBAlertRecAdd(settings, settingsOid);
  if (status != 0) return status;
  std::memcpy(&rec->ServiceSpecific_KEPOID, settingsOid, sizeof(_GUID));
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(rec, oid));
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTMHSSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pMHSServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTSNMPSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pSNMPServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTMCISERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pMCIServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTCOMPUSSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pCOMPUSServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTSMTPSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pSMTPServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTMAPISERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pMAPIServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTCCMAILSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pCCMAILServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTWAVESERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pWAVEServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTTTSSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pTTSServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTPHONESERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pPHONEServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTAPAGESERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pAPAGEServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTNPAGESERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pNPAGEServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTGENPORTSERVICEREC *settings, _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pGENPORTServ);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid,
                                              ALRTBROADCASTSERVICEREC *settings,
                                              _GUID *settingsOid) {
  return AddWithSpecific(rec, oid, settings, settingsOid, m_pBROADCASTServ);
}

// ------------------------------------------------------------ update, reads, delete

std::uint32_t CAlertNtfyServDB::DBAlertRecUpdate(ALRTNTFYSERV *rec) {
  if (rec) {
    std::uint32_t status = ActivateSpecificInfo(rec->ServiceType);
    if (status != 0) return status;
  }
  return UpdateAndSignal(rec);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecRetrieve(_GUID *oid, ALRTNTFYSERV *rec) {
  std::uint32_t status = CAlertDBTable::DBAlertRecRetrieve(oid, rec);
  return status != 0 ? status : ActivateSpecificInfo(rec->ServiceType);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecFindFirst(std::uint32_t keyNumber,
                                                    std::uint32_t keyLength,
                                                    unsigned char *keyValue, ALRTNTFYSERV *rec) {
  std::uint32_t status = CAlertDBTable::DBAlertRecFindFirst(keyNumber, keyLength, keyValue, rec);
  return status != 0 ? status : ActivateSpecificInfo(rec->ServiceType);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecFindNext(ALRTNTFYSERV *rec) {
  std::uint32_t status = CAlertDBTable::DBAlertRecFindNext(rec);
  return status != 0 ? status : ActivateSpecificInfo(rec->ServiceType);
}

std::uint32_t CAlertNtfyServDB::DBAlertRecDelete(_GUID *oid) {
  return SignalIfDone(CAlertDBTable::DBAlertRecDelete(oid));
}
