// Real data files for the damaged-file harness, written through the table
// classes: several tables, many records (some large enough to overflow a
// page), then batches of changes made under the file lock while the tables
// stay open, so that the write-ahead log holds committed frames not yet
// copied into the file. What was written is kept, to compare reads with.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "alertdb.h"
#include "reliability/damaged/damaged_reference.h"
#include "reliability/harness_tables.h"

namespace alertdb_test::damage {

template <class Table>
std::string tableName() {
  return harness::Exposed<Table>().tableName();
}

// The record store handle of an open table, for the file lock.
template <class Table>
KEPDB *handleOf(Table &table) {
  struct Probe : Table {
    static KEPDB *of(Table &t) { return static_cast<Probe &>(t).m_hTable; }
  };
  return Probe::of(table);
}

// Every record written and not deleted since, by table and object ID (hex),
// as two hashes: of the record as the caller gave it (with the ID the add
// chose) and as the call left it in the caller's storage. A read must give
// one of the two: tables that protect passwords keep the protected form in
// the caller's record, and hand back the clear one.
class WrittenRecords {
 public:
  struct Written {
    std::uint64_t given = 0;
    std::uint64_t left = 0;
  };
  using Table = std::map<std::string, Written>;

  template <class Rec>
  void put(const std::string &table, Rec given, const Rec &left) {
    std::memcpy(static_cast<void *>(&given), &left, 16);
    tables_[table][hexOf(&left, 16)] = {bytesHash(&given, sizeof given),
                                        bytesHash(&left, sizeof left)};
  }
  void erase(const std::string &table, const _GUID &id) {
    tables_[table].erase(hexOf(&id, sizeof id));
  }
  const std::map<std::string, Table> &tables() const { return tables_; }
  std::size_t count() const {
    std::size_t n = 0;
    for (const auto &[name, records] : tables_) n += records.size();
    return n;
  }

 private:
  std::map<std::string, Table> tables_;
};

// Record contents: mostly zeros with short texts here and there, as real
// records are; a large record is random throughout.
class RecordMaker {
 public:
  explicit RecordMaker(std::uint64_t seed) : random_(seed) {}

  template <class Rec>
  void fill(Rec &record, bool large = false) {
    auto *bytes = reinterpret_cast<unsigned char *>(&record);
    std::memset(bytes, 0, sizeof record);
    if (large) {
      for (std::size_t i = 16; i < sizeof record; ++i)
        bytes[i] = static_cast<unsigned char>(random_());
      return;
    }
    int runs = 2 + static_cast<int>(random_() % 6);
    for (int r = 0; r < runs && sizeof record > 24; ++r) {
      std::size_t at = 16 + random_() % (sizeof record - 24);
      std::size_t length = std::min<std::size_t>(3 + random_() % 20, sizeof record - at - 1);
      for (std::size_t i = 0; i < length; ++i) bytes[at + i] = 'a' + random_() % 26;
    }
  }
  std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(random_() % n); }
  _GUID id() {
    _GUID g;
    auto *bytes = reinterpret_cast<unsigned char *>(&g);
    for (std::size_t i = 0; i < sizeof g; ++i) bytes[i] = static_cast<unsigned char>(random_());
    return g;
  }

 private:
  std::mt19937_64 random_;
};

template <class Table, class Rec>
_GUID addThrough(Table &table, Rec &record, WrittenRecords &written) {
  Rec given = record;
  _GUID id{};
  EXPECT_EQ(table.DBAlertRecAdd(&record, &id), 0u) << tableName<Table>();
  written.put(tableName<Table>(), given, record);
  return id;
}

template <class Table, class Rec>
void updateThrough(Table &table, Rec &record, WrittenRecords &written) {
  Rec given = record;
  EXPECT_EQ(table.DBAlertRecUpdate(&record), 0u) << tableName<Table>();
  written.put(tableName<Table>(), given, record);
}

// One data file's records: made in two phases, so that the second leaves
// committed frames in the write-ahead log.
class DataFileBuilder {
 public:
  virtual ~DataFileBuilder() = default;
  virtual const char *file() const = 0;
  // Phase one: the tables and many records; every table is closed after.
  virtual void fill(WrittenRecords &written) = 0;
  // Phase two: the tables opened and kept open; each batch is made under
  // the file lock of `handle()`, so that it is one commit.
  virtual void open() = 0;
  virtual KEPDB *handle() = 0;
  virtual void change(int batch, WrittenRecords &written) = 0;
  virtual void close() = 0;
};

// A batch under the file lock.
inline void lockedBatch(KEPDB *handle, const std::function<void()> &work) {
  ASSERT_EQ(DBFileLock(handle), 0u);
  work();
  ASSERT_EQ(DBFileUnlock(handle), 0u);
}

// ------------------------------------------------------------ AlEvntdb.dat

class EventFileBuilder : public DataFileBuilder {
 public:
  const char *file() const override { return "AlEvntdb.dat"; }

  void fill(WrittenRecords &written) override {
    open();
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 60; ++n) addClass(written, n % 20 == 7);
      for (int n = 0; n < 150; ++n) addLink(written);
      for (int n = 0; n < 80; ++n) addLogEntry(written, n % 30 == 11);
    });
    close();
  }
  void open() override {
    classes_ = std::make_unique<CAlertEVENT_CLASSDB>();
    linkTable_ = std::make_unique<CAlertEVENT_RESPDB>();
    log_ = std::make_unique<CAlertEVENT_LOGDB>("AlEvntdb.dat");
    ASSERT_EQ(harness::openOrMake(*classes_), 0u);
    ASSERT_EQ(harness::openOrMake(*linkTable_), 0u);
    ASSERT_EQ(harness::openOrMake(*log_), 0u);
  }
  KEPDB *handle() override { return handleOf(*classes_); }
  void change(int batch, WrittenRecords &written) override {
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 3; ++n) addClass(written, false);
      for (int n = 0; n < 8; ++n) addLink(written);
      for (int n = 0; n < 3; ++n) {
        ALRTEVENT_CLASSREC &c = *classRecords_[(batch * 7 + n * 5) % classRecords_.size()];
        std::snprintf(c.Comment, sizeof c.Comment, "changed in batch %d, %d", batch, n);
        updateThrough(*classes_, c, written);
      }
      deleteClass(written, (batch * 11) % classRecords_.size());
      for (int n = 0; n < 4; ++n) addLogEntry(written, false);
      for (int n = 0; n < 2; ++n) {
        ALRTEVENT_LOGREC &e = *logRecords_[(batch * 13 + n * 3) % logRecords_.size()];
        e.Ack = 1;
        std::snprintf(e.Comment, sizeof e.Comment, "acknowledged in batch %d, %d", batch, n);
        updateThrough(*log_, e, written);
      }
      std::size_t gone = (batch * 17) % logRecords_.size();
      _GUID id = logRecords_[gone]->KEPOID;
      EXPECT_EQ(log_->DBAlertRecDelete(&id), 0u);
      written.erase(tableName<CAlertEVENT_LOGDB>(), id);
      logRecords_.erase(logRecords_.begin() + static_cast<std::ptrdiff_t>(gone));
    });
  }
  void close() override {
    classes_.reset();
    linkTable_.reset();
    log_.reset();
  }

 private:
  void addClass(WrittenRecords &written, bool large) {
    auto c = std::make_unique<ALRTEVENT_CLASSREC>();
    maker_.fill(*c, large);
    c->SNMP_OID[0] = '\0';
    c->NumParam = maker_.below(CAlertEVENT_CLASSDB::kMaxParams + 1);
    c->Severity = maker_.below(5);
    // Event IDs and names are unique keys.
    c->EventID = 1000 + made_;
    std::snprintf(c->EventName, sizeof c->EventName, "Event class %u", made_++);
    addThrough(*classes_, *c, written);
    classRecords_.push_back(std::move(c));
  }
  void addLink(WrittenRecords &written) {
    ALRTEVENT_RESPREC link{};
    link.EventClassOID = classRecords_[maker_.below(classRecords_.size())]->KEPOID;
    link.ResponseOID = maker_.id();
    addThrough(*linkTable_, link, written);
    links_.emplace_back(link.KEPOID, link.EventClassOID);
  }
  void deleteClass(WrittenRecords &written, std::size_t index) {
    _GUID id = classRecords_[index]->KEPOID;
    EXPECT_EQ(classes_->DBAlertRecDelete(&id), 0u);
    written.erase(tableName<CAlertEVENT_CLASSDB>(), id);
    // Its links go with it.
    for (auto it = links_.begin(); it != links_.end();) {
      if (std::memcmp(&it->second, &id, sizeof id) == 0) {
        written.erase(tableName<CAlertEVENT_RESPDB>(), it->first);
        it = links_.erase(it);
      } else {
        ++it;
      }
    }
    classRecords_.erase(classRecords_.begin() + static_cast<std::ptrdiff_t>(index));
  }
  void addLogEntry(WrittenRecords &written, bool large) {
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    maker_.fill(*e, large);
    e->Ack = maker_.below(3) == 0 ? 1 : 0;
    e->Severity = maker_.below(5);
    e->EventID = maker_.below(4) == 0 ? 12545 : 1000 + maker_.below(100);
    addThrough(*log_, *e, written);
    logRecords_.push_back(std::move(e));
  }

  RecordMaker maker_{0xE7E47};
  std::uint32_t made_ = 0;
  std::unique_ptr<CAlertEVENT_CLASSDB> classes_;
  std::unique_ptr<CAlertEVENT_RESPDB> linkTable_;
  std::unique_ptr<CAlertEVENT_LOGDB> log_;
  std::vector<std::unique_ptr<ALRTEVENT_CLASSREC>> classRecords_;
  std::vector<std::unique_ptr<ALRTEVENT_LOGREC>> logRecords_;
  std::vector<std::pair<_GUID, _GUID>> links_;  // link ID, its event class
};

// ------------------------------------------------------------ KEPLogDB.dat

// The event log, mirrored into the object manager; one batch runs the purge
// of acknowledged entries inside the lock. The purge finds the data
// directory through the console settings file, which `fill` writes.
class LogFileBuilder : public DataFileBuilder {
 public:
  explicit LogFileBuilder(std::string dataDir) : dataDir_(std::move(dataDir)) {}
  const char *file() const override { return "KEPLogDB.dat"; }

  void fill(WrittenRecords &written) override {
    std::ofstream(dataDir_ + "/QADMIN.DAT") << "[Directories]\nDataDir=" << dataDir_ << "\n";
    log_ = std::make_unique<CAlertEVENT_LOGDB>();
    ASSERT_EQ(log_->DBCreate(), 0u);
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 300; ++n) add(written, n % 60 == 17);
    });
    close();
  }
  void open() override {
    log_ = std::make_unique<CAlertEVENT_LOGDB>();
    ASSERT_EQ(log_->DBOpen(), 0u);
  }
  KEPDB *handle() override { return handleOf(*log_); }
  void change(int batch, WrittenRecords &written) override {
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 6; ++n) add(written, false);
      for (int n = 0; n < 4; ++n) {
        ALRTEVENT_LOGREC &e = *entries_[(batch * 19 + n * 7) % entries_.size()];
        e.Ack = 1;
        std::snprintf(e.Comment, sizeof e.Comment, "acknowledged in batch %d, %d", batch, n);
        updateThrough(*log_, e, written);
      }
      for (int n = 0; n < 2; ++n) remove(written, (batch * 23 + n * 5) % entries_.size());
      if (batch == 3) {
        EXPECT_EQ(PurgeLog(kPurgeAcknowledged), 0u);
        for (std::size_t i = entries_.size(); i-- > 0;) {
          if (entries_[i]->Ack == 1) forget(written, i);
        }
      }
    });
  }
  void close() override { log_.reset(); }

 private:
  void add(WrittenRecords &written, bool large) {
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    maker_.fill(*e, large);
    e->Ack = maker_.below(4) == 0 ? 1 : 0;
    e->Severity = maker_.below(5);
    e->EventID = maker_.below(5) == 0 ? 12545 : 2000 + maker_.below(50);
    e->Time[0] = 125;
    e->Time[1] = static_cast<unsigned char>(1 + maker_.below(12));
    e->Time[2] = static_cast<unsigned char>(1 + maker_.below(28));
    addThrough(*log_, *e, written);
    entries_.push_back(std::move(e));
  }
  void remove(WrittenRecords &written, std::size_t index) {
    _GUID id = entries_[index]->KEPOID;
    EXPECT_EQ(log_->DBAlertRecDelete(&id), 0u);
    forget(written, index);
  }
  void forget(WrittenRecords &written, std::size_t index) {
    written.erase(tableName<CAlertEVENT_LOGDB>(), entries_[index]->KEPOID);
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
  }

  std::string dataDir_;
  RecordMaker maker_{0x10C};
  std::unique_ptr<CAlertEVENT_LOGDB> log_;
  std::vector<std::unique_ptr<ALRTEVENT_LOGREC>> entries_;
};

// ------------------------------------------------------------ AlServdb.dat

// The service catalogue with services of all fourteen kinds that have a
// table of their own, each a catalogue row plus its kind's row.
class ServiceFileBuilder : public DataFileBuilder {
 public:
  const char *file() const override { return "AlServdb.dat"; }

  void fill(WrittenRecords &written) override {
    open();
    lockedBatch(handle(), [&] {
      for (int round = 0; round < 5; ++round) {
        for (int kind = 0; kind < 14; ++kind)
          addService(written, kind, round == 2 && kind % 4 == 1);
      }
    });
    close();
  }
  void open() override {
    catalogue_ = std::make_unique<CAlertNtfyServDB>();
    std::uint32_t r = catalogue_->DBOpen();
    if (r != 0) r = catalogue_->DBCreate();
    ASSERT_EQ(r, 0u);
  }
  KEPDB *handle() override { return handleOf(*catalogue_); }
  void change(int batch, WrittenRecords &written) override {
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 3; ++n) addService(written, (batch * 3 + n) % 14, false);
      for (int n = 0; n < 3; ++n) {
        ALRTNTFYSERV &row = *rows_[(batch * 29 + n * 11) % rows_.size()];
        std::snprintf(row.Comment, sizeof row.Comment, "changed in batch %d, %d", batch, n);
        row.Enabled = static_cast<std::uint32_t>(batch + n);
        updateThrough(*catalogue_, row, written);
      }
      std::size_t gone = (batch * 31) % rows_.size();
      _GUID id = rows_[gone]->KEPOID;
      // The catalogue's delete leaves the kind's row.
      EXPECT_EQ(catalogue_->DBAlertRecDelete(&id), 0u);
      written.erase(tableName<CAlertNtfyServDB>(), id);
      rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(gone));
    });
  }
  void close() override { catalogue_.reset(); }

 private:
  template <class Kind>
  void addTyped(WrittenRecords &written, bool large) {
    auto row = std::make_unique<ALRTNTFYSERV>();
    maker_.fill(*row);
    row->ServiceType = Kind::kServiceType;
    std::snprintf(row->Service_Name, sizeof row->Service_Name, "Service %zu", rows_.size());
    auto settings = std::make_unique<typename Kind::Record>();
    maker_.fill(*settings, large);
    ALRTNTFYSERV givenRow = *row;
    typename Kind::Record givenSettings = *settings;
    _GUID id{}, settingsId{};
    ASSERT_EQ(catalogue_->DBAlertRecAdd(row.get(), &id, settings.get(), &settingsId), 0u)
        << tableName<Kind>();
    written.put(tableName<CAlertNtfyServDB>(), givenRow, *row);
    written.put(tableName<Kind>(), givenSettings, *settings);
    rows_.push_back(std::move(row));
  }
  void addService(WrittenRecords &written, int kind, bool large) {
    harness::withElement(
        harness::ServiceKindTables{}, static_cast<std::size_t>(kind),
        [&](auto type) { addTyped<typename decltype(type)::type>(written, large); });
  }

  RecordMaker maker_{0x5E4};
  std::unique_ptr<CAlertNtfyServDB> catalogue_;
  std::vector<std::unique_ptr<ALRTNTFYSERV>> rows_;
};

// ------------------------------------------------------------ kepuser.dat

// Alert users, each reached through services of several kinds (an instance
// and an address record each), and user objects. A batch deletes a user,
// whose instances and address records go with it.
class UserFileBuilder : public DataFileBuilder {
 public:
  const char *file() const override { return "kepuser.dat"; }

  void fill(WrittenRecords &written) override {
    ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
    {
      CAlertRespDB responses;  // a user's delete also clears its responses
      ASSERT_EQ(responses.DBCreate(), 0u);
    }
    open();
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 40; ++n) addUser(written, n % 13 == 5);
      for (int n = 0; n < 40; ++n) addUserObject(written);
    });
    close();
  }
  void open() override {
    users_ = std::make_unique<CAlertUsrDB>();
    instances_ = std::make_unique<CAlertUsrInstServDB>();
    objects_ = std::make_unique<CUsrDB>();
    for (std::uint32_t r : {OpenOrCreate(*users_), OpenOrCreate(*instances_), objects_->DBOpen()}) {
      ASSERT_EQ(r, 0u);
    }
  }
  KEPDB *handle() override { return handleOf(*users_); }
  void change(int batch, WrittenRecords &written) override {
    lockedBatch(handle(), [&] {
      for (int n = 0; n < 2; ++n) addUser(written, false);
      for (int n = 0; n < 2; ++n) {
        ALERTUSRREC &user = *userRecords_[(batch * 7 + n * 3) % userRecords_.size()];
        user.AlertRecp = 100 + static_cast<std::uint32_t>(batch * 2 + n);
        updateThrough(*users_, user, written);
      }
      deleteUser(written, (batch * 5) % userRecords_.size());
      for (int n = 0; n < 2; ++n) addUserObject(written);
      tagUSEROBJ &object = *objectRecords_[(batch * 3) % objectRecords_.size()];
      std::snprintf(object.Title, sizeof object.Title, "Title of batch %d", batch);
      updateThrough(*objects_, object, written);
    });
  }
  void close() override {
    users_.reset();
    instances_.reset();
    objects_.reset();
  }

 private:
  struct Instance {
    _GUID id;
    _GUID user;
    std::string addressTable;
    _GUID address;
  };

  template <class AddressTable>
  void addInstance(WrittenRecords &written, const _GUID &user) {
    ALRTUSRINSTSERV instance{};
    instance.UserOid = user;
    instance.Service_KEPOID = maker_.id();
    std::snprintf(instance.Service_Name, sizeof instance.Service_Name, "%s",
                  tableName<AddressTable>().c_str());
    typename AddressTable::Record address;
    maker_.fill(address);
    ALRTUSRINSTSERV givenInstance = instance;
    typename AddressTable::Record givenAddress = address;
    _GUID instanceId{}, addressId{};
    ASSERT_EQ(instances_->DBAlertRecAdd(&instance, &instanceId, &address, &addressId), 0u)
        << tableName<AddressTable>();
    written.put(tableName<CAlertUsrInstServDB>(), givenInstance, instance);
    written.put(tableName<AddressTable>(), givenAddress, address);
    userInstances_.push_back({instanceId, user, tableName<AddressTable>(), addressId});
  }
  void addInstanceOfKind(WrittenRecords &written, const _GUID &user, int kind) {
    harness::withElement(harness::AddressTables{}, static_cast<std::size_t>(kind % 9),
                         [&](auto t) { addInstance<typename decltype(t)::type>(written, user); });
  }
  void addUser(WrittenRecords &written, bool large) {
    auto user = std::make_unique<ALERTUSRREC>();
    maker_.fill(*user, large);
    _GUID id = addThrough(*users_, *user, written);
    int kinds = 1 + static_cast<int>(maker_.below(3));
    for (int k = 0; k < kinds; ++k) {
      addInstanceOfKind(written, id, static_cast<int>(userRecords_.size()) + k * 4);
    }
    userRecords_.push_back(std::move(user));
  }
  void deleteUser(WrittenRecords &written, std::size_t index) {
    _GUID id = userRecords_[index]->KEPOID;
    EXPECT_EQ(users_->DBAlertRecDelete(&id), 0u);
    written.erase(tableName<CAlertUsrDB>(), id);
    // Its instances and their address records go with it.
    for (auto it = userInstances_.begin(); it != userInstances_.end();) {
      if (std::memcmp(&it->user, &id, sizeof id) == 0) {
        written.erase(tableName<CAlertUsrInstServDB>(), it->id);
        written.erase(it->addressTable, it->address);
        it = userInstances_.erase(it);
      } else {
        ++it;
      }
    }
    userRecords_.erase(userRecords_.begin() + static_cast<std::ptrdiff_t>(index));
  }
  void addUserObject(WrittenRecords &written) {
    auto object = std::make_unique<tagUSEROBJ>();
    maker_.fill(*object);
    std::snprintf(object->LoginName, sizeof object->LoginName, "login%zu", objectRecords_.size());
    addThrough(*objects_, *object, written);
    objectRecords_.push_back(std::move(object));
  }

  RecordMaker maker_{0x05E4};
  std::unique_ptr<CAlertUsrDB> users_;
  std::unique_ptr<CAlertUsrInstServDB> instances_;
  std::unique_ptr<CUsrDB> objects_;
  std::vector<std::unique_ptr<ALERTUSRREC>> userRecords_;
  std::vector<std::unique_ptr<tagUSEROBJ>> objectRecords_;
  std::vector<Instance> userInstances_;
};

}  // namespace alertdb_test::damage
