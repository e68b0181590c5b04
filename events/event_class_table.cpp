#include "events/event_class_table.h"

#include <cstdio>
#include <cstring>

#include "events/event_query_info.h"
#include "events/event_query_types_internal.h"
#include "events/severity_colour.h"
#include "framework/alert_db_table_impl_internal.h"
#include "framework/object_manager_link_internal.h"
#include "framework/open_or_create.h"
#include "platform/dynamic_library.h"

template class CAlertDBTable<ALRTEVENT_CLASSREC>;

namespace {

const platform::FieldTemplate kTemplates[] = {
    AlertField(1, 16, 16, 0x311), AlertField(0, 16, 2049, 0x301), AlertField(0, 16, 29, 0x301),
    AlertField(0, 4, 16, 0x8011), AlertField(3, 20, 65, 0x1),     AlertField(2, 8, 4, 0x7),
    AlertField(4, 10, 4, 0x20F),  AlertField(0, 0, 1, 0x10),      AlertField(5, 15, 65, 0x1),
    AlertField(6, 4, 4, 0x7),     AlertField(0, 25, 2049, 0x1),   AlertField(0, 20, 2049, 0x1),
    AlertField(0, 0, 261, 0x1),   AlertField(0, 0, 4, 0x7),       AlertField(0, 0, 4, 0x7),
    AlertField(0, 0, 261, 0x1),   AlertField(0, 0, 261, 0x1),     AlertField(17, 0, 4, 0x7),
    AlertField(18, 0, 4, 0x7),    AlertField(0, 0, 4, 0x307),     AlertField(0, 0, 1020, 0x104),
    AlertField(0, 0, 65, 0x301),  AlertField(7, 0, 12, 0x30D),    AlertField(19, 16, 16, 0x11),
    AlertField(0, 5, 4, 0x7),
};
constexpr std::uint32_t kFieldCount = 25;
constexpr std::uint32_t kRecordFields = 22;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {
    "KEPOID",        "SNMP_OID",    "SNMP_ADDR", "Icon",    "EventName", "EventID",  "Severity",
    "SeverityColor", "Product",     "ProductID", "Comment", "solution",  "helpfile", "HelpID",
    "IconID",        "iconfile",    "Wavefile",  "Hidden",  "Type",      "NumParam", "ParamList",
    "Community",     "Replication", "Domain_Id", "OMFlags"};

const char *const kQueryTypeNames[kFieldCount] = {
    "QInfo_Num",  "QInfo_Str",  "QInfo_Str", "QInfo_Num", "QInfo_Str", "QInfo_Num",  "QInfo_Svrty",
    "QInfo_SClr", "QInfo_Str",  "QInfo_Num", "QInfo_Str", "QInfo_Str", "QInfo_Str",  "QInfo_Num",
    "QInfo_Num",  "QInfo_Str",  "QInfo_Str", "QInfo_Num", "QInfo_Num", "QInfo_None", "QInfo_None",
    "QInfo_Str",  "QInfo_None", "QInfo_Num", "QInfo_None"};

const AlertTableDefinition kDefinition = {"EVENT_CLASS",
                                          kTemplates,
                                          kFieldCount,
                                          kEventQueryInfo,
                                          kEventQueryInfoCount,
                                          kFieldNames,
                                          540,
                                          541,
                                          CAlertEVENT_CLASSDB::kIdKey,
                                          "AlEvntdb.dat"};

// Process-wide, never changed: callers get a pointer to it.
SCHMFLDSTRS g_defaultFieldView[] = {
    {kFieldNames[3]}, {kFieldNames[4]}, {kFieldNames[7]}, {kFieldNames[8]}, {kFieldNames[10]}};

constexpr const char *kCallbackLibrary = "QALERTCB.DLL";
constexpr const char *kCallbackEntry = "AlertEventODIcon";
constexpr const char *kSnmpPrefix = "1.3.6.1.4.1.32473.2.17.8";
// Activity events and events without an ID are not mirrored as such.
constexpr std::uint32_t kUnmirroredEventId = 12883;

struct SnmpSubId {
  std::uint32_t eventId;
  const char *subId;
};
// Searched in order; the first match wins.
constexpr SnmpSubId kSnmpSubIds[] = {
    {13139, "1"},  {13156, "2"},  {13143, "3"},  {13147, "4"},  {13157, "5"},  {13158, "6"},
    {13140, "7"},  {13155, "8"},  {13145, "9"},  {13136, "15"}, {13154, "16"}, {13148, "17"},
    {13149, "18"}, {13150, "19"}, {13151, "20"}, {20485, "21"}, {20993, "22"}, {20994, "23"},
    {20995, "24"}, {20996, "25"}, {20997, "26"}, {20998, "27"}, {20999, "28"}, {21000, "29"},
    {21001, "30"}, {21002, "31"}, {21003, "32"}, {20487, "33"}, {20740, "34"}, {70144, "35"},
    {70145, "36"}, {69888, "37"}, {69889, "38"}, {69890, "39"}, {73729, "39"}, {73730, "40"},
    {73731, "41"}, {73732, "42"}, {73733, "43"},
};

void FillSnmpOid(ALRTEVENT_CLASSREC *record) {
  if (record->SNMP_OID[0] != '\0') return;
  for (const SnmpSubId &entry : kSnmpSubIds) {
    if (entry.eventId == record->EventID) {
      std::snprintf(record->SNMP_OID, sizeof record->SNMP_OID, "%s.%s", kSnmpPrefix, entry.subId);
      return;
    }
  }
}

std::uint32_t OmResult(std::uint32_t result) { return result == 0 ? 0 : ALRT_E_OMFAILED; }

}  // namespace

CAlertEVENT_CLASSDB::CAlertEVENT_CLASSDB() : CAlertEVENT_CLASSDB(nullptr) {}

CAlertEVENT_CLASSDB::CAlertEVENT_CLASSDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kEventQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CAlertEVENT_CLASSDB::CAlertEVENT_CLASSDB(const CAlertEVENT_CLASSDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  BindRecordFields(kRecordFields);
  BindReplication(22);
  BindField(23, &m_DomainId);
  BindField(24, &m_nOMFlags);
}

CAlertEVENT_CLASSDB &CAlertEVENT_CLASSDB::operator=(const CAlertEVENT_CLASSDB &other) {
  if (this != &other) {
    ReleaseResources();
    CAlertDBTable::operator=(other);
  }
  return *this;
}

CAlertEVENT_CLASSDB::~CAlertEVENT_CLASSDB() { ReleaseResources(); }

void CAlertEVENT_CLASSDB::InitMemberVars() {
  m_pEventResp = nullptr;
  m_hCallbackLib = nullptr;
  m_DomainId = {};
  m_nOMFlags = 0;
  m_pfnUpdateEventIcon = nullptr;
  m_pfnAddEventIcon = nullptr;
  m_pObjMgr = nullptr;
  m_pszCallbackDll = kCallbackLibrary;
  m_pszCallbackEntry = kCallbackEntry;
  m_ppszQueryTypeNames = kQueryTypeNames;
}

void CAlertEVENT_CLASSDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  BindRecordFields(kRecordFields);
  BindReplication(22);
  BindField(23, &m_DomainId);
  BindField(24, &m_nOMFlags);
}

void CAlertEVENT_CLASSDB::ReleaseResources() {
  ReleaseNeighbour(m_pEventResp);
  if (m_hCallbackLib) platform::FreeLibrary(m_hCallbackLib);
  m_hCallbackLib = nullptr;
  m_pfnUpdateEventIcon = nullptr;
  m_pfnAddEventIcon = nullptr;
  alertdb_internal::ReleaseObjectManager(m_pObjMgr);
}

std::uint32_t CAlertEVENT_CLASSDB::DBCreate() {
  std::uint32_t status = CAlertDBTable::DBCreate();
  if (status != 0 || !m_hTable) return status;
  alertdb_internal::RegisterEventQueryTypes(m_hTable, false);
  return status;
}

void CAlertEVENT_CLASSDB::PrepareAdd(ALRTEVENT_CLASSREC *record) {
  record->SeverityColor = SeverityColourOf(record->Severity);
  m_nOMFlags = (record->EventID != 0 && record->EventID != kUnmirroredEventId) ? 1 : 0;
  platform::KepOMGetDomainID(&m_DomainId);
}

std::uint32_t CAlertEVENT_CLASSDB::DBAlertRecAdd(ALRTEVENT_CLASSREC *record, _GUID *newId) {
  alertdb_internal::OpenObjectManager(m_pObjMgr);
  if (!record) return ALRT_E_INVALIDPARAM;
  if (record->NumParam > kMaxParams) return ALRT_E_TOOLARGE;
  FillSnmpOid(record);
  PrepareAdd(record);
  std::uint32_t status = CAlertDBTable::DBAlertRecAdd(record, newId);
  if (status != 0) return status;
  // The icon reference is the record's own ID, known only now.
  record->Icon = record->KEPOID;
  DBAlertRecUpdate(record);
  SignalIfDone(status);
  return OmResult(
      platform::KepOMAddInstance(&record->KEPOID, &platform::kClassIdEventClass, m_pszTableName));
}

std::uint32_t CAlertEVENT_CLASSDB::DBAlertRecAdd(ALRTEVENT_CLASSREC *record, _GUID *newId,
                                                 std::uint32_t) {
  alertdb_internal::OpenObjectManager(m_pObjMgr);
  if (!record) return ALRT_E_INVALIDPARAM;
  if (record->NumParam > kMaxParams) return ALRT_E_TOOLARGE;
  PrepareAdd(record);
  std::uint32_t status = CAlertDBTable::DBAlertRecAdd(record, newId);
  if (status != 0) return status;
  record->Icon = record->KEPOID;
  DBAlertRecUpdate(record);
  SignalIfDone(status);
  status =
      platform::KepOMAddInstance(&record->KEPOID, &platform::kClassIdEventClass, m_pszTableName);
  CallIconCallback("AddEventIcon", m_pfnAddEventIcon, record);
  return status;
}

std::uint32_t CAlertEVENT_CLASSDB::DBAlertRecUpdate(ALRTEVENT_CLASSREC *record) {
  alertdb_internal::OpenObjectManager(m_pObjMgr);
  if (!record) return ALRT_E_INVALIDPARAM;
  if (record->NumParam > kMaxParams) return ALRT_E_TOOLARGE;
  // Reading the stored record also keeps its replication, domain and flags.
  ALRTEVENT_CLASSREC stored{};
  bool iconChanged = false;
  if (DBAlertRecRetrieve(&record->KEPOID, &stored) == 0) {
    iconChanged = record->IconID != stored.IconID ||
                  std::strncmp(record->iconfile, stored.iconfile, sizeof stored.iconfile) != 0;
  }
  record->Icon = record->KEPOID;
  record->SeverityColor = SeverityColourOf(record->Severity);
  std::uint32_t status = CAlertDBTable::DBAlertRecUpdate(record);
  if (status == ALRT_UNCHANGED) return 0;
  if (status != 0) return status;
  SignalIfDone(status);
  status = OmResult(platform::KepOMUpdateInstance(&record->KEPOID, &platform::kClassIdEventClass,
                                                  m_pszTableName));
  if (status == 0 && iconChanged) {
    CallIconCallback("UpdateEventIcon", m_pfnUpdateEventIcon, record);
  }
  return status;
}

std::uint32_t CAlertEVENT_CLASSDB::DBAlertRecDelete(_GUID *id) {
  alertdb_internal::OpenObjectManager(m_pObjMgr);
  std::uint32_t status = SignalIfDone(CAlertDBTable::DBAlertRecDelete(id));
  if (status != 0) return status;
  status = DeleteLinks(id);
  if (status == ALRT_E_NOMEMORY || status == ALRT_E_OPENFAILED) return status;
  return OmResult(platform::KepOMDeleteInstance(id, &platform::kClassIdEventClass));
}

std::uint32_t CAlertEVENT_CLASSDB::DBAlertRecDelete(_GUID *id, std::uint32_t) {
  std::uint32_t status = SignalIfDone(CAlertDBTable::DBAlertRecDelete(id));
  if (status != 0) return status;
  status = DeleteLinks(id);
  return (status & 0xFFFF) == (ALRT_E_NOTFOUND & 0xFFFF) ? 0 : status;
}

// The links of the event class, in the order of their event class; the walk
// stops where the event class changes. The result is that of the last step.
std::uint32_t CAlertEVENT_CLASSDB::DeleteLinks(_GUID *id) {
  std::uint32_t status = ActivateNeighbour(m_pEventResp, UnopenedNeighbour::Keep);
  if (status != 0) return status;
  ALRTEVENT_RESPREC link{};
  status = m_pEventResp->DBAlertRecFindFirst(CAlertEVENT_RESPDB::kEventClassKey, sizeof(_GUID),
                                             reinterpret_cast<unsigned char *>(id), &link);
  while (status == 0) {
    if (std::memcmp(&link.EventClassOID, id, sizeof(_GUID)) != 0) return ALRT_E_NOTFOUND;
    m_pEventResp->DBAlertRecDelete(&link.KEPOID);
    status = m_pEventResp->DBAlertRecFindNext(&link);
  }
  return status;
}

std::uint32_t CAlertEVENT_CLASSDB::QALRTEventClassAddResponse(_GUID *eventClassId,
                                                              _GUID *responseId) {
  if (!eventClassId || !responseId) return ALRT_E_INVALIDPARAM;
  ALRTEVENT_CLASSREC eventClass{};
  if (DBAlertRecRetrieve(eventClassId, &eventClass) != 0) return ALRT_E_NOTFOUND;
  std::uint32_t status = ActivateNeighbour(m_pEventResp, UnopenedNeighbour::Keep);
  if (status == 0) {
    ALRTEVENT_RESPREC link{};
    link.EventClassOID = *eventClassId;
    link.ResponseOID = *responseId;
    _GUID newId;
    status = m_pEventResp->DBAlertRecAdd(&link, &newId);
  }
  if (status != 0) ReleaseNeighbour(m_pEventResp);
  return status;
}

void CAlertEVENT_CLASSDB::CallIconCallback(const char *entry, EventIconCallback &slot,
                                           ALRTEVENT_CLASSREC *record) {
  // A missing library or entry is skipped and looked for again next time.
  if (!m_hCallbackLib) m_hCallbackLib = platform::LoadLibraryA(kCallbackLibrary);
  if (!m_hCallbackLib) return;
  if (!slot) {
    slot = reinterpret_cast<EventIconCallback>(platform::GetProcAddress(m_hCallbackLib, entry));
  }
  if (slot) slot(record);
}

SCHMFLDSTRS *CAlertEVENT_CLASSDB::GetDefFldView() { return g_defaultFieldView; }

unsigned int CAlertEVENT_CLASSDB::GetNoDefFlds() {
  return sizeof g_defaultFieldView / sizeof g_defaultFieldView[0];
}
