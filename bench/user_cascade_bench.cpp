// Deleting an alert user with 100 service instances (each with its address
// record) and 100 responses (each with a link to an event class), among
// 10,000 other users with an instance, an address, a response and a link
// each, all under random IDs so that the user's records lie among the
// others' in every key order. Beside it, plain SQLite doing the same deletes
// on copies of the same engine-made files: the same walks over the user's
// instances and, for each, over the user's responses, each row deleted in a
// transaction of its own as the engine's cascade commits it, the engine's
// pragmas. The baseline reads the keys it needs from their columns instead
// of decoding whole records where the engine reads records, so it is the
// stricter side.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "events/event_resp_table.h"
#include "framework/file_locks.h"
#include "platform/guid.h"
#include "recipients/user_table.h"
#include "responses/response_table.h"
#include "seeded_cascade.h"

namespace alertdb_bench {

namespace {

constexpr int kOwnRecords = 100;    // the deleted user's instances, and responses
constexpr int kOtherUsers = 10000;  // each with one instance, address, response, link
constexpr int kDeletedRows = 1 + 4 * kOwnRecords;  // user, instances, addresses, responses, links
constexpr const char *kFiles[] = {"kepuser.dat", "AlRespDB.dat", "AlEvntdb.dat"};
constexpr const char *kSeedPrefix = "CascadeSeed.";
constexpr const char *kBaselinePrefix = "CascadeSqlite.";

struct Seed {
  _GUID user{};
  std::string error;
};

// The data set, written once by the engine through its own tables into the
// files of the data directory, then kept as seed copies.
std::string fillSeed(const _GUID &target) {
  Lockable<CAlertUsrDB> users;
  Lockable<CAlertRespDB> responses;
  Lockable<CAlertEVENT_RESPDB> links;
  if (users.DBCreate() != 0 || responses.DBCreate() != 0 || links.DBCreate() != 0) {
    return "cannot create the tables";
  }
  DBFileLock(users.handle());
  DBFileLock(responses.handle());
  DBFileLock(links.handle());
  bool ok = true;
  int n = 0;
  auto give = [&](_GUID user, const _GUID &service) {
    ALRTUSR_SMTPSERVICEREC address{};
    address.USR_OID = user;
    std::snprintf(address.SMTPMailAddr, sizeof address.SMTPMailAddr, "user%d@example.org", n);
    _GUID s = service;
    ok = ok && users.QALRTUsrAddService(&user, &s, &address) == 0;
    ALERTRESPREC r{};
    std::snprintf(r.Name, sizeof r.Name, "response %d", n);
    std::strcpy(r.Target, "operator");
    std::strcpy(r.Msg, "Event %s on %s");
    r.UserOID = user;
    r.ServiceOID = service;
    _GUID responseId{}, linkId{};
    ok = ok && responses.DBAlertRecAdd(&r, &responseId) == 0;
    ALRTEVENT_RESPREC link{};
    platform::CoCreateGuid(&link.EventClassOID);
    link.ResponseOID = responseId;
    ok = ok && links.DBAlertRecAdd(&link, &linkId) == 0;
    ++n;
  };
  auto addUser = [&](const _GUID &id) {
    ALERTUSRREC u{};
    u.KEPOID = id;
    _GUID newId{};
    ok = ok && users.DBAlertRecAdd(&u, &newId) == 0;
  };
  addUser(target);
  for (int i = 0; ok && i < kOwnRecords; ++i) {
    _GUID service;
    platform::CoCreateGuid(&service);
    give(target, service);
  }
  for (int i = 0; ok && i < kOtherUsers; ++i) {
    _GUID user, service;
    platform::CoCreateGuid(&user);
    platform::CoCreateGuid(&service);
    addUser(user);
    give(user, service);
  }
  ok = DBFileUnlock(links.handle()) == 0 && ok;
  ok = DBFileUnlock(responses.handle()) == 0 && ok;
  ok = DBFileUnlock(users.handle()) == 0 && ok;
  return ok ? "" : "the engine's fill failed";
}

const SeedFiles &seedFiles() {
  static const SeedFiles files(std::vector<std::string>(std::begin(kFiles), std::end(kFiles)),
                               kSeedPrefix);
  return files;
}

const Seed &seed() {
  static const Seed made = [] {
    BenchEnvironment::get();  // the tables find their data directory through it
    Seed s;
    platform::CoCreateGuid(&s.user);
    s.error = seedFiles().make([&] { return fillSeed(s.user); });
    return s;
  }();
  return made;
}

// "" when the files hold exactly the other users' records.
std::string checkAfter(const std::string &prefix) {
  auto path = [&](const char *file) { return BenchEnvironment::get().file(prefix + file); };
  struct Expect {
    const char *file, *table;
  };
  for (Expect e : {Expect{"kepuser.dat", "\"AlertUsr_Table\""},
                   {"kepuser.dat", "\"UsrInst\""},
                   {"kepuser.dat", "\"USR_SMTP_Service\""},
                   {"AlRespDB.dat", "\"AlertResp_Table\""},
                   {"AlEvntdb.dat", "\"EVENT_RESP\""}}) {
    if (rowCount(path(e.file), e.table) != kOtherUsers) {
      return std::string("wrong row count in ") + e.table;
    }
  }
  return "";
}

// ------------------------------------------------------------ plain SQLite

class PlainCascade {
 public:
  explicit PlainCascade(const std::string &prefix)
      : users_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[0]))),
        responses_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[1]))),
        links_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[2]))),
        instancesOfUser_(users_,
                         "SELECT seq, record FROM \"UsrInst\" WHERE k74=? ORDER BY k74, seq"),
        deleteInstance_(users_, "DELETE FROM \"UsrInst\" WHERE seq=?"),
        deleteAddress_(users_, "DELETE FROM \"USR_SMTP_Service\" WHERE k40=?"),
        deleteUser_(users_, "DELETE FROM \"AlertUsr_Table\" WHERE k11=?"),
        responsesOfUser_(responses_,
                         "SELECT seq, k1, k8, k13 FROM \"AlertResp_Table\" WHERE k12=?"
                         " ORDER BY k12, seq"),
        deleteResponse_(responses_, "DELETE FROM \"AlertResp_Table\" WHERE seq=?"),
        deleteLinks_(links_, "DELETE FROM \"EVENT_RESP\" WHERE k44=?") {}
  ~PlainCascade() {
    for (sqlite3 *db : {users_, responses_, links_}) sqlite3_close_v2(db);
  }

  bool ready() const {
    return users_ && responses_ && links_ && instancesOfUser_.ready() && deleteInstance_.ready() &&
           deleteAddress_.ready() && deleteUser_.ready() && responsesOfUser_.ready() &&
           deleteResponse_.ready() && deleteLinks_.ready();
  }

  // What CAlertUsrDB::DBAlertRecDelete does.
  bool deleteUser(const _GUID &user) {
    struct Instance {
      std::int64_t seq;
      ALRTUSRINSTSERV record;
    };
    std::vector<Instance> instances;
    sqlite3_stmt *s = instancesOfUser_.get();
    sqlite3_bind_blob(s, 1, &user, 16, SQLITE_STATIC);
    unsigned char replication[12];
    while (sqlite3_step(s) == SQLITE_ROW) {
      Instance i{sqlite3_column_int64(s, 0), {}};
      Segment segments[] = {{sizeof i.record, reinterpret_cast<unsigned char *>(&i.record)},
                            {sizeof replication, replication}};
      if (!decodeImage(sqlite3_column_blob(s, 1),
                       static_cast<std::size_t>(sqlite3_column_bytes(s, 1)), segments, 2)) {
        sqlite3_reset(s);
        return false;
      }
      instances.push_back(i);
    }
    sqlite3_reset(s);
    bool ok = true;
    for (Instance &i : instances) {
      ok = run(deleteInstance_, i.seq) && ok;
      // The per-user table of the instance's kind; only mail addresses here.
      if (i.record.ServiceType != 5) return false;
      ok = run(deleteAddress_, i.record.ServicePerInfo_KEPOID) && ok;
      ok = deleteResponses(user, &i.record.Service_KEPOID) && ok;
    }
    ok = deleteResponses(user, nullptr) && ok;
    return run(deleteUser_, user) && ok;
  }

 private:
  // One statement, one transaction.
  static bool run(Statement &statement, std::int64_t seq) {
    sqlite3_stmt *s = statement.get();
    sqlite3_bind_int64(s, 1, seq);
    bool done = sqlite3_step(s) == SQLITE_DONE;
    sqlite3_reset(s);
    return done;
  }
  static bool run(Statement &statement, const _GUID &id) {
    sqlite3_stmt *s = statement.get();
    sqlite3_bind_blob(s, 1, &id, 16, SQLITE_STATIC);
    bool done = sqlite3_step(s) == SQLITE_DONE;
    sqlite3_reset(s);
    return done;
  }

  // The user's responses (through `service` only, when given) that are
  // neither test responses nor protected, with their links.
  bool deleteResponses(const _GUID &user, const _GUID *service) {
    std::vector<std::pair<std::int64_t, _GUID>> doomed;
    sqlite3_stmt *s = responsesOfUser_.get();
    sqlite3_bind_blob(s, 1, &user, 16, SQLITE_STATIC);
    while (sqlite3_step(s) == SQLITE_ROW) {
      _GUID id;
      std::memcpy(&id, sqlite3_column_blob(s, 1), 16);
      bool guarded = (sqlite3_column_int64(s, 2) & CAlertRespDB::kProtected) != 0 ||
                     (id.Data1 >= 0x6E2B4053 && id.Data1 <= 0x6E2B4061 && id.Data2 == 0x3C95);
      if (service && std::memcmp(sqlite3_column_blob(s, 3), service, 16) != 0) continue;
      if (!guarded) doomed.emplace_back(sqlite3_column_int64(s, 0), id);
    }
    sqlite3_reset(s);
    bool ok = true;
    for (const auto &[seq, id] : doomed) {
      ok = run(deleteResponse_, seq) && ok;
      ok = run(deleteLinks_, id) && ok;
    }
    return ok;
  }

  sqlite3 *users_, *responses_, *links_;
  Statement instancesOfUser_, deleteInstance_, deleteAddress_, deleteUser_;
  Statement responsesOfUser_, deleteResponse_, deleteLinks_;
};

// ------------------------------------------------------------ the two sides

void engineCascade(benchmark::State &state) {
  const Seed &s = seed();
  runCascade(
      state, s.error, seedFiles(), "", kDeletedRows,
      [&] {
        CAlertUsrDB table;
        _GUID id = s.user;
        return table.DBOpen() == 0 && table.DBAlertRecDelete(&id) == 0;
      },
      checkAfter);
}

void baselineCascade(benchmark::State &state) {
  const Seed &s = seed();
  runCascade(
      state, s.error, seedFiles(), kBaselinePrefix, kDeletedRows,
      [&] {
        PlainCascade plain(kBaselinePrefix);
        return plain.ready() && plain.deleteUser(s.user);
      },
      checkAfter);
}

const bool g_registered =
    (registerPaired("UserDeleteCascade/100+100of10000", engineCascade, baselineCascade), true);

}  // namespace

}  // namespace alertdb_bench
