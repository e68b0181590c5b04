// A small table used to exercise the record store through its public calls.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/memory_blocks.h"
#include "platform/store/record_store.h"
#include "support/test_environment.h"

namespace alertdb_test {

#pragma pack(push, 1)
struct SampleRecord {
  _GUID id;                // key 1, unique
  char name[33];           // key 2, text
  std::uint32_t number;    // key 3, number
  unsigned char stamp[8];  // key 4, time stamp
  char comment[20];        // no key
  std::uint16_t small;     // key 5, 16-bit number
};
#pragma pack(pop)
static_assert(sizeof(SampleRecord) == 83);

constexpr std::uint32_t kIdKey = 1, kNameKey = 2, kNumberKey = 3, kStampKey = 4, kSmallKey = 5;

// Binds a SampleRecord plus a replication block to a table's fields.
class SampleTable {
 public:
  explicit SampleTable(const char *tableName = "Sample_Table") : name_(tableName) {
    std::memset(&record, 0, sizeof record);
    std::memset(replication, 0, sizeof replication);
    templates = {
        field(kIdKey, 16, 16, &record.id, 0x311),     field(kNameKey, 10, 33, record.name, 0x1),
        field(kNumberKey, 4, 4, &record.number, 0x7), field(kStampKey, 12, 8, record.stamp, 0xC),
        field(0, 10, 20, record.comment, 0x1),        field(kSmallKey, 16, 2, &record.small, 0x8),
        field(6, 0, 12, replication, 0x30D)};
    fieldNames = {"KEPOID", "Name", "Number", "Stamp", "Comment", "Small", "Replication"};
    queryInfo = {entry(1, 1, 3), entry(2, 2, 2), entry(3, 2, 6),
                 entry(4, 2, 9), entry(5, 2, 6), entry(6, 2, 9)};
  }

  static platform::FieldTemplate field(std::uint32_t key, std::uint32_t attr, std::uint32_t size,
                                       void *storage, std::uint32_t flags) {
    platform::FieldTemplate t{};
    t.keyNumber = key;
    t.attribute = attr;
    t.size = t.sizeAgain = size;
    t.storage = storage;
    t.flags = flags;
    return t;
  }
  static platform::QueryInfoEntry entry(std::uint16_t key, std::uint8_t kind, std::uint8_t cls) {
    platform::QueryInfoEntry e{};
    e.entrySize = 20;
    e.keyNumber = key;
    e.fieldRef = key;
    e.kind = kind;
    e.valueClass = cls;
    return e;
  }

  SampleTable(const SampleTable &) = delete;
  SampleTable &operator=(const SampleTable &) = delete;

  // Adds the table to the file `handle` is open on.
  std::uint32_t create(KEPDB *handle, const char *title = "Sample Title") {
    using namespace platform;
    TableDescriptor d{};
    d.size = sizeof d;
    d.idKey = kIdKey;
    d.tableName = const_cast<char *>(name_);
    std::uint32_t r = SchmLoadStrings(nullptr, &d.fieldNames, &d.fieldNamesAux, fieldNames.data(),
                                      0, static_cast<std::uint32_t>(fieldNames.size()));
    if (r != 0) return r;
    std::vector<const char *> descriptions = {"Record OID", "Name",  "Number",     "Stamp",
                                              "Comment",    "Small", "Replication"};
    SchmLoadStrings(nullptr, &d.descriptions, &d.descriptionsAux, descriptions.data(), 0,
                    static_cast<std::uint32_t>(descriptions.size()));
    d.title = const_cast<char *>(title);
    d.fieldCount = static_cast<std::uint32_t>(templates.size());
    d.queryInfoCount = static_cast<std::uint32_t>(queryInfo.size());
    d.secondKey = 0xFFFFFFFF;
    d.templateSize = 32;
    d.templates = templates.data();
    d.queryInfo = queryInfo.data();
    d.one = 1;
    r = SchmAddTableEntry(handle, &d);
    MemFree(d.fieldNames);
    MemFree(d.descriptions);
    return r;
  }

  std::uint32_t select(KEPDB *handle) {
    return platform::SchmSetCurrentTbl(handle, name_, templates.data());
  }

  // Sets the record to a recognisable value.
  void fill(std::uint8_t idByte, const char *text, std::uint32_t number) {
    std::memset(&record, 0, sizeof record);
    std::memset(&record.id, idByte, sizeof record.id);
    std::strncpy(record.name, text, sizeof record.name - 1);
    record.number = number;
    record.stamp[0] = 126;
    std::memcpy(record.comment, "comment", 8);
    record.small = number & 0xFFFF;
  }

  SampleRecord record;
  unsigned char replication[12];
  std::vector<platform::FieldTemplate> templates;
  std::vector<const char *> fieldNames;
  std::vector<platform::QueryInfoEntry> queryInfo;

 private:
  const char *name_;
};

// Each test with its own data directory; handles it opened are closed after it.
class RecordStoreTest : public IsolatedTest {
 protected:
  void TearDown() override {
    for (KEPDB *h : handles_) platform::QDBDone(h);
    IsolatedTest::TearDown();
  }

  KEPDB *open(const std::string &name, std::uint32_t mode) {
    KEPDB *h = platform::QDBInit(0, dataPath(name).c_str(), mode, 1);
    if (h) handles_.push_back(h);
    return h;
  }
  void close(KEPDB *h) {
    platform::QDBDone(h);
    handles_.erase(std::remove(handles_.begin(), handles_.end(), h), handles_.end());
  }

  // A new file with the sample table, the handle selected on it.
  KEPDB *createSample(SampleTable &table, const std::string &name = "Store.dat") {
    KEPDB *h = open(name, platform::kOpenCreate);
    EXPECT_NE(h, nullptr);
    EXPECT_EQ(table.create(h), 0u);
    return h;
  }

  std::uint32_t add(SampleTable &t, KEPDB *h, std::uint8_t idByte, const char *name,
                    std::uint32_t number) {
    t.fill(idByte, name, number);
    return platform::QDBRecordAdd(h);
  }

  // The names of every record in the order of `key`.
  std::vector<std::string> namesInOrder(SampleTable &t, KEPDB *h, std::uint32_t key) {
    std::vector<std::string> names;
    for (std::uint32_t r = platform::QDBRecordSkipAndRead(h, key, platform::kSkipFirst); r == 0;
         r = platform::QDBRecordSkipAndRead(h, key, platform::kSkipNext)) {
      names.push_back(t.record.name);
    }
    return names;
  }

  // Another thread adds a record to Store.dat while this one holds a lock: the
  // add must still be waiting a while later, and goes through once `release`
  // has run. Gives the add's result.
  std::uint32_t addHeldUpUntil(const std::function<std::uint32_t()> &release, std::uint8_t idByte,
                               const char *name) {
    std::atomic<bool> done{false};
    std::uint32_t result = 99;
    std::thread other([&] {
      SampleTable mine;
      KEPDB *own = platform::QDBInit(0, dataPath("Store.dat").c_str(), platform::kOpenExisting, 1);
      if (own && mine.select(own) == 0) {
        mine.fill(idByte, name, idByte);
        result = platform::QDBRecordAdd(own);
      }
      platform::QDBDone(own);
      done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(done.load()) << "the add is held up by the lock";
    EXPECT_EQ(release(), 0u);
    other.join();
    return result;
  }

  std::vector<KEPDB *> handles_;
};

}  // namespace alertdb_test
