#include "responses/response_results_table.h"

#include <cstring>

#include "framework/alert_db_table_impl_internal.h"
#include "responses/response_query_info.h"
#include "responses/table_name_internal.h"

template class CAlertDBTable<ALERTRESPRESULTREC>;

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(18, 0, 16, 0x311), AlertField(19, 0, 16, 0x311),  AlertField(20, 0, 16, 0x311),
    AlertField(21, 3, 4, 0x7),    AlertField(22, 0, 1, 0x20012), AlertField(0, 15, 2049, 0x1),
    AlertField(0, 0, 16, 0x311),  AlertField(23, 0, 12, 0x20D),
};
constexpr std::uint32_t kFieldCount = 8;
constexpr std::uint32_t kRecordFields = 7;
static_assert(sizeof kTemplates / sizeof kTemplates[0] == kFieldCount);

constexpr const char *kFieldNames[kFieldCount] = {"KEPOID",    "LogEntryOID", "ResponseOID",
                                                  "Result",    "Ack",         "ErrorText",
                                                  "TargetOID", "Replication"};

constexpr const char *kDefaultTableName = "AlertResultResp_Table";

// The table name is the object's own: SetTemplatePointers puts it in.
const AlertTableDefinition kDefinition = {
    kDefaultTableName,           kTemplates,       kFieldCount, kResponseQueryInfo,
    kResponseQueryInfoCount,     kFieldNames,      750,         751,
    CAlertRespResultsDB::kIdKey, kResponseDataFile};

}  // namespace

CAlertRespResultsDB::CAlertRespResultsDB() : CAlertRespResultsDB(nullptr, nullptr) {}

CAlertRespResultsDB::CAlertRespResultsDB(const char *fileName)
    : CAlertRespResultsDB(fileName, nullptr) {}

CAlertRespResultsDB::CAlertRespResultsDB(const char *fileName, const char *tableName)
    : m_nQueryInfoBytes(sizeof kResponseQueryInfo), m_nTemplateBytes(sizeof kTemplates) {
  m_pszFileName = fileName ? fileName : kDefinition.defaultFileName;
  alertdb_internal::CopyTableName(m_szTableName, tableName, kDefaultTableName);
  SetTemplatePointers();
}

CAlertRespResultsDB::CAlertRespResultsDB(const CAlertRespResultsDB &other)
    : CAlertDBTable(other),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes) {
  std::memcpy(m_szTableName, other.m_szTableName, sizeof m_szTableName);
  m_pszTableName = m_szTableName;
  Bind();
}

CAlertRespResultsDB &CAlertRespResultsDB::operator=(const CAlertRespResultsDB &other) {
  if (this != &other) {
    CAlertDBTable::operator=(other);
    std::memcpy(m_szTableName, other.m_szTableName, sizeof m_szTableName);
  }
  return *this;
}

CAlertRespResultsDB::~CAlertRespResultsDB() = default;

void CAlertRespResultsDB::SetTemplatePointers() {
  AlertTableDefinition definition = kDefinition;
  definition.tableName = m_szTableName;
  ApplyDefinition(definition, m_pszFileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

void CAlertRespResultsDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
}

std::uint32_t CAlertRespResultsDB::DBAlertRecAdd(ALERTRESPRESULTREC *rec, _GUID *newOid) {
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(rec, newOid));
}

std::uint32_t CAlertRespResultsDB::DBAlertRecUpdate(ALERTRESPRESULTREC *rec) {
  return UpdateAndSignal(rec);
}

std::uint32_t CAlertRespResultsDB::DBAlertRecDelete(_GUID *oid) {
  return SignalIfDone(CAlertDBTable::DBAlertRecDelete(oid));
}

std::uint32_t CAlertRespResultsDB::DBGetRespResultErrorTxt(_GUID *oid, char *errorText) {
  if (!oid || !errorText) return ALRT_E_INVALIDPARAM;
  ALERTRESPRESULTREC result{};
  result.KEPOID = *oid;
  std::uint32_t status = DBAlertRecRetrieve(oid, &result);
  if (status == 0) {
    std::size_t length = strnlen(result.ErrorText, sizeof result.ErrorText - 1);
    std::memcpy(errorText, result.ErrorText, length);
    errorText[length] = '\0';
  }
  return status;
}
