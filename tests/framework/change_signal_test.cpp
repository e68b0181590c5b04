#include <cstring>
#include <thread>

#include "framework/file_locks.h"
#include "framework/link_table_probe.h"
#include "platform/store/record_store.h"
#include "platform/store/server_changes.h"
#include "support/child_process.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::ChildProcess;
using alertdb_test::makeLink;
using alertdb_test::ProbedLinkTable;

namespace {

class ChangeSignalTest : public alertdb_test::IsolatedTest {};

TEST_F(ChangeSignalTest, OnlyChangesSetTheEventAndNothingResetsIt) {
  ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  ChangeEventWatch watch;
  watch.reset();
  ALRTEVENT_RESPREC link = makeLink(1, 2), dup = makeLink(1, 2), fresh = makeLink(4, 4), read{};
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
  EXPECT_TRUE(watch.signalled());
  // Failed changes and reads do not.
  watch.reset();
  EXPECT_EQ(table.DBAlertRecAdd(&dup, &id), ALRT_E_LINKEXISTS);
  table.DBAlertRecRetrieve(&link.KEPOID, &read);
  table.DBAlertRecFind(&link.KEPOID);
  table.DBAlertRecFindFirst(42, 0, nullptr, &read);
  table.DBAlertRecFindNext(&read);
  ProbedLinkTable closed("Never.dat");
  EXPECT_EQ(closed.DBAlertRecAdd(&fresh, &id), ALRT_E_ADDFAILED);
  EXPECT_FALSE(watch.signalled());
  // Once set, further changes and reads leave it set.
  for (unsigned char response : {3, 5}) {
    ALRTEVENT_RESPREC other = makeLink(1, response);
    ASSERT_EQ(table.DBAlertRecAdd(&other, &id), 0u);
  }
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_TRUE(watch.signalled());
}

TEST_F(ChangeSignalTest, AChangeInAnotherProcessSignalsThisOne) {
  ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  ChangeEventWatch watch;
  watch.reset();
  ChildProcess child("link_child", {});
  EXPECT_EQ(child.readLine(), "added");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(watch.signalled());
}

// On a server, a change made under a file lock is announced to the other
// machines with its commit, once for the batch, and a batch rolled back is
// not announced; a change on its own is announced at once.
TEST_F(ChangeSignalTest, OnAServerABatchIsAnnouncedByItsCommitOnly) {
  if (!onServerStore()) GTEST_SKIP() << "needs the data files on a server";
  ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  platform::ServerChangeListener listener;
  ASSERT_EQ(listener.listen(nullptr), 0u);
  _GUID id{};
  ASSERT_EQ(DBFileLock(table.m_hTable), 0u);
  for (std::uint32_t target = 2; target < 5; ++target) {
    ALRTEVENT_RESPREC link = makeLink(1, target);
    ASSERT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
  }
  EXPECT_EQ(listener.wait(300), 0) << "nothing to see before the commit";
  ASSERT_EQ(DBFileUnlock(table.m_hTable), 0u);
  EXPECT_EQ(listener.wait(10000), 1);
  EXPECT_EQ(listener.wait(300), 0);
  // Another thread's batch, its table closed under the lock: rolled back.
  std::uint32_t added = 99;
  std::thread([&] {
    ProbedLinkTable dropped;
    _GUID own{};
    ALRTEVENT_RESPREC link = makeLink(1, 9);
    if (dropped.DBCreate() == 0 && DBFileLock(dropped.m_hTable) == 0) {
      added = dropped.DBAlertRecAdd(&link, &own);
    }
  }).join();
  ASSERT_EQ(added, 0u);
  EXPECT_EQ(listener.wait(300), 0);
  ALRTEVENT_RESPREC alone = makeLink(2, 3);
  ASSERT_EQ(table.DBAlertRecAdd(&alone, &id), 0u);
  EXPECT_EQ(listener.wait(10000), 1);
}

TEST_F(ChangeSignalTest, FileLocksPassTheStoresResults) {
  ProbedLinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  EXPECT_EQ(DBFileUnlock(table.m_hTable), platform::QDB_E_LOCKSTATE);
  ASSERT_EQ(DBFileLock(table.m_hTable), 0u);
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&link, &id), 0u);
  EXPECT_EQ(DBFileUnlock(table.m_hTable), 0u);
  EXPECT_EQ(DBReadLock(table.m_hTable), 0u);
  EXPECT_EQ(DBReadUnlock(table.m_hTable), 0u);
  EXPECT_EQ(DBFileLock(nullptr), platform::QDB_E_BADHANDLE);
  EXPECT_EQ(DBReadUnlock(nullptr), platform::QDB_E_BADHANDLE);
}

}  // namespace
