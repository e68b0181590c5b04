#include "services/device_service_tables.h"

#include <cstddef>

#include "services/service_definition_internal.h"
#include "services/service_table_impl_internal.h"

using alertdb_internal::ServiceDefinition;

namespace {

constexpr platform::FieldTemplate kWave[] = {
    AlertField(62, 16, 16, 0x311), AlertField(0, 10, 261, 0x1),  AlertField(0, 20, 201, 0x1),
    AlertField(0, 8, 1020, 0x303), AlertField(65, 0, 12, 0x30D),
};
constexpr const char *kWaveNames[] = {"KEPOID", "WaveFile", "Target", "ParamList", "Replication"};

constexpr platform::FieldTemplate kTts[] = {
    AlertField(66, 16, 16, 0x311), AlertField(0, 10, 1025, 0x1), AlertField(0, 20, 201, 0x1),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 8, 261, 0x1),   AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 256, 0x1),    AlertField(0, 8, 36, 0x1),    AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 36, 0x1),     AlertField(68, 0, 12, 0x30D),
};
constexpr const char *kTtsNames[] = {"KEPOID",         "Text_msg",   "Target",      "ParamList",
                                     "ScriptFileName", "Baud",       "DataBit",     "StopBit",
                                     "Parity",         "InitStr",    "ModemSuffix", "HardwareType",
                                     "ModemPrefix",    "Replication"};

constexpr platform::FieldTemplate kPhone[] = {
    AlertField(69, 16, 16, 0x311), AlertField(0, 10, 26, 0x1),   AlertField(0, 30, 261, 0x1),
    AlertField(0, 20, 1025, 0x1),  AlertField(0, 20, 65, 0x1),   AlertField(0, 16, 16, 0x311),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 8, 261, 0x1),   AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 256, 0x1),    AlertField(0, 8, 36, 0x1),    AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 36, 0x1),     AlertField(75, 0, 12, 0x30D),
};
constexpr const char *kPhoneNames[] = {
    "KEPOID",    "Phone",          "WaveFile",     "TTSMsg",      "Modem_name", "ModemID",
    "ParamList", "ScriptFileName", "Baud",         "DataBit",     "StopBit",    "Parity",
    "InitStr",   "ModemSuffix",    "HardwareType", "ModemPrefix", "Replication"};

constexpr platform::FieldTemplate kApage[] = {
    AlertField(82, 16, 16, 0x311), AlertField(0, 10, 2049, 0x1), AlertField(0, 10, 257, 0x1),
    AlertField(0, 5, 4, 0x7),      AlertField(0, 10, 65, 0x1),   AlertField(0, 10, 26, 0x1),
    AlertField(88, 20, 65, 0x1),   AlertField(0, 16, 16, 0x311), AlertField(0, 8, 1020, 0x303),
    AlertField(0, 8, 261, 0x1),    AlertField(0, 5, 4, 0x107),   AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 256, 0x1),    AlertField(0, 8, 36, 0x1),    AlertField(0, 3, 4, 0x7),
    AlertField(0, 8, 36, 0x1),     AlertField(90, 0, 12, 0x30D),
};
constexpr const char *kApageNames[] = {
    "KEPOID",      "Loc_Descr",   "Msg",          "Msg_Len",     "ServiceProvider",
    "Phone",       "Modem_name",  "ModemID",      "ParamList",   "ScriptFileName",
    "ServiceType", "BaudRate",    "DataBit",      "StopBit",     "Parity",
    "InitStr",     "ModemSuffix", "HardwareType", "ModemPrefix", "Replication"};

constexpr platform::FieldTemplate kNpage[] = {
    AlertField(76, 16, 16, 0x311), AlertField(0, 10, 2049, 0x1), AlertField(0, 5, 4, 0x7),
    AlertField(79, 20, 65, 0x1),   AlertField(0, 16, 16, 0x311), AlertField(0, 8, 1020, 0x303),
    AlertField(0, 8, 261, 0x1),    AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 8, 256, 0x1),
    AlertField(0, 8, 36, 0x1),     AlertField(0, 3, 4, 0x7),     AlertField(0, 8, 36, 0x1),
    AlertField(81, 0, 12, 0x30D),
};
constexpr const char *kNpageNames[] = {
    "KEPOID",         "Msg",          "Delay",       "Modem_name", "ModemID", "ParamList",
    "ScriptFileName", "Baud",         "DataBit",     "StopBit",    "Parity",  "InitStr",
    "ModemSuffix",    "HardwareType", "ModemPrefix", "Replication"};

constexpr platform::FieldTemplate kGenport[] = {
    AlertField(91, 16, 16, 0x311), AlertField(0, 30, 1025, 0x1), AlertField(0, 8, 1020, 0x303),
    AlertField(0, 8, 261, 0x1),    AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 8, 256, 0x1),
    AlertField(0, 8, 36, 0x1),     AlertField(0, 3, 4, 0x7),     AlertField(0, 8, 36, 0x1),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 20, 65, 0x1),   AlertField(0, 16, 16, 0x311),
    AlertField(93, 0, 12, 0x20D),
};
constexpr const char *kGenportNames[] = {
    "KEPOID",       "Default_Message", "ParamList",       "ScriptFileName", "Baud",
    "DataBit",      "StopBit",         "Parity",          "InitStr",        "ModemSuffix",
    "HardwareType", "ModemPrefix",     "UserServiceFlag", "Modem_name",     "ModemID",
    "Replication"};
// The record's unbound bytes move every field after ScriptFileName along.
constexpr std::uint32_t kGenportOffsets[] = {
    offsetof(ALRTGENPORTSERVICEREC, KEPOID),
    offsetof(ALRTGENPORTSERVICEREC, Default_Message),
    offsetof(ALRTGENPORTSERVICEREC, ParamList),
    offsetof(ALRTGENPORTSERVICEREC, ScriptFileName),
    offsetof(ALRTGENPORTSERVICEREC, Baud),
    offsetof(ALRTGENPORTSERVICEREC, DataBit),
    offsetof(ALRTGENPORTSERVICEREC, StopBit),
    offsetof(ALRTGENPORTSERVICEREC, Parity),
    offsetof(ALRTGENPORTSERVICEREC, InitStr),
    offsetof(ALRTGENPORTSERVICEREC, ModemSuffix),
    offsetof(ALRTGENPORTSERVICEREC, HardwareType),
    offsetof(ALRTGENPORTSERVICEREC, ModemPrefix),
    offsetof(ALRTGENPORTSERVICEREC, UserServiceFlag),
    offsetof(ALRTGENPORTSERVICEREC, Modem_name),
    offsetof(ALRTGENPORTSERVICEREC, ModemID),
};

constexpr platform::FieldTemplate kBroadcast[] = {
    AlertField(94, 16, 16, 0x311), AlertField(97, 30, 4, 0x7),   AlertField(95, 10, 49, 0x1),
    AlertField(96, 0, 65, 0x1),    AlertField(0, 15, 1025, 0x1), AlertField(0, 8, 1020, 0x303),
    AlertField(98, 0, 12, 0x10D),
};
constexpr const char *kBroadcastNames[] = {"KEPOID",     "BroadcastAll",    "ServerName",
                                           "UserName",   "Default_Message", "ParamList",
                                           "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertWAVENtfyServDB::kDefinition =
    ServiceDefinition("WAVE_Service", kWave, kWaveNames, 320);
constinit const AlertKindDefinition CAlertTTSNtfyServDB::kDefinition =
    ServiceDefinition("TTS_Service", kTts, kTtsNames, 330);
constinit const AlertKindDefinition CAlertPHONENtfyServDB::kDefinition =
    ServiceDefinition("PHONE_Service", kPhone, kPhoneNames, 350);
constinit const AlertKindDefinition CAlertAPAGENtfyServDB::kDefinition =
    ServiceDefinition("APAGE_Service", kApage, kApageNames, 370);
constinit const AlertKindDefinition CAlertNPAGENtfyServDB::kDefinition =
    ServiceDefinition("NPAGE_Service", kNpage, kNpageNames, 400);
constinit const AlertKindDefinition CAlertGENPORTNtfyServDB::kDefinition =
    ServiceDefinition("GENPORT_Service", kGenport, kGenportNames, 810, kGenportOffsets);
constinit const AlertKindDefinition CAlertBROADCASTNtfyServDB::kDefinition =
    ServiceDefinition("BROADCAST_Service", kBroadcast, kBroadcastNames, 860);

template class CAlertDBTable<ALRTWAVESERVICEREC>;
template class CAlertDBTable<ALRTTTSSERVICEREC>;
template class CAlertDBTable<ALRTPHONESERVICEREC>;
template class CAlertDBTable<ALRTAPAGESERVICEREC>;
template class CAlertDBTable<ALRTNPAGESERVICEREC>;
template class CAlertDBTable<ALRTGENPORTSERVICEREC>;
template class CAlertDBTable<ALRTBROADCASTSERVICEREC>;

template class CAlertKindTable<CAlertWAVENtfyServDB, ALRTWAVESERVICEREC>;
template class CAlertKindTable<CAlertTTSNtfyServDB, ALRTTTSSERVICEREC>;
template class CAlertKindTable<CAlertPHONENtfyServDB, ALRTPHONESERVICEREC>;
template class CAlertKindTable<CAlertAPAGENtfyServDB, ALRTAPAGESERVICEREC>;
template class CAlertKindTable<CAlertNPAGENtfyServDB, ALRTNPAGESERVICEREC>;
template class CAlertKindTable<CAlertGENPORTNtfyServDB, ALRTGENPORTSERVICEREC>;
template class CAlertKindTable<CAlertBROADCASTNtfyServDB, ALRTBROADCASTSERVICEREC>;

template class CAlertServiceTable<CAlertAPAGENtfyServDB, ALRTAPAGESERVICEREC, CAlertUSR_APAGEDB>;
template class CAlertServiceTable<CAlertNPAGENtfyServDB, ALRTNPAGESERVICEREC, CAlertUSR_NPAGEDB>;
