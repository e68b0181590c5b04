// "ModemLocation": the dialing locations that modems point to.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTMODEM_LOCATION {
  _GUID KEPOID;
  char LocationName[65];
  char AreaCode[12];
  char LocalPrefix[12];
  char LongDistPrefix[12];
  std::uint32_t CallWaiting;
  char WaitdisableStr[12];
  std::uint32_t Tone;
  std::uint16_t CountryCode;
  std::uint32_t CountryID;
};
#pragma pack(pop)
static_assert(sizeof(ALRTMODEM_LOCATION) == 143, "ALRTMODEM_LOCATION is 143 bytes");

extern template class CAlertDBTable<ALRTMODEM_LOCATION>;
class ALERTDB_API CAlertMODEM_LOCATIONDB
    : public CAlertKindTable<CAlertMODEM_LOCATIONDB, ALRTMODEM_LOCATION> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kLocationNameKey = 71;
  using CAlertKindTable::CAlertKindTable;
};
