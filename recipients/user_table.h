// "AlertUsr_Table": the alert users, mirrored into the object manager. A
// user is given a service together with its address in one call, and
// deleting a user deletes its service instances (with their address
// records) and its responses.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"
#include "recipients/user_address_tables.h"
#include "recipients/user_instance_table.h"
#include "responses/response_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALERTUSRREC {
  _GUID KEPOID;
  std::uint32_t AlertRecp;  // alert recipient flag
};
#pragma pack(pop)
static_assert(sizeof(ALERTUSRREC) == 20, "ALERTUSRREC is 20 bytes");

extern template class CAlertDBTable<ALERTUSRREC>;

class ALERTDB_API CAlertUsrDB : public CAlertDBTable<ALERTUSRREC> {
 public:
  static constexpr std::uint32_t kIdKey = 11;
  static constexpr std::uint32_t kAlertRecpKey = 12;

  CAlertUsrDB();
  explicit CAlertUsrDB(const char *fileName);
  // A copy opens its own neighbour tables when it needs them.
  CAlertUsrDB(const CAlertUsrDB &other);
  CAlertUsrDB &operator=(const CAlertUsrDB &other);
  ~CAlertUsrDB() override;

  // Adds the user and registers it with the object manager, whose refusal
  // is returned as it comes; the record stays added.
  std::uint32_t DBAlertRecAdd(ALERTUSRREC *rec, _GUID *objectId);
  // The same, with the object manager's refusal as ALRT_E_OMFAILED; the
  // third argument is not used.
  std::uint32_t DBAlertRecAdd(ALERTUSRREC *rec, _GUID *objectId, std::uint32_t unused);
  std::uint32_t DBAlertRecUpdate(ALERTUSRREC *rec);
  // The user's instances (with their address records and responses), its
  // remaining responses, then the user. Stops, with the status, where a
  // neighbour table cannot be opened; what was deleted stays deleted. The
  // object manager instance stays (see the user delete in the docs).
  std::uint32_t DBAlertRecDelete(_GUID *objectId);

  // Gives the user a configured service with the user's address for it: one
  // address record and one instance (not enabled) pointing to it.
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_MHSSERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_SNMPSERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_MCISERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_COMPUSERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_SMTPSERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_MAPISERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_CCMAILSERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_APAGESERVICEREC *addressRecord);
  std::uint32_t QALRTUsrAddService(_GUID *userOid, _GUID *serviceOid,
                                   ALRTUSR_NPAGESERVICEREC *addressRecord);

  SCHMFLDSTRS *GetDefFldView();
  unsigned int GetNoDefFlds();

 private:
  void InitMemberVars();
  void SetTemplatePointers();
  void Bind();
  void ReleaseNeighbours();
  std::uint32_t AddAndRegister(ALERTUSRREC *rec, _GUID *objectId, bool mapRefusal);
  template <class Record>
  std::uint32_t AddService(_GUID *userOid, _GUID *serviceOid, Record *addressRecord,
                           const char *serviceName);
  std::uint32_t DeleteInstances(_GUID *objectId);
  std::uint32_t DeleteResponses(_GUID *objectId);

  CAlertUsrInstServDB *m_pUsrInstServ;
  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  CAlertRespDB *m_pResp;
};
