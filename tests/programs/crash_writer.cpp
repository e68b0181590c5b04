// A writer for the crash rounds: a seeded random mix of changes to every data
// file of the alerting data through the table classes, some of them in
// batches under the file locks. It prints each call before making it and
// each success after (reliability/crash_lines.h), so that a test that kills
// it knows what was acknowledged. It works only on records of its own slot,
// so that two writers can share a data directory.
//
//   crash_writer SLOT SEED [CALLS]
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "alertdb.h"
#include "reliability/crash/crash_lines.h"

namespace {

using namespace crash;
using Bytes = std::vector<unsigned char>;

void emit(const std::string &line) {
  std::string data = line + "\n";
  const char *p = data.data();
  std::size_t left = data.size();
  while (left > 0) {
    ssize_t n = ::write(1, p, left);
    if (n <= 0) std::_Exit(4);
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

template <std::size_t N>
void setText(char (&field)[N], const std::string &text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

// Where a service kind keeps its password, which the library stores
// protected; -1 for kinds without one.
int passwordOffset(Table t) {
  return t == kKindMhs      ? static_cast<int>(offsetof(ALRTMHSSERVICEREC, Password))
         : t == kKindMci    ? static_cast<int>(offsetof(ALRTMCISERVICEREC, Password))
         : t == kKindCompus ? static_cast<int>(offsetof(ALRTCOMPUSSERVICEREC, Password))
         : t == kKindSmtp   ? static_cast<int>(offsetof(ALRTSMTPSERVICEREC, Password))
         : t == kKindMapi   ? static_cast<int>(offsetof(ALRTMAPISERVICEREC, Password))
         : t == kKindCcmail ? static_cast<int>(offsetof(ALRTCCMAILSERVICEREC, Password))
                            : -1;
}

// The key that walks the records of one owner, for records whose ID the
// library makes.
std::uint32_t ownerKeyOf(Table t) {
  return t == kLink            ? CAlertEVENT_RESPDB::kEventClassKey
         : t == kInstance      ? CAlertUsrInstServDB::kUserKey
         : t == kInstalled     ? CAlertSERV_INST_NTFY_SERVDB::kServerKey
         : t == kAgentToServer ? CAlertAGNT_SERV_RELDB::kAgentKey
         : t == kServerToAgent ? CAlertSERV_AGNT_RELDB::kAgentKey
                               : 0;
}

class Writer {
 public:
  Writer(int slot, std::uint64_t seed) : slot_(slot), random_(seed) {}

  bool open();
  void scan();
  void run(long calls);

 private:
  // ---------------------------------------------------------------- basics

  std::uint64_t next() { return random_(); }
  std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(next() % n); }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(random_) < p; }

  Id newId() {
    Id id{};
    for (int i = 0; i < 16; i += 8) {
      std::uint64_t r = next();
      std::memcpy(id.data() + i, &r, 8);
    }
    id[7] = static_cast<unsigned char>((id[7] & 0x0F) | 0x40);
    id[8] = static_cast<unsigned char>((id[8] & 0x3F) | 0x80);
    id[14] = kSlotMark;
    id[15] = static_cast<unsigned char>(slot_);
    return id;
  }

  std::string word(std::size_t maxLength) {
    static const char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789 -_.";
    std::size_t length =
        1 + below(static_cast<std::uint32_t>(std::min<std::size_t>(maxLength, 60)));
    std::string text = "w" + std::to_string(slot_) + "c" + std::to_string(calls_) + ":";
    while (text.size() < length + 8) text += letters[below(sizeof letters - 1)];
    return text.substr(0, maxLength);
  }

  void scribble(Table t, unsigned char *record) {
    harness::scribble(t, record, word(static_cast<std::size_t>(tableInfo(t).scribble.size - 1)),
                      below(1000) + 1);
  }

  // ---------------------------------------------------------------- tables

  template <class Fn>
  void with(Table t, Fn &&fn) {
    tables_.with(t, fn);
  }
  template <Table t>
  auto &table() {
    return tables_.get<t>();
  }

  // The stored record `id` of table t into `out`; false when it is not there.
  bool fetch(Table t, const Id &id, Bytes *out) {
    out->assign(tableInfo(t).size, 0);
    bool found = false;
    with(t, [&](auto &table) {
      using R = RecordOf<std::remove_reference_t<decltype(table)>>;
      _GUID guid = guidOf(id);
      found = table.DBAlertRecRetrieve(&guid, reinterpret_cast<R *>(out->data())) == 0;
    });
    return found;
  }

  // A random record of table t of this slot that is still there.
  bool pickOwn(Table t, Id *id, Bytes *record) {
    std::vector<Id> &ids = own_[t];
    while (!ids.empty()) {
      std::size_t i = below(static_cast<std::uint32_t>(ids.size()));
      *id = ids[i];
      if (fetch(t, *id, record)) return true;
      // Gone with a cascade.
      ids[i] = ids.back();
      ids.pop_back();
    }
    return false;
  }
  bool pickOwn(Table t, Id *id) {
    Bytes record;
    return pickOwn(t, id, &record);
  }

  // The records of table t whose owner reference is `owner`, walked on the
  // owner's key.
  std::vector<Bytes> ownedBy(Table t, const Id &owner) {
    std::vector<Bytes> found;
    int ref = tableInfo(t).ownerRef;
    with(t, [&](auto &table) {
      using R = RecordOf<std::remove_reference_t<decltype(table)>>;
      Bytes record(tableInfo(t).size, 0);
      harness::walk(table, ownerKeyOf(t), &owner, *reinterpret_cast<R *>(record.data()),
                    [&](const R &) {
                      if (std::memcmp(record.data() + ref, owner.data(), 16) != 0) return false;
                      found.push_back(record);
                      return true;
                    });
    });
    return found;
  }

  // A random record of a table whose IDs the library makes, by its owner.
  bool pickDependent(Table t, Table ownerTable, Bytes *record) {
    Id owner{};
    if (!pickOwn(ownerTable, &owner)) return false;
    std::vector<Bytes> records = ownedBy(t, owner);
    if (records.empty()) return false;
    *record = records[below(static_cast<std::uint32_t>(records.size()))];
    return true;
  }

  // ---------------------------------------------------------------- calls

  std::string token(Table t, const Bytes &record, bool pendingId = false) {
    Id id = idOfRecord(record.data());
    return formatRecord(t, pendingId ? nullptr : &id, digestOf(t, record.data()));
  }

  // Announces the call, makes it and acknowledges it; stops the writer on
  // any failure, which the test reports.
  // `made` names, after the call, the IDs the library made for the records
  // announced without one.
  template <class Fn>
  void call(const std::string &op, const std::vector<std::string> &args, const std::string &what,
            Fn &&fn, const std::function<std::vector<Id>()> &made = nullptr) {
    int number = ++calls_;
    WriterCall announced{number, op, args, {}};
    emit("do " + announced.describe());
    std::uint32_t status = fn();
    if (status != 0) {
      char text[32];
      std::snprintf(text, sizeof text, "0x%X", status);
      emit("error " + std::to_string(number) + " " + op + " " + text + " " +
           AlertDBStatusName(status));
      std::exit(3);
    }
    std::string ids;
    if (made) {
      for (const Id &id : made()) ids += (ids.empty() ? " made=" : ",") + idText(id);
    }
    emit(std::string(inBatch_ ? "ok " : "ack ") + std::to_string(number) + " " + op + " " + what +
         ids);
  }

  // The library must store what it was given: a record that the call
  // changed would not be the one announced.
  void expectUnchanged(Table t, const Bytes &record, const RecordDigest &announced) {
    if (passwordOffset(t) >= 0 || digestOf(t, record.data()) == announced) return;
    emit("error " + std::to_string(calls_) + " changed-by-call " + tableInfo(t).name);
    std::exit(3);
  }

  static std::string label(Table t, const Id &id) {
    return std::string(tableInfo(t).name) + " " + idText(id);
  }

  // An add of a new record of this slot, or an update of one.
  void write(Table t, Bytes &record, bool adding) {
    RecordDigest digest = digestOf(t, record.data());
    Id id = idOfRecord(record.data());
    call(adding ? "add" : "update", {formatRecord(t, &id, digest)}, label(t, id), [&] {
      std::uint32_t status = 0;
      with(t, [&](auto &table) {
        auto *r = reinterpret_cast<RecordOf<std::remove_reference_t<decltype(table)>> *>(
            record.data());
        _GUID newId{};
        status = adding ? table.DBAlertRecAdd(r, &newId) : table.DBAlertRecUpdate(r);
      });
      return status;
    });
    expectUnchanged(t, record, digest);
    if (adding) own_[t].push_back(id);
  }
  void add(Table t, Bytes &record) { write(t, record, true); }
  void update(Table t, Bytes &record) { write(t, record, false); }

  void remove(Table t, const Id &id) {
    call("delete", {tableInfo(t).name, idText(id)}, label(t, id), [&] {
      std::uint32_t status = 0;
      with(t, [&](auto &table) {
        _GUID guid = guidOf(id);
        status = table.DBAlertRecDelete(&guid);
      });
      return status;
    });
  }

  // ---------------------------------------------------------------- records

  Bytes blank(Table t, const Id &id) {
    Bytes record(tableInfo(t).size, 0);
    std::memcpy(record.data(), id.data(), 16);
    scribble(t, record.data());
    return record;
  }

  template <class R>
  static R &as(Bytes &record) {
    return *reinterpret_cast<R *>(record.data());
  }

  Id ownOrZero(Table t) {
    Id id{};
    if (!pickOwn(t, &id)) return Id{};
    return id;
  }

  std::array<unsigned char, 8> nextTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::uint64_t micros = static_cast<std::uint64_t>(now.tv_sec) * 1000000 +
                           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
    // Strictly increasing within the process.
    if (micros <= lastTime_) micros = lastTime_ + 1;
    lastTime_ = micros;
    std::array<unsigned char, 8> time{};
    for (int i = 0; i < 7; ++i) time[static_cast<std::size_t>(6 - i)] = (micros >> (8 * i)) & 0xFF;
    time[7] = static_cast<unsigned char>(slot_);
    return time;
  }

  // A new record of table t with the fields the library would otherwise set
  // already set, so that what is stored is what was announced.
  Bytes make(Table t) {
    Id id = newId();
    Bytes record = blank(t, id);
    std::string hex = harness::hexOf(id.data(), 16);
    switch (t) {
      case kServer: {
        auto &r = as<ALRT_SRV_CFGREC>(record);
        setText(r.MachineName, "srv-" + hex);
        r.status = below(4);
        r.Primary = below(2);
        r.UPTime = below(100000);
        break;
      }
      case kTrap: {
        auto &r = as<ALRTSERV_SNMPTRAP>(record);
        setText(r.TrapName, "trap-" + hex);
        r.EventClassOID = guidOf(ownOrZero(kEventClass));
        setText(r.TrapOID, "1.3.6.1.4.1." + std::to_string(below(100000)));
        r.TrapType = below(7);
        break;
      }
      case kPing: {
        auto &r = as<ALRTSERV_AUTOPING>(record);
        setText(r.Name, "ping-" + hex);
        setText(r.ServerAddr,
                "10.0." + std::to_string(below(256)) + "." + std::to_string(below(256)));
        r.PingFreq = below(600);
        break;
      }
      case kModem: {
        auto &r = as<ALRTSERV_MODEM>(record);
        setText(r.ModemName, "modem-" + hex);
        r.ServerOID = guidOf(ownOrZero(kServer));
        r.LocationOID = guidOf(ownOrZero(kLocation));
        setText(r.InitString, "AT&F" + word(10));
        r.Baud = 9600u << below(4);
        break;
      }
      case kAgent: {
        auto &r = as<ALRT_EXTAGT_CFGREC>(record);
        setText(r.MachineName, "agent-" + hex);
        r.EventStat = below(1000);
        break;
      }
      case kLocation: {
        auto &r = as<ALRTMODEM_LOCATION>(record);
        setText(r.LocationName, "loc-" + word(20));
        r.CountryCode = static_cast<std::uint16_t>(below(999));
        r.CountryID = below(0x20000);
        break;
      }
      case kProvider: {
        auto &r = as<ALRTAPAGE_SERVICE_PROVIDER_REC>(record);
        setText(r.CompanyName, "prov-" + hex);
        setText(r.PhoneNum, "555" + std::to_string(below(10000000)));
        r.baud = 1200;
        break;
      }
      case kEventClass: {
        auto &r = as<ALRTEVENT_CLASSREC>(record);
        setText(r.EventName, "ec-" + hex);
        r.Icon = guidOf(id);
        r.EventID = 0x50000 + below(0x10000);
        r.Severity = below(6);
        r.SeverityColor = colourOf(r.Severity);
        setText(r.SNMP_OID, "1.3.6.1.4.1.9999." + std::to_string(r.EventID));
        setText(r.Product, "product " + word(20));
        r.NumParam = below(21);
        for (std::uint32_t i = 0; i < r.NumParam; ++i)
          r.ParamList[i] = static_cast<unsigned char>(below(40));
        break;
      }
      case kLog: {
        auto &r = as<ALRTEVENT_LOGREC>(record);
        r.EventClass_OID = guidOf(ownOrZero(kEventClass));
        r.Icon = r.EventClass_OID;
        r.Severity = below(5);
        r.SeverityColor = colourOf(r.Severity);
        auto time = nextTime();
        std::memcpy(r.Time, time.data(), 8);
        // Only slot 0 acknowledges entries, and only it purges them.
        r.Ack = slot_ == 0 && chance(0.3) ? 1 : 0;
        r.BlobSize = below(64);
        for (std::uint32_t i = 0; i < r.BlobSize; ++i)
          r.binblob[i] = static_cast<unsigned char>(next());
        setText(r.MachineName, "host" + std::to_string(below(50)));
        break;
      }
      case kResponse: {
        auto &r = as<ALERTRESPREC>(record);
        setText(r.Name, "resp-" + hex);
        setText(r.Target, "target " + word(30));
        setText(r.Msg, "%1 happened on %2: " + word(40));
        r.Priority = static_cast<std::uint16_t>(below(5));
        r.UserOID = guidOf(chance(0.7) ? ownOrZero(kUser) : Id{});
        Id service{};
        Bytes serviceRecord;
        if (chance(0.8) && pickOwn(kCatalogue, &service, &serviceRecord)) {
          r.ServiceOID = guidOf(service);
          if (chance(0.6)) {
            r.Type = CAlertRespDB::kServiceResponse;
            r.ServiceType = as<ALRTNTFYSERV>(serviceRecord).ServiceType;
          } else {
            r.ServiceType = below(17);
          }
        }
        if (chance(0.1)) r.Type |= CAlertRespDB::kProtected;
        break;
      }
      case kResult: {
        auto &r = as<ALERTRESPRESULTREC>(record);
        r.LogEntryOID = guidOf(ownOrZero(kLog));
        r.ResponseOID = guidOf(ownOrZero(kResponse));
        r.Result = below(10);
        r.Ack = static_cast<unsigned char>(below(2));
        break;
      }
      case kUser:
        break;
      case kUserObject: {
        auto &r = as<tagUSEROBJ>(record);
        setText(r.LoginName, "login" + harness::hexOf(id.data(), 8));
        setText(r.FullName, "Full Name " + word(30));
        setText(r.TelephoneNumber, std::to_string(below(1000000)));
        break;
      }
      default:
        break;
    }
    if (int offset = passwordOffset(t); offset >= 0) {
      std::string password = "pw" + word(30);
      std::memcpy(record.data() + offset, password.data(),
                  std::min<std::size_t>(password.size(), 48));
    }
    return record;
  }

  // The change an update makes, with what the library recomputes.
  void mutate(Table t, Bytes &record) {
    scribble(t, record.data());
    if (t == kEventClass) {
      auto &r = as<ALRTEVENT_CLASSREC>(record);
      if (chance(0.5)) r.Severity = below(6);
      if (chance(0.3)) r.IconID = below(100);
    } else if (t == kLog && slot_ == 0 && chance(0.5)) {
      as<ALRTEVENT_LOGREC>(record).Ack = 1;
    }
    derive(t, record.data());
  }

  // ---------------------------------------------------------------- ops

  bool addSimple(Table t) {
    Bytes record = make(t);
    add(t, record);
    return true;
  }

  bool updateSimple(Table t) {
    Id id{};
    Bytes record;
    if (!pickOwn(t, &id, &record)) return false;
    mutate(t, record);
    update(t, record);
    return true;
  }

  bool deleteSimple(Table t) {
    Id id{};
    Bytes record;
    if (!pickOwn(t, &id, &record)) return false;
    if (t == kResponse && (as<ALERTRESPREC>(record).Type & CAlertRespDB::kProtected)) return false;
    remove(t, id);
    return true;
  }

  bool updateDependent(Table t, Table ownerTable) {
    Bytes record;
    if (!pickDependent(t, ownerTable, &record)) return false;
    mutate(t, record);
    update(t, record);
    return true;
  }

  bool deleteDependent(Table t, Table ownerTable) {
    Bytes record;
    if (!pickDependent(t, ownerTable, &record)) return false;
    remove(t, idOfRecord(record.data()));
    return true;
  }

  bool linked(const Id &eventClass, const Id &response) {
    for (const Bytes &link : ownedBy(kLink, eventClass)) {
      if (std::memcmp(link.data() + offsetof(ALRTEVENT_RESPREC, ResponseOID), response.data(),
                      16) == 0) {
        return true;
      }
    }
    return false;
  }

  bool addLink(bool throughEventClass) {
    Id eventClass{}, response{};
    if (!pickOwn(kEventClass, &eventClass) || !pickOwn(kResponse, &response) ||
        linked(eventClass, response)) {
      return false;
    }
    Bytes record(sizeof(ALRTEVENT_RESPREC), 0);
    as<ALRTEVENT_RESPREC>(record).EventClassOID = guidOf(eventClass);
    as<ALRTEVENT_RESPREC>(record).ResponseOID = guidOf(response);
    if (!throughEventClass) {
      Id id = newId();
      std::memcpy(record.data(), id.data(), 16);
      add(kLink, record);
      return true;
    }
    call(
        "link-add", {token(kLink, record, true)}, label(kEventClass, eventClass),
        [&] {
          _GUID e = guidOf(eventClass), r = guidOf(response);
          return table<kEventClass>().QALRTEventClassAddResponse(&e, &r);
        },
        [&] {
          for (const Bytes &link : ownedBy(kLink, eventClass)) {
            if (std::memcmp(link.data() + offsetof(ALRTEVENT_RESPREC, ResponseOID), response.data(),
                            16) == 0) {
              return std::vector<Id>{idOfRecord(link.data())};
            }
          }
          return std::vector<Id>{};
        });
    return true;
  }

  bool purgeLog() {
    if (slot_ != 0) return false;
    std::uint32_t flags = chance(0.5) ? kPurgeAcknowledged : kPurgeAcknowledgedIfAuto;
    call("log-purge", {std::to_string(flags)}, "", [&] { return PurgeLog(flags); });
    return true;
  }

  template <class KindTable>
  void addTypedService(Table kindTable) {
    Bytes kindRecord = make(kindTable);
    Bytes service = make(kCatalogue);
    auto &s = as<ALRTNTFYSERV>(service);
    s.ServiceType = KindTable::kServiceType;
    std::memcpy(&s.ServiceSpecific_KEPOID, kindRecord.data(), 16);
    setText(s.Service_Name, "svc-" + harness::hexOf(service.data(), 6));
    s.Enabled = below(2);
    Id kindId = idOfRecord(kindRecord.data()), serviceId = idOfRecord(service.data());
    RecordDigest serviceDigest = digestOf(kCatalogue, service.data());
    call("svc-add-typed",
         {formatRecord(kindTable, &kindId, digestOf(kindTable, kindRecord.data())),
          formatRecord(kCatalogue, &serviceId, serviceDigest)},
         label(kCatalogue, serviceId), [&] {
           _GUID oid{}, kindOid{};
           return table<kCatalogue>().DBAlertRecAdd(
               &s, &oid, reinterpret_cast<typename KindTable::Record *>(kindRecord.data()),
               &kindOid);
         });
    expectUnchanged(kCatalogue, service, serviceDigest);
    own_[kindTable].push_back(kindId);
    own_[kCatalogue].push_back(serviceId);
  }

  bool addTypedService() {
    std::uint32_t kind = below(harness::kServiceKinds);
    harness::withElement(harness::ServiceKindTables{}, kind, [&](auto type) {
      addTypedService<typename decltype(type)::type>(static_cast<Table>(kKindMhs + kind));
    });
    return true;
  }

  bool addPlainService() {
    Bytes service = make(kCatalogue);
    static const std::uint32_t types[] = {14, 15, 5, 8};
    as<ALRTNTFYSERV>(service).ServiceType = types[below(4)];
    setText(as<ALRTNTFYSERV>(service).Service_Name, "plain-" + word(20));
    add(kCatalogue, service);
    return true;
  }

  bool updateKindSettings() {
    return updateSimple(static_cast<Table>(kKindMhs + below(harness::kServiceKinds)));
  }

  bool addUser() {
    Bytes record = make(kUser);
    if (chance(0.5)) {
      add(kUser, record);
      return true;
    }
    // The three-argument form differs only in the status of a refused registration.
    RecordDigest digest = digestOf(kUser, record.data());
    Id id = idOfRecord(record.data());
    call("add", {formatRecord(kUser, &id, digest)}, label(kUser, id), [&] {
      _GUID newId{};
      return table<kUser>().DBAlertRecAdd(&as<ALERTUSRREC>(record), &newId, 1);
    });
    own_[kUser].push_back(id);
    return true;
  }

  // An address record of the kind of `type` for `user`.
  Bytes makeAddress(Table t, const Id &user) {
    Bytes record = make(t);
    int userRef = tableInfo(t).refs[0];
    std::memcpy(record.data() + userRef, user.data(), 16);
    if (t == kAddrApage) {
      as<ALRTUSR_APAGESERVICEREC>(record).SelServiceOID = guidOf(ownOrZero(kCatalogue));
    }
    return record;
  }

  // Calls fn with the address record typed by the kind of table t.
  template <class Fn>
  std::uint32_t typedAddress(Table t, Bytes &address, Fn &&fn) {
    std::uint32_t status = 0;
    harness::withElement(harness::AddressTables{}, t - kAddrMhs, [&](auto type) {
      status = fn(reinterpret_cast<RecordOf<typename decltype(type)::type> *>(address.data()));
    });
    return status;
  }

  // A user is given a service with the address for it, by the user table's
  // member or by the instance table's own add.
  bool addUserService(bool throughUser) {
    Id user{}, service{};
    if (!pickOwn(kUser, &user) || !pickOwn(kCatalogue, &service)) return false;
    std::uint32_t kind = below(harness::kAddressKindCount);
    std::uint32_t type = harness::kAddressKinds[kind].type;
    Table addressTable = static_cast<Table>(kAddrMhs + kind);
    Bytes address = makeAddress(addressTable, user);
    Id addressId = idOfRecord(address.data());
    Bytes instance(sizeof(ALRTUSRINSTSERV), 0);
    auto &inst = as<ALRTUSRINSTSERV>(instance);
    inst.UserOid = guidOf(user);
    inst.Service_KEPOID = guidOf(service);
    inst.ServicePerInfo_KEPOID = guidOf(addressId);
    inst.ServiceType = type;
    std::vector<std::string> args{token(addressTable, address)};
    if (throughUser) {
      setText(inst.Service_Name, harness::kAddressKinds[kind].serviceName);
      args.push_back(token(kInstance, instance, true));
      call(
          "user-add-service", args, label(kUser, user),
          [&] {
            _GUID u = guidOf(user), s = guidOf(service);
            return typedAddress(addressTable, address, [&](auto *a) {
              return table<kUser>().QALRTUsrAddService(&u, &s, a);
            });
          },
          [&] {
            Bytes found(sizeof(ALRTUSRINSTSERV), 0);
            Id key = addressId;
            if (table<kInstance>().DBAlertRecFindFirst(CAlertUsrInstServDB::kAddressKey, 16,
                                                       key.data(),
                                                       &as<ALRTUSRINSTSERV>(found)) != 0) {
              return std::vector<Id>{};
            }
            return std::vector<Id>{idOfRecord(found.data())};
          });
    } else {
      Id instanceId = newId();
      std::memcpy(instance.data(), instanceId.data(), 16);
      setText(inst.Service_Name, word(20));
      inst.Enable = below(2);
      args.push_back(token(kInstance, instance));
      call("inst-add", args, label(kInstance, instanceId), [&] {
        _GUID instOid{}, addrOid{};
        return typedAddress(addressTable, address, [&](auto *a) {
          return table<kInstance>().DBAlertRecAdd(&inst, &instOid, a, &addrOid);
        });
      });
    }
    own_[addressTable].push_back(addressId);
    return true;
  }

  // An instance of a kind without address records.
  bool addBareInstance() {
    Id user{}, service{};
    if (!pickOwn(kUser, &user) || !pickOwn(kCatalogue, &service)) return false;
    Bytes instance = make(kInstance);
    auto &inst = as<ALRTUSRINSTSERV>(instance);
    inst.UserOid = guidOf(user);
    inst.Service_KEPOID = guidOf(service);
    inst.ServiceType = 8;
    setText(inst.Service_Name, "Wave File");
    add(kInstance, instance);
    return true;
  }

  bool updateAddress() {
    return updateSimple(static_cast<Table>(kAddrMhs + below(harness::kAddressKindCount)));
  }

  bool addServerEntry(Table t) {
    Id server{};
    if (!pickOwn(kServer, &server)) return false;
    Bytes record = make(t);
    // The member writes the server's ID into the caller's record.
    int serverRef = tableInfo(t).refs[0];
    std::memcpy(record.data() + serverRef, server.data(), 16);
    Id id = idOfRecord(record.data());
    RecordDigest digest = digestOf(t, record.data());
    call("srv-add-entry", {formatRecord(t, &id, digest)}, label(t, id), [&] {
      _GUID s = guidOf(server), newId{};
      if (t == kPing) {
        return table<kServer>().QALRTServCfgAddAutoPingEntry(&s, &as<ALRTSERV_AUTOPING>(record),
                                                             &newId);
      }
      return table<kServer>().QALRTServCfgAddSNMPTrapEntry(&s, &as<ALRTSERV_SNMPTRAP>(record),
                                                           &newId);
    });
    expectUnchanged(t, record, digest);
    own_[t].push_back(id);
    return true;
  }

  bool addServerAgent() {
    Id server{}, agent{};
    if (!pickOwn(kServer, &server) || !pickOwn(kAgent, &agent)) return false;
    Bytes record(sizeof(ALRTSERV_AGNT_RELREC), 0);
    as<ALRTSERV_AGNT_RELREC>(record).AgentOID = guidOf(agent);
    as<ALRTSERV_AGNT_RELREC>(record).ServerOID = guidOf(server);
    _GUID newId{};
    call(
        "srv-add-agent", {token(kServerToAgent, record, true)}, label(kServer, server),
        [&] {
          _GUID s = guidOf(server), a = guidOf(agent);
          return table<kServer>().QALRTServCfgAddAgentEntry(&s, &a, &newId);
        },
        [&] { return std::vector<Id>{idOf(newId)}; });
    return true;
  }

  bool relateAgent() {
    Id server{}, agent{};
    if (!pickOwn(kServer, &server) || !pickOwn(kAgent, &agent)) return false;
    Bytes first(sizeof(ALRTAGNT_SERV_RELREC), 0), second(sizeof(ALRTSERV_AGNT_RELREC), 0);
    as<ALRTAGNT_SERV_RELREC>(first).AgentOID = guidOf(agent);
    as<ALRTAGNT_SERV_RELREC>(first).ServerOID = guidOf(server);
    as<ALRTSERV_AGNT_RELREC>(second).AgentOID = guidOf(agent);
    as<ALRTSERV_AGNT_RELREC>(second).ServerOID = guidOf(server);
    // The member returns only the second record's ID; the first is the one
    // the agent did not have before.
    std::set<Id> before;
    for (const Bytes &r : ownedBy(kAgentToServer, agent)) before.insert(idOfRecord(r.data()));
    _GUID newId{};
    call(
        "agent-relate", {token(kAgentToServer, first, true), token(kServerToAgent, second, true)},
        label(kAgent, agent),
        [&] {
          _GUID s = guidOf(server), a = guidOf(agent);
          return table<kAgent>().QALRTAgntCfgAddServiceEntry(&s, &a, &newId);
        },
        [&] {
          std::vector<Id> made;
          for (const Bytes &r : ownedBy(kAgentToServer, agent)) {
            if (!before.count(idOfRecord(r.data()))) made.push_back(idOfRecord(r.data()));
          }
          if (made.size() != 1) return std::vector<Id>{};
          made.push_back(idOf(newId));
          return made;
        });
    return true;
  }

  bool addInstalled(bool throughServer) {
    Id server{}, service{};
    Bytes serviceRecord;
    if (!pickOwn(kServer, &server) || !pickOwn(kCatalogue, &service, &serviceRecord)) return false;
    Bytes record(sizeof(ALRTSERV_INST_NTFY_SERVREC), 0);
    auto &r = as<ALRTSERV_INST_NTFY_SERVREC>(record);
    r.ServiceOID = guidOf(service);
    r.ServerOID = guidOf(server);
    std::string name = "inst " + word(20);
    setText(r.ServiceName, name);
    if (throughServer) {
      _GUID newId{};
      call(
          "srv-add-installed", {token(kInstalled, record, true)}, label(kServer, server),
          [&] {
            _GUID s = guidOf(server), v = guidOf(service);
            return table<kServer>().QALRTServCfgAddNtfyServiceEntry(&s, &v, r.ServiceName, &newId);
          },
          [&] { return std::vector<Id>{idOf(newId)}; });
      return true;
    }
    Id id = newId();
    std::memcpy(record.data(), id.data(), 16);
    r.ServiceSpecOID = as<ALRTNTFYSERV>(serviceRecord).ServiceSpecific_KEPOID;
    r.BackupServer = chance(0.5) ? CAlertSERV_INST_NTFY_SERVDB::kBackupServer : 0;
    add(kInstalled, record);
    return true;
  }

  // ---------------------------------------------------------------- mix

  bool step();
  void batch();

  int slot_;
  std::mt19937_64 random_;
  int calls_ = 0;
  bool inBatch_ = false;
  std::uint64_t lastTime_ = 0;
  std::vector<Id> own_[kTableCount];

  harness::Tables tables_;
};

bool Writer::open() {
  std::uint32_t status = tables_.openAll();
  if (status != 0) emit("error 0 open " + std::to_string(status));
  return status == 0;
}

// The records of this slot that earlier writers left. Records the object
// manager does not know (an add killed before it registered them) are left
// alone: the object manager would refuse their update or delete.
void Writer::scan() {
  for (int i = 0; i < kTableCount; ++i) {
    Table t = static_cast<Table>(i);
    if (tableInfo(t).ownerRef >= 0) continue;
    bool mirrored = isMirrored(t);
    with(t, [&](auto &table) {
      using R = RecordOf<std::remove_reference_t<decltype(table)>>;
      Bytes record(tableInfo(t).size, 0);
      harness::walk(table, table.idKey(), nullptr, *reinterpret_cast<R *>(record.data()),
                    [&](const R &) {
                      Id id = idOfRecord(record.data());
                      _GUID guid = guidOf(id), classId;
                      char name[64];
                      if (slotOfRecord(t, record.data()) == slot_ &&
                          (!mirrored ||
                           platform::KepOMGetInstance(&guid, &classId, name, sizeof name) == 0))
                        own_[t].push_back(id);
                      return true;
                    });
    });
  }
}

bool Writer::step() {
  // Tables whose records the writer adds, updates and deletes by themselves,
  // with the weight of each (out of 100, with the calls below).
  struct Simple {
    Table table;
    std::uint32_t add, update, remove;
  };
  static const Simple simple[] = {
      {kEventClass, 4, 2, 1}, {kLog, 3, 2, 1},       {kResponse, 4, 2, 1}, {kResult, 2, 1, 1},
      {kCatalogue, 0, 1, 1},  {kUser, 0, 1, 2},      {kUserObject, 2, 1, 1}, {kServer, 3, 1, 2},
      {kPing, 0, 1, 1},       {kTrap, 0, 1, 1},      {kModem, 2, 1, 1},    {kAgent, 2, 1, 1},
      {kProvider, 2, 1, 1},   {kLocation, 1, 0, 0}};
  // Weighted so that there is always something for the cascades to take.
  using Op = bool (*)(Writer &);
#define OP(weight, call)                     \
  {                                          \
    weight, [](Writer &w) { return w.call; } \
  }
  static const std::pair<std::uint32_t, Op> ops[] = {
      OP(2, addLink(true)),
      OP(1, addLink(false)),
      OP(1, deleteDependent(kLink, kEventClass)),
      OP(1, purgeLog()),
      OP(4, addTypedService()),
      OP(1, addPlainService()),
      OP(2, updateKindSettings()),
      OP(3, addUser()),
      OP(4, addUserService(true)),
      OP(2, addUserService(false)),
      OP(1, addBareInstance()),
      OP(1, updateDependent(kInstance, kUser)),
      OP(2, deleteDependent(kInstance, kUser)),
      OP(2, updateAddress()),
      OP(2, addServerEntry(kPing)),
      OP(2, addServerEntry(kTrap)),
      OP(1, addServerAgent()),
      OP(2, addInstalled(true)),
      OP(3, addInstalled(false)),
      OP(1, updateDependent(kInstalled, kServer)),
      OP(2, deleteDependent(kInstalled, kServer)),
      OP(2, relateAgent()),
      OP(1, deleteDependent(w.below(2) ? kAgentToServer : kServerToAgent, kAgent)),
      OP(1, below(2) ? w.updateSimple(kLocation) : w.deleteSimple(kLocation)),
  };
#undef OP
  std::uint32_t r = below(100);
  for (const Simple &s : simple) {
    if (r < s.add) return addSimple(s.table);
    r -= s.add;
    if (r < s.update) return updateSimple(s.table);
    r -= s.update;
    if (r < s.remove) return deleteSimple(s.table);
    r -= s.remove;
  }
  for (const auto &[weight, op] : ops) {
    if (r < weight) return op(*this);
    r -= weight;
  }
  return false;
}

// A few calls under the lock of every data file, committed together.
void Writer::batch() {
  int number = ++calls_;
  std::string n = std::to_string(number);
  emit("batch " + n + " begin");
  for (int f = 0; f < kDataFileCount; ++f) {
    std::uint32_t status = DBFileLock(tables_.lockHandle(static_cast<DataFile>(f)));
    if (status != 0) {
      emit("error " + n + " lock " + std::to_string(status) + " " + kDataFileNames[f]);
      std::exit(3);
    }
  }
  inBatch_ = true;
  int made = 0, wanted = 2 + static_cast<int>(below(7));
  for (int tries = 0; made < wanted && tries < 50; ++tries) made += step() ? 1 : 0;
  inBatch_ = false;
  emit("batch " + n + " unlock");
  for (int f = 0; f < kDataFileCount; ++f) {
    std::uint32_t status = DBFileUnlock(tables_.lockHandle(static_cast<DataFile>(f)));
    if (status != 0) {
      emit("error " + n + " unlock " + std::to_string(status) + " " + kDataFileNames[f]);
      std::exit(3);
    }
  }
  emit("ack " + n + " batch-commit " + std::to_string(made));
}

void Writer::run(long calls) {
  while (calls_ < calls) {
    if (below(100) < 8) {
      batch();
    } else {
      for (int tries = 0; tries < 20 && !step(); ++tries) {
      }
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: crash_writer SLOT SEED [CALLS]\n");
    return 2;
  }
  int slot = std::atoi(argv[1]);
  std::uint64_t seed = std::strtoull(argv[2], nullptr, 10);
  long calls = argc > 3 ? std::atol(argv[3]) : 1000000;
  if (slot < 0 || slot > 1) return 2;
  auto writer = std::make_unique<Writer>(slot, seed);
  if (!writer->open()) return 2;
  writer->scan();
  emit("ready " + std::to_string(slot));
  writer->run(calls);
  emit("done");
  return 0;
}
