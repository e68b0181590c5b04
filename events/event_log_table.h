// "EVENT_LOG": one entry for each event that occurred. Its changes are never
// signalled; the default table mirrors its entries into the object manager.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"
#include "platform/object_manager.h"

// The member order differs from the table's field order (see the .cpp).
#pragma pack(push, 1)
struct ALERTDB_API ALRTEVENT_LOGREC {
  _GUID KEPOID;
  _GUID EventClass_OID;
  _GUID SourceOID;
  unsigned char Ack;
  _GUID Icon;
  char EventName[65];
  std::uint32_t EventID;
  std::uint32_t Severity;
  char SeverityTxt[65];
  unsigned char SeverityColor;
  char ProductName[65];
  char Comment[2049];
  // Year less 1900, month, day, hour, minute, second, hundredths, unused.
  unsigned char Time[8];
  char UserName[65];
  char MachineName[65];
  char domainName[65];
  char EventText[2049];
  std::int32_t ErrorCode;
  std::uint32_t OpStatus;
  char OpStatusTxt[2049];
  char TextParameter[261];
  std::uint32_t BlobSize;
  unsigned char binblob[2049];
  char Address[29];
};
#pragma pack(pop)
static_assert(sizeof(ALRTEVENT_LOGREC) == 8970, "ALRTEVENT_LOGREC is 8970 bytes");

extern template class CAlertDBTable<ALRTEVENT_LOGREC>;

class ALERTDB_API CAlertEVENT_LOGDB : public CAlertDBTable<ALRTEVENT_LOGREC> {
 public:
  static constexpr std::uint32_t kIdKey = 20;
  static constexpr std::uint32_t kEventClassKey = 21;
  static constexpr std::uint32_t kSourceKey = 22;
  static constexpr std::uint32_t kEventNameKey = 23;
  static constexpr std::uint32_t kEventIdKey = 24;
  static constexpr std::uint32_t kSeverityKey = 25;
  static constexpr std::uint32_t kProductNameKey = 26;
  static constexpr std::uint32_t kTimeKey = 35;
  static constexpr std::uint32_t kUserNameKey = 36;
  static constexpr std::uint32_t kMachineNameKey = 37;
  static constexpr std::uint32_t kAckKey = 38;
  static constexpr std::uint32_t kDomainNameKey = 39;

  // "KEPLogDB.dat", mirrored into the object manager.
  CAlertEVENT_LOGDB();
  // `fileName` (kept, not copied), or "AlEvntdb.dat" when null; not mirrored.
  explicit CAlertEVENT_LOGDB(const char *fileName);
  CAlertEVENT_LOGDB(const CAlertEVENT_LOGDB &other);
  CAlertEVENT_LOGDB &operator=(const CAlertEVENT_LOGDB &other);
  ~CAlertEVENT_LOGDB() override;

  // Creates the table, then registers the query types its fields name.
  std::uint32_t DBCreate();
  // Sets Icon and SeverityColor in `record` before storing it.
  std::uint32_t DBAlertRecAdd(ALRTEVENT_LOGREC *record, _GUID *newId);
  // As the add; 240 when nothing changed.
  std::uint32_t DBAlertRecUpdate(ALRTEVENT_LOGREC *record);
  std::uint32_t DBAlertRecDelete(_GUID *id);

  // The process-wide default field view (14 entries); not to be changed or freed.
  SCHMFLDSTRS *GetDefFldView();
  unsigned int GetNoDefFlds();

 private:
  void Bind();
  // 0, or ALRT_E_OMFAILED when the mirrored table cannot reach the object manager.
  std::uint32_t OpenObjectManagerIfMirrored();

  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  std::uint32_t m_bOMRegister;
  KEPOID m_DomainId;
  std::uint32_t m_nOMFlags;
  platform::KepOMConnection *m_pObjMgr;
};
