#include "platform/profile.h"

#include <string>

#include "support/test_environment.h"

using namespace platform;

namespace {

class ProfileTest : public alertdb_test::IsolatedTest {
 protected:
  // Read under another letter case than the one written: file names match without regard to it.
  std::string file() const { return dataPath("QADMIN.INI"); }
  void write(const std::string &text) const { writeFile(dataPath("qadmin.ini"), text); }

  std::string get(const char *section, const char *key, const char *def = "dflt",
                  std::uint32_t size = 260) {
    char buffer[300] = "untouched";
    result = ProfileGetString(section, key, def, buffer, size, file().c_str());
    return buffer;
  }
  std::int32_t getInt(const char *section, const char *key, std::int32_t def = 7) const {
    return ProfileGetInt(section, key, def, file().c_str());
  }

  std::uint32_t result = 0;
};

TEST_F(ProfileTest, NamesIgnoreCaseAndBlanksAndCommentsAreSkipped) {
  write(
      "\xEF\xBB\xBF[ Directories ] ; comment\r\n"
      ";DataDir=/commented\r\n"
      "  DataDir   =   /srv/alert data   ; where the stores live\r\n"
      "\tTabbed\t=\tvalue\t\nUrl=a;b\nEncrypt Passwords = 0\n");
  EXPECT_EQ(get("directories", "DATADIR"), "/srv/alert data");
  EXPECT_EQ(result, 15u);
  EXPECT_EQ(get(" Directories ", " DataDir "), "/srv/alert data");
  EXPECT_EQ(get("Directories", "Tabbed"), "value");
  EXPECT_EQ(get("Directories", ";DataDir"), "dflt");
  EXPECT_EQ(get("Directories", "Url"), "a;b") << "a ';' inside a value is no comment";
  EXPECT_EQ(getInt("DIRECTORIES", "encrypt passwords", 1), 0);
  EXPECT_EQ(get("Directories", "Encrypt  Passwords"), "dflt") << "inner blanks count";
}

TEST_F(ProfileTest, FirstOccurrenceOfAKeyWins) {
  write(
      "[Purge]\nEventDays=30\neventdays=99\n[Other]\nActivityDays=5\n"
      "[PURGE]\nEventDays=77\nActivityDays=14\n");
  EXPECT_EQ(getInt("Purge", "EventDays"), 30);
  EXPECT_EQ(getInt("Purge", "ActivityDays"), 14) << "keys of a repeated section are found";
  EXPECT_EQ(getInt("Other", "ActivityDays"), 5);
  EXPECT_EQ(getInt("Other", "EventDays"), 7);
}

TEST_F(ProfileTest, MissingOrUnreadableFileGivesTheDefault) {
  EXPECT_EQ(get("Directories", "DataDir"), "dflt");
  EXPECT_EQ(result, 4u);
  EXPECT_EQ(get("Directories", "DataDir", nullptr), "");
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(getInt("Directories", "DataDir", 1), 1);
  writeFile(dataPath("binary.ini"), std::string("\x00\xff[\x01=\n=\n[]\n", 11));
  char buffer[16];
  for (const std::string &path : {dataPath("binary.ini"), dataDir()}) {
    EXPECT_EQ(ProfileGetString("a", "b", "d", buffer, sizeof buffer, path.c_str()), 1u) << path;
    EXPECT_STREQ(buffer, "d");
  }
}

TEST_F(ProfileTest, ValuesAreUnquotedCutToTheBufferAndReadAsNumbersLikeAtoi) {
  const std::string longPath = "/srv/" + std::string(250, 'p');
  write(
      "[S]\nEmpty=\nBlank=   \nDouble=\"C:\\Program Files\"\nSingle=' padded '\nOpen=\"x\n"
      "Quoted=\"12\"\nNegative=-5\nTrailing=12abc\nText=yes\nHuge=99999999999\n"
      "HugeNegative=-99999999999\nLong=" +
      longPath + "\nOver=" + std::string(10000, 'h') + "\nAfter=ok\n");
  EXPECT_EQ(get("Nowhere", "Empty"), "dflt");
  EXPECT_EQ(get(nullptr, "Empty"), "dflt");
  EXPECT_EQ(get("S", "Missing", "default", 4), "def") << "defaults are cut too";
  EXPECT_EQ(get("S", "Blank"), "");
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(getInt("S", "Empty", 9), 9);
  EXPECT_EQ(get("S", "Double"), "C:\\Program Files");
  EXPECT_EQ(get("S", "Single"), " padded ");
  EXPECT_EQ(get("S", "Open"), "\"x");
  EXPECT_EQ(get("S", "Double", "", 4), "C:\\");
  EXPECT_EQ(result, 3u);
  char buffer[4] = "abc";
  EXPECT_EQ(ProfileGetString("S", "Double", "x", buffer, 0, file().c_str()), 0u);
  EXPECT_STREQ(buffer, "abc") << "a zero size writes nothing";
  EXPECT_EQ(get("S", "Long"), longPath);
  EXPECT_EQ(get("S", "After"), "ok") << "an overlong line does not spill into others";
  EXPECT_EQ(getInt("S", "Quoted"), 12);
  EXPECT_EQ(getInt("S", "Negative"), -5);
  EXPECT_EQ(getInt("S", "Trailing"), 12);
  EXPECT_EQ(getInt("S", "Text"), 0) << "text without digits is 0, not the default";
  EXPECT_EQ(getInt("S", "Huge"), 2147483647);
  EXPECT_EQ(getInt("S", "HugeNegative"), -2147483647 - 1);
}

}  // namespace
