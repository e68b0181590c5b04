// "AlertResp_Table": the responses that events trigger. A service response
// takes its service type from the notification service catalogue; the
// fifteen test responses and protected responses cannot be deleted; a
// deleted response takes its links to event classes with it.
#pragma once

#include <cstdint>

#include "events/event_resp_table.h"
#include "framework/alert_db_table.h"
#include "responses/response_record.h"
#include "services/notify_services_table.h"

extern template class CAlertDBTable<ALERTRESPREC>;

class ALERTDB_API CAlertRespDB : public CAlertDBTable<ALERTRESPREC> {
 public:
  static constexpr std::uint32_t kIdKey = 1;
  static constexpr std::uint32_t kNameKey = 6;
  static constexpr std::uint32_t kTypeKey = 8;
  static constexpr std::uint32_t kUserKey = 12;
  static constexpr std::uint32_t kServiceKey = 13;
  static constexpr std::uint32_t kProductIdKey = 14;
  static constexpr std::uint32_t kProductNameKey = 15;

  // Type bits.
  static constexpr std::uint16_t kServiceResponse = 0x0001;
  static constexpr std::uint16_t kProtected = 0x4000;

  CAlertRespDB();
  explicit CAlertRespDB(const char *fileName);
  // `tableName` (at most 63 characters; null gives "AlertResp_Table") is
  // copied: the same record can be kept under another table name.
  CAlertRespDB(const char *fileName, const char *tableName);
  // A copy opens its own catalogue and link table when it needs them.
  CAlertRespDB(const CAlertRespDB &other);
  CAlertRespDB &operator=(const CAlertRespDB &other);
  ~CAlertRespDB() override;

  // A service response gets the catalogue's service type (ALRT_E_NOSERVICETYPE
  // when it has none); any other response without a target gets the default
  // target text.
  std::uint32_t DBAlertRecAdd(ALERTRESPREC *rec, _GUID *newOid);
  // An update of a test response is always signalled, changed or not.
  std::uint32_t DBAlertRecUpdate(ALERTRESPREC *rec);
  // ALRT_E_PROTECTED for test and protected responses; otherwise the
  // response and then its links go. The response's results stay.
  std::uint32_t DBAlertRecDelete(_GUID *oid);

 private:
  int IsTestResponse(_GUID *oid);
  std::uint32_t GetServiceTypeFromOID(_GUID *serviceOid, std::uint32_t *serviceType);
  std::uint32_t DeleteLinks(_GUID *oid);
  void SetTemplatePointers();
  void Bind();
  void ReleaseNeighbours();

  CAlertEVENT_RESPDB *m_pEventResp;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  char m_szTableName[64];
  KEPOID m_DomainId;
  std::uint32_t m_nOMFlags;
  CAlertNtfyServDB *m_pNtfyServ;
};
