#include "config/server_sub_tables.h"

#include "config/config_definition_internal.h"
#include "framework/alert_kind_table_impl_internal.h"

using alertdb_internal::ConfigDefinition;

namespace {

constexpr platform::FieldTemplate kTrap[] = {
    AlertField(32, 16, 16, 0x311), AlertField(33, 16, 16, 0x311), AlertField(34, 16, 201, 0x1),
    AlertField(0, 16, 2049, 0x1),  AlertField(35, 16, 4, 0x7),    AlertField(36, 16, 16, 0x311),
    AlertField(37, 16, 4, 0x7),    AlertField(38, 16, 65, 0x1),   AlertField(0, 16, 2049, 0x1),
    AlertField(0, 16, 65, 0x1),    AlertField(0, 16, 4, 0x307),   AlertField(0, 16, 4, 0x307),
    AlertField(40, 0, 12, 0x30D),
};
constexpr const char *kTrapNames[] = {
    "KEPOID",   "ServerOID", "ServerAddr", "Comment", "Enabled", "EventClassOID", "TrapType",
    "TrapName", "TrapOID",   "Community",  "Res1",    "Res2",    "Replication"};

constexpr platform::FieldTemplate kAutoPing[] = {
    AlertField(41, 16, 16, 0x311), AlertField(42, 16, 16, 0x311), AlertField(43, 16, 201, 0x1),
    AlertField(0, 16, 2049, 0x1),  AlertField(0, 16, 4, 0x307),   AlertField(50, 16, 65, 0x1),
    AlertField(44, 16, 4, 0x7),    AlertField(45, 16, 16, 0x311), AlertField(47, 16, 4, 0x7),
    AlertField(48, 16, 4, 0x7),    AlertField(46, 16, 65, 0x1),   AlertField(0, 16, 4, 0x307),
    AlertField(0, 16, 4, 0x307),   AlertField(49, 0, 12, 0x30D),
};
constexpr const char *kAutoPingNames[] = {
    "KEPOID",        "ServerOID", "ServerAddr", "Comment", "PingType", "ServerName", "Enable",
    "EventClassOID", "PingFreq",  "TimeOut",    "Name",    "Res1",     "Res2",       "Replication"};

constexpr platform::FieldTemplate kModem[] = {
    AlertField(51, 16, 16, 0x311), AlertField(60, 16, 16, 0x311), AlertField(59, 16, 65, 0x1),
    AlertField(52, 16, 65, 0x1),   AlertField(0, 16, 2049, 0x1),  AlertField(63, 16, 4, 0x7),
    AlertField(0, 16, 256, 0x1),   AlertField(0, 16, 36, 0x1),    AlertField(0, 16, 36, 0x1),
    AlertField(0, 16, 36, 0x1),    AlertField(0, 16, 36, 0x1),    AlertField(0, 16, 4, 0x7),
    AlertField(0, 16, 4, 0x7),     AlertField(61, 16, 4, 0x7),    AlertField(0, 16, 36, 0x1),
    AlertField(0, 16, 16, 0x311),  AlertField(0, 16, 16, 0x311),  AlertField(0, 16, 4, 0x7),
    AlertField(0, 16, 4, 0x7),     AlertField(64, 0, 12, 0x30D),
};
constexpr const char *kModemNames[] = {
    "KEPOID",      "ServerOID",    "ServerName",   "ModemName",    "Comment",
    "Enable",      "InitString",   "HangupString", "Prefix",       "Suffix",
    "APagePrefix", "Baud",         "Port",         "HardwareType", "ESCString",
    "LocationOID", "ModemTypeOID", "Res1",         "Res2",         "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertSERV_TRAPListDB::kDefinition =
    ConfigDefinition("SNMPTrapList", kTrap, kTrapNames, 670);
constinit const AlertKindDefinition CAlertSERV_AUTOPINGDB::kDefinition =
    ConfigDefinition("AutoPingList", kAutoPing, kAutoPingNames, 690);
constinit const AlertKindDefinition CAlertSERV_MODEMDB::kDefinition =
    ConfigDefinition("ModemTable", kModem, kModemNames, 710);

template class CAlertDBTable<ALRTSERV_SNMPTRAP>;
template class CAlertDBTable<ALRTSERV_AUTOPING>;
template class CAlertDBTable<ALRTSERV_MODEM>;

template class CAlertKindTable<CAlertSERV_TRAPListDB, ALRTSERV_SNMPTRAP>;
template class CAlertKindTable<CAlertSERV_AUTOPINGDB, ALRTSERV_AUTOPING>;
template class CAlertKindTable<CAlertSERV_MODEMDB, ALRTSERV_MODEM>;
