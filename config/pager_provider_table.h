// "APageServProvider": the alphanumeric pager service providers with their
// dial-in numbers and line settings, in a data file of their own.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTAPAGE_SERVICE_PROVIDER_REC {
  _GUID KEPOID;
  char CompanyName[65];  // the field "Company Name"
  char State[65];
  char City[65];
  char AreaCode[12];
  char PhoneNum[26];
  std::uint32_t baud;
  std::uint32_t parity;
  std::uint32_t databit;
  std::uint32_t stopbit;
  std::uint32_t maxchar;
};
#pragma pack(pop)
static_assert(sizeof(ALRTAPAGE_SERVICE_PROVIDER_REC) == 269,
              "ALRTAPAGE_SERVICE_PROVIDER_REC is 269 bytes");

extern template class CAlertDBTable<ALRTAPAGE_SERVICE_PROVIDER_REC>;
class ALERTDB_API CAlertAPAGE_SERVICE_PROVIDERDB
    : public CAlertKindTable<CAlertAPAGE_SERVICE_PROVIDERDB, ALRTAPAGE_SERVICE_PROVIDER_REC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kCompanyNameKey = 74;
  static constexpr std::uint32_t kCityKey = 75;
  static constexpr std::uint32_t kStateKey = 76;
  using CAlertKindTable::CAlertKindTable;
};
