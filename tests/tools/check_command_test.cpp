// `alertdb check` names each damaged file and record, changes nothing, and
// exits 1 when anything is damaged or missing.
#include <gtest/gtest.h>

#include "tools/event_link_files.h"

namespace alertdb_test {
namespace {

class CheckCommandTest : public EventLinkFileTest {};

TEST_F(CheckCommandTest, SoundFilesPassAndEveryStoreOfTheDirectoryIsChecked) {
  addLinks(3);
  // A store the library does not know by name, and a settings file that is no store.
  ASSERT_EQ(std::system(("cp " + dataPath(kFile) + " " + dataPath("Extra.dat")).c_str()), 0);
  writeFile(dataPath("Settings.dat"), "[Settings]\nName=value\n");
  ToolResult result;
  nlohmann::json files = runJson({"check", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(files.size(), 2u) << result.out;
  EXPECT_EQ(files[0]["file"], kFile);
  EXPECT_EQ(files[1]["file"], "Extra.dat");
  for (const auto &entry : files) {
    EXPECT_TRUE(hasFields(entry, {{"status", "sound"}, {"records", 3}}));
    EXPECT_TRUE(entry["problems"].empty());
  }
  EXPECT_EQ(directoryNames(),
            (std::vector<std::string>{"AlEvntdb.dat", "Extra.dat", "Settings.dat"}))
      << "the check leaves nothing behind";
}

TEST_F(CheckCommandTest, ADamagedRecordIsNamedByFileTableRowAndObjectId) {
  std::vector<_GUID> ids = addLinks(3, true);
  damageNeedle();
  std::string before = readFile(dataPath(kFile));
  ToolResult result;
  nlohmann::json files = runJson({"check", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 1);
  nlohmann::json entry = findBy(files, "file", kFile);
  EXPECT_TRUE(hasFields(entry, {{"status", "damaged"}, {"records", 4}, {"damagedRecords", 1}}));
  ASSERT_EQ(entry["problems"].size(), 1u) << result.out;
  const nlohmann::json &problem = entry["problems"][0];
  EXPECT_TRUE(hasFields(
      problem,
      {{"table", "EVENT_RESP"}, {"row", 4}, {"objectId", platform::GuidToString(ids[3])}}));
  EXPECT_NE(problem["problem"].get<std::string>().find("checksum"), std::string::npos);
  EXPECT_EQ(readFile(dataPath(kFile)), before);

  // The table a person reads names the same.
  ToolResult text = runTool({"check"});
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_TRUE(
      mentionsAll(text.out, {kFile, "damaged", "EVENT_RESP", platform::GuidToString(ids[3])}));
  EXPECT_EQ(readFile(dataPath(kFile)), before);
}

TEST_F(CheckCommandTest, NamedFilesAloneAreCheckedAndMissingOnesAreErrors) {
  addLinks(1);
  std::string whole = readFile(dataPath(kFile));
  writeFile(dataPath("Cut.dat"), whole.substr(0, whole.size() - 100));
  writeFile(dataPath("Text.dat"), std::string(4096, 't'));

  ToolResult result;
  nlohmann::json files = runJson({"check", "alevntdb.dat", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0]["status"], "sound");

  files = runJson({"check", "Cut.dat", "Text.dat", "Missing.dat", "--format", "json"}, &result);
  EXPECT_EQ(result.exitCode, 1);
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(files[0]["status"], "damaged");
  EXPECT_EQ(files[0]["problems"][0]["table"], nullptr);
  EXPECT_NE(files[0]["problems"][0]["problem"].get<std::string>().find("header"),
            std::string::npos);
  EXPECT_EQ(files[1]["status"], "not a store");
  EXPECT_EQ(files[2]["status"], "missing");
  EXPECT_TRUE(mentionsAll(result.err, {"QDB_E_NOTFOUND", "Missing.dat"}));
  EXPECT_FALSE(fileExists(dataPath("Missing.dat")));

  ToolResult csv = runTool({"check", "Missing.dat", "--format", "csv"});
  EXPECT_EQ(csv.exitCode, 1);
  EXPECT_EQ(csv.out.rfind("file,status,table,row,objectId,problem\r\nMissing.dat,missing", 0), 0u)
      << csv.out;
  EXPECT_TRUE(failedSaying(runTool({"check", "--format"}), 2));
}

}  // namespace
}  // namespace alertdb_test
