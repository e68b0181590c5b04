#include "platform/profile.h"

#include <string>

#include "support/test_environment.h"

using namespace platform;

namespace {

class ProfileTest : public alertdb_test::IsolatedTest {
 protected:
  std::string file() const { return dataPath("QADMIN.INI"); }
  void write(const std::string &text) const { writeFile(file(), text); }

  // The string the reader gives; its result lands in `result`.
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

TEST_F(ProfileTest, NamesMatchWithoutRegardToCaseOrBlanks) {
  write(
      "[Directories]\n"
      "DataDir=/srv/alert\n"
      "[ Alert Service ]\n"
      "Encrypt Passwords = 0\n");
  EXPECT_EQ(get("directories", "DATADIR"), "/srv/alert");
  EXPECT_EQ(result, 10u) << "the length copied";
  EXPECT_EQ(get("DIRECTORIES", "datadir"), "/srv/alert");
  EXPECT_EQ(get(" Directories ", " DataDir "), "/srv/alert");
  EXPECT_EQ(getInt("alert service", "ENCRYPT PASSWORDS", 1), 0);
  EXPECT_EQ(get("Alert Service", "Encrypt  Passwords"), "dflt") << "inner blanks count";
}

TEST_F(ProfileTest, BlanksAroundNamesAndValuesAreTrimmed) {
  write(
      "[Directories]\n"
      "  DataDir   =   /srv/alert data   \r\n"
      "\tTabbed\t=\tvalue\t\n"
      "  Indented = after another key\n"
      "Next=1\n");
  EXPECT_EQ(get("Directories", "DataDir"), "/srv/alert data") << "inner blanks stay";
  EXPECT_EQ(get("Directories", "Tabbed"), "value");
  // An indented line is a key of its own, not the continuation of the value above.
  EXPECT_EQ(get("Directories", "Indented"), "after another key");
  EXPECT_EQ(get("Directories", "Tabbed"), "value");
  EXPECT_EQ(getInt("Directories", "Next"), 1);
}

TEST_F(ProfileTest, CommentsAreNotSettings) {
  write(
      "; DataDir=/commented\n"
      "[Directories]\n"
      ";DataDir=/also/commented\n"
      "DataDir=/srv/alert ; where the stores live\n"
      "Url=a;b\n"
      "[Other] ; a section with a comment\n"
      "Key=v\n");
  EXPECT_EQ(get("Directories", "DataDir"), "/srv/alert");
  EXPECT_EQ(get("Directories", ";DataDir"), "dflt");
  EXPECT_EQ(get("Directories", "Url"), "a;b") << "a ';' inside a value is no comment";
  EXPECT_EQ(get("Other", "Key"), "v");
}

TEST_F(ProfileTest, FirstOccurrenceOfAKeyWins) {
  write(
      "[Alert Log Purge Settings]\n"
      "PurgeEventLogDays=30\n"
      "purgeeventlogdays=99\n"
      "[Other]\n"
      "PurgeActivityDays=5\n"
      "[ALERT LOG PURGE SETTINGS]\n"
      "PurgeEventLogDays=77\n"
      "PurgeActivityDays=14\n");
  EXPECT_EQ(getInt("Alert Log Purge Settings", "PurgeEventLogDays"), 30);
  EXPECT_EQ(getInt("Alert Log Purge Settings", "PurgeActivityDays"), 14)
      << "a key only in the repeated section is still found";
  EXPECT_EQ(getInt("Other", "PurgeActivityDays"), 5) << "sections keep their own keys";
  EXPECT_EQ(getInt("Other", "PurgeEventLogDays"), 7);
}

TEST_F(ProfileTest, MissingFileSectionOrKeyGivesTheDefault) {
  EXPECT_EQ(get("Directories", "DataDir"), "dflt") << "no file";
  EXPECT_EQ(result, 4u);
  EXPECT_EQ(get("Directories", "DataDir", ""), "");
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(get("Directories", "DataDir", nullptr), "") << "null default is empty";
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(getInt("Alert Service", "Encrypt Passwords", 1), 1);

  write("[Directories]\nDataDir=/srv\n");
  EXPECT_EQ(get("Nowhere", "DataDir"), "dflt");
  EXPECT_EQ(get("Directories", "Missing"), "dflt");
  EXPECT_EQ(get(nullptr, "DataDir"), "dflt");
  EXPECT_EQ(get("Directories", nullptr), "dflt");
  char buffer[8] = "x";
  EXPECT_EQ(ProfileGetString("Directories", "DataDir", "dflt", buffer, 8, nullptr), 4u);
  EXPECT_STREQ(buffer, "dflt");
  EXPECT_EQ(ProfileGetInt("Directories", "DataDir", 3, nullptr), 3);
}

TEST_F(ProfileTest, DirectoryOrGarbageInPlaceOfTheFileGivesTheDefault) {
  static const char garbage[] = "\x00\xff[\x01=\n=\n[]\n";
  writeFile(dataPath("binary.ini"), std::string(garbage, sizeof garbage - 1));
  char buffer[16];
  EXPECT_EQ(ProfileGetString("a", "b", "d", buffer, sizeof buffer, dataPath("binary.ini").c_str()),
            1u);
  EXPECT_EQ(ProfileGetString("a", "b", "d", buffer, sizeof buffer, dataDir().c_str()), 1u);
  EXPECT_STREQ(buffer, "d");
}

TEST_F(ProfileTest, EmptyValueIsEmptyTextButNoNumber) {
  write(
      "[S]\n"
      "Empty=\n"
      "Blank=   \n"
      "Quoted=\"\"\n");
  EXPECT_EQ(get("S", "Empty"), "");
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(get("S", "Blank"), "");
  EXPECT_EQ(get("S", "Quoted"), "");
  EXPECT_EQ(getInt("S", "Empty", 9), 9);
  EXPECT_EQ(getInt("S", "Blank", 9), 9);
  EXPECT_EQ(getInt("S", "Quoted", 9), 9);
}

TEST_F(ProfileTest, QuotesAroundAValueAreDropped) {
  write(
      "[S]\n"
      "Double=\"C:\\Program Files\"\n"
      "Single=' padded '\n"
      "Unbalanced=\"open\n"
      "Inner=a \"b\" c\n"
      "Number=\"12\"\n");
  EXPECT_EQ(get("S", "Double"), "C:\\Program Files");
  EXPECT_EQ(get("S", "Single"), " padded ");
  EXPECT_EQ(get("S", "Unbalanced"), "\"open");
  EXPECT_EQ(get("S", "Inner"), "a \"b\" c");
  EXPECT_EQ(getInt("S", "Number"), 12);
}

TEST_F(ProfileTest, NumbersAreReadLikeAtoi) {
  write(
      "[Alert Service]\n"
      "Encrypt Passwords=0\n"
      "Negative=-5\n"
      "Plus=+8\n"
      "Trailing=12abc\n"
      "Spaced=3 4\n"
      "Text=yes\n"
      "Sign=-\n"
      "Huge=99999999999\n"
      "HugeNegative=-99999999999\n"
      "Smallest=-2147483648\n");
  EXPECT_EQ(getInt("Alert Service", "Encrypt Passwords", 1), 0);
  EXPECT_EQ(getInt("Alert Service", "Negative"), -5);
  EXPECT_EQ(getInt("Alert Service", "Plus"), 8);
  EXPECT_EQ(getInt("Alert Service", "Trailing"), 12);
  EXPECT_EQ(getInt("Alert Service", "Spaced"), 3);
  EXPECT_EQ(getInt("Alert Service", "Text"), 0) << "text without digits is 0, not the default";
  EXPECT_EQ(getInt("Alert Service", "Sign"), 0);
  EXPECT_EQ(getInt("Alert Service", "Huge"), 2147483647);
  EXPECT_EQ(getInt("Alert Service", "HugeNegative"), -2147483647 - 1);
  EXPECT_EQ(getInt("Alert Service", "Smallest"), -2147483647 - 1);
  EXPECT_EQ(getInt("Alert Service", "Absent"), 7);
}

TEST_F(ProfileTest, ValueIsCutToTheBuffer) {
  write("[Directories]\nDataDir=/srv/alert\n");
  EXPECT_EQ(get("Directories", "DataDir", "", 5), "/srv");
  EXPECT_EQ(result, 4u);
  EXPECT_EQ(get("Directories", "DataDir", "", 1), "");
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(get("Directories", "Missing", "default", 4), "def") << "defaults are cut too";

  char buffer[4] = "abc";
  EXPECT_EQ(ProfileGetString("Directories", "DataDir", "x", buffer, 0, file().c_str()), 0u);
  EXPECT_STREQ(buffer, "abc") << "a zero size writes nothing";
  EXPECT_EQ(ProfileGetString("Directories", "DataDir", "x", nullptr, 10, file().c_str()), 0u);
}

TEST_F(ProfileTest, LongLinesAreReadWholeOrNotAtAll) {
  const std::string longPath = "/srv/" + std::string(250, 'p');
  write("[Directories]\nDataDir=" + longPath + "\nHuge=" + std::string(10000, 'h') +
        "\nAfter=ok\n");
  char buffer[260];
  EXPECT_EQ(ProfileGetString("Directories", "DataDir", "", buffer, 260, file().c_str()), 255u);
  EXPECT_EQ(std::string(buffer), longPath);
  EXPECT_EQ(get("Directories", "After"), "ok") << "an overlong line does not spill into others";
}

TEST_F(ProfileTest, FileNameMatchesWithoutRegardToCase) {
  writeFile(dataPath("qadmin.dat"),
            "\xEF\xBB\xBF[Directories]\r\n"
            "DataDir=/srv/alert\r\n");
  char buffer[260];
  EXPECT_EQ(ProfileGetString("Directories", "DataDir", "", buffer, sizeof buffer,
                             dataPath("QADMIN.DAT").c_str()),
            10u);
  EXPECT_STREQ(buffer, "/srv/alert") << "byte order mark and CRLF lines are read";
}

}  // namespace
