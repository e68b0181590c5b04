// Deleting an alert server with 50 installed services, each service with two
// users' instances (with their address records) and two responses (with a
// link each), among 1,000 other servers with 5 installed services each, and
// those services with an instance, an address, a response and a link each;
// every ID random, so that the server's records lie among the others' in
// every key order. Beside it, plain SQLite doing the same deletes on copies
// of the same engine-made files: the same walks over the server's installed
// services and, for each, over the service's responses, its instances and
// their users' responses, each row deleted in a transaction of its own as
// the engine's cascade commits it, the engine's pragmas. The baseline reads
// the keys it needs from their columns where the engine reads whole records,
// and opens its connections once where the engine opens the dependent tables
// for each installed service, so it is the stricter side.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bench_support.h"
#include "config/server_config_table.h"
#include "events/event_resp_table.h"
#include "framework/file_locks.h"
#include "platform/guid.h"
#include "recipients/user_table.h"
#include "responses/response_table.h"
#include "seeded_cascade.h"

namespace alertdb_bench {

namespace {

constexpr int kOwnServices = 50;     // installed on the deleted server
constexpr int kUsersPerService = 2;  // each with an instance and a response
constexpr int kOtherServers = 1000;
constexpr int kServicesPerOther = 5;  // each with one user, instance, response
constexpr int kOtherServices = kOtherServers * kServicesPerOther;
// Server, installed services, and per user: instance, address, response, link.
constexpr int kDeletedRows = 1 + kOwnServices + 4 * kOwnServices * kUsersPerService;
constexpr const char *kFiles[] = {"AlCfgdb.dat", "kepuser.dat", "AlRespDB.dat", "AlEvntdb.dat"};
constexpr const char *kSeedPrefix = "ServerSeed.";
constexpr const char *kBaselinePrefix = "ServerSqlite.";

struct Seed {
  _GUID server{};
  std::string error;
};

// The data set, written once by the engine through its own tables into the
// files of the data directory, then kept as seed copies.
std::string fillSeed(const _GUID &target) {
  Lockable<CAlert_SRV_CFGDB> servers;
  Lockable<CAlertUsrDB> users;
  Lockable<CAlertRespDB> responses;
  Lockable<CAlertEVENT_RESPDB> links;
  if (servers.DBCreate() != 0 || servers.DBOpen() != 0 || users.DBCreate() != 0 ||
      responses.DBCreate() != 0 || links.DBCreate() != 0) {
    return "cannot create the tables";
  }
  for (KEPDB *h : {servers.handle(), users.handle(), responses.handle(), links.handle()}) {
    DBFileLock(h);
  }
  bool ok = true;
  int n = 0;
  auto addServer = [&](_GUID id) {
    ALRT_SRV_CFGREC s{};
    s.KEPOID = id;
    std::snprintf(s.MachineName, sizeof s.MachineName, "server%d", n++);
    _GUID newId{};
    ok = ok && servers.DBAlertRecAdd(&s, &newId) == 0;
  };
  // A user of the service with its instance, address, response and link.
  auto addUser = [&](const _GUID &service) {
    ALERTUSRREC u{};
    _GUID user{};
    ok = ok && users.DBAlertRecAdd(&u, &user) == 0;
    ALRTUSR_SMTPSERVICEREC address{};
    address.USR_OID = user;
    std::snprintf(address.SMTPMailAddr, sizeof address.SMTPMailAddr, "user%d@example.org", n);
    _GUID s = service;
    ok = ok && users.QALRTUsrAddService(&user, &s, &address) == 0;
    ALERTRESPREC r{};
    std::snprintf(r.Name, sizeof r.Name, "response %d", n++);
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
  };
  auto install = [&](_GUID server, int userCount) {
    _GUID service, installedId;
    platform::CoCreateGuid(&service);
    ok = ok &&
         servers.QALRTServCfgAddNtfyServiceEntry(&server, &service, "SMTP Mail", &installedId) == 0;
    for (int u = 0; ok && u < userCount; ++u) addUser(service);
  };
  addServer(target);
  for (int i = 0; ok && i < kOwnServices; ++i) install(target, kUsersPerService);
  for (int i = 0; ok && i < kOtherServers; ++i) {
    _GUID server;
    platform::CoCreateGuid(&server);
    addServer(server);
    for (int s = 0; ok && s < kServicesPerOther; ++s) install(server, 1);
  }
  for (KEPDB *h : {links.handle(), responses.handle(), users.handle(), servers.handle()}) {
    ok = DBFileUnlock(h) == 0 && ok;
  }
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
    platform::CoCreateGuid(&s.server);
    s.error = seedFiles().make([&] { return fillSeed(s.server); });
    return s;
  }();
  return made;
}

// "" when the files hold exactly the other servers' records.
std::string checkAfter(const std::string &prefix) {
  auto path = [&](const char *file) { return BenchEnvironment::get().file(prefix + file); };
  struct Expect {
    const char *file, *table;
    int rows;
  };
  for (Expect e :
       {Expect{"AlCfgdb.dat", "\"ALRT_Server_Config\"", kOtherServers},
        {"AlCfgdb.dat", "\"ServerInstService\"", kOtherServices},
        {"kepuser.dat", "\"UsrInst\"", kOtherServices},
        {"kepuser.dat", "\"USR_SMTP_Service\"", kOtherServices},
        {"kepuser.dat", "\"AlertUsr_Table\"", kOtherServices + kOwnServices * kUsersPerService},
        {"AlRespDB.dat", "\"AlertResp_Table\"", kOtherServices},
        {"AlEvntdb.dat", "\"EVENT_RESP\"", kOtherServices}}) {
    if (rowCount(path(e.file), e.table) != e.rows) {
      return std::string("wrong row count in ") + e.table;
    }
  }
  return "";
}

// ------------------------------------------------------------ plain SQLite

class PlainServerDelete {
 public:
  explicit PlainServerDelete(const std::string &prefix)
      : config_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[0]))),
        users_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[1]))),
        responses_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[2]))),
        links_(openLikeEngine(BenchEnvironment::get().file(prefix + kFiles[3]))),
        installedOfServer_(config_,
                           "SELECT seq, k66 FROM \"ServerInstService\" WHERE k68=?"
                           " ORDER BY k68, seq"),
        deleteInstalled_(config_, "DELETE FROM \"ServerInstService\" WHERE seq=?"),
        deleteServer_(config_, "DELETE FROM \"ALRT_Server_Config\" WHERE k1=?"),
        instancesOfService_(users_,
                            "SELECT seq, record FROM \"UsrInst\" WHERE k73=? ORDER BY k73, seq"),
        deleteInstance_(users_, "DELETE FROM \"UsrInst\" WHERE seq=?"),
        deleteAddress_(users_, "DELETE FROM \"USR_SMTP_Service\" WHERE k40=?"),
        responsesOfService_(responses_,
                            "SELECT seq, k1, k8 FROM \"AlertResp_Table\" WHERE k13=?"
                            " ORDER BY k13, seq"),
        responsesOfUser_(responses_,
                         "SELECT seq, k1, k8, k13 FROM \"AlertResp_Table\" WHERE k12=?"
                         " ORDER BY k12, seq"),
        deleteResponse_(responses_, "DELETE FROM \"AlertResp_Table\" WHERE seq=?"),
        deleteLinks_(links_, "DELETE FROM \"EVENT_RESP\" WHERE k44=?") {}
  ~PlainServerDelete() {
    for (sqlite3 *db : {config_, users_, responses_, links_}) sqlite3_close_v2(db);
  }

  bool ready() const {
    return config_ && users_ && responses_ && links_ && installedOfServer_.ready() &&
           deleteInstalled_.ready() && deleteServer_.ready() && instancesOfService_.ready() &&
           deleteInstance_.ready() && deleteAddress_.ready() && responsesOfService_.ready() &&
           responsesOfUser_.ready() && deleteResponse_.ready() && deleteLinks_.ready();
  }

  // What CAlert_SRV_CFGDB::DBAlertRecDelete does.
  bool deleteServer(const _GUID &server) {
    std::vector<std::pair<std::int64_t, _GUID>> installed;
    sqlite3_stmt *s = installedOfServer_.get();
    sqlite3_bind_blob(s, 1, &server, 16, SQLITE_STATIC);
    while (sqlite3_step(s) == SQLITE_ROW) {
      _GUID service;
      std::memcpy(&service, sqlite3_column_blob(s, 1), 16);
      installed.emplace_back(sqlite3_column_int64(s, 0), service);
    }
    sqlite3_reset(s);
    bool ok = true;
    for (const auto &[seq, service] : installed) ok = deleteInstalled(seq, service) && ok;
    return run(deleteServer_, server) && ok;
  }

 private:
  // What CAlertSERV_INST_NTFY_SERVDB::DBAlertRecDelete does for a record
  // that is not a backup server's.
  bool deleteInstalled(std::int64_t seq, const _GUID &service) {
    bool ok = deleteResponses(responsesOfService_, service, nullptr);
    struct Instance {
      std::int64_t seq;
      ALRTUSRINSTSERV record;
    };
    std::vector<Instance> instances;
    sqlite3_stmt *s = instancesOfService_.get();
    sqlite3_bind_blob(s, 1, &service, 16, SQLITE_STATIC);
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
    for (Instance &i : instances) {
      ok = run(deleteInstance_, i.seq) && ok;
      // The per-user table of the instance's kind; only mail addresses here.
      if (i.record.ServiceType != 5) return false;
      ok = run(deleteAddress_, i.record.ServicePerInfo_KEPOID) && ok;
      ok = deleteResponses(responsesOfUser_, i.record.UserOid, &i.record.Service_KEPOID) && ok;
    }
    return run(deleteInstalled_, seq) && ok;
  }

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

  // The responses `walk` finds for `key` (through `service` only, when
  // given) that are neither test responses nor protected, with their links.
  bool deleteResponses(Statement &walk, const _GUID &key, const _GUID *service) {
    std::vector<std::pair<std::int64_t, _GUID>> doomed;
    sqlite3_stmt *s = walk.get();
    sqlite3_bind_blob(s, 1, &key, 16, SQLITE_STATIC);
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

  sqlite3 *config_, *users_, *responses_, *links_;
  Statement installedOfServer_, deleteInstalled_, deleteServer_;
  Statement instancesOfService_, deleteInstance_, deleteAddress_;
  Statement responsesOfService_, responsesOfUser_, deleteResponse_, deleteLinks_;
};

// ------------------------------------------------------------ the two sides

void engineDelete(benchmark::State &state) {
  const Seed &s = seed();
  runCascade(
      state, s.error, seedFiles(), "", kDeletedRows,
      [&] {
        CAlert_SRV_CFGDB table;
        _GUID id = s.server;
        return table.DBOpen() == 0 && table.DBAlertRecDelete(&id) == 0;
      },
      checkAfter);
}

void baselineDelete(benchmark::State &state) {
  const Seed &s = seed();
  runCascade(
      state, s.error, seedFiles(), kBaselinePrefix, kDeletedRows,
      [&] {
        PlainServerDelete plain(kBaselinePrefix);
        return plain.ready() && plain.deleteServer(s.server);
      },
      checkAfter);
}

const bool g_registered =
    (registerPaired("ServerDelete/50services+200users_of1000servers", engineDelete, baselineDelete),
     true);

}  // namespace

}  // namespace alertdb_bench
