#include "responses/response_table.h"

#include <cstring>
#include <memory>
#include <string>

#include "recipients/recipient_test_support.h"
#include "responses/response_results_table.h"
#include "services/service_test_support.h"
#include "support/test_environment.h"

using alertdb_test::addResponse;
using alertdb_test::addService;
using alertdb_test::ChangeEventWatch;
using alertdb_test::countByKey;
using alertdb_test::makeId;
using alertdb_test::response;
using alertdb_test::stored;

namespace {

// {6E2B40xx-3C95-4D7E-8A16-000000000001}
_GUID testResponseId(std::uint32_t lastDigits) {
  return {0x6E2B4000 | lastDigits, 0x3C95, 0x4D7E, {0x8A, 0x16, 0, 0, 0, 0, 0, 0x01}};
}

class ResponseTableTest : public alertdb_test::RecipientTablesTest {
 protected:
  ALERTRESPREC read(_GUID id) {
    ALERTRESPREC r{};
    EXPECT_EQ(responses->DBAlertRecRetrieve(&id, &r), 0u);
    return r;
  }
  int rows() { return alertdb_test::rowCount(*responses); }
};

TEST_F(ResponseTableTest, ServiceResponsesTakeTheirTypeFromTheCatalogue) {
  _GUID smtp = addService(*catalogue, "mail"), launch = addService(*catalogue, "launch", 14);
  ALERTRESPREC r = response("mail", makeId(1), smtp), l = response("launch", makeId(1), launch);
  r.Type = l.Type = 0x0101;  // other bits are kept
  r.ServiceType = l.ServiceType = 99;
  _GUID id{}, launchId{};
  ASSERT_EQ(responses->DBAlertRecAdd(&r, &id), 0u);
  ASSERT_EQ(responses->DBAlertRecAdd(&l, &launchId), 0u);
  EXPECT_EQ(std::uint32_t{read(id).ServiceType}, 5u);
  EXPECT_EQ(std::uint32_t{read(id).Type}, 0x0101u);
  EXPECT_EQ(std::uint32_t{read(launchId).ServiceType}, 14u);

  ALERTRESPREC unknown = response("unknown", makeId(1), makeId(0x66));
  unknown.Type = 1;
  EXPECT_EQ(responses->DBAlertRecAdd(&unknown, &id), ALRT_E_NOSERVICETYPE);
  EXPECT_EQ(rows(), 2) << "nothing stored";
  ALERTRESPREC none{};
  EXPECT_EQ(responses->DBAlertRecAdd(nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(responses->DBAlertRecAdd(&none, &id), 0u) << "the zero record is a valid response";
}

TEST_F(ResponseTableTest, ACatalogueThatCannotBeOpenedFailsEveryServiceAddOfTheObject) {
  _GUID smtp = addService(*catalogue, "mail");
  catalogue.reset();
  const std::string path = dataPath("AlServdb.dat");
  ASSERT_EQ(std::rename(path.c_str(), (path + ".away").c_str()), 0);
  ALERTRESPREC r = response("mail", makeId(1), smtp);
  r.Type = 1;
  _GUID id{};
  EXPECT_EQ(responses->DBAlertRecAdd(&r, &id), ALRT_E_NOSERVICETYPE);
  EXPECT_FALSE(fileExists(path)) << "a lookup creates no catalogue";
  ASSERT_EQ(std::rename((path + ".away").c_str(), path.c_str()), 0);
  EXPECT_EQ(responses->DBAlertRecAdd(&r, &id), ALRT_E_NOSERVICETYPE) << "the open is not retried";
  CAlertRespDB fresh;
  ASSERT_EQ(fresh.DBOpen(), 0u);
  EXPECT_EQ(fresh.DBAlertRecAdd(&r, &id), 0u);
  EXPECT_EQ(rows(), 1);
}

TEST_F(ResponseTableTest, AResponseWithoutTargetGetsTheDefaultTarget) {
  ALERTRESPREC plain{}, ars{}, targeted{};
  std::strcpy(plain.Name, "plain");
  std::strcpy(ars.Name, "ars");
  std::strcpy(ars.InstActionRunDLLName, "ars.qnl");
  ars.ServiceType = 7;
  std::strcpy(targeted.Name, "targeted");
  std::strcpy(targeted.Target, "operator");
  std::strcpy(targeted.InstActionRunDLLName, "ARS.QNL");
  _GUID plainId{}, arsId{}, targetedId{};
  ASSERT_EQ(responses->DBAlertRecAdd(&plain, &plainId), 0u);
  ASSERT_EQ(responses->DBAlertRecAdd(&ars, &arsId), 0u);
  ASSERT_EQ(responses->DBAlertRecAdd(&targeted, &targetedId), 0u);
  EXPECT_STREQ(read(plainId).Target, "None");
  EXPECT_EQ(std::uint32_t{read(plainId).Type}, 0u);
  EXPECT_STREQ(read(arsId).Target, "None");
  EXPECT_EQ(std::uint32_t{read(arsId).Type}, 1u);
  EXPECT_EQ(std::uint32_t{read(arsId).ServiceType}, 7u) << "no catalogue lookup";
  EXPECT_STREQ(read(targetedId).Target, "operator");
  EXPECT_EQ(std::uint32_t{read(targetedId).Type}, 0u);
  EXPECT_STREQ(plain.Target, "None") << "the caller's record as stored";
}

TEST_F(ResponseTableTest, TestAndProtectedResponsesAreNotDeleted) {
  for (std::uint32_t digits = 0x53; digits <= 0x61; ++digits) {
    _GUID id = testResponseId(digits);
    EXPECT_EQ(responses->DBAlertRecDelete(&id), ALRT_E_PROTECTED) << "not stored: " << digits;
  }
  ALERTRESPREC test = response("test", makeId(1), makeId(2));
  test.KEPOID = testResponseId(0x58);
  addResponse(*responses, test);
  EXPECT_EQ(responses->DBAlertRecDelete(&test.KEPOID), ALRT_E_PROTECTED);
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, test.KEPOID));

  ALERTRESPREC guarded = response("guarded", makeId(1), addService(*catalogue, "mail"));
  guarded.Type = 0x4001;
  guarded.KEPOID = makeId(0x40);
  addResponse(*responses, guarded);
  EXPECT_EQ(responses->DBAlertRecDelete(&guarded.KEPOID), ALRT_E_PROTECTED);
  EXPECT_TRUE(stored<ALERTRESPREC>(*responses, guarded.KEPOID));

  // Their neighbours in ID order are ordinary responses.
  for (std::uint32_t digits : {0x52u, 0x62u}) {
    ALERTRESPREC near = response("near " + std::to_string(digits), makeId(1), makeId(2));
    near.KEPOID = testResponseId(digits);
    addResponse(*responses, near);
    EXPECT_EQ(responses->DBAlertRecDelete(&near.KEPOID), 0u) << digits;
  }
  _GUID unknown = makeId(0x77);
  std::uint32_t missing = responses->DBAlertRecDelete(&unknown);
  EXPECT_NE(missing, 0u);
  EXPECT_LT(missing, 0x10000u) << "the record store's own result";
  EXPECT_EQ(responses->DBAlertRecDelete(nullptr), ALRT_E_INVALIDPARAM);
}

TEST_F(ResponseTableTest, DeletingAResponseRemovesItsLinksAndKeepsItsResults) {
  _GUID a = addResponse(*responses, response("a", makeId(1), makeId(2)));
  _GUID b = addResponse(*responses, response("b", makeId(1), makeId(2)));
  CAlertEVENT_RESPDB links;
  ASSERT_EQ(links.DBOpen(), 0u);
  // Links of both responses to three event classes, added in mixed order.
  for (unsigned char eventClass : {3, 1, 2}) {
    for (const _GUID &r : {b, a}) {
      ALRTEVENT_RESPREC link{};
      link.EventClassOID = makeId(eventClass);
      link.ResponseOID = r;
      _GUID id{};
      ASSERT_EQ(links.DBAlertRecAdd(&link, &id), 0u);
    }
  }
  CAlertRespResultsDB results;
  ASSERT_EQ(results.DBCreate(), 0u);
  ALERTRESPRESULTREC result{};
  result.ResponseOID = a;
  _GUID resultId{};
  ASSERT_EQ(results.DBAlertRecAdd(&result, &resultId), 0u);

  ChangeEventWatch watch;
  watch.reset();
  ASSERT_EQ(responses->DBAlertRecDelete(&a), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_FALSE(stored<ALERTRESPREC>(*responses, a));
  EXPECT_EQ(countByKey(links, CAlertEVENT_RESPDB::kResponseKey, a, &ALRTEVENT_RESPREC::ResponseOID),
            0);
  EXPECT_EQ(countByKey(links, CAlertEVENT_RESPDB::kResponseKey, b, &ALRTEVENT_RESPREC::ResponseOID),
            3);
  EXPECT_TRUE(stored<ALERTRESPRESULTREC>(results, resultId));
}

TEST_F(ResponseTableTest, AnUnavailableLinkTableIsReportedAndThenKeptUnopened) {
  _GUID a = addResponse(*responses, response("a", makeId(1), makeId(2)));
  _GUID b = addResponse(*responses, response("b", makeId(1), makeId(2)));
  const std::string links = dataPath("AlEvntdb.dat");
  ASSERT_EQ(std::rename(links.c_str(), (links + ".away").c_str()), 0);
  writeFile(links, "not a record store");
  EXPECT_EQ(responses->DBAlertRecDelete(&a), ALRT_E_OPENFAILED);
  EXPECT_FALSE(stored<ALERTRESPREC>(*responses, a)) << "the response is gone all the same";
  EXPECT_EQ(readFile(links), "not a record store");
  EXPECT_EQ(responses->DBAlertRecDelete(&b), 0u) << "later deletes remove no links";
}

TEST_F(ResponseTableTest, EveryUpdateOfATestResponseIsSignalled) {
  ALERTRESPREC test = response("test", makeId(1), makeId(2));
  test.KEPOID = testResponseId(0x53);
  addResponse(*responses, test);
  _GUID other = addResponse(*responses, response("other", makeId(1), makeId(2)));
  ChangeEventWatch watch;

  ALERTRESPREC same = read(other);
  watch.reset();
  EXPECT_EQ(responses->DBAlertRecUpdate(&same), 0u);
  EXPECT_FALSE(watch.signalled()) << "unchanged";
  same = read(test.KEPOID);
  watch.reset();
  EXPECT_EQ(responses->DBAlertRecUpdate(&same), 0u);
  EXPECT_TRUE(watch.signalled()) << "a test response, unchanged";

  ALERTRESPREC missing = response("missing", makeId(1), makeId(2));
  missing.KEPOID = testResponseId(0x61);
  watch.reset();
  EXPECT_EQ(responses->DBAlertRecUpdate(&missing), ALRT_E_NOTFOUND);
  EXPECT_TRUE(watch.signalled()) << "a test response, not even stored";
  missing.KEPOID = makeId(0x70);
  watch.reset();
  EXPECT_EQ(responses->DBAlertRecUpdate(&missing), ALRT_E_NOTFOUND);
  EXPECT_FALSE(watch.signalled());

  same = read(other);
  std::strcpy(same.Msg, "changed %s");
  EXPECT_EQ(responses->DBAlertRecUpdate(&same), 0u);
  EXPECT_TRUE(watch.signalled());
  EXPECT_STREQ(read(other).Msg, "changed %s");
}

TEST_F(ResponseTableTest, TheRecordKeepsTheCallersTableNameInAnyFile) {
  CAlertRespDB named("Other.dat", "Night_Responses"), unnamed("Other.dat", nullptr);
  ASSERT_EQ(named.DBCreate(), 0u);
  ASSERT_EQ(unnamed.DBCreate(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("Other.dat"), "Night_Responses"));
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("Other.dat"), "AlertResp_Table"));
  platform::StoreTableInfo own =
      alertdb_test::tableInfo(dataPath("AlRespDB.dat"), "AlertResp_Table");
  platform::StoreTableInfo other =
      alertdb_test::tableInfo(dataPath("Other.dat"), "Night_Responses");
  ASSERT_EQ(own.fields.size(), 25u);
  EXPECT_EQ(own.title, "Response Table");
  std::uint32_t recordBytes = 0;
  for (std::size_t i = 0; i < own.fields.size(); ++i) {
    EXPECT_EQ(other.fields[i].name, own.fields[i].name);
    EXPECT_EQ(other.fields[i].size, own.fields[i].size);
    if (i < 22) recordBytes += own.fields[i].size;
  }
  EXPECT_EQ(recordBytes, sizeof(ALERTRESPREC));
  EXPECT_EQ(own.fields[23].name, "Domain_Id");

  ALERTRESPREC r = response("night", makeId(1), makeId(2));
  _GUID id{};
  ASSERT_EQ(named.DBAlertRecAdd(&r, &id), 0u);
  CAlertRespDB copy(named);  // a copy names the same table
  ASSERT_EQ(copy.DBOpen(), 0u);
  EXPECT_TRUE(stored<ALERTRESPREC>(copy, id));
  EXPECT_FALSE(stored<ALERTRESPREC>(unnamed, id));

  const std::string longName(80, 'N');
  CAlertRespDB cut("Other.dat", longName.c_str());
  ASSERT_EQ(cut.DBCreate(), 0u);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("Other.dat"), std::string(63, 'N')));
}

}  // namespace
