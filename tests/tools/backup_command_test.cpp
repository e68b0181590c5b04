// `alertdb backup` writes the copies that opening a table restores from, and
// never replaces a good one with a damaged file.
#include <gtest/gtest.h>

#include "tools/event_link_files.h"

namespace alertdb_test {
namespace {

class BackupCommandTest : public EventLinkFileTest {};

TEST_F(BackupCommandTest, ATableWhoseFileIsGoneIsRestoredFromTheBackup) {
  std::vector<_GUID> ids = addLinks(3);
  ToolResult result;
  nlohmann::json files = runJson({"backup", "--format", "json"}, &result);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(hasFields(findBy(files, "file", kFile),
                        {{"backup", "AlEvntdb.BAK"}, {"status", "written"}, {"records", 3}}));
  // The other restorable files are not there, so they get no backup.
  ASSERT_EQ(files.size(), 5u);
  for (const char *absent : {"kepuser.dat", "AlRespDB.dat", "AlServdb.dat", "AlCfgdb.dat"}) {
    EXPECT_TRUE(hasFields(findBy(files, "file", absent), {{"status", "absent"}})) << absent;
    EXPECT_FALSE(fileExists(dataPath(absent)));
  }
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.BAK-wal")));

  ASSERT_EQ(std::remove(dataPath(kFile).c_str()), 0);
  CAlertEVENT_RESPDB links;
  ASSERT_EQ(links.DBOpen(), 0u) << "the table opens from its backup";
  for (std::uint32_t n = 0; n < ids.size(); ++n) {
    ALRTEVENT_RESPREC out{};
    ASSERT_EQ(retrieve(links, ids[n], &out), 0u) << n;
    EXPECT_TRUE(sameLink(out, linkOf(n)));
  }
  EXPECT_TRUE(fileExists(dataPath(kFile)));
}

TEST_F(BackupCommandTest, ADamagedFileKeepsItsPreviousBackup) {
  addLinks(2, true);
  ToolResult first = runTool({"backup"});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  EXPECT_TRUE(mentionsAll(first.out, {"AlEvntdb.BAK"}));
  std::string good = readFile(dataPath("AlEvntdb.BAK"));

  damageNeedle();
  std::string damaged = readFile(dataPath(kFile));
  ToolResult result;
  nlohmann::json files = runJson({"backup", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(hasFields(findBy(files, "file", kFile), {{"status", "failed"}}));
  EXPECT_TRUE(mentionsAll(result.err, {"QDB_E_DAMAGED", kFile}));
  EXPECT_EQ(readFile(dataPath("AlEvntdb.BAK")), good);
  EXPECT_EQ(readFile(dataPath(kFile)), damaged);
  for (const std::string &name : directoryNames()) {
    EXPECT_EQ(name.find(".alertdb"), std::string::npos) << "a temporary file is left: " << name;
  }
}

TEST_F(BackupCommandTest, BadArgumentsAreUsageErrors) {
  EXPECT_TRUE(failedSaying(runTool({"backup", "AlEvntdb.dat"}), 2));
  EXPECT_TRUE(failedSaying(runTool({"backup", "--format", "xml"}), 2));
  ToolResult help = runTool({"backup", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(mentionsAll(help.out, {".BAK"}));
}

}  // namespace
}  // namespace alertdb_test
