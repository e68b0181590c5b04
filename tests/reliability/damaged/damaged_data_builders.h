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

inline _GUID idOf(const void *record) {
  _GUID id;
  std::memcpy(&id, record, sizeof id);
  return id;
}

// An open table of a data file and the records of it that batches change.
class TablePool {
 public:
  virtual ~TablePool() = default;
  virtual std::uint32_t open() = 0;
  virtual void close() = 0;
  virtual KEPDB *handle() = 0;
};

template <class Table>
class Pool : public TablePool {
 public:
  using Rec = harness::RecordOf<Table>;
  explicit Pool(const char *file = nullptr) : file_(file) {}

  std::uint32_t open() override {
    table_ = file_ ? std::make_unique<harness::Exposed<Table>>(file_)
                   : std::make_unique<harness::Exposed<Table>>();
    return harness::openOrMake(*table_);
  }
  void close() override { table_.reset(); }
  KEPDB *handle() override { return table_->handle(); }
  Table &table() { return *table_; }
  std::size_t size() const { return records_.size(); }
  Rec &operator[](std::size_t i) { return *records_[i % records_.size()]; }
  static std::string name() { return tableName<Table>(); }

  // Adds a record that `set` fills in.
  template <class Set>
  Rec &add(WrittenRecords &written, Set &&set) {
    auto record = std::make_unique<Rec>();
    set(*record);
    Rec given = *record;
    _GUID id{};
    EXPECT_EQ(table_->DBAlertRecAdd(record.get(), &id), 0u) << name();
    written.put(name(), given, *record);
    return keep(std::move(record));
  }
  Rec &keep(std::unique_ptr<Rec> record) {
    records_.push_back(std::move(record));
    return *records_.back();
  }
  template <class Change>
  void update(WrittenRecords &written, std::size_t i, Change &&change) {
    Rec &record = (*this)[i];
    change(record);
    Rec given = record;
    EXPECT_EQ(table_->DBAlertRecUpdate(&record), 0u) << name();
    written.put(name(), given, record);
  }
  _GUID remove(WrittenRecords &written, std::size_t i) {
    _GUID id = idOf(&(*this)[i]);
    EXPECT_EQ(table_->DBAlertRecDelete(&id), 0u) << name();
    forgetIf(written, [&](const Rec &r) { return std::memcmp(&r, &id, sizeof id) == 0; });
    return id;
  }
  // Records the library removed by itself.
  template <class Pred>
  void forgetIf(WrittenRecords &written, Pred &&gone) {
    for (auto it = records_.begin(); it != records_.end();) {
      if (gone(**it)) {
        written.erase(name(), idOf(it->get()));
        it = records_.erase(it);
      } else {
        ++it;
      }
    }
  }

 private:
  const char *file_;
  std::unique_ptr<harness::Exposed<Table>> table_;
  std::vector<std::unique_ptr<Rec>> records_;
};

// One data file's records: made in two phases, so that the second leaves
// committed frames in the write-ahead log. Each phase's batch is made under
// the file lock of the first table, so that it is one commit.
class DataFileBuilder {
 public:
  explicit DataFileBuilder(std::uint64_t seed) : maker_(seed) {}
  virtual ~DataFileBuilder() = default;
  virtual const char *file() const = 0;
  // Phase one: the tables and many records; every table is closed after.
  void fill(WrittenRecords &written) {
    prepare();
    open();
    if (!::testing::Test::HasFatalFailure()) batch([&] { populate(written); });
    close();
  }
  // Phase two: the tables opened and kept open.
  void open() {
    for (TablePool *pool : pools()) ASSERT_EQ(pool->open(), 0u);
  }
  void change(int n, WrittenRecords &written) {
    batch([&] { step(n, written); });
  }
  void close() {
    for (TablePool *pool : pools()) pool->close();
  }

 protected:
  virtual void prepare() {}
  virtual std::vector<TablePool *> pools() = 0;
  virtual void populate(WrittenRecords &written) = 0;
  virtual void step(int n, WrittenRecords &written) = 0;

  template <class Work>
  void batch(Work &&work) {
    KEPDB *h = pools().front()->handle();
    ASSERT_EQ(DBFileLock(h), 0u);
    work();
    ASSERT_EQ(DBFileUnlock(h), 0u);
  }

  RecordMaker maker_;
};

// ------------------------------------------------------------ AlEvntdb.dat

class EventFileBuilder : public DataFileBuilder {
 public:
  EventFileBuilder() : DataFileBuilder(0xE7E47) {}
  const char *file() const override { return "AlEvntdb.dat"; }

 protected:
  std::vector<TablePool *> pools() override { return {&classes_, &links_, &log_}; }
  void populate(WrittenRecords &written) override {
    for (int n = 0; n < 60; ++n) addClass(written, n % 20 == 7);
    for (int n = 0; n < 150; ++n) addLink(written);
    for (int n = 0; n < 80; ++n) addLogEntry(written, n % 30 == 11);
  }
  void step(int batch, WrittenRecords &written) override {
    for (int n = 0; n < 3; ++n) addClass(written, false);
    for (int n = 0; n < 8; ++n) addLink(written);
    for (int n = 0; n < 3; ++n) {
      classes_.update(written, batch * 7 + n * 5, [&](ALRTEVENT_CLASSREC &c) {
        std::snprintf(c.Comment, sizeof c.Comment, "changed in batch %d, %d", batch, n);
      });
    }
    // Its links go with it.
    _GUID gone = classes_.remove(written, batch * 11);
    links_.forgetIf(written, [&](const ALRTEVENT_RESPREC &link) {
      return std::memcmp(&link.EventClassOID, &gone, sizeof gone) == 0;
    });
    for (int n = 0; n < 4; ++n) addLogEntry(written, false);
    for (int n = 0; n < 2; ++n) {
      log_.update(written, batch * 13 + n * 3, [&](ALRTEVENT_LOGREC &e) {
        e.Ack = 1;
        std::snprintf(e.Comment, sizeof e.Comment, "acknowledged in batch %d, %d", batch, n);
      });
    }
    log_.remove(written, batch * 17);
  }

 private:
  void addClass(WrittenRecords &written, bool large) {
    classes_.add(written, [&](ALRTEVENT_CLASSREC &c) {
      maker_.fill(c, large);
      c.SNMP_OID[0] = '\0';
      c.NumParam = maker_.below(CAlertEVENT_CLASSDB::kMaxParams + 1);
      c.Severity = maker_.below(5);
      // Event IDs and names are unique keys.
      c.EventID = 1000 + made_;
      std::snprintf(c.EventName, sizeof c.EventName, "Event class %u", made_++);
    });
  }
  void addLink(WrittenRecords &written) {
    links_.add(written, [&](ALRTEVENT_RESPREC &link) {
      link.EventClassOID = idOf(&classes_[maker_.below(classes_.size())]);
      link.ResponseOID = maker_.id();
    });
  }
  void addLogEntry(WrittenRecords &written, bool large) {
    log_.add(written, [&](ALRTEVENT_LOGREC &e) {
      maker_.fill(e, large);
      e.Ack = maker_.below(3) == 0 ? 1 : 0;
      e.Severity = maker_.below(5);
      e.EventID = maker_.below(4) == 0 ? 12545 : 1000 + maker_.below(100);
    });
  }

  std::uint32_t made_ = 0;
  Pool<CAlertEVENT_CLASSDB> classes_;
  Pool<CAlertEVENT_RESPDB> links_;
  Pool<CAlertEVENT_LOGDB> log_{"AlEvntdb.dat"};
};

// ------------------------------------------------------------ KEPLogDB.dat

// The event log, mirrored into the object manager; one batch runs the purge
// of acknowledged entries inside the lock. The purge finds the data
// directory through the console settings file, which `prepare` writes.
class LogFileBuilder : public DataFileBuilder {
 public:
  explicit LogFileBuilder(std::string dataDir)
      : DataFileBuilder(0x10C), dataDir_(std::move(dataDir)) {}
  const char *file() const override { return "KEPLogDB.dat"; }

 protected:
  void prepare() override {
    std::ofstream(dataDir_ + "/QADMIN.DAT") << "[Directories]\nDataDir=" << dataDir_ << "\n";
  }
  std::vector<TablePool *> pools() override { return {&log_}; }
  void populate(WrittenRecords &written) override {
    for (int n = 0; n < 300; ++n) add(written, n % 60 == 17);
  }
  void step(int batch, WrittenRecords &written) override {
    for (int n = 0; n < 6; ++n) add(written, false);
    for (int n = 0; n < 4; ++n) {
      log_.update(written, batch * 19 + n * 7, [&](ALRTEVENT_LOGREC &e) {
        e.Ack = 1;
        std::snprintf(e.Comment, sizeof e.Comment, "acknowledged in batch %d, %d", batch, n);
      });
    }
    for (int n = 0; n < 2; ++n) log_.remove(written, batch * 23 + n * 5);
    if (batch == 3) {
      EXPECT_EQ(PurgeLog(kPurgeAcknowledged), 0u);
      log_.forgetIf(written, [](const ALRTEVENT_LOGREC &e) { return e.Ack == 1; });
    }
  }

 private:
  void add(WrittenRecords &written, bool large) {
    log_.add(written, [&](ALRTEVENT_LOGREC &e) {
      maker_.fill(e, large);
      e.Ack = maker_.below(4) == 0 ? 1 : 0;
      e.Severity = maker_.below(5);
      e.EventID = maker_.below(5) == 0 ? 12545 : 2000 + maker_.below(50);
      e.Time[0] = 125;
      e.Time[1] = static_cast<unsigned char>(1 + maker_.below(12));
      e.Time[2] = static_cast<unsigned char>(1 + maker_.below(28));
    });
  }

  std::string dataDir_;
  Pool<CAlertEVENT_LOGDB> log_;
};

// ------------------------------------------------------------ AlServdb.dat

// The service catalogue with services of all fourteen kinds that have a
// table of their own, each a catalogue row plus its kind's row.
class ServiceFileBuilder : public DataFileBuilder {
 public:
  ServiceFileBuilder() : DataFileBuilder(0x5E4) {}
  const char *file() const override { return "AlServdb.dat"; }

 protected:
  std::vector<TablePool *> pools() override { return {&catalogue_}; }
  void populate(WrittenRecords &written) override {
    for (int round = 0; round < 5; ++round) {
      for (int kind = 0; kind < 14; ++kind) addService(written, kind, round == 2 && kind % 4 == 1);
    }
  }
  void step(int batch, WrittenRecords &written) override {
    for (int n = 0; n < 3; ++n) addService(written, (batch * 3 + n) % 14, false);
    for (int n = 0; n < 3; ++n) {
      catalogue_.update(written, batch * 29 + n * 11, [&](ALRTNTFYSERV &row) {
        std::snprintf(row.Comment, sizeof row.Comment, "changed in batch %d, %d", batch, n);
        row.Enabled = static_cast<std::uint32_t>(batch + n);
      });
    }
    // The catalogue's delete leaves the kind's row.
    catalogue_.remove(written, batch * 31);
  }

 private:
  template <class Kind>
  void addTyped(WrittenRecords &written, bool large) {
    auto row = std::make_unique<ALRTNTFYSERV>();
    maker_.fill(*row);
    row->ServiceType = Kind::kServiceType;
    std::snprintf(row->Service_Name, sizeof row->Service_Name, "Service %zu", catalogue_.size());
    auto settings = std::make_unique<typename Kind::Record>();
    maker_.fill(*settings, large);
    ALRTNTFYSERV givenRow = *row;
    typename Kind::Record givenSettings = *settings;
    _GUID id{}, settingsId{};
    ASSERT_EQ(catalogue_.table().DBAlertRecAdd(row.get(), &id, settings.get(), &settingsId), 0u)
        << tableName<Kind>();
    written.put(tableName<CAlertNtfyServDB>(), givenRow, *row);
    written.put(tableName<Kind>(), givenSettings, *settings);
    catalogue_.keep(std::move(row));
  }
  void addService(WrittenRecords &written, int kind, bool large) {
    harness::withElement(
        harness::ServiceKindTables{}, static_cast<std::size_t>(kind),
        [&](auto type) { addTyped<typename decltype(type)::type>(written, large); });
  }

  Pool<CAlertNtfyServDB> catalogue_;
};

// ------------------------------------------------------------ kepuser.dat

// Alert users, each reached through services of several kinds (an instance
// and an address record each), and user objects. A batch deletes a user,
// whose instances and address records go with it.
class UserFileBuilder : public DataFileBuilder {
 public:
  UserFileBuilder() : DataFileBuilder(0x05E4) {}
  const char *file() const override { return "kepuser.dat"; }

 protected:
  void prepare() override {
    ASSERT_EQ(platform::KepOMCreateUserObjectTable(), 0u);
    CAlertRespDB responses;  // a user's delete also clears its responses
    ASSERT_EQ(responses.DBCreate(), 0u);
  }
  std::vector<TablePool *> pools() override { return {&users_, &instances_, &objects_}; }
  void populate(WrittenRecords &written) override {
    for (int n = 0; n < 40; ++n) addUser(written, n % 13 == 5);
    for (int n = 0; n < 40; ++n) addUserObject(written);
  }
  void step(int batch, WrittenRecords &written) override {
    for (int n = 0; n < 2; ++n) addUser(written, false);
    for (int n = 0; n < 2; ++n) {
      users_.update(written, batch * 7 + n * 3, [&](ALERTUSRREC &user) {
        user.AlertRecp = 100 + static_cast<std::uint32_t>(batch * 2 + n);
      });
    }
    // Its instances and their address records go with it.
    _GUID gone = users_.remove(written, batch * 5);
    for (auto it = userInstances_.begin(); it != userInstances_.end();) {
      if (std::memcmp(&it->user, &gone, sizeof gone) == 0) {
        written.erase(tableName<CAlertUsrInstServDB>(), it->id);
        written.erase(it->addressTable, it->address);
        it = userInstances_.erase(it);
      } else {
        ++it;
      }
    }
    for (int n = 0; n < 2; ++n) addUserObject(written);
    objects_.update(written, batch * 3, [&](tagUSEROBJ &object) {
      std::snprintf(object.Title, sizeof object.Title, "Title of batch %d", batch);
    });
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
    ASSERT_EQ(instances_.table().DBAlertRecAdd(&instance, &instanceId, &address, &addressId), 0u)
        << tableName<AddressTable>();
    written.put(tableName<CAlertUsrInstServDB>(), givenInstance, instance);
    written.put(tableName<AddressTable>(), givenAddress, address);
    userInstances_.push_back({instanceId, user, tableName<AddressTable>(), addressId});
  }
  void addUser(WrittenRecords &written, bool large) {
    std::size_t index = users_.size();
    _GUID id = idOf(&users_.add(written, [&](ALERTUSRREC &user) { maker_.fill(user, large); }));
    int kinds = 1 + static_cast<int>(maker_.below(3));
    for (int k = 0; k < kinds; ++k) {
      harness::withElement(harness::AddressTables{}, (index + k * 4) % 9,
                           [&](auto t) { addInstance<typename decltype(t)::type>(written, id); });
    }
  }
  void addUserObject(WrittenRecords &written) {
    objects_.add(written, [&](tagUSEROBJ &object) {
      maker_.fill(object);
      std::snprintf(object.LoginName, sizeof object.LoginName, "login%zu", objects_.size());
    });
  }

  Pool<CAlertUsrDB> users_;
  Pool<CAlertUsrInstServDB> instances_;
  Pool<CUsrDB> objects_;
  std::vector<Instance> userInstances_;
};

}  // namespace alertdb_test::damage
