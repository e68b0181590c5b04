#include "platform/file_names.h"

#include <sys/stat.h>

#include <cstring>
#include <string>

#include "support/test_environment.h"

using namespace platform;

namespace {

class FileNamesTest : public alertdb_test::IsolatedTest {};

TEST_F(FileNamesTest, NameHelpersWorkOnTheLastComponent) {
  char path[64] = "/data/dir/AlCfgdb.dat";
  NameStripFile(path);
  EXPECT_STREQ(path, "/data/dir");
  NameAppendFile(path, "QADMIN.DAT");
  EXPECT_STREQ(path, "/data/dir/QADMIN.DAT");
  char trailing[64] = "/data/";
  NameAppendFile(trailing, "x");
  EXPECT_STREQ(trailing, "/data/x") << "no doubled separator";
  char root[8] = "/file";
  NameStripFile(root);
  EXPECT_STREQ(root, "/");

  char name[64] = "/a.b/AlEvntdb.dat";
  NameStripExtension(name);
  EXPECT_STREQ(name, "/a.b/AlEvntdb");
  NameAppendExtension(name, "BAK");
  EXPECT_STREQ(name, "/a.b/AlEvntdb.BAK");
  char dotDir[64] = "/a.b/noext";
  NameStripExtension(dotDir);
  EXPECT_STREQ(dotDir, "/a.b/noext") << "a point in a directory is not an extension";

  NameStripFile(nullptr);
  NameAppendFile(nullptr, "x");
  NameStripExtension(nullptr);
  NameAppendExtension(nullptr, "BAK");
}

TEST_F(FileNamesTest, FileNamesMatchWithoutRegardToCaseInsideTheirDirectory) {
  writeFile(dataPath("kepuser.dat"), "users");
  EXPECT_TRUE(FileExists(dataPath("KepUser.dat").c_str()));
  EXPECT_TRUE(FileExists(dataPath("KEPUSER.DAT").c_str()));
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("kepuser.dat"));
  EXPECT_FALSE(FileExists(dataPath("kepuser.da").c_str()));
  EXPECT_FALSE(FileExists(nullptr));
  EXPECT_FALSE(FileExists(""));
  // Directories are matched exactly.
  ::mkdir(dataPath("Sub").c_str(), 0755);
  writeFile(dataPath("Sub/file.dat"), "x");
  EXPECT_FALSE(FileExists(dataPath("sub/file.dat").c_str()));
  // An exact name is preferred over another case of it.
  writeFile(dataPath("KepUser.dat"), "objects");
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("KepUser.dat"));
  EXPECT_EQ(ResolveFileName(dataPath("none.dat")), dataPath("none.dat"));
}

TEST_F(FileNamesTest, FileCopyReplacesTheDestinationWhole) {
  writeFile(dataPath("AlCfgdb.BAK"), "backup bytes");
  writeFile(dataPath("AlCfgdb.dat"), "old");
  ASSERT_EQ(FileCopy(dataPath("alcfgdb.bak").c_str(), dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("AlCfgdb.dat")), "backup bytes");
  EXPECT_EQ(readFile(dataPath("AlCfgdb.BAK")), "backup bytes");

  // A failed copy leaves the destination as it was and no stray file.
  EXPECT_NE(FileCopy(dataPath("missing").c_str(), dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("AlCfgdb.dat")), "backup bytes");
  EXPECT_NE(FileCopy(nullptr, dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_NE(FileCopy(dataPath("AlCfgdb.BAK").c_str(), nullptr, 0), 0u);
  EXPECT_NE(FileCopy(dataPath("AlCfgdb.BAK").c_str(), "/nonexistent-dir/x", 0), 0u);
}

TEST_F(FileNamesTest, CopyToANewFileRemovesStaleJournalsBesideIt) {
  writeFile(dataPath("AlEvntdb.BAK"), "store");
  writeFile(dataPath("AlEvntdb.dat-wal"), "stale wal");
  writeFile(dataPath("AlEvntdb.dat-shm"), "stale shm");
  ASSERT_EQ(FileCopy(dataPath("AlEvntdb.BAK").c_str(), dataPath("AlEvntdb.dat").c_str(), 0), 0u);
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat-wal")));
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat-shm")));

  // Over an existing file the journals may be live: they stay.
  writeFile(dataPath("AlEvntdb.dat-wal"), "live wal");
  ASSERT_EQ(FileCopy(dataPath("AlEvntdb.BAK").c_str(), dataPath("AlEvntdb.dat").c_str(), 0), 0u);
  EXPECT_TRUE(fileExists(dataPath("AlEvntdb.dat-wal")));
}

}  // namespace
