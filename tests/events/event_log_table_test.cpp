#include "events/event_log_table.h"

#include <sqlite3.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/link_table_probe.h"
#include "platform/object_manager.h"
#include "platform/record_store.h"
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

std::uint32_t refuse(platform::KepOMConnection **) { return 0x80004005; }
std::uint32_t refuseInstance(const _GUID *, const _GUID *, const char *) { return 0x80004005; }

// A log entry whose every byte is set, texts holding their own field names.
ALRTEVENT_LOGREC sampleEntry(unsigned char classFill, const unsigned char (&time)[8],
                             unsigned char ack = 0) {
  ALRTEVENT_LOGREC e;
  std::memset(&e, 0x5A, sizeof e);
  e.KEPOID = {};
  e.EventClass_OID = makeId(classFill);
  e.SourceOID = makeId(0x33);
  e.Ack = ack;
  e.Icon = makeId(0xEE);
  e.EventID = 0x01020304;
  e.Severity = 2;
  e.SeverityColor = 0xCC;
  std::memcpy(e.Time, time, sizeof e.Time);
  e.ErrorCode = -7;
  e.OpStatus = 3;
  e.BlobSize = 5;
  std::strcpy(e.EventName, "EventName");
  std::strcpy(e.SeverityTxt, "SeverityTxt");
  std::strcpy(e.ProductName, "ProductName");
  std::strcpy(e.Comment, "Comment");
  std::strcpy(e.UserName, "UserName");
  std::strcpy(e.MachineName, "MachineName");
  std::strcpy(e.domainName, "domainName");
  std::strcpy(e.EventText, "EventText");
  std::strcpy(e.OpStatusTxt, "OpStatusTxt");
  std::strcpy(e.TextParameter, "TextParameter");
  std::strcpy(e.Address, "Address");
  return e;
}

constexpr unsigned char kNoon[8] = {125, 6, 1, 12, 0, 0, 0, 0};

class EventLogTableTest : public alertdb_test::IsolatedTest {
 protected:
  void TearDown() override {
    platform::KepOMSetProvider(nullptr);
    IsolatedTest::TearDown();
  }
  static bool mirrored(const _GUID &id) {
    _GUID classId{};
    char name[32] = {};
    if (platform::KepOMGetInstance(&id, &classId, name, sizeof name) != 0) return false;
    return std::memcmp(&classId, &platform::kClassIdEventLog, 16) == 0 &&
           std::string(name) == "EVENT_LOG";
  }
  static std::vector<ALRTEVENT_LOGREC> walk(CAlertEVENT_LOGDB &table, std::uint32_t key,
                                            std::uint32_t length = 0, const void *value = nullptr) {
    std::vector<ALRTEVENT_LOGREC> entries;
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    for (std::uint32_t r = table.DBAlertRecFindFirst(
             key, length, static_cast<unsigned char *>(const_cast<void *>(value)), e.get());
         r == 0; r = table.DBAlertRecFindNext(e.get())) {
      entries.push_back(*e);
    }
    return entries;
  }
  // Column values of one SQL query on a data file, as text.
  std::vector<std::string> query(const std::string &file, const char *sql) {
    std::vector<std::string> rows;
    sqlite3 *db = nullptr;
    EXPECT_EQ(sqlite3_open_v2(dataPath(file).c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db, sql, -1, &s, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    while (sqlite3_step(s) == SQLITE_ROW) {
      const void *bytes = sqlite3_column_blob(s, 0);
      rows.emplace_back(static_cast<const char *>(bytes),
                        static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return rows;
  }
};

TEST_F(EventLogTableTest, ConstructorsChooseTheFileAndWhetherEntriesAreMirrored) {
  ProbedLogTable plain(nullptr);
  ProbedLogTable mirroredLog;
  EXPECT_EQ(std::string(plain.m_szFilePath), dataPath("AlEvntdb.dat"));
  EXPECT_EQ(std::string(mirroredLog.m_szFilePath), dataPath("KEPLogDB.dat"));
  ASSERT_EQ(plain.DBCreate(), 0u);
  ASSERT_EQ(mirroredLog.DBCreate(), 0u);

  ALRTEVENT_LOGREC a = sampleEntry(1, kNoon), b = sampleEntry(2, kNoon);
  _GUID aId{}, bId{};
  ASSERT_EQ(plain.DBAlertRecAdd(&a, &aId), 0u);
  ASSERT_EQ(mirroredLog.DBAlertRecAdd(&b, &bId), 0u);
  EXPECT_FALSE(mirrored(aId));
  EXPECT_TRUE(mirrored(bId));
  EXPECT_EQ(walk(plain, 20).size(), 1u) << "separate files";

  // Copies keep the file and the mirroring, with a handle and connection of their own.
  ProbedLogTable copy(mirroredLog);
  EXPECT_EQ(copy.m_hTable, nullptr);
  ASSERT_EQ(copy.DBOpen(), 0u);
  ALRTEVENT_LOGREC c = sampleEntry(3, kNoon);
  _GUID cId{};
  ASSERT_EQ(copy.DBAlertRecAdd(&c, &cId), 0u);
  EXPECT_TRUE(mirrored(cId));
  ProbedLogTable assigned(nullptr);
  assigned = plain;
  ASSERT_EQ(assigned.DBOpen(), 0u);
  ALRTEVENT_LOGREC d = sampleEntry(4, kNoon);
  _GUID dId{};
  ASSERT_EQ(assigned.DBAlertRecAdd(&d, &dId), 0u);
  EXPECT_FALSE(mirrored(dId));
  EXPECT_EQ(walk(mirroredLog, 20).size(), 2u);

  // The default field view is the same process-wide array for every table.
  EXPECT_EQ(plain.GetNoDefFlds(), 14u);
  ASSERT_EQ(plain.GetDefFldView(), mirroredLog.GetDefFldView());
  std::vector<std::string> view;
  for (unsigned i = 0; i < plain.GetNoDefFlds(); ++i)
    view.push_back(plain.GetDefFldView()[i].pszName);
  EXPECT_EQ(view,
            (std::vector<std::string>{"Ack", "Icon", "EventName", "SeverityColor", "Time",
                                      "MachineName", "EventText", "OpStatus", "UserName", "Comment",
                                      "ProductName", "domainName", "Address", "TextParameter"}));
}

TEST_F(EventLogTableTest, AddStoresEveryFieldAndDerivesIconAndColour) {
  ProbedLogTable table(nullptr);
  ASSERT_EQ(table.DBCreate(), 0u);
  const std::pair<std::uint32_t, unsigned char> colours[] = {{0, 0}, {1, 3}, {2, 2},
                                                             {3, 1}, {4, 0}, {7, 0}};
  for (auto [severity, colour] : colours) {
    ALRTEVENT_LOGREC e = sampleEntry(9, kNoon);
    e.Severity = severity;
    _GUID id{};
    ASSERT_EQ(table.DBAlertRecAdd(&e, &id), 0u);
    EXPECT_EQ(e.SeverityColor, colour) << "severity " << severity;
    EXPECT_EQ(std::memcmp(&e.Icon, &e.EventClass_OID, 16), 0);
    auto read = std::make_unique<ALRTEVENT_LOGREC>();
    ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
    EXPECT_EQ(std::memcmp(read.get(), &e, sizeof e), 0) << "every byte round-trips";
  }

  // Read as a tool reads any table, by its catalog alone (fields back to back in
  // field order), each text sits in the field of its name.
  platform::StoreTableInfo info;
  ASSERT_EQ(platform::QDBTableInfo(table.m_hTable, "EVENT_LOG", &info), 0u);
  ASSERT_EQ(info.fields.size(), 27u);
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
    const platform::StoreFieldInfo &f = info.fields[i];
    if (f.size <= 16 || f.name == "binblob" || f.name == "Replication") continue;
    const char *text = static_cast<const char *>(templates[i].storage);
    EXPECT_EQ(std::string(text), f.name) << "field " << i;
    ++texts;
  }
  EXPECT_EQ(texts, 11);
}

TEST_F(EventLogTableTest, EnumerationsFollowTheirKeys) {
  ProbedLogTable table(nullptr);
  ASSERT_EQ(table.DBCreate(), 0u);
  struct Entry {
    unsigned char eventClass, ack, day;
    std::uint32_t eventId;
  } entries[] = {{7, 0, 20, 256}, {5, 1, 3, 1}, {7, 1, 11, 70000}, {6, 0, 1, 2}, {5, 0, 30, 255}};
  for (const Entry &x : entries) {
    unsigned char time[8] = {125, 1, x.day, 8, 0, 0, 0, 0};
    ALRTEVENT_LOGREC e = sampleEntry(x.eventClass, time, x.ack);
    e.EventID = x.eventId;
    _GUID id{};
    ASSERT_EQ(table.DBAlertRecAdd(&e, &id), 0u);
  }
  auto days = [](const std::vector<ALRTEVENT_LOGREC> &list) {
    std::vector<int> out;
    for (const auto &e : list) out.push_back(e.Time[2]);
    return out;
  };
  EXPECT_EQ(days(walk(table, CAlertEVENT_LOGDB::kTimeKey)), (std::vector<int>{1, 3, 11, 20, 30}));
  // Numbers in numeric order, equal keys in insertion order.
  EXPECT_EQ(days(walk(table, CAlertEVENT_LOGDB::kEventIdKey)),
            (std::vector<int>{3, 1, 30, 20, 11}));
  unsigned char acknowledged = 1;
  EXPECT_EQ(days(walk(table, CAlertEVENT_LOGDB::kAckKey, 1, &acknowledged)),
            (std::vector<int>{3, 11}));
  _GUID seven = makeId(7);
  EXPECT_EQ(days(walk(table, CAlertEVENT_LOGDB::kEventClassKey, 16, &seven)),
            (std::vector<int>{20, 11}));
  _GUID none = makeId(9);
  EXPECT_TRUE(walk(table, CAlertEVENT_LOGDB::kEventClassKey, 16, &none).empty());
}

TEST_F(EventLogTableTest, UpdateAndDeleteNeverSignal) {
  ProbedLogTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  ChangeEventWatch watch;
  watch.reset();
  ALRTEVENT_LOGREC e = sampleEntry(1, kNoon);
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(&e, &id), 0u);

  auto read = std::make_unique<ALRTEVENT_LOGREC>();
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
  EXPECT_EQ(table.DBAlertRecUpdate(read.get()), 240u) << "unchanged";

  // Acknowledging changes Ack; Icon and SeverityColor are derived again.
  read->Ack = 1;
  read->Icon = makeId(0x44);
  read->SeverityColor = 0x99;
  ASSERT_EQ(table.DBAlertRecUpdate(read.get()), 0u);
  auto after = std::make_unique<ALRTEVENT_LOGREC>();
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, after.get()), 0u);
  ALRTEVENT_LOGREC expected = e;
  expected.Ack = 1;
  EXPECT_EQ(std::memcmp(after.get(), &expected, sizeof expected), 0);
  EXPECT_TRUE(mirrored(id));

  ALRTEVENT_LOGREC missing = sampleEntry(1, kNoon);
  missing.KEPOID = makeId(0x42);
  EXPECT_EQ(table.DBAlertRecUpdate(&missing), ALRT_E_NOTFOUND);
  _GUID unknown = makeId(0x42);
  std::uint32_t notStored = table.DBAlertRecDelete(&unknown);
  EXPECT_NE(notStored, 0u);
  EXPECT_LT(notStored, 0x10000u) << "the record store's own result";
  ASSERT_EQ(table.DBAlertRecDelete(&id), 0u);
  EXPECT_EQ(table.DBAlertRecRetrieve(&id, after.get()), ALRT_E_NOTFOUND);
  EXPECT_TRUE(mirrored(id)) << "deleting an entry leaves its instance";
  EXPECT_FALSE(watch.signalled());
}

TEST_F(EventLogTableTest, ObjectManagerRefusalsGiveOmFailed) {
  ProbedLogTable reader("KEPLogDB.dat");  // the same file, not mirrored
  ASSERT_EQ(reader.DBCreate(), 0u);
  ALRTEVENT_LOGREC stored = sampleEntry(1, kNoon);
  _GUID storedId{};
  ASSERT_EQ(reader.DBAlertRecAdd(&stored, &storedId), 0u);

  {  // No connection: nothing is stored, changed or deleted.
    platform::KepOMProvider provider{};
    provider.Open = refuse;
    platform::KepOMSetProvider(&provider);
    ProbedLogTable table;
    ASSERT_EQ(table.DBOpen(), 0u);
    ALRTEVENT_LOGREC e = sampleEntry(2, kNoon);
    _GUID id{};
    EXPECT_EQ(table.DBAlertRecAdd(&e, &id), ALRT_E_OMFAILED);
    ALRTEVENT_LOGREC changed = stored;
    changed.Ack = 1;
    EXPECT_EQ(table.DBAlertRecUpdate(&changed), ALRT_E_OMFAILED);
    EXPECT_EQ(table.DBAlertRecDelete(&storedId), ALRT_E_OMFAILED);
    std::vector<ALRTEVENT_LOGREC> all = walk(reader, 20);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].Ack, 0);
    // A table that does not mirror never opens a connection.
    ALRTEVENT_LOGREC f = sampleEntry(3, kNoon);
    EXPECT_EQ(reader.DBAlertRecAdd(&f, &id), 0u);
    EXPECT_EQ(reader.DBAlertRecDelete(&id), 0u);
  }
  {  // Registration refused after storing: the change stays.
    platform::KepOMProvider provider{};
    provider.AddInstance = refuseInstance;
    provider.UpdateInstance = refuseInstance;
    platform::KepOMSetProvider(&provider);
    ProbedLogTable table;
    ASSERT_EQ(table.DBOpen(), 0u);
    ALRTEVENT_LOGREC e = sampleEntry(2, kNoon);
    _GUID id{};
    EXPECT_EQ(table.DBAlertRecAdd(&e, &id), ALRT_E_OMFAILED);
    ALRTEVENT_LOGREC changed = stored;
    changed.Ack = 1;
    EXPECT_EQ(table.DBAlertRecUpdate(&changed), ALRT_E_OMFAILED);
    auto read = std::make_unique<ALRTEVENT_LOGREC>();
    EXPECT_EQ(reader.DBAlertRecRetrieve(&id, read.get()), 0u);
    read->KEPOID = {};  // else its own ID would be read again
    ASSERT_EQ(reader.DBAlertRecRetrieve(&storedId, read.get()), 0u);
    EXPECT_EQ(read->Ack, 1);
  }
}

TEST_F(EventLogTableTest, CreateRegistersTheQueryTypes) {
  {
    ProbedLogTable table;
    ASSERT_EQ(table.DBCreate(), 0u);
    platform::StoreTableInfo info;
    ASSERT_EQ(platform::QDBTableInfo(table.m_hTable, "EVENT_LOG", &info), 0u);
    EXPECT_EQ(info.title, "Event Log Table");
    EXPECT_EQ(info.idKey, 20u);
    EXPECT_EQ(info.fields.at(12).queryType, "QInfo_OpStt");
    EXPECT_EQ(info.fields.at(25).name, "Domain_Id");
  }
  EXPECT_EQ(query("KEPLogDB.dat", "SELECT name FROM alertdb_query_types ORDER BY name"),
            (std::vector<std::string>{"QInfo_None", "QInfo_Num", "QInfo_OpStt", "QInfo_SClr",
                                      "QInfo_Str", "QInfo_Svrty"}));
  EXPECT_EQ(query("KEPLogDB.dat",
                  "SELECT count(*) || '/' || count(NULLIF(text, '')) FROM "
                  "alertdb_query_type_values WHERE type_name='QInfo_OpStt'"),
            std::vector<std::string>{"4/4"});
  EXPECT_EQ(query("KEPLogDB.dat",
                  "SELECT second_key || ' ' || callback_dll || ' ' || callback_entry "
                  "FROM alertdb_tables WHERE name='EVENT_LOG'"),
            std::vector<std::string>{"24 QALERTCB.DLL AlertEventODIcon"});
}

}  // namespace
