#include "recipients/user_table.h"

#include <cstring>

#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "recipients/object_manager_session_internal.h"
#include "recipients/user_query_info.h"
#include "recipients/user_service_kinds_internal.h"

template class CAlertDBTable<ALERTUSRREC>;

namespace {

using namespace alertdb_internal;

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(11, 16, 16, 0x311),
    AlertField(12, 5, 4, 0x7),
    AlertField(13, 0, 12, 0x30D),
};
constexpr std::uint32_t kFieldCount = 3;
constexpr std::uint32_t kRecordFields = 2;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {"KEPOID", "AlertRecp", "Replication"};

const AlertTableDefinition kDefinition = {
    "AlertUsr_Table", kTemplates, kFieldCount, kUserQueryInfo,      kUserQueryInfoCount,
    kFieldNames,      100,        101,         CAlertUsrDB::kIdKey, kUserDataFile};

// Process-wide, never changed: callers get a pointer to it.
SCHMFLDSTRS g_defaultFieldView[] = {{kFieldNames[1]}};

}  // namespace

CAlertUsrDB::CAlertUsrDB() : CAlertUsrDB(nullptr) {}

CAlertUsrDB::CAlertUsrDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kUserQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CAlertUsrDB::CAlertUsrDB(const CAlertUsrDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  Bind();
}

CAlertUsrDB &CAlertUsrDB::operator=(const CAlertUsrDB &other) {
  if (this != &other) {
    ReleaseNeighbours();
    CAlertDBTable::operator=(other);
  }
  return *this;
}

CAlertUsrDB::~CAlertUsrDB() { ReleaseNeighbours(); }

void CAlertUsrDB::InitMemberVars() {
  m_pUsrInstServ = nullptr;
  m_pResp = nullptr;
}

void CAlertUsrDB::ReleaseNeighbours() {
  ReleaseNeighbour(m_pUsrInstServ);
  ReleaseNeighbour(m_pResp);
}

void CAlertUsrDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CAlertUsrDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
}

std::uint32_t CAlertUsrDB::AddAndRegister(ALERTUSRREC *rec, _GUID *objectId, bool mapRefusal) {
  ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMOPEN;
  std::uint32_t status = SignalIfDone(CAlertDBTable::DBAlertRecAdd(rec, objectId));
  if (status != 0) return status;
  status = platform::KepOMAddInstance(&rec->KEPOID, &platform::kClassIdUser, m_pszTableName);
  return mapRefusal && status != 0 ? ALRT_E_OMFAILED : status;
}

std::uint32_t CAlertUsrDB::DBAlertRecAdd(ALERTUSRREC *rec, _GUID *objectId) {
  return AddAndRegister(rec, objectId, false);
}

std::uint32_t CAlertUsrDB::DBAlertRecAdd(ALERTUSRREC *rec, _GUID *objectId, std::uint32_t) {
  return AddAndRegister(rec, objectId, true);
}

std::uint32_t CAlertUsrDB::DBAlertRecUpdate(ALERTUSRREC *rec) {
  ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMOPEN;
  std::uint32_t status = CAlertDBTable::DBAlertRecUpdate(rec);
  if (status == ALRT_UNCHANGED) return 0;
  if (SignalIfDone(status) != 0) return status;
  return platform::KepOMUpdateInstance(&rec->KEPOID, &platform::kClassIdUser, m_pszTableName) == 0
             ? 0
             : ALRT_E_OMFAILED;
}

std::uint32_t CAlertUsrDB::DBAlertRecDelete(_GUID *objectId) {
  ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMOPEN;
  if (!objectId) return ALRT_E_INVALIDPARAM;
  std::uint32_t status = DeleteInstances(objectId);
  if (status == 0) status = DeleteResponses(objectId);
  if (status != 0) return status;
  return SignalIfDone(CAlertDBTable::DBAlertRecDelete(objectId));
}

// Each instance takes its address record and the user's responses through
// its service with it; the results of those deletes are not reported.
std::uint32_t CAlertUsrDB::DeleteInstances(_GUID *objectId) {
  std::uint32_t status = ActivateNeighbour(m_pUsrInstServ);
  if (status != 0) return status;
  ALRTUSRINSTSERV instance{};
  for (std::uint32_t r = m_pUsrInstServ->DBAlertRecFindFirst(
           CAlertUsrInstServDB::kUserKey, sizeof(_GUID),
           reinterpret_cast<unsigned char *>(objectId), &instance);
       r == 0 && std::memcmp(&instance.UserOid, objectId, sizeof(_GUID)) == 0;
       r = m_pUsrInstServ->DBAlertRecFindNext(&instance)) {
    m_pUsrInstServ->DBAlertRecDelete(&instance.KEPOID);
  }
  return 0;
}

std::uint32_t CAlertUsrDB::DeleteResponses(_GUID *objectId) {
  std::uint32_t status = ActivateNeighbour(m_pResp);
  if (status != 0) return status;
  ALERTRESPREC response{};
  for (std::uint32_t r =
           m_pResp->DBAlertRecFindFirst(CAlertRespDB::kUserKey, sizeof(_GUID),
                                        reinterpret_cast<unsigned char *>(objectId), &response);
       r == 0 && std::memcmp(&response.UserOID, objectId, sizeof(_GUID)) == 0;
       r = m_pResp->DBAlertRecFindNext(&response)) {
    m_pResp->DBAlertRecDelete(&response.KEPOID);
  }
  return 0;
}

template <class Record>
std::uint32_t CAlertUsrDB::AddService(_GUID *userOid, _GUID *serviceOid, Record *addressRecord,
                                      const char *serviceName) {
  if (!userOid || !serviceOid || !addressRecord) return ALRT_E_INVALIDPARAM;
  ALERTUSRREC user{};
  if (DBAlertRecRetrieve(userOid, &user) != 0) return ALRT_E_NOTFOUND;
  std::uint32_t status = ActivateNeighbour(m_pUsrInstServ);
  if (status != 0) return status;
  ALRTUSRINSTSERV instance{};
  instance.UserOid = *userOid;
  instance.Service_KEPOID = *serviceOid;
  std::strncpy(instance.Service_Name, serviceName, sizeof instance.Service_Name - 1);
  _GUID instanceOid{}, addressOid{};
  status = m_pUsrInstServ->DBAlertRecAdd(&instance, &instanceOid, addressRecord, &addressOid);
  // Opened afresh by the next call.
  if (status != 0) ReleaseNeighbour(m_pUsrInstServ);
  return status;
}

std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_MHSSERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserMhs.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_SNMPSERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserSnmp.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_MCISERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserMci.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_COMPUSERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserCompus.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_SMTPSERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserSmtp.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_MAPISERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserMapi.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_CCMAILSERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserCcmail.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_APAGESERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserApage.serviceName);
}
std::uint32_t CAlertUsrDB::QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                              ALRTUSR_NPAGESERVICEREC *addressRecord) {
  return AddService(userOid, serviceOid, addressRecord, kUserNpage.serviceName);
}

SCHMFLDSTRS *CAlertUsrDB::GetDefFldView() { return g_defaultFieldView; }

unsigned int CAlertUsrDB::GetNoDefFlds() {
  return sizeof g_defaultFieldView / sizeof g_defaultFieldView[0];
}
