#include "recipients/user_address_tables.h"

#include <cstddef>

#include "framework/alert_kind_table_impl_internal.h"
#include "recipients/user_query_info.h"

namespace {

constexpr std::uint32_t kReplicationSize = 12;
constexpr std::uint32_t kReplicationFlags = 0x30D;

// The replication block that ends every table, keyed by the entry of class 9
// in the table's range of the list.
constexpr platform::FieldTemplate replication(std::uint32_t keyNumber) {
  return AlertField(keyNumber, 0, kReplicationSize, kReplicationFlags);
}

// The five mail-type tables share one layout; only their key numbers and the
// name of the address field differ.
struct MailTemplates {
  platform::FieldTemplate templates[6];
};
constexpr MailTemplates mailTemplates(std::uint32_t first) {
  return {{AlertField(first, 16, 16, 0x311), AlertField(first + 1, 16, 16, 0x311),
           AlertField(0, 10, 261, 0x1), AlertField(first + 2, 16, 65, 0x1),
           AlertField(first + 4, 16, 4, 0x7), replication(first + 5)}};
}

constexpr MailTemplates kMhs = mailTemplates(14);
constexpr MailTemplates kCompu = mailTemplates(34);
constexpr MailTemplates kSmtp = mailTemplates(40);
constexpr MailTemplates kMapi = mailTemplates(46);
constexpr MailTemplates kCcmail = mailTemplates(52);

constexpr const char *kMhsNames[] = {"KEPOID",      "USR_OID", "UserName",
                                     "MHSMailAddr", "Enable",  "Replication"};
constexpr const char *kCompuNames[] = {"KEPOID",        "USR_OID", "UserName",
                                       "COMPUMailAddr", "Enable",  "Replication"};
constexpr const char *kSmtpNames[] = {"KEPOID",       "USR_OID", "UserName",
                                      "SMTPMailAddr", "Enable",  "Replication"};
constexpr const char *kMapiNames[] = {"KEPOID",       "USR_OID", "UserName",
                                      "MAPIMailAddr", "Enable",  "Replication"};
constexpr const char *kCcmailNames[] = {"KEPOID",         "USR_OID", "UserName",
                                        "CCMAILMailAddr", "Enable",  "Replication"};

constexpr platform::FieldTemplate kSnmp[] = {
    AlertField(20, 16, 16, 0x311), AlertField(21, 16, 16, 0x311), AlertField(22, 10, 65, 0x1),
    AlertField(23, 16, 65, 0x1),   AlertField(24, 16, 29, 0x1),   AlertField(0, 16, 2049, 0x1),
    AlertField(26, 16, 4, 0x7),    AlertField(0, 16, 65, 0x1),    replication(27),
};
constexpr const char *kSnmpNames[] = {"KEPOID",       "USR_OID",      "UserName",
                                      "Machine_Name", "Machine_Addr", "Comment",
                                      "Enable",       "Comunity",     "Replication"};

constexpr platform::FieldTemplate kMci[] = {
    AlertField(28, 16, 16, 0x311), AlertField(29, 16, 16, 0x311),
    AlertField(0, 10, 261, 0x1),   AlertField(30, 16, 65, 0x1),
    AlertField(32, 16, 4, 0x7),    AlertField(0, 16, 4, 0x7),
    AlertField(0, 16, 65, 0x1),    replication(33),
};
constexpr const char *kMciNames[] = {"KEPOID", "USR_OID", "UserName", "MCIMailAddr",
                                     "Enable", "EMS",     "EMSAddr",  "Replication"};

constexpr platform::FieldTemplate kApage[] = {
    AlertField(58, 16, 16, 0x311),
    AlertField(61, 16, 16, 0x311),
    AlertField(60, 16, 16, 0x311),
    AlertField(62, 10, 65, 0x1),
    AlertField(63, 10, 29, 0x1),
    AlertField(64, 16, 4, 0x7),
    replication(65),
};
constexpr const char *kApageNames[] = {"KEPOID", "SelServiceOID", "USR_OID",    "UserName",
                                       "Pin",    "Enable",        "Replication"};

// Schema order; each template is bound where its member lies in the record.
constexpr platform::FieldTemplate kNpage[] = {
    AlertField(66, 16, 16, 0x311),
    AlertField(67, 16, 16, 0x311),
    AlertField(68, 10, 65, 0x1),
    AlertField(69, 10, 26, 0x1),
    AlertField(70, 16, 4, 0x7),
    AlertField(0, 3, 4, 0x7),
    replication(71),
};
constexpr const char *kNpageNames[] = {"KEPOID", "USR_OID", "UserName",   "NPAGE_Phone",
                                       "Enable", "Delay",   "Replication"};
constexpr std::uint32_t kNpageOffsets[] = {
    offsetof(ALRTUSR_NPAGESERVICEREC, KEPOID),   offsetof(ALRTUSR_NPAGESERVICEREC, USR_OID),
    offsetof(ALRTUSR_NPAGESERVICEREC, UserName), offsetof(ALRTUSR_NPAGESERVICEREC, NPAGE_Phone),
    offsetof(ALRTUSR_NPAGESERVICEREC, Enable),   offsetof(ALRTUSR_NPAGESERVICEREC, Delay),
};

// The file, the list and the rule that an add is not signalled are common
// to all nine.
template <std::size_t N>
constexpr AlertKindDefinition UserDefinition(const char *tableName,
                                             const platform::FieldTemplate (&templates)[N],
                                             const char *const (&fieldNames)[N],
                                             std::uint32_t titleStringId,
                                             const std::uint32_t *recordOffsets = nullptr) {
  return KindDefinition(tableName, templates, fieldNames, titleStringId, kUserQueryInfo,
                        kUserQueryInfoCount, kUserDataFile, false, recordOffsets);
}

}  // namespace

constinit const AlertKindDefinition CAlertUSR_MHSDB::kDefinition =
    UserDefinition("USR_MHS_Service", kMhs.templates, kMhsNames, 420);
constinit const AlertKindDefinition CAlertUSR_SNMPDB::kDefinition =
    UserDefinition("USR_SNMP_Service", kSnmp, kSnmpNames, 430);
constinit const AlertKindDefinition CAlertUSR_MCIDB::kDefinition =
    UserDefinition("USR_MCI_Service", kMci, kMciNames, 440);
constinit const AlertKindDefinition CAlertUSR_COMPUDB::kDefinition =
    UserDefinition("USR_COMPU_Service", kCompu.templates, kCompuNames, 470);
constinit const AlertKindDefinition CAlertUSR_SMTPDB::kDefinition =
    UserDefinition("USR_SMTP_Service", kSmtp.templates, kSmtpNames, 480);
constinit const AlertKindDefinition CAlertUSR_MAPIDB::kDefinition =
    UserDefinition("USR_MAPI_Service", kMapi.templates, kMapiNames, 490);
constinit const AlertKindDefinition CAlertUSR_CCMAILDB::kDefinition =
    UserDefinition("USR_CCMAIL_Service", kCcmail.templates, kCcmailNames, 500);
constinit const AlertKindDefinition CAlertUSR_APAGEDB::kDefinition =
    UserDefinition("USR_APAGE_Service", kApage, kApageNames, 510);
constinit const AlertKindDefinition CAlertUSR_NPAGEDB::kDefinition =
    UserDefinition("USR_NPAGE_Service", kNpage, kNpageNames, 530, kNpageOffsets);

template class CAlertDBTable<ALRTUSR_MHSSERVICEREC>;
template class CAlertDBTable<ALRTUSR_SNMPSERVICEREC>;
template class CAlertDBTable<ALRTUSR_MCISERVICEREC>;
template class CAlertDBTable<ALRTUSR_COMPUSERVICEREC>;
template class CAlertDBTable<ALRTUSR_SMTPSERVICEREC>;
template class CAlertDBTable<ALRTUSR_MAPISERVICEREC>;
template class CAlertDBTable<ALRTUSR_CCMAILSERVICEREC>;
template class CAlertDBTable<ALRTUSR_APAGESERVICEREC>;
template class CAlertDBTable<ALRTUSR_NPAGESERVICEREC>;

template class CAlertKindTable<CAlertUSR_MHSDB, ALRTUSR_MHSSERVICEREC>;
template class CAlertKindTable<CAlertUSR_SNMPDB, ALRTUSR_SNMPSERVICEREC>;
template class CAlertKindTable<CAlertUSR_MCIDB, ALRTUSR_MCISERVICEREC>;
template class CAlertKindTable<CAlertUSR_COMPUDB, ALRTUSR_COMPUSERVICEREC>;
template class CAlertKindTable<CAlertUSR_SMTPDB, ALRTUSR_SMTPSERVICEREC>;
template class CAlertKindTable<CAlertUSR_MAPIDB, ALRTUSR_MAPISERVICEREC>;
template class CAlertKindTable<CAlertUSR_CCMAILDB, ALRTUSR_CCMAILSERVICEREC>;
template class CAlertKindTable<CAlertUSR_APAGEDB, ALRTUSR_APAGESERVICEREC>;
template class CAlertKindTable<CAlertUSR_NPAGEDB, ALRTUSR_NPAGESERVICEREC>;
