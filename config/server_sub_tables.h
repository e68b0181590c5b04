// The SNMP trap sources, auto-ping targets and modems of the alert servers,
// one table each in "AlCfgdb.dat"; every row names its server in
// "ServerOID". Records are stored and returned unchanged.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

#pragma pack(push, 1)

struct ALERTDB_API ALRTSERV_SNMPTRAP {
  _GUID KEPOID;
  _GUID ServerOID;
  char ServerAddr[201];
  char Comment[2049];
  std::uint32_t Enabled;
  _GUID EventClassOID;
  std::uint32_t TrapType;
  char TrapName[65];
  char TrapOID[2049];
  char Community[65];
  std::uint32_t Res1;
  std::uint32_t Res2;
};
static_assert(sizeof(ALRTSERV_SNMPTRAP) == 4493, "ALRTSERV_SNMPTRAP is 4493 bytes");

struct ALERTDB_API ALRTSERV_AUTOPING {
  _GUID KEPOID;
  _GUID ServerOID;
  char ServerAddr[201];
  char Comment[2049];
  std::uint32_t PingType;
  char ServerName[65];
  std::uint32_t Enable;
  _GUID EventClassOID;
  std::uint32_t PingFreq;
  std::uint32_t TimeOut;
  char Name[65];
  std::uint32_t Res1;
  std::uint32_t Res2;
};
static_assert(sizeof(ALRTSERV_AUTOPING) == 2452, "ALRTSERV_AUTOPING is 2452 bytes");

struct ALERTDB_API ALRTSERV_MODEM {
  _GUID KEPOID;
  _GUID ServerOID;
  char ServerName[65];
  char ModemName[65];
  char Comment[2049];
  std::uint32_t Enable;
  char InitString[256];
  char HangupString[36];
  char Prefix[36];
  char Suffix[36];
  char APagePrefix[36];
  std::uint32_t Baud;
  std::uint32_t Port;
  std::uint32_t HardwareType;
  char ESCString[36];
  _GUID LocationOID;  // a modem location
  _GUID ModemTypeOID;
  std::uint32_t Res1;
  std::uint32_t Res2;
};
static_assert(sizeof(ALRTSERV_MODEM) == 2703, "ALRTSERV_MODEM is 2703 bytes");

#pragma pack(pop)

extern template class CAlertDBTable<ALRTSERV_SNMPTRAP>;
class ALERTDB_API CAlertSERV_TRAPListDB
    : public CAlertKindTable<CAlertSERV_TRAPListDB, ALRTSERV_SNMPTRAP> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServerKey = 33;
  static constexpr std::uint32_t kTrapNameKey = 38;
  using CAlertKindTable::CAlertKindTable;
};

// "Name" (key 46) is a unique key: two targets of one name cannot be stored.
extern template class CAlertDBTable<ALRTSERV_AUTOPING>;
class ALERTDB_API CAlertSERV_AUTOPINGDB
    : public CAlertKindTable<CAlertSERV_AUTOPINGDB, ALRTSERV_AUTOPING> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServerKey = 42;
  static constexpr std::uint32_t kNameKey = 46;
  using CAlertKindTable::CAlertKindTable;
};

// "ModemName" (key 52) is a unique key.
extern template class CAlertDBTable<ALRTSERV_MODEM>;
class ALERTDB_API CAlertSERV_MODEMDB : public CAlertKindTable<CAlertSERV_MODEMDB, ALRTSERV_MODEM> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kModemNameKey = 52;
  static constexpr std::uint32_t kServerKey = 60;
  using CAlertKindTable::CAlertKindTable;
};
