#include "platform/profile.h"

#include <string>

#include "support/test_environment.h"

using namespace platform;

namespace {

class ProfileTest : public alertdb_test::IsolatedTest {
 protected:
  std::string get(const char *section, const char *key, const char *def = "dflt",
                  std::uint32_t size = 260) {
    char buffer[260] = "untouched";
    last = ProfileGetString(section, key, def, buffer, size, file().c_str());
    return buffer;
  }
  std::string file() { return dataPath("QADMIN.INI"); }
  std::uint32_t last = 0;
};

TEST_F(ProfileTest, NamesMatchWithoutCaseAndValuesAreTrimmed) {
  writeFile(file(),
            "; a comment line\n"
            "[Directories]\n"
            "  DataDir   =   /srv/alert data   \n"
            "[Alert Log Purge Settings]\n"
            "PurgeEventLogDays=30 ; inline comment\n"
            "purgeeventlogdays=99\n"
            "Empty=\n");
  EXPECT_EQ(get("directories", "DATADIR"), "/srv/alert data");
  EXPECT_EQ(last, 1u);
  EXPECT_EQ(get("ALERT LOG PURGE SETTINGS", "PurgeEventLogDays"), "30") << "first one wins";
  EXPECT_EQ(get("Directories", "Missing"), "dflt");
  EXPECT_EQ(get("Nowhere", "DataDir"), "dflt");
  EXPECT_EQ(get("Alert Log Purge Settings", "Empty"), "dflt");
  EXPECT_EQ(get("Directories", "Missing", nullptr), "");
  EXPECT_EQ(last, 0u);
  EXPECT_EQ(get("Directories", "DataDir", "", 5), "/srv") << "cut to the buffer";
}

TEST_F(ProfileTest, MissingFileGivesTheDefaults) {
  EXPECT_EQ(get("Directories", "DataDir", ""), "");
  EXPECT_EQ(last, 0u);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Encrypt Passwords", 1, file().c_str()), 1);
  char buffer[4] = "abc";
  EXPECT_EQ(ProfileGetString("a", "b", "x", buffer, 0, file().c_str()), 0u);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(ProfileGetString("a", "b", "x", nullptr, 10, file().c_str()), 0u);
}

TEST_F(ProfileTest, NumbersAreReadLikeAtoi) {
  writeFile(dataPath("qadmin.ini"),
            "[Alert Service]\n"
            "Encrypt Passwords=0\n"
            "Negative=-5\n"
            "Trailing=12abc\n"
            "Text=yes\n"
            "Empty=\n");
  const std::string f = file();  // found whatever the case of its name
  EXPECT_EQ(ProfileGetInt("alert service", "encrypt passwords", 1, f.c_str()), 0);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Negative", 1, f.c_str()), -5);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Trailing", 1, f.c_str()), 12);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Text", 1, f.c_str()), 0);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Empty", 7, f.c_str()), 7);
  EXPECT_EQ(ProfileGetInt("Alert Service", "Absent", 7, f.c_str()), 7);
}

}  // namespace
