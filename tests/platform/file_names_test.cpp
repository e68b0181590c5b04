#include "platform/file_names.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/test_environment.h"

using namespace platform;

namespace {

class FileNamesTest : public alertdb_test::IsolatedTest {
 protected:
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    DIR *dir = ::opendir(dataDir().c_str());
    if (!dir) return names;
    while (const dirent *entry = ::readdir(dir)) {
      if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
        names.push_back(entry->d_name);
      }
    }
    ::closedir(dir);
    return names;
  }
};

// `path` after an in-place edit.
std::string edited(const char *path, void (*edit)(char *)) {
  char buffer[64];
  std::strcpy(buffer, path);
  edit(buffer);
  return buffer;
}

std::string edited(const char *path, void (*edit)(char *, const char *), const char *argument) {
  char buffer[64];
  std::strcpy(buffer, path);
  edit(buffer, argument);
  return buffer;
}

TEST(FileNameHelpers, StripAndAppendFileNames) {
  EXPECT_EQ(edited("/data/dir/AlCfgdb.dat", NameStripFile), "/data/dir");
  EXPECT_EQ(edited("/data//x", NameStripFile), "/data");
  EXPECT_EQ(edited("/file", NameStripFile), "/");
  EXPECT_EQ(edited("file", NameStripFile), "");

  EXPECT_EQ(edited("/data/dir", NameAppendFile, "QADMIN.DAT"), "/data/dir/QADMIN.DAT");
  EXPECT_EQ(edited("/data/", NameAppendFile, "x"), "/data/x");
  EXPECT_EQ(edited("/data", NameAppendFile, "/x"), "/data/x");
  EXPECT_EQ(edited("/", NameAppendFile, "x"), "/x");
  EXPECT_EQ(edited("", NameAppendFile, "x"), "x");
}

TEST(FileNameHelpers, ExtensionsBelongToTheLastComponent) {
  EXPECT_EQ(edited("/a.b/AlEvntdb.dat", NameStripExtension), "/a.b/AlEvntdb");
  EXPECT_EQ(edited("/a.b/noext", NameStripExtension), "/a.b/noext");
  EXPECT_EQ(edited("/a/b.tar.gz", NameStripExtension), "/a/b.tar");
  EXPECT_EQ(edited("/a/.hidden", NameStripExtension), "/a/.hidden");
  EXPECT_EQ(edited("name.dat", NameStripExtension), "name");

  EXPECT_EQ(edited("a/b", NameAppendExtension, "BAK"), "a/b.BAK");
  EXPECT_EQ(edited("a/b", NameAppendExtension, ".BAK"), "a/b.BAK");
  EXPECT_EQ(edited("a/b", NameAppendExtension, ""), "a/b");
}

TEST(FileNameHelpers, NullArgumentsAreIgnored) {
  char path[16] = "a/b.c";
  NameStripFile(nullptr);
  NameAppendFile(nullptr, "x");
  NameAppendFile(path, nullptr);
  NameStripExtension(nullptr);
  NameAppendExtension(nullptr, "BAK");
  NameAppendExtension(path, nullptr);
  EXPECT_STREQ(path, "a/b.c");
  EXPECT_EQ(FileExists(nullptr), 0u);
  EXPECT_EQ(FileExists(""), 0u);
}

TEST_F(FileNamesTest, LastComponentMatchesWithoutRegardToCase) {
  writeFile(dataPath("kepuser.dat"), "users");
  EXPECT_NE(FileExists(dataPath("KepUser.dat").c_str()), 0u);
  EXPECT_NE(FileExists(dataPath("KEPUSER.DAT").c_str()), 0u);
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("kepuser.dat"));
  EXPECT_EQ(FileExists(dataPath("kepuser.da").c_str()), 0u);
  EXPECT_EQ(FileExists(dataPath("kepuser.dat2").c_str()), 0u);
  EXPECT_EQ(ResolveFileName(dataPath("none.dat")), dataPath("none.dat"));
}

TEST_F(FileNamesTest, DirectoriesMatchExactly) {
  ASSERT_EQ(::mkdir(dataPath("Sub").c_str(), 0755), 0);
  writeFile(dataPath("Sub/file.dat"), "x");
  EXPECT_NE(FileExists(dataPath("Sub/FILE.DAT").c_str()), 0u);
  EXPECT_EQ(FileExists(dataPath("sub/file.dat").c_str()), 0u);
  EXPECT_EQ(ResolveFileName(dataPath("sub/file.dat")), dataPath("sub/file.dat"));
}

TEST_F(FileNamesTest, ExactNameIsPreferredAndChoiceIsStable) {
  writeFile(dataPath("kepuser.dat"), "lower");
  writeFile(dataPath("KepUser.dat"), "mixed");
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("KepUser.dat"));
  EXPECT_EQ(ResolveFileName(dataPath("kepuser.dat")), dataPath("kepuser.dat"));
  // Without an exact match the choice must not depend on directory order.
  EXPECT_EQ(ResolveFileName(dataPath("KEPUSER.DAT")), dataPath("KepUser.dat"));
}

TEST_F(FileNamesTest, FileCopyReplacesTheDestinationWhole) {
  const std::string backup("backup\0bytes\xff", 13);
  writeFile(dataPath("AlCfgdb.BAK"), backup);
  writeFile(dataPath("alcfgdb.dat"), "old contents, longer than the backup");
  ::chmod(dataPath("AlCfgdb.BAK").c_str(), 0640);

  // Both names resolve: the existing "alcfgdb.dat" is replaced, no new file appears.
  ASSERT_EQ(FileCopy(dataPath("alcfgdb.bak").c_str(), dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("alcfgdb.dat")), backup);
  EXPECT_EQ(readFile(dataPath("AlCfgdb.BAK")), backup);
  EXPECT_EQ(entries().size(), 2u);
  struct stat st;
  ASSERT_EQ(::stat(dataPath("alcfgdb.dat").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  // To a new file.
  ASSERT_EQ(FileCopy(dataPath("AlCfgdb.BAK").c_str(), dataPath("copy.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("copy.dat")), backup);

  // An empty source gives an empty destination.
  writeFile(dataPath("empty"), "");
  ASSERT_EQ(FileCopy(dataPath("empty").c_str(), dataPath("copy.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("copy.dat")), "");
}

TEST_F(FileNamesTest, FailedCopyLeavesTheDestinationUntouched) {
  const std::string original("live\0store", 10);
  writeFile(dataPath("AlCfgdb.dat"), original);
  ASSERT_EQ(::mkdir(dataPath("adir").c_str(), 0755), 0);
  const std::size_t before = entries().size();

  EXPECT_NE(FileCopy(dataPath("missing").c_str(), dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  // A directory opens but cannot be read: the copy fails after its temporary file exists.
  EXPECT_NE(FileCopy(dataPath("adir").c_str(), dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_NE(FileCopy(nullptr, dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_NE(FileCopy(dataPath("AlCfgdb.dat").c_str(), nullptr, 0), 0u);
  EXPECT_NE(FileCopy("", dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_NE(FileCopy(dataPath("AlCfgdb.dat").c_str(), "/nonexistent-dir/x", 0), 0u);
  // A directory in the way of the destination cannot be replaced.
  EXPECT_NE(FileCopy(dataPath("AlCfgdb.dat").c_str(), dataPath("adir").c_str(), 0), 0u);

  EXPECT_EQ(readFile(dataPath("AlCfgdb.dat")), original);
  EXPECT_EQ(entries().size(), before) << "no temporary file is left behind";
}

TEST_F(FileNamesTest, CopyToANewFileRemovesStaleJournalsBesideIt) {
  writeFile(dataPath("AlEvntdb.BAK"), "store");
  writeFile(dataPath("AlEvntdb.dat-wal"), "stale wal");
  writeFile(dataPath("AlEvntdb.dat-shm"), "stale shm");
  ASSERT_EQ(FileCopy(dataPath("AlEvntdb.BAK").c_str(), dataPath("AlEvntdb.dat").c_str(), 0), 0u);
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat-wal")));
  EXPECT_FALSE(fileExists(dataPath("AlEvntdb.dat-shm")));
  EXPECT_EQ(readFile(dataPath("AlEvntdb.dat")), "store");

  // Beside an existing file the journals may be live: they stay.
  writeFile(dataPath("AlEvntdb.dat-wal"), "live wal");
  writeFile(dataPath("AlEvntdb.dat-shm"), "live shm");
  ASSERT_EQ(FileCopy(dataPath("AlEvntdb.BAK").c_str(), dataPath("AlEvntdb.dat").c_str(), 0), 0u);
  EXPECT_EQ(readFile(dataPath("AlEvntdb.dat-wal")), "live wal");
  EXPECT_EQ(readFile(dataPath("AlEvntdb.dat-shm")), "live shm");

  // A failed copy does not count as a new file.
  writeFile(dataPath("Other.dat-wal"), "wal");
  EXPECT_NE(FileCopy(dataPath("missing").c_str(), dataPath("Other.dat").c_str(), 0), 0u);
  EXPECT_TRUE(fileExists(dataPath("Other.dat-wal")));
}

}  // namespace
