// The tables the concurrency harness works on, one object of each per
// thread, with the record store handle exposed for the file and read locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <tuple>

#include "alertdb.h"
#include "reliability/concurrency/concurrency_log.h"
#include "reliability/harness_tables.h"

namespace concurrency {

// Every table kind the harness writes, in the order of their data files.
enum class Table {
  Service,      // catalogue row ("AlServdb.dat")
  SmtpService,  // the SMTP settings row of a typed add ("AlServdb.dat")
  Server,       // "AlCfgdb.dat"
  Installed,    // service installed on a server ("AlCfgdb.dat")
  User,         // "kepuser.dat"
  Instance,     // a user's service instance ("kepuser.dat")
  Address,      // its SMTP address record ("kepuser.dat")
  Response,     // "AlRespDB.dat"
  EventClass,   // "AlEvntdb.dat"
  Link,         // event class to response ("AlEvntdb.dat")
  LogEntry,     // "KEPLogDB.dat"
};
inline constexpr int kTableCount = 11;

inline const char *tableName(Table table) {
  static const char *const names[kTableCount] = {"service", "smtp",     "server",  "installed",
                                                 "user",    "instance", "address", "response",
                                                 "class",   "link",     "log"};
  return names[static_cast<int>(table)];
}

// The prefix of the worker's logged writes of each table ("svc.add", "svc.upd", "svc.del").
inline const char *opPrefix(Table table) {
  static const char *const prefixes[kTableCount] = {"svc", "kind", "srv", "inst", "usr", "uin",
                                                    "addr", "rsp", "evc", "lnk", "log"};
  return prefixes[static_cast<int>(table)];
}

// The table of a logged write `op` that ends in `verb` and is made on one of `tables`.
inline bool opOn(const std::string &op, const char *verb, std::initializer_list<Table> tables,
                 Table *table) {
  for (Table t : tables) {
    if (op == std::string(opPrefix(t)) + "." + verb) {
      *table = t;
      return true;
    }
  }
  return false;
}

inline bool tableFromName(const std::string &name, Table *table) {
  for (int i = 0; i < kTableCount; ++i) {
    if (name == tableName(static_cast<Table>(i))) {
      *table = static_cast<Table>(i);
      return true;
    }
  }
  return false;
}

// The relations the harness enumerates: the children of a parent record on
// the child table's key that holds the parent's ID, and the model's field
// ('a' or 'b') for that ID.
struct Relation {
  Table parent, child;
  std::uint32_t key;
  std::size_t offset;
  char field;
};
inline constexpr Relation kRelations[] = {
    {Table::User, Table::Instance, 74, offsetof(ALRTUSRINSTSERV, UserOid), 'a'},
    {Table::Service, Table::Instance, 73, offsetof(ALRTUSRINSTSERV, Service_KEPOID), 'b'},
    {Table::User, Table::Response, 12, offsetof(ALERTRESPREC, UserOID), 'a'},
    {Table::Service, Table::Response, 13, offsetof(ALERTRESPREC, ServiceOID), 'b'},
    {Table::EventClass, Table::Link, 43, offsetof(ALRTEVENT_RESPREC, EventClassOID), 'a'},
    {Table::Response, Table::Link, 44, offsetof(ALRTEVENT_RESPREC, ResponseOID), 'b'},
    {Table::Server, Table::Installed, 68, offsetof(ALRTSERV_INST_NTFY_SERVREC, ServerOID), 'a'},
    {Table::Service, Table::Installed, 66, offsetof(ALRTSERV_INST_NTFY_SERVREC, ServiceOID), 'b'}};

// The data files, each locked through one of its tables.
enum class File { Services, Config, Users, Responses, Events, Log };
inline constexpr int kFileCount = 6;

inline const char *fileName(File file) {
  static const char *const names[kFileCount] = {"AlServdb.dat", "AlCfgdb.dat",  "kepuser.dat",
                                                "AlRespDB.dat", "AlEvntdb.dat", "KEPLogDB.dat"};
  return names[static_cast<int>(file)];
}

// The handles a thread opens on a file share its lock; each file is locked
// through one of its tables.
inline constexpr Table kLockedThrough[kFileCount] = {Table::Service,    Table::Server,
                                                     Table::User,       Table::Response,
                                                     Table::EventClass, Table::LogEntry};

using harness::Exposed;
using harness::RecordOf;

struct TableSet {
  Exposed<CAlertNtfyServDB> service;
  Exposed<CAlertSMTPNtfyServDB> smtp;
  Exposed<CAlert_SRV_CFGDB> server;
  Exposed<CAlertSERV_INST_NTFY_SERVDB> installed;
  Exposed<CAlertUsrDB> user;
  Exposed<CAlertUsrInstServDB> instance;
  Exposed<CAlertUSR_SMTPDB> address;
  Exposed<CAlertRespDB> response;
  Exposed<CAlertEVENT_CLASSDB> eventClass;
  Exposed<CAlertEVENT_RESPDB> link;
  Exposed<CAlertEVENT_LOGDB> log;

  // In the order of enum Table.
  auto all() {
    return std::tie(service, smtp, server, installed, user, instance, address, response, eventClass,
                    link, log);
  }
  // Calls fn with the table object of `table`.
  template <class Fn>
  void with(Table table, Fn &&fn) {
    harness::withElement(all(), static_cast<std::size_t>(table), fn);
  }

  // Opens (or creates) every table; the first failure's status, else 0.
  std::uint32_t openAll() {
    std::uint32_t first = 0;
    std::apply([&](auto &...t) { ((first = first ? first : OpenOrCreate(t)), ...); }, all());
    return first;
  }

  KEPDB *lockHandle(File file) {
    KEPDB *handle = nullptr;
    with(kLockedThrough[static_cast<int>(file)], [&](auto &t) { handle = t.handle(); });
    return handle;
  }
};

// Makes each data file with one of its tables; the others are made by the
// first open-or-create that needs them. 0 or the first failure.
inline std::uint32_t createDataFiles() {
  CAlertNtfyServDB services;
  CAlert_SRV_CFGDB config;
  CAlertUsrDB users;
  CAlertRespDB responses;
  CAlertEVENT_CLASSDB events;
  CAlertEVENT_LOGDB log;
  std::uint32_t results[] = {services.DBCreate(),  config.DBCreate(), users.DBCreate(),
                             responses.DBCreate(), events.DBCreate(), log.DBCreate()};
  for (std::uint32_t r : results) {
    if (r != 0) return r;
  }
  return 0;
}

// Walks a whole table in the order of its object-ID key and hands each
// record to `visit`; the status that ended the walk (ALRT_E_NOTFOUND at the
// end).
template <class TableObject, class Record, class Visit>
std::uint32_t forEachRecord(TableObject &table, Record &record, Visit visit) {
  std::uint32_t status = table.DBAlertRecFindFirst(table.idKey(), 0, nullptr, &record);
  while (status == 0) {
    visit(record);
    status = table.DBAlertRecFindNext(&record);
  }
  return status;
}

}  // namespace concurrency
