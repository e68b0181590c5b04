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
#include "reliability/harness_cascades.h"

namespace concurrency {

// Deleting a record that is not stored passes the engine's own result on.
inline constexpr std::uint32_t kEngineNotFound = platform::QDB_E_NOTFOUND;
inline constexpr std::uint32_t kServiceResponseType = 0x0001;
// The type of every service and address record the harness makes.
inline constexpr std::uint32_t kSmtpType = CAlertSMTPNtfyServDB::kServiceType;

struct ModelRecord {
  Table table = kUser;
  int owner = -1;
  bool alive = true;
  // The content's hash as body, the references and the number the cascades
  // follow, as the catalogue places them.
  RecordDigest digest;
  std::uint64_t seq = 0;  // order of the adds
  Hash hash() const { return digest.body; }
};

// Every content each record was ever written with, from all logs: what a
// read of another thread's record may return.
using Versions = std::map<Oid, std::set<Hash>>;

class Model : private CascadeStore {
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
    // Argument positions of (object ID, content) pairs, per call; a plain
    // add or update logs the ID, then the content.
    static const std::map<std::string, std::vector<std::pair<int, int>>> written = {
        {"Notify_Services.add", {{0, 2}, {1, 3}}}, {"srv-add-installed", {{2, 3}}},
        {"ServerInstService.upd", {{0, 3}}},       {"user-add-service", {{2, 4}, {3, 5}}},
        {"UsrInst.add", {{2, 4}, {3, 5}}},         {"AlertResp_Table.add", {{0, 4}}},
        {"EVENT_CLASS.add", {{0, 1}, {0, 2}}},     {"link-add", {{2, 3}}},
        {"EVENT_RESP.add", {{2, 3}}}};
    static const std::vector<std::pair<int, int>> plain = {{0, 1}};
    auto it = written.find(entry.op);
    const std::string &op = entry.op;
    bool isPlain = op.ends_with(".add") || op.ends_with(".upd");
    if (it == written.end() && !isPlain) return;
    for (const auto &[idAt, hashAt] : it != written.end() ? it->second : plain) {
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

  // The live records of `table` whose reference `ref` is `value`, in the
  // order they were added.
  std::vector<std::pair<Oid, const ModelRecord *>> children(Table table, int ref,
                                                            const Oid &value) const {
    std::vector<std::pair<Oid, const ModelRecord *>> found;
    for (const auto &[id, record] : records_) {
      if (record.alive && record.table == table && record.digest.refs[ref] == value)
        found.emplace_back(id, &record);
    }
    std::sort(found.begin(), found.end(),
              [](const auto &x, const auto &y) { return x.second->seq < y.second->seq; });
    return found;
  }

  // The reference a key number of a child table enumerates by; -1 when
  // the key is not one of them.
  static int refOfKey(Table table, std::uint32_t key) {
    for (const Relation &r : kRelations) {
      if (r.child == table && r.key == key) return r.ref;
    }
    return -1;
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
      Table t = kUser;
      if (!tableByName(arg(i), &t)) ok = false;
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

  std::string add(const Oid &id, Table table, int owner, Hash hash, Oid ref0 = {}, Oid ref1 = {},
                  Oid ref2 = {}, std::uint32_t number = 0) {
    if (isZero(id)) return "a successful add logged no object ID";
    if (records_.count(id)) return "an add gave an object ID that was already used";
    records_[id] = ModelRecord{table, owner, true, {hash, {ref0, ref1, ref2}, number}, ++seq_};
    return "";
  }

  // A write to a record of the thread's own: the status its state gives.
  std::uint32_t updateStatus(const Oid &id, Table table) const {
    return live(id, table) ? 0 : ALRT_E_NOTFOUND;
  }
  std::uint32_t deleteStatus(const Oid &id, Table table) const {
    return live(id, table) ? 0 : kEngineNotFound;
  }

  // The cascades: what is stored is what is live.
  const RecordDigest *stored(Table t, const Oid &id) const override {
    const ModelRecord *r = live(id, t);
    return r ? &r->digest : nullptr;
  }
  std::vector<Oid> referring(Table t, int ref, const Oid &value) const override {
    std::vector<Oid> ids;
    for (const auto &[id, r] : children(t, ref, value)) ids.push_back(id);
    return ids;
  }
  void erase(Table t, const Oid &id) override { mutableLive(id, t)->alive = false; }
  void unregister(Table, const Oid &) override {}

  bool linked(const Oid &eventClass, const Oid &response) const {
    for (const auto &[id, r] : records_) {
      if (r.alive && r.table == kLink && r.digest.refs[0] == eventClass &&
          r.digest.refs[1] == response)
        return true;
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
      if (record->hash() != hash)
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

    Table table;
    if (op == "Notify_Services.add") {
      Oid id = in.oid(0), settings = in.oid(1);
      if ((problem = expect(s, 0)).size()) return problem;
      if ((problem = add(settings, kKindSmtp, owner, in.hash(3))).size()) return problem;
      return add(id, kCatalogue, owner, in.hash(2), settings, {}, {}, kSmtpType);
    }
    if (op == "ServerInstService.upd") {
      Oid id = in.oid(0);
      if ((problem = expect(s, updateStatus(id, kInstalled))).size()) return problem;
      if (s == 0) {
        RecordDigest &d = mutableLive(id, kInstalled)->digest;
        d.number = in.number(1);
        d.refs[2] = in.oid(2);
        d.body = in.hash(3);
      }
      return "";
    }
    if (opOn(op, "upd",
             {kCatalogue, kKindSmtp, kServer, kUser, kInstance, kAddrSmtp, kResponse, kEventClass,
              kLog},
             &table)) {
      Oid id = in.oid(0);
      if ((problem = expect(s, updateStatus(id, table))).size()) return problem;
      if (s == 0) mutableLive(id, table)->digest.body = in.hash(1);
      return "";
    }
    if (op == "UsrInst.del") {
      Oid id = in.oid(0);
      // The instance is read first; a missing one is the table's not-found.
      if ((problem = expect(s, updateStatus(id, kInstance))).size()) return problem;
      if (s == 0) deleteRecord(kInstance, id);
      return "";
    }
    if (opOn(op, "del",
             {kCatalogue, kServer, kInstalled, kUser, kResponse, kEventClass, kLink, kLog},
             &table)) {
      Oid id = in.oid(0);
      std::uint32_t wanted = deleteStatus(id, table);
      const ModelRecord *r = live(id, table);
      if (table == kResponse && r && (r->digest.number & kProtectedResponse))
        wanted = ALRT_E_PROTECTED;
      if ((problem = expect(s, wanted)).size()) return problem;
      // A user's and a server's dependents go before the record itself, even
      // when it is not stored.
      if (s == 0 || table == kUser || table == kServer) deleteRecord(table, id);
      return "";
    }
    if (op == "srv-add-installed") {
      Oid server = in.oid(0), service = in.oid(1), id = in.oid(2);
      if ((problem = expect(s, live(server, kServer) ? 0 : ALRT_E_NOTFOUND)).size())
        return problem;
      if (s != 0) return "";
      return add(id, kInstalled, owner, in.hash(3), service, server);
    }
    if (op == "user-add-service" || op == "UsrInst.add") {
      Oid user = in.oid(0), service = in.oid(1), id = in.oid(2), address = in.oid(3);
      // Only the add through the user checks that the user exists.
      std::uint32_t wanted = op == "UsrInst.add" || live(user, kUser) ? 0 : ALRT_E_NOTFOUND;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      if ((problem = add(address, kAddrSmtp, owner, in.hash(5))).size()) return problem;
      return add(id, kInstance, owner, in.hash(4), user, service, address, kSmtpType);
    }
    if (op == "AlertResp_Table.add") {
      Oid id = in.oid(0), user = in.oid(1), service = in.oid(2);
      std::uint32_t type = in.number(3);
      std::uint32_t wanted =
          (type & kServiceResponseType) && !live(service, kCatalogue) ? ALRT_E_NOSERVICETYPE : 0;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      return add(id, kResponse, owner, in.hash(4), user, service, {}, type);
    }
    if (op == "link-add" || op == "EVENT_RESP.add") {
      Oid eventClass = in.oid(0), response = in.oid(1), id = in.oid(2);
      std::uint32_t wanted = linked(eventClass, response) ? ALRT_E_LINKEXISTS : 0;
      // The add through the event class reads the class first.
      if (op == "link-add" && !live(eventClass, kEventClass)) wanted = ALRT_E_NOTFOUND;
      if ((problem = expect(s, wanted)).size()) return problem;
      if (s != 0) return "";
      return add(id, kLink, owner, in.hash(3), eventClass, response);
    }
    if (opOn(op, "add", {kServer, kUser, kEventClass, kLog}, &table)) {
      Oid id = in.oid(0);
      // An add of an ID a stored record has fails.
      if ((problem = expect(s, live(id, table) ? ALRT_E_ADDFAILED : 0)).size()) return problem;
      if (s != 0) return "";
      return add(id, table, owner, in.hash(1));
    }
    if (op == "get") {
      Table table = in.table(0);
      Oid id = in.oid(1);
      const ModelRecord *r = live(id, table);
      if ((problem = expect(s, r ? 0 : ALRT_E_NOTFOUND)).size()) return problem;
      if (r && r->owner != owner) return "a read of a record of another thread logged as own";
      if (r && in.hash(2) != r->hash()) return "read content other than this thread last wrote";
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
      int ref = refOfKey(table, in.number(1));
      Oid value = in.oid(2);
      if (ref < 0) return "no relation for that key";
      if (s != 0 && s != ALRT_E_NOTFOUND) return "status " + statusText(s) + " enumerating";
      auto wanted = children(table, ref, value);
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
        if (hash != wanted[i].second->hash())
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
      if (!r && table == kEventClass && s == 0)
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
