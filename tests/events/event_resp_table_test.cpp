#include "events/event_resp_table.h"

#include <cstring>
#include <memory>

#include "framework/link_table_probe.h"
#include "support/created_table_test.h"
#include "support/table_shape_checks.h"
#include "support/test_environment.h"

using alertdb_test::kZeroId;
using alertdb_test::makeId;
using alertdb_test::makeLink;
using alertdb_test::ProbedLinkTable;

namespace {

class EventRespTableTest : public alertdb_test::CreatedTableTest<ProbedLinkTable> {
 protected:
  // Adds the link of two filled IDs; 0 or the table's result.
  std::uint32_t link(unsigned char eventClass, unsigned char response) {
    ALRTEVENT_RESPREC l = makeLink(eventClass, response);
    _GUID id{};
    return table->DBAlertRecAdd(&l, &id);
  }
};

TEST_F(EventRespTableTest, EachPairIsStoredOnce) {
  EXPECT_EQ(link(1, 9), 0u);
  EXPECT_EQ(link(1, 9), ALRT_E_LINKEXISTS);
  EXPECT_EQ(link(1, 10), 0u);
  EXPECT_EQ(link(2, 9), 0u);
  EXPECT_EQ(link(2, 9), ALRT_E_LINKEXISTS);
  // The duplicate check leaves the enumeration where a walk through every
  // link in response order ends: past the last, links of later responses
  // included.
  EXPECT_EQ(link(3, 1), 0u);
  ALRTEVENT_RESPREC next{};
  EXPECT_EQ(table->DBAlertRecFindNext(&next), ALRT_E_NOTFOUND);
  _GUID id{};
  EXPECT_EQ(table->DBAlertRecAdd(nullptr, &id), ALRT_E_INVALIDPARAM);
}

TEST_F(EventRespTableTest, AddGivesOrKeepsTheObjectIdAndRetrieveReadsIt) {
  ALRTEVENT_RESPREC given = makeLink(1, 2), chosen = makeLink(3, 4), clash = makeLink(5, 6);
  _GUID id{}, chosenId{};
  std::memset(table->m_Replication, 0, 12);
  ASSERT_EQ(table->DBAlertRecAdd(&given, &id), 0u);
  EXPECT_NE(std::memcmp(&id, &kZeroId, 16), 0);
  EXPECT_EQ(std::memcmp(&given.KEPOID, &id, 16), 0);
  chosen.KEPOID = clash.KEPOID = makeId(0x77);
  ASSERT_EQ(table->DBAlertRecAdd(&chosen, &chosenId), 0u);
  EXPECT_EQ(std::memcmp(&chosenId, &chosen.KEPOID, 16), 0);
  // The same object ID twice: refused, the new ID cleared, the record keeping its ID.
  _GUID clashId = makeId(0x11);
  EXPECT_EQ(table->DBAlertRecAdd(&clash, &clashId), ALRT_E_ADDFAILED);
  EXPECT_EQ(std::memcmp(&clashId, &kZeroId, 16), 0);
  EXPECT_EQ(std::memcmp(&clash.KEPOID, &chosen.KEPOID, 16), 0);

  ALRTEVENT_RESPREC read{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_EQ(std::memcmp(&read, &given, sizeof given), 0);
  read.KEPOID = id;  // the record's own ID wins over the argument
  ASSERT_EQ(table->DBAlertRecRetrieve(&chosenId, &read), 0u);
  EXPECT_EQ(std::memcmp(&read.EventClassOID, &given.EventClassOID, 16), 0);
  _GUID unknown = makeId(0x55);
  ALRTEVENT_RESPREC empty{};
  EXPECT_EQ(table->DBAlertRecRetrieve(&unknown, &empty), ALRT_E_NOTFOUND);
  EXPECT_EQ(table->DBAlertRecRetrieve(&id, nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecFind(&id), 0u);
  EXPECT_NE(table->DBAlertRecFind(&unknown), 0u);
}

TEST_F(EventRespTableTest, UpdateAndDeleteSignalOnlyRealChanges) {
  table.reset();
  alertdb_test::expectRecordLifeAndSignals<CAlertEVENT_RESPDB>(
      {.add = true, .update = true, .remove = true}, 5);
}

TEST_F(EventRespTableTest, EnumerationRunsInKeyOrderAndEndsWithNotFound) {
  ALRTEVENT_RESPREC record{};
  EXPECT_EQ(table->DBAlertRecFindFirst(42, 0, nullptr, &record), ALRT_E_NOTFOUND);
  EXPECT_EQ(table->DBAlertRecFindFirst(43, 16, nullptr, &record), ALRT_E_INVALIDPARAM);
  for (unsigned char e : {3, 1, 2}) ASSERT_EQ(link(e, 1), 0u);
  // Find-next does not stop where the key changes.
  ASSERT_EQ(alertdb_test::findBy(*table, 43, makeId(2), &record), 0u);
  EXPECT_EQ(record.EventClassOID.Data1, 0x02020202u);
  ASSERT_EQ(table->DBAlertRecFindNext(&record), 0u);
  EXPECT_EQ(record.EventClassOID.Data1, 0x03030303u);
  std::memset(&record, 0xEE, sizeof record);
  EXPECT_EQ(table->DBAlertRecFindNext(&record), ALRT_E_NOTFOUND);
  EXPECT_EQ(std::memcmp(&record, &kZeroId, 16), 0) << "zeroed past the end";
}

}  // namespace
