// The tables the concurrency harness works on, one object of each per
// thread, with the record store handle exposed for the file and read locks.
#pragma once

#include <cstdint>
#include <cstring>

#include "alertdb.h"
#include "reliability/concurrency/concurrency_log.h"

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

inline bool tableFromName(const std::string &name, Table *table) {
  for (int i = 0; i < kTableCount; ++i) {
    if (name == tableName(static_cast<Table>(i))) {
      *table = static_cast<Table>(i);
      return true;
    }
  }
  return false;
}

// The data files, each locked through one of its tables.
enum class File { Services, Config, Users, Responses, Events, Log };
inline constexpr int kFileCount = 6;

inline const char *fileName(File file) {
  static const char *const names[kFileCount] = {"AlServdb.dat", "AlCfgdb.dat",  "kepuser.dat",
                                                "AlRespDB.dat", "AlEvntdb.dat", "KEPLogDB.dat"};
  return names[static_cast<int>(file)];
}

inline bool fileFromName(const std::string &name, File *file) {
  for (int i = 0; i < kFileCount; ++i) {
    if (name == fileName(static_cast<File>(i))) {
      *file = static_cast<File>(i);
      return true;
    }
  }
  return false;
}

inline File fileOf(Table table) {
  switch (table) {
    case Table::Service:
    case Table::SmtpService:
      return File::Services;
    case Table::Server:
    case Table::Installed:
      return File::Config;
    case Table::User:
    case Table::Instance:
    case Table::Address:
      return File::Users;
    case Table::Response:
      return File::Responses;
    case Table::EventClass:
    case Table::Link:
      return File::Events;
    case Table::LogEntry:
      break;
  }
  return File::Log;
}

// A table object whose handle and object-ID key the harness may use.
template <class Base>
class Exposed : public Base {
 public:
  KEPDB *handle() const { return this->m_hTable; }
  std::uint32_t idKey() const { return this->m_nIdKey; }
};

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

  // Opens (or creates) every table; the first failure's status, else 0.
  std::uint32_t openAll() {
    std::uint32_t results[] = {
        OpenOrCreate(service),   OpenOrCreate(smtp),     OpenOrCreate(server),
        OpenOrCreate(installed), OpenOrCreate(user),     OpenOrCreate(instance),
        OpenOrCreate(address),   OpenOrCreate(response), OpenOrCreate(eventClass),
        OpenOrCreate(link),      OpenOrCreate(log)};
    for (std::uint32_t r : results) {
      if (r != 0) return r;
    }
    return 0;
  }

  // The handle through which a thread takes a file's lock; every table of
  // the thread on that file shares it.
  KEPDB *lockHandle(File file) const {
    switch (file) {
      case File::Services:
        return service.handle();
      case File::Config:
        return server.handle();
      case File::Users:
        return user.handle();
      case File::Responses:
        return response.handle();
      case File::Events:
        return eventClass.handle();
      case File::Log:
        break;
    }
    return log.handle();
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
