// A worker process of the concurrency harness: two threads, each with its
// own table objects, mix every record operation, the cascades, enumerations
// and the file and read locks on the data directory of ALERTDB_DATA_DIR until
// their time is up, logging each call. Each thread changes only records it
// made; it reads and enumerates everyone's.
//
//   concurrency_worker <worker> <seconds> <seed> <log directory> [open]
//
// Talks on its standard streams: prints "ready <pid>", waits for "go", runs,
// prints "done <calls> <problems> <sets seen>", then serves "signal" (makes a
// change through a third table set and prints "signalled <count before>
// <count after>"), "watch <count>" (waits for the change event's set count to
// reach it: "saw <count> <signalled>" or "missed <count>") and "quit".
// With "open" the threads only open or create every table at once and add a
// user each, printing "opened <status> <status>".
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "alertdb.h"
#include "reliability/concurrency/concurrency_log.h"
#include "reliability/concurrency/concurrency_model.h"
#include "reliability/concurrency/concurrency_tables.h"
#include "reliability/concurrency/concurrency_tsan_clocklock.h"

namespace {

using namespace concurrency;
using Clock = std::chrono::steady_clock;

constexpr int kThreads = 2;
// Past this many live records of a kind a thread deletes rather than adds.
constexpr std::size_t kMaxLive = 24;

std::uint64_t microseconds(Clock::time_point t) {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(t.time_since_epoch()).count());
}

template <std::size_t N>
void putText(char (&field)[N], const std::string &text) {
  std::snprintf(field, N, "%s", text.c_str());
}

// How an enumeration orders a key field.
struct KeyField {
  std::uint32_t key;
  enum Kind { Bytes, Text, Number } kind;
  std::size_t offset, size;

  int compare(const unsigned char *x, const unsigned char *y) const {
    x += offset;
    y += offset;
    if (kind == Number) {
      std::uint32_t a, b;
      std::memcpy(&a, x, 4);
      std::memcpy(&b, y, 4);
      return a < b ? -1 : a > b;
    }
    std::size_t n = size, m = size;
    if (kind == Text) {
      n = strnlen(reinterpret_cast<const char *>(x), size);
      m = strnlen(reinterpret_cast<const char *>(y), size);
    }
    int c = std::memcmp(x, y, std::min(n, m));
    return c != 0 ? c : (n < m ? -1 : n > m);
  }
  std::string bytes(const unsigned char *record) const {
    return std::string(reinterpret_cast<const char *>(record) + offset, size);
  }
};

#define KEY_BYTES(key, Rec, member) \
  KeyField { key, KeyField::Bytes, offsetof(Rec, member), sizeof(Rec::member) }
#define KEY_TEXT(key, Rec, member) \
  KeyField { key, KeyField::Text, offsetof(Rec, member), sizeof(Rec::member) }
#define KEY_NUMBER(key, Rec, member) \
  KeyField { key, KeyField::Number, offsetof(Rec, member), 4 }

// The change event, watched for sets by anyone while the threads work.
class EventWatch {
 public:
  EventWatch() : event_(platform::OpenEventA(platform::kEventAllAccess, 0, "AlertDBModifyEvent")) {
    if (event_) platform::GetEventSetCount(event_, &seen_);
    start_ = seen_;
  }
  ~EventWatch() {
    stop();
    if (event_) platform::CloseHandle(event_);
  }
  bool ok() const { return event_ != nullptr; }
  HANDLE event() const { return event_; }
  void start() {
    thread_ = std::thread([this] {
      while (!stop_.load()) {
        std::uint32_t count = 0;
        if (platform::WaitForEventSetAfter(event_, seen_, 100, &count) == platform::kWaitObject0)
          seen_ = count;
      }
    });
  }
  void stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }
  // Sets counted while watching (including this process's own).
  std::uint32_t seenSinceStart() const { return seen_ - start_; }
  std::uint32_t seen() const { return seen_; }
  void setSeen(std::uint32_t count) { seen_ = count; }

 private:
  HANDLE event_;
  std::uint32_t seen_ = 0, start_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// One thread's work: its tables, its model of its own records, its log.
class LoadThread {
 public:
  LoadThread(int worker, int thread, std::uint64_t seed, const std::string &logDir)
      : worker_(worker), owner_(worker * 3 + thread), rng_(seed * 131 + owner_) {
    tag_ = "w" + std::to_string(worker) + "t" + std::to_string(thread);
    log_ = std::fopen(logPath(logDir, worker, thread).c_str(), "w");
  }
  ~LoadThread() {
    if (log_) std::fclose(log_);
  }

  bool logOpen() const { return log_ != nullptr; }
  std::uint32_t open() { return tables_.openAll(); }
  std::uint64_t calls() const { return calls_; }
  std::uint64_t problems() const { return problems_; }

  void run(Clock::time_point until) {
    while (Clock::now() < until) step();
    std::fflush(log_);
  }

  // One add of a user: a change every other process must be told of.
  void addUser() { userAdd(); }

 private:
  // ------------------------------------------------------------ logging

  template <class Call>
  std::uint32_t call(Entry &entry, Call body) {
    Clock::time_point start = Clock::now();
    entry.status = body();
    Clock::time_point end = Clock::now();
    entry.startUs = microseconds(start);
    entry.durationUs = microseconds(end) - entry.startUs;
    return entry.status;
  }

  void log(const Entry &entry) {
    std::fputs((entry.format() + "\n").c_str(), log_);
    ++calls_;
    std::string problem = model_.check(entry, owner_, nullptr);
    if (!problem.empty() && ++problems_ <= 5)
      std::fprintf(stderr, "worker %s: %s\n", tag_.c_str(), problem.c_str());
  }

  void problem(const std::string &what) {
    Entry entry{"problem"};
    entry.startUs = microseconds(Clock::now());
    entry.args.push_back(what);
    std::replace(entry.args[0].begin(), entry.args[0].end(), ' ', '_');
    log(entry);
  }

  // ------------------------------------------------------------ choosing

  std::uint32_t random(std::uint32_t n) {
    return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(rng_);
  }
  bool chance(std::uint32_t percent) { return random(100) < percent; }

  std::string name(const char *kind) {
    return std::string(kind) + " " + tag_ + "-" + std::to_string(++serial_);
  }

  std::size_t liveCount(Table table) const {
    std::size_t n = 0;
    for (const Oid &id : mine_[static_cast<int>(table)]) n += model_.live(id, table) != nullptr;
    return n;
  }

  // One of the thread's records of `table`: a live one, or now and then one
  // it deleted, to see how the calls treat what is gone.
  bool pick(Table table, Oid *id, std::uint32_t stalePercent = 5) {
    const std::vector<Oid> &all = mine_[static_cast<int>(table)];
    std::vector<Oid> live, dead;
    for (const Oid &candidate : all)
      (model_.live(candidate, table) ? live : dead).push_back(candidate);
    const std::vector<Oid> &from =
        !dead.empty() && (live.empty() || chance(stalePercent)) ? dead : live;
    if (from.empty()) return false;
    *id = from[random(static_cast<std::uint32_t>(from.size()))];
    return true;
  }

  bool pickLive(Table table, Oid *id) { return pick(table, id, 0) && model_.live(*id, table); }

  // A new record's object ID: now and then the caller's own.
  _GUID newId() {
    _GUID id{};
    if (chance(25)) platform::CoCreateGuid(&id);
    return id;
  }

  void remember(Table table, const _GUID &id, std::uint32_t status) {
    if (status == 0) mine_[static_cast<int>(table)].push_back(idOf(id));
  }

  // ------------------------------------------------------------ the steps

  void step() {
    std::uint32_t r = random(100);
    if (r < 40) {
      write(kWrittenFiles[random(kFileCount)]);
    } else if (r < 50) {
      batch();
    } else if (r < 62) {
      readOwn();
    } else if (r < 72) {
      children();
    } else if (r < 87) {
      walk(tables_);
    } else if (r < 90) {
      freshWalk();
    } else if (r < 95) {
      readOther();
    } else {
      snapshot();
    }
  }

  // Several writes to one file under its file lock, made durable together.
  void batch() {
    DataFile file = kWrittenFiles[random(kFileCount)];
    KEPDB *handle = tables_.lockHandle(file);
    Entry lock{"lock"};
    lock.args = {fileName(file)};
    call(lock, [&] { return DBFileLock(handle); });
    log(lock);
    if (lock.status != 0) return;
    inBatch_ = true;
    for (std::uint32_t n = 2 + random(5); n > 0; --n) write(file);
    inBatch_ = false;
    Entry unlock{"unlock"};
    unlock.args = {fileName(file)};
    call(unlock, [&] { return DBFileUnlock(handle); });
    log(unlock);
    // The object manager learns of a batch's changes once it is committed.
    std::vector<std::pair<Table, Oid>> held;
    held.swap(registrations_);
    for (const auto &[kind, id] : held) registration(kind, id);
  }

  // Whether the object manager knows a user, event class or log entry the
  // thread changed: as soon as the change returned, or its batch committed.
  void registration(Table kind, const Oid &id) {
    if (inBatch_) {
      registrations_.emplace_back(kind, id);
      return;
    }
    Entry entry{"om"};
    _GUID guid = guidOf(id), known{};
    char name[64];
    // Asked on a thread of its own, which sees only what was committed.
    call(entry, [&] {
      std::uint32_t status = 0;
      std::thread([&] {
        status = platform::KepOMGetInstance(&guid, &known, name, sizeof name);
      }).join();
      return status;
    });
    entry.args = {tableName(kind), oidText(id),
                  entry.status == 0 && idOf(known) == classOf(kind) ? "1" : "0"};
    log(entry);
  }

  // One write to `file`, of a kind chosen by weight; adds give way to
  // deletes where the thread already has many records.
  void write(DataFile file) {
    for (int attempt = 0; attempt < 8; ++attempt) {
      if (writeOnce(file)) return;
    }
  }

  bool writeOnce(DataFile file) {
    std::uint32_t r = random(100);
    switch (file) {
      case kServiceFile:
        if (r < 30) return full(kCatalogue) ? remove(kCatalogue) : serviceAdd();
        if (r < 60) return updateOwn(kCatalogue);
        if (r < 85) return settingsUpdate();
        return remove(kCatalogue);
      case kConfigFile:
        if (r < 20) return full(kServer) ? remove(kServer) : serverAdd();
        if (r < 35) return updateOwn(kServer);
        if (r < 45) return remove(kServer);
        if (r < 70) return full(kInstalled) ? remove(kInstalled) : installedAdd();
        if (r < 88) return installedUpdate();
        return remove(kInstalled);
      case kUserFile:
        if (r < 15) return full(kUser) ? remove(kUser) : userAdd();
        if (r < 27) return updateOwn(kUser);
        if (r < 35) return remove(kUser);
        if (r < 55) return full(kInstance) ? remove(kInstance) : instanceAdd(true);
        if (r < 68) return full(kInstance) ? remove(kInstance) : instanceAdd(false);
        if (r < 80) return updateOwn(kInstance);
        if (r < 90) return remove(kInstance);
        return updateOwn(kAddrSmtp);
      case kResponseFile:
        if (r < 40) return full(kResponse) ? remove(kResponse) : responseAdd();
        if (r < 70) return updateOwn(kResponse);
        return remove(kResponse);
      case kEventFile:
        if (r < 20) return full(kEventClass) ? remove(kEventClass) : eventClassAdd();
        if (r < 35) return updateOwn(kEventClass);
        if (r < 45) return remove(kEventClass);
        if (r < 70) return full(kLink) ? remove(kLink) : linkAdd();
        if (r < 82) return linkPut();
        return remove(kLink);
      case kLogFile:
        if (r < 45) return full(kLog) ? remove(kLog) : logAdd();
        if (r < 75) return updateOwn(kLog);
        return remove(kLog);
      default:
        break;
    }
    return false;
  }

  bool full(Table table) const { return liveCount(table) >= kMaxLive; }

  // Reads a record into `record`, logged as a read of the thread's own ("get") or of
  // another's ("get.any").
  template <class TableObject, class Record>
  bool readOwn(TableObject &table, Table kind, const Oid &id, Record *record,
               const char *op = "get") {
    Entry entry{op};
    *record = Record{};
    _GUID guid = guidOf(id);
    call(entry, [&] { return table.DBAlertRecRetrieve(&guid, record); });
    entry.args = {tableName(kind), oidText(id),
                  hashText(entry.status == 0 ? recordHash(*record) : 0)};
    log(entry);
    return entry.status == 0;
  }

  // The current content of one of the thread's records, or a blank record
  // with its ID when it is gone (the update must then find nothing).
  template <class TableObject, class Record>
  void current(TableObject &table, Table kind, const Oid &id, Record *record) {
    if (!readOwn(table, kind, id, record)) {
      *record = Record{};
      std::memcpy(record, id.data(), id.size());
    }
  }

  template <class TableObject, class Record>
  void update(const char *op, TableObject &table, const Oid &id, Record *record,
              const Record *asRead = nullptr) {
    Entry entry{op};
    call(entry, [&] { return table.DBAlertRecUpdate(record); });
    entry.args = {oidText(id), hashText(recordHash(asRead ? *asRead : *record))};
    log(entry);
  }

  template <class TableObject>
  void erase(const char *op, TableObject &table, const Oid &id) {
    Entry entry{op};
    _GUID guid = guidOf(id);
    call(entry, [&] { return table.DBAlertRecDelete(&guid); });
    entry.args = {oidText(id)};
    log(entry);
  }

  // Deletes one of the thread's records of `table` (or one it deleted).
  bool remove(Table table) {
    Oid id;
    if (!pick(table, &id)) return false;
    std::string op = opName(table, "del");
    tables_.with(table, [&](auto &t) { erase(op.c_str(), t, id); });
    if (table == kEventClass) registration(kEventClass, id);
    return true;
  }

  // Rewrites one of the thread's records of `table` (or one it deleted, when
  // the update must find nothing): the field an update changes, an event
  // class's severity and number (a key), a log entry's acknowledgement.
  bool updateOwn(Table table) {
    Oid id;
    if (!pick(table, &id)) return false;
    tables_.with(table, [&](auto &t) {
      using Record = RecordOf<std::decay_t<decltype(t)>>;
      Record record;
      current(t, table, id, &record);
      scribble(table, &record, name("changed"), ++serial_);
      if constexpr (std::is_same_v<Record, ALRTEVENT_CLASSREC>) {
        record.Severity = random(5);
        record.EventID = 100000 + serial_;
      } else if constexpr (std::is_same_v<Record, ALRTEVENT_LOGREC>) {
        record.Ack = static_cast<unsigned char>(1 + random(2));
      } else if constexpr (std::is_same_v<Record, ALRTNTFYSERV>) {
        record.ServiceType = kSmtpType;  // also where the row is gone: its type is checked first
      }
      derive(record);
      update(opName(table, "upd").c_str(), t, id, &record);
    });
    return true;
  }

  // Adds `record` to `table`, logged as `op` with the arguments `args` makes of the new ID.
  using Args = std::vector<std::string>;
  template <class TableObject, class Record, class MakeArgs>
  bool addOne(TableObject &table, Table kind, const char *op, Record &record, MakeArgs args) {
    _GUID id{};
    Entry entry{op};
    call(entry, [&] { return table.DBAlertRecAdd(&record, &id); });
    // A failed add names the ID it was given.
    entry.args = args(oidText(entry.status == 0 ? idOf(id) : idOfRecord(&record)));
    log(entry);
    remember(kind, id, entry.status);
    // Other processes are told of users, event classes and log entries.
    if (entry.status == 0 && (kind == kUser || kind == kEventClass ||
                              kind == kLog))
      registration(kind, idOf(id));
    return true;
  }

  // The one record of `parent` on `key` that the model does not know: what a
  // call that names no new ID made. Reports a problem unless there is one.
  template <class TableObject, class Record = RecordOf<TableObject>>
  _GUID madeChild(TableObject &table, Table kind, KeyField key, const Oid &parent,
                  const char *before, const char *after) {
    std::set<Oid> known;
    for (const auto &[id, r] : model_.children(kind, 0, parent)) known.insert(id);
    Record found{};
    _GUID made{};
    int fresh = 0;
    harness::walk(table, key.key, &parent, found, [&](const Record &r) {
      if (std::memcmp(reinterpret_cast<const unsigned char *>(&r) + key.offset, parent.data(), 16))
        return false;
      if (!known.count(idOf(r.KEPOID))) made = r.KEPOID, ++fresh;
      return true;
    });
    if (fresh != 1) problem(before + std::to_string(fresh) + after);
    return made;
  }

  // Services: a catalogue row with its SMTP settings row.

  void fillSettings(ALRTSMTPSERVICEREC &settings, const std::string &version) {
    putText(settings.Server_addr, "smtp." + tag_ + ".example");
    putText(settings.Login, tag_);
    putText(settings.Password, "pw " + version);
    putText(settings.Default_Message, "message " + version);
    putText(settings.Subject, "subject " + version);
    settings.Priority = serial_;
    putText(settings.Sender, tag_ + "@example.org");
  }

  bool serviceAdd() {
    ALRTNTFYSERV service{};
    ALRTSMTPSERVICEREC settings{};
    std::string title = name("svc");
    service.KEPOID = newId();
    putText(service.Service_Name, title);
    putText(service.Product, "concurrency");
    service.Enabled = 1;
    putText(service.Comment, title + " v1");
    fillSettings(settings, title);
    ALRTSMTPSERVICEREC clear = settings;  // what a read gives back
    _GUID id{}, settingsId{};
    Entry entry{"Notify_Services.add"};
    call(entry,
         [&] { return tables_.get<kCatalogue>().DBAlertRecAdd(&service, &id, &settings, &settingsId); });
    clear.KEPOID = settingsId;
    entry.args = {oidText(idOf(id)), oidText(idOf(settingsId)), hashText(recordHash(service)),
                  hashText(recordHash(clear))};
    log(entry);
    remember(kCatalogue, id, entry.status);
    remember(kKindSmtp, settingsId, entry.status);
    return true;
  }


  bool settingsUpdate() {
    Oid id;
    if (!pick(kKindSmtp, &id)) return false;
    ALRTSMTPSERVICEREC settings;
    current(tables_.get<kKindSmtp>(), kKindSmtp, id, &settings);
    fillSettings(settings, name("settings"));
    ALRTSMTPSERVICEREC clear = settings;
    update("SMTP_Service.upd", tables_.get<kKindSmtp>(), id, &settings, &clear);
    return true;
  }

  // Servers and the services installed on them.

  bool serverAdd() {
    ALRT_SRV_CFGREC server{};
    std::string title = name("srv");
    server.KEPOID = newId();
    // Now and then the ID of a server the thread has: the add must fail.
    if (Oid taken; !inBatch_ && chance(15) && pickLive(kServer, &taken)) server.KEPOID = guidOf(taken);
    putText(server.MachineName, title);
    putText(server.Addr, "10." + std::to_string(worker_) + "." + std::to_string(serial_ % 250));
    server.status = serial_;
    server.UPTime = serial_ * 7;
    return addOne(tables_.get<kServer>(), kServer, "ALRT_Server_Config.add", server, [&](std::string id) {
      return Args{id, hashText(recordHash(server))};
    });
  }


  bool installedAdd() {
    Oid server, service;
    if (!pick(kServer, &server, 10) || !pick(kCatalogue, &service, 10)) return false;
    std::string title = name("inst");
    _GUID serverId = guidOf(server), serviceId = guidOf(service), id{};
    Entry entry{"srv-add-installed"};
    call(entry, [&] {
      return tables_.get<kServer>().QALRTServCfgAddNtfyServiceEntry(&serverId, &serviceId, title.c_str(),
                                                            &id);
    });
    ALRTSERV_INST_NTFY_SERVREC expected{};
    expected.KEPOID = id;
    expected.ServiceOID = serviceId;
    expected.ServerOID = serverId;
    putText(expected.ServiceName, title);
    entry.args = {oidText(server), oidText(service), oidText(idOf(id)),
                  hashText(recordHash(expected))};
    log(entry);
    remember(kInstalled, id, entry.status);
    return true;
  }

  // Marks the installed record a backup server's, pointing at its service's
  // settings row, so that deleting it deletes that row.
  bool installedUpdate() {
    Oid id;
    if (!pick(kInstalled, &id)) return false;
    ALRTSERV_INST_NTFY_SERVREC installed;
    current(tables_.get<kInstalled>(), kInstalled, id, &installed);
    const ModelRecord *service = model_.find(idOf(installed.ServiceOID));
    installed.BackupServer = chance(60) ? CAlertSERV_INST_NTFY_SERVDB::kBackupServer : 0;
    if (service) installed.ServiceSpecOID = guidOf(service->digest.refs[0]);
    Entry entry{"ServerInstService.upd"};
    call(entry, [&] { return tables_.get<kInstalled>().DBAlertRecUpdate(&installed); });
    entry.args = {oidText(id), std::to_string(installed.BackupServer),
                  oidText(idOf(installed.ServiceSpecOID)), hashText(recordHash(installed))};
    log(entry);
    return true;
  }

  // Users, their service instances and addresses.

  bool userAdd() {
    ALERTUSRREC user{};
    user.KEPOID = newId();
    user.AlertRecp = ++serial_;
    return addOne(tables_.get<kUser>(), kUser, "AlertUsr_Table.add", user,
                  [&](std::string id) { return Args{id, hashText(recordHash(user))}; });
  }


  ALRTUSR_SMTPSERVICEREC addressFor(const Oid &user) {
    ALRTUSR_SMTPSERVICEREC address{};
    address.USR_OID = guidOf(user);
    putText(address.UserName, name("user"));
    putText(address.SMTPMailAddr, tag_ + "." + std::to_string(serial_) + "@example.org");
    address.Enable = 1;
    return address;
  }

  // A user's service instance with its address record: through the user,
  // where the call names neither new ID and the thread finds the new
  // instance among its user's, or through the instance table's own add.
  bool instanceAdd(bool throughUser) {
    Oid user, service;
    if (!(throughUser ? pick(kUser, &user, 10) : pickLive(kUser, &user)) ||
        !pick(kCatalogue, &service, 10))
      return false;
    ALRTUSR_SMTPSERVICEREC address = addressFor(user);
    ALRTUSRINSTSERV instance{};
    _GUID userId = guidOf(user), serviceId = guidOf(service), id{}, addressId{};
    instance.UserOid = userId;
    instance.Service_KEPOID = serviceId;
    putText(instance.Service_Name, "Internet Mail");
    Entry entry{throughUser ? "user-add-service" : "UsrInst.add"};
    if (throughUser) {
      call(entry, [&] {
        return tables_.get<kUser>().QALRTUsrAddService(&userId, &serviceId, &address);
      });
      if (entry.status == 0) {
        id = madeChild(tables_.get<kInstance>(), kInstance,
                       KEY_BYTES(74, ALRTUSRINSTSERV, UserOid), user, "user_service_add_made_",
                       "_instances");
        addressId = address.KEPOID;
        instance.KEPOID = id;
        instance.ServicePerInfo_KEPOID = addressId;
        instance.ServiceType = kSmtpType;
      }
    } else {
      instance.KEPOID = newId();
      instance.Enable = serial_;
      call(entry, [&] {
        return tables_.get<kInstance>().DBAlertRecAdd(&instance, &id, &address, &addressId);
      });
    }
    entry.args = {oidText(user),           oidText(service),
                  oidText(idOf(id)),       oidText(idOf(addressId)),
                  hashText(recordHash(instance)), hashText(recordHash(address))};
    log(entry);
    remember(kInstance, id, entry.status);
    remember(kAddrSmtp, addressId, entry.status);
    return true;
  }

  // Responses: service responses, plain ones and a few protected ones.

  bool responseAdd() {
    Oid user, service;
    if (!pick(kUser, &user, 20) || !pick(kCatalogue, &service, 15)) return false;
    ALERTRESPREC response{};
    std::string title = name("rsp");
    response.KEPOID = newId();
    putText(response.Name, title);
    putText(response.Description, title + " v1");
    std::uint32_t r = random(100);
    std::size_t protectedCount = 0;
    for (const Oid &id : mine_[static_cast<int>(kResponse)]) {
      const ModelRecord *record = model_.live(id, kResponse);
      protectedCount += record && (record->digest.number & kProtectedResponse);
    }
    response.Type = r < 60                         ? CAlertRespDB::kServiceResponse
                    : r < 70 && protectedCount < 3 ? CAlertRespDB::kProtected
                                                   : 0;
    response.Priority = static_cast<std::uint16_t>(serial_);
    putText(response.Target, "console " + tag_);
    putText(response.Msg, "event %1 on %2, " + title);
    response.UserOID = guidOf(user);
    response.ServiceOID = guidOf(service);
    if (response.Type & CAlertRespDB::kServiceResponse)
      response.ServiceType = CAlertSMTPNtfyServDB::kServiceType;
    return addOne(tables_.get<kResponse>(), kResponse, "AlertResp_Table.add", response, [&](std::string id) {
      return Args{id, oidText(user), oidText(service), std::to_string(response.Type),
                  hashText(recordHash(response))};
    });
  }


  // Event classes and their links to responses.

  bool eventClassAdd() {
    ALRTEVENT_CLASSREC eventClass{};
    std::string title = name("evc");
    eventClass.KEPOID = newId();
    putText(eventClass.EventName, title);
    putText(eventClass.SNMP_OID,
            "1.3.6.1.4.1.99." + std::to_string(owner_) + "." + std::to_string(serial_));
    eventClass.EventID = 100000 + serial_;
    eventClass.Severity = serial_ % 5;
    putText(eventClass.Product, "concurrency");
    putText(eventClass.Comment, title + " v1");
    return addOne(tables_.get<kEventClass>(), kEventClass, "EVENT_CLASS.add", eventClass,
                  [&](std::string id) {
                    // The add stores the record, then again with its icon set
                    // to its ID: others may read it in between.
                    ALRTEVENT_CLASSREC firstStored = eventClass;
                    firstStored.Icon = _GUID{};
                    return Args{id, hashText(recordHash(eventClass)),
                                hashText(recordHash(firstStored))};
                  });
  }


  // A pair to link: now and then one already linked.
  bool pickPair(Oid *eventClass, Oid *response) {
    if (chance(10)) {
      Oid link;
      if (pickLive(kLink, &link)) {
        const ModelRecord *r = model_.find(link);
        *eventClass = r->digest.refs[0];
        *response = r->digest.refs[1];
        return true;
      }
    }
    return pick(kEventClass, eventClass, 10) && pick(kResponse, response, 10);
  }

  // Through the event class: the call names no new ID, so the thread finds
  // the new link among its event class's links.
  bool linkAdd() {
    Oid eventClass, response;
    if (!pickPair(&eventClass, &response)) return false;
    _GUID classId = guidOf(eventClass), responseId = guidOf(response);
    Entry entry{"link-add"};
    call(entry,
         [&] { return tables_.get<kEventClass>().QALRTEventClassAddResponse(&classId, &responseId); });
    ALRTEVENT_RESPREC expected{};
    if (entry.status == 0) {
      expected.KEPOID =
          madeChild(tables_.get<kLink>(), kLink, KEY_BYTES(43, ALRTEVENT_RESPREC, EventClassOID),
                    eventClass, "event_class_link_add_made_", "_links");
      expected.EventClassOID = classId;
      expected.ResponseOID = responseId;
    }
    entry.args = {oidText(eventClass), oidText(response), oidText(idOf(expected.KEPOID)),
                  hashText(recordHash(expected))};
    log(entry);
    remember(kLink, expected.KEPOID, entry.status);
    return true;
  }

  bool linkPut() {
    Oid eventClass, response;
    if (!pickPair(&eventClass, &response)) return false;
    ALRTEVENT_RESPREC link{};
    link.KEPOID = newId();
    link.EventClassOID = guidOf(eventClass);
    link.ResponseOID = guidOf(response);
    return addOne(tables_.get<kLink>(), kLink, "EVENT_RESP.add", link, [&](std::string id) {
      return Args{oidText(eventClass), oidText(response), id, hashText(recordHash(link))};
    });
  }

  // Event log entries.

  bool logAdd() {
    Oid eventClass{};
    pick(kEventClass, &eventClass, 20);
    ALRTEVENT_LOGREC entryRecord{};
    std::string title = name("log");
    entryRecord.KEPOID = newId();
    entryRecord.EventClass_OID = guidOf(eventClass);
    putText(entryRecord.EventName, title);
    entryRecord.EventID = 100000 + serial_;
    entryRecord.Severity = serial_ % 5;
    putText(entryRecord.ProductName, "concurrency");
    std::uint32_t stamp = serial_;
    unsigned char time[8] = {125, 1, 1, static_cast<unsigned char>(stamp / 3600 % 24),
                             static_cast<unsigned char>(stamp / 60 % 60),
                             static_cast<unsigned char>(stamp % 60)};
    std::memcpy(entryRecord.Time, time, sizeof time);
    putText(entryRecord.MachineName, tag_);
    putText(entryRecord.EventText, title + " happened");
    return addOne(tables_.get<kLog>(), kLog, "EVENT_LOG.add", entryRecord,
                  [&](std::string id) { return Args{id, hashText(recordHash(entryRecord))}; });
  }


  // ------------------------------------------------------------ reads

  // Retrieves one of the thread's records, live or deleted.
  void readOwn() {
    Table table = kWorked[random(kWorkedCount)];
    Oid id;
    if (!pick(table, &id, 20)) return;
    tables_.with(table, [&](auto &t) {
      RecordOf<std::remove_reference_t<decltype(t)>> r;
      readOwn(t, table, id, &r);
    });
  }

  // Enumerates the records of one of the thread's records by the key that
  // relates them, from the first with its ID while the key still holds it:
  // exactly the ones the thread's calls left, in the order they were added.
  template <class TableObject, class Record = RecordOf<TableObject>>
  void childrenOf(TableObject &table, Table kind, KeyField key, const Oid &parent) {
    Entry entry{"kids"};
    entry.args = {tableName(kind), std::to_string(key.key), oidText(parent)};
    Record record{};
    call(entry, [&] {
      return harness::walk(table, key.key, &parent, record, [&](const Record &r) {
        if (std::memcmp(reinterpret_cast<const unsigned char *>(&r) + key.offset, parent.data(), 16))
          return false;
        entry.args.push_back(seenText(idOfRecord(&r), recordHash(r)));
        return true;
      });
    });
    log(entry);
  }

  void children() {
    const Relation &r = kRelations[random(static_cast<std::uint32_t>(std::size(kRelations)))];
    Oid parent;
    if (pick(r.parent, &parent, 10)) {
      tables_.with(r.child, [&](auto &t) {
        childrenOf(t, r.child, KeyField{r.key, KeyField::Bytes, r.offset(), 16}, parent);
      });
    }
  }

  // Walks everyone's records of a table in the order of one key, from the
  // start or from a record seen before: each must come in key order, none
  // twice under the same key, each holding content some call wrote.
  template <class TableObject, class Record = RecordOf<TableObject>>
  void walkTable(TableObject &table, Table kind, const std::vector<KeyField> &keys,
                 std::size_t limit, bool fromStart, std::vector<std::pair<Oid, Hash>> *seen,
                 std::size_t *count) {
    KeyField key = keys[random(static_cast<std::uint32_t>(keys.size()))];
    const Oid *start = nullptr;
    std::vector<Oid> &pool = others_[static_cast<int>(kind)];
    if (!fromStart && key.kind == KeyField::Bytes && key.offset == 0 && !pool.empty() && chance(30))
      start = &pool[random(static_cast<std::uint32_t>(pool.size()))];
    Entry entry{"walk"};
    entry.args = {tableName(kind), std::to_string(key.key)};
    std::vector<std::string> orderProblems;
    std::set<std::string> delivered;
    Record record{}, previous{};
    std::size_t n = 0;
    call(entry, [&] {
      std::uint32_t s = start
                            ? table.DBAlertRecFindFirst(
                                  key.key, 16, const_cast<unsigned char *>(start->data()), &record)
                            : table.DBAlertRecFindFirst(key.key, 0, nullptr, &record);
      for (; s == 0; s = table.DBAlertRecFindNext(&record)) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(&record);
        Oid id = idOf(*reinterpret_cast<const _GUID *>(&record));
        if (start && n == 0 && id != *start)
          orderProblems.push_back("find_first_delivered_another_record");
        if (n > 0 && key.compare(reinterpret_cast<const unsigned char *>(&previous), bytes) > 0)
          orderProblems.push_back("out_of_key_order_at_" + oidText(id));
        if (!delivered.insert(oidText(id) + key.bytes(bytes)).second)
          orderProblems.push_back("delivered_twice_" + oidText(id));
        Hash hash = recordHash(record);
        entry.args.push_back(seenText(id, hash));
        if (seen) seen->emplace_back(id, hash);
        previous = record;
        if (++n >= limit) break;
      }
      return s;
    });
    log(entry);
    for (const std::string &p : orderProblems) problem(std::string(tableName(kind)) + "_" + p);
    if (count) *count = n;
    // Others' records to read by ID later.
    for (std::size_t i = 2; i < entry.args.size() && pool.size() < 200; i += 5) {
      Oid id;
      Hash hash;
      if (parseSeen(entry.args[i], &id, &hash) && !model_.find(id)) pool.push_back(id);
    }
  }

  // The keys a walk of each table may take: the object ID's first.
  static std::vector<KeyField> keysOf(Table kind, TableSet &tables) {
    static const std::map<Table, std::vector<KeyField>> others = {
        {kCatalogue, {KEY_TEXT(3, ALRTNTFYSERV, Service_Name)}},
        {kServer, {KEY_TEXT(2, ALRT_SRV_CFGREC, MachineName)}},
        {kInstalled,
         {KEY_BYTES(66, ALRTSERV_INST_NTFY_SERVREC, ServiceOID),
          KEY_BYTES(68, ALRTSERV_INST_NTFY_SERVREC, ServerOID)}},
        {kUser, {KEY_NUMBER(12, ALERTUSRREC, AlertRecp)}},
        {kInstance,
         {KEY_BYTES(73, ALRTUSRINSTSERV, Service_KEPOID), KEY_BYTES(74, ALRTUSRINSTSERV, UserOid),
          KEY_TEXT(76, ALRTUSRINSTSERV, Service_Name)}},
        {kResponse,
         {KEY_TEXT(6, ALERTRESPREC, Name), KEY_BYTES(12, ALERTRESPREC, UserOID),
          KEY_BYTES(13, ALERTRESPREC, ServiceOID)}},
        {kEventClass,
         {KEY_TEXT(3, ALRTEVENT_CLASSREC, EventName), KEY_NUMBER(2, ALRTEVENT_CLASSREC, EventID)}},
        {kLink,
         {KEY_BYTES(43, ALRTEVENT_RESPREC, EventClassOID),
          KEY_BYTES(44, ALRTEVENT_RESPREC, ResponseOID)}},
        {kLog,
         {KEY_BYTES(21, ALRTEVENT_LOGREC, EventClass_OID), KEY_NUMBER(24, ALRTEVENT_LOGREC, EventID),
          KEY_BYTES(35, ALRTEVENT_LOGREC, Time)}}};
    std::vector<KeyField> keys;
    tables.with(kind, [&](auto &t) { keys.push_back({t.idKey(), KeyField::Bytes, 0, 16}); });
    if (auto it = others.find(kind); it != others.end())
      keys.insert(keys.end(), it->second.begin(), it->second.end());
    return keys;
  }

  void walk(TableSet &tables) {
    std::size_t limit = 10 + random(40);
    Table kind = kWorked[random(kWorkedCount)];
    tables.with(kind, [&](auto &t) {
      walkTable(t, kind, keysOf(kind, tables), limit, false, nullptr, nullptr);
    });
  }

  // A thread that comes and goes with table objects of its own, the way the
  // product's short-lived threads read the data: its opens and closes must
  // cost the others nothing.
  void freshWalk() {
    std::thread([this] {
      TableSet fresh;
      std::uint32_t status = fresh.openAll();
      if (status != 0) {
        problem("a_new_thread_could_not_open_the_tables:_" +
                std::string(AlertDBStatusName(status)));
        return;
      }
      walk(fresh);
    }).join();
  }

  // Retrieves a record of another thread's seen in a walk: it may be gone.
  template <class TableObject, class Record = RecordOf<TableObject>>
  void readOther(TableObject &table, Table kind) {
    std::vector<Oid> &pool = others_[static_cast<int>(kind)];
    if (pool.empty()) return;
    Record record;
    readOwn(table, kind, pool[random(static_cast<std::uint32_t>(pool.size()))], &record, "get.any");
  }

  void readOther() {
    static const Table kinds[] = {kUser,    kResponse,  kEventClass,
                                  kCatalogue, kInstalled, kLog};
    Table kind = kinds[random(6)];
    tables_.with(kind, [&](auto &t) { readOther(t, kind); });
  }

  // Under the read lock a file holds still: the same walk twice gives the
  // same records, and what every writer keeps true between its commits
  // holds. A user's instances go before the user and an instance before its
  // address record, and are added the other way round, so every instance
  // has its user and its address; a server's installed services go before
  // the server, so each has its server.
  void snapshot() {
    bool users = chance(60);
    DataFile file = users ? kUserFile : kConfigFile;
    KEPDB *handle = tables_.lockHandle(file);
    Entry lock{"rlock"};
    lock.args = {fileName(file)};
    call(lock, [&] { return DBReadLock(handle); });
    log(lock);
    if (lock.status != 0) return;
    std::vector<std::pair<Oid, Hash>> first, second, children, grandchildren;
    std::size_t n = 0;
    // Each walk by object ID, the first key of every table.
    auto walkAll = [&](Table kind, std::vector<std::pair<Oid, Hash>> *seen) {
      tables_.with(kind, [&](auto &t) {
        walkTable(t, kind, {keysOf(kind, tables_)[0]}, ~std::size_t{0}, true, seen, &n);
      });
    };
    walkAll(users ? kUser : kServer, &first);
    walkAll(users ? kInstance : kInstalled, &children);
    if (users) walkAll(kAddrSmtp, &grandchildren);
    walkAll(users ? kUser : kServer, &second);
    // The relations need the records themselves: read them again, by ID,
    // inside the same snapshot.
    std::set<Oid> parents, addresses;
    for (const auto &[id, hash] : first) parents.insert(id);
    for (const auto &[id, hash] : grandchildren) addresses.insert(id);
    std::size_t broken = 0;
    for (const auto &[id, hash] : children) {
      _GUID guid = guidOf(id);
      if (users) {
        ALRTUSRINSTSERV instance{};
        if (tables_.get<kInstance>().DBAlertRecRetrieve(&guid, &instance) != 0 ||
            recordHash(instance) != hash || !parents.count(idOf(instance.UserOid)) ||
            !addresses.count(idOf(instance.ServicePerInfo_KEPOID)))
          ++broken;
      } else {
        ALRTSERV_INST_NTFY_SERVREC installed{};
        if (tables_.get<kInstalled>().DBAlertRecRetrieve(&guid, &installed) != 0 ||
            recordHash(installed) != hash || !parents.count(idOf(installed.ServerOID)))
          ++broken;
      }
    }
    Entry snap{"snap"};
    snap.startUs = microseconds(Clock::now());
    snap.args = {fileName(file), std::to_string(first.size()), std::to_string(children.size())};
    log(snap);
    if (first != second)
      problem(std::string("two_walks_under_one_read_lock_differ_in_") + fileName(file));
    if (broken)
      problem(std::to_string(broken) + "_records_without_their_parent_under_the_read_lock_in_" +
              fileName(file));
    Entry unlock{"runlock"};
    unlock.args = {fileName(file)};
    call(unlock, [&] { return DBReadUnlock(handle); });
    log(unlock);
  }

  int worker_, owner_;
  std::string tag_;
  std::mt19937_64 rng_;
  FILE *log_ = nullptr;
  TableSet tables_;
  Model model_;
  std::uint32_t serial_ = 0;
  std::uint64_t calls_ = 0, problems_ = 0;
  bool inBatch_ = false;
  std::vector<std::pair<Table, Oid>> registrations_;  // checked after the batch
  std::vector<Oid> mine_[kTableCount];                // every record the thread made
  std::vector<Oid> others_[kTableCount];              // records of others seen in walks
};

std::string readLine() {
  std::string line;
  if (!std::getline(std::cin, line)) return "";
  return line;
}

int openAtOnce(int worker, std::uint64_t seed, const std::string &logDir) {
  std::vector<std::unique_ptr<LoadThread>> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.push_back(std::make_unique<LoadThread>(worker, t, seed, logDir));
  std::printf("ready %d\n", static_cast<int>(getpid()));
  if (readLine() != "go") return 2;
  std::uint32_t results[kThreads] = {};
  std::vector<std::thread> running;
  for (int t = 0; t < kThreads; ++t) {
    running.emplace_back([&, t] {
      results[t] = threads[t]->open();
      if (results[t] == 0) threads[t]->addUser();
    });
  }
  for (std::thread &t : running) t.join();
  std::uint64_t problems = 0;
  for (const auto &t : threads) problems += t->problems();
  std::printf("opened %x %x %" PRIu64 "\n", results[0], results[1], problems);
  return readLine() == "quit" ? 0 : 2;
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  if (argc < 5) return 1;
  int worker = std::atoi(argv[1]);
  double seconds = std::atof(argv[2]);
  std::uint64_t seed = std::strtoull(argv[3], nullptr, 10);
  std::string logDir = argv[4];
  if (argc > 5 && std::string(argv[5]) == "open") return openAtOnce(worker, seed, logDir);

  // Each thread opens its own tables: the handles a thread opens on a file
  // share one connection, and with it the file lock.
  std::vector<std::unique_ptr<LoadThread>> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.push_back(std::make_unique<LoadThread>(worker, t, seed, logDir));
  std::vector<std::promise<std::uint32_t>> opened(kThreads);
  std::promise<Clock::time_point> go;
  std::shared_future<Clock::time_point> start = go.get_future().share();
  std::vector<std::thread> running;
  for (int t = 0; t < kThreads; ++t) {
    running.emplace_back([&, t, start] {
      std::uint32_t status = threads[t]->open();
      opened[t].set_value(status);
      Clock::time_point until = start.get();
      if (status == 0) threads[t]->run(until);
    });
  }
  std::uint32_t failed = 0;
  for (auto &o : opened) failed = failed ? failed : o.get_future().get();
  EventWatch watch;
  bool ready = failed == 0 && watch.ok();
  for (const auto &t : threads) ready = ready && t->logOpen();
  if (ready) {
    std::printf("ready %d\n", static_cast<int>(getpid()));
    ready = readLine() == "go";
  } else {
    std::printf("failed to open the tables (0x%X), the change event or the logs\n", failed);
  }
  if (ready) watch.start();
  go.set_value(ready ? Clock::now() +
                           std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000))
                     : Clock::now());
  for (std::thread &t : running) t.join();
  if (!ready) return 3;
  watch.stop();
  std::uint64_t calls = 0, problems = 0;
  for (const auto &t : threads) {
    calls += t->calls();
    problems += t->problems();
  }
  std::printf("done %" PRIu64 " %" PRIu64 " %u\n", calls, problems, watch.seenSinceStart());

  // The quiet round: one change at a time, watched by the other processes.
  LoadThread signaller(worker, kThreads, seed, logDir);
  if (signaller.open() != 0) return 3;
  for (std::string line = readLine(); !line.empty(); line = readLine()) {
    if (line == "quit") return 0;
    if (line == "signal") {
      std::uint32_t before = 0, after = 0;
      platform::GetEventSetCount(watch.event(), &before);
      signaller.addUser();
      platform::GetEventSetCount(watch.event(), &after);
      std::printf("signalled %u %u %" PRIu64 "\n", before, after, signaller.problems());
    } else if (line.rfind("watch ", 0) == 0) {
      std::uint32_t target =
          static_cast<std::uint32_t>(std::strtoul(line.c_str() + 6, nullptr, 10));
      std::uint32_t count = watch.seen();
      Clock::time_point until = Clock::now() + std::chrono::seconds(10);
      while (static_cast<std::int32_t>(count - target) < 0 && Clock::now() < until) {
        if (platform::WaitForEventSetAfter(watch.event(), count, 1000, &count) ==
            platform::kWaitFailed)
          break;
      }
      watch.setSeen(count);
      bool signalled = platform::WaitForSingleObject(watch.event(), 0) == platform::kWaitObject0;
      if (static_cast<std::int32_t>(count - target) >= 0) {
        std::printf("saw %u %d\n", count, signalled ? 1 : 0);
      } else {
        std::printf("missed %u\n", count);
      }
    } else {
      return 2;
    }
  }
  return 2;
}
