// A batch under the file lock is all or nothing, in the tables and in the
// object manager's instances alike, even when its process is killed.
#include <signal.h>
#include <sys/wait.h>

#include <cstring>
#include <string>

#include "events/event_class_table.h"
#include "framework/file_locks.h"
#include "platform/guid.h"
#include "platform/object_manager.h"
#include "support/child_process.h"
#include "support/test_environment.h"

using alertdb_test::ChildProcess;

namespace {

class EventClassBatchTest : public alertdb_test::IsolatedTest {
 protected:
  class Table : public CAlertEVENT_CLASSDB {
   public:
    KEPDB *handle() const { return m_hTable; }
  };

  _GUID registered(Table &table, const char *name) {
    ALRTEVENT_CLASSREC r{};
    std::strcpy(r.EventName, name);
    r.EventID = 7;
    _GUID id{};
    EXPECT_EQ(table.DBAlertRecAdd(&r, &id), 0u);
    return id;
  }

  static bool instanceKnown(const _GUID &id) {
    return platform::KepOMGetInstance(&id, nullptr, nullptr, 0) == 0;
  }
};

TEST_F(EventClassBatchTest, AKilledBatchLeavesTablesAndInstancesAsTheyWere) {
  Table table;
  ASSERT_EQ(table.DBCreate(), 0u);
  _GUID id = registered(table, "survives");
  ChildProcess child("batch_child", {platform::GuidToString(id)});
  ASSERT_EQ(child.readLine(), "deleted");
  child.kill(SIGKILL);
  ASSERT_TRUE(WIFSIGNALED(child.wait()));

  ALRTEVENT_CLASSREC stored{};
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, &stored), 0u) << "the delete never committed";
  EXPECT_TRUE(instanceKnown(id)) << "nor did its object manager change";
  stored.EventID = 8;
  EXPECT_EQ(table.DBAlertRecUpdate(&stored), 0u) << "later updates find their instance";
}

TEST_F(EventClassBatchTest, ACommittedBatchAppliesItsInstanceChangesAtTheUnlock) {
  Table table;
  ASSERT_EQ(table.DBCreate(), 0u);
  _GUID gone = registered(table, "gone");
  ChildProcess child("batch_child", {platform::GuidToString(gone)});
  ASSERT_EQ(child.readLine(), "deleted");
  EXPECT_TRUE(instanceKnown(gone)) << "held until the commit";
  child.writeLine("commit");
  EXPECT_EQ(child.readLine(), "unlocked");
  EXPECT_EQ(child.wait(), 0);
  ALRTEVENT_CLASSREC stored{};
  EXPECT_EQ(table.DBAlertRecRetrieve(&gone, &stored), ALRT_E_NOTFOUND);
  EXPECT_FALSE(instanceKnown(gone));

  // Within one thread's batch the held changes are what it sees.
  ASSERT_EQ(DBFileLock(table.handle()), 0u);
  _GUID added = registered(table, "added in batch");
  EXPECT_TRUE(instanceKnown(added));
  ALRTEVENT_CLASSREC r{};
  ASSERT_EQ(table.DBAlertRecRetrieve(&added, &r), 0u);
  r.EventID = 9;
  EXPECT_EQ(table.DBAlertRecUpdate(&r), 0u) << "the held add is known to the update";
  ASSERT_EQ(DBFileUnlock(table.handle()), 0u);
  EXPECT_TRUE(instanceKnown(added));
}

TEST_F(EventClassBatchTest, ABatchThatNeverCommitsLeavesNoInstance) {
  _GUID id{};
  {
    Table table;
    ASSERT_EQ(table.DBCreate(), 0u);
    ASSERT_EQ(DBFileLock(table.handle()), 0u);
    id = registered(table, "rolled back");
    // Destroyed while holding the lock: the batch rolls back.
  }
  Table table;
  ASSERT_EQ(table.DBOpen(), 0u);
  ALRTEVENT_CLASSREC r{};
  EXPECT_EQ(table.DBAlertRecRetrieve(&id, &r), ALRT_E_NOTFOUND);
  EXPECT_FALSE(instanceKnown(id));
  // The thread's next, unbatched change goes straight through.
  _GUID later = registered(table, "later");
  EXPECT_TRUE(instanceKnown(later));
}

}  // namespace
