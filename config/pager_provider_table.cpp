#include "config/pager_provider_table.h"

#include "config/config_definition_internal.h"
#include "framework/alert_kind_table_impl_internal.h"

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(73, 16, 16, 0x311), AlertField(74, 16, 65, 0x1), AlertField(76, 16, 65, 0x1),
    AlertField(75, 16, 65, 0x1),   AlertField(0, 16, 12, 0x1),  AlertField(0, 16, 26, 0x1),
    AlertField(0, 16, 4, 0x7),     AlertField(0, 16, 4, 0x7),   AlertField(0, 16, 4, 0x7),
    AlertField(0, 16, 4, 0x7),     AlertField(0, 16, 4, 0x7),   AlertField(77, 0, 12, 0x30D),
};
constexpr const char *kFieldNames[] = {"KEPOID",   "Company Name", "State",   "City",
                                       "AreaCode", "PhoneNum",     "baud",    "parity",
                                       "databit",  "stopbit",      "maxchar", "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertAPAGE_SERVICE_PROVIDERDB::kDefinition =
    alertdb_internal::ConfigDefinition("APageServProvider", kTemplates, kFieldNames, 830,
                                       "APgeProv.dat");

template class CAlertDBTable<ALRTAPAGE_SERVICE_PROVIDER_REC>;
template class CAlertKindTable<CAlertAPAGE_SERVICE_PROVIDERDB, ALRTAPAGE_SERVICE_PROVIDER_REC>;
