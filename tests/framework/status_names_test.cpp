// Every status the tables return has a name and a meaning for people.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "alertdb.h"

namespace {

TEST(StatusNamesTest, EveryLibraryStatusHasItsOwnNameAndAMeaning) {
  const std::uint32_t statuses[] = {
      ALRT_E_NOMEMORY,       ALRT_E_INITFAILED,    ALRT_E_OPENFAILED,    ALRT_E_ADDFAILED,
      ALRT_E_INVALIDPARAM,   ALRT_E_TOOLARGE,      ALRT_E_NOTFOUND,      ALRT_E_READFAILED,
      ALRT_E_NOTOPEN,        ALRT_E_SCHEMAENTRY,   ALRT_E_SCHEMASTRINGS, ALRT_E_NOOID,
      ALRT_E_UPDATEFAILED,   ALRT_E_NOTABLE,       ALRT_E_NOUSERTABLE,   ALRT_E_EXCEPTION,
      ALRT_E_ALTOPEN,        ALRT_E_OMFAILED,      ALRT_E_OMOPEN,        ALRT_E_PROTECTED,
      ALRT_E_BADSERVICETYPE, ALRT_E_NOSERVICETYPE, ALRT_E_NODATADIR,     ALRT_E_LINKEXISTS};
  std::set<std::string> names;
  for (std::uint32_t status : statuses) {
    std::string name = AlertDBStatusName(status);
    EXPECT_EQ(name.rfind("ALRT_E_", 0), 0u) << std::hex << status;
    EXPECT_GT(std::strlen(AlertDBStatusDescription(status)), 10u) << name;
    names.insert(name);
  }
  EXPECT_EQ(names.size(), std::size(statuses));
  EXPECT_STREQ(AlertDBStatusName(ALRT_E_NOTFOUND), "ALRT_E_NOTFOUND");
  EXPECT_STREQ(AlertDBStatusName(ALRT_E_LINKEXISTS), "ALRT_E_LINKEXISTS");
}

TEST(StatusNamesTest, RawStoreResultsSuccessAndUnknownValues) {
  EXPECT_STREQ(AlertDBStatusName(0), "ALRT_OK");
  EXPECT_STREQ(AlertDBStatusName(platform::QDB_E_BUSY), "QDB_E_BUSY");
  EXPECT_STREQ(AlertDBStatusName(platform::QDB_E_DAMAGED), "QDB_E_DAMAGED");
  EXPECT_STREQ(AlertDBStatusName(ALRT_NOTABLE_LOW), "ALRT_E_NOTABLE");
  EXPECT_STREQ(AlertDBStatusName(0x12345), "UNKNOWN");
  EXPECT_STREQ(AlertDBStatusDescription(0x12345), "not a status of this library");
}

}  // namespace
