#include "platform/file_names.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <type_traits>

#include "support/test_environment.h"

using namespace platform;

namespace {

class FileNamesTest : public alertdb_test::IsolatedTest {
 protected:
  std::ptrdiff_t entryCount() const {
    return std::distance(std::filesystem::directory_iterator(dataDir()), {});
  }
  std::uint32_t copy(const char *from, const char *to) const {
    return FileCopy(dataPath(from).c_str(), dataPath(to).c_str(), 0);
  }
};

template <typename... Args>
std::string edited(const char *path, void (*edit)(char *, Args...),
                   std::type_identity_t<Args>... args) {
  char buffer[64];
  std::strcpy(buffer, path);
  edit(buffer, args...);
  return buffer;
}

TEST_F(FileNamesTest, PathsAreEditedInPlace) {
  EXPECT_EQ(edited("/data/dir/AlCfgdb.dat", NameStripFile), "/data/dir");
  EXPECT_EQ(edited("/file", NameStripFile), "/");
  EXPECT_EQ(edited("file", NameStripFile), "");
  EXPECT_EQ(edited("/data/dir", NameAppendFile, "QADMIN.DAT"), "/data/dir/QADMIN.DAT");
  EXPECT_EQ(edited("/data/", NameAppendFile, "x"), "/data/x");
  EXPECT_EQ(edited("", NameAppendFile, "x"), "x");
  EXPECT_EQ(edited("/a.b/AlEvntdb.dat", NameStripExtension), "/a.b/AlEvntdb");
  EXPECT_EQ(edited("/a.b/noext", NameStripExtension), "/a.b/noext");
  EXPECT_EQ(edited("/a/b.tar.gz", NameStripExtension), "/a/b.tar");
  EXPECT_EQ(edited("/a/.hidden", NameStripExtension), "/a/.hidden");
  EXPECT_EQ(edited("a/b", NameAppendExtension, "BAK"), "a/b.BAK");
  EXPECT_EQ(edited("a/b", NameAppendExtension, ".BAK"), "a/b.BAK");
}

TEST_F(FileNamesTest, FileNamesMatchWithoutRegardToCaseDirectoriesExactly) {
  writeFile(dataPath("kepuser.dat"), "users");
  EXPECT_NE(FileExists(dataPath("KEPUSER.DAT").c_str()), 0u);
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("kepuser.dat"));
  EXPECT_EQ(FileExists(dataPath("kepuser.da").c_str()), 0u);
  EXPECT_EQ(ResolveFileName(dataPath("none.dat")), dataPath("none.dat"));
  EXPECT_EQ(FileExists(""), 0u);
  EXPECT_EQ(FileExists(nullptr), 0u);

  ASSERT_EQ(::mkdir(dataPath("Sub").c_str(), 0755), 0);
  writeFile(dataPath("Sub/file.dat"), "x");
  EXPECT_NE(FileExists(dataPath("Sub/FILE.DAT").c_str()), 0u);
  EXPECT_EQ(FileExists(dataPath("sub/file.dat").c_str()), 0u);

  // An exact match wins; otherwise the choice does not depend on directory order.
  writeFile(dataPath("KepUser.dat"), "mixed");
  EXPECT_EQ(ResolveFileName(dataPath("kepuser.dat")), dataPath("kepuser.dat"));
  EXPECT_EQ(ResolveFileName(dataPath("KepUser.dat")), dataPath("KepUser.dat"));
  EXPECT_EQ(ResolveFileName(dataPath("KEPUSER.DAT")), dataPath("KepUser.dat"));
}

TEST_F(FileNamesTest, FileCopyReplacesTheDestinationWholeAndClearsStaleJournals) {
  const std::string backup("backup\0bytes\xff", 13);
  writeFile(dataPath("AlCfgdb.BAK"), backup);
  writeFile(dataPath("alcfgdb.dat"), "old contents, longer than the backup");
  writeFile(dataPath("alcfgdb.dat-wal"), "live wal");
  ::chmod(dataPath("AlCfgdb.BAK").c_str(), 0640);
  // Both names resolve: the existing "alcfgdb.dat" is replaced, no new file appears.
  ASSERT_EQ(copy("alcfgdb.bak", "AlCfgdb.dat"), 0u);
  EXPECT_EQ(readFile(dataPath("alcfgdb.dat")), backup);
  EXPECT_EQ(entryCount(), 3);
  EXPECT_EQ(readFile(dataPath("alcfgdb.dat-wal")), "live wal") << "journals of a live file stay";
  struct stat st;
  ASSERT_EQ(::stat(dataPath("alcfgdb.dat").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  writeFile(dataPath("New.dat-wal"), "stale wal");
  writeFile(dataPath("New.dat-shm"), "stale shm");
  ASSERT_EQ(copy("AlCfgdb.BAK", "New.dat"), 0u);
  EXPECT_EQ(readFile(dataPath("New.dat")), backup);
  EXPECT_FALSE(fileExists(dataPath("New.dat-wal")));
  EXPECT_FALSE(fileExists(dataPath("New.dat-shm")));
}

TEST_F(FileNamesTest, FailedCopyLeavesTheDestinationUntouched) {
  const std::string original("live\0store", 10);
  writeFile(dataPath("AlCfgdb.dat"), original);
  writeFile(dataPath("Other.dat-wal"), "wal");
  ASSERT_EQ(::mkdir(dataPath("adir").c_str(), 0755), 0);
  EXPECT_NE(copy("missing", "AlCfgdb.dat"), 0u);
  // A directory opens but cannot be read: the copy fails after its temporary file exists.
  EXPECT_NE(copy("adir", "AlCfgdb.dat"), 0u);
  EXPECT_NE(copy("AlCfgdb.dat", "adir"), 0u);
  EXPECT_NE(copy("AlCfgdb.dat", "no-dir/x"), 0u);
  EXPECT_NE(FileCopy(nullptr, dataPath("AlCfgdb.dat").c_str(), 0), 0u);
  EXPECT_NE(copy("missing", "Other.dat"), 0u);
  EXPECT_EQ(readFile(dataPath("AlCfgdb.dat")), original);
  EXPECT_EQ(entryCount(), 3) << "no temporary file is left behind";
  EXPECT_TRUE(fileExists(dataPath("Other.dat-wal"))) << "a failed copy makes no new file";
}

}  // namespace
