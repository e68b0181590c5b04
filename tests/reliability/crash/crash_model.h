// What the alerting data must hold after a crash round. A World is the
// records of every table (by digest) and the object manager's instances.
// A Simulation replays the writer's calls on a World, each call as the steps
// the table classes take in their order, every step one committed write; a
// batch is one step per data file, in the order the writer unlocks them, and
// one for the object manager's held changes. After a kill, the data must be
// the World of every acknowledged call plus, for the call or batch that was
// running, any prefix of its steps.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "reliability/crash/crash_lines.h"
#include "reliability/harness_cascades.h"

namespace crash {

struct RecordKey {
  Table table;
  Id id{};
  bool operator<(const RecordKey &o) const { return std::tie(table, id) < std::tie(o.table, o.id); }
  bool operator==(const RecordKey &) const = default;
};

struct StoredRecord {
  RecordDigest digest;
  std::uint64_t order = 0;  // insertion order, which equal keys keep
};

// IDs that stand for a record whose ID the library made and nobody has seen
// yet; matched to a real record by table and content.
inline bool isPlaceholder(const Id &id) {
  static const unsigned char mark[8] = {'p', 'e', 'n', 'd', 'i', 'n', 'g', '!'};
  return std::memcmp(id.data() + 8, mark, 8) == 0;
}

struct World {
  std::map<RecordKey, StoredRecord> records;
  std::map<Id, Id> instances;  // object ID -> class ID
  std::uint64_t nextOrder = 1;
  std::uint64_t nextPlaceholder = 1;

  const StoredRecord *find(Table t, const Id &id) const {
    auto it = records.find({t, id});
    return it == records.end() ? nullptr : &it->second;
  }

  Id newPlaceholder() {
    Id id{};
    std::uint64_t n = nextPlaceholder++;
    std::memcpy(id.data(), &n, 8);
    std::memcpy(id.data() + 8, "pending!", 8);
    return id;
  }
};

struct Change {
  enum Kind { kPut, kDelete, kRegister, kUnregister } kind;
  RecordKey key{};
  StoredRecord record;  // kPut; order 0: the next insertion order when new
  Id classId{};         // kRegister
};
using Step = std::vector<Change>;

inline void apply(World &world, const Change &change) {
  switch (change.kind) {
    case Change::kPut: {
      auto it = world.records.find(change.key);
      if (it != world.records.end()) {
        it->second.digest = change.record.digest;
      } else {
        StoredRecord record = change.record;
        if (record.order == 0) record.order = world.nextOrder++;
        world.nextOrder = std::max(world.nextOrder, record.order + 1);
        world.records.emplace(change.key, record);
      }
      break;
    }
    case Change::kDelete:
      world.records.erase(change.key);
      break;
    case Change::kRegister:
      world.instances[change.key.id] = change.classId;
      break;
    case Change::kUnregister:
      world.instances.erase(change.key.id);
      break;
  }
}

inline void apply(World &world, const Step &step) {
  for (const Change &change : step) apply(world, change);
}

inline std::string keyText(const RecordKey &key) {
  return std::string(tableInfo(key.table).name) + " " +
         (isPlaceholder(key.id) ? "(ID made by the library)" : idText(key.id));
}

// Replays calls of the writer on a world, step by step.
class Simulation : public CascadeStore {
 public:
  // `autoPurge`: the purge settings make flag 8 purge acknowledged entries.
  explicit Simulation(World world, bool autoPurge = true)
      : world_(std::move(world)), autoPurge_(autoPurge) {}

  const World &world() const { return world_; }
  const std::vector<Step> &steps() const { return steps_; }

  // Replays one call; false, with the reason, when the call could not have
  // succeeded on this world (the writer then saw other data than expected).
  bool run(const WriterCall &call, std::string *error) {
    error_.clear();
    made_ = call.made;
    nextMade_ = 0;
    std::vector<RecordToken> records;
    for (const std::string &arg : call.args) {
      RecordToken token;
      if (arg.find('/') != std::string::npos) {
        if (!parseRecord(arg, &token)) return fail(error, "unreadable record " + arg);
        records.push_back(token);
      }
    }
    const std::string &op = call.op;
    if (op == "add" || op == "srv-add-entry") {
      if (records.size() != 1 || records[0].pendingId) return fail(error, "bad arguments");
      addRecord(records[0]);
    } else if (op == "update") {
      if (records.size() != 1 || records[0].pendingId) return fail(error, "bad arguments");
      if (!world_.find(records[0].table, records[0].id)) {
        return fail(error, "updated a record that should not be there: " +
                               keyText({records[0].table, records[0].id}));
      }
      put(records[0]);
    } else if (op == "delete") {
      Table t;
      Id id{};
      if (call.args.size() != 2 || !tableByName(call.args[0], &t) || !parseId(call.args[1], &id)) {
        return fail(error, "bad arguments");
      }
      if (!world_.find(t, id)) {
        return fail(error, "deleted a record that should not be there: " + keyText({t, id}));
      }
      deleteRecord(t, id);
    } else if (op == "link-add") {
      if (records.size() != 1) return fail(error, "bad arguments");
      for (const Id &link : referring(kLink, 0, records[0].digest.refs[0])) {
        if (world_.find(kLink, link)->digest.refs[1] == records[0].digest.refs[1]) {
          return fail(error, "linked a pair that should be linked already");
        }
      }
      put(records[0]);
    } else if (op == "log-purge") {
      if (call.args.size() != 1) return fail(error, "bad arguments");
      std::uint32_t flags = static_cast<std::uint32_t>(std::stoul(call.args[0]));
      if ((flags & kPurgeAcknowledged) || ((flags & kPurgeAcknowledgedIfAuto) && autoPurge_)) {
        purgeAcknowledged();
      }
    } else if (op == "svc-add-typed" || op == "inst-add" || op == "user-add-service" ||
               op == "agent-relate" || op == "srv-add-agent" || op == "srv-add-installed") {
      if (records.empty()) return fail(error, "bad arguments");
      if (op == "user-add-service" && !world_.find(kUser, records[0].digest.refs[0])) {
        return fail(error, "gave a service to a user that should not be there");
      }
      for (const RecordToken &record : records) {
        if (!record.pendingId && world_.find(record.table, record.id)) {
          return fail(
              error, "added a record that is there already: " + keyText({record.table, record.id}));
        }
        put(record);
      }
    } else {
      return fail(error, "unknown call " + op);
    }
    if (!error_.empty()) return fail(error, error_);
    return true;
  }

 private:
  bool fail(std::string *error, const std::string &what) {
    if (error) *error = what;
    return false;
  }

  void change(const Change &c) {
    apply(world_, c);
    steps_.push_back({c});
  }

  void put(const RecordToken &record) {
    Id id = record.id;
    if (record.pendingId)
      id = nextMade_ < made_.size() ? made_[nextMade_++] : world_.newPlaceholder();
    change({Change::kPut, {record.table, id}, {record.digest, 0}, {}});
  }

  void addRecord(const RecordToken &record) {
    if (world_.find(record.table, record.id)) {
      error_ = "added a record that is there already: " + keyText({record.table, record.id});
      return;
    }
    put(record);
    if (isMirrored(record.table)) {
      change({Change::kRegister, {record.table, record.id}, {}, classOf(record.table)});
    }
  }

  const RecordDigest *stored(Table t, const Id &id) const override {
    const StoredRecord *r = world_.find(t, id);
    return r ? &r->digest : nullptr;
  }
  std::vector<Id> referring(Table t, int ref, const Id &value) const override {
    return inOrder(t, [&](const RecordDigest &d) { return d.refs[ref] == value; });
  }
  void erase(Table t, const Id &id) override { change({Change::kDelete, {t, id}, {}, {}}); }
  void unregister(Table t, const Id &id) override {
    if (world_.instances.count(id)) change({Change::kUnregister, {t, id}, {}, {}});
  }

  // The records of table t that `match`, in the order of their sort key
  // and insertion.
  template <class Match>
  std::vector<Id> inOrder(Table t, Match match) const {
    std::vector<std::pair<std::pair<std::uint64_t, std::uint64_t>, Id>> found;
    for (auto it = world_.records.lower_bound({t, Id{}});
         it != world_.records.end() && it->first.table == t; ++it) {
      if (match(it->second.digest))
        found.push_back({{it->second.digest.sort, it->second.order}, it->first.id});
    }
    std::sort(found.begin(), found.end());
    std::vector<Id> ids;
    for (const auto &f : found) ids.push_back(f.second);
    return ids;
  }

  // Acknowledged entries, in the order of their time.
  void purgeAcknowledged() {
    for (const Id &id : inOrder(kLog, [](const RecordDigest &d) { return d.number == 1; }))
      erase(kLog, id);
  }

  World world_;
  bool autoPurge_;
  std::vector<Id> made_;
  std::size_t nextMade_ = 0;
  std::vector<Step> steps_;
  std::string error_;
};

// The steps by which a batch's changes reach the files: one per data file,
// in the order of unlocking, then the object manager's held changes.
inline std::vector<Step> commitSteps(const World &before, const World &after) {
  std::vector<Step> steps(kDataFileCount + 1);
  std::set<RecordKey> keys;
  for (const auto &[key, record] : before.records) keys.insert(key);
  for (const auto &[key, record] : after.records) keys.insert(key);
  for (const RecordKey &key : keys) {
    auto b = before.records.find(key);
    auto a = after.records.find(key);
    Step &step = steps[tableInfo(key.table).file];
    if (a == after.records.end()) {
      step.push_back({Change::kDelete, key, {}, {}});
    } else if (b == before.records.end() || !(b->second.digest == a->second.digest)) {
      step.push_back({Change::kPut, key, a->second, {}});
    }
  }
  std::set<Id> objects;
  for (const auto &[id, cls] : before.instances) objects.insert(id);
  for (const auto &[id, cls] : after.instances) objects.insert(id);
  for (const Id &id : objects) {
    auto b = before.instances.find(id);
    auto a = after.instances.find(id);
    if (a == after.instances.end()) {
      steps[kDataFileCount].push_back({Change::kUnregister, {kTableCount, id}, {}, {}});
    } else if (b == before.instances.end() || b->second != a->second) {
      steps[kDataFileCount].push_back({Change::kRegister, {kTableCount, id}, {}, a->second});
    }
  }
  return steps;
}

// The call or batch that was running when the writer was killed.
struct Unit {
  std::string what;
  std::vector<Step> steps;
};

struct Verdict {
  bool sound = false;
  std::string report;
  World verified;                  // the data as found, with what it was expected to be
  std::vector<std::size_t> taken;  // steps of each unit that reached the files
};

namespace detail {

using Content = std::pair<int, std::uint64_t>;  // table, digest body
// The body covers every byte after the ID, the references included.
inline Content contentOf(Table t, const RecordDigest &d) { return {t, d.body}; }

inline std::string describe(const std::optional<StoredRecord> &r) {
  if (!r) return "absent";
  char text[40];
  std::snprintf(text, sizeof text, "content %016llx",
                static_cast<unsigned long long>(r->digest.body));
  return text;
}

}  // namespace detail

// Compares the data found after a round with the expected world plus some
// prefix of each unit's steps. The units must touch disjoint records.
inline Verdict verifyRound(const World &expected, const std::vector<Unit> &units,
                           const World &actual) {
  using detail::Content;
  Verdict verdict;
  std::vector<std::string> problems;
  auto note = [&](const std::string &what) {
    if (problems.size() < 12) problems.push_back(what);
  };

  // What each unit touches.
  std::vector<std::set<RecordKey>> touched(units.size());
  std::vector<std::set<Id>> touchedObjects(units.size());
  std::set<RecordKey> allTouched;
  std::set<Id> allTouchedObjects;
  for (std::size_t u = 0; u < units.size(); ++u) {
    for (const Step &step : units[u].steps) {
      for (const Change &c : step) {
        if (c.kind == Change::kPut || c.kind == Change::kDelete) {
          touched[u].insert(c.key);
          allTouched.insert(c.key);
        } else {
          touchedObjects[u].insert(c.key.id);
          allTouchedObjects.insert(c.key.id);
        }
      }
    }
  }

  // Records no unit touched must be as expected; those found that nobody
  // named are records whose ID the library made.
  std::map<Content, std::vector<Id>> unexplained;
  std::map<Content, int> expectedPending;
  for (const auto &[key, record] : expected.records) {
    if (allTouched.count(key)) continue;
    if (isPlaceholder(key.id)) {
      ++expectedPending[detail::contentOf(key.table, record.digest)];
      continue;
    }
    auto found = actual.records.find(key);
    if (found == actual.records.end()) {
      note("missing: " + keyText(key));
    } else if (!(found->second.digest == record.digest)) {
      note("changed: " + keyText(key) + " holds " + detail::describe(found->second) +
           ", acknowledged " + detail::describe(record));
    }
  }
  for (const auto &[key, record] : actual.records) {
    if (expected.records.count(key) || allTouched.count(key)) continue;
    unexplained[detail::contentOf(key.table, record.digest)].push_back(key.id);
  }
  for (const auto &[id, cls] : expected.instances) {
    if (allTouchedObjects.count(id)) continue;
    auto found = actual.instances.find(id);
    if (found == actual.instances.end()) {
      note("object manager lost the instance of " + idText(id));
    } else if (found->second != cls) {
      note("object manager instance of " + idText(id) + " changed its class");
    }
  }
  for (const auto &[id, cls] : actual.instances) {
    if (!expected.instances.count(id) && !allTouchedObjects.count(id)) {
      note("object manager instance without its record: " + idText(id));
    }
  }

  // Each unit: the prefixes whose named records and instances match.
  struct Candidate {
    std::size_t taken;
    std::map<Content, int> pending;
  };
  std::vector<std::vector<Candidate>> candidates(units.size());
  for (std::size_t u = 0; u < units.size(); ++u) {
    std::map<RecordKey, std::optional<StoredRecord>> state;
    for (const RecordKey &key : touched[u]) {
      auto it = expected.records.find(key);
      state[key] =
          it == expected.records.end() ? std::nullopt : std::optional<StoredRecord>(it->second);
    }
    std::map<Id, std::optional<Id>> objects;
    for (const Id &id : touchedObjects[u]) {
      auto it = expected.instances.find(id);
      objects[id] = it == expected.instances.end() ? std::nullopt : std::optional<Id>(it->second);
    }
    std::size_t bestMismatches = ~std::size_t{0};
    std::string bestReport;
    for (std::size_t k = 0;; ++k) {
      std::size_t mismatches = 0;
      std::string report;
      Candidate candidate{k, {}};
      for (const auto &[key, record] : state) {
        if (isPlaceholder(key.id)) {
          if (record) ++candidate.pending[detail::contentOf(key.table, record->digest)];
          continue;
        }
        auto found = actual.records.find(key);
        std::optional<StoredRecord> is = found == actual.records.end()
                                             ? std::nullopt
                                             : std::optional<StoredRecord>(found->second);
        if (is.has_value() != record.has_value() || (is && !(is->digest == record->digest))) {
          if (++mismatches <= 4) {
            report += "\n    " + keyText(key) + ": found " + detail::describe(is) + ", expected " +
                      detail::describe(record);
          }
        }
      }
      for (const auto &[id, cls] : objects) {
        auto found = actual.instances.find(id);
        bool present = found != actual.instances.end();
        if (present != cls.has_value() || (present && found->second != *cls)) {
          if (++mismatches <= 4) {
            report += "\n    object manager instance " + idText(id) +
                      (present ? " present" : " absent") + ", expected " +
                      (cls ? "present" : "absent");
          }
        }
      }
      if (mismatches == 0) candidates[u].push_back(candidate);
      if (mismatches < bestMismatches) {
        bestMismatches = mismatches;
        bestReport = "after " + std::to_string(k) + " of " + std::to_string(units[u].steps.size()) +
                     " steps:" + report;
      }
      if (k == units[u].steps.size()) break;
      for (const Change &c : units[u].steps[k]) {
        if (c.kind == Change::kPut) {
          StoredRecord record = c.record;
          if (state[c.key]) record.order = state[c.key]->order;
          state[c.key] = record;
        } else if (c.kind == Change::kDelete) {
          state[c.key] = std::nullopt;
        } else if (c.kind == Change::kRegister) {
          objects[c.key.id] = c.classId;
        } else {
          objects[c.key.id] = std::nullopt;
        }
      }
    }
    if (candidates[u].empty()) {
      note("no state that " + units[u].what + " may leave; closest, " + bestReport);
    }
  }

  // Records whose ID the library made must be exactly those the chosen
  // prefixes and the acknowledged calls expect.
  std::vector<std::size_t> choice(units.size(), 0);
  bool matched = false;
  if (problems.empty()) {
    std::map<Content, int> found;
    for (const auto &[content, ids] : unexplained) found[content] = static_cast<int>(ids.size());
    std::vector<std::size_t> index(units.size(), 0);
    for (;;) {
      std::map<Content, int> want = expectedPending;
      for (std::size_t u = 0; u < units.size(); ++u) {
        for (const auto &[content, n] : candidates[u][index[u]].pending) want[content] += n;
      }
      std::erase_if(want, [](const auto &e) { return e.second == 0; });
      if (want == found) {
        matched = true;
        for (std::size_t u = 0; u < units.size(); ++u) choice[u] = candidates[u][index[u]].taken;
        break;
      }
      std::size_t u = 0;
      while (u < units.size() && ++index[u] == candidates[u].size()) index[u++] = 0;
      if (u == units.size()) break;
    }
    if (!matched) {
      for (const auto &[content, ids] : unexplained) {
        note("record nobody added, or not the content announced: " +
             std::string(tableInfo(static_cast<Table>(content.first)).name) + " " +
             idText(ids.front()));
      }
      for (const auto &[content, n] : expectedPending) {
        if (!unexplained.count(content)) {
          note(std::string("missing: a record of ") +
               tableInfo(static_cast<Table>(content.first)).name + " whose ID the library made");
        }
      }
      if (problems.empty()) note("records whose ID the library made do not match the calls");
    }
  }

  if (!problems.empty()) {
    for (const std::string &p : problems) verdict.report += "  " + p + "\n";
    return verdict;
  }

  // The data as found, remembered with insertion orders and real IDs.
  World verified = expected;
  for (std::size_t u = 0; u < units.size(); ++u) {
    for (std::size_t k = 0; k < choice[u]; ++k) apply(verified, units[u].steps[k]);
  }
  std::vector<std::pair<RecordKey, StoredRecord>> pending;
  for (auto it = verified.records.begin(); it != verified.records.end();) {
    if (isPlaceholder(it->first.id)) {
      pending.push_back(*it);
      it = verified.records.erase(it);
    } else {
      ++it;
    }
  }
  for (const auto &[key, record] : pending) {
    std::vector<Id> &ids = unexplained[detail::contentOf(key.table, record.digest)];
    verified.records[{key.table, ids.back()}] = {actual.records.at({key.table, ids.back()}).digest,
                                                 record.order};
    ids.pop_back();
  }
  verified.instances = actual.instances;
  verdict.sound = true;
  verdict.verified = std::move(verified);
  verdict.taken = choice;
  return verdict;
}

}  // namespace crash
