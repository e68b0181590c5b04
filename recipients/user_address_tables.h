// The per-user service address tables of "kepuser.dat": each user's address
// for each kind of service through which a single user can be reached. All
// nine are the shared table shape; an add does not signal the change.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

#pragma pack(push, 1)

struct ALERTDB_API ALRTUSR_MHSSERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char MHSMailAddr[65];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_MHSSERVICEREC) == 362, "ALRTUSR_MHSSERVICEREC is 362 bytes");

struct ALERTDB_API ALRTUSR_SNMPSERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[65];
  char Machine_Name[65];
  char Machine_Addr[29];
  char Comment[2049];
  std::uint32_t Enable;
  char Comunity[65];
};
static_assert(sizeof(ALRTUSR_SNMPSERVICEREC) == 2309, "ALRTUSR_SNMPSERVICEREC is 2309 bytes");

struct ALERTDB_API ALRTUSR_MCISERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char MCIMailAddr[65];
  std::uint32_t Enable;
  std::uint32_t EMS;
  char EMSAddr[65];
};
static_assert(sizeof(ALRTUSR_MCISERVICEREC) == 431, "ALRTUSR_MCISERVICEREC is 431 bytes");

struct ALERTDB_API ALRTUSR_COMPUSERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char COMPUMailAddr[65];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_COMPUSERVICEREC) == 362, "ALRTUSR_COMPUSERVICEREC is 362 bytes");

struct ALERTDB_API ALRTUSR_SMTPSERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char SMTPMailAddr[65];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_SMTPSERVICEREC) == 362, "ALRTUSR_SMTPSERVICEREC is 362 bytes");

struct ALERTDB_API ALRTUSR_MAPISERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char MAPIMailAddr[65];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_MAPISERVICEREC) == 362, "ALRTUSR_MAPISERVICEREC is 362 bytes");

struct ALERTDB_API ALRTUSR_CCMAILSERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char UserName[261];
  char CCMAILMailAddr[65];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_CCMAILSERVICEREC) == 362, "ALRTUSR_CCMAILSERVICEREC is 362 bytes");

struct ALERTDB_API ALRTUSR_APAGESERVICEREC {
  _GUID KEPOID;
  _GUID SelServiceOID;  // the alphanumeric pager service the user selected
  _GUID USR_OID;
  char UserName[65];
  char Pin[29];
  std::uint32_t Enable;
};
static_assert(sizeof(ALRTUSR_APAGESERVICEREC) == 146, "ALRTUSR_APAGESERVICEREC is 146 bytes");

// The schema lists UserName before NPAGE_Phone; the record does not.
struct ALERTDB_API ALRTUSR_NPAGESERVICEREC {
  _GUID KEPOID;
  _GUID USR_OID;
  char NPAGE_Phone[26];
  char UserName[65];
  std::uint32_t Enable;
  std::uint32_t Delay;
};
static_assert(sizeof(ALRTUSR_NPAGESERVICEREC) == 131, "ALRTUSR_NPAGESERVICEREC is 131 bytes");

#pragma pack(pop)

// A user's records are enumerated on kUserKey (the USR_OID key) with the
// user's object ID; find-next goes on past them.

extern template class CAlertDBTable<ALRTUSR_MHSSERVICEREC>;
class ALERTDB_API CAlertUSR_MHSDB : public CAlertKindTable<CAlertUSR_MHSDB, ALRTUSR_MHSSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 15;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_SNMPSERVICEREC>;
class ALERTDB_API CAlertUSR_SNMPDB
    : public CAlertKindTable<CAlertUSR_SNMPDB, ALRTUSR_SNMPSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 21;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_MCISERVICEREC>;
class ALERTDB_API CAlertUSR_MCIDB : public CAlertKindTable<CAlertUSR_MCIDB, ALRTUSR_MCISERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 29;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_COMPUSERVICEREC>;
class ALERTDB_API CAlertUSR_COMPUDB
    : public CAlertKindTable<CAlertUSR_COMPUDB, ALRTUSR_COMPUSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 35;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_SMTPSERVICEREC>;
class ALERTDB_API CAlertUSR_SMTPDB
    : public CAlertKindTable<CAlertUSR_SMTPDB, ALRTUSR_SMTPSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 41;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_MAPISERVICEREC>;
class ALERTDB_API CAlertUSR_MAPIDB
    : public CAlertKindTable<CAlertUSR_MAPIDB, ALRTUSR_MAPISERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 47;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_CCMAILSERVICEREC>;
class ALERTDB_API CAlertUSR_CCMAILDB
    : public CAlertKindTable<CAlertUSR_CCMAILDB, ALRTUSR_CCMAILSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 53;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_APAGESERVICEREC>;
class ALERTDB_API CAlertUSR_APAGEDB
    : public CAlertKindTable<CAlertUSR_APAGEDB, ALRTUSR_APAGESERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 60;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTUSR_NPAGESERVICEREC>;
class ALERTDB_API CAlertUSR_NPAGEDB
    : public CAlertKindTable<CAlertUSR_NPAGEDB, ALRTUSR_NPAGESERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kUserKey = 67;
  using CAlertKindTable::CAlertKindTable;
};
