// The tables the crash writer works on, and what the writer and the test
// both compute of a record: a digest of everything after its object ID, the
// object IDs the cascades follow and the numbers they look at. The writer
// announces records by their digest; the test digests what it reads back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "alertdb.h"
#include "reliability/harness_tables.h"

namespace crash {

// The data files, in the order a batch locks and unlocks them.
enum DataFile : int {
  kConfigFile,
  kProviderFile,
  kServiceFile,
  kEventFile,
  kLogFile,
  kResponseFile,
  kUserFile,
  kDataFileCount
};
inline constexpr const char *kDataFileNames[kDataFileCount] = {
    "AlCfgdb.dat",  "APgeProv.dat", "AlServdb.dat", "AlEvntdb.dat",
    "KEPLogDB.dat", "AlRespDB.dat", "kepuser.dat"};

enum Table : int {
  kServer,
  kTrap,
  kPing,
  kModem,
  kInstalled,
  kAgent,
  kAgentToServer,
  kServerToAgent,
  kLocation,
  kProvider,
  kCatalogue,
  kKindMhs,
  kKindSnmp,
  kKindMci,
  kKindCompus,
  kKindSmtp,
  kKindMapi,
  kKindCcmail,
  kKindWave,
  kKindTts,
  kKindPhone,
  kKindApage,
  kKindNpage,
  kKindGenport,
  kKindBroadcast,
  kEventClass,
  kLink,
  kLog,
  kResponse,
  kResult,
  kUser,
  kInstance,
  kAddrMhs,
  kAddrSnmp,
  kAddrMci,
  kAddrCompus,
  kAddrSmtp,
  kAddrMapi,
  kAddrCcmail,
  kAddrApage,
  kAddrNpage,
  kUserObject,
  kTableCount
};

using harness::guidOf;
using harness::Id;
using harness::idOf;
using harness::isZero;

inline std::string idText(const Id &id) { return platform::GuidToString(guidOf(id)); }
inline bool parseId(const std::string &text, Id *id) {
  _GUID guid;
  if (!platform::GuidFromString(text.c_str(), &guid)) return false;
  *id = idOf(guid);
  return true;
}

// Object IDs the writer makes carry its slot in their last two bytes, so that
// two writers on one directory each know their own records.
inline constexpr unsigned char kSlotMark = 0xC7;
inline int slotOfId(const Id &id) { return id[14] == kSlotMark && id[15] < 2 ? id[15] : -1; }

struct Number {
  int offset = -1;
  int size = 0;
};

// The field an update rewrites: text, or a number when text is false.
struct Scribble {
  int offset = -1;
  int size = 0;
  bool text = false;
};

struct TableInfo {
  const char *name;
  DataFile file;
  std::size_t size;
  // Offsets of the object IDs the cascades follow; -1 for none.
  int refs[3];
  Number number;
  // Offset of an 8-byte key compared byte by byte (the log's time); -1 for none.
  int sortKey;
  // Offset of the object ID that tells whose record it is, for records whose
  // own ID the library makes; -1 when the record's own ID tells.
  int ownerRef;
  Scribble scribble;
};

// In the order of enum Table.
// clang-format off
#define AT(rec, field) static_cast<int>(offsetof(rec, field))
#define NUM(rec, field) Number{AT(rec, field), static_cast<int>(sizeof(rec::field))}
#define TEXT(rec, field) Scribble{AT(rec, field), static_cast<int>(sizeof(rec::field)), true}
#define INT(rec, field) Scribble{AT(rec, field), 4, false}
#define NO_REFS {-1, -1, -1}
#define REF(rec, field) {AT(rec, field), -1, -1}
#define PLAIN(name, file, rec, field) \
  {name, file, sizeof(rec), NO_REFS, {}, -1, -1, TEXT(rec, field)}
#define USR(name, rec, field) \
  {name, kUserFile, sizeof(rec), REF(rec, USR_OID), {}, -1, -1, TEXT(rec, field)}
inline const TableInfo kTableInfos[kTableCount] = {
    PLAIN("ALRT_Server_Config", kConfigFile, ALRT_SRV_CFGREC, Addr),
    {"SNMPTrapList", kConfigFile, sizeof(ALRTSERV_SNMPTRAP), REF(ALRTSERV_SNMPTRAP, ServerOID),
     {}, -1, -1, TEXT(ALRTSERV_SNMPTRAP, Comment)},
    {"AutoPingList", kConfigFile, sizeof(ALRTSERV_AUTOPING), REF(ALRTSERV_AUTOPING, ServerOID),
     {}, -1, -1, TEXT(ALRTSERV_AUTOPING, Comment)},
    {"ModemTable", kConfigFile, sizeof(ALRTSERV_MODEM), REF(ALRTSERV_MODEM, ServerOID),
     {}, -1, -1, TEXT(ALRTSERV_MODEM, Comment)},
    {"ServerInstService", kConfigFile, sizeof(ALRTSERV_INST_NTFY_SERVREC),
     {AT(ALRTSERV_INST_NTFY_SERVREC, ServiceOID), AT(ALRTSERV_INST_NTFY_SERVREC, ServerOID),
      AT(ALRTSERV_INST_NTFY_SERVREC, ServiceSpecOID)},
     NUM(ALRTSERV_INST_NTFY_SERVREC, BackupServer), -1, AT(ALRTSERV_INST_NTFY_SERVREC, ServerOID),
     TEXT(ALRTSERV_INST_NTFY_SERVREC, ServiceName)},
    PLAIN("ALRT_ExtAgent_Config", kConfigFile, ALRT_EXTAGT_CFGREC, Addr),
    {"AGNT_SERV_Relation_", kConfigFile, sizeof(ALRTAGNT_SERV_RELREC),
     {AT(ALRTAGNT_SERV_RELREC, AgentOID), AT(ALRTAGNT_SERV_RELREC, ServerOID), -1}, {}, -1,
     AT(ALRTAGNT_SERV_RELREC, AgentOID), {}},
    {"SERV_AGNT_REL_Service", kConfigFile, sizeof(ALRTSERV_AGNT_RELREC),
     {AT(ALRTSERV_AGNT_RELREC, AgentOID), AT(ALRTSERV_AGNT_RELREC, ServerOID), -1}, {}, -1,
     AT(ALRTSERV_AGNT_RELREC, AgentOID), {}},
    PLAIN("ModemLocation", kConfigFile, ALRTMODEM_LOCATION, AreaCode),
    PLAIN("APageServProvider", kProviderFile, ALRTAPAGE_SERVICE_PROVIDER_REC, City),
    {"Notify_Services", kServiceFile, sizeof(ALRTNTFYSERV),
     REF(ALRTNTFYSERV, ServiceSpecific_KEPOID),
     NUM(ALRTNTFYSERV, ServiceType), -1, -1, TEXT(ALRTNTFYSERV, Comment)},
    PLAIN("MHS_Service", kServiceFile, ALRTMHSSERVICEREC, Dir),
    PLAIN("SNMP_Service", kServiceFile, ALRTSNMPSERVICEREC, Comment),
    PLAIN("MCI_Service", kServiceFile, ALRTMCISERVICEREC, Phone),
    PLAIN("COMPUS_Service", kServiceFile, ALRTCOMPUSSERVICEREC, Phone),
    PLAIN("SMTP_Service", kServiceFile, ALRTSMTPSERVICEREC, Server_addr),
    PLAIN("MAPI_Service", kServiceFile, ALRTMAPISERVICEREC, Login),
    PLAIN("CCMAIL_Service", kServiceFile, ALRTCCMAILSERVICEREC, Login),
    PLAIN("WAVE_Service", kServiceFile, ALRTWAVESERVICEREC, WaveFile),
    PLAIN("TTS_Service", kServiceFile, ALRTTTSSERVICEREC, Text_msg),
    PLAIN("PHONE_Service", kServiceFile, ALRTPHONESERVICEREC, Phone),
    PLAIN("APAGE_Service", kServiceFile, ALRTAPAGESERVICEREC, Loc_Descr),
    PLAIN("NPAGE_Service", kServiceFile, ALRTNPAGESERVICEREC, Msg),
    PLAIN("GENPORT_Service", kServiceFile, ALRTGENPORTSERVICEREC, Default_Message),
    PLAIN("BROADCAST_Service", kServiceFile, ALRTBROADCASTSERVICEREC, Default_Message),
    PLAIN("EVENT_CLASS", kEventFile, ALRTEVENT_CLASSREC, Comment),
    {"EVENT_RESP", kEventFile, sizeof(ALRTEVENT_RESPREC),
     {AT(ALRTEVENT_RESPREC, EventClassOID), AT(ALRTEVENT_RESPREC, ResponseOID), -1}, {}, -1,
     AT(ALRTEVENT_RESPREC, EventClassOID), {}},
    {"EVENT_LOG", kLogFile, sizeof(ALRTEVENT_LOGREC), REF(ALRTEVENT_LOGREC, EventClass_OID),
     NUM(ALRTEVENT_LOGREC, Ack), AT(ALRTEVENT_LOGREC, Time), -1, TEXT(ALRTEVENT_LOGREC, EventText)},
    {"AlertResp_Table", kResponseFile, sizeof(ALERTRESPREC),
     {AT(ALERTRESPREC, UserOID), AT(ALERTRESPREC, ServiceOID), -1}, NUM(ALERTRESPREC, Type), -1, -1,
     TEXT(ALERTRESPREC, Description)},
    {"AlertResultResp_Table", kResponseFile, sizeof(ALERTRESPRESULTREC),
     {AT(ALERTRESPRESULTREC, LogEntryOID), AT(ALERTRESPRESULTREC, ResponseOID), -1}, {}, -1, -1,
     TEXT(ALERTRESPRESULTREC, ErrorText)},
    {"AlertUsr_Table", kUserFile, sizeof(ALERTUSRREC), NO_REFS, {}, -1, -1,
     INT(ALERTUSRREC, AlertRecp)},
    {"UsrInst", kUserFile, sizeof(ALRTUSRINSTSERV),
     {AT(ALRTUSRINSTSERV, UserOid), AT(ALRTUSRINSTSERV, Service_KEPOID),
      AT(ALRTUSRINSTSERV, ServicePerInfo_KEPOID)},
     NUM(ALRTUSRINSTSERV, ServiceType), -1, AT(ALRTUSRINSTSERV, UserOid),
     INT(ALRTUSRINSTSERV, Enable)},
    USR("USR_MHS_Service", ALRTUSR_MHSSERVICEREC, UserName),
    USR("USR_SNMP_Service", ALRTUSR_SNMPSERVICEREC, Comment),
    USR("USR_MCI_Service", ALRTUSR_MCISERVICEREC, EMSAddr),
    USR("USR_COMPU_Service", ALRTUSR_COMPUSERVICEREC, UserName),
    USR("USR_SMTP_Service", ALRTUSR_SMTPSERVICEREC, SMTPMailAddr),
    USR("USR_MAPI_Service", ALRTUSR_MAPISERVICEREC, UserName),
    USR("USR_CCMAIL_Service", ALRTUSR_CCMAILSERVICEREC, UserName),
    USR("USR_APAGE_Service", ALRTUSR_APAGESERVICEREC, Pin),
    USR("USR_NPAGE_Service", ALRTUSR_NPAGESERVICEREC, NPAGE_Phone),
    PLAIN("UserObj", kUserFile, tagUSEROBJ, Description),
};
// clang-format on

#undef USR
#undef PLAIN
#undef NO_REFS
#undef REF
#undef INT
#undef TEXT
#undef NUM
#undef AT

inline const TableInfo &tableInfo(Table table) { return kTableInfos[table]; }

inline bool tableByName(const std::string &name, Table *table) {
  for (int t = 0; t < kTableCount; ++t) {
    if (name == kTableInfos[t].name) {
      *table = static_cast<Table>(t);
      return true;
    }
  }
  return false;
}

// The table classes, in the order of enum Table.
using TableClasses = harness::TypeList<
    CAlert_SRV_CFGDB, CAlertSERV_TRAPListDB, CAlertSERV_AUTOPINGDB, CAlertSERV_MODEMDB,
    CAlertSERV_INST_NTFY_SERVDB, CAlert_EXTAGT_CFGDB, CAlertAGNT_SERV_RELDB, CAlertSERV_AGNT_RELDB,
    CAlertMODEM_LOCATIONDB, CAlertAPAGE_SERVICE_PROVIDERDB, CAlertNtfyServDB, CAlertMHSNtfyServDB,
    CAlertSNMPNtfyServDB, CAlertMCINtfyServDB, CAlertCOMPUSNtfyServDB, CAlertSMTPNtfyServDB,
    CAlertMAPINtfyServDB, CAlertCCMAILNtfyServDB, CAlertWAVENtfyServDB, CAlertTTSNtfyServDB,
    CAlertPHONENtfyServDB, CAlertAPAGENtfyServDB, CAlertNPAGENtfyServDB, CAlertGENPORTNtfyServDB,
    CAlertBROADCASTNtfyServDB, CAlertEVENT_CLASSDB, CAlertEVENT_RESPDB, CAlertEVENT_LOGDB,
    CAlertRespDB, CAlertRespResultsDB, CAlertUsrDB, CAlertUsrInstServDB, CAlertUSR_MHSDB,
    CAlertUSR_SNMPDB, CAlertUSR_MCIDB, CAlertUSR_COMPUDB, CAlertUSR_SMTPDB, CAlertUSR_MAPIDB,
    CAlertUSR_CCMAILDB, CAlertUSR_APAGEDB, CAlertUSR_NPAGEDB, CUsrDB>;
static_assert(std::tuple_size_v<TableClasses> == kTableCount);

// Service types (catalogue numbering) and the tables that belong to them.
inline Table kindTableOfType(std::uint32_t type) {
  static const Table byType[17] = {
      kTableCount, kKindMhs,     kKindSnmp,   kKindMci,    kKindCompus,   kKindSmtp,
      kKindMapi,   kKindCcmail,  kKindWave,   kKindTts,    kKindPhone,    kKindApage,
      kKindNpage,  kKindGenport, kTableCount, kTableCount, kKindBroadcast};
  return type <= 16 ? byType[type] : kTableCount;
}
inline Table addressTableOfType(std::uint32_t type) {
  for (int i = 0; i < harness::kAddressKindCount; ++i) {
    if (harness::kAddressKinds[i].type == type) return static_cast<Table>(kAddrMhs + i);
  }
  return kTableCount;
}

// What both sides compare of a record.
struct RecordDigest {
  std::uint64_t body = 0;  // of every byte after the object ID
  Id refs[3]{};
  std::uint32_t number = 0;
  std::uint64_t sort = 0;
  bool operator==(const RecordDigest &) const = default;
};

inline RecordDigest digestOf(Table table, const void *record) {
  const TableInfo &info = tableInfo(table);
  const auto *bytes = static_cast<const unsigned char *>(record);
  RecordDigest digest;
  digest.body = XXH3_64bits(bytes + 16, info.size - 16);
  for (int i = 0; i < 3; ++i) {
    if (info.refs[i] >= 0) std::memcpy(digest.refs[i].data(), bytes + info.refs[i], 16);
  }
  if (info.number.offset >= 0) {
    std::uint32_t n = 0;
    std::memcpy(&n, bytes + info.number.offset, static_cast<std::size_t>(info.number.size));
    digest.number = n;
  }
  if (info.sortKey >= 0) {
    for (int i = 0; i < 8; ++i) digest.sort = digest.sort << 8 | bytes[info.sortKey + i];
  }
  return digest;
}

inline Id idOfRecord(const void *record) {
  Id id{};
  std::memcpy(id.data(), record, 16);
  return id;
}

// The writer slot a record belongs to, -1 when it belongs to neither.
inline int slotOfRecord(Table table, const void *record) {
  const TableInfo &info = tableInfo(table);
  Id owner{};
  std::memcpy(owner.data(),
              static_cast<const unsigned char *>(record) + (info.ownerRef >= 0 ? info.ownerRef : 0),
              16);
  return slotOfId(owner);
}

using harness::Exposed;
using harness::RecordOf;
using harness::TableType;

// Calls fn with TableType<C>, C the table class of t.
template <class Fn>
void withTableType(Table t, Fn &&fn) {
  harness::withElement(TableClasses{}, static_cast<std::size_t>(t), fn);
}

// The response type bit that protects a response from deletion.
inline constexpr std::uint32_t kProtectedResponse = 0x4000;

}  // namespace crash
