#include "services/messaging_service_tables.h"

#include "services/service_definition_internal.h"
#include "services/service_table_impl_internal.h"

using alertdb_internal::ServiceDefinition;

namespace {

constexpr platform::FieldTemplate kMhs[] = {
    AlertField(12, 16, 16, 0x311), AlertField(0, 16, 261, 0x1),   AlertField(0, 10, 49, 0x1),
    AlertField(0, 0, 49, 0x301),   AlertField(0, 30, 1025, 0x1),  AlertField(0, 20, 257, 0x1),
    AlertField(0, 8, 4, 0x7),      AlertField(0, 8, 1020, 0x303), AlertField(0, 16, 257, 0x1),
    AlertField(0, 8, 1020, 0x303), AlertField(18, 0, 12, 0x30D),
};
constexpr const char *kMhsNames[] = {
    "KEPOID",   "Dir",       "Login",  "Password",         "Default_Message", "Subject",
    "Priority", "ParamList", "Sender", "SubjectParamList", "Replication"};

// The stored names are not those of the record members they hold: the
// comment is "Dir", the community "Login", and so on; they are the schema.
constexpr platform::FieldTemplate kSnmp[] = {
    AlertField(19, 16, 16, 0x311), AlertField(0, 16, 2049, 0x1),  AlertField(0, 10, 65, 0x1),
    AlertField(0, 30, 1025, 0x1),  AlertField(0, 20, 257, 0x1),   AlertField(0, 8, 4, 0x7),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 8, 1020, 0x303), AlertField(24, 0, 12, 0x30D),
};
constexpr const char *kSnmpNames[] = {"KEPOID",          "Dir",     "Login",    "Password",
                                      "Default_Message", "Subject", "Priority", "ParamList",
                                      "SubjectParamList"};

// The dial-up mail services; COMPUS differs from MCI in three attributes.
constexpr platform::FieldTemplate kMci[] = {
    AlertField(25, 16, 16, 0x311), AlertField(0, 10, 26, 0x1),   AlertField(0, 10, 49, 0x1),
    AlertField(0, 0, 49, 0x1),     AlertField(0, 30, 1025, 0x1), AlertField(0, 20, 257, 0x1),
    AlertField(0, 20, 65, 0x1),    AlertField(0, 16, 16, 0x311), AlertField(0, 8, 4, 0x7),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 8, 261, 0x1),   AlertField(0, 10, 257, 0x1),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 8, 256, 0x1),   AlertField(0, 8, 36, 0x1),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 8, 36, 0x1),    AlertField(0, 8, 1020, 0x303),
    AlertField(33, 0, 12, 0x30D),
};
constexpr platform::FieldTemplate kCompus[] = {
    AlertField(34, 16, 16, 0x311), AlertField(0, 10, 26, 0x1),   AlertField(0, 10, 49, 0x1),
    AlertField(0, 0, 49, 0x1),     AlertField(0, 30, 1025, 0x1), AlertField(0, 20, 41, 0x1),
    AlertField(0, 20, 65, 0x1),    AlertField(0, 16, 16, 0x311), AlertField(0, 8, 4, 0x7),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 8, 261, 0x1),   AlertField(0, 30, 257, 0x1),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 3, 4, 0x7),     AlertField(0, 3, 4, 0x7),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 8, 256, 0x1),   AlertField(0, 8, 36, 0x1),
    AlertField(0, 3, 4, 0x7),      AlertField(0, 8, 36, 0x1),    AlertField(0, 8, 1020, 0x303),
    AlertField(42, 0, 12, 0x20D),
};
constexpr const char *kDialUpNames[] = {
    "KEPOID",           "Phone",      "Login",       "Password",     "Default_Message",
    "Subject",          "Modem_name", "ModemID",     "Priority",     "ParamList",
    "ScriptFileName",   "Sender",     "Baud",        "DataBit",      "StopBit",
    "Parity",           "InitStr",    "ModemSuffix", "HardwareType", "ModemPrefix",
    "SubjectParamList", "Replication"};

constexpr platform::FieldTemplate kSmtp[] = {
    AlertField(43, 16, 16, 0x311), AlertField(0, 15, 256, 0x1),   AlertField(0, 10, 49, 0x1),
    AlertField(0, 0, 49, 0x1),     AlertField(0, 30, 1025, 0x1),  AlertField(0, 20, 257, 0x1),
    AlertField(0, 8, 4, 0x7),      AlertField(0, 8, 1020, 0x303), AlertField(0, 20, 257, 0x1),
    AlertField(0, 8, 1020, 0x303), AlertField(49, 0, 12, 0x20D),
};
constexpr const char *kSmtpNames[] = {
    "KEPOID",   "Server_addr", "Login",  "Password",         "Default_Message", "Subject",
    "Priority", "ParamList",   "Sender", "SubjectParamList", "Replication"};

// MAPI and cc:Mail share their fields; the replication flags differ.
constexpr platform::FieldTemplate kMapi[] = {
    AlertField(50, 16, 16, 0x311), AlertField(0, 10, 49, 0x1),  AlertField(0, 0, 49, 0x301),
    AlertField(0, 30, 1025, 0x1),  AlertField(0, 20, 257, 0x1), AlertField(0, 8, 4, 0x7),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 20, 257, 0x1), AlertField(0, 8, 1020, 0x303),
    AlertField(55, 0, 12, 0x20D),
};
constexpr platform::FieldTemplate kCcmail[] = {
    AlertField(56, 16, 16, 0x311), AlertField(0, 10, 49, 0x1),  AlertField(0, 0, 49, 0x301),
    AlertField(0, 30, 1025, 0x1),  AlertField(0, 20, 257, 0x1), AlertField(0, 8, 4, 0x7),
    AlertField(0, 8, 1020, 0x303), AlertField(0, 20, 257, 0x1), AlertField(0, 8, 1020, 0x303),
    AlertField(61, 0, 12, 0x30D),
};
constexpr const char *kOfficeMailNames[] = {
    "KEPOID",   "Login",     "Password", "Default_Message",  "Subject",
    "Priority", "ParamList", "Sender",   "SubjectParamList", "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertMHSNtfyServDB::kDefinition =
    ServiceDefinition("MHS_Service", kMhs, kMhsNames, 170);
constinit const AlertKindDefinition CAlertSNMPNtfyServDB::kDefinition =
    ServiceDefinition("SNMP_Service", kSnmp, kSnmpNames, 190);
constinit const AlertKindDefinition CAlertMCINtfyServDB::kDefinition =
    ServiceDefinition("MCI_Service", kMci, kDialUpNames, 210);
constinit const AlertKindDefinition CAlertCOMPUSNtfyServDB::kDefinition =
    ServiceDefinition("COMPUS_Service", kCompus, kDialUpNames, 240);
constinit const AlertKindDefinition CAlertSMTPNtfyServDB::kDefinition =
    ServiceDefinition("SMTP_Service", kSmtp, kSmtpNames, 270);
constinit const AlertKindDefinition CAlertMAPINtfyServDB::kDefinition =
    ServiceDefinition("MAPI_Service", kMapi, kOfficeMailNames, 289);
constinit const AlertKindDefinition CAlertCCMAILNtfyServDB::kDefinition =
    ServiceDefinition("CCMAIL_Service", kCcmail, kOfficeMailNames, 300);

template class CAlertDBTable<ALRTMHSSERVICEREC>;
template class CAlertDBTable<ALRTSNMPSERVICEREC>;
template class CAlertDBTable<ALRTMCISERVICEREC>;
template class CAlertDBTable<ALRTCOMPUSSERVICEREC>;
template class CAlertDBTable<ALRTSMTPSERVICEREC>;
template class CAlertDBTable<ALRTMAPISERVICEREC>;
template class CAlertDBTable<ALRTCCMAILSERVICEREC>;

template class CAlertKindTable<CAlertMHSNtfyServDB, ALRTMHSSERVICEREC>;
template class CAlertKindTable<CAlertSNMPNtfyServDB, ALRTSNMPSERVICEREC>;
template class CAlertKindTable<CAlertMCINtfyServDB, ALRTMCISERVICEREC>;
template class CAlertKindTable<CAlertCOMPUSNtfyServDB, ALRTCOMPUSSERVICEREC>;
template class CAlertKindTable<CAlertSMTPNtfyServDB, ALRTSMTPSERVICEREC>;
template class CAlertKindTable<CAlertMAPINtfyServDB, ALRTMAPISERVICEREC>;
template class CAlertKindTable<CAlertCCMAILNtfyServDB, ALRTCCMAILSERVICEREC>;

template class CAlertServiceTable<CAlertMHSNtfyServDB, ALRTMHSSERVICEREC, CAlertUSR_MHSDB,
                                  &ALRTMHSSERVICEREC::Password>;
template class CAlertServiceTable<CAlertSNMPNtfyServDB, ALRTSNMPSERVICEREC, CAlertUSR_SNMPDB>;
template class CAlertServiceTable<CAlertMCINtfyServDB, ALRTMCISERVICEREC, CAlertUSR_MCIDB,
                                  &ALRTMCISERVICEREC::Password>;
template class CAlertServiceTable<CAlertCOMPUSNtfyServDB, ALRTCOMPUSSERVICEREC, CAlertUSR_COMPUDB,
                                  &ALRTCOMPUSSERVICEREC::Password>;
template class CAlertServiceTable<CAlertSMTPNtfyServDB, ALRTSMTPSERVICEREC, CAlertUSR_SMTPDB,
                                  &ALRTSMTPSERVICEREC::Password>;
template class CAlertServiceTable<CAlertMAPINtfyServDB, ALRTMAPISERVICEREC, CAlertUSR_MAPIDB,
                                  &ALRTMAPISERVICEREC::Password>;
template class CAlertServiceTable<CAlertCCMAILNtfyServDB, ALRTCCMAILSERVICEREC, CAlertUSR_CCMAILDB,
                                  &ALRTCCMAILSERVICEREC::Password>;
