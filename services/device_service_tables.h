// The settings of the services that reach people through a device (service
// types 8 to 13 and 16), one table each in "AlServdb.dat". Records are stored
// and returned unchanged; every change is signalled.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"
#include "recipients/user_address_tables.h"
#include "services/service_table.h"

#pragma pack(push, 1)

struct ALERTDB_API ALRTWAVESERVICEREC {
  _GUID KEPOID;
  char WaveFile[261];
  char Target[201];
  unsigned char ParamList[1020];
};
static_assert(sizeof(ALRTWAVESERVICEREC) == 1498, "ALRTWAVESERVICEREC is 1498 bytes");

struct ALERTDB_API ALRTTTSSERVICEREC {
  _GUID KEPOID;
  char Text_msg[1025];
  char Target[201];
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
};
static_assert(sizeof(ALRTTTSSERVICEREC) == 2871, "ALRTTTSSERVICEREC is 2871 bytes");

struct ALERTDB_API ALRTPHONESERVICEREC {
  _GUID KEPOID;
  char Phone[26];
  char WaveFile[261];
  char TTSMsg[1025];
  char Modem_name[65];
  _GUID ModemID;
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
};
static_assert(sizeof(ALRTPHONESERVICEREC) == 3038, "ALRTPHONESERVICEREC is 3038 bytes");

struct ALERTDB_API ALRTAPAGESERVICEREC {
  _GUID KEPOID;
  char Loc_Descr[2049];
  char Msg[257];
  std::uint32_t Msg_Len;  // the longest message the paging company accepts
  char ServiceProvider[65];
  char Phone[26];
  char Modem_name[65];
  _GUID ModemID;
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  std::uint32_t ServiceType;
  std::uint32_t BaudRate;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
};
static_assert(sizeof(ALRTAPAGESERVICEREC) == 4131, "ALRTAPAGESERVICEREC is 4131 bytes");

struct ALERTDB_API ALRTNPAGESERVICEREC {
  _GUID KEPOID;
  char Msg[2049];
  std::uint32_t Delay;
  char Modem_name[65];
  _GUID ModemID;
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
};
static_assert(sizeof(ALRTNPAGESERVICEREC) == 3779, "ALRTNPAGESERVICEREC is 3779 bytes");

struct ALERTDB_API ALRTGENPORTSERVICEREC {
  _GUID KEPOID;
  char Default_Message[1025];
  unsigned char ParamList[1020];
  char ScriptFileName[261];
  unsigned char Unbound[4];  // belongs to no field: neither stored nor read
  std::uint32_t Baud;
  std::uint32_t DataBit;
  std::uint32_t StopBit;
  std::uint32_t Parity;
  char InitStr[256];
  char ModemSuffix[36];
  std::uint32_t HardwareType;
  char ModemPrefix[36];
  std::uint32_t UserServiceFlag;
  char Modem_name[65];
  _GUID ModemID;
};
static_assert(sizeof(ALRTGENPORTSERVICEREC) == 2759, "ALRTGENPORTSERVICEREC is 2759 bytes");

struct ALERTDB_API ALRTBROADCASTSERVICEREC {
  _GUID KEPOID;
  std::uint32_t BroadcastAll;
  char ServerName[49];
  char UserName[65];
  char Default_Message[1025];
  unsigned char ParamList[1020];
};
static_assert(sizeof(ALRTBROADCASTSERVICEREC) == 2179, "ALRTBROADCASTSERVICEREC is 2179 bytes");

#pragma pack(pop)

// Each class is instantiated in the library; kServiceType is the catalogue's
// number for its kind. Only the two pager kinds have a per-user address table.

extern template class CAlertDBTable<ALRTWAVESERVICEREC>;
class ALERTDB_API CAlertWAVENtfyServDB
    : public CAlertKindTable<CAlertWAVENtfyServDB, ALRTWAVESERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 8;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTTTSSERVICEREC>;
class ALERTDB_API CAlertTTSNtfyServDB
    : public CAlertKindTable<CAlertTTSNtfyServDB, ALRTTTSSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 9;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTPHONESERVICEREC>;
class ALERTDB_API CAlertPHONENtfyServDB
    : public CAlertKindTable<CAlertPHONENtfyServDB, ALRTPHONESERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 10;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTAPAGESERVICEREC>;
class ALERTDB_API CAlertAPAGENtfyServDB
    : public CAlertServiceTable<CAlertAPAGENtfyServDB, ALRTAPAGESERVICEREC, CAlertUSR_APAGEDB> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 11;
  static constexpr std::uint32_t kModemNameKey = 88;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTNPAGESERVICEREC>;
class ALERTDB_API CAlertNPAGENtfyServDB
    : public CAlertServiceTable<CAlertNPAGENtfyServDB, ALRTNPAGESERVICEREC, CAlertUSR_NPAGEDB> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 12;
  static constexpr std::uint32_t kModemNameKey = 79;
  using CAlertServiceTable::CAlertServiceTable;
};

extern template class CAlertDBTable<ALRTGENPORTSERVICEREC>;
class ALERTDB_API CAlertGENPORTNtfyServDB
    : public CAlertKindTable<CAlertGENPORTNtfyServDB, ALRTGENPORTSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 13;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTBROADCASTSERVICEREC>;
class ALERTDB_API CAlertBROADCASTNtfyServDB
    : public CAlertKindTable<CAlertBROADCASTNtfyServDB, ALRTBROADCASTSERVICEREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceType = 16;
  static constexpr std::uint32_t kServerNameKey = 95;
  static constexpr std::uint32_t kUserNameKey = 96;
  static constexpr std::uint32_t kBroadcastAllKey = 97;
  using CAlertKindTable::CAlertKindTable;
};
