#include "events/event_log_table.h"

#include <cstddef>
#include <cstring>

#include "events/event_query_info.h"
#include "events/event_query_types_internal.h"
#include "events/severity_colour.h"
#include "framework/alert_db_table_impl_internal.h"
#include "framework/object_manager_link_internal.h"

template class CAlertDBTable<ALRTEVENT_LOGREC>;

namespace {

// In field order; fields 24 to 26 live in the table object.
constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(20, 16, 16, 0x311),  // KEPOID
    AlertField(21, 16, 16, 0x311),  // EventClass_OID
    AlertField(22, 16, 16, 0x311),  // SourceOID
    AlertField(38, 3, 1, 0x20012),  // Ack
    AlertField(0, 4, 16, 0x8011),   // Icon
    AlertField(23, 15, 65, 0x1),    // EventName
    AlertField(24, 8, 4, 0x7),      // EventID
    AlertField(25, 7, 4, 0x20F),    // Severity
    AlertField(0, 7, 1, 0x10),      // SeverityColor
    AlertField(35, 12, 8, 0xC),     // Time
    AlertField(37, 15, 65, 0x1),    // MachineName
    AlertField(0, 25, 2049, 0x1),   // EventText
    AlertField(0, 7, 4, 0xF),       // OpStatus
    AlertField(36, 10, 65, 0x1),    // UserName
    AlertField(0, 20, 2049, 0x1),   // Comment
    AlertField(26, 10, 65, 0x1),    // ProductName
    AlertField(39, 15, 65, 0x1),    // domainName
    AlertField(0, 18, 4, 0x7),      // ErrorCode
    AlertField(0, 15, 29, 0x1),     // Address
    AlertField(0, 10, 261, 0x1),    // TextParameter
    AlertField(0, 0, 65, 0x1),      // SeverityTxt
    AlertField(0, 18, 2049, 0x1),   // OpStatusTxt
    AlertField(0, 0, 4, 0x307),     // BlobSize
    AlertField(0, 0, 2049, 0x304),  // binblob
    AlertField(40, 0, 12, 0x30D),   // Replication
    AlertField(41, 16, 16, 0x11),   // Domain_Id
    AlertField(0, 5, 4, 0x7),       // OMFlags
};
constexpr std::uint32_t kFieldCount = 27;
constexpr std::uint32_t kRecordFields = 24;
constexpr std::uint32_t kReplicationField = 24;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {
    "KEPOID",      "EventClass_OID", "SourceOID",     "Ack",         "Icon",        "EventName",
    "EventID",     "Severity",       "SeverityColor", "Time",        "MachineName", "EventText",
    "OpStatus",    "UserName",       "Comment",       "ProductName", "domainName",  "ErrorCode",
    "Address",     "TextParameter",  "SeverityTxt",   "OpStatusTxt", "BlobSize",    "binblob",
    "Replication", "Domain_Id",      "OMFlags"};

const char *const kQueryTypeNames[kFieldCount] = {
    "QInfo_Num",   "QInfo_Num",  "QInfo_Num", "QInfo_Num", "QInfo_Num", "QInfo_Str",   "QInfo_Num",
    "QInfo_Svrty", "QInfo_SClr", "QInfo_Num", "QInfo_Str", "QInfo_Str", "QInfo_OpStt", "QInfo_Str",
    "QInfo_Str",   "QInfo_Str",  "QInfo_Str", "QInfo_Num", "QInfo_Str", "QInfo_Str",   "QInfo_Str",
    "QInfo_Str",   "QInfo_Num",  "QInfo_Num", "QInfo_Num", "QInfo_Num", "QInfo_Num"};

// Where each record field lives in ALRTEVENT_LOGREC, in field order.
struct MemberPlace {
  std::size_t offset;
  std::size_t size;
};
#define ALERTDB_LOG_MEMBER(name) \
  MemberPlace { offsetof(ALRTEVENT_LOGREC, name), sizeof(ALRTEVENT_LOGREC::name) }
constexpr MemberPlace kMembers[kRecordFields] = {
    ALERTDB_LOG_MEMBER(KEPOID),        ALERTDB_LOG_MEMBER(EventClass_OID),
    ALERTDB_LOG_MEMBER(SourceOID),     ALERTDB_LOG_MEMBER(Ack),
    ALERTDB_LOG_MEMBER(Icon),          ALERTDB_LOG_MEMBER(EventName),
    ALERTDB_LOG_MEMBER(EventID),       ALERTDB_LOG_MEMBER(Severity),
    ALERTDB_LOG_MEMBER(SeverityColor), ALERTDB_LOG_MEMBER(Time),
    ALERTDB_LOG_MEMBER(MachineName),   ALERTDB_LOG_MEMBER(EventText),
    ALERTDB_LOG_MEMBER(OpStatus),      ALERTDB_LOG_MEMBER(UserName),
    ALERTDB_LOG_MEMBER(Comment),       ALERTDB_LOG_MEMBER(ProductName),
    ALERTDB_LOG_MEMBER(domainName),    ALERTDB_LOG_MEMBER(ErrorCode),
    ALERTDB_LOG_MEMBER(Address),       ALERTDB_LOG_MEMBER(TextParameter),
    ALERTDB_LOG_MEMBER(SeverityTxt),   ALERTDB_LOG_MEMBER(OpStatusTxt),
    ALERTDB_LOG_MEMBER(BlobSize),      ALERTDB_LOG_MEMBER(binblob),
};
#undef ALERTDB_LOG_MEMBER

// The record fields must cover every byte of the record exactly once.
constexpr bool membersCoverRecord() {
  std::size_t total = 0;
  for (const MemberPlace &m : kMembers) total += m.size;
  return total == sizeof(ALRTEVENT_LOGREC);
}
// ... and each template must be as wide as the member it is bound to.
constexpr bool templatesMatchMembers() {
  for (std::uint32_t i = 0; i < kRecordFields; ++i) {
    if (kTemplates[i].size != kMembers[i].size) return false;
  }
  return true;
}
static_assert(membersCoverRecord() && templatesMatchMembers(), "the log's fields fit its record");

const AlertTableDefinition kDefinition = {
    "EVENT_LOG", kTemplates, kFieldCount, kEventQueryInfo,           kEventQueryInfoCount,
    kFieldNames, 570,        571,         CAlertEVENT_LOGDB::kIdKey, "AlEvntdb.dat"};

constexpr const char *kMirroredFileName = "KEPLogDB.dat";

// Built into the library image, so it exists from the moment the library is loaded.
// Ack, Icon, EventName, SeverityColor, Time, MachineName, EventText, OpStatus,
// UserName, Comment, ProductName, domainName, Address, TextParameter.
constinit SCHMFLDSTRS g_defaultFieldView[] = {
    {kFieldNames[3]},  {kFieldNames[4]},  {kFieldNames[5]},  {kFieldNames[8]},  {kFieldNames[9]},
    {kFieldNames[10]}, {kFieldNames[11]}, {kFieldNames[12]}, {kFieldNames[13]}, {kFieldNames[14]},
    {kFieldNames[15]}, {kFieldNames[16]}, {kFieldNames[18]}, {kFieldNames[19]}};

// The two fields the table sets on every write, whatever the caller gave.
void deriveFields(ALRTEVENT_LOGREC *record) {
  if (!record) return;
  record->SeverityColor = SeverityColourOf(record->Severity);
  record->Icon = record->EventClass_OID;
}

}  // namespace

CAlertEVENT_LOGDB::CAlertEVENT_LOGDB() : CAlertEVENT_LOGDB(kMirroredFileName) { m_bOMRegister = 1; }

CAlertEVENT_LOGDB::CAlertEVENT_LOGDB(const char *fileName)
    : m_nQueryInfoBytes(sizeof kEventQueryInfo),
      m_nTemplateBytes(sizeof kTemplates),
      m_bOMRegister(0),
      m_DomainId{},
      m_nOMFlags(0),
      m_pObjMgr(nullptr) {
  m_pszCallbackDll = "QALERTCB.DLL";
  m_pszCallbackEntry = "AlertEventODIcon";
  ApplyDefinition(kDefinition, fileName, m_nQueryInfoBytes, m_nTemplateBytes);
  m_ppszQueryTypeNames = kQueryTypeNames;
  Bind();
}

CAlertEVENT_LOGDB::CAlertEVENT_LOGDB(const CAlertEVENT_LOGDB &other)
    : CAlertDBTable(other),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes),
      m_bOMRegister(other.m_bOMRegister),
      m_DomainId(other.m_DomainId),
      m_nOMFlags(other.m_nOMFlags),
      // A connection of its own, opened at its first change.
      m_pObjMgr(nullptr) {
  Bind();
}

CAlertEVENT_LOGDB &CAlertEVENT_LOGDB::operator=(const CAlertEVENT_LOGDB &other) {
  if (this == &other) return *this;
  CAlertDBTable::operator=(other);
  // The file decides whether entries are mirrored; a connection already held stays.
  m_bOMRegister = other.m_bOMRegister;
  m_DomainId = other.m_DomainId;
  m_nOMFlags = other.m_nOMFlags;
  return *this;
}

CAlertEVENT_LOGDB::~CAlertEVENT_LOGDB() { alertdb_internal::ReleaseObjectManager(m_pObjMgr); }

void CAlertEVENT_LOGDB::Bind() {
  if (!m_pRecordBuffer) return;  // the object stays unusable (IsReady fails)
  auto *record = reinterpret_cast<unsigned char *>(m_pRecordBuffer);
  for (std::uint32_t i = 0; i < kRecordFields; ++i) BindField(i, record + kMembers[i].offset);
  BindReplication(kReplicationField);
  BindField(25, &m_DomainId);
  BindField(26, &m_nOMFlags);
  m_nSecondKey = kReplicationField;
}

std::uint32_t CAlertEVENT_LOGDB::OpenObjectManagerIfMirrored() {
  if (m_bOMRegister != 1) return 0;
  return alertdb_internal::OpenObjectManager(m_pObjMgr) == 0 ? 0 : ALRT_E_OMFAILED;
}

std::uint32_t CAlertEVENT_LOGDB::DBCreate() {
  std::uint32_t status = CAlertDBTable::DBCreate();
  if (status != 0 || !m_hTable) return status;
  alertdb_internal::RegisterEventQueryTypes(m_hTable, true);
  return status;
}

std::uint32_t CAlertEVENT_LOGDB::DBAlertRecAdd(ALRTEVENT_LOGREC *record, _GUID *newId) {
  if (std::uint32_t refused = OpenObjectManagerIfMirrored()) return refused;
  platform::KepOMGetDomainID(&m_DomainId);
  deriveFields(record);
  std::uint32_t status = CAlertDBTable::DBAlertRecAdd(record, newId);
  if (status == 0 && m_bOMRegister == 1 &&
      platform::KepOMAddInstance(&record->KEPOID, &platform::kClassIdEventLog, "EVENT_LOG") != 0) {
    status = ALRT_E_OMFAILED;
  }
  return status;
}

std::uint32_t CAlertEVENT_LOGDB::DBAlertRecUpdate(ALRTEVENT_LOGREC *record) {
  if (std::uint32_t refused = OpenObjectManagerIfMirrored()) return refused;
  deriveFields(record);
  std::uint32_t status = CAlertDBTable::DBAlertRecUpdate(record);
  if (status == 0 && m_bOMRegister == 1 &&
      platform::KepOMUpdateInstance(&record->KEPOID, &platform::kClassIdEventLog, "EVENT_LOG") !=
          0) {
    status = ALRT_E_OMFAILED;
  }
  return status;
}

std::uint32_t CAlertEVENT_LOGDB::DBAlertRecDelete(_GUID *id) {
  if (std::uint32_t refused = OpenObjectManagerIfMirrored()) return refused;
  return CAlertDBTable::DBAlertRecDelete(id);
}

SCHMFLDSTRS *CAlertEVENT_LOGDB::GetDefFldView() { return g_defaultFieldView; }

unsigned int CAlertEVENT_LOGDB::GetNoDefFlds() {
  return sizeof g_defaultFieldView / sizeof g_defaultFieldView[0];
}
