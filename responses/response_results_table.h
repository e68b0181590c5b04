// "AlertResultResp_Table": one record for each time a response was carried
// out for a logged event, with its outcome and error text. Nothing here
// reaches into another table.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALERTRESPRESULTREC {
  _GUID KEPOID;
  _GUID LogEntryOID;  // the "EVENT_LOG" entry answered
  _GUID ResponseOID;
  std::uint32_t Result;
  unsigned char Ack;
  char ErrorText[2049];
  _GUID TargetOID;
};
#pragma pack(pop)
static_assert(sizeof(ALERTRESPRESULTREC) == 2118, "ALERTRESPRESULTREC is 2118 bytes");

extern template class CAlertDBTable<ALERTRESPRESULTREC>;

class ALERTDB_API CAlertRespResultsDB : public CAlertDBTable<ALERTRESPRESULTREC> {
 public:
  static constexpr std::uint32_t kIdKey = 18;
  static constexpr std::uint32_t kLogEntryKey = 19;
  static constexpr std::uint32_t kResponseKey = 20;
  static constexpr std::uint32_t kResultKey = 21;
  static constexpr std::uint32_t kAckKey = 22;

  CAlertRespResultsDB();
  explicit CAlertRespResultsDB(const char *fileName);
  // `tableName` (at most 63 characters; null gives "AlertResultResp_Table")
  // is copied.
  CAlertRespResultsDB(const char *fileName, const char *tableName);
  CAlertRespResultsDB(const CAlertRespResultsDB &other);
  CAlertRespResultsDB &operator=(const CAlertRespResultsDB &other);
  ~CAlertRespResultsDB() override;

  std::uint32_t DBAlertRecAdd(ALERTRESPRESULTREC *rec, _GUID *newOid);
  std::uint32_t DBAlertRecUpdate(ALERTRESPRESULTREC *rec);
  std::uint32_t DBAlertRecDelete(_GUID *oid);

  // Copies the error text of result `oid`, terminator included, into
  // `errorText` (2049 bytes); the buffer is untouched on failure.
  std::uint32_t DBGetRespResultErrorTxt(_GUID *oid, char *errorText);

 private:
  void SetTemplatePointers();
  void Bind();

  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  char m_szTableName[64];
};
