// "UsrInst": the service instances through which alert users are reached.
// An instance links a user, a catalogue service and the user's address
// record in the per-user table of the service's kind; deleting an instance
// deletes that address record and the user's responses through the service.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"
#include "recipients/user_address_tables.h"
#include "responses/response_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTUSRINSTSERV {
  _GUID KEPOID;
  _GUID Service_KEPOID;         // the catalogue service
  _GUID ServicePerInfo_KEPOID;  // the address record in the kind's per-user table
  _GUID UserOid;
  char Service_Name[33];
  std::uint32_t Enable;
  std::uint32_t ServiceType;
};
#pragma pack(pop)
static_assert(sizeof(ALRTUSRINSTSERV) == 105, "ALRTUSRINSTSERV is 105 bytes");

extern template class CAlertDBTable<ALRTUSRINSTSERV>;

class ALERTDB_API CAlertUsrInstServDB : public CAlertDBTable<ALRTUSRINSTSERV> {
 public:
  static constexpr std::uint32_t kIdKey = 72;
  static constexpr std::uint32_t kServiceKey = 73;
  static constexpr std::uint32_t kUserKey = 74;
  static constexpr std::uint32_t kAddressKey = 75;
  static constexpr std::uint32_t kServiceNameKey = 76;

  CAlertUsrInstServDB();
  explicit CAlertUsrInstServDB(const char *fileName);
  // A copy opens its own neighbour tables when it needs them.
  CAlertUsrInstServDB(const CAlertUsrInstServDB &other);
  CAlertUsrInstServDB &operator=(const CAlertUsrInstServDB &other);
  ~CAlertUsrInstServDB() override;

  // Does what DBCreate() does; the argument is not used.
  std::uint32_t DBCreate(const char *unused);
  using CAlertDBTable::DBCreate;

  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *objectId);
  // The address record into the kind's per-user table, then the instance
  // pointing to it; neither is signalled. The caller's instance record gets
  // the kind's service type and the address record's ID. An instance add
  // that fails leaves the address record stored.
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_MHSSERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_SNMPSERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_MCISERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_COMPUSERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_SMTPSERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_MAPISERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_CCMAILSERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_APAGESERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecAdd(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                              ALRTUSR_NPAGESERVICEREC *addressRecord, _GUID *addressOid);
  std::uint32_t DBAlertRecUpdate(ALRTUSRINSTSERV *instanceRecord);
  // The instance, then (whatever that gave) its address record and the
  // user's responses through its service. The result is the instance's
  // delete, or the response table's failure to open.
  std::uint32_t DBAlertRecDelete(_GUID *objectId);

  // Deletes the address record the instance points to; ALRT_E_NOUSERTABLE
  // for a service type without a per-user table.
  std::uint32_t DeleteUsrSpecifRec(ALRTUSRINSTSERV *instanceRecord);

  std::uint32_t ActivateUsrMHSSpecificInfo();
  std::uint32_t ActivateUsrSNMPSpecificInfo();
  std::uint32_t ActivateUsrMCISpecificInfo();
  std::uint32_t ActivateUsrCOMPUSSpecificInfo();
  std::uint32_t ActivateUsrSMTPSpecificInfo();
  std::uint32_t ActivateUsrMAPISpecificInfo();
  std::uint32_t ActivateUsrCCMAILSpecificInfo();
  std::uint32_t ActivateUsrAPAGESpecificInfo();
  std::uint32_t ActivateUsrNPAGESpecificInfo();

 private:
  void InitMemberVars();
  void SetTemplatePointers();
  void Bind();
  void ReleaseNeighbours();
  template <class Table>
  std::uint32_t AddWithAddress(ALRTUSRINSTSERV *instanceRecord, _GUID *instOid,
                               typename Table::Record *addressRecord, _GUID *addressOid,
                               Table *&slot, std::uint32_t serviceType);
  template <class Table>
  std::uint32_t DeleteAddress(Table *&slot, _GUID *addressOid);
  // The user's responses through the service.
  std::uint32_t DeleteResponses(_GUID *userOid, _GUID *serviceOid);

  CAlertUSR_MHSDB *m_pUsrMHS;
  CAlertUSR_SNMPDB *m_pUsrSNMP;
  CAlertUSR_MCIDB *m_pUsrMCI;
  CAlertUSR_COMPUDB *m_pUsrCOMPUS;
  CAlertUSR_SMTPDB *m_pUsrSMTP;
  CAlertUSR_MAPIDB *m_pUsrMAPI;
  CAlertUSR_CCMAILDB *m_pUsrCCMAIL;
  CAlertUSR_APAGEDB *m_pUsrAPAGE;
  CAlertUSR_NPAGEDB *m_pUsrNPAGE;
  CAlertRespDB *m_pResp;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
};
