// Every table of the alerting data as the reliability harnesses see it: its
// class, data file, the object IDs the cascades follow and the number they
// look at; and what a harness computes of a record: a digest of everything
// after its object ID with those references and numbers.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "alertdb.h"
#include "reliability/harness_tables.h"

namespace harness {

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

inline std::string idText(const Id &id) { return platform::GuidToString(guidOf(id)); }
inline bool parseId(const std::string &text, Id *id) {
  _GUID guid;
  if (!platform::GuidFromString(text.c_str(), &guid)) return false;
  *id = idOf(guid);
  return true;
}

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
using TableClasses = TypeList<
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
  for (int i = 0; i < kAddressKindCount; ++i) {
    if (kAddressKinds[i].type == type) return static_cast<Table>(kAddrMhs + i);
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

// Calls fn with TableType<C>, C the table class of t.
template <class Fn>
void withTableType(Table t, Fn &&fn) {
  withElement(TableClasses{}, static_cast<std::size_t>(t), fn);
}

// The table through which a harness locks each data file; the handles of one
// thread on a file share its lock.
inline constexpr Table kLockedThrough[kDataFileCount] = {kServer,    kProvider, kCatalogue, kEventClass,
                                                         kLog,       kResponse, kUser};

template <class... T>
std::tuple<Exposed<T>...> exposedOf(std::tuple<TableType<T>...>);

// One object of every table class, reached by kind.
class Tables {
 public:
  template <Table t>
  auto &get() {
    return std::get<t>(all_);
  }
  // Calls fn with the table object of t.
  template <class Fn>
  void with(Table t, Fn &&fn) {
    withElement(all_, static_cast<std::size_t>(t), fn);
  }
  // Opens the tables of `which` with `open` (DBOpen when none); the first
  // failure's status, else 0.
  template <class Open>
  std::uint32_t open(std::span<const Table> which, Open open) {
    std::uint32_t first = 0;
    for (Table t : which) with(t, [&](auto &table) { first = first ? first : open(table); });
    return first;
  }
  std::uint32_t openAll() {
    std::uint32_t first = 0;
    for (int t = 0; t < kTableCount; ++t)
      with(static_cast<Table>(t), [&](auto &table) { first = first ? first : table.DBOpen(); });
    return first;
  }
  KEPDB *lockHandle(DataFile f) {
    KEPDB *handle = nullptr;
    with(kLockedThrough[f], [&](auto &table) { handle = table.handle(); });
    return handle;
  }

 private:
  decltype(exposedOf(TableClasses{})) all_;
};

// Walks a table in the order of `key` from the records whose key starts with
// `size` bytes of `value` (all of them for 0) and hands each to `visit`
// until it returns false; the status that ended the walk (ALRT_E_NOTFOUND at
// the end, 0 when `visit` stopped it).
template <class TableObject, class Record, class Visit>
std::uint32_t walk(TableObject &table, std::uint32_t key, const Id *value, Record &record,
                   Visit visit) {
  Id start = value ? *value : Id{};
  std::uint32_t status =
      table.DBAlertRecFindFirst(key, value ? 16 : 0, value ? start.data() : nullptr, &record);
  for (; status == 0; status = table.DBAlertRecFindNext(&record)) {
    if (!visit(record)) return 0;
  }
  return status;
}

// Hands every record of table t to visit(id, record), in the order of the
// object-ID key, each read again by its ID through a second table object:
// both must succeed and agree. Empty, or what went wrong.
template <class Visit>
std::string readRecords(Table t, Visit visit) {
  std::string error;
  withTableType(t, [&](auto type) {
    using T = typename decltype(type)::type;
    using R = RecordOf<T>;
    Exposed<T> walker;
    T reader;
    std::uint32_t status = walker.DBOpen();
    if (status == 0) status = reader.DBOpen();
    if (status != 0) {
      error = std::string(tableInfo(t).name) + " does not open: " + AlertDBStatusName(status);
      return;
    }
    auto walked = std::make_unique<R>();
    auto read = std::make_unique<R>();
    std::string what;
    status = walk(walker, walker.idKey(), nullptr, *walked, [&](const R &) {
      Id id = idOfRecord(walked.get());
      what = std::string(tableInfo(t).name) + " " + idText(id);
      std::memset(static_cast<void *>(read.get()), 0, sizeof(R));
      _GUID guid = guidOf(id);
      if (std::uint32_t r = reader.DBAlertRecRetrieve(&guid, read.get())) {
        error = what + " was walked to but does not read: " + AlertDBStatusName(r);
        return false;
      }
      if (std::memcmp(walked.get(), read.get(), sizeof(R)) != 0) {
        error = what + " reads otherwise by its ID than in the walk";
        return false;
      }
      visit(id, static_cast<const void *>(read.get()));
      return true;
    });
    if (error.empty() && status != ALRT_E_NOTFOUND)
      error = std::string("the walk of ") + tableInfo(t).name + " ended with " +
              AlertDBStatusName(status);
  });
  return error;
}

// Rewrites the field an update changes (TableInfo::scribble): `text`, cut to
// the field, or `number`.
inline void scribble(Table t, void *record, const std::string &text, std::uint32_t number) {
  const Scribble &s = tableInfo(t).scribble;
  if (s.offset < 0) return;
  unsigned char *field = static_cast<unsigned char *>(record) + s.offset;
  if (!s.text) {
    std::memcpy(field, &number, 4);
    return;
  }
  std::memset(field, 0, static_cast<std::size_t>(s.size));
  std::memcpy(field, text.data(), std::min(text.size(), static_cast<std::size_t>(s.size - 1)));
}

// The colour the event tables derive from a severity.
inline unsigned char colourOf(std::uint32_t severity) {
  static const unsigned char colours[] = {0, 3, 2, 1};
  return severity < 4 ? colours[severity] : 0;
}

// Sets what the library derives when it stores an event class or a log
// entry, so that what is stored is what the caller gave.
template <class R>
void derive(R &r) {
  if constexpr (std::is_same_v<R, ALRTEVENT_CLASSREC>) {
    r.SeverityColor = colourOf(r.Severity);
    r.Icon = r.KEPOID;
  } else if constexpr (std::is_same_v<R, ALRTEVENT_LOGREC>) {
    r.SeverityColor = colourOf(r.Severity);
    r.Icon = r.EventClass_OID;
  }
}
inline void derive(Table t, void *record) {
  if (t == kEventClass) derive(*static_cast<ALRTEVENT_CLASSREC *>(record));
  if (t == kLog) derive(*static_cast<ALRTEVENT_LOGREC *>(record));
}

// The tables whose records the object manager knows as instances, and the
// class of each.
inline bool isMirrored(Table t) {
  return t == kEventClass || t == kLog || t == kUser || t == kUserObject;
}
inline Id classOf(Table t) {
  return idOf(t == kEventClass ? platform::kClassIdEventClass
              : t == kLog      ? platform::kClassIdEventLog
                               : platform::kClassIdUser);
}

// The response type bit that protects a response from deletion.
inline constexpr std::uint32_t kProtectedResponse = 0x4000;

}  // namespace harness
