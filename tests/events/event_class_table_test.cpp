#include "events/event_class_table.h"

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "framework/link_table_probe.h"
#include "platform/object_manager.h"
#include "support/created_table_test.h"
#include "support/refusing_object_manager.h"
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

class EventClassTableTest : public alertdb_test::CreatedTableTest<ProbedEventClassTable> {
 protected:
  void SetUp() override {
    CreatedTableTest::SetUp();
    setenv("ALERTDB_TEST_ICON_LOG", dataPath("icons.log").c_str(), 1);
    ASSERT_EQ(chdir(dataDir().c_str()), 0);  // where the callback library is looked for
  }

  static ALRTEVENT_CLASSREC eventClass(const char *name, std::uint32_t eventId,
                                       std::uint32_t severity = 2) {
    ALRTEVENT_CLASSREC r{};
    std::strcpy(r.EventName, name);
    r.EventID = eventId;
    r.Severity = severity;
    return r;
  }
  ALRTEVENT_CLASSREC stored(_GUID id) {
    ALRTEVENT_CLASSREC r{};
    EXPECT_EQ(table->DBAlertRecRetrieve(&id, &r), 0u);
    return r;
  }
  void installCallbackLibrary(const char *built) {
    std::filesystem::copy_file(std::string(ALERTDB_TEST_BINARY_DIR) + "/fixtures/" + built,
                               dataPath("QALERTCB.DLL"));
  }
  std::string iconLog() { return readFile(dataPath("icons.log")); }
};

TEST_F(EventClassTableTest, AddDerivesColourIconFlagsAndSnmpIdentifier) {
  // {event ID, severity, colour, SNMP identifier, object manager flags}
  for (auto [eventId, severity, colour, snmp, omFlags] :
       {std::tuple<std::uint32_t, std::uint32_t, int, const char *, std::uint32_t>{
            13145, 1, 3, "1.3.6.1.4.1.32473.2.17.8.9", 1},
        {73729, 7, 0, "1.3.6.1.4.1.32473.2.17.8.39", 1},
        {5, 3, 1, "", 1},
        {0, 2, 2, "", 0},
        {12883, 0, 0, "", 0}}) {
    ALRTEVENT_CLASSREC r = eventClass(std::to_string(eventId).c_str(), eventId, severity);
    _GUID id{};
    ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u) << eventId;
    ALRTEVENT_CLASSREC s = stored(id);
    EXPECT_EQ(s.SeverityColor, colour) << eventId;
    EXPECT_STREQ(s.SNMP_OID, snmp) << eventId;
    EXPECT_EQ(std::memcmp(&s.Icon, &s.KEPOID, 16), 0) << eventId;
    EXPECT_EQ(table->omFlags(), omFlags) << eventId;
  }
  // A given identifier is kept; the three-argument add fills none.
  ALRTEVENT_CLASSREC given = eventClass("given", 13145), plain = eventClass("plain", 13145);
  std::strcpy(given.SNMP_OID, "1.2.3");
  _GUID a{}, b{};
  ASSERT_EQ(table->DBAlertRecAdd(&given, &a), 0u);
  ASSERT_EQ(table->DBAlertRecAdd(&plain, &b, 0), 0u);
  EXPECT_STREQ(stored(a).SNMP_OID, "1.2.3");
  EXPECT_STREQ(stored(b).SNMP_OID, "");

  // The catalog names the query types; the default view is fixed.
  platform::StoreTableInfo info;
  ASSERT_EQ(platform::QDBTableInfo(table->m_hTable, "EVENT_CLASS", &info), 0u);
  EXPECT_EQ(info.title, "Registered Events Table");
  EXPECT_EQ(info.fields[6].queryType, "QInfo_Svrty");
  EXPECT_EQ(info.fields[24].name, "OMFlags");
  std::vector<std::string> view;
  for (unsigned i = 0; i < table->GetNoDefFlds(); ++i) {
    view.push_back(table->GetDefFldView()[i].pszName);
  }
  EXPECT_EQ(view,
            (std::vector<std::string>{"Icon", "EventName", "SeverityColor", "Product", "Comment"}));
}

TEST_F(EventClassTableTest, TooManyParametersAndRepeatedNamesAreRefused) {
  ALRTEVENT_CLASSREC r = eventClass("params", 1);
  r.NumParam = 21;
  _GUID id{};
  EXPECT_EQ(table->DBAlertRecAdd(&r, &id), ALRT_E_TOOLARGE);
  EXPECT_EQ(table->DBAlertRecAdd(&r, &id, 0), ALRT_E_TOOLARGE);
  r.NumParam = 20;
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u);
  r.NumParam = 0xFFFFFFFF;
  EXPECT_EQ(table->DBAlertRecUpdate(&r), ALRT_E_TOOLARGE);
  EXPECT_EQ(std::uint32_t{stored(id).NumParam}, 20u);

  ALRTEVENT_CLASSREC same = eventClass("params", 2);
  EXPECT_EQ(table->DBAlertRecAdd(&same, &id), ALRT_E_ADDFAILED);
}

TEST_F(EventClassTableTest, IconCallbacksAreCalledExactlyWhenTheIconIsNewOrChanged) {
  installCallbackLibrary("QALERTCB.DLL");
  ALRTEVENT_CLASSREC quiet = eventClass("two-argument", 1), r = eventClass("with icon", 2);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&quiet, &id), 0u);
  EXPECT_EQ(iconLog(), "") << "the two-argument add tells no library";
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
  ALRTEVENT_CLASSREC r = eventClass("early", 1), later = eventClass("later", 2);
  _GUID id{};
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id, 0), 0u) << "no library: no error";
  installCallbackLibrary("qalertcb_add_only.so");
  ASSERT_EQ(table->DBAlertRecAdd(&later, &id, 0), 0u);
  EXPECT_EQ(iconLog(), "AddEventIcon later 0\n") << "loaded at the next need";
  ALRTEVENT_CLASSREC s = stored(id);
  s.IconID = 9;
  EXPECT_EQ(table->DBAlertRecUpdate(&s), 0u) << "no update entry: no error";
  EXPECT_EQ(iconLog(), "AddEventIcon later 0\n");
}

TEST_F(EventClassTableTest, ObjectManagerMirrorsRealChangesAndRefusesAfterStoring) {
  ALRTEVENT_CLASSREC r = eventClass("mirrored", 1), kept = eventClass("kept", 2),
                     watched = eventClass("watched", 3, 1);
  _GUID id{}, keptId{}, classId{};
  ASSERT_EQ(table->DBAlertRecAdd(&r, &id), 0u);
  ASSERT_EQ(table->DBAlertRecAdd(&kept, &keptId), 0u);
  char name[64] = {};
  ASSERT_EQ(platform::KepOMGetInstance(&id, &classId, name, sizeof name), 0u);
  EXPECT_STREQ(name, "EVENT_CLASS");
  EXPECT_EQ(std::memcmp(&classId, &platform::kClassIdEventClass, 16), 0);
  ASSERT_EQ(table->DBAlertRecDelete(&id), 0u);
  EXPECT_NE(platform::KepOMGetInstance(&id, nullptr, nullptr, 0), 0u);
  ASSERT_EQ(table->DBAlertRecDelete(&keptId, 0), 0u);
  EXPECT_EQ(platform::KepOMGetInstance(&keptId, nullptr, nullptr, 0), 0u)
      << "the second delete form leaves the instance";

  ASSERT_EQ(table->DBAlertRecAdd(&watched, &id), 0u);
  alertdb_test::RefusingObjectManager{.add = true, .update = true}.install();
  ChangeEventWatch watch;
  watch.reset();
  ALRTEVENT_CLASSREC same = stored(id);
  EXPECT_EQ(table->DBAlertRecUpdate(&same), 0u) << "unchanged: the object manager is not asked";
  EXPECT_FALSE(watch.signalled());
  same.Severity = 3;  // the colour is derived again
  same.SeverityColor = 99;
  EXPECT_EQ(table->DBAlertRecUpdate(&same), ALRT_E_OMFAILED);
  EXPECT_TRUE(watch.signalled());
  ALRTEVENT_CLASSREC changed = stored(id);
  EXPECT_EQ(std::uint32_t{changed.Severity}, 3u) << "the change stays";
  EXPECT_EQ(changed.SeverityColor, 1);
  EXPECT_EQ(table->omFlags(), 1u) << "updates keep the stored flags";

  ALRTEVENT_CLASSREC refused = eventClass("refused", 4), raw = eventClass("raw", 5);
  EXPECT_EQ(table->DBAlertRecAdd(&refused, &id), ALRT_E_OMFAILED);
  EXPECT_EQ(std::uint32_t{stored(id).EventID}, 4u) << "stored all the same";
  EXPECT_EQ(table->DBAlertRecAdd(&raw, &id, 0), alertdb_test::kRefused);
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

  // Deleted and added again under its ID, the class has no links left.
  ASSERT_EQ(table->DBAlertRecDelete(&idA), 0u);
  ASSERT_EQ(table->DBAlertRecAdd(&a, &idA), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idA, &r1), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idA, &r2), 0u);
  EXPECT_EQ(table->QALRTEventClassAddResponse(&idB, &r1), ALRT_E_LINKEXISTS);
}

}  // namespace
