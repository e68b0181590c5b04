// The alerting data the resource tests write, through the table classes:
// event log entries, users reached through services (an instance, an
// address record and a response each), and servers with installed
// services. Every call's status decides what the files must hold afterwards:
// what a call reported done is there exactly as written, what it reported
// failed is not (or, where the Parts allow a call to stop half way, either),
// and nothing is there that no call made.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "alertdb.h"
#include "reliability/damaged/damaged_reference.h"
#include "reliability/harness_tables.h"

namespace alertdb_test::resources {

enum class Expect { Present, Absent, Either };

struct Expected {
  std::string bytes;
  Expect expect = Expect::Present;
};

// Every record a call made or removed, by table and object ID (hex).
using Model = std::map<std::string, std::map<std::string, Expected>>;

template <class Rec>
std::string bytesOf(const Rec &record) {
  return std::string(reinterpret_cast<const char *>(&record), sizeof record);
}

inline std::string idOf(const _GUID &id) { return damage::hexOf(&id, sizeof id); }

inline bool isNamed(std::uint32_t status) {
  return std::strcmp(AlertDBStatusName(status), "UNKNOWN") != 0;
}

class AlertData {
 public:
  static constexpr const char *kLog = "EVENT_LOG";
  static constexpr const char *kUsers = "AlertUsr_Table";
  static constexpr const char *kInstances = "UsrInst";
  static constexpr const char *kAddresses = "USR_SMTP_Service";
  static constexpr const char *kResponses = "AlertResp_Table";
  static constexpr const char *kServers = "ALRT_Server_Config";
  static constexpr const char *kInstalled = "SERV_INST_NTFY_SERV";
  static constexpr const char *kCatalogue = "Notify_Services";

  explicit AlertData(std::uint64_t seed) : random_(seed) {}

  // Opens every table the work uses, making the files and tables that are
  // missing, and the catalogue services users and servers use (on first
  // open). 0 or the first failing status.
  std::uint32_t open() {
    log_ = std::make_unique<CAlertEVENT_LOGDB>();
    users_ = std::make_unique<CAlertUsrDB>();
    instances_ = std::make_unique<CAlertUsrInstServDB>();
    responses_ = std::make_unique<CAlertRespDB>();
    servers_ = std::make_unique<CAlert_SRV_CFGDB>();
    catalogue_ = std::make_unique<CAlertNtfyServDB>();
    for (std::uint32_t r :
         {harness::openOrMake(*log_), harness::openOrMake(*users_), harness::openOrMake(*instances_), harness::openOrMake(*responses_),
          harness::openOrMake(*servers_), harness::openOrMake(*catalogue_)}) {
      if (r != 0) return r;
    }
    {
      CAlertUSR_SMTPDB addresses;
      CAlertSERV_INST_NTFY_SERVDB installed;
      for (std::uint32_t r : {harness::openOrMake(addresses), harness::openOrMake(installed)}) {
        if (r != 0) return r;
      }
    }
    while (userServices_.size() < 3 || serverServices_.size() < 3) {
      ALRTNTFYSERV row{};
      std::snprintf(row.Service_Name, sizeof row.Service_Name, "Mail %zu",
                    userServices_.size() + serverServices_.size());
      row.ServiceType = CAlertSMTPNtfyServDB::kServiceType;
      ALRTSMTPSERVICEREC settings{};
      std::snprintf(settings.Server_addr, sizeof settings.Server_addr, "mail.example");
      _GUID id{}, settingsId{};
      std::uint32_t r = catalogue_->DBAlertRecAdd(&row, &id, &settings, &settingsId);
      if (r != 0) return r;
      model_[kCatalogue][idOf(id)] = {bytesOf(row), Expect::Present};
      (userServices_.size() < 3 ? userServices_ : serverServices_).push_back(id);
    }
    return 0;
  }

  void close() {
    log_.reset();
    users_.reset();
    instances_.reset();
    responses_.reset();
    servers_.reset();
    catalogue_.reset();
  }

  // An event log entry; a large one is random throughout (several pages).
  std::uint32_t addLogEntry(bool large) {
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    fill(*e, large);
    e->Ack = random_() % 3 == 0 ? 1 : 0;
    e->Severity = static_cast<std::uint32_t>(random_() % 5);
    e->EventID = 3000 + static_cast<std::uint32_t>(random_() % 100);
    _GUID id{};
    std::uint32_t r = count(log_->DBAlertRecAdd(e.get(), &id));
    Expected &slot = model_[kLog][idOf(e->KEPOID)];
    slot = {bytesOf(*e), expectOf(r)};
    if (r == 0) {
      readBack(*log_, e->KEPOID, slot.bytes, kLog);
      if (e->Ack == 1) acknowledged_.push_back(e->KEPOID);
    }
    return r;
  }

  // A user with `services` services, each an instance and an SMTP address,
  // and a response through each. The first failing status, or 0.
  std::uint32_t addUser(int services) {
    ALERTUSRREC user{};
    user.AlertRecp = 1;
    _GUID userId{};
    std::uint32_t r = count(users_->DBAlertRecAdd(&user, &userId));
    // The object manager's refusal leaves the record added.
    model_[kUsers][idOf(user.KEPOID)] = {bytesOf(user), expectOf(r)};
    if (r != 0) return r;
    readBack(*users_, user.KEPOID, bytesOf(user), kUsers);
    UserParts parts{user.KEPOID, {}, {}, {}};
    for (int k = 0; k < services; ++k) {
      const _GUID &service = userServices_[static_cast<std::size_t>(k) % userServices_.size()];
      ALRTUSRINSTSERV instance{};
      instance.UserOid = user.KEPOID;
      instance.Service_KEPOID = service;
      std::strcpy(instance.Service_Name, "Internet Mail");
      ALRTUSR_SMTPSERVICEREC address{};
      address.USR_OID = user.KEPOID;
      std::snprintf(address.SMTPMailAddr, sizeof address.SMTPMailAddr, "user%u@example", made_++);
      _GUID instanceId{}, addressId{};
      r = count(instances_->DBAlertRecAdd(&instance, &instanceId, &address, &addressId));
      // A failed instance add may leave the address record stored.
      if (!isZero(address.KEPOID)) {
        model_[kAddresses][idOf(address.KEPOID)] = {bytesOf(address),
                                                    r == 0 ? Expect::Present : Expect::Either};
        parts.addresses.push_back(address.KEPOID);
      }
      if (!isZero(instance.KEPOID)) {
        model_[kInstances][idOf(instance.KEPOID)] = {bytesOf(instance), expectOf(r)};
        parts.instances.push_back(instance.KEPOID);
      }
      if (r != 0) break;
      readBack(*instances_, instance.KEPOID, bytesOf(instance), kInstances);
      auto response = std::make_unique<ALERTRESPREC>();
      std::snprintf(response->Name, sizeof response->Name, "Response %u", made_++);
      std::strcpy(response->Target, "someone");
      response->UserOID = user.KEPOID;
      response->ServiceOID = service;
      _GUID responseId{};
      r = count(responses_->DBAlertRecAdd(response.get(), &responseId));
      model_[kResponses][idOf(response->KEPOID)] = {bytesOf(*response), expectOf(r)};
      parts.responses.push_back(response->KEPOID);
      if (r != 0) break;
      readBack(*responses_, response->KEPOID, bytesOf(*response), kResponses);
    }
    users.push_back(parts);
    return r;
  }

  // A server with `services` installed services.
  std::uint32_t addServer(int services) {
    ALRT_SRV_CFGREC server{};
    std::snprintf(server.MachineName, sizeof server.MachineName, "server-%u", made_++);
    _GUID serverId{};
    std::uint32_t r = count(servers_->DBAlertRecAdd(&server, &serverId));
    model_[kServers][idOf(server.KEPOID)] = {bytesOf(server), expectOf(r)};
    if (r != 0) return r;
    readBack(*servers_, server.KEPOID, bytesOf(server), kServers);
    ServerParts parts{server.KEPOID, {}};
    CAlertSERV_INST_NTFY_SERVDB installed;
    for (int k = 0; k < services && r == 0; ++k) {
      _GUID service = serverServices_[static_cast<std::size_t>(k) % serverServices_.size()];
      _GUID id{};
      r = count(servers_->QALRTServCfgAddNtfyServiceEntry(&server.KEPOID, &service, "Internet Mail",
                                                          &id));
      if (r != 0) break;
      // What was stored, read at once: a success must be readable.
      ALRTSERV_INST_NTFY_SERVREC stored{};
      std::uint32_t read = installed.DBOpen();
      if (read == 0) read = installed.DBAlertRecRetrieve(&id, &stored);
      if (read != 0 || std::memcmp(&stored.ServiceOID, &service, 16) != 0 ||
          std::memcmp(&stored.ServerOID, &server.KEPOID, 16) != 0) {
        problems.push_back("an installed service reported added reads back with status " +
                           std::string(AlertDBStatusName(read)));
      }
      model_[kInstalled][idOf(id)] = {bytesOf(stored), Expect::Present};
      parts.installed.push_back(id);
    }
    serverList.push_back(parts);
    return r;
  }

  // Deletes the oldest user still there, with its instances, addresses and
  // responses.
  std::uint32_t deleteUser(bool mustComplete = false) {
    for (auto it = users.begin(); it != users.end(); ++it) {
      if (model_[kUsers][idOf(it->id)].expect != Expect::Present) continue;
      _GUID id = it->id;
      std::uint32_t r = count(users_->DBAlertRecDelete(&id));
      // A delete that stops part way leaves what it deleted deleted.
      Expect after = r == 0 ? Expect::Absent : Expect::Either;
      Expect parts = r == 0 || mustComplete ? Expect::Absent : Expect::Either;
      model_[kUsers][idOf(id)].expect = after;
      for (const _GUID &p : it->instances) model_[kInstances][idOf(p)].expect = parts;
      for (const _GUID &p : it->addresses) model_[kAddresses][idOf(p)].expect = parts;
      for (const _GUID &p : it->responses) model_[kResponses][idOf(p)].expect = parts;
      if (r == 0) users.erase(it);
      return r;
    }
    return 0;
  }

  // Deletes the oldest server still there, with its installed services
  // (whose deletes' results the server's delete does not examine).
  std::uint32_t deleteServer(bool mustComplete = false) {
    for (auto it = serverList.begin(); it != serverList.end(); ++it) {
      if (model_[kServers][idOf(it->id)].expect != Expect::Present) continue;
      _GUID id = it->id;
      std::uint32_t r = count(servers_->DBAlertRecDelete(&id));
      model_[kServers][idOf(id)].expect = r == 0 ? Expect::Absent : Expect::Either;
      for (const _GUID &p : it->installed) {
        model_[kInstalled][idOf(p)].expect = mustComplete ? Expect::Absent : Expect::Either;
      }
      if (r == 0) serverList.erase(it);
      return r;
    }
    return 0;
  }

  // The purge of acknowledged entries: it returns 0 whatever its deletes
  // gave, so each entry may stay unless the purge must complete.
  std::uint32_t purge(bool mustComplete = false) {
    std::uint32_t r = count(PurgeLog(kPurgeAcknowledged));
    for (const _GUID &id : acknowledged_) {
      Expected &slot = model_[kLog][idOf(id)];
      if (slot.expect == Expect::Absent) continue;
      slot.expect = r == 0 && mustComplete ? Expect::Absent : Expect::Either;
    }
    return r;
  }

  // What the files hold against what the calls said, read through fresh
  // table objects; the differences found.
  std::vector<std::string> verify() {
    std::vector<std::string> found;
    compare<CAlertEVENT_LOGDB>(kLog, found);
    compare<CAlertUsrDB>(kUsers, found);
    compare<CAlertUsrInstServDB>(kInstances, found);
    compare<CAlertUSR_SMTPDB>(kAddresses, found);
    compare<CAlertRespDB>(kResponses, found);
    compare<CAlert_SRV_CFGDB>(kServers, found);
    compare<CAlertSERV_INST_NTFY_SERVDB>(kInstalled, found);
    compare<CAlertNtfyServDB>(kCatalogue, found);
    return found;
  }

  std::size_t present(const std::string &table) {
    std::size_t n = 0;
    for (const auto &[id, e] : model_[table]) n += e.expect == Expect::Present;
    return n;
  }

  // Every status a call gave, by name, and how often.
  std::map<std::string, std::size_t> statuses;
  // Calls that reported success for what cannot be read back at once, and
  // statuses without a name.
  std::vector<std::string> problems;

  struct UserParts {
    _GUID id;
    std::vector<_GUID> instances, addresses, responses;
  };
  struct ServerParts {
    _GUID id;
    std::vector<_GUID> installed;
  };
  std::vector<UserParts> users;
  std::vector<ServerParts> serverList;

 private:
  static bool isZero(const _GUID &id) {
    static const _GUID zero{};
    return std::memcmp(&id, &zero, sizeof id) == 0;
  }

  template <class Rec>
  void fill(Rec &record, bool large) {
    auto *bytes = reinterpret_cast<unsigned char *>(&record);
    std::memset(bytes, 0, sizeof record);
    std::size_t upTo = large ? sizeof record : 200;
    for (std::size_t i = 16; i < upTo && i < sizeof record; ++i) {
      bytes[i] = static_cast<unsigned char>(random_());
    }
  }

  std::uint32_t count(std::uint32_t status) {
    ++statuses[AlertDBStatusName(status)];
    if (!isNamed(status)) problems.push_back("a call gave status " + std::to_string(status));
    return status;
  }

  // An add that failed in the engine stored nothing; other failures (the
  // object manager's, say) may come after the record was stored.
  static Expect expectOf(std::uint32_t status) {
    return status == 0                  ? Expect::Present
           : status == ALRT_E_ADDFAILED ? Expect::Absent
                                        : Expect::Either;
  }

  template <class Table>
  void readBack(Table &table, _GUID id, const std::string &bytes, const char *name) {
    std::string got(bytes.size(), '\0');
    using Rec = harness::RecordOf<Table>;
    std::uint32_t r = table.DBAlertRecRetrieve(&id, reinterpret_cast<Rec *>(got.data()));
    if (r != 0 || got != bytes) {
      problems.push_back(std::string(name) + " record " + idOf(id) +
                         " reported added does not read back (" + AlertDBStatusName(r) + ")");
    }
  }

  template <class Table>
  void compare(const char *name, std::vector<std::string> &found) {
    harness::Exposed<Table> table;
    using Rec = harness::RecordOf<Table>;
    std::map<std::string, Expected> &expected = model_[name];
    std::uint32_t r = table.DBOpen();
    if (r != 0) {
      found.push_back(std::string(name) + " does not open: " + AlertDBStatusName(r));
      return;
    }
    auto record = std::make_unique<Rec>();
    for (auto &[id, e] : expected) {
      std::memset(record.get(), 0, sizeof(Rec));
      _GUID guid;
      for (std::size_t i = 0; i < sizeof guid; ++i) {
        reinterpret_cast<unsigned char *>(&guid)[i] =
            static_cast<unsigned char>(std::stoi(id.substr(2 * i, 2), nullptr, 16));
      }
      std::uint32_t got = table.DBAlertRecRetrieve(&guid, record.get());
      bool there = got == 0;
      if (got != 0 && got != ALRT_E_NOTFOUND) {
        found.push_back(std::string(name) + " " + id + " reads with " + AlertDBStatusName(got));
      } else if (there && bytesOf(*record) != e.bytes) {
        found.push_back(std::string(name) + " " + id + " is not as written");
      } else if (there && e.expect == Expect::Absent) {
        found.push_back(std::string(name) + " " + id + " is there after a call said it was not");
      } else if (!there && e.expect == Expect::Present) {
        found.push_back(std::string(name) + " " + id +
                        " is missing after a call said it was stored");
      }
    }
    // Nothing is there that no call made.
    std::uint32_t key = table.idKey();
    std::size_t seen = 0;
    for (std::uint32_t s = table.DBAlertRecFindFirst(key, 0, nullptr, record.get()); s == 0;
         s = table.DBAlertRecFindNext(record.get())) {
      std::string id = damage::hexOf(record.get(), 16);
      if (!expected.count(id))
        found.push_back(std::string(name) + " holds " + id + " that no call made");
      if (++seen > expected.size() + 1) break;
    }
  }

  std::mt19937_64 random_;
  std::uint32_t made_ = 0;
  std::unique_ptr<CAlertEVENT_LOGDB> log_;
  std::unique_ptr<CAlertUsrDB> users_;
  std::unique_ptr<CAlertUsrInstServDB> instances_;
  std::unique_ptr<CAlertRespDB> responses_;
  std::unique_ptr<CAlert_SRV_CFGDB> servers_;
  std::unique_ptr<CAlertNtfyServDB> catalogue_;
  std::vector<_GUID> userServices_, serverServices_, acknowledged_;
  Model model_;
};

}  // namespace alertdb_test::resources
