// Passwords of the messaging services, as a second process sees them: each
// process reads the encryption setting once, so every case starts its own.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/test_environment.h"

using alertdb_test::ChildProcess;

namespace {

const char *const kKinds[] = {"MHS", "MCI", "COMPUS", "SMTP", "MAPI", "CCMAIL"};

std::string hexOf(const std::string &text) {
  char block[49] = {};
  std::strncpy(block, text.c_str(), 48);
  std::string hex;
  char pair[3];
  for (unsigned char c : block) {
    std::snprintf(pair, sizeof pair, "%02x", c);
    hex += pair;
  }
  return hex;
}

class ServicePasswordsTest : public alertdb_test::IsolatedTest {
 protected:
  void configure(bool encrypt) {
    writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
    writeFile(dataPath("QADMIN.INI"),
              std::string("[Alert Service]\nEncrypt Passwords=") + (encrypt ? "1" : "0") + "\n");
  }

  static std::string ask(ChildProcess &child, const std::string &command) {
    child.writeLine(command);
    return child.readLine();
  }

  static std::string secretOf(const char *kind) { return std::string(kind) + "-Pa55word!"; }

  // Adds one service of every kind with a password; their specific row IDs.
  std::vector<std::string> addAll(ChildProcess &child, bool encrypted) {
    std::vector<std::string> ids;
    for (const char *kind : kKinds) {
      SCOPED_TRACE(kind);
      std::string answer = ask(child, std::string("add ") + kind + " " + secretOf(kind));
      auto space = answer.find(' ');
      EXPECT_NE(space, std::string::npos) << answer;
      if (space == std::string::npos) return ids;
      ids.push_back(answer.substr(0, space));
      // The caller's record holds what was stored.
      EXPECT_EQ(answer.substr(space + 1) != hexOf(secretOf(kind)), encrypted);
      EXPECT_EQ(ask(child, std::string("read ") + kind + " " + ids.back()), hexOf(secretOf(kind)))
          << "read back in clear";
      EXPECT_EQ(ask(child, std::string("first ") + kind), hexOf(secretOf(kind)));
    }
    return ids;
  }

  // The data files as another program finds them, a backup copy included.
  std::vector<std::string> filesOnDisk() {
    std::filesystem::copy_file(dataPath("AlServdb.dat"), dataPath("AlServdb.BAK"));
    std::vector<std::string> contents;
    for (const auto &entry : std::filesystem::directory_iterator(dataDir())) {
      contents.push_back(readFile(entry.path().string()));
    }
    return contents;
  }

  static bool anyHolds(const std::vector<std::string> &files, const std::string &text) {
    for (const std::string &bytes : files) {
      if (bytes.find(text) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(ServicePasswordsTest, WithEncryptionNoPasswordIsStoredInClear) {
  configure(true);
  ChildProcess child("services_child", {});
  ASSERT_TRUE(child.started());
  ASSERT_EQ(ask(child, "status"), "1");
  std::vector<std::string> ids = addAll(child, true);
  ASSERT_EQ(ids.size(), 6u);
  // Updates protect the password as well; the record is left holding the
  // protected form, so a second update from it protects it twice.
  EXPECT_EQ(ask(child, "update2 SMTP " + ids[3] + " Changed-Secret-9"), "0 0");
  std::string once = ask(child, "read SMTP " + ids[3]);
  EXPECT_NE(once, hexOf("Changed-Secret-9"));
  EXPECT_EQ(ask(child, "update2 MHS " + ids[0] + " " + secretOf("MHS")), "0 0");
  // Read back, the twice-protected password is what the first add handed back.
  std::string added = ask(child, std::string("add MHS ") + secretOf("MHS"));
  EXPECT_EQ(ask(child, "read MHS " + ids[0]), added.substr(added.find(' ') + 1));
  ASSERT_EQ(ask(child, "quit"), "done");
  child.wait();

  std::vector<std::string> files = filesOnDisk();
  ASSERT_GE(files.size(), 4u) << "settings, data file and backup";
  for (const char *kind : kKinds) {
    EXPECT_FALSE(anyHolds(files, secretOf(kind))) << kind;
  }
  EXPECT_FALSE(anyHolds(files, "Changed-Secret-9"));
}

TEST_F(ServicePasswordsTest, WithoutEncryptionPasswordsAreStoredAsGiven) {
  configure(false);
  ChildProcess child("services_child", {});
  ASSERT_TRUE(child.started());
  ASSERT_EQ(ask(child, "status"), "0");
  std::vector<std::string> ids = addAll(child, false);
  ASSERT_EQ(ids.size(), 6u);
  EXPECT_EQ(ask(child, "update2 MAPI " + ids[4] + " Changed-Secret-9"), "0 0")
      << "unchanged the second time";
  EXPECT_EQ(ask(child, "read MAPI " + ids[4]), hexOf("Changed-Secret-9"));
  ASSERT_EQ(ask(child, "quit"), "done");
  child.wait();

  // The same search finds them all: the scan sees what is stored.
  std::vector<std::string> files = filesOnDisk();
  for (const char *kind : kKinds) {
    // The MAPI password was changed; its old form may linger in free pages.
    if (std::string(kind) == "MAPI") continue;
    EXPECT_TRUE(anyHolds(files, secretOf(kind))) << kind;
  }
  EXPECT_TRUE(anyHolds(files, "Changed-Secret-9"));
}

}  // namespace
