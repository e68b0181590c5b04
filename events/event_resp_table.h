// "EVENT_RESP": the links from registered event classes to their responses.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTEVENT_RESPREC {
  _GUID KEPOID;
  _GUID EventClassOID;
  _GUID ResponseOID;
};
#pragma pack(pop)
static_assert(sizeof(ALRTEVENT_RESPREC) == 48, "ALRTEVENT_RESPREC is 48 bytes");

extern template class CAlertDBTable<ALRTEVENT_RESPREC>;

class ALERTDB_API CAlertEVENT_RESPDB : public CAlertDBTable<ALRTEVENT_RESPREC> {
 public:
  static constexpr std::uint32_t kIdKey = 42;
  static constexpr std::uint32_t kEventClassKey = 43;
  static constexpr std::uint32_t kResponseKey = 44;

  CAlertEVENT_RESPDB();
  explicit CAlertEVENT_RESPDB(const char *fileName);
  CAlertEVENT_RESPDB(const CAlertEVENT_RESPDB &other);
  CAlertEVENT_RESPDB &operator=(const CAlertEVENT_RESPDB &other);
  ~CAlertEVENT_RESPDB() override;

  // Refuses a second link of the same event class and response.
  std::uint32_t DBAlertRecAdd(ALRTEVENT_RESPREC *record, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(ALRTEVENT_RESPREC *record);
  std::uint32_t DBAlertRecDelete(_GUID *id);

 private:
  void Bind();

  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
};
