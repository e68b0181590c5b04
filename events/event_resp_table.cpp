#include "events/event_resp_table.h"

#include <cstring>

#include "events/event_query_info.h"
#include "framework/alert_db_table_impl_internal.h"

template class CAlertDBTable<ALRTEVENT_RESPREC>;

namespace {

const platform::FieldTemplate kTemplates[] = {
    AlertField(42, 16, 16, 0x311),  // KEPOID
    AlertField(43, 16, 16, 0x311),  // EventClassOID
    AlertField(44, 16, 16, 0x311),  // ResponseOID
    AlertField(45, 0, 12, 0x30D),   // Replication
};
const char *const kFieldNames[] = {"KEPOID", "EventClassOID", "ResponseOID", "Replication"};
constexpr std::uint32_t kRecordFields = 3;

const AlertTableDefinition kDefinition = {"EVENT_RESP",
                                          kTemplates,
                                          4,
                                          kEventQueryInfo,
                                          kEventQueryInfoCount,
                                          kFieldNames,
                                          600,
                                          601,
                                          CAlertEVENT_RESPDB::kIdKey,
                                          "AlEvntdb.dat"};

}  // namespace

CAlertEVENT_RESPDB::CAlertEVENT_RESPDB() : CAlertEVENT_RESPDB(nullptr) {}

CAlertEVENT_RESPDB::CAlertEVENT_RESPDB(const char *fileName)
    : m_nQueryInfoBytes(sizeof kEventQueryInfo), m_nTemplateBytes(sizeof kTemplates) {
  ApplyDefinition(kDefinition, fileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

CAlertEVENT_RESPDB::CAlertEVENT_RESPDB(const CAlertEVENT_RESPDB &other)
    : CAlertDBTable(other),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes) {
  Bind();
}

CAlertEVENT_RESPDB &CAlertEVENT_RESPDB::operator=(const CAlertEVENT_RESPDB &other) {
  CAlertDBTable::operator=(other);
  return *this;
}

CAlertEVENT_RESPDB::~CAlertEVENT_RESPDB() = default;

void CAlertEVENT_RESPDB::Bind() {
  BindRecordFields(kRecordFields);
  BindReplication(kRecordFields);
}

std::uint32_t CAlertEVENT_RESPDB::DBAlertRecAdd(ALRTEVENT_RESPREC *record, _GUID *newId) {
  if (!record) return ALRT_E_INVALIDPARAM;
  // Links are ordered by response: the walk stops where the response changes,
  // and leaves the enumeration at the end, as a walk through every link would.
  ALRTEVENT_RESPREC link{};
  for (std::uint32_t r =
           DBAlertRecFindFirst(kResponseKey, sizeof(_GUID),
                               reinterpret_cast<unsigned char *>(&record->ResponseOID), &link);
       r == 0 && std::memcmp(&link.ResponseOID, &record->ResponseOID, sizeof(_GUID)) == 0;
       r = DBAlertRecFindNext(&link)) {
    if (std::memcmp(&link.EventClassOID, &record->EventClassOID, sizeof(_GUID)) == 0) {
      return ALRT_E_LINKEXISTS;
    }
  }
  EndEnumeration();
  return SignalIfDone(CAlertDBTable::DBAlertRecAdd(record, newId));
}

std::uint32_t CAlertEVENT_RESPDB::DBAlertRecUpdate(ALRTEVENT_RESPREC *record) {
  return UpdateAndSignal(record);
}

std::uint32_t CAlertEVENT_RESPDB::DBAlertRecDelete(_GUID *id) {
  return SignalIfDone(CAlertDBTable::DBAlertRecDelete(id));
}
