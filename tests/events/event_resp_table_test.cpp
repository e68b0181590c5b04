#include "events/event_resp_table.h"

#include <cstring>
#include <memory>
#include <vector>

#include "framework/link_table_probe.h"
#include "platform/record_store.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::makeId;
using alertdb_test::makeLink;
using alertdb_test::ProbedLinkTable;

namespace {

class EventRespTableTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    // Made once the data directory is set: the path is fixed at construction.
    table = std::make_unique<ProbedLinkTable>();
    ASSERT_EQ(table->DBCreate(), 0u);
  }
  // Every link of the event class, walking key 43 and comparing as callers do.
  std::vector<ALRTEVENT_RESPREC> linksOfEventClass(unsigned char eventClass) {
    std::vector<ALRTEVENT_RESPREC> links;
    _GUID wanted = makeId(eventClass);
    ALRTEVENT_RESPREC link{};
    for (std::uint32_t r =
             table->DBAlertRecFindFirst(43, 16, reinterpret_cast<unsigned char *>(&wanted), &link);
         r == 0 && std::memcmp(&link.EventClassOID, &wanted, 16) == 0;
         r = table->DBAlertRecFindNext(&link)) {
      links.push_back(link);
    }
    return links;
  }

  std::unique_ptr<ProbedLinkTable> table;
};

TEST_F(EventRespTableTest, EachPairIsStoredOnce) {
  ALRTEVENT_RESPREC link = makeLink(1, 9);
  _GUID first{}, second{};
  ASSERT_EQ(table->DBAlertRecAdd(&link, &first), 0u);
  ALRTEVENT_RESPREC again = makeLink(1, 9);
  EXPECT_EQ(table->DBAlertRecAdd(&again, &second), ALRT_E_LINKEXISTS);
  EXPECT_EQ(linksOfEventClass(1).size(), 1u);

  // Same event class with other responses, same response with other classes.
  for (unsigned char response : {10, 11}) {
    ALRTEVENT_RESPREC l = makeLink(1, response);
    EXPECT_EQ(table->DBAlertRecAdd(&l, &second), 0u);
  }
  for (unsigned char eventClass : {2, 3}) {
    ALRTEVENT_RESPREC l = makeLink(eventClass, 9);
    EXPECT_EQ(table->DBAlertRecAdd(&l, &second), 0u);
  }
  EXPECT_EQ(linksOfEventClass(1).size(), 3u);
  EXPECT_EQ(linksOfEventClass(2).size(), 1u);
  ALRTEVENT_RESPREC dup = makeLink(3, 9);
  EXPECT_EQ(table->DBAlertRecAdd(&dup, &second), ALRT_E_LINKEXISTS);
  EXPECT_EQ(table->DBAlertRecAdd(nullptr, &second), ALRT_E_INVALIDPARAM);
}

TEST_F(EventRespTableTest, AddGivesOrKeepsTheObjectId) {
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID newId{};
  ASSERT_EQ(table->DBAlertRecAdd(&link, &newId), 0u);
  EXPECT_NE(std::memcmp(&newId, &alertdb_test::kZeroId, 16), 0);
  EXPECT_EQ(std::memcmp(&link.KEPOID, &newId, 16), 0);

  ALRTEVENT_RESPREC chosen = makeLink(3, 4);
  chosen.KEPOID = makeId(0x77);
  ASSERT_EQ(table->DBAlertRecAdd(&chosen, &newId), 0u);
  EXPECT_EQ(std::memcmp(&newId, &chosen.KEPOID, 16), 0);

  // The same object ID twice: the store refuses, newId is cleared, the record keeps its ID.
  ALRTEVENT_RESPREC clash = makeLink(5, 6);
  clash.KEPOID = makeId(0x77);
  EXPECT_EQ(table->DBAlertRecAdd(&clash, &newId), ALRT_E_ADDFAILED);
  EXPECT_EQ(std::memcmp(&newId, &alertdb_test::kZeroId, 16), 0);
  EXPECT_EQ(std::memcmp(&clash.KEPOID, &chosen.KEPOID, 16), 0);
}

TEST_F(EventRespTableTest, RetrieveReadsTheRecordItselfAndNothingMore) {
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id{};
  std::memset(table->m_Replication, 0, 12);
  ASSERT_EQ(table->DBAlertRecAdd(&link, &id), 0u);

  ALRTEVENT_RESPREC read{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_EQ(std::memcmp(&read, &link, sizeof link), 0);

  // The record's own ID wins over the argument.
  ALRTEVENT_RESPREC other = makeLink(3, 4);
  _GUID otherId{};
  ASSERT_EQ(table->DBAlertRecAdd(&other, &otherId), 0u);
  ALRTEVENT_RESPREC own{};
  own.KEPOID = id;
  ASSERT_EQ(table->DBAlertRecRetrieve(&otherId, &own), 0u);
  EXPECT_EQ(std::memcmp(&own.EventClassOID, &link.EventClassOID, 16), 0);

  ALRTEVENT_RESPREC empty{};
  _GUID zero{};
  EXPECT_EQ(table->DBAlertRecRetrieve(&zero, &empty), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecRetrieve(nullptr, &empty), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBAlertRecRetrieve(&id, nullptr), ALRT_E_INVALIDPARAM);
  _GUID unknown = makeId(0x55);
  EXPECT_EQ(table->DBAlertRecRetrieve(&unknown, &empty), ALRT_E_NOTFOUND);
  EXPECT_EQ(table->DBAlertRecFind(&id), 0u);
  EXPECT_NE(table->DBAlertRecFind(&unknown), 0u);
}

TEST_F(EventRespTableTest, UpdateWritesOnlyWhatChanged) {
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&link, &id), 0u);
  ChangeEventWatch watch;
  watch.reset();

  ALRTEVENT_RESPREC read{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&id, &read), 0u);
  EXPECT_EQ(table->DBAlertRecUpdate(&read), 0u);
  EXPECT_FALSE(watch.signalled()) << "nothing changed";

  read.ResponseOID = makeId(7);
  EXPECT_EQ(table->DBAlertRecUpdate(&read), 0u);
  EXPECT_TRUE(watch.signalled());
  ALRTEVENT_RESPREC check{};
  ASSERT_EQ(table->DBAlertRecRetrieve(&id, &check), 0u);
  EXPECT_EQ(std::memcmp(&check.ResponseOID, &read.ResponseOID, 16), 0);

  watch.reset();
  ALRTEVENT_RESPREC missing = makeLink(8, 8);
  missing.KEPOID = makeId(0x99);
  EXPECT_EQ(table->DBAlertRecUpdate(&missing), ALRT_E_NOTFOUND);
  EXPECT_FALSE(watch.signalled());
}

TEST_F(EventRespTableTest, EnumerationRunsInKeyOrderAndEndsWithNotFound) {
  ALRTEVENT_RESPREC record{};
  EXPECT_EQ(table->DBAlertRecFindFirst(42, 0, nullptr, &record), ALRT_E_NOTFOUND);
  EXPECT_EQ(table->DBAlertRecFindFirst(43, 16, nullptr, &record), ALRT_E_INVALIDPARAM);
  for (unsigned char e : {3, 1, 2}) {
    ALRTEVENT_RESPREC l = makeLink(e, 1);
    _GUID id;
    ASSERT_EQ(table->DBAlertRecAdd(&l, &id), 0u);
  }
  // Find-next does not stop where the key changes.
  _GUID two = makeId(2);
  ASSERT_EQ(table->DBAlertRecFindFirst(43, 16, reinterpret_cast<unsigned char *>(&two), &record),
            0u);
  ASSERT_EQ(table->DBAlertRecFindNext(&record), 0u);
  EXPECT_EQ(record.EventClassOID.Data1, 0x03030303u);
  std::memset(&record, 0xEE, sizeof record);
  EXPECT_EQ(table->DBAlertRecFindNext(&record), ALRT_E_NOTFOUND);
  EXPECT_EQ(std::memcmp(&record, &alertdb_test::kZeroId, 16), 0) << "zeroed past the end";
}

TEST_F(EventRespTableTest, DeleteRemovesAndPassesTheStoresOwnNotFound) {
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&link, &id), 0u);
  ChangeEventWatch watch;
  watch.reset();
  _GUID unknownId = makeId(0x42);
  std::uint32_t missing = table->DBAlertRecDelete(&unknownId);
  EXPECT_NE(missing, 0u);
  EXPECT_NE(missing, ALRT_E_NOTFOUND);
  EXPECT_LT(missing, 0x10000u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(table->DBAlertRecDelete(&id), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_TRUE(linksOfEventClass(1).empty());
}

}  // namespace
