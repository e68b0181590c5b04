#include "recipients/user_instance_table.h"

#include <cstring>

#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "recipients/user_query_info.h"
#include "recipients/user_service_kinds_internal.h"

template class CAlertDBTable<ALRTUSRINSTSERV>;

namespace {

using namespace alertdb_internal;

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(72, 16, 16, 0x311), AlertField(73, 16, 16, 0x311), AlertField(75, 16, 16, 0x311),
    AlertField(74, 16, 16, 0x311), AlertField(76, 24, 33, 0x101), AlertField(0, 16, 4, 0x307),
    AlertField(0, 16, 4, 0x307),   AlertField(78, 0, 12, 0x30D),
};
constexpr std::uint32_t kFieldCount = 8;
constexpr std::uint32_t kRecordFields = 7;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {
    "KEPOID",       "Service_KEPOID", "ServicePerInfo_KEPOID", "UserOid",
    "Service_Name", "Enable",         "ServiceType",           "Replication"};

const AlertTableDefinition kDefinition = {"UsrInst",
                                          kTemplates,
                                          kFieldCount,
                                          kUserQueryInfo,
                                          kUserQueryInfoCount,
                                          kFieldNames,
                                          140,
                                          141,
                                          CAlertUsrInstServDB::kIdKey,
                                          kUserDataFile};

}  // namespace

CAlertUsrInstServDB::CAlertUsrInstServDB() : CAlertUsrInstServDB(nullptr) {}

CAlertUsrInstServDB::CAlertUsrInstServDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kUserQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CAlertUsrInstServDB::CAlertUsrInstServDB(const CAlertUsrInstServDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  Bind();
}

CAlertUsrInstServDB &CAlertUsrInstServDB::operator=(const CAlertUsrInstServDB &other) {
  if (this != &other) {
    ReleaseNeighbours();
    CAlertDBTable::operator=(other);
  }
  return *this;
}

CAlertUsrInstServDB::~CAlertUsrInstServDB() { ReleaseNeighbours(); }

void CAlertUsrInstServDB::InitMemberVars() {
  m_pUsrMHS = nullptr;
  m_pUsrSNMP = nullptr;
  m_pUsrMCI = nullptr;
  m_pUsrCOMPUS = nullptr;
  m_pUsrSMTP = nullptr;
  m_pUsrMAPI = nullptr;
  m_pUsrCCMAIL = nullptr;
  m_pUsrAPAGE = nullptr;
  m_pUsrNPAGE = nullptr;
  m_pResp = nullptr;
}

void CAlertUsrInstServDB::ReleaseNeighbours() {
  ReleaseNeighbour(m_pUsrMHS);
  ReleaseNeighbour(m_pUsrSNMP);
  ReleaseNeighbour(m_pUsrMCI);
  ReleaseNeighbour(m_pUsrCOMPUS);
  ReleaseNeighbour(m_pUsrSMTP);
  ReleaseNeighbour(m_pUsrMAPI);
  ReleaseNeighbour(m_pUsrCCMAIL);
  ReleaseNeighbour(m_pUsrAPAGE);
  ReleaseNeighbour(m_pUsrNPAGE);
  ReleaseNeighbour(m_pResp);
}

void CAlertUsrInstServDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CAlertUsrInstServDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
}

std::uint32_t CAlertUsrInstServDB::DBCreate(const char *) { return DBCreate(); }

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *objectId) {
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(instanceRecord, objectId));
}

template <class Table>
std::uint32_t CAlertUsrInstServDB::AddWithAddress(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                  typename Table::Record *addressRecord,
                                                  _GUID *addressOid, Table *&slot,
                                                  std::uint32_t serviceType) {
  if (!instanceRecord || !instOid || !addressRecord || !addressOid) return ALRT_E_INVALIDPARAM;
  std::uint32_t status = ActivateNeighbour(slot);
  if (status != 0) return status;
  instanceRecord->ServiceType = serviceType;
  status = slot->DBAlertRecAdd(addressRecord, addressOid);
  if (status != 0) return status;
  instanceRecord->ServicePerInfo_KEPOID = *addressOid;
  return CAlertDBTable::DBAlertRecAdd(instanceRecord, instOid);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_MHSSERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrMHS,
                        kUserMhs.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_SNMPSERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrSNMP,
                        kUserSnmp.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_MCISERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrMCI,
                        kUserMci.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_COMPUSERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrCOMPUS,
                        kUserCompus.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_SMTPSERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrSMTP,
                        kUserSmtp.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_MAPISERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrMAPI,
                        kUserMapi.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_CCMAILSERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrCCMAIL,
                        kUserCcmail.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_APAGESERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrAPAGE,
                        kUserApage.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                                                 ALRTUSR_NPAGESERVICEREC *addressRecord,
                                                 _GUID *addressOid) {
  return AddWithAddress(instanceRecord, instOid, addressRecord, addressOid, m_pUsrNPAGE,
                        kUserNpage.serviceType);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecUpdate(ALRTUSRINSTSERV *instanceRecord) {
  return UpdateAndSignal(instanceRecord);
}

std::uint32_t CAlertUsrInstServDB::DBAlertRecDelete(_GUID *objectId) {
  ALRTUSRINSTSERV instance{};
  std::uint32_t status = DBAlertRecRetrieve(objectId, &instance);
  if (status != 0) return status;
  status = SignalIfDone(CAlertDBTable::DBAlertRecDelete(objectId));
  // An address record or response that is already gone is no failure here.
  DeleteUsrSpecifRec(&instance);
  std::uint32_t responses = DeleteResponses(&instance.UserOid, &instance.Service_KEPOID);
  return responses != 0 ? responses : status;
}

std::uint32_t CAlertUsrInstServDB::DeleteResponses(_GUID *userOid, _GUID *serviceOid) {
  std::uint32_t status = ActivateNeighbour(m_pResp);
  if (status != 0) return status;
  ALERTRESPREC response{};
  // A user's responses lie together in the user order; others are passed over.
  for (std::uint32_t r =
           m_pResp->DBAlertRecFindFirst(CAlertRespDB::kUserKey, sizeof(_GUID),
                                        reinterpret_cast<unsigned char *>(userOid), &response);
       r == 0 && std::memcmp(&response.UserOID, userOid, sizeof(_GUID)) == 0;
       r = m_pResp->DBAlertRecFindNext(&response)) {
    if (std::memcmp(&response.ServiceOID, serviceOid, sizeof(_GUID)) == 0) {
      m_pResp->DBAlertRecDelete(&response.KEPOID);
    }
  }
  return 0;
}

template <class Table>
std::uint32_t CAlertUsrInstServDB::DeleteAddress(Table *&slot, _GUID *addressOid) {
  std::uint32_t status = ActivateNeighbour(slot);
  if (status != 0) return status;
  return slot->DBAlertRecDelete(addressOid);
}

std::uint32_t CAlertUsrInstServDB::DeleteUsrSpecifRec(ALRTUSRINSTSERV *instanceRecord) {
  if (!instanceRecord) return ALRT_E_INVALIDPARAM;
  _GUID *address = &instanceRecord->ServicePerInfo_KEPOID;
  switch (instanceRecord->ServiceType) {
    case kUserMhs.serviceType:
      return DeleteAddress(m_pUsrMHS, address);
    case kUserSnmp.serviceType:
      return DeleteAddress(m_pUsrSNMP, address);
    case kUserMci.serviceType:
      return DeleteAddress(m_pUsrMCI, address);
    case kUserCompus.serviceType:
      return DeleteAddress(m_pUsrCOMPUS, address);
    case kUserSmtp.serviceType:
      return DeleteAddress(m_pUsrSMTP, address);
    case kUserMapi.serviceType:
      return DeleteAddress(m_pUsrMAPI, address);
    case kUserCcmail.serviceType:
      return DeleteAddress(m_pUsrCCMAIL, address);
    case kUserApage.serviceType:
      return DeleteAddress(m_pUsrAPAGE, address);
    case kUserNpage.serviceType:
      return DeleteAddress(m_pUsrNPAGE, address);
    default:
      return ALRT_E_NOUSERTABLE;
  }
}

std::uint32_t CAlertUsrInstServDB::ActivateUsrMHSSpecificInfo() {
  return ActivateNeighbour(m_pUsrMHS);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrSNMPSpecificInfo() {
  return ActivateNeighbour(m_pUsrSNMP);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrMCISpecificInfo() {
  return ActivateNeighbour(m_pUsrMCI);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrCOMPUSSpecificInfo() {
  return ActivateNeighbour(m_pUsrCOMPUS);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrSMTPSpecificInfo() {
  return ActivateNeighbour(m_pUsrSMTP);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrMAPISpecificInfo() {
  return ActivateNeighbour(m_pUsrMAPI);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrCCMAILSpecificInfo() {
  return ActivateNeighbour(m_pUsrCCMAIL);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrAPAGESpecificInfo() {
  return ActivateNeighbour(m_pUsrAPAGE);
}
std::uint32_t CAlertUsrInstServDB::ActivateUsrNPAGESpecificInfo() {
  return ActivateNeighbour(m_pUsrNPAGE);
}
