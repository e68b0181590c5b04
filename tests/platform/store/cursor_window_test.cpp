// The cursor serves enumerations from rows fetched a window at a time: it
// must keep its place through deletes and adds, see other processes' commits
// within the documented bound, and hold no read transaction between calls.
#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "platform/store/record_store.h"
#include "platform/store/record_store_fixture.h"
#include "support/child_process.h"

using namespace platform;
using alertdb_test::ChildProcess;
using alertdb_test::kIdKey;
using alertdb_test::kNumberKey;
using alertdb_test::kSmallKey;
using alertdb_test::RecordStoreTest;
using alertdb_test::SampleTable;

namespace {

// Rows a cursor may fetch ahead in one window while commits are not told.
constexpr std::uint32_t kVisibilityBound = 64;

class CursorWindowTest : public RecordStoreTest {
 protected:
  // Records 0..count-1: name "r<n>", number n, small key n / groupSize.
  KEPDB *filled(SampleTable &t, std::uint32_t count, std::uint32_t groupSize = 1,
                const std::string &name = "Store.dat") {
    KEPDB *h = createSample(t, name);
    EXPECT_EQ(QDBFileLock(h), 0u);
    for (std::uint32_t n = 0; n < count; ++n) {
      t.fill(0, ("r" + std::to_string(n)).c_str(), n);
      std::memcpy(&t.record.id, &n, sizeof n);
      t.record.id.Data4[0] = 0xAA;
      t.record.small = static_cast<std::uint16_t>(n / groupSize);
      EXPECT_EQ(QDBRecordAdd(h), 0u);
    }
    EXPECT_EQ(QDBFileUnlock(h), 0u);
    return h;
  }
};

TEST_F(CursorWindowTest, DeletingWhileEnumeratingVisitsEveryRecordOnceAcrossWindows) {
  // Unique and non-unique orders; groups of equal keys larger than a window.
  for (std::uint32_t key : {kNumberKey, kSmallKey}) {
    SCOPED_TRACE(key);
    SampleTable t;
    KEPDB *h = filled(t, 300, 100, "Store" + std::to_string(key) + ".dat");
    std::vector<std::uint32_t> seen;
    for (std::uint32_t r = QDBRecordSkipAndRead(h, key, kSkipFirst); r == 0;
         r = QDBRecordSkipAndRead(h, key, kSkipNext)) {
      seen.push_back(std::uint32_t{t.record.number});
      // Delete two of every three, so that deletes fall on and beside window ends.
      if (t.record.number % 3 != 0) {
        ASSERT_EQ(QDBRecordDelete(h), 0u);
      }
    }
    ASSERT_EQ(seen.size(), 300u);
    for (std::uint32_t n = 0; n < 300; ++n) EXPECT_EQ(seen[n], n);
    EXPECT_EQ(namesInOrder(t, h, key).size(), 100u);
  }
}

TEST_F(CursorWindowTest, ObjectIdsAlikeInTheirFirstBytesAreWalkedOnceInByteOrder) {
  // IDs that differ only in their last two bytes, added last first, so that
  // the insertion order cannot stand in for the key order.
  SampleTable t;
  KEPDB *h = createSample(t);
  constexpr std::uint32_t kCount = 300;
  ASSERT_EQ(QDBFileLock(h), 0u);
  for (std::uint32_t n = kCount; n-- > 0;) {
    t.fill(0, ("r" + std::to_string(n)).c_str(), n);
    auto *id = reinterpret_cast<unsigned char *>(&t.record.id);
    std::memset(id, 0x5A, sizeof t.record.id);
    id[14] = static_cast<unsigned char>(n >> 8);
    id[15] = static_cast<unsigned char>(n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  ASSERT_EQ(QDBFileUnlock(h), 0u);
  std::vector<std::uint32_t> seen;
  std::uint32_t r = QDBRecordSkipAndRead(h, kIdKey, kSkipFirst);
  for (; r == 0; r = QDBRecordSkipAndRead(h, kIdKey, kSkipNext)) {
    seen.push_back(std::uint32_t{t.record.number});
  }
  EXPECT_EQ(r, QDB_E_NOTFOUND);
  ASSERT_EQ(seen.size(), kCount);
  for (std::uint32_t n = 0; n < kCount; ++n) EXPECT_EQ(seen[n], n);
}

TEST_F(CursorWindowTest, AnotherHandleDeletingAheadIsNeverServedStale) {
  SampleTable walker, other;
  KEPDB *h = filled(walker, 200);
  KEPDB *h2 = open("Store.dat", kOpenExisting);
  ASSERT_EQ(other.select(h2), 0u);
  // Through a second handle of the same thread, delete records just ahead of
  // the cursor: rows it fetched already must not come back.
  std::vector<std::uint32_t> seen;
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst); r == 0;
       r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    std::uint32_t n = walker.record.number;
    seen.push_back(n);
    if (n % 10 == 0 && n + 1 < 200) {
      std::uint32_t ahead = n + 1;
      _GUID id{};
      std::memcpy(&id, &ahead, sizeof ahead);
      id.Data4[0] = 0xAA;
      ASSERT_EQ(QDBRecordFind(h2, kIdKey, &id, 1, 16), 0u);
      ASSERT_EQ(QDBRecordDelete(h2), 0u);
    }
  }
  EXPECT_EQ(seen.size(), 180u);
  for (std::uint32_t n : seen) EXPECT_FALSE(n % 10 == 1) << n;
}

TEST_F(CursorWindowTest, AddsDuringAnEnumerationAreReachedAheadAndNeverMoveTheCursor) {
  SampleTable t;
  KEPDB *h = filled(t, 150);
  std::vector<std::uint32_t> seen;
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst); r == 0;
       r = QDBRecordSkipAndRead(h, kNumberKey, kSkipNext)) {
    std::uint32_t n = t.record.number;
    seen.push_back(n);
    if (n < 150 && n % 25 == 5) {
      // One behind the cursor (never reached) and one far ahead (reached).
      t.fill(0, "behind", n - 1);
      t.record.id.Data1 = 0xB0000000u + n;
      ASSERT_EQ(QDBRecordAdd(h), 0u);
      t.fill(0, "ahead", 1000 + n);
      t.record.id.Data1 = 0xC0000000u + n;
      ASSERT_EQ(QDBRecordAdd(h), 0u);
    }
  }
  std::vector<std::uint32_t> expected;
  for (std::uint32_t n = 0; n < 150; ++n) expected.push_back(n);
  for (std::uint32_t n = 5; n < 150; n += 25) expected.push_back(1000 + n);
  EXPECT_EQ(seen, expected);
}

TEST_F(CursorWindowTest, AnotherProcessCommitIsSeenAtTheNextStep) {
  SampleTable t;
  KEPDB *h = filled(t, 400);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  std::uint32_t at = t.record.number;
  // Another process adds a record after each of the next 128 records (equal
  // numbers sort after the record already there), right beside rows the
  // cursor has fetched already.
  ChildProcess child("store_child", {"add", dataPath("Store.dat"), std::to_string(at + 1),
                                     std::to_string(2 * kVisibilityBound)});
  for (std::uint32_t i = 0; i < 2 * kVisibilityBound; ++i) {
    ASSERT_EQ(child.readLine().rfind("added", 0), 0u);
  }
  ASSERT_EQ(child.wait(), 0);
  std::set<std::uint32_t> childSeen;
  std::uint32_t steps = 0;
  while (QDBRecordSkipAndRead(h, kNumberKey, kSkipNext) == 0) {
    ++steps;
    if (std::string(t.record.name).rfind("child", 0) == 0) {
      childSeen.insert(std::uint32_t{t.record.number});
    }
  }
  // The commit told every cursor: none of the fetched rows is served stale.
  EXPECT_EQ(childSeen.size(), 2 * kVisibilityBound);
  EXPECT_EQ(steps, 400u - at - 1 + 2 * kVisibilityBound);
}

TEST_F(CursorWindowTest, AnIdleEnumerationHoldsNothingThatWritersOrCheckpointsWaitFor) {
  SampleTable t;
  KEPDB *h = filled(t, 200);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  // While the enumeration sits between calls, another process writes, and a
  // full checkpoint of the write-ahead log completes: no reader holds it back.
  ChildProcess child("store_child", {"add", dataPath("Store.dat"), "5000", "50"});
  for (int i = 0; i < 50; ++i) ASSERT_EQ(child.readLine().rfind("added", 0), 0u);
  ASSERT_EQ(child.wait(), 0);
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(dataPath("Store.dat").c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr),
            SQLITE_OK);
  int logFrames = -1, checkpointed = -1;
  EXPECT_EQ(
      sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, &logFrames, &checkpointed),
      SQLITE_OK);
  EXPECT_EQ(logFrames, 0) << "the log was truncated, so no read transaction was open";
  sqlite3_close(db);
  std::uint32_t rest = 0;
  while (QDBRecordSkipAndRead(h, kNumberKey, kSkipNext) == 0) ++rest;
  EXPECT_EQ(rest, 198u + 50u);
}

TEST_F(CursorWindowTest, SkipToEndLeavesNextAtTheEndUntilTheNextFind) {
  SampleTable t;
  KEPDB *h = filled(t, 10);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  ASSERT_EQ(QDBRecordSkipToEnd(h), 0u);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
  t.fill(0, "later", 99);
  ASSERT_EQ(QDBRecordAdd(h), 0u);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
  // The current record stays current.
  EXPECT_EQ(QDBRecordRead(h), 0u);
  EXPECT_EQ(std::uint32_t{t.record.number}, 0u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  EXPECT_EQ(QDBRecordSkipToEnd(nullptr), QDB_E_BADHANDLE);
}

TEST_F(CursorWindowTest, WalksFromAValueFindItsRecordsAndNeverReadAnAbsentValue) {
  SampleTable t;
  // Groups of 8 records sharing a small key: 0, 0, ..., 1, 1, ...; no group 7.
  KEPDB *h = createSample(t);
  for (std::uint32_t n = 0; n < 80; ++n) {
    if (n / 8 == 7) continue;
    t.fill(0, ("r" + std::to_string(n)).c_str(), n);
    t.record.id.Data1 = n + 1;
    t.record.small = static_cast<std::uint16_t>(n / 8);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  for (int round = 0; round < 3; ++round) {
    // Walks through a whole group and one record past it, as callers do.
    for (std::uint16_t group : {2, 5, 8}) {
      SCOPED_TRACE(group);
      std::vector<std::uint32_t> numbers;
      std::uint32_t r = QDBRecordFindAndRead(h, kSmallKey, &group, 1, 2);
      for (; r == 0 && t.record.small == group; r = QDBRecordSkipAndRead(h, kSmallKey, kSkipNext)) {
        numbers.push_back(std::uint32_t{t.record.number});
      }
      ASSERT_EQ(r, 0u);
      EXPECT_EQ(std::uint32_t{t.record.small}, group == 5 ? 6u : group + 1u);
      ASSERT_EQ(numbers.size(), 8u);
      for (std::uint32_t i = 0; i < 8; ++i) EXPECT_EQ(numbers[i], group * 8u + i);
    }
    // An absent value is not found, however many rows the walks before read,
    // and the fields keep what they held.
    std::uint16_t absent = 7;
    std::memset(&t.record, 0x5A, sizeof t.record);
    EXPECT_EQ(QDBRecordFindAndRead(h, kSmallKey, &absent, 1, 2), QDB_E_NOTFOUND);
    EXPECT_EQ(std::uint32_t{t.record.number}, 0x5A5A5A5Au);
    EXPECT_EQ(QDBRecordFind(h, kSmallKey, &absent, 1, 2), QDB_E_NOTFOUND);
    std::uint16_t beyond = 99;
    EXPECT_EQ(QDBRecordFindAndRead(h, kSmallKey, &beyond, 1, 2), QDB_E_NOTFOUND);
    // A find alone makes the first record of the value current.
    std::uint16_t three = 3;
    ASSERT_EQ(QDBRecordFind(h, kSmallKey, &three, 1, 2), 0u);
    ASSERT_EQ(QDBRecordRead(h), 0u);
    EXPECT_EQ(std::uint32_t{t.record.number}, 24u);
    ASSERT_EQ(QDBRecordSkipAndRead(h, kSmallKey, kSkipNext), 0u);
    EXPECT_EQ(std::uint32_t{t.record.number}, 25u);
  }
}

TEST_F(CursorWindowTest, UpdatesReadBackFreshAndMoveTheCursorToTheNewKey) {
  SampleTable t;
  KEPDB *h = filled(t, 100);
  // An update through another handle is read back fresh by a find and read.
  KEPDB *h2 = open("Store.dat", kOpenExisting);
  SampleTable other;
  ASSERT_EQ(other.select(h2), 0u);
  std::uint32_t five = 5;
  _GUID id{};
  std::memcpy(&id, &five, sizeof five);
  id.Data4[0] = 0xAA;
  ASSERT_EQ(QDBRecordFindAndRead(h, kIdKey, &id, 1, 16), 0u);
  ASSERT_EQ(QDBRecordFindAndRead(h2, kIdKey, &id, 1, 16), 0u);
  std::strcpy(other.record.comment, "changed");
  ASSERT_EQ(QDBRecordUpdate(h2), 0u);
  ASSERT_EQ(QDBRecordRead(h), 0u);
  EXPECT_STREQ(t.record.comment, "changed");
  // Moving the current record to the end of the number order: next is the end.
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  t.record.number = 500;
  ASSERT_EQ(QDBRecordUpdate(h), 0u);
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
}

TEST_F(CursorWindowTest, AWalkAtItsEndSeesRecordsAddedAfterItFromAnywhere) {
  // Unique and non-unique orders; the walk first ended by find-first alone,
  // then by a later window.
  for (std::uint32_t count : {5u, 300u}) {
    for (std::uint32_t key : {kNumberKey, kSmallKey}) {
      SCOPED_TRACE(testing::Message() << "key " << key << ", " << count << " records");
      SampleTable t, other;
      std::string name = "End" + std::to_string(key) + "-" + std::to_string(count) + ".dat";
      KEPDB *h = filled(t, count, 1, name);
      KEPDB *h2 = open(name, kOpenExisting);
      ASSERT_EQ(other.select(h2), 0u);
      std::uint32_t steps = 0;
      for (std::uint32_t r = QDBRecordSkipAndRead(h, key, kSkipFirst); r == 0;
           r = QDBRecordSkipAndRead(h, key, kSkipNext)) {
        ++steps;
      }
      ASSERT_EQ(steps, count);
      EXPECT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), QDB_E_NOTFOUND);

      // Through the same handle, another handle of the thread, another process.
      // Each sorts last in either order (the small key is the number's low half).
      t.fill(0xE1, "own", 2000);
      ASSERT_EQ(QDBRecordAdd(h), 0u);
      ASSERT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), 0u);
      EXPECT_STREQ(t.record.name, "own");
      EXPECT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), QDB_E_NOTFOUND);
      other.fill(0xE2, "other", 3000);
      ASSERT_EQ(QDBRecordAdd(h2), 0u);
      ASSERT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), 0u);
      EXPECT_STREQ(t.record.name, "other");
      EXPECT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), QDB_E_NOTFOUND);
      ChildProcess child("store_child", {"add", dataPath(name), "4000", "2"});
      for (int i = 0; i < 2; ++i) ASSERT_EQ(child.readLine().rfind("added", 0), 0u);
      ASSERT_EQ(child.wait(), 0);
      ASSERT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), 0u);
      EXPECT_EQ(std::uint32_t{t.record.number}, 4000u);
      ASSERT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), 0u);
      EXPECT_EQ(std::uint32_t{t.record.number}, 4001u);
      EXPECT_EQ(QDBRecordSkipAndRead(h, key, kSkipNext), QDB_E_NOTFOUND);
    }
  }
}

// Adds `count` records whose small key runs against their number.
void addCrossedOrders(SampleTable &t, KEPDB *h, std::uint32_t count) {
  for (std::uint32_t n = 0; n < count; ++n) {
    t.fill(0, ("r" + std::to_string(n)).c_str(), n);
    t.record.id.Data1 = n + 1;
    t.record.small = static_cast<std::uint16_t>(100 - n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
}

TEST_F(CursorWindowTest, TheEndOfOneOrderIsNotTheEndOfAnother) {
  SampleTable t;
  KEPDB *h = createSample(t);
  // The last record in one order is the first in the other.
  addCrossedOrders(t, h, 6);
  std::uint32_t steps = 0;
  for (std::uint32_t r = QDBRecordSkipAndRead(h, kSmallKey, kSkipFirst); r == 0;
       r = QDBRecordSkipAndRead(h, kSmallKey, kSkipNext)) {
    ++steps;
  }
  ASSERT_EQ(steps, 6u);
  ASSERT_EQ(std::uint32_t{t.record.number}, 0u);
  for (std::uint32_t n = 1; n < 6; ++n) {
    ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u) << n;
    EXPECT_EQ(std::uint32_t{t.record.number}, n);
  }
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
}

TEST_F(CursorWindowTest, ChangingOrderInsideAWindowGoesOnFromTheCurrentRecordInEachOrder) {
  SampleTable t;
  KEPDB *h = createSample(t);
  // Rows fetched ahead in one order are the wrong next rows in the other.
  addCrossedOrders(t, h, 40);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipFirst), 0u);
  for (std::uint32_t n = 1; n <= 20; ++n) {
    ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u);
  }
  ASSERT_EQ(std::uint32_t{t.record.number}, 20u);
  // By the small key, the record after 20 is 19, then 18.
  ASSERT_EQ(QDBRecordSkipAndRead(h, kSmallKey, kSkipNext), 0u);
  EXPECT_EQ(std::uint32_t{t.record.number}, 19u);
  ASSERT_EQ(QDBRecordSkipAndRead(h, kSmallKey, kSkipNext), 0u);
  EXPECT_EQ(std::uint32_t{t.record.number}, 18u);
  // Back in number order, from 18 on.
  for (std::uint32_t n = 19; n < 40; ++n) {
    ASSERT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), 0u) << n;
    EXPECT_EQ(std::uint32_t{t.record.number}, n);
  }
  EXPECT_EQ(QDBRecordSkipAndRead(h, kNumberKey, kSkipNext), QDB_E_NOTFOUND);
}

}  // namespace
