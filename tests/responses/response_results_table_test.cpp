#include "responses/response_results_table.h"

#include <cstring>
#include <memory>
#include <string>

#include "recipients/recipient_test_support.h"
#include "services/service_test_support.h"
#include "support/created_table_test.h"
#include "support/table_shape_checks.h"
#include "support/test_environment.h"

using alertdb_test::countByKey;
using alertdb_test::makeId;

namespace {

class ResponseResultsTest : public alertdb_test::CreatedTableTest<CAlertRespResultsDB> {
 protected:
  _GUID addResult(unsigned char logEntry, const char *error) {
    auto r = std::make_unique<ALERTRESPRESULTREC>();
    std::memset(r.get(), 0, sizeof *r);
    r->LogEntryOID = makeId(logEntry);
    r->ResponseOID = makeId(0x50);
    r->Result = logEntry;
    std::strcpy(r->ErrorText, error);
    _GUID id{};
    EXPECT_EQ(table->DBAlertRecAdd(r.get(), &id), 0u);
    return id;
  }
};

TEST_F(ResponseResultsTest, ErrorTextIsCopiedWithItsTerminatorOrNotAtAll) {
  _GUID one = addResult(1, "x"), empty = addResult(2, "");
  char text[2049];
  std::memset(text, '#', sizeof text);
  ASSERT_EQ(table->DBGetRespResultErrorTxt(&one, text), 0u);
  EXPECT_EQ(text[0], 'x');
  EXPECT_EQ(text[1], '\0');
  EXPECT_EQ(text[2], '#') << "nothing past the terminator";
  ASSERT_EQ(table->DBGetRespResultErrorTxt(&empty, text), 0u);
  EXPECT_STREQ(text, "");

  std::memset(text, '#', sizeof text);
  _GUID unknown = makeId(0x77);
  EXPECT_EQ(table->DBGetRespResultErrorTxt(&unknown, text), ALRT_E_NOTFOUND);
  EXPECT_EQ(text[0], '#');
  EXPECT_EQ(table->DBGetRespResultErrorTxt(nullptr, text), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table->DBGetRespResultErrorTxt(&one, nullptr), ALRT_E_INVALIDPARAM);

  // The longest text fills the field.
  std::string longest(2048, 'e');
  _GUID full = addResult(3, longest.c_str());
  auto big = std::make_unique<char[]>(2049);
  ASSERT_EQ(table->DBGetRespResultErrorTxt(&full, big.get()), 0u);
  EXPECT_EQ(std::string(big.get()), longest);
}

TEST_F(ResponseResultsTest, ChangesAreSignalledOnlyWhenTheyHappen) {
  alertdb_test::expectRecordLifeAndSignals<CAlertRespResultsDB>(
      {.add = true, .update = true, .remove = true}, 3);
}

TEST_F(ResponseResultsTest, ResultsAreFoundByLogEntryAndKeptUnderTheCallersTableName) {
  for (unsigned char logEntry : {2, 1, 2, 3}) addResult(logEntry, "");
  EXPECT_EQ(countByKey(*table, CAlertRespResultsDB::kLogEntryKey, makeId(2),
                       &ALERTRESPRESULTREC::LogEntryOID),
            2);
  EXPECT_EQ(countByKey(*table, CAlertRespResultsDB::kResponseKey, makeId(0x50),
                       &ALERTRESPRESULTREC::ResponseOID),
            4);

  CAlertRespResultsDB byDefault(nullptr, nullptr), named("AlRespDB.dat", "Old_Results");
  ASSERT_EQ(byDefault.DBOpen(), 0u) << "null names: the default file and table";
  ASSERT_EQ(named.DBCreate(), 0u);
  platform::StoreTableInfo info =
      alertdb_test::tableInfo(dataPath("AlRespDB.dat"), "AlertResultResp_Table");
  ASSERT_EQ(info.fields.size(), 8u);
  EXPECT_EQ(info.title, "Response Result Table");
  EXPECT_EQ(info.fields[7].flags, 0x20Du);
  EXPECT_TRUE(alertdb_test::holdsTable(dataPath("AlRespDB.dat"), "Old_Results"));
}

}  // namespace
