// The settings of the services that deliver an alert as a message (service
// types 1 to 7), one table each in "AlServdb.dat". Passwords are stored
// protected and read back in clear; every change is signalled.
#pragma once

#include <cstdint>

#include "recipients/user_address_tables.h"
#include "services/service_table.h"

#pragma pack(push, 1)

struct ALERTDB_API ALRTMHSSERVICEREC {
  _GUID KEPOID;
  char Dir[261];
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[257];
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char Sender[257];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTMHSSERVICEREC) == 3958, "ALRTMHSSERVICEREC is 3958 bytes");

// Named after their content; the table's stored field names differ.
struct ALERTDB_API ALRTSNMPSERVICEREC {
  _GUID KEPOID;
  char Comment[2049];
  char Community[65];
  char Default_Message[1025];
  char Subject[257];
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTSNMPSERVICEREC) == 5456, "ALRTSNMPSERVICEREC is 5456 bytes");

struct ALERTDB_API ALRTMCISERVICEREC {
  _GUID KEPOID;
  char Phone[26];
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[257];
  char Modem_name[65];
  _GUID ModemID;
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  char Sender[257];
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTMCISERVICEREC) == 4413, "ALRTMCISERVICEREC is 4413 bytes");

struct ALERTDB_API ALRTCOMPUSSERVICEREC {
  _GUID KEPOID;
  char Phone[26];
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[41];
  char Modem_name[65];
  _GUID ModemID;
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  char Sender[257];
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTCOMPUSSERVICEREC) == 4197, "ALRTCOMPUSSERVICEREC is 4197 bytes");

struct ALERTDB_API ALRTSMTPSERVICEREC {
  _GUID KEPOID;
  char Server_addr[256];
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[257];
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char Sender[257];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTSMTPSERVICEREC) == 3953, "ALRTSMTPSERVICEREC is 3953 bytes");

struct ALERTDB_API ALRTMAPISERVICEREC {
  _GUID KEPOID;
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[257];
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char Sender[257];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTMAPISERVICEREC) == 3697, "ALRTMAPISERVICEREC is 3697 bytes");

struct ALERTDB_API ALRTCCMAILSERVICEREC {
  _GUID KEPOID;
  char Login[49];
  char Password[49];
  char Default_Message[1025];
  char Subject[257];
  std::uint32_t Priority;
  unsigned char ParamList[1020];
  char Sender[257];
  unsigned char SubjectParamList[1020];
};
static_assert(sizeof(ALRTCCMAILSERVICEREC) == 3697, "ALRTCCMAILSERVICEREC is 3697 bytes");

#pragma pack(pop)

// Each class is instantiated in the library; kServiceType is the catalogue's
// number for its kind.

extern template class CAlertDBTable<ALRTMHSSERVICEREC>;
class ALERTDB_API CAlertMHSNtfyServDB
    : public CAlertServiceTable<CAlertMHSNtfyServDB, ALRTMHSSERVICEREC, CAlertUSR_MHSDB,
                                &ALRTMHSSERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 1;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTSNMPSERVICEREC>;
class ALERTDB_API CAlertSNMPNtfyServDB
    : public CAlertServiceTable<CAlertSNMPNtfyServDB, ALRTSNMPSERVICEREC, CAlertUSR_SNMPDB> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 2;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTMCISERVICEREC>;
class ALERTDB_API CAlertMCINtfyServDB
    : public CAlertServiceTable<CAlertMCINtfyServDB, ALRTMCISERVICEREC, CAlertUSR_MCIDB,
                                &ALRTMCISERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 3;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTCOMPUSSERVICEREC>;
class ALERTDB_API CAlertCOMPUSNtfyServDB
    : public CAlertServiceTable<CAlertCOMPUSNtfyServDB, ALRTCOMPUSSERVICEREC, CAlertUSR_COMPUDB,
                                &ALRTCOMPUSSERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 4;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTSMTPSERVICEREC>;
class ALERTDB_API CAlertSMTPNtfyServDB
    : public CAlertServiceTable<CAlertSMTPNtfyServDB, ALRTSMTPSERVICEREC, CAlertUSR_SMTPDB,
                                &ALRTSMTPSERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 5;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTMAPISERVICEREC>;
class ALERTDB_API CAlertMAPINtfyServDB
    : public CAlertServiceTable<CAlertMAPINtfyServDB, ALRTMAPISERVICEREC, CAlertUSR_MAPIDB,
                                &ALRTMAPISERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 6;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTCCMAILSERVICEREC>;
class ALERTDB_API CAlertCCMAILNtfyServDB
    : public CAlertServiceTable<CAlertCCMAILNtfyServDB, ALRTCCMAILSERVICEREC, CAlertUSR_CCMAILDB,
                                &ALRTCCMAILSERVICEREC::Password> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 7;
  using CAlertServiceTable::CAlertServiceTable;
};
