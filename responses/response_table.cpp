#include "responses/response_table.h"

#include <strings.h>

#include <array>
#include <cstring>
#include <new>

#include "framework/alert_db_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "responses/response_query_info.h"
#include "responses/table_name_internal.h"

template class CAlertDBTable<ALERTRESPREC>;

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(1, 0, 16, 0x311),  AlertField(0, 15, 261, 0x201), AlertField(0, 15, 261, 0x201),
    AlertField(0, 15, 65, 0x201), AlertField(0, 15, 65, 0x201),  AlertField(6, 15, 65, 0x1),
    AlertField(0, 30, 259, 0x1),  AlertField(8, 15, 2, 0x203),   AlertField(0, 15, 2, 0x208),
    AlertField(0, 15, 259, 0x1),  AlertField(0, 15, 259, 0x1),   AlertField(0, 15, 2049, 0x1),
    AlertField(0, 15, 261, 0x1),  AlertField(12, 0, 16, 0x311),  AlertField(13, 0, 16, 0x311),
    AlertField(14, 0, 16, 0x311), AlertField(15, 15, 65, 0x1),   AlertField(0, 15, 20, 0x303),
    AlertField(0, 15, 20, 0x303), AlertField(0, 5, 4, 0x207),    AlertField(0, 5, 4, 0x307),
    AlertField(0, 5, 4, 0x307),   AlertField(16, 0, 12, 0x30D),  AlertField(17, 16, 16, 0x11),
    AlertField(0, 5, 4, 0x207),
};
constexpr std::uint32_t kFieldCount = 25;
constexpr std::uint32_t kRecordFields = 22;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {"KEPOID",
                                                  "InstActionIntfaceDLLName",
                                                  "InstActionRunDLLName",
                                                  "InstActionIntfaceEntry",
                                                  "InstActionRunEntry",
                                                  "Name",
                                                  "Description",
                                                  "Type",
                                                  "Priority",
                                                  "Target",
                                                  "Service",
                                                  "Msg",
                                                  "SubjectMsg",
                                                  "UserOID",
                                                  "ServiceOID",
                                                  "ProductID",
                                                  "ProductName",
                                                  "ParamIDList",
                                                  "SubParamIDList",
                                                  "Flags",
                                                  "reserved",
                                                  "ServiceType",
                                                  "Replication",
                                                  "Domain_Id",
                                                  "OMFlags"};

constexpr const char *kDefaultTableName = "AlertResp_Table";

// The table name is the object's own: SetTemplatePointers puts it in.
const AlertTableDefinition kDefinition = {
    kDefaultTableName, kTemplates, kFieldCount, kResponseQueryInfo,   kResponseQueryInfoCount,
    kFieldNames,       110,        111,         CAlertRespDB::kIdKey, kResponseDataFile};

// The test responses differ only in the last two digits of their first
// group: {6E2B4053-3C95-4D7E-8A16-000000000001} to {6E2B4061-...}.
constexpr std::uint32_t kFirstTestResponse = 0x6E2B4053;
constexpr std::uint32_t kLastTestResponse = 0x6E2B4061;
constexpr _GUID kTestResponseTail = {0, 0x3C95, 0x4D7E, {0x8A, 0x16, 0, 0, 0, 0, 0, 0x01}};

// Installable actions of this library need a service response's type.
constexpr const char *kServiceActionLibrary = "ARS.QNL";
constexpr std::uint32_t kDefaultTargetString = 900;

// String 900, loaded once per process when an add first needs it.
const char *DefaultTarget() {
  static const std::array<char, 16> text = [] {
    std::array<char, 16> t{};
    platform::LoadStringA(AlertDBModuleHandle(), kDefaultTargetString, t.data(),
                          static_cast<std::int32_t>(t.size()));
    return t;
  }();
  return text.data();
}

}  // namespace

CAlertRespDB::CAlertRespDB() : CAlertRespDB(nullptr, nullptr) {}

CAlertRespDB::CAlertRespDB(const char *fileName) : CAlertRespDB(fileName, nullptr) {}

CAlertRespDB::CAlertRespDB(const char *fileName, const char *tableName)
    : m_pEventResp(nullptr),
      m_nQueryInfoBytes(sizeof kResponseQueryInfo),
      m_nTemplateBytes(sizeof kTemplates),
      m_DomainId{},
      m_nOMFlags(0),
      m_pNtfyServ(nullptr) {
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  alertdb_internal::CopyTableName(m_szTableName, tableName, kDefaultTableName);
  SetTemplatePointers();
}

CAlertRespDB::CAlertRespDB(const CAlertRespDB &other)
    : CAlertDBTable(other),
      m_pEventResp(nullptr),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes),
      m_DomainId{},
      m_nOMFlags(0),
      m_pNtfyServ(nullptr) {
  std::memcpy(m_szTableName, other.m_szTableName, sizeof m_szTableName);
  m_pszTableName = m_szTableName;
  Bind();
}

CAlertRespDB &CAlertRespDB::operator=(const CAlertRespDB &other) {
  if (this != &other) {
    ReleaseNeighbours();
    CAlertDBTable::operator=(other);
    std::memcpy(m_szTableName, other.m_szTableName, sizeof m_szTableName);
    m_DomainId = {};
    m_nOMFlags = 0;
  }
  return *this;
}

CAlertRespDB::~CAlertRespDB() { ReleaseNeighbours(); }

void CAlertRespDB::ReleaseNeighbours() {
  ReleaseNeighbour(m_pEventResp);
  ReleaseNeighbour(m_pNtfyServ);
}

void CAlertRespDB::SetTemplatePointers() {
  AlertTableDefinition definition = kDefinition;
  definition.tableName = m_szTableName;
  ApplyDefinition(definition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CAlertRespDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(22);
  BindField(23, &m_DomainId);
  BindField(24, &m_nOMFlags);
}

int CAlertRespDB::IsTestResponse(_GUID *oid) {
  if (!oid) return 0;
  _GUID tail = *oid;
  tail.Data1 = 0;
  std::uint32_t first = oid->Data1;
  return std::memcmp(&tail, &kTestResponseTail, sizeof tail) == 0 && first >= kFirstTestResponse &&
         first <= kLastTestResponse;
}

std::uint32_t CAlertRespDB::GetServiceTypeFromOID(_GUID *serviceOid, std::uint32_t *serviceType) {
  std::uint32_t status = 0;
  // A lookup only: the catalogue is opened, never created, and a failed
  // open is not retried by this object.
  if (!m_pNtfyServ) {
    m_pNtfyServ = new (std::nothrow) CAlertNtfyServDB();
    if (!m_pNtfyServ) return ALRT_E_NOMEMORY;
    status = m_pNtfyServ->DBOpen();
  }
  ALRTNTFYSERV service{};
  if (status == 0) {
    status =
        m_pNtfyServ->DBAlertRecFindFirst(CAlertNtfyServDB::kIdKey, sizeof(_GUID),
                                         reinterpret_cast<unsigned char *>(serviceOid), &service);
  }
  if (status == 0) *serviceType = service.ServiceType;
  return status;
}

std::uint32_t CAlertRespDB::DBAlertRecAdd(ALERTRESPREC *rec, _GUID *newOid) {
  if (!rec) return ALRT_E_INVALIDPARAM;
  if (rec->Type & kServiceResponse) {
    std::uint32_t serviceType = 0;
    if (GetServiceTypeFromOID(&rec->ServiceOID, &serviceType) != 0) return ALRT_E_NOSERVICETYPE;
    rec->ServiceType = serviceType;
  } else if (rec->Target[0] == '\0') {
    std::strncpy(rec->Target, DefaultTarget(), sizeof rec->Target - 1);
    // Names from the record are ASCII or DBCS text; only ASCII can match.
    if (strncasecmp(rec->InstActionRunDLLName, kServiceActionLibrary,
                    sizeof rec->InstActionRunDLLName) == 0) {
      rec->Type = kServiceResponse;
    }
  }
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(rec, newOid));
}

std::uint32_t CAlertRespDB::DBAlertRecUpdate(ALERTRESPREC *rec) {
  std::uint32_t status = CAlertDBTable::DBAlertRecUpdate(rec);
  // Whoever watches the test responses hears of every update of one.
  if (status == 0 || (rec && IsTestResponse(&rec->KEPOID))) {
    alertdb_internal::SignalChange(m_hTable);
  }
  return status == ALRT_UNCHANGED ? 0 : status;
}

std::uint32_t CAlertRespDB::DBAlertRecDelete(_GUID *oid) {
  ALERTRESPREC stored{};
  bool read = DBAlertRecRetrieve(oid, &stored) == 0;
  if (IsTestResponse(oid) || (read && (stored.Type & kProtected))) return ALRT_E_PROTECTED;
  std::uint32_t status = SignalIfDone(CAlertDBTable::DBAlertRecDelete(oid));
  if (status != 0) return status;
  status = DeleteLinks(oid);
  return (status & 0xFFFF) == (ALRT_E_NOTFOUND & 0xFFFF) ? 0 : status;
}

// The links of the response, in the order of their response; the walk stops
// where the response changes. The result is that of the last step.
std::uint32_t CAlertRespDB::DeleteLinks(_GUID *oid) {
  std::uint32_t status = ActivateNeighbour(m_pEventResp, UnopenedNeighbour::Keep);
  if (status != 0) return status;
  ALRTEVENT_RESPREC link{};
  status = m_pEventResp->DBAlertRecFindFirst(CAlertEVENT_RESPDB::kResponseKey, sizeof(_GUID),
                                             reinterpret_cast<unsigned char *>(oid), &link);
  while (status == 0) {
    if (std::memcmp(&link.ResponseOID, oid, sizeof(_GUID)) != 0) return ALRT_E_NOTFOUND;
    m_pEventResp->DBAlertRecDelete(&link.KEPOID);
    status = m_pEventResp->DBAlertRecFindNext(&link);
  }
  return status;
}
