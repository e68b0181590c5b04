#include "events/event_log_table.h"

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "framework/link_table_probe.h"
#include "platform/object_manager.h"
#include "platform/store/record_store.h"
#include "support/data_file_query.h"
#include "support/refusing_object_manager.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::makeId;

namespace {

class ProbedLogTable : public CAlertEVENT_LOGDB {
 public:
  using CAlertDBTable::m_hTable;
  using CAlertDBTable::m_szFilePath;
  using CAlertEVENT_LOGDB::CAlertEVENT_LOGDB;
};

// A log entry whose every byte is set, texts holding their own field names.
ALRTEVENT_LOGREC sampleEntry(unsigned char classFill, unsigned char day = 1) {
  ALRTEVENT_LOGREC e;
  std::memset(&e, 0x5A, sizeof e);
  e.KEPOID = {};
  e.EventClass_OID = makeId(classFill);
  e.Ack = 0;
  const unsigned char time[8] = {125, 6, day, 12, 0, 0, 0, 0};
  std::memcpy(e.Time, time, sizeof e.Time);
  char *texts[] = {e.EventName,   e.SeverityTxt,   e.ProductName, e.Comment,
                   e.UserName,    e.MachineName,   e.domainName,  e.EventText,
                   e.OpStatusTxt, e.TextParameter, e.Address};
  const char *names[] = {"EventName",   "SeverityTxt",   "ProductName", "Comment",
                         "UserName",    "MachineName",   "domainName",  "EventText",
                         "OpStatusTxt", "TextParameter", "Address"};
  for (int i = 0; i < 11; ++i) std::strcpy(texts[i], names[i]);
  return e;
}

class EventLogTableTest : public alertdb_test::IsolatedTest {
 protected:
  static bool mirrored(const _GUID &id) {
    _GUID classId{};
    char name[32] = {};
    return platform::KepOMGetInstance(&id, &classId, name, sizeof name) == 0 &&
           std::memcmp(&classId, &platform::kClassIdEventLog, 16) == 0 &&
           std::string(name) == "EVENT_LOG";
  }
  // The day of each entry found, in enumeration order.
  static std::vector<int> walk(CAlertEVENT_LOGDB &table, std::uint32_t key,
                               std::uint32_t length = 0, void *value = nullptr) {
    std::vector<int> days;
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    for (std::uint32_t r =
             table.DBAlertRecFindFirst(key, length, static_cast<unsigned char *>(value), e.get());
         r == 0; r = table.DBAlertRecFindNext(e.get())) {
      days.push_back(e->Time[2]);
    }
    return days;
  }
};

TEST_F(EventLogTableTest, ConstructorsChooseFileAndMirroringAndUpdatesNeverSignal) {
  ProbedLogTable plain(nullptr), table;
  EXPECT_EQ(std::string(plain.m_szFilePath), dataPath("AlEvntdb.dat"));
  EXPECT_EQ(std::string(table.m_szFilePath), dataPath("KEPLogDB.dat"));
  ASSERT_EQ(plain.DBCreate(), 0u);
  ASSERT_EQ(table.DBCreate(), 0u);
  ChangeEventWatch watch;
  watch.reset();
  ALRTEVENT_LOGREC a = sampleEntry(1), e = sampleEntry(2);
  _GUID aId{}, id{};
  ASSERT_EQ(plain.DBAlertRecAdd(&a, &aId), 0u);
  ASSERT_EQ(table.DBAlertRecAdd(&e, &id), 0u);
  EXPECT_FALSE(mirrored(aId));
  EXPECT_TRUE(mirrored(id));
  EXPECT_EQ(walk(plain, 20).size(), 1u) << "separate files";

  auto read = std::make_unique<ALRTEVENT_LOGREC>();
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
  EXPECT_EQ(table.DBAlertRecUpdate(read.get()), 240u) << "unchanged";
  read->Ack = 1;  // Icon and SeverityColor are derived again
  read->Icon = makeId(0x44);
  read->SeverityColor = 0x99;
  ASSERT_EQ(table.DBAlertRecUpdate(read.get()), 0u);
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
  e.Ack = 1;
  EXPECT_EQ(std::memcmp(read.get(), &e, sizeof e), 0);
  a.KEPOID = makeId(0x42);
  EXPECT_EQ(table.DBAlertRecUpdate(&a), ALRT_E_NOTFOUND);
  ASSERT_EQ(table.DBAlertRecDelete(&id), 0u);
  EXPECT_EQ(table.DBAlertRecRetrieve(&id, read.get()), ALRT_E_NOTFOUND);
  EXPECT_TRUE(mirrored(id)) << "deleting an entry leaves its instance";
  EXPECT_FALSE(watch.signalled());
}

TEST_F(EventLogTableTest, EntriesRoundTripWithDerivedFieldsAndFollowTheirKeys) {
  ProbedLogTable table(nullptr);
  ASSERT_EQ(table.DBCreate(), 0u);
  // {severity, colour, event class, day, event ID}
  for (auto [severity, colour, eventClass, day, eventId] :
       {std::tuple<std::uint32_t, int, int, int, std::uint32_t>{1, 3, 7, 20, 256},
        {3, 1, 5, 3, 1},
        {7, 0, 7, 11, 70000},
        {2, 2, 6, 1, 255}}) {
    ALRTEVENT_LOGREC e = sampleEntry(eventClass, day);
    e.Severity = severity;
    e.EventID = eventId;
    _GUID id{};
    ASSERT_EQ(table.DBAlertRecAdd(&e, &id), 0u);
    EXPECT_EQ(e.SeverityColor, colour) << "severity " << severity;
    EXPECT_EQ(std::memcmp(&e.Icon, &e.EventClass_OID, 16), 0);
    auto read = std::make_unique<ALRTEVENT_LOGREC>();
    ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
    EXPECT_EQ(std::memcmp(read.get(), &e, sizeof e), 0) << "every byte round-trips";
  }
  EXPECT_EQ(walk(table, CAlertEVENT_LOGDB::kTimeKey), (std::vector<int>{1, 3, 11, 20}));
  EXPECT_EQ(walk(table, CAlertEVENT_LOGDB::kEventIdKey), (std::vector<int>{3, 1, 20, 11}));
  _GUID seven = makeId(7);
  EXPECT_EQ(walk(table, CAlertEVENT_LOGDB::kEventClassKey, 16, &seven), (std::vector<int>{20, 11}));

  // Read by the catalog alone (fields back to back in field order), each text
  // sits in the field of its name.
  platform::StoreTableInfo info;
  ASSERT_EQ(platform::QDBTableInfo(table.m_hTable, "EVENT_LOG", &info), 0u);
  EXPECT_EQ(info.fields.at(12).queryType, "QInfo_OpStt");
  std::string image(sizeof(ALRTEVENT_LOGREC) + 12 + 16 + 4, '\0');
  std::vector<platform::FieldTemplate> templates;
  std::size_t offset = 0;
  for (const platform::StoreFieldInfo &f : info.fields) {
    templates.push_back({f.keyNumber, f.attribute, f.size, f.size, &image[offset], f.flags, 0});
    offset += f.size;
  }
  ASSERT_EQ(offset, image.size());
  KEPDB *raw = platform::QDBInit(0, dataPath("AlEvntdb.dat").c_str(), platform::kOpenExisting, 1);
  ASSERT_EQ(platform::SchmSetCurrentTbl(raw, "EVENT_LOG", templates.data()), 0u);
  ASSERT_EQ(platform::QDBRecordSkipAndRead(raw, 20, platform::kSkipFirst), 0u);
  platform::QDBDone(raw);
  int texts = 0;
  for (std::size_t i = 0; i < info.fields.size(); ++i) {
    const std::string &name = info.fields[i].name;
    if (info.fields[i].size <= 16 || name == "binblob" || name == "Replication") continue;
    EXPECT_EQ(std::string(static_cast<const char *>(templates[i].storage)), name);
    ++texts;
  }
  EXPECT_EQ(texts, 11);

  // The query types and their values are registered in the file with the table.
  EXPECT_EQ(alertdb_test::queryDataFile(
                dataPath("AlEvntdb.dat"),
                "SELECT (SELECT count(*) FROM alertdb_query_types), count(*) FROM "
                "alertdb_query_type_values WHERE type_name = 'QInfo_OpStt'"),
            std::vector<std::string>{"6|4"});
}

TEST_F(EventLogTableTest, ObjectManagerRefusalsGiveOmFailed) {
  ProbedLogTable reader("KEPLogDB.dat");  // the same file, not mirrored
  ASSERT_EQ(reader.DBCreate(), 0u);
  ALRTEVENT_LOGREC stored = sampleEntry(1);
  _GUID storedId{}, id{};
  ASSERT_EQ(reader.DBAlertRecAdd(&stored, &storedId), 0u);
  ALRTEVENT_LOGREC changed = stored;
  changed.Ack = 1;
  auto read = std::make_unique<ALRTEVENT_LOGREC>();
  // Without a connection nothing is stored or changed; a registration refused
  // comes after storing, and the change stays.
  for (bool connects : {false, true}) {
    alertdb_test::RefusingObjectManager{.open = !connects, .add = connects, .update = connects}
        .install();
    ProbedLogTable table;
    ASSERT_EQ(table.DBOpen(), 0u);
    ALRTEVENT_LOGREC e = sampleEntry(2);
    EXPECT_EQ(table.DBAlertRecAdd(&e, &id), ALRT_E_OMFAILED);
    EXPECT_EQ(table.DBAlertRecUpdate(&changed), ALRT_E_OMFAILED);
    ASSERT_EQ(reader.DBAlertRecRetrieve(&storedId, read.get()), 0u);
    EXPECT_EQ(read->Ack, connects ? 1 : 0);
    EXPECT_EQ(walk(reader, 20).size(), connects ? 3u : 1u);
    e.KEPOID = {};
    EXPECT_EQ(reader.DBAlertRecAdd(&e, &id), 0u) << "a table that does not mirror never connects";
    EXPECT_EQ(table.DBAlertRecDelete(&storedId), connects ? 0u : ALRT_E_OMFAILED);
  }
}

}  // namespace
