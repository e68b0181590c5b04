#include "config/modem_location_table.h"

#include "config/config_definition_internal.h"
#include "framework/alert_kind_table_impl_internal.h"

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(70, 16, 16, 0x311), AlertField(71, 16, 65, 0x1),  AlertField(0, 16, 12, 0x1),
    AlertField(0, 16, 12, 0x1),    AlertField(0, 16, 12, 0x1),   AlertField(0, 16, 4, 0x7),
    AlertField(0, 16, 12, 0x1),    AlertField(0, 16, 4, 0x7),    AlertField(0, 16, 2, 0x8),
    AlertField(0, 16, 4, 0x7),     AlertField(72, 0, 12, 0x30D),
};
constexpr const char *kFieldNames[] = {
    "KEPOID",         "LocationName", "AreaCode",    "LocalPrefix", "LongDistPrefix", "CallWaiting",
    "WaitdisableStr", "Tone",         "CountryCode", "CountryID",   "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertMODEM_LOCATIONDB::kDefinition =
    alertdb_internal::ConfigDefinition("ModemLocation", kTemplates, kFieldNames, 770);

template class CAlertDBTable<ALRTMODEM_LOCATION>;
template class CAlertKindTable<CAlertMODEM_LOCATIONDB, ALRTMODEM_LOCATION>;
