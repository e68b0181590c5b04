// "Notify_Services": the catalogue of configured notification services. A
// service is a catalogue row plus a row of its kind's own table, linked by
// ServiceSpecific_KEPOID; the row's ServiceType says which table.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"
#include "services/device_service_tables.h"
#include "services/messaging_service_tables.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTNTFYSERV {
  _GUID KEPOID;
  _GUID ServiceSpecific_KEPOID;
  char Service_Name[33];
  char Product[65];
  std::uint32_t Enabled;
  std::uint32_t Status;
  std::uint32_t Remote;
  char Comment[2049];
  char Location[65];
  std::uint32_t NeverInstalled;
  std::uint32_t ServiceType;  // 1 to 16
  _GUID BackupService;
};
#pragma pack(pop)
static_assert(sizeof(ALRTNTFYSERV) == 2280, "ALRTNTFYSERV is 2280 bytes");

extern template class CAlertDBTable<ALRTNTFYSERV>;

class ALERTDB_API CAlertNtfyServDB : public CAlertDBTable<ALRTNTFYSERV> {
 public:
  static constexpr std::uint32_t kIdKey = 1;
  static constexpr std::uint32_t kServiceSpecificKey = 2;
  static constexpr std::uint32_t kServiceNameKey = 3;
  static constexpr std::uint32_t kProductKey = 4;
  static constexpr std::uint32_t kStatusKey = 8;
  static constexpr std::uint32_t kEnabledKey = 9;

  CAlertNtfyServDB();
  // `fileName` names the catalogue's file; the specific tables always use
  // their own default file.
  explicit CAlertNtfyServDB(const char *fileName);
  // A copy opens its own specific tables when it needs them.
  CAlertNtfyServDB(const CAlertNtfyServDB &other);
  CAlertNtfyServDB &operator=(const CAlertNtfyServDB &other);
  ~CAlertNtfyServDB() override;

  // A catalogue row only; its kind's table is opened first.
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid);
  // The specific row, then the catalogue row pointing to it. A failure of the
  // catalogue add leaves the specific row stored.
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTMHSSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTSNMPSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTMCISERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTCOMPUSSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTSMTPSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTMAPISERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTCCMAILSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTWAVESERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTTTSSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTPHONESERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTAPAGESERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTNPAGESERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTGENPORTSERVICEREC *settings,
                              _GUID *settingsOid);
  std::uint32_t DBAlertRecAdd(ALRTNTFYSERV *rec, _GUID *oid, ALRTBROADCASTSERVICEREC *settings,
                              _GUID *settingsOid);
  // The catalogue row only.
  std::uint32_t DBAlertRecUpdate(ALRTNTFYSERV *rec);
  // Reads also open the kind's table of the row read; a row of an unknown
  // type is delivered with ALRT_E_BADSERVICETYPE.
  std::uint32_t DBAlertRecRetrieve(_GUID *oid, ALRTNTFYSERV *rec);
  std::uint32_t DBAlertRecFindFirst(std::uint32_t keyNumber, std::uint32_t keyLength,
                                    unsigned char *keyValue, ALRTNTFYSERV *rec);
  std::uint32_t DBAlertRecFindNext(ALRTNTFYSERV *rec);
  // The catalogue row only; the specific row stays.
  std::uint32_t DBAlertRecDelete(_GUID *oid);

 private:
  void InitMemberVars();
  void SetTemplatePointers();
  void ReleaseSpecificTables();
  // Makes sure the specific table of the type is open: 0,
  // ALRT_E_BADSERVICETYPE, ALRT_E_NOMEMORY or ALRT_E_OPENFAILED.
  std::uint32_t ActivateSpecificInfo(std::uint32_t serviceType);
  template <class Table>
  std::uint32_t AddWithSpecific(ALRTNTFYSERV *rec, _GUID *oid, typename Table::Record *settings,
                                _GUID *settingsOid, Table *&slot);

  CAlertMHSNtfyServDB *m_pMHSServ;
  CAlertSNMPNtfyServDB *m_pSNMPServ;
  CAlertMCINtfyServDB *m_pMCIServ;
  CAlertCOMPUSNtfyServDB *m_pCOMPUSServ;
  CAlertSMTPNtfyServDB *m_pSMTPServ;
  CAlertMAPINtfyServDB *m_pMAPIServ;
  CAlertCCMAILNtfyServDB *m_pCCMAILServ;
  CAlertWAVENtfyServDB *m_pWAVEServ;
  CAlertTTSNtfyServDB *m_pTTSServ;
  CAlertAPAGENtfyServDB *m_pAPAGEServ;
  CAlertPHONENtfyServDB *m_pPHONEServ;
  CAlertNPAGENtfyServDB *m_pNPAGEServ;
  CAlertGENPORTNtfyServDB *m_pGENPORTServ;
  CAlertBROADCASTNtfyServDB *m_pBROADCASTServ;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  KEPOID m_DomainId;
  std::uint32_t m_nOMFlags;
};
