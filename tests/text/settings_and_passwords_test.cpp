#include <gtest/gtest.h>

#include <algorithm>
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
using SettingsTest = alertdb_test::IsolatedTest;

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

TEST_F(SettingsTest, DataDirectoryComesFromTheConsoleSettingsOnEveryCall) {
  char buffer[260] = "untouched";
  EXPECT_EQ(GetKepDataDir(buffer), 0u) << "no QADMIN.DAT";
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nLogDir=/var/log\n");
  EXPECT_EQ(GetKepDataDir(buffer), 0u) << "no DataDir key";
  EXPECT_STREQ(buffer, "untouched");
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir = /srv/alert data \n");
  EXPECT_EQ(GetKepDataDir(buffer), 1u);
  EXPECT_STREQ(buffer, "/srv/alert data");
  writeFile(dataPath("QADMIN.DAT"), "[directories]\ndatadir=/other\n");
  EXPECT_EQ(GetKepDataDir(buffer), 1u);
  EXPECT_STREQ(buffer, "/other") << "not cached from the previous call";
  EXPECT_EQ(GetKepDataDir(nullptr), 0u);
}

TEST_F(SettingsTest, PasswordBlocksRoundTripInPlaceAndTouchNothingElse) {
  // Switches encryption on, unless this process has read the setting before.
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  const std::vector<char> clear = samplePassword();
  std::vector<char> target(64, '#');
  ASSERT_EQ(EncryptPassword(clear.data(), target.data()), 0u);
  EXPECT_EQ(std::string(target.begin() + 49, target.end()), std::string(15, '#'));
  std::vector<char> inPlace = clear;
  ASSERT_EQ(EncryptPassword(inPlace.data(), inPlace.data()), 0u);
  EXPECT_TRUE(std::equal(inPlace.begin(), inPlace.end(), target.begin()));
  ASSERT_EQ(DecryptPassword(inPlace.data(), inPlace.data()), 0u);
  EXPECT_EQ(inPlace, clear);

  EXPECT_EQ(EncryptPassword(nullptr, inPlace.data()), 0xFFFFu);
  EXPECT_EQ(DecryptPassword(nullptr, inPlace.data()), 0xFFFFu);
  EXPECT_EQ(inPlace, clear);
  EXPECT_EQ(EncryptPassword(clear.data(), nullptr), 0xFFFFu);
  EXPECT_EQ(DecryptPassword(clear.data(), nullptr), 0xFFFFu);
}

// Each child process reads the encryption setting once, at its first use.
TEST_F(SettingsTest, EncryptionSettingIsReadOnceFromTheSettingsFiles) {
  const std::string clear = toHex(samplePassword().data());
  const std::string adminSettings = dataPath("QADMIN.INI");
  auto check = [&](ChildProcess &child, const char *what, bool encrypts) {
    SCOPED_TRACE(what);
    EXPECT_TRUE(child.started());
    EXPECT_EQ(ask(child, "status"), encrypts ? "1" : "0");
    const std::string encrypted = ask(child, "encrypt " + clear);
    EXPECT_EQ(encrypted != clear, encrypts);
    EXPECT_EQ(ask(child, "decrypt " + encrypted), clear);
    return encrypted;
  };
  writeFile(adminSettings, "[Alert Service]\nEncrypt Passwords=1\n");
  ChildProcess noDataDir("settings_child", {});
  check(noDataDir, "no DataDir", false);

  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  std::remove(adminSettings.c_str());
  ChildProcess first("settings_child", {});
  const std::string encrypted = check(first, "no QADMIN.INI", true);
  writeFile(adminSettings, "[Alert Service]\nEncrypt Passwords=7\n");
  ChildProcess second("settings_child", {});
  EXPECT_EQ(check(second, "any other number", true), encrypted) << "one key in every process";

  writeFile(adminSettings, "[alert service]\n encrypt passwords = 0 ; clear\n");
  ChildProcess off("settings_child", {});
  check(off, "switched off", false);
  EXPECT_EQ(ask(off, "decrypt " + encrypted), encrypted) << "not converted";
  EXPECT_EQ(ask(first, "status"), "1") << "kept from the first read";
  EXPECT_EQ(ask(first, "encrypt " + clear), encrypted);
}

TEST(DoesVersionMatch, OnlyTheSecondWordCounts) {
  const std::uint32_t first = 0x30001;
  for (std::uint32_t version : {0x30001u, 0x30000u, 0x1000300u}) {
    unsigned char image[9];  // unaligned, with a first word that looks like a version
    std::memcpy(image + 1, &first, 4);
    std::memcpy(image + 5, &version, 4);
    EXPECT_EQ(DoesVersionMatch(image + 1), version == 0x30001u ? 0u : 0xFFFFu) << version;
  }
  EXPECT_EQ(DoesVersionMatch(nullptr), 0xFFFFu);
}

}  // namespace
