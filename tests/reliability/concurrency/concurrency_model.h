// What the alerting data must hold after a thread's logged calls: every
// record its successful adds made and no delete or cascade removed, with the
// content of its last successful write. Each thread changes only records it
// made itself, and every relation it builds stays among them, so replaying
// one thread's log at a time gives exact expectations: the status each call
// must have returned, what its own reads must see, and the final data.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/alert_status.h"
#include "platform/store/record_store.h"
#include "reliability/concurrency/concurrency_log.h"
#include "reliability/concurrency/concurrency_tables.h"

namespace concurrency {

// Deleting a record that is not stored passes the engine's own result on.
inline constexpr std::uint32_t kEngineNotFound = platform::QDB_E_NOTFOUND;
inline constexpr std::uint32_t kProtectedType = 0x4000;
inline constexpr std::uint32_t kServiceResponseType = 0x0001;

struct ModelRecord {
  Table table = Table::User;
  int owner = -1;
  bool alive = true;
  Hash hash = 0;
  // Relations: instance (user, service, address); response (user, service);
  // installed service (server, service, settings row); link (event class,
  // response); catalogue row (-, -, settings row).
  Oid a{}, b{}, c{};
  std::uint32_t flag = 0;  // response type; installed "BackupServer"
  std::uint64_t seq = 0;   // order of the adds
};

// Every content each record was ever written with, from all logs: what a
// read of another thread's record may return.
using Versions = std::map<Oid, std::set<Hash>>;

class Model {
 public:
  // Checks one call that thread `owner` logged against the state its earlier
  // calls left, then applies it. Empty when the call is as it must be, else
  // what is wrong. `versions` (may be null) checks reads of others' records.
  std::string check(const Entry &entry, int owner, const Versions *versions) {
    Reader in{entry};
    std::string problem = checkCall(entry, owner, versions, in);
    if (problem.empty() && !in.ok) problem = "malformed log line";
    if (!problem.empty()) problem = entry.format() + ": " + problem;
    return problem;
  }

  // Adds the content a successful write of `entry` gave its records.
  static void collectVersions(const Entry &entry, Versions *versions) {
    if (entry.status != 0) return;
    // Argument positions of (object ID, content) pairs, per call.
    static const std::map<std::string, std::vector<std::pair<int, int>>> written = {
        {"svc.add", {{0, 2}, {1, 3}}},  {"svc.upd", {{0, 1}}},         {"kind.upd", {{0, 1}}},
        {"srv.add", {{0, 1}}},          {"srv.upd", {{0, 1}}},         {"inst.add", {{2, 3}}},
        {"inst.upd", {{0, 3}}},         {"usr.add", {{0, 1}}},         {"usr.upd", {{0, 1}}},
        {"usvc.add", {{2, 4}, {3, 5}}}, {"uin.add", {{2, 4}, {3, 5}}}, {"uin.upd", {{0, 1}}},
        {"addr.upd", {{0, 1}}},         {"rsp.add", {{0, 4}}},         {"rsp.upd", {{0, 1}}},
        {"evc.add", {{0, 1}, {0, 2}}},  {"evc.upd", {{0, 1}}},         {"lnk.add", {{2, 3}}},
        {"lnk.put", {{2, 3}}},          {"log.add", {{0, 1}}},         {"log.upd", {{0, 1}}}};
    auto it = written.find(entry.op);
    if (it == written.end()) return;
    for (const auto &[idAt, hashAt] : it->second) {
      Oid id{};
      Hash hash = 0;
      if (static_cast<std::size_t>(std::max(idAt, hashAt)) < entry.args.size() &&
          parseOid(entry.args[idAt], &id) && parseHash(entry.args[hashAt], &hash))
        (*versions)[id].insert(hash);
    }
  }

  const ModelRecord *find(const Oid &id) const {
    auto it = records_.find(id);
    return it == records_.end() ? nullptr : &it->second;
  }
  const ModelRecord *live(const Oid &id, Table table) const {
    const ModelRecord *record = find(id);
    return record && record->alive && record->table == table ? record : nullptr;
  }
  const std::map<Oid, ModelRecord> &records() const { return records_; }

  // The live records of `table` whose relation `field` ('a' or 'b') is
  // `value`, in the order they were added.
  std::vector<std::pair<Oid, const ModelRecord *>> children(Table table, char field,
                                                            const Oid &value) const {
    std::vector<std::pair<Oid, const ModelRecord *>> found;
    for (const auto &[id, record] : records_) {
      if (record.alive && record.table == table && (field == 'a' ? record.a : record.b) == value)
        found.emplace_back(id, &record);
    }
    std::sort(found.begin(), found.end(),
              [](const auto &x, const auto &y) { return x.second->seq < y.second->seq; });
    return found;
  }

  // The relation field a key number of a child table enumerates by; 0 when
  // the key is not one of them.
  static char fieldOfKey(Table table, std::uint32_t key) {
    for (const Relation &r : kRelations) {
      if (r.child == table && r.key == key) return r.field;
    }
    return 0;
  }

 private:
  struct Reader {
    const Entry &entry;
    bool ok = true;
    const std::string &arg(std::size_t i) {
      static const std::string none;
      if (i < entry.args.size()) return entry.args[i];
      ok = false;
      return none;
    }
    Oid oid(std::size_t i) {
      Oid id{};
      if (!parseOid(arg(i), &id)) ok = false;
      return id;
    }
    Hash hash(std::size_t i) {
      Hash h = 0;
      if (!parseHash(arg(i), &h)) ok = false;
      return h;
    }
    std::uint32_t number(std::size_t i) {
      const std::string &text = arg(i);
      char *end = nullptr;
      unsigned long value = std::strtoul(text.c_str(), &end, 10);
      if (text.empty() || *end) ok = false;
      return static_cast<std::uint32_t>(value);
    }
    Table table(std::size_t i) {
      Table t = Table::User;
      if (!tableFromName(arg(i), &t)) ok = false;
      return t;
    }
  };

  static std::string statusText(std::uint32_t status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", status);
    return text;
  }

  static std::string expect(std::uint32_t got, std::uint32_t wanted) {
    if (got == wanted) return "";
    return "status " + statusText(got) + ", the call must give " + statusText(wanted);
  }

  ModelRecord *mutableLive(const Oid &id, Table table) {
    auto it = records_.find(id);
    if (it == records_.end() || !it->second.alive || it->second.table != table) return nullptr;
    return &it->second;
  }

  std::string add(const Oid &id, Table table, int owner, Hash hash, Oid a = {}, Oid b = {},
                  Oid c = {}, std::uint32_t flag = 0) {
    if (isZero(id)) return "a successful add logged no object ID";
    if (records_.count(id)) return "an add gave an object ID that was already used";
    ModelRecord &record = records_[id];
    record = ModelRecord{table, owner, true, hash, a, b, c, flag, ++seq_};
    return "";
  }

  // A write to a record of the thread's own: the status its state gives.
  std::uint32_t updateStatus(const Oid &id, Table table) const {
    return live(id, table) ? 0 : ALRT_E_NOTFOUND;
  }
  std::uint32_t deleteStatus(const Oid &id, Table table) const {
    return live(id, table) ? 0 : kEngineNotFound;
  }

  // The cascades, as the table classes carry them out.
  void deleteResponse(const Oid &id) {
    ModelRecord *response = mutableLive(id, Table::Response);
    if (!response || (response->flag & kProtectedType)) return;
    response->alive = false;
    for (auto &[linkId, link] : records_) {
      if (link.alive && link.table == Table::Link && link.b == id) link.alive = false;
    }
  }
  void deleteResponsesWhere(const Oid *user, const Oid *service) {
    std::vector<Oid> doomed;
    for (const auto &[id, r] : records_) {
      if (r.alive && r.table == Table::Response && (!user || r.a == *user) &&
          (!service || r.b == *service))
        doomed.push_back(id);
    }
    for (const Oid &id : doomed) deleteResponse(id);
  }
  void deleteInstance(const Oid &id) {
    ModelRecord *instance = mutableLive(id, Table::Instance);
    if (!instance) return;
    instance->alive = false;
    if (ModelRecord *address = mutableLive(instance->c, Table::Address)) address->alive = false;
    Oid user = instance->a, service = instance->b;
    deleteResponsesWhere(&user, &service);
  }
  void deleteInstancesWhere(char field, const Oid &value) {
    for (const auto &[id, r] : children(Table::Instance, field, value)) deleteInstance(id);
  }
  void deleteUser(const Oid &id) {
    deleteInstancesWhere('a', id);
    deleteResponsesWhere(&id, nullptr);
    if (ModelRecord *user = mutableLive(id, Table::User)) user->alive = false;
  }
  void deleteInstalled(const Oid &id) {
    ModelRecord *installed = mutableLive(id, Table::Installed);
    if (!installed) return;
    Oid service = installed->b, settings = installed->c;
    bool backup = installed->flag == CAlertSERV_INST_NTFY_SERVDB::kBackupServer;
    installed->alive = false;
    deleteResponsesWhere(nullptr, &service);
    deleteInstancesWhere('b', service);
    if (backup && live(service, Table::Service)) {
      if (ModelRecord *row = mutableLive(settings, Table::SmtpService)) row->alive = false;
    }
  }
  void deleteServer(const Oid &id) {
    for (const auto &[installedId, r] : children(Table::Installed, 'a', id))
      deleteInstalled(installedId);
    if (ModelRecord *server = mutableLive(id, Table::Server)) server->alive = false;
  }
  void deleteEventClass(const Oid &id) {
    ModelRecord *eventClass = mutableLive(id, Table::EventClass);
    if (!eventClass) return;
    eventClass->alive = false;
    for (auto &[linkId, link] : records_) {
      if (link.alive && link.table == Table::Link && link.a == id) link.alive = false;
    }
  }

  bool linked(const Oid &eventClass, const Oid &response) const {
    for (const auto &[id, r] : records_) {
      if (r.alive && r.table == Table::Link && r.a == eventClass && r.b == response) return true;
    }
    return false;
  }

  // A record an enumeration delivered: one of the thread's own must be as
  // its last write left it; anyone else's must be a version someone wrote.
  std::string checkSeen(const Oid &id, Hash hash, Table table, int owner,
                        const Versions *versions) const {
    const ModelRecord *record = find(id);
    if (record && record->owner == owner) {
      if (!record->alive || record->table != table)
        return "delivered " + oidText(id) + ", which this thread deleted";
      if (record->hash != hash)
        return "delivered " + oidText(id) + " with content other than this thread last wrote";
      return "";
    }
    if (versions) {
      auto it = versions->find(id);
      if (it == versions->end()) return "delivered " + oidText(id) + ", which no call wrote";
      if (!it->second.count(hash))
        return "delivered " + oidText(id) + " with content that no call wrote";
    }
    return "";
  }

  std::string checkCall(const Entry &e, int owner, const Versions *versions, Reader &in) {
    const std::string &op = e.op;
    std::string problem;
    std::uint32_t s = e.status;
    if (op == "problem") return "the worker found a fault";
    if (op == "lock" || op == "unlock" || op == "rlock" || op == "runlock") return expect(s, 0);

    if (op == "svc.add") {
      Oid id = in.oid(0), settings = in.oid(1);
      if ((problem = expect(s, 0)).size()) return problem;
      if ((problem = add(settings, Table::SmtpService, owner, in.hash(3))).size()) return problem;
      return add(id, Table::Service, owner, in.hash(2), {}, {}, settings);
    }
    Table table;
    if (opOn(op, "upd",
             {Table::Service, Table::SmtpService, Table::Server, Table::User, Table::Instance,
              Table::Address, Table::Response, Table::EventClass, Table::LogEntry},
             &table)) {
      Oid id = in.oid(0);
      if ((problem = expect(s, updateStatus(id, table))).size()) return problem;
      if (s == 0) mutableLive(id, table)->hash = in.hash(1);
      return "";
    }
    if (op == "inst.upd") {
      Oid id = in.oid(0);
      if ((problem = expect(s, updateStatus(id, Table::Installed))).size()) return problem;
      if (s == 0) {
        ModelRecord *r = mutableLive(id, Table::Installed);
        r->flag = in.number(1);
        r->c = in.oid(2);
        r->hash = in.hash(3);
      }
      return "";
    }
    if (opOn(op, "del",
             {Table::Service, Table::Server, Table::Installed, Table::User, Table::Response,
              Table::EventClass, Table::Link, Table::LogEntry},
             &table)) {
      Oid id = in.oid(0);
      std::uint32_t wanted = deleteStatus(id, table);
      const ModelRecord *r = live(id, table);
      if (table == Table::Response && r && (r->flag & kProtectedType)) wanted = ALRT_E_PROTECTED;
      if ((problem = expect(s, wanted)).size()) return problem;
      // A user's and a server's dependents go before the record itself, even
      // when it is not stored.
      if (s != 0 && table != Table::User && table != Table::Server) return "";
      switch (table) {
        case Table::Server:
          deleteServer(id);
          break;
        case Table::Installed:
          deleteInstalled(id);
          break;
        case Table::User:
          deleteUser(id);
          break;
        case Table::Response:
          deleteResponse(id);
          break;
        case Table::EventClass:
          deleteEventClass(id);
          break;
        default:
          mutableLive(id, table)->alive = false;
      }
      return "";
    }
    if (op == "uin.del") {
      Oid id = in.oid(0);
      // The instance is read first; a missing one is the table's not-found.
      if ((problem = expect(s, updateStatus(id, Table::Instance))).size()) return problem;
      if (s == 0) deleteInstance(id);
      return "";
    }
    if (opOn(op, "add", {Table::Server, Table::User, Table::EventClass, Table::LogEntry},
             &table)) {
      if ((problem = expect(s, 0)).size()) return problem;
      return add(in.oid(0), table, owner, in.hash(1));
    }
    if (op == "inst.add") {
      Oid server = in.oid(0), service = in.oid(1), id = in.oid(2);
      if ((problem = expect(s, live(server, Table::Server) ? 0 : ALRT_E_NOTFOUND)).size())
        return problem;
      if (s != 0) return "";
      return add(id, Table::Installed, owner, in.hash(3), server, service);
    }
    if (op == "usvc.add" || op == "uin.add") {
      Oid user = in.oid(0), service = in.oid(1), id = in.oid(2), address = in.oid(3);
      // Only the add through the user checks that the user exists.
      std::uint32_t wanted = op == "uin.add" || live(user, Table::User) ? 0 : ALRT_E_NOTFOUND;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      if ((problem = add(address, Table::Address, owner, in.hash(5))).size()) return problem;
      return add(id, Table::Instance, owner, in.hash(4), user, service, address);
    }
    if (op == "rsp.add") {
      Oid id = in.oid(0), user = in.oid(1), service = in.oid(2);
      std::uint32_t type = in.number(3);
      std::uint32_t wanted = (type & kServiceResponseType) && !live(service, Table::Service)
                                 ? ALRT_E_NOSERVICETYPE
                                 : 0;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      return add(id, Table::Response, owner, in.hash(4), user, service, {}, type);
    }
    if (op == "lnk.add" || op == "lnk.put") {
      Oid eventClass = in.oid(0), response = in.oid(1), id = in.oid(2);
      std::uint32_t wanted = linked(eventClass, response) ? ALRT_E_LINKEXISTS : 0;
      // The add through the event class reads the class first.
      if (op == "lnk.add" && !live(eventClass, Table::EventClass)) wanted = ALRT_E_NOTFOUND;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      return add(id, Table::Link, owner, in.hash(3), eventClass, response);
    }
    if (op == "get") {
      Table table = in.table(0);
      Oid id = in.oid(1);
      const ModelRecord *r = live(id, table);
      if ((problem = expect(s, r ? 0 : ALRT_E_NOTFOUND)).size()) return problem;
      if (r && r->owner != owner) return "a read of a record of another thread logged as own";
      if (r && in.hash(2) != r->hash) return "read content other than this thread last wrote";
      return "";
    }
    if (op == "get.any") {
      Table table = in.table(0);
      Oid id = in.oid(1);
      if (s == ALRT_E_NOTFOUND) return "";
      if (s != 0) return "status " + statusText(s) + " reading another thread's record";
      return checkSeen(id, in.hash(2), table, owner, versions);
    }
    if (op == "kids") {
      Table table = in.table(0);
      char field = fieldOfKey(table, in.number(1));
      Oid value = in.oid(2);
      if (!field) return "no relation for that key";
      if (s != 0 && s != ALRT_E_NOTFOUND) return "status " + statusText(s) + " enumerating";
      auto wanted = children(table, field, value);
      std::size_t count = e.args.size() - 3;
      if (count != wanted.size())
        return "enumerated " + std::to_string(count) + " records of this thread's, " +
               std::to_string(wanted.size()) + " are stored";
      for (std::size_t i = 0; i < count; ++i) {
        Oid id{};
        Hash hash = 0;
        if (!parseSeen(e.args[3 + i], &id, &hash)) return "malformed record";
        if (id != wanted[i].first)
          return "record " + std::to_string(i) + " is " + oidText(id) + ", not " +
                 oidText(wanted[i].first) + " (insertion order)";
        if (hash != wanted[i].second->hash)
          return "record " + oidText(id) + " holds content other than this thread last wrote";
      }
      return "";
    }
    if (op == "walk") {
      Table table = in.table(0);
      if (s != 0 && s != ALRT_E_NOTFOUND) return "status " + statusText(s) + " enumerating";
      for (std::size_t i = 2; i < e.args.size(); ++i) {
        Oid id{};
        Hash hash = 0;
        if (!parseSeen(e.args[i], &id, &hash)) return "malformed record";
        if ((problem = checkSeen(id, hash, table, owner, versions)).size()) return problem;
      }
      return "";
    }
    if (op == "om") {
      Table table = in.table(0);
      const ModelRecord *r = live(in.oid(1), table);
      bool registered = s == 0 && in.arg(2) == "1";
      if (r && !registered) return "stored, but the object manager does not know it as one";
      // Whether a deleted user's instance goes is not settled; a log entry's stays.
      if (!r && table == Table::EventClass && s == 0)
        return "deleted, but the object manager still knows it";
      return "";
    }
    if (op == "snap") return expect(s, 0);
    return "unknown call";
  }

  std::map<Oid, ModelRecord> records_;
  std::uint64_t seq_ = 0;
};

}  // namespace concurrency
