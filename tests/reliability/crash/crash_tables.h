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

using Id = std::array<unsigned char, 16>;

inline Id idOf(const _GUID &guid) {
  Id id{};
  std::memcpy(id.data(), &guid, 16);
  return id;
}
inline _GUID guidOf(const Id &id) {
  _GUID guid;
  std::memcpy(&guid, id.data(), 16);
  return guid;
}
inline bool isZero(const Id &id) { return id == Id{}; }

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
};

#define CRASH_AT(rec, field) static_cast<int>(offsetof(rec, field))
#define CRASH_NUM(rec, field) \
  Number { CRASH_AT(rec, field), static_cast<int>(sizeof(rec::field)) }

inline const TableInfo &tableInfo(Table table) {
  static const TableInfo infos[kTableCount] = {
      {"ALRT_Server_Config", kConfigFile, sizeof(ALRT_SRV_CFGREC), {-1, -1, -1}, {}, -1, -1},
      {"SNMPTrapList",
       kConfigFile,
       sizeof(ALRTSERV_SNMPTRAP),
       {CRASH_AT(ALRTSERV_SNMPTRAP, ServerOID), -1, -1},
       {},
       -1,
       -1},
      {"AutoPingList",
       kConfigFile,
       sizeof(ALRTSERV_AUTOPING),
       {CRASH_AT(ALRTSERV_AUTOPING, ServerOID), -1, -1},
       {},
       -1,
       -1},
      {"ModemTable",
       kConfigFile,
       sizeof(ALRTSERV_MODEM),
       {CRASH_AT(ALRTSERV_MODEM, ServerOID), -1, -1},
       {},
       -1,
       -1},
      {"ServerInstService",
       kConfigFile,
       sizeof(ALRTSERV_INST_NTFY_SERVREC),
       {CRASH_AT(ALRTSERV_INST_NTFY_SERVREC, ServiceOID),
        CRASH_AT(ALRTSERV_INST_NTFY_SERVREC, ServerOID),
        CRASH_AT(ALRTSERV_INST_NTFY_SERVREC, ServiceSpecOID)},
       CRASH_NUM(ALRTSERV_INST_NTFY_SERVREC, BackupServer),
       -1,
       CRASH_AT(ALRTSERV_INST_NTFY_SERVREC, ServerOID)},
      {"ALRT_ExtAgent_Config", kConfigFile, sizeof(ALRT_EXTAGT_CFGREC), {-1, -1, -1}, {}, -1, -1},
      {"AGNT_SERV_Relation_",
       kConfigFile,
       sizeof(ALRTAGNT_SERV_RELREC),
       {CRASH_AT(ALRTAGNT_SERV_RELREC, AgentOID), CRASH_AT(ALRTAGNT_SERV_RELREC, ServerOID), -1},
       {},
       -1,
       CRASH_AT(ALRTAGNT_SERV_RELREC, AgentOID)},
      {"SERV_AGNT_REL_Service",
       kConfigFile,
       sizeof(ALRTSERV_AGNT_RELREC),
       {CRASH_AT(ALRTSERV_AGNT_RELREC, AgentOID), CRASH_AT(ALRTSERV_AGNT_RELREC, ServerOID), -1},
       {},
       -1,
       CRASH_AT(ALRTSERV_AGNT_RELREC, AgentOID)},
      {"ModemLocation", kConfigFile, sizeof(ALRTMODEM_LOCATION), {-1, -1, -1}, {}, -1, -1},
      {"APageServProvider",
       kProviderFile,
       sizeof(ALRTAPAGE_SERVICE_PROVIDER_REC),
       {-1, -1, -1},
       {},
       -1,
       -1},
      {"Notify_Services",
       kServiceFile,
       sizeof(ALRTNTFYSERV),
       {CRASH_AT(ALRTNTFYSERV, ServiceSpecific_KEPOID), -1, -1},
       CRASH_NUM(ALRTNTFYSERV, ServiceType),
       -1,
       -1},
      {"MHS_Service", kServiceFile, sizeof(ALRTMHSSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"SNMP_Service", kServiceFile, sizeof(ALRTSNMPSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"MCI_Service", kServiceFile, sizeof(ALRTMCISERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"COMPUS_Service", kServiceFile, sizeof(ALRTCOMPUSSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"SMTP_Service", kServiceFile, sizeof(ALRTSMTPSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"MAPI_Service", kServiceFile, sizeof(ALRTMAPISERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"CCMAIL_Service", kServiceFile, sizeof(ALRTCCMAILSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"WAVE_Service", kServiceFile, sizeof(ALRTWAVESERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"TTS_Service", kServiceFile, sizeof(ALRTTTSSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"PHONE_Service", kServiceFile, sizeof(ALRTPHONESERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"APAGE_Service", kServiceFile, sizeof(ALRTAPAGESERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"NPAGE_Service", kServiceFile, sizeof(ALRTNPAGESERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"GENPORT_Service", kServiceFile, sizeof(ALRTGENPORTSERVICEREC), {-1, -1, -1}, {}, -1, -1},
      {"BROADCAST_Service",
       kServiceFile,
       sizeof(ALRTBROADCASTSERVICEREC),
       {-1, -1, -1},
       {},
       -1,
       -1},
      {"EVENT_CLASS", kEventFile, sizeof(ALRTEVENT_CLASSREC), {-1, -1, -1}, {}, -1, -1},
      {"EVENT_RESP",
       kEventFile,
       sizeof(ALRTEVENT_RESPREC),
       {CRASH_AT(ALRTEVENT_RESPREC, EventClassOID), CRASH_AT(ALRTEVENT_RESPREC, ResponseOID), -1},
       {},
       -1,
       CRASH_AT(ALRTEVENT_RESPREC, EventClassOID)},
      {"EVENT_LOG",
       kLogFile,
       sizeof(ALRTEVENT_LOGREC),
       {CRASH_AT(ALRTEVENT_LOGREC, EventClass_OID), -1, -1},
       CRASH_NUM(ALRTEVENT_LOGREC, Ack),
       CRASH_AT(ALRTEVENT_LOGREC, Time),
       -1},
      {"AlertResp_Table",
       kResponseFile,
       sizeof(ALERTRESPREC),
       {CRASH_AT(ALERTRESPREC, UserOID), CRASH_AT(ALERTRESPREC, ServiceOID), -1},
       CRASH_NUM(ALERTRESPREC, Type),
       -1,
       -1},
      {"AlertResultResp_Table",
       kResponseFile,
       sizeof(ALERTRESPRESULTREC),
       {CRASH_AT(ALERTRESPRESULTREC, LogEntryOID), CRASH_AT(ALERTRESPRESULTREC, ResponseOID), -1},
       {},
       -1,
       -1},
      {"AlertUsr_Table", kUserFile, sizeof(ALERTUSRREC), {-1, -1, -1}, {}, -1, -1},
      {"UsrInst",
       kUserFile,
       sizeof(ALRTUSRINSTSERV),
       {CRASH_AT(ALRTUSRINSTSERV, UserOid), CRASH_AT(ALRTUSRINSTSERV, Service_KEPOID),
        CRASH_AT(ALRTUSRINSTSERV, ServicePerInfo_KEPOID)},
       CRASH_NUM(ALRTUSRINSTSERV, ServiceType),
       -1,
       CRASH_AT(ALRTUSRINSTSERV, UserOid)},
      {"USR_MHS_Service",
       kUserFile,
       sizeof(ALRTUSR_MHSSERVICEREC),
       {CRASH_AT(ALRTUSR_MHSSERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_SNMP_Service",
       kUserFile,
       sizeof(ALRTUSR_SNMPSERVICEREC),
       {CRASH_AT(ALRTUSR_SNMPSERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_MCI_Service",
       kUserFile,
       sizeof(ALRTUSR_MCISERVICEREC),
       {CRASH_AT(ALRTUSR_MCISERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_COMPU_Service",
       kUserFile,
       sizeof(ALRTUSR_COMPUSERVICEREC),
       {CRASH_AT(ALRTUSR_COMPUSERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_SMTP_Service",
       kUserFile,
       sizeof(ALRTUSR_SMTPSERVICEREC),
       {CRASH_AT(ALRTUSR_SMTPSERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_MAPI_Service",
       kUserFile,
       sizeof(ALRTUSR_MAPISERVICEREC),
       {CRASH_AT(ALRTUSR_MAPISERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_CCMAIL_Service",
       kUserFile,
       sizeof(ALRTUSR_CCMAILSERVICEREC),
       {CRASH_AT(ALRTUSR_CCMAILSERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_APAGE_Service",
       kUserFile,
       sizeof(ALRTUSR_APAGESERVICEREC),
       {CRASH_AT(ALRTUSR_APAGESERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"USR_NPAGE_Service",
       kUserFile,
       sizeof(ALRTUSR_NPAGESERVICEREC),
       {CRASH_AT(ALRTUSR_NPAGESERVICEREC, USR_OID), -1, -1},
       {},
       -1,
       -1},
      {"UserObj", kUserFile, sizeof(tagUSEROBJ), {-1, -1, -1}, {}, -1, -1},
  };
  return infos[table];
}

#undef CRASH_NUM
#undef CRASH_AT

inline bool tableByName(const std::string &name, Table *table) {
  for (int t = 0; t < kTableCount; ++t) {
    if (name == tableInfo(static_cast<Table>(t)).name) {
      *table = static_cast<Table>(t);
      return true;
    }
  }
  return false;
}

// Service types (catalogue numbering) and the tables that belong to them.
inline Table kindTableOfType(std::uint32_t type) {
  static const Table byType[17] = {
      kTableCount, kKindMhs,     kKindSnmp,   kKindMci,    kKindCompus,   kKindSmtp,
      kKindMapi,   kKindCcmail,  kKindWave,   kKindTts,    kKindPhone,    kKindApage,
      kKindNpage,  kKindGenport, kTableCount, kTableCount, kKindBroadcast};
  return type <= 16 ? byType[type] : kTableCount;
}
inline Table addressTableOfType(std::uint32_t type) {
  switch (type) {
    case 1:
      return kAddrMhs;
    case 2:
      return kAddrSnmp;
    case 3:
      return kAddrMci;
    case 4:
      return kAddrCompus;
    case 5:
      return kAddrSmtp;
    case 6:
      return kAddrMapi;
    case 7:
      return kAddrCcmail;
    case 11:
      return kAddrApage;
    case 12:
      return kAddrNpage;
    default:
      return kTableCount;
  }
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

// The service name an instance made by a user's service add carries.
inline const char *instanceServiceName(std::uint32_t type) {
  switch (type) {
    case 1:
      return "MHS";
    case 2:
      return "SNMP Trap";
    case 3:
      return "MCI Mail";
    case 4:
      return "CompuServe";
    case 5:
      return "Internet Mail";
    case 6:
      return "Microsoft Mail";
    case 7:
      return "CC:Mail";
    case 11:
      return "Alphanumeric Pager";
    case 12:
      return "Numeric Pager";
    default:
      return "";
  }
}

// A table object whose record store handle and object-ID key a test can
// reach: the handle to lock its file, the key to walk its records.
template <class T>
class Exposed : public T {
 public:
  KEPDB *handle() const { return this->m_hTable; }
  std::uint32_t idKey() const { return this->m_nIdKey; }
};

template <class R>
R recordTypeOf(const CAlertDBTable<R> &);
template <class T>
using RecordOf = decltype(recordTypeOf(std::declval<T &>()));

template <class T>
struct TableType {
  using type = T;
};

// Calls fn with TableType<C>, C the table class of t.
template <class Fn>
void withTableType(Table t, Fn &&fn) {
  switch (t) {
    case kServer:
      return fn(TableType<CAlert_SRV_CFGDB>{});
    case kTrap:
      return fn(TableType<CAlertSERV_TRAPListDB>{});
    case kPing:
      return fn(TableType<CAlertSERV_AUTOPINGDB>{});
    case kModem:
      return fn(TableType<CAlertSERV_MODEMDB>{});
    case kInstalled:
      return fn(TableType<CAlertSERV_INST_NTFY_SERVDB>{});
    case kAgent:
      return fn(TableType<CAlert_EXTAGT_CFGDB>{});
    case kAgentToServer:
      return fn(TableType<CAlertAGNT_SERV_RELDB>{});
    case kServerToAgent:
      return fn(TableType<CAlertSERV_AGNT_RELDB>{});
    case kLocation:
      return fn(TableType<CAlertMODEM_LOCATIONDB>{});
    case kProvider:
      return fn(TableType<CAlertAPAGE_SERVICE_PROVIDERDB>{});
    case kCatalogue:
      return fn(TableType<CAlertNtfyServDB>{});
    case kKindMhs:
      return fn(TableType<CAlertMHSNtfyServDB>{});
    case kKindSnmp:
      return fn(TableType<CAlertSNMPNtfyServDB>{});
    case kKindMci:
      return fn(TableType<CAlertMCINtfyServDB>{});
    case kKindCompus:
      return fn(TableType<CAlertCOMPUSNtfyServDB>{});
    case kKindSmtp:
      return fn(TableType<CAlertSMTPNtfyServDB>{});
    case kKindMapi:
      return fn(TableType<CAlertMAPINtfyServDB>{});
    case kKindCcmail:
      return fn(TableType<CAlertCCMAILNtfyServDB>{});
    case kKindWave:
      return fn(TableType<CAlertWAVENtfyServDB>{});
    case kKindTts:
      return fn(TableType<CAlertTTSNtfyServDB>{});
    case kKindPhone:
      return fn(TableType<CAlertPHONENtfyServDB>{});
    case kKindApage:
      return fn(TableType<CAlertAPAGENtfyServDB>{});
    case kKindNpage:
      return fn(TableType<CAlertNPAGENtfyServDB>{});
    case kKindGenport:
      return fn(TableType<CAlertGENPORTNtfyServDB>{});
    case kKindBroadcast:
      return fn(TableType<CAlertBROADCASTNtfyServDB>{});
    case kEventClass:
      return fn(TableType<CAlertEVENT_CLASSDB>{});
    case kLink:
      return fn(TableType<CAlertEVENT_RESPDB>{});
    case kLog:
      return fn(TableType<CAlertEVENT_LOGDB>{});
    case kResponse:
      return fn(TableType<CAlertRespDB>{});
    case kResult:
      return fn(TableType<CAlertRespResultsDB>{});
    case kUser:
      return fn(TableType<CAlertUsrDB>{});
    case kInstance:
      return fn(TableType<CAlertUsrInstServDB>{});
    case kAddrMhs:
      return fn(TableType<CAlertUSR_MHSDB>{});
    case kAddrSnmp:
      return fn(TableType<CAlertUSR_SNMPDB>{});
    case kAddrMci:
      return fn(TableType<CAlertUSR_MCIDB>{});
    case kAddrCompus:
      return fn(TableType<CAlertUSR_COMPUDB>{});
    case kAddrSmtp:
      return fn(TableType<CAlertUSR_SMTPDB>{});
    case kAddrMapi:
      return fn(TableType<CAlertUSR_MAPIDB>{});
    case kAddrCcmail:
      return fn(TableType<CAlertUSR_CCMAILDB>{});
    case kAddrApage:
      return fn(TableType<CAlertUSR_APAGEDB>{});
    case kAddrNpage:
      return fn(TableType<CAlertUSR_NPAGEDB>{});
    case kUserObject:
      return fn(TableType<CUsrDB>{});
    case kTableCount:
      break;
  }
}

// The response type bit that protects a response from deletion.
inline constexpr std::uint32_t kProtectedResponse = 0x4000;

}  // namespace crash
