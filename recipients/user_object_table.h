// "UserObj": the user objects, the product's directory of people, mirrored
// into the object manager. The table belongs to the object manager, which
// creates it (see user_object_table_setup.h for the stand-in); this
// class opens it but never creates it.
#pragma once

#include <cstdint>

#include "framework/alert_db_table.h"

#pragma pack(push, 1)
struct ALERTDB_API tagUSEROBJ {
  _GUID Id;
  char LoginName[64];
  char FullName[64];
  char Description[64];
  char Department[64];
  char Title[64];
  char OfficeLocation[64];
  char TelephoneNumber[32];
};
#pragma pack(pop)
static_assert(sizeof(tagUSEROBJ) == 432, "tagUSEROBJ is 432 bytes");

extern template class CAlertDBTable<tagUSEROBJ>;

class ALERTDB_API CUsrDB : public CAlertDBTable<tagUSEROBJ> {
 public:
  static constexpr std::uint32_t kDomainKey = 1;
  static constexpr std::uint32_t kIdKey = 2;
  static constexpr std::uint32_t kLoginNameKey = 3;
  static constexpr std::uint32_t kFullNameKey = 4;

  CUsrDB();
  explicit CUsrDB(const char *fileName);
  CUsrDB(const CUsrDB &other);
  CUsrDB &operator=(const CUsrDB &other);
  ~CUsrDB() override;

  // Always 0xFFFF: the table is created outside this library.
  std::uint32_t DBCreate();
  // Stores the record under the current domain and registers it; not
  // signalled. ALRT_E_OMFAILED when the object manager refuses.
  std::uint32_t DBAlertRecAdd(tagUSEROBJ *rec, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(tagUSEROBJ *rec);
  // The object manager's own result when it refuses to unregister; the
  // record is gone all the same.
  std::uint32_t DBAlertRecDelete(_GUID *id);

 private:
  void InitMemberVars();
  void SetTemplatePointers();
  void Bind();

  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
  KEPOID m_DomainId;
  std::uint32_t m_nFlags;
};
