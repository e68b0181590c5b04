// The members of CAlertServiceTable. Included only by the sources that
// instantiate it, after the exported classes are complete.
#pragma once

#include "framework/alert_kind_table_impl_internal.h"
#include "framework/open_or_create.h"
#include "services/service_table.h"
#include "text/password_protection.h"

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
CAlertServiceTable<Derived, REC, UserTable, Password>::CAlertServiceTable(const char *fileName)
    : Kind(fileName), m_pUserTable(nullptr) {}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
CAlertServiceTable<Derived, REC, UserTable, Password>::CAlertServiceTable(
    const CAlertServiceTable &other)
    : Kind(other), m_pUserTable(nullptr) {}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
CAlertServiceTable<Derived, REC, UserTable, Password> &
CAlertServiceTable<Derived, REC, UserTable, Password>::operator=(const CAlertServiceTable &other) {
  if (this != &other) {
    ReleaseNeighbour(m_pUserTable);
    Kind::operator=(other);
  }
  return *this;
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
CAlertServiceTable<Derived, REC, UserTable, Password>::~CAlertServiceTable() {
  ReleaseNeighbour(m_pUserTable);
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::InitUsrSpecifInfo() {
  return ActivateNeighbour(m_pUserTable);
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
void CAlertServiceTable<Derived, REC, UserTable, Password>::Protect(REC *record) {
  if constexpr (Password != nullptr) {
    if (record) EncryptPassword(record->*Password, record->*Password);
  }
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
void CAlertServiceTable<Derived, REC, UserTable, Password>::Reveal(REC *record) {
  if constexpr (Password != nullptr) {
    if (record) DecryptPassword(record->*Password, record->*Password);
  }
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::DBAlertRecAdd(REC *record,
                                                                                   _GUID *newId) {
  Protect(record);
  return Kind::DBAlertRecAdd(record, newId);
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::DBAlertRecUpdate(REC *record) {
  // The base compares the protected form with what is stored.
  Protect(record);
  return Kind::DBAlertRecUpdate(record);
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::DBAlertRecRetrieve(
    _GUID *id, REC *record) {
  std::uint32_t status = Kind::DBAlertRecRetrieve(id, record);
  Reveal(record);
  return status;
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::DBAlertRecFindFirst(
    std::uint32_t key, std::uint32_t keyLength, unsigned char *keyValue, REC *record) {
  std::uint32_t status = Kind::DBAlertRecFindFirst(key, keyLength, keyValue, record);
  Reveal(record);
  return status;
}

template <class Derived, class REC, class UserTable, char (REC::*Password)[49]>
std::uint32_t CAlertServiceTable<Derived, REC, UserTable, Password>::DBAlertRecFindNext(
    REC *record) {
  std::uint32_t status = Kind::DBAlertRecFindNext(record);
  Reveal(record);
  return status;
}
