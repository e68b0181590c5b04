#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/test_environment.h"
#include "text/data_directory.h"
#include "text/password_protection.h"
#include "text/version_match.h"

namespace {

using alertdb_test::ChildProcess;

// A password with bytes after its terminator: the whole 49 bytes must survive.
std::vector<char> samplePassword() {
  std::vector<char> block(49);
  for (int i = 0; i < 49; ++i) block[i] = static_cast<char>(0x80 + i);
  std::memcpy(block.data(), "s3cret pass", 12);
  return block;
}

std::string toHex(const char *block) {
  std::string hex;
  char pair[3];
  for (int i = 0; i < 49; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(block[i]));
    hex += pair;
  }
  return hex;
}

std::string ask(ChildProcess &child, const std::string &command) {
  child.writeLine(command);
  return child.readLine();
}

class SettingsTest : public alertdb_test::IsolatedTest {
 protected:
  // The console settings file, naming the test's data directory.
  void writeConsoleSettings() {
    writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  }
  void writeAdminSettings(const std::string &text) { writeFile(dataPath("QADMIN.INI"), text); }
};

TEST_F(SettingsTest, DataDirectoryComesFromTheConsoleSettingsOnEveryCall) {
  char buffer[260] = "untouched";
  EXPECT_EQ(GetKepDataDir(buffer), 0u) << "no QADMIN.DAT";
  EXPECT_STREQ(buffer, "untouched");

  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nLogDir=/var/log\n");
  EXPECT_EQ(GetKepDataDir(buffer), 0u) << "no DataDir key";
  EXPECT_STREQ(buffer, "untouched");

  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir = /srv/alert data \n");
  EXPECT_EQ(GetKepDataDir(buffer), 1u);
  EXPECT_STREQ(buffer, "/srv/alert data");

  const std::string longest = "/" + std::string(258, 'd');
  writeFile(dataPath("QADMIN.DAT"), "[directories]\ndatadir=" + longest + "\n");
  EXPECT_EQ(GetKepDataDir(buffer), 1u) << "not cached from the previous call";
  EXPECT_EQ(std::string(buffer), longest);

  EXPECT_EQ(GetKepDataDir(nullptr), 0u);
}

TEST_F(SettingsTest, PasswordBlocksRoundTripInPlaceAndTouchNothingElse) {
  // Holds whatever the process's encryption setting is.
  const std::vector<char> clear = samplePassword();
  std::vector<char> target(64, '#');
  ASSERT_EQ(EncryptPassword(clear.data(), target.data()), 0u);
  EXPECT_EQ(std::string(target.begin() + 49, target.end()), std::string(15, '#'))
      << "exactly 49 bytes written";

  std::vector<char> inPlace = clear;
  ASSERT_EQ(EncryptPassword(inPlace.data(), inPlace.data()), 0u);
  EXPECT_EQ(toHex(inPlace.data()), toHex(target.data()));
  ASSERT_EQ(DecryptPassword(inPlace.data(), inPlace.data()), 0u);
  EXPECT_EQ(inPlace, clear);

  std::vector<char> untouched(49, 'u');
  EXPECT_EQ(EncryptPassword(nullptr, untouched.data()), 0xFFFFu);
  EXPECT_EQ(DecryptPassword(nullptr, untouched.data()), 0xFFFFu);
  EXPECT_EQ(untouched, std::vector<char>(49, 'u'));
  EXPECT_EQ(EncryptPassword(clear.data(), nullptr), 0xFFFFu);
  EXPECT_EQ(DecryptPassword(clear.data(), nullptr), 0xFFFFu);
}

TEST_F(SettingsTest, EncryptionSettingFollowsTheSettingsFiles) {
  struct Case {
    const char *what;
    bool dataDir;
    const char *adminSettings;  // null: no QADMIN.INI
    std::uint32_t expected;
  };
  const Case cases[] = {
      {"no DataDir", false, "[Alert Service]\nEncrypt Passwords=1\n", 0},
      {"no QADMIN.INI", true, nullptr, 1},
      {"key missing", true, "[Alert Service]\nOther=0\n", 1},
      {"switched off", true, "[alert service]\n encrypt passwords = 0 ; clear\n", 0},
      {"any other number", true, "[Alert Service]\nEncrypt Passwords=7\n", 1},
      {"negative", true, "[Alert Service]\nEncrypt Passwords=-1\n", 1},
  };
  const std::vector<char> clear = samplePassword();
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    std::remove(dataPath("QADMIN.DAT").c_str());
    std::remove(dataPath("QADMIN.INI").c_str());
    if (c.dataDir) writeConsoleSettings();
    if (c.adminSettings) writeAdminSettings(c.adminSettings);

    ChildProcess child("settings_child", {});
    ASSERT_TRUE(child.started());
    EXPECT_EQ(ask(child, "status"), std::to_string(c.expected));
    const std::string encrypted = ask(child, "encrypt " + toHex(clear.data()));
    ASSERT_EQ(encrypted.size(), 98u);
    if (c.expected == 1) {
      EXPECT_NE(encrypted, toHex(clear.data()));
    } else {
      EXPECT_EQ(encrypted, toHex(clear.data())) << "stored in the clear";
    }
    EXPECT_EQ(ask(child, "decrypt " + encrypted), toHex(clear.data()));
  }
}

TEST_F(SettingsTest, SettingIsReadOnceAndTheKeyIsTheSameInEveryProcess) {
  writeConsoleSettings();
  const std::string clear = toHex(samplePassword().data());

  ChildProcess first("settings_child", {});
  ASSERT_TRUE(first.started());
  EXPECT_EQ(ask(first, "threads"), "1 1 1 1 1 1 1 1 ") << "overlapping first calls";
  const std::string encrypted = ask(first, "encrypt " + clear);
  ASSERT_NE(encrypted, clear);

  ChildProcess second("settings_child", {});
  ASSERT_TRUE(second.started());
  EXPECT_EQ(ask(second, "decrypt " + encrypted), clear) << "stored by one process, read by another";

  writeAdminSettings("[Alert Service]\nEncrypt Passwords=0\n");
  EXPECT_EQ(ask(first, "status"), "1") << "kept from the first read";
  EXPECT_EQ(ask(first, "encrypt " + clear), encrypted);

  ChildProcess third("settings_child", {});
  ASSERT_TRUE(third.started());
  EXPECT_EQ(ask(third, "threads"), "0 0 0 0 0 0 0 0 ");
  EXPECT_EQ(ask(third, "decrypt " + encrypted), encrypted) << "not converted";
}

TEST(DoesVersionMatch, OnlyTheSecondWordCounts) {
  unsigned char image[16];
  for (std::uint32_t version : {0x30001u, 0x30000u, 0x30002u, 0x1000300u, 0u}) {
    SCOPED_TRACE(version);
    // Unaligned on purpose, with a first word that looks like a version.
    unsigned char *start = image + 1;
    const std::uint32_t first = 0x30001;
    std::memcpy(start, &first, 4);
    std::memcpy(start + 4, &version, 4);
    EXPECT_EQ(DoesVersionMatch(start), version == 0x30001u ? 0u : 0xFFFFu);
  }
  EXPECT_EQ(DoesVersionMatch(nullptr), 0xFFFFu);
}

}  // namespace
