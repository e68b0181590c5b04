// "EVENT_CLASS": the registered event classes, with their severity colours,
// SNMP identity, icon callbacks, object manager mirroring and response links.
#pragma once

#include <cstdint>

#include "events/event_resp_table.h"
#include "framework/alert_db_table.h"
#include "platform/object_manager.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTEVENT_CLASSREC {
  _GUID KEPOID;
  char SNMP_OID[2049];
  char SNMP_ADDR[29];
  _GUID Icon;
  char EventName[65];
  std::uint32_t EventID;
  std::uint32_t Severity;
  unsigned char SeverityColor;
  char Product[65];
  std::uint32_t ProductID;
  char Comment[2049];
  char solution[2049];
  char helpfile[261];
  std::uint32_t HelpID;
  std::uint32_t IconID;
  char iconfile[261];
  char Wavefile[261];
  std::uint32_t Hidden;
  std::uint32_t Type;
  std::uint32_t NumParam;
  unsigned char ParamList[1020];
  char Community[65];
};
#pragma pack(pop)
static_assert(sizeof(ALRTEVENT_CLASSREC) == 8239, "ALRTEVENT_CLASSREC is 8239 bytes");

// The entries "AddEventIcon" and "UpdateEventIcon" of the icon callback
// library "QALERTCB.DLL": one pointer to the record as stored; result ignored.
extern "C" typedef std::uint32_t (*EventIconCallback)(ALRTEVENT_CLASSREC *record);

extern template class CAlertDBTable<ALRTEVENT_CLASSREC>;

class ALERTDB_API CAlertEVENT_CLASSDB : public CAlertDBTable<ALRTEVENT_CLASSREC> {
 public:
  static constexpr std::uint32_t kIdKey = 1;
  static constexpr std::uint32_t kEventIdKey = 2;
  static constexpr std::uint32_t kEventNameKey = 3;
  static constexpr std::uint32_t kMaxParams = 20;

  CAlertEVENT_CLASSDB();
  explicit CAlertEVENT_CLASSDB(const char *fileName);
  CAlertEVENT_CLASSDB(const CAlertEVENT_CLASSDB &other);
  CAlertEVENT_CLASSDB &operator=(const CAlertEVENT_CLASSDB &other);
  ~CAlertEVENT_CLASSDB() override;

  // Creates the table, then registers its query types.
  std::uint32_t DBCreate();
  // Fills an empty SNMP identifier; the object manager's refusal is ALRT_E_OMFAILED.
  std::uint32_t DBAlertRecAdd(ALRTEVENT_CLASSREC *record, _GUID *newId);
  // Leaves the SNMP identifier as given, returns the object manager's own
  // result and tells the callback library "AddEventIcon".
  std::uint32_t DBAlertRecAdd(ALRTEVENT_CLASSREC *record, _GUID *newId, std::uint32_t extra);
  std::uint32_t DBAlertRecUpdate(ALRTEVENT_CLASSREC *record);
  // Removes the event class, its response links and its object manager instance.
  std::uint32_t DBAlertRecDelete(_GUID *id);
  // The same without the object manager step.
  std::uint32_t DBAlertRecDelete(_GUID *id, std::uint32_t extra);

  std::uint32_t QALRTEventClassAddResponse(_GUID *eventClassId, _GUID *responseId);

  SCHMFLDSTRS *GetDefFldView();
  unsigned int GetNoDefFlds();

 private:
  void InitMemberVars();
  void SetTemplatePointers();
  // Fills the fields every add sets; false when the parameter count is too large.
  void PrepareAdd(ALRTEVENT_CLASSREC *record);
  // Looks the callback up (loading the library first) and calls it.
  void CallIconCallback(const char *entry, EventIconCallback &slot, ALRTEVENT_CLASSREC *record);
  std::uint32_t DeleteLinks(_GUID *id);
  void ReleaseResources();

  CAlertEVENT_RESPDB *m_pEventResp;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  HMODULE m_hCallbackLib;
  KEPOID m_DomainId;
  std::uint32_t m_nOMFlags;
  EventIconCallback m_pfnUpdateEventIcon;
  EventIconCallback m_pfnAddEventIcon;
  platform::KepOMConnection *m_pObjMgr;
};
