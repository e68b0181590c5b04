#include "platform/store/record_store.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/record_store_fixture.h"
#include "support/child_process.h"
#include "support/data_file_query.h"
#include "support/test_environment.h"

using namespace platform;
using alertdb_test::ChildProcess;
using alertdb_test::kIdKey;
using alertdb_test::kNameKey;
using alertdb_test::kNumberKey;
using alertdb_test::kSmallKey;
using alertdb_test::kStampKey;
using alertdb_test::RecordStoreTest;
using alertdb_test::SampleTable;

namespace {

TEST_F(RecordStoreTest, OpenModesOnMissingAndExistingFiles) {
  EXPECT_EQ(open("Missing.dat", kOpenExisting), nullptr);
  EXPECT_EQ(open("Missing.dat", kOpenRecover), nullptr);
  EXPECT_FALSE(fileExists(dataPath("Missing.dat")));

  KEPDB *created = open("Store.dat", kOpenCreate);
  ASSERT_NE(created, nullptr);
  EXPECT_TRUE(fileExists(dataPath("Store.dat")));
  EXPECT_NE(open("Store.dat", kOpenExisting), nullptr);
  EXPECT_NE(open("Store.dat", kOpenRecover), nullptr);
  EXPECT_NE(open("Store.dat", kOpenCreate), nullptr);
  EXPECT_EQ(open("Store.dat", 7), nullptr);
  EXPECT_EQ(QDBInit(0, nullptr, kOpenCreate, 1), nullptr);
  EXPECT_EQ(QDBInit(0, "", kOpenCreate, 1), nullptr);
}

TEST_F(RecordStoreTest, FileNamesMatchWithoutRegardToCase) {
  SampleTable t;
  KEPDB *h = createSample(t, "KepUser.dat");
  ASSERT_EQ(add(t, h, 1, "one", 1), 0u);

  SampleTable other;
  KEPDB *lower = open("kepuser.dat", kOpenExisting);
  ASSERT_NE(lower, nullptr);
  ASSERT_EQ(other.select(lower), 0u);
  EXPECT_EQ(namesInOrder(other, lower, kIdKey), std::vector<std::string>{"one"});
  EXPECT_FALSE(fileExists(dataPath("kepuser.dat")));
}

// A closed store is complete by itself: a plain copy of it is a valid store.
TEST_F(RecordStoreTest, CopyOfAClosedStoreIsAStore) {
  SampleTable t;
  KEPDB *h = createSample(t);
  for (int i = 0; i < 50; ++i) ASSERT_EQ(add(t, h, static_cast<std::uint8_t>(i), "r", i), 0u);
  close(h);
  EXPECT_FALSE(fileExists(dataPath("Store.dat-wal")));
  writeFile(dataPath("Copy.dat"), readFile(dataPath("Store.dat")));
  KEPDB *copy = open("Copy.dat", kOpenExisting);
  ASSERT_NE(copy, nullptr);
  SampleTable reader;
  ASSERT_EQ(reader.select(copy), 0u);
  EXPECT_EQ(namesInOrder(reader, copy, kNumberKey).size(), 50u);
}

TEST_F(RecordStoreTest, TablesAreSelectedByNameAndLayout) {
  SampleTable t;
  KEPDB *h = createSample(t);
  KEPDB *second = open("Store.dat", kOpenExisting);
  SampleTable other("Other_Table");
  EXPECT_EQ(other.select(second), QDB_E_NOTABLE);
  EXPECT_EQ(t.select(second), 0u);
  // Creating the same table again is accepted; a different layout is not.
  EXPECT_EQ(t.create(h), 0u);
  SampleTable changed;
  changed.templates[4].size = changed.templates[4].sizeAgain = 21;
  EXPECT_EQ(changed.create(h), QDB_E_EXISTS);
  EXPECT_EQ(changed.select(h), QDB_E_LAYOUT);
  EXPECT_EQ(SchmSetCurrentTbl(h, nullptr, t.templates.data()), QDB_E_BADARG);
  EXPECT_EQ(SchmSetCurrentTbl(h, "Sample_Table", nullptr), QDB_E_BADARG);
  SampleTable reserved("alertdb_tables");
  EXPECT_EQ(reserved.create(h), QDB_E_BADARG);
  EXPECT_EQ(SchmAddTableEntry(h, nullptr), QDB_E_BADARG);
}

TEST_F(RecordStoreTest, CatalogKeepsWhatTheTableAndQueryTypesWereGiven) {
  SampleTable t;
  KEPDB *h = createSample(t);
  const char *texts[] = {"None", "CRITICAL"};
  void *block = nullptr;
  std::uint32_t aux = 0;
  ASSERT_EQ(SchmLoadStrings(nullptr, &block, &aux, texts, 0, 2), 0u);
  std::uint32_t values[] = {0, 1};
  EXPECT_EQ(SchmAddQueryInfo(h, "QInfo_Svrty", 97, 2, values, aux, block), 0u);
  EXPECT_EQ(SchmAddQueryInfo(h, "QInfo_None", 0, 0, nullptr, 0, nullptr), 0u);
  EXPECT_EQ(SchmAddQueryInfo(h, nullptr, 0, 0, nullptr, 0, nullptr), QDB_E_BADARG);
  MemFree(block);
  ASSERT_EQ(add(t, h, 1, "one", 1), 0u);

  // The catalog as a tool sees it through the store's own calls.
  std::vector<std::string> names;
  ASSERT_EQ(QDBTableNames(h, &names), 0u);
  EXPECT_EQ(names, std::vector<std::string>{"Sample_Table"});
  StoreTableInfo info;
  ASSERT_EQ(QDBTableInfo(h, "Sample_Table", &info), 0u);
  EXPECT_EQ(info.title, "Sample Title");
  EXPECT_EQ(info.recordCount, 1u);
  ASSERT_EQ(info.fields.size(), 7u);
  EXPECT_EQ(info.fields[1].name, "Name");
  EXPECT_EQ(info.fields[1].size, 33u);
  EXPECT_EQ(QDBTableInfo(h, "Nope", &info), QDB_E_NOTABLE);
  close(h);

  auto query = [&](const char *sql) {
    return alertdb_test::queryDataFile(dataPath("Store.dat"), sql);
  };
  EXPECT_EQ(query("SELECT name, title, id_key FROM alertdb_tables"),
            std::vector<std::string>{"Sample_Table|Sample Title|1"});
  EXPECT_EQ(query("SELECT t.name, mask, value, text FROM alertdb_query_types t LEFT JOIN "
                  "alertdb_query_type_values v ON v.type_name = t.name "
                  "ORDER BY t.name, v.position"),
            (std::vector<std::string>{"QInfo_None|0||", "QInfo_Svrty|97|0|None",
                                      "QInfo_Svrty|97|1|CRITICAL"}));
}

TEST_F(RecordStoreTest, LoadStringsBuildsBlocksFromArraysAndResources) {
  const char *names[] = {"A", "", "Third"};
  void *block = nullptr;
  std::uint32_t aux = 0;
  ASSERT_EQ(SchmLoadStrings(nullptr, &block, &aux, names, 0, 3), 0u);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::string(static_cast<char *>(block), aux), std::string("A\0\0Third\0", 9));
  MemFree(block);
  EXPECT_EQ(SchmLoadStrings(nullptr, nullptr, &aux, names, 0, 3), QDB_E_BADARG);
  EXPECT_EQ(SchmLoadStrings(nullptr, &block, &aux, nullptr, 0, 3), QDB_E_BADARG);
  // A handle that is not a module with strings yields no block.
  EXPECT_NE(SchmLoadStrings(reinterpret_cast<HINSTANCE>(0x1234), &block, &aux, nullptr, 611, 3),
            0u);
  EXPECT_EQ(block, nullptr);
}

// Records are kept compactly on disk; every shape of bytes must come back.
TEST_F(RecordStoreTest, RecordsOfEveryByteShapeRoundTrip) {
  SampleTable t;
  KEPDB *h = createSample(t);
  auto shapes = [](int shape, std::size_t i) -> unsigned char {
    switch (shape) {
      case 0:
        return 0;  // all zero
      case 1:
        return 0xFF;  // no zero at all
      case 2:
        return i % 4 == 0 ? 'x' : 0;  // zero runs of three
      case 3:
        return i % 5 == 0 ? 'y' : 0;  // zero runs of four
      case 4:
        return static_cast<unsigned char>(i * 7919);  // mixed
      default:
        return i < 40 ? 0 : 'z';  // zeros first, then none
    }
  };
  for (int shape = 0; shape < 6; ++shape) {
    auto *bytes = reinterpret_cast<unsigned char *>(&t.record);
    for (std::size_t i = 0; i < sizeof t.record; ++i) bytes[i] = shapes(shape, i);
    // A distinct ID per shape, the rest as shaped.
    t.record.id.Data1 = 0xABC00000u + static_cast<std::uint32_t>(shape);
    std::memset(t.replication, 0xA0 + shape, sizeof t.replication);
    alertdb_test::SampleRecord written = t.record;
    ASSERT_EQ(QDBRecordAdd(h), 0u) << shape;
    std::memset(&t.record, 0x5A, sizeof t.record);
    std::memset(t.replication, 0, sizeof t.replication);
    ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &written.id, 1, 16), 0u) << shape;
    EXPECT_EQ(std::memcmp(&t.record, &written, sizeof written), 0) << shape;
    EXPECT_EQ(t.replication[11], 0xA0 + shape);
  }
}

TEST_F(RecordStoreTest, FindMakesCurrentWithoutReadingAndReadFollows) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "first", 10), 0u);
  ASSERT_EQ(add(t, h, 2, "second", 20), 0u);
  t.fill(0, "untouched", 0);
  _GUID id;
  std::memset(&id, 2, sizeof id);
  ASSERT_EQ(QDBRecordFind(h, kIdKey, &id, 1, 16), 0u);
  EXPECT_STREQ(t.record.name, "untouched");
  ASSERT_EQ(QDBRecordRead(h), 0u);
  EXPECT_STREQ(t.record.name, "second");
  // Update writes the bound storage over the current record.
  std::strcpy(t.record.name, "changed");
  ASSERT_EQ(QDBRecordUpdate(h), 0u);
  t.fill(0, "", 0);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  EXPECT_STREQ(t.record.name, "changed");

  std::memset(&id, 7, sizeof id);
  EXPECT_EQ(QDBRecordFind(h, kIdKey, &id, 1, 16), QDB_E_NOTFOUND);
  EXPECT_EQ(QDBRecordFind(h, 99, &id, 1, 16), QDB_E_BADKEY);
  EXPECT_EQ(QDBRecordFind(h, 0, &id, 1, 16), QDB_E_BADKEY);
  EXPECT_EQ(QDBRecordFind(h, kIdKey, nullptr, 1, 16), QDB_E_BADARG);
  EXPECT_EQ(QDBRecordFind(h, kIdKey, &id, 1, 0), QDB_E_BADARG);
}

TEST_F(RecordStoreTest, NumbersSortAsUnsignedNumbers) {
  SampleTable t;
  KEPDB *h = createSample(t);
  // Byte order would put 256 before 1 and 0x80000000 first.
  std::uint32_t numbers[] = {256, 0x80000000u, 1, 0xFFFFFFFFu, 0, 65536};
  std::uint8_t id = 1;
  for (std::uint32_t n : numbers) {
    ASSERT_EQ(add(t, h, id++, std::to_string(n).c_str(), n), 0u);
  }
  EXPECT_EQ(namesInOrder(t, h, kNumberKey),
            (std::vector<std::string>{"0", "1", "256", "65536", "2147483648", "4294967295"}));
  // 16-bit numbers too: the low 16 bits of each.
  EXPECT_EQ(namesInOrder(t, h, kSmallKey),
            (std::vector<std::string>{"2147483648", "0", "65536", "1", "256", "4294967295"}));
}

TEST_F(RecordStoreTest, ObjectIdsAndStampsSortInByteOrder) {
  SampleTable t;
  KEPDB *h = createSample(t);
  auto addWithId = [&](const char *name, std::uint8_t first, std::uint8_t last,
                       std::uint8_t stampYear, std::uint8_t stampSecond) {
    t.fill(0, name, 0);
    std::memset(&t.record.id, 0, sizeof t.record.id);
    reinterpret_cast<unsigned char *>(&t.record.id)[0] = first;
    reinterpret_cast<unsigned char *>(&t.record.id)[15] = last;
    t.record.stamp[0] = stampYear;
    t.record.stamp[5] = stampSecond;
    return QDBRecordAdd(h);
  };
  ASSERT_EQ(addWithId("b", 0x02, 0x00, 100, 0), 0u);
  ASSERT_EQ(addWithId("a", 0x01, 0xFF, 100, 59), 0u);
  ASSERT_EQ(addWithId("c", 0x80, 0x00, 99, 30), 0u);
  ASSERT_EQ(addWithId("d", 0x02, 0x01, 101, 0), 0u);
  EXPECT_EQ(namesInOrder(t, h, kIdKey), (std::vector<std::string>{"a", "b", "d", "c"}));
  EXPECT_EQ(namesInOrder(t, h, kStampKey), (std::vector<std::string>{"c", "b", "a", "d"}));
  // A shorter search value finds the IDs that start with it.
  unsigned char prefix[2] = {0x02, 0x00};
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, prefix, 1, 2), 0u);
  EXPECT_STREQ(t.record.name, "b");
  prefix[0] = 0x03;
  EXPECT_EQ(QDBRecordFind(h, kIdKey, prefix, 1, 2), QDB_E_NOTFOUND);
}

TEST_F(RecordStoreTest, TextsSortInByteOrderUpToTheirTerminator) {
  SampleTable t;
  KEPDB *h = createSample(t);
  const char *names[] = {"b", "abc", "", "ab", "B", "\xC3\xA9"};
  std::uint8_t id = 1;
  for (const char *n : names) {
    t.fill(id++, n, 0);
    // What follows the terminator does not take part in the order.
    std::memset(t.record.name + std::strlen(n) + 1, 'z', 5);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  EXPECT_EQ(namesInOrder(t, h, kNameKey),
            (std::vector<std::string>{"", "B", "ab", "abc", "b", "\xC3\xA9"}));
  // A search text is compared up to its terminator as well.
  char key[33] = "ab\0zzzzzz";
  ASSERT_EQ(QDBRecordFindAndRead(h, kNameKey, key, 1, sizeof key), 0u);
  EXPECT_STREQ(t.record.name, "ab");
}

TEST_F(RecordStoreTest, EqualKeysKeepInsertionOrder) {
  SampleTable t;
  KEPDB *h = createSample(t);
  for (std::uint8_t i = 1; i <= 6; ++i) {
    ASSERT_EQ(
        add(t, h, static_cast<std::uint8_t>(10 - i), ("n" + std::to_string(i)).c_str(), i % 2), 0u);
  }
  EXPECT_EQ(namesInOrder(t, h, kNumberKey),
            (std::vector<std::string>{"n2", "n4", "n6", "n1", "n3", "n5"}));
  // Find-and-read starts at the first of the equal keys; next goes on in order.
  std::uint32_t one = 1;
  ASSERT_EQ(QDBRecordFindAndRead(h, kNumberKey, &one, 1, 4), 0u);
  EXPECT_STREQ(t.record.name, "n1");
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  EXPECT_STREQ(t.record.name, "n3");
}

TEST_F(RecordStoreTest, UniqueKeysRefuseDuplicatesOthersAllowThem) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "same", 5), 0u);
  EXPECT_EQ(add(t, h, 1, "other", 6), QDB_E_DUPLICATE);
  EXPECT_EQ(add(t, h, 2, "same", 5), 0u);  // name and number are not unique
  EXPECT_EQ(namesInOrder(t, h, kIdKey), (std::vector<std::string>{"same", "same"}));

  // An update that would duplicate the unique key is refused and changes nothing.
  _GUID id;
  std::memset(&id, 2, sizeof id);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  std::memset(&t.record.id, 1, sizeof t.record.id);
  std::strcpy(t.record.name, "clash");
  EXPECT_EQ(QDBRecordUpdate(h), QDB_E_DUPLICATE);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  EXPECT_STREQ(t.record.name, "same");
}

TEST_F(RecordStoreTest, DeletingWhileEnumeratingGoesOnAfterTheDeletedRecord) {
  SampleTable t;
  KEPDB *h = createSample(t);
  for (std::uint8_t i = 0; i < 10; ++i) {
    ASSERT_EQ(add(t, h, static_cast<std::uint8_t>(i + 1), std::to_string(i).c_str(), i / 2), 0u);
  }
  // Delete every record with an odd name while walking the number order.
  std::vector<std::string> seen;
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst); r == 0;
       r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    seen.push_back(t.record.name);
    if (std::atoi(t.record.name) % 2) {
      ASSERT_EQ(QDBRecordDelete(h), 0u);
    }
  }
  EXPECT_EQ(seen.size(), 10u);
  EXPECT_EQ(namesInOrder(t, h, kNumberKey), (std::vector<std::string>{"0", "2", "4", "6", "8"}));

  // The deleted record cannot be read, updated or deleted again.
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  ASSERT_EQ(QDBRecordDelete(h), 0u);
  EXPECT_EQ(QDBRecordRead(h), QDB_E_NOCURRENT);
  EXPECT_EQ(QDBRecordUpdate(h), QDB_E_NOCURRENT);
  EXPECT_EQ(QDBRecordDelete(h), QDB_E_NOCURRENT);
  // Deleting them all as we go leaves nothing.
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst); r == 0;
       r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    ASSERT_EQ(QDBRecordDelete(h), 0u);
  }
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), QDB_E_NOTFOUND);
}

TEST_F(RecordStoreTest, NextFollowsTheKeyAskedForAndAddsDoNotMoveIt) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 3, "c", 1), 0u);
  ASSERT_EQ(add(t, h, 1, "a", 3), 0u);
  ASSERT_EQ(add(t, h, 2, "b", 2), 0u);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kIdKey, kSkipNext), QDB_E_NOCURRENT);
  // Made current by ID, walked on by number.
  _GUID id;
  std::memset(&id, 2, sizeof id);
  ASSERT_EQ(QDBRecordFind(h, kIdKey, &id, 1, 16), 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  EXPECT_STREQ(t.record.name, "a");
  // A record added after the current one in the order is reached; the position stays.
  ASSERT_EQ(add(t, h, 4, "d", 4), 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  EXPECT_STREQ(t.record.name, "d");
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, 2), QDB_E_BADARG);
  EXPECT_EQ(QDBRecordSkipAndRead(h, 42, kSkipFirst), QDB_E_BADKEY);
}

TEST_F(RecordStoreTest, NullUnknownAndClosedHandlesAreRefused) {
  KEPDB *bogus = reinterpret_cast<KEPDB *>(0x1234);
  for (KEPDB *h : {static_cast<KEPDB *>(nullptr), bogus}) {
    EXPECT_EQ(QDBRecordAdd(h), QDB_E_BADHANDLE);
    EXPECT_EQ(QDBRecordRead(h), QDB_E_BADHANDLE);
    EXPECT_EQ(QDBRecordSkipAndRead(h, 1, kSkipFirst), QDB_E_BADHANDLE);
    EXPECT_EQ(QDBFileLock(h), QDB_E_BADHANDLE);
    EXPECT_EQ(QDBDone(h), QDB_E_BADHANDLE);
  }
  SampleTable t;
  KEPDB *h = QDBInit(0, dataPath("Store.dat").c_str(), kOpenCreate, 1);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.create(h), 0u);
  ASSERT_EQ(QDBDone(h), 0u);
  EXPECT_EQ(QDBDone(h), QDB_E_BADHANDLE);
  EXPECT_EQ(QDBRecordAdd(h), QDB_E_BADHANDLE);
  EXPECT_EQ(t.select(h), QDB_E_BADHANDLE);
  // A handle without a selected table.
  KEPDB *bare = open("Store.dat", kOpenExisting);
  EXPECT_EQ(QDBRecordAdd(bare), QDB_E_NOTABLE);
  EXPECT_EQ(QDBRecordSkipAndRead(bare, 1, kSkipFirst), QDB_E_NOTABLE);
}

TEST_F(RecordStoreTest, HandlesOfOneThreadShareTheFileLock) {
  SampleTable a, b;
  KEPDB *ha = createSample(a);
  KEPDB *hb = open("Store.dat", kOpenExisting);
  ASSERT_EQ(b.select(hb), 0u);
  ASSERT_EQ(QDBFileLock(ha), 0u);
  // Written through the other handle, inside the same transaction.
  ASSERT_EQ(add(b, hb, 1, "under lock", 1), 0u);
  EXPECT_EQ(namesInOrder(a, ha, kIdKey), std::vector<std::string>{"under lock"});
  EXPECT_EQ(QDBFileUnlock(hb), 0u);
  EXPECT_EQ(QDBFileUnlock(ha), QDB_E_LOCKSTATE);
  EXPECT_EQ(QDBReadUnlock(ha), QDB_E_LOCKSTATE);
  // Read locks nest and refuse a write lock inside them.
  ASSERT_EQ(QDBReadLock(ha), 0u);
  ASSERT_EQ(QDBReadLock(hb), 0u);
  EXPECT_EQ(QDBFileLock(ha), QDB_E_LOCKSTATE);
  EXPECT_EQ(QDBReadUnlock(ha), 0u);
  EXPECT_EQ(QDBReadUnlock(hb), 0u);
}

TEST_F(RecordStoreTest, ClosingTheLastHandleUnderLockDropsTheUncommittedWrites) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "kept", 1), 0u);
  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(add(t, h, 2, "dropped", 2), 0u);
  close(h);
  SampleTable reader;
  KEPDB *r = open("Store.dat", kOpenExisting);
  ASSERT_EQ(reader.select(r), 0u);
  EXPECT_EQ(namesInOrder(reader, r, kIdKey), std::vector<std::string>{"kept"});
}

TEST_F(RecordStoreTest, AnotherThreadWaitsForTheLockInsteadOfFailing) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(add(t, h, 1, "first", 1), 0u);
  EXPECT_EQ(addHeldUpUntil([&] { return QDBFileUnlock(h); }, 2, "second"), 0u);
  EXPECT_EQ(namesInOrder(t, h, kIdKey), (std::vector<std::string>{"first", "second"}));
}

// Each kind of write another thread makes waits for the holder, on every
// table of the file (one made after the holder last locked it too), while
// that thread's reads go on.
TEST_F(RecordStoreTest, WritesOfEveryKindWaitForAnotherThreadsFileLock) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "one", 1), 0u);
  ASSERT_EQ(add(t, h, 2, "two", 2), 0u);
  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  std::thread([&] {
    SampleTable second("Second_Table");
    KEPDB *own = QDBInit(0, dataPath("Store.dat").c_str(), kOpenExisting, 1);
    if (own && second.create(own) == 0 && second.select(own) == 0) {
      second.fill(1, "first", 1);
      QDBRecordAdd(own);
    }
    QDBDone(own);
  }).join();

  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(add(t, h, 3, "holder's", 3), 0u);
  std::atomic<int> reached{0}, done{0};
  std::uint32_t results[3] = {99, 99, 99};
  auto writer = [&](int kind) {
    SampleTable mine(kind == 2 ? "Second_Table" : "Sample_Table");
    KEPDB *own = QDBInit(0, dataPath("Store.dat").c_str(), kOpenExisting, 1);
    _GUID id;
    std::memset(&id, kind + 1, sizeof id);
    if (own && mine.select(own) == 0 &&
        (kind == 2 || QDBRecordFindAndRead(own, kIdKey, &id, 1, 16) == 0)) {
      ++reached;
      if (kind == 0) {
        std::strcpy(mine.record.name, "updated");
        results[kind] = QDBRecordUpdate(own);
      } else if (kind == 1) {
        results[kind] = QDBRecordDelete(own);
      } else {
        mine.fill(2, "second", 2);
        results[kind] = QDBRecordAdd(own);
      }
    }
    QDBDone(own);
    ++done;
  };
  std::vector<std::thread> writers;
  for (int kind = 0; kind < 3; ++kind) writers.emplace_back(writer, kind);
  for (int i = 0; i < 1000 && reached < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(reached.load(), 3) << "reads wait for no file lock";
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(done.load(), 0) << "every write is held up by the lock";
  EXPECT_EQ(namesInOrder(t, h, kIdKey), (std::vector<std::string>{"one", "two", "holder's"}));
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  for (std::thread &w : writers) w.join();
  EXPECT_EQ(results[0], 0u);
  EXPECT_EQ(results[1], 0u);
  EXPECT_EQ(results[2], 0u);
  EXPECT_EQ(namesInOrder(t, h, kIdKey), (std::vector<std::string>{"updated", "holder's"}));
  SampleTable second("Second_Table");
  KEPDB *s = open("Store.dat", kOpenExisting);
  ASSERT_EQ(second.select(s), 0u);
  EXPECT_EQ(namesInOrder(second, s, kIdKey), (std::vector<std::string>{"first", "second"}));
}

// A write under a read lock holds the file's writers off until the read
// unlock, which commits it.
TEST_F(RecordStoreTest, AWriteUnderAReadLockKeepsOtherWritersWaitingUntilTheUnlock) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "one", 1), 0u);
  ASSERT_EQ(QDBReadLock(h), 0u);
  ASSERT_EQ(namesInOrder(t, h, kIdKey), std::vector<std::string>{"one"});
  ASSERT_EQ(add(t, h, 2, "under read lock", 2), 0u);
  EXPECT_EQ(addHeldUpUntil([&] { return QDBReadUnlock(h); }, 3, "other"), 0u);
  EXPECT_EQ(namesInOrder(t, h, kIdKey),
            (std::vector<std::string>{"one", "under read lock", "other"}));
}

// A duplicate refused inside a batch ends nothing: the batch's writes before
// and after it all commit at the unlock.
TEST_F(RecordStoreTest, ADuplicateRefusedInABatchKeepsTheBatchsOtherWrites) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "before", 1), 0u);
  ASSERT_EQ(QDBFileLock(h), 0u);
  ASSERT_EQ(add(t, h, 2, "in batch", 2), 0u);
  EXPECT_EQ(add(t, h, 1, "again", 5), QDB_E_DUPLICATE);
  EXPECT_EQ(add(t, h, 2, "again", 5), QDB_E_DUPLICATE);
  _GUID id;
  std::memset(&id, 2, sizeof id);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  std::memset(&t.record.id, 1, sizeof t.record.id);
  EXPECT_EQ(QDBRecordUpdate(h), QDB_E_DUPLICATE);
  ASSERT_EQ(add(t, h, 3, "after", 3), 0u);
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  std::strcpy(t.record.name, "changed");
  EXPECT_EQ(QDBRecordUpdate(h), 0u);
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  // Read through another thread's session: what was committed.
  std::vector<std::string> committed;
  std::thread([&] {
    SampleTable mine;
    KEPDB *own = QDBInit(0, dataPath("Store.dat").c_str(), kOpenExisting, 1);
    if (own && mine.select(own) == 0) {
      for (std::uint32_t r = QDBRecordSkipAndRead(own, kIdKey, kSkipFirst); r == 0;
           r = QDBRecordSkipAndRead(own, kIdKey, kSkipNext)) {
        committed.push_back(mine.record.name);
      }
    }
    QDBDone(own);
  }).join();
  EXPECT_EQ(committed, (std::vector<std::string>{"before", "changed", "after"}));
}

TEST_F(RecordStoreTest, SecondProcessSeesWhatTheFirstCommitted) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ASSERT_EQ(add(t, h, 1, "parent", 1), 0u);
  {
    ChildProcess child("store_child", {"count", dataPath("Store.dat")});
    EXPECT_EQ(child.readLine(), "1");
    EXPECT_EQ(child.wait(), 0);
  }
  {
    ChildProcess child("store_child", {"add", dataPath("Store.dat"), "1", "3"});
    EXPECT_EQ(child.readLine(), "added 1");
    EXPECT_EQ(child.wait(), 0);
  }
  EXPECT_EQ(namesInOrder(t, h, kNumberKey).size(), 4u);
}

TEST_F(RecordStoreTest, WritesUnderTheFileLockAreSeenOnlyAfterTheUnlock) {
  SampleTable t;
  KEPDB *h = createSample(t);
  ChildProcess child("store_child", {"lock-add", dataPath("Store.dat"), "5"});
  ASSERT_EQ(child.readLine(), "added");
  EXPECT_TRUE(namesInOrder(t, h, kIdKey).empty());
  child.writeLine("go");
  ASSERT_EQ(child.readLine(), "unlocked");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(namesInOrder(t, h, kIdKey).size(), 5u);
}

TEST_F(RecordStoreTest, KilledWriterLosesNoAddThatReturnedSuccess) {
  {
    SampleTable t;
    KEPDB *h = createSample(t);
    close(h);
  }
  ChildProcess child("store_child", {"add", dataPath("Store.dat"), "0", "100000"});
  std::uint32_t confirmed = 0;
  for (int i = 0; i < 150; ++i) {
    std::string line = child.readLine();
    ASSERT_EQ(line.rfind("added ", 0), 0u) << line;
    confirmed = static_cast<std::uint32_t>(std::stoul(line.substr(6))) + 1;
  }
  child.kill(SIGKILL);
  int status = child.wait();
  ASSERT_TRUE(WIFSIGNALED(status));
  // Anything the child wrote after its last report may or may not be there.
  SampleTable reader;
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(reader.select(h), 0u);
  std::vector<std::string> names = namesInOrder(reader, h, kNumberKey);
  ASSERT_GE(names.size(), confirmed);
  for (std::uint32_t n = 0; n < confirmed; ++n) {
    EXPECT_EQ(names[n], "child" + std::to_string(n));
  }
}

}  // namespace
