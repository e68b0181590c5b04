#include "events/event_class_table.h"

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "framework/link_table_probe.h"
#include "platform/object_manager.h"
#include "support/test_environment.h"

using alertdb_test::ChangeEventWatch;
using alertdb_test::makeId;

namespace {

class ProbedEventClassTable : public CAlertEVENT_CLASSDB {
 public:
  using CAlertDBTable::m_hTable;
  // The object manager flags of the record read last.
  std::uint32_t omFlags() {
    std::uint32_t flags = 0;
    std::memcpy(&flags, m_pFieldTemplates[24].storage, sizeof flags);
    return flags;
  }
};

// Object manager calls, counted; refusals on demand.
struct OmCounts {
  int adds = 0, updates = 0, deletes = 0;
  std::uint32_t addResult = 0, updateResult = 0;
} g_om;

std::uint32_t countAdd(const _GUID *, const _GUID *, const char *) {
  ++g_om.adds;
  return g_om.addResult;
}
std::uint32_t countUpdate(const _GUID *, const _GUID *, const char *) {
  ++g_om.updates;
  return g_om.updateResult;
}
std::uint32_t countDelete(const _GUID *, const _GUID *) {
  ++g_om.deletes;
  return 0;
}

class EventClassTableTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    table = std::make_unique<ProbedEventClassTable>();
    ASSERT_EQ(table->DBCreate(), 0u);
    setenv("ALERTDB_TEST_ICON_LOG", dataPath("icons.log").c_str(), 1);
    ASSERT_EQ(chdir(dataDir().c_str()), 0);  // where the callback library is looked for
  }
  void TearDown() override {
    table.reset();
    platform::KepOMSetProvider(nullptr);
    IsolatedTest::TearDown();
  }

  static ALRTEVENT_CLASSREC eventClass(const char *name, std::uint32_t eventId,
                                       std::uint32_t severity = 2) {
    ALRTEVENT_CLASSREC r{};
    std::strcpy(r.EventName, name);
    r.EventID = eventId;
    r.Severity = severity;
    std::strcpy(r.Comment, "comment");
    return r;
  }
  ALRTEVENT_CLASSREC stored(const _GUID &id) {
    ALRTEVENT_CLASSREC r{};
    _GUID copy = id;
    EXPECT_EQ(table->DBAlertRecRetrieve(&copy, &r), 0u);
    return r;
  }
  void installCallbackLibrary(const char *built) {
    std::filesystem::copy_file(std::string(ALERTDB_TEST_BINARY_DIR) + "/fixtures/" + built,
                               dataPath("QALERTCB.DLL"));
  }
  std::string iconLog() { return readFile(dataPath("icons.log")); }
  void countObjectManager() {
    g_om = {};
    platform::KepOMProvider provider{};
    provider.AddInstance = countAdd;
    provider.UpdateInstance = countUpdate;
    provider.DeleteInstance = countDelete;
    platform::KepOMSetProvider(&provider);
  }

  std::unique_ptr<ProbedEventClassTable> table;
};

TEST_F(EventClassTableTest, AddDerivesColourIconFlagsAndSnmpIdentifier) {
  struct Case {
    const char *name;
    std::uint32_t eventId, severity;
    unsigned char colour;
    const char *snmp;
    std::uint32_t omFlags;
  } cases[] = {
      {"critical", 13145, 1, 3, "1.3.6.1.4.1.32473.2.17.8.9", 1},
      {"info", 70144, 4, 0, "1.3.6.1.4.1.32473.2.17.8.35", 1},
      {"odd", 73729, 7, 0, "1.3.6.1.4.1.32473.2.17.8.39", 1},
      {"minor", 5, 3, 1, "", 1},
      {"no id", 0, 2, 2, "", 0},
      {"unmirrored", 12883, 0, 0, "", 0},
  };
  for (const Case &c : cases) {
    ALRTEVENT_CLASSREC r = eventClass(c.name, c.eventId, c.severity);
    _GUID id{};
    ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u) << c.name;
    ALRTEVENT_CLASSREC s = stored(id);
    EXPECT_EQ(s.SeverityColor, c.colour) << c.name;
    EXPECT_STREQ(s.SNMP_OID, c.snmp) << c.name;
    EXPECT_EQ(std::memcmp(&s.Icon, &s.KEPOID, 16), 0) << c.name;
    EXPECT_EQ(table->omFlags(), c.omFlags) << c.name;
  }
  // A given identifier is kept; the three-argument add fills none.
  ALRTEVENT_CLASSREC given = eventClass("given", 13145);
  std::strcpy(given.SNMP_OID, "1.2.3");
  ALRTEVENT_CLASSREC plain = eventClass("plain", 13145);
  _GUID a{}, b{};
  ASSERT_EQ(table->DBAlertRecAdd(&given, &a), 0u);
  ASSERT_EQ(table->DBAlertRecAdd(&plain, &b, 0), 0u);
  EXPECT_STREQ(stored(a).SNMP_OID, "1.2.3");
  EXPECT_STREQ(stored(b).SNMP_OID, "");
}

TEST_F(EventClassTableTest, ParameterCountAboveTwentyIsRefused) {
  ALRTEVENT_CLASSREC r = eventClass("params", 1);
  r.NumParam = 21;
  _GUID id{};
  EXPECT_EQ(table->DBAlertRecAdd(&r, &id), ALRT_E_TOOLARGE);
  EXPECT_EQ(table->DBAlertRecAdd(&r, &id, 0), ALRT_E_TOOLARGE);
  ALRTEVENT_CLASSREC none{};
  EXPECT_EQ(table->DBAlertRecFindFirst(1, 0, nullptr, &none), ALRT_E_NOTFOUND);
  r.NumParam = 20;
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u);
  r.NumParam = 0xFFFFFFFF;
  EXPECT_EQ(table->DBAlertRecUpdate(&r), ALRT_E_TOOLARGE);
  EXPECT_EQ(std::uint32_t{stored(id).NumParam}, 20u);
  EXPECT_EQ(table->DBAlertRecAdd(nullptr, &id), ALRT_E_INVALIDPARAM);
}

TEST_F(EventClassTableTest, EventNamesAreUnique) {
  ALRTEVENT_CLASSREC first = eventClass("same", 1), second = eventClass("same", 2);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&first, &id), 0u);
  EXPECT_EQ(table->DBAlertRecAdd(&second, &id), ALRT_E_ADDFAILED);
}

TEST_F(EventClassTableTest, UpdatesSignalAndTellTheObjectManagerOnlyWhenSomethingChanged) {
  ALRTEVENT_CLASSREC r = eventClass("watched", 7, 1);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u);
  countObjectManager();
  ChangeEventWatch watch;
  watch.reset();
  ALRTEVENT_CLASSREC same = stored(id);
  EXPECT_EQ(table->DBAlertRecUpdate(&same), 0u);
  EXPECT_FALSE(watch.signalled());
  EXPECT_EQ(g_om.updates, 0);

  // The table recomputes the colour; a changed severity changes it.
  same.Severity = 3;
  same.SeverityColor = 99;
  EXPECT_EQ(table->DBAlertRecUpdate(&same), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_EQ(g_om.updates, 1);
  EXPECT_EQ(stored(id).SeverityColor, 1);
  EXPECT_EQ(table->omFlags(), 1u) << "updates keep the stored flags";

  g_om.updateResult = 0x80004005;
  same.Severity = 4;
  EXPECT_EQ(table->DBAlertRecUpdate(&same), ALRT_E_OMFAILED);
  EXPECT_EQ(std::uint32_t{stored(id).Severity}, 4u) << "the change stays";
}

TEST_F(EventClassTableTest, IconCallbacksAreCalledExactlyWhenTheIconIsNewOrChanged) {
  installCallbackLibrary("QALERTCB.DLL");
  ALRTEVENT_CLASSREC quiet = eventClass("two-argument", 1);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&quiet, &id), 0u);
  EXPECT_EQ(iconLog(), "") << "the two-argument add tells no library";

  ALRTEVENT_CLASSREC r = eventClass("with icon", 2);
  r.IconID = 5;
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id, 0), 0u);
  EXPECT_EQ(iconLog(), "AddEventIcon with icon 5\n");

  ALRTEVENT_CLASSREC s = stored(id);
  std::strcpy(s.Comment, "only the comment");
  ASSERT_EQ(table->DBAlertRecUpdate(&s), 0u);
  s.IconID = 6;
  ASSERT_EQ(table->DBAlertRecUpdate(&s), 0u);
  std::strcpy(s.iconfile, "alarm.ico");
  ASSERT_EQ(table->DBAlertRecUpdate(&s), 0u);
  EXPECT_EQ(iconLog(),
            "AddEventIcon with icon 5\nUpdateEventIcon with icon 6\nUpdateEventIcon with icon 6\n");
}

TEST_F(EventClassTableTest, MissingCallbackLibraryOrEntryIsSkippedAndLookedForAgain) {
  ALRTEVENT_CLASSREC r = eventClass("early", 1);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id, 0), 0u) << "no library: no error";
  installCallbackLibrary("qalertcb_add_only.so");
  ALRTEVENT_CLASSREC later = eventClass("later", 2);
  ASSERT_EQ(table->DBAlertRecAdd(&later, &id, 0), 0u);
  EXPECT_EQ(iconLog(), "AddEventIcon later 0\n") << "loaded at the next need";
  ALRTEVENT_CLASSREC s = stored(id);
  s.IconID = 9;
  EXPECT_EQ(table->DBAlertRecUpdate(&s), 0u) << "no update entry: no error";
  EXPECT_EQ(iconLog(), "AddEventIcon later 0\n");
}

TEST_F(EventClassTableTest, ObjectManagerMirrorsAddsAndDeletes) {
  ALRTEVENT_CLASSREC r = eventClass("mirrored", 1);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u);
  char name[64] = {};
  _GUID classId{};
  ASSERT_EQ(platform::KepOMGetInstance(&id, &classId, name, sizeof name), 0u);
  EXPECT_STREQ(name, "EVENT_CLASS");
  EXPECT_EQ(std::memcmp(&classId, &platform::kClassIdEventClass, 16), 0);
  ASSERT_EQ(table->DBAlertRecDelete(&id), 0u);
  EXPECT_NE(platform::KepOMGetInstance(&id, nullptr, nullptr, 0), 0u);

  // The second delete form leaves the instance.
  ALRTEVENT_CLASSREC kept = eventClass("kept", 2);
  ASSERT_EQ(table->DBAlertRecAdd(&kept, &id), 0u);
  ASSERT_EQ(table->DBAlertRecDelete(&id, 0), 0u);
  EXPECT_EQ(platform::KepOMGetInstance(&id, nullptr, nullptr, 0), 0u);

  // Refusals come after the record is stored.
  countObjectManager();
  g_om.addResult = 0x80004005;
  ALRTEVENT_CLASSREC refused = eventClass("refused", 3);
  EXPECT_EQ(table->DBAlertRecAdd(&refused, &id), ALRT_E_OMFAILED);
  EXPECT_EQ(std::uint32_t{stored(id).EventID}, 3u);
  ALRTEVENT_CLASSREC raw = eventClass("raw", 4);
  EXPECT_EQ(table->DBAlertRecAdd(&raw, &id, 0), 0x80004005u);
}

TEST_F(EventClassTableTest, LinksAreAddedOnRequestAndGoWithTheirEventClass) {
  ALRTEVENT_CLASSREC a = eventClass("a", 1), b = eventClass("b", 2);
  _GUID idA{}, idB{};
  ASSERT_EQ(table->DBAlertRecAdd(&a, &idA), 0u);
  ASSERT_EQ(table->DBAlertRecAdd(&b, &idB), 0u);
  _GUID r1 = makeId(0x31), r2 = makeId(0x32), unknown = makeId(0x77);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idA, &r1), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idA, &r2), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idB, &r1), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idA, &r1), ALRT_E_LINKEXISTS);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&unknown, &r1), ALRT_E_NOTFOUND);
  EXPECT_EQ(table->QALRTEventClassAddResponse(nullptr, &r1), ALRT_E_INVALIDPARAM);

  ASSERT_EQ(table->DBAlertRecDelete(&idA), 0u);
  CAlertEVENT_RESPDB links;
  ASSERT_EQ(links.DBOpen(), 0u);
  ALRTEVENT_RESPREC link{};
  int count = 0;
  for (std::uint32_t s = links.DBAlertRecFindFirst(42, 0, nullptr, &link); s == 0;
       s = links.DBAlertRecFindNext(&link)) {
    EXPECT_EQ(std::memcmp(&link.EventClassOID, &idB, 16), 0);
    ++count;
  }
  EXPECT_EQ(count, 1) << "only the other class's link is left";
}

TEST_F(EventClassTableTest, CreateRegistersTheQueryTypesAndTheViewIsFixed) {
  platform::StoreTableInfo info;
  ASSERT_EQ(platform::QDBTableInfo(table->m_hTable, "EVENT_CLASS", &info), 0u);
  EXPECT_EQ(info.title, "Registered Events Table");
  EXPECT_EQ(info.fields[6].queryType, "QInfo_Svrty");
  EXPECT_EQ(info.fields[24].name, "OMFlags");
  std::vector<std::string> expected = {"Icon", "EventName", "SeverityColor", "Product", "Comment"};
  ASSERT_EQ(table->GetNoDefFlds(), expected.size());
  for (unsigned i = 0; i < expected.size(); ++i) {
    EXPECT_STREQ(table->GetDefFldView()[i].pszName, expected[i].c_str());
  }
}

}  // namespace
