// `alertdb recover` puts a new store with every readable record in a damaged
// file's place, keeps the original byte for byte under a new name, and
// refuses, changing nothing, what it should not touch.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/store/record_store_fixture.h"
#include "support/child_process.h"
#include "tools/data_file_damage.h"
#include "tools/event_link_files.h"

namespace alertdb_test {
namespace {

class RecoverCommandTest : public EventLinkFileTest {
 protected:
  // Runs a refused recover: exit 1, a message with `reason`, nothing changed.
  void expectRefused(const std::vector<std::string> &args, const std::string &reason) {
    auto before = directoryContents(dataDir());
    EXPECT_TRUE(failedSaying(runTool(args), 1, {reason})) << args.back();
    EXPECT_EQ(directoryContents(dataDir()), before) << args.back();
  }
};

TEST_F(RecoverCommandTest, TheReadableRecordsTakeTheDamagedFilesPlace) {
  std::vector<_GUID> ids = addLinks(3, true);
  damageNeedle();
  std::string damaged = readFile(dataPath(kFile));

  ToolResult result;
  nlohmann::json report = runJson({"recover", kFile, "--format", "json"}, &result);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(hasFields(report, {{"file", kFile}, {"saved", 3}, {"lost", 1}}));
  ASSERT_EQ(report["tables"].size(), 1u);
  EXPECT_TRUE(hasFields(report["tables"][0], {{"name", "EVENT_RESP"}, {"saved", 3}, {"lost", 1}}));
  ASSERT_EQ(report["problems"].size(), 1u);
  EXPECT_EQ(report["problems"][0]["objectId"], platform::GuidToString(ids[3]));

  // The original, byte for byte, under the name given.
  std::string copy = report["damagedCopy"];
  EXPECT_EQ(copy.rfind("AlEvntdb.dat.damaged-", 0), 0u) << copy;
  EXPECT_EQ(readFile(dataPath(copy)), damaged);
  EXPECT_EQ(directoryNames(), (std::vector<std::string>{kFile, copy}));

  // The new store opens normally with the surviving links.
  {
    CAlertEVENT_RESPDB links;
    ASSERT_EQ(links.DBOpen(), 0u);
    for (std::uint32_t n = 0; n < 3; ++n) {
      ALRTEVENT_RESPREC out{};
      ASSERT_EQ(retrieve(links, ids[n], &out), 0u) << n;
      EXPECT_TRUE(sameLink(out, linkOf(n)));
    }
    ALRTEVENT_RESPREC out{};
    EXPECT_EQ(retrieve(links, ids[3], &out), ALRT_E_NOTFOUND);
    // And takes new ones.
    ALRTEVENT_RESPREC link = linkOf(9);
    _GUID id;
    EXPECT_EQ(links.DBAlertRecAdd(&link, &id), 0u);
  }
  ToolResult check = runTool({"check", kFile});
  EXPECT_EQ(check.exitCode, 0) << check.out;
}

TEST_F(RecoverCommandTest, TheOriginalsLogGoesWithItAndWhatItHeldIsSaved) {
  addLinks(3, true);
  damageNeedle();
  // A change that only the write-ahead log holds.
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(dataPath(kFile).c_str(), &db), SQLITE_OK);
  sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  ASSERT_EQ(sqlite3_exec(db, "DELETE FROM EVENT_RESP WHERE seq=1", nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  std::string file = readFile(dataPath(kFile)), log = readFile(dataPath(kFile) + "-wal");
  ASSERT_FALSE(log.empty());

  ToolResult result;
  nlohmann::json report = runJson({"recover", kFile, "--format", "json"}, &result);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  // The delete in the log is seen.
  EXPECT_TRUE(hasFields(report, {{"saved", 2}, {"lost", 1}}));
  std::string copy = report["damagedCopy"];
  EXPECT_EQ(readFile(dataPath(copy)), file);
  EXPECT_EQ(readFile(dataPath(copy) + "-wal"), log);
  EXPECT_FALSE(fileExists(dataPath(kFile) + "-wal")) << "no old log beside the new store";
  EXPECT_EQ(runTool({"check", kFile}).exitCode, 0);
}

TEST_F(RecoverCommandTest, SoundMissingForeignAndBusyFilesAreRefused) {
  addLinks(2);
  expectRefused({"recover", kFile}, "sound");
  expectRefused({"recover", "Missing.dat"}, "QDB_E_NOTFOUND");
  writeFile(dataPath("Text.dat"), std::string(4096, 't'));
  expectRefused({"recover", "Text.dat"}, "not a record store");

  // A damaged file that another program has open.
  {
    SampleTable t;
    KEPDB *h = platform::QDBInit(0, dataPath("Held.dat").c_str(), platform::kOpenCreate, 1);
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(t.create(h), 0u);
    t.fill(1, "held", 1);
    std::strcpy(t.record.comment, "HELD-COMMENT");
    ASSERT_EQ(platform::QDBRecordAdd(h), 0u);
    platform::QDBDone(h);
  }
  std::string bytes = readFile(dataPath("Held.dat"));
  bytes[bytes.find("HELD-COMMENT") + 1] ^= 0x01;
  writeFile(dataPath("Held.dat"), bytes);
  ChildProcess holder("store_child", {"lock-add", dataPath("Held.dat"), "1"});
  ASSERT_EQ(holder.readLine(), "added");
  expectRefused({"recover", "Held.dat"}, "open in another program");
  holder.writeLine("");
  EXPECT_EQ(holder.readLine(), "unlocked");
  EXPECT_EQ(holder.wait(), 0);

  EXPECT_TRUE(failedSaying(runTool({"recover"}), 2));
  EXPECT_TRUE(failedSaying(runTool({"recover", kFile, "Other.dat"}), 2));
}

}  // namespace
}  // namespace alertdb_test
