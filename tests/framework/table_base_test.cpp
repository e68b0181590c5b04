#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "events/event_log_table.h"
#include "framework/link_table_probe.h"
#include "support/test_environment.h"

using alertdb_test::makeLink;
using alertdb_test::ProbedLinkTable;

namespace {

class TableBaseTest : public alertdb_test::IsolatedTest {};

TEST_F(TableBaseTest, PathJoinsTheDataDirectoryAndTheFileName) {
  {
    ProbedLinkTable byDefault, nullName(nullptr), named("Links.dat");
    EXPECT_EQ(std::string(byDefault.m_szFilePath), dataPath("AlEvntdb.dat"));
    EXPECT_EQ(std::string(nullName.m_szFilePath), dataPath("AlEvntdb.dat"));
    EXPECT_EQ(std::string(named.m_szFilePath), dataPath("Links.dat"));
  }
  // Objects never opened touch no file.
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat")));
  EXPECT_FALSE(fileExists(dataPath("Links.dat")));

  // Without a data directory the file name alone is the path.
  unsetenv("ALERTDB_DATA_DIR");
  ProbedLinkTable bare("Links.dat");
  EXPECT_STREQ(bare.m_szFilePath, "Links.dat");

  // A path that does not fit is not cut into another file's name.
  setenv("ALERTDB_DATA_DIR", ("/" + std::string(250, 'd')).c_str(), 1);
  ProbedLinkTable tooLong("Links.dat");
  EXPECT_STREQ(tooLong.m_szFilePath, "");
}

TEST_F(TableBaseTest, TemplatesCoverTheRecordBufferExactly) {
  ProbedLinkTable table;
  auto *buffer = reinterpret_cast<unsigned char *>(table.m_pRecordBuffer);
  EXPECT_EQ(table.m_pFieldTemplates[0].storage, buffer);
  EXPECT_EQ(table.m_pFieldTemplates[1].storage, buffer + 16);
  EXPECT_EQ(table.m_pFieldTemplates[2].storage, buffer + 32);
  EXPECT_EQ(static_cast<unsigned char *>(table.m_pFieldTemplates[2].storage) +
                table.m_pFieldTemplates[2].size,
            buffer + sizeof(ALRTEVENT_RESPREC));
  EXPECT_EQ(table.m_pFieldTemplates[3].storage, table.m_Replication);
}

TEST_F(TableBaseTest, WithoutRecordBufferEveryOperationIsRefusedAndNoFileIsMade) {
  ProbedLinkTable table;
  table.dropRecordBuffer();
  EXPECT_EQ(table.IsReady(), 65535u);
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id = alertdb_test::makeId(3);
  EXPECT_EQ(table.DBOpen(), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBCreate(), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecAdd(&link, &id), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecUpdate(&link), ALRT_E_NOTOPEN);
  link.KEPOID = id;
  EXPECT_EQ(table.DBAlertRecRetrieve(&id, &link), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecFind(&id), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecFindFirst(42, 0, nullptr, &link), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecFindNext(&link), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.DBAlertRecDelete(&id), ALRT_E_NOTOPEN);
  EXPECT_EQ(table.m_hTable, nullptr);
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat")));
}

TEST_F(TableBaseTest, CreateObjectIdGivesFreshIds) {
  ProbedLinkTable table;
  EXPECT_EQ(table.CreateObjectId(nullptr), 65535u);
  _GUID a, b;
  ASSERT_EQ(table.CreateObjectId(&a), 0u);
  ASSERT_EQ(table.CreateObjectId(&b), 0u);
  EXPECT_NE(std::memcmp(&a, &b, sizeof a), 0);
}

TEST_F(TableBaseTest, CopiesAreIndependentObjectsOfTheSameTableAndFile) {
  ProbedLinkTable original("Links.dat");
  ASSERT_EQ(original.DBCreate(), 0u);
  ALRTEVENT_RESPREC link = makeLink(1, 2);
  _GUID id;
  ASSERT_EQ(original.DBAlertRecAdd(&link, &id), 0u);

  auto *copy = new ProbedLinkTable(original);
  EXPECT_EQ(copy->m_hTable, nullptr);
  EXPECT_NE(copy->m_pRecordBuffer, original.m_pRecordBuffer);
  EXPECT_STREQ(copy->m_szFilePath, original.m_szFilePath);
  EXPECT_EQ(copy->m_pFieldTemplates[0].storage, copy->m_pRecordBuffer);
  ASSERT_EQ(copy->DBOpen(), 0u);
  ALRTEVENT_RESPREC read{};
  EXPECT_EQ(copy->DBAlertRecRetrieve(&id, &read), 0u);
  delete copy;
  // The original keeps its own handle and buffers.
  read = {};
  EXPECT_EQ(original.DBAlertRecRetrieve(&id, &read), 0u);

  ProbedLinkTable assigned;
  ASSERT_EQ(assigned.DBCreate(), 0u);
  assigned = original;
  EXPECT_EQ(assigned.m_hTable, nullptr);
  EXPECT_STREQ(assigned.m_szFilePath, original.m_szFilePath);
  ASSERT_EQ(assigned.DBOpen(), 0u);
  read = {};
  EXPECT_EQ(assigned.DBAlertRecRetrieve(&id, &read), 0u);
}

}  // namespace

// Update compares the caller's record with what the record buffer holds: the
// record last read, whether the read went through the buffer or straight to
// the caller (large records), and never a record an add has since replaced.
template <class Table, class REC>
void updatesCompareWithTheRecordLastRead(Table &table, REC (*make)(unsigned char)) {
  using Base = CAlertDBTable<REC>;
  ASSERT_EQ(table.DBCreate(), 0u);
  std::vector<_GUID> ids;
  for (unsigned char n = 1; n <= 3; ++n) {
    REC r = make(n);
    _GUID id{};
    ASSERT_EQ(table.DBAlertRecAdd(&r, &id), 0u);
    ids.push_back(id);
  }
  auto read = std::make_unique<REC>();
  auto last = std::make_unique<REC>();
  ASSERT_EQ(table.DBAlertRecFindFirst(Table::kIdKey, 0, nullptr, read.get()), 0u);
  EXPECT_EQ(table.Base::DBAlertRecUpdate(read.get()), ALRT_UNCHANGED) << "after find-first";
  while (table.DBAlertRecFindNext(read.get()) == 0) {
    EXPECT_EQ(table.Base::DBAlertRecUpdate(read.get()), ALRT_UNCHANGED) << "after find-next";
    *last = *read;
  }
  // The end of the walk leaves the last record in the buffer.
  EXPECT_EQ(table.Base::DBAlertRecUpdate(last.get()), ALRT_UNCHANGED) << "after the end";

  ASSERT_EQ(table.DBAlertRecRetrieve(&ids[0], read.get()), 0u);
  EXPECT_EQ(table.Base::DBAlertRecUpdate(read.get()), ALRT_UNCHANGED) << "after retrieve";
  reinterpret_cast<unsigned char *>(read.get())[sizeof(REC) - 1] ^= 1;
  EXPECT_EQ(table.Base::DBAlertRecUpdate(read.get()), 0u) << "a changed record is written";
  auto stored = std::make_unique<REC>();
  ASSERT_EQ(table.DBAlertRecRetrieve(&ids[0], stored.get()), 0u);
  EXPECT_EQ(std::memcmp(stored.get(), read.get(), sizeof(REC)), 0);

  // An add after a walk replaces what the buffer holds.
  ASSERT_EQ(table.DBAlertRecFindFirst(Table::kIdKey, 0, nullptr, read.get()), 0u);
  ASSERT_EQ(table.DBAlertRecFindNext(read.get()), 0u);
  REC added = make(9);
  _GUID addedId{};
  ASSERT_EQ(table.DBAlertRecAdd(&added, &addedId), 0u);
  EXPECT_EQ(table.Base::DBAlertRecUpdate(&added), ALRT_UNCHANGED) << "after an add";
}

ALRTEVENT_RESPREC numberedLink(unsigned char n) { return makeLink(n, n + 100); }

ALRTEVENT_LOGREC numberedEntry(unsigned char n) {
  ALRTEVENT_LOGREC e;
  std::memset(&e, 0, sizeof e);
  e.EventClass_OID = alertdb_test::makeId(n);
  std::memset(e.EventText, 'a' + n, 1500);  // long enough to be read straight to the caller
  std::snprintf(e.EventName, sizeof e.EventName, "event %d", n);
  return e;
}

TEST_F(TableBaseTest, UpdateComparesWithTheRecordLastReadSmallAndLarge) {
  ProbedLinkTable links;
  updatesCompareWithTheRecordLastRead(links, numberedLink);
  CAlertEVENT_LOGDB log(nullptr);
  updatesCompareWithTheRecordLastRead(log, numberedEntry);
}
