// CAlertServiceTable: a service-specific table whose kind has a per-user
// address table. Beyond the shared shape it holds a slot for that table and,
// where the kind has a password, stores the password protected and gives it
// back in clear.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

template <class Derived, class REC, class UserTable, char (REC::*Password)[49] = nullptr>
class ALERTDB_API CAlertServiceTable : public CAlertKindTable<Derived, REC> {
  using Kind = CAlertKindTable<Derived, REC>;

 public:
  CAlertServiceTable() : CAlertServiceTable(nullptr) {}
  explicit CAlertServiceTable(const char *fileName);
  // A copy holds no per-user table of its own until it opens one.
  CAlertServiceTable(const CAlertServiceTable &other);
  CAlertServiceTable &operator=(const CAlertServiceTable &other);
  ~CAlertServiceTable() override;

  // The caller's record keeps the protected password, whatever the result.
  std::uint32_t DBAlertRecAdd(REC *record, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(REC *record);
  // The password comes back in clear, also after a failed read.
  std::uint32_t DBAlertRecRetrieve(_GUID *id, REC *record);
  std::uint32_t DBAlertRecFindFirst(std::uint32_t key, std::uint32_t keyLength,
                                    unsigned char *keyValue, REC *record);
  std::uint32_t DBAlertRecFindNext(REC *record);

 protected:
  // Opens the kind's per-user address table into the slot: 0,
  // ALRT_E_NOMEMORY or ALRT_E_OPENFAILED.
  std::uint32_t InitUsrSpecifInfo();

  UserTable *m_pUserTable;

 private:
  static void Protect(REC *record);
  static void Reveal(REC *record);
};
