// Backups are consistent snapshots taken while others write, and a backup
// that cannot be made whole never replaces the one that was there.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/store/whole_file_fixture.h"
#include "support/child_process.h"

using namespace platform;
using alertdb_test::ChildProcess;
using alertdb_test::SampleTable;
using alertdb_test::WholeFileTest;

namespace {

class BackupTest : public WholeFileTest {};

TEST_F(BackupTest, ABackupTakenWhileAnotherProcessWritesHoldsEveryCommittedRecord) {
  makeStore("Store.dat", 0);
  ChildProcess writer("store_child", {"add", dataPath("Store.dat"), "0", "3000"});
  ASSERT_TRUE(writer.started());
  std::string line;
  while ((line = writer.readLine()) != "added 300" && !line.empty()) {
  }
  ASSERT_EQ(line, "added 300");
  ASSERT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str()), QDB_OK);
  while (!(line = writer.readLine()).empty()) {
  }
  EXPECT_EQ(writer.wait(), 0);

  StoreCheckReport report;
  EXPECT_EQ(QDBCheckFile(dataPath("Store.BAK").c_str(), &report), QDB_OK);
  SampleTable t;
  KEPDB *h = open("Store.BAK", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  std::vector<std::string> copied = namesInOrder(t, h, alertdb_test::kNumberKey);
  // One snapshot: the records 0..n-1 for some n, at least those committed
  // before the backup began.
  ASSERT_GE(copied.size(), 301u);
  for (std::uint32_t n = 0; n < copied.size(); ++n)
    ASSERT_EQ(copied[n], "child" + std::to_string(n));
  EXPECT_EQ(records("Store.dat").size(), 3000u);
}

TEST_F(BackupTest, ABackupTakenWhileAnotherThreadWritesIsOneSnapshot) {
  makeStore("Store.dat", 0);
  std::atomic<std::uint32_t> committed{0};
  std::thread writer([&] {
    SampleTable t;
    KEPDB *h = QDBInit(0, dataPath("Store.dat").c_str(), kOpenExisting, 1);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(t.select(h), 0u);
    for (std::uint32_t n = 0; n < 2000; ++n) {
      fillRecord(t, n);
      ASSERT_EQ(QDBRecordAdd(h), 0u);
      committed = n + 1;
    }
    QDBDone(h);
  });
  while (committed < 200) std::this_thread::yield();
  std::uint32_t before = committed;
  std::uint64_t lastDone = 0, lastTotal = 0;
  std::uint32_t status = QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str(),
                                       [&](std::uint64_t done, std::uint64_t total) {
                                         lastDone = done;
                                         lastTotal = total;
                                       });
  std::uint32_t after = committed;
  writer.join();
  ASSERT_EQ(status, QDB_OK);
  EXPECT_GT(lastTotal, 0u);
  EXPECT_EQ(lastDone, lastTotal) << "progress ends with every page copied";

  std::vector<std::string> copied = records("Store.BAK");
  ASSERT_GE(copied.size(), before);
  // The writer counts a commit just after it is made.
  EXPECT_LE(copied.size(), after + 1);
  std::vector<std::string> expected = expectedRecords(static_cast<std::uint32_t>(copied.size()));
  EXPECT_TRUE(copied == expected) << "the records 0..n-1, whole";
}

TEST_F(BackupTest, WhatOnlyTheLogHoldsIsInTheBackupAndTheSourceStaysAsItWas) {
  makeStore("Store.dat");
  SampleTable t;
  KEPDB *h = open("Store.dat", kOpenExisting);
  ASSERT_NE(h, nullptr);
  ASSERT_EQ(t.select(h), 0u);
  for (std::uint32_t n = 100; n < 120; ++n) {
    fillRecord(t, n);
    ASSERT_EQ(QDBRecordAdd(h), 0u);
  }
  std::string before = fileAndLog("Store.dat");
  ASSERT_NE(readFile(dataPath("Store.dat-wal")), "") << "the adds sit in the log";
  ASSERT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str()), QDB_OK);
  EXPECT_EQ(fileAndLog("Store.dat"), before);
  close(h);

  // The backup is a store of its own, with no log beside it.
  EXPECT_FALSE(fileExists(dataPath("Store.BAK-wal")));
  EXPECT_EQ(records("Store.BAK"), expectedRecords(120));
  EXPECT_EQ(leftovers({"Store.dat", "Store.BAK"}), std::vector<std::string>{})
      << "no temporary file or log is left behind";
}

TEST_F(BackupTest, AFailedBackupLeavesThePreviousOneAsItWas) {
  makeStore("Store.dat");
  ASSERT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str()), QDB_OK);
  std::string good = readFile(dataPath("Store.BAK"));

  // A damaged source must not become the backup.
  flipInRecord("Store.dat");
  std::string damaged = readFile(dataPath("Store.dat"));
  EXPECT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str()),
            QDB_E_DAMAGED);
  EXPECT_EQ(readFile(dataPath("Store.BAK")), good);
  EXPECT_EQ(readFile(dataPath("Store.dat")), damaged);

  // Nor a file that is not a store, nor one cut short: DamagedFileTest.
  EXPECT_EQ(QDBBackupFile(dataPath("Missing.dat").c_str(), dataPath("Store.BAK").c_str()),
            QDB_E_NOTFOUND);
  // Nor the source itself, by any letter case.
  EXPECT_EQ(QDBBackupFile(dataPath("Store.BAK").c_str(), dataPath("store.bak").c_str()),
            QDB_E_BADARG);
  EXPECT_EQ(QDBBackupFile(nullptr, dataPath("Store.BAK").c_str()), QDB_E_BADARG);
  EXPECT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), ""), QDB_E_BADARG);
  EXPECT_EQ(readFile(dataPath("Store.BAK")), good);
  EXPECT_EQ(leftovers({"Store.dat", "Store.BAK"}, {"Store.dat"}), std::vector<std::string>{});
  EXPECT_EQ(records("Store.BAK"), expectedRecords(100));
}

TEST_F(BackupTest, ABackupThatAnotherProcessHasOpenIsNotReplaced) {
  makeStore("Store.dat");
  makeStore("Other.dat", 5);
  ASSERT_EQ(QDBBackupFile(dataPath("Other.dat").c_str(), dataPath("Store.BAK").c_str()), QDB_OK);
  bool inUse = true;
  ASSERT_EQ(QDBFileInUse(dataPath("Store.BAK").c_str(), &inUse), QDB_OK);
  EXPECT_FALSE(inUse);

  ChildProcess holder("store_child", {"lock-add", dataPath("Store.BAK"), "1"});
  ASSERT_EQ(holder.readLine(), "added");
  ASSERT_EQ(QDBFileInUse(dataPath("Store.BAK").c_str(), &inUse), QDB_OK);
  EXPECT_TRUE(inUse);
  EXPECT_EQ(QDBBackupFile(dataPath("Store.dat").c_str(), dataPath("Store.BAK").c_str()),
            QDB_E_BUSY);
  holder.writeLine("");
  EXPECT_EQ(holder.readLine(), "unlocked");
  EXPECT_EQ(holder.wait(), 0);

  ASSERT_EQ(QDBFileInUse(dataPath("Store.BAK").c_str(), &inUse), QDB_OK);
  EXPECT_FALSE(inUse);
  EXPECT_EQ(records("Store.BAK").size(), 6u) << "the five copied and the child's one";
  EXPECT_EQ(QDBFileInUse(nullptr, &inUse), QDB_E_BADARG);
}

}  // namespace
