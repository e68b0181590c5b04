#include "recipients/user_object_table.h"

#include <cstddef>

#include "framework/alert_db_table_impl_internal.h"
#include "recipients/object_manager_session_internal.h"
#include "recipients/user_query_info.h"

template class CAlertDBTable<tagUSEROBJ>;

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(1, 0, 16, 0x11),   AlertField(2, 0, 16, 0x11), AlertField(3, 0, 64, 0x1),
    AlertField(4, 0, 64, 0x1),    AlertField(5, 0, 64, 0x1),  AlertField(6, 0, 64, 0x1),
    AlertField(7, 0, 64, 0x1),    AlertField(8, 0, 64, 0x1),  AlertField(9, 0, 32, 0x1),
    AlertField(10, 0, 12, 0x20D), AlertField(0, 0, 4, 0x7),
};
constexpr std::uint32_t kFieldCount = 11;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);
// Templates 1 to 8 are the record; 0, 9 and 10 are the object's.
constexpr std::uint32_t kDomainField = 0;
constexpr std::uint32_t kFirstRecordField = 1;
constexpr std::uint32_t kReplicateField = 9;
constexpr std::uint32_t kFlagsField = 10;

constexpr const char *kFieldNames[kFieldCount] = {
    "Domain Id",       "Id",         "LoginName", "FullName",
    "Description",     "Department", "Title",     "OfficeLocation",
    "TelephoneNumber", "Replicate",  "Flags"};

// The string table has no texts of this table: the alert user table's IDs.
const AlertTableDefinition kDefinition = {
    "UserObj",   kTemplates, kFieldCount, kUserQueryInfo, kUserQueryInfoCount,
    kFieldNames, 100,        101,         CUsrDB::kIdKey, "KepUser.dat"};

constexpr std::uint32_t kCreatedElsewhere = 0xFFFF;

}  // namespace

CUsrDB::CUsrDB() : CUsrDB(nullptr) {}

CUsrDB::CUsrDB(const char *fileName) {
  InitMemberVars();
  m_nQueryInfoBytes = sizeof kUserQueryInfo;
  m_nTemplateBytes = sizeof kTemplates;
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  SetTemplatePointers();
}

CUsrDB::CUsrDB(const CUsrDB &other) : CAlertDBTable(other) {
  InitMemberVars();
  m_nQueryInfoBytes = other.m_nQueryInfoBytes;
  m_nTemplateBytes = other.m_nTemplateBytes;
  Bind();
}

CUsrDB &CUsrDB::operator=(const CUsrDB &other) {
  if (this != &other) {
    CAlertDBTable::operator=(other);
    m_DomainId = {};
    m_nFlags = 0;
  }
  return *this;
}

CUsrDB::~CUsrDB() = default;

void CUsrDB::InitMemberVars() {
  m_nQueryInfoBytes = 0;
  m_nTemplateBytes = 0;
  m_DomainId = {};
  m_nFlags = 0;
}

void CUsrDB::SetTemplatePointers() {
  ApplyDefinition(kDefinition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CUsrDB::Bind() {
  BindField(kDomainField, &m_DomainId);
  auto *record = reinterpret_cast<unsigned char *>(m_pRecordBuffer);
  std::size_t offset = 0;
  for (std::uint32_t i = kFirstRecordField; record && i < kReplicateField; ++i) {
    BindField(i, record + offset);
    offset += kTemplates[i].size;
  }
  BindReplication(kReplicateField);
  BindField(kFlagsField, &m_nFlags);
}

std::uint32_t CUsrDB::DBCreate() { return kCreatedElsewhere; }

std::uint32_t CUsrDB::DBAlertRecAdd(tagUSEROBJ *rec, _GUID *newId) {
  alertdb_internal::ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMFAILED;
  platform::KepOMGetDomainID(&m_DomainId);
  std::uint32_t status = CAlertDBTable::DBAlertRecAdd(rec, newId);
  if (status != 0) return status;
  return platform::KepOMAddInstance(&rec->Id, &platform::kClassIdUser, m_pszTableName) == 0
             ? 0
             : ALRT_E_OMFAILED;
}

std::uint32_t CUsrDB::DBAlertRecUpdate(tagUSEROBJ *rec) {
  alertdb_internal::ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMFAILED;
  std::uint32_t status = CAlertDBTable::DBAlertRecUpdate(rec);
  if (status == ALRT_UNCHANGED) return 0;
  if (SignalIfDone(status) != 0) return status;
  return platform::KepOMUpdateInstance(&rec->Id, &platform::kClassIdUser, m_pszTableName) == 0
             ? 0
             : ALRT_E_OMFAILED;
}

std::uint32_t CUsrDB::DBAlertRecDelete(_GUID *id) {
  alertdb_internal::ObjectManagerSession session;
  if (!session.opened()) return ALRT_E_OMFAILED;
  std::uint32_t status = SignalIfDone(CAlertDBTable::DBAlertRecDelete(id));
  if (status != 0) return status;
  return platform::KepOMDeleteInstance(id, &platform::kClassIdUser);
}
