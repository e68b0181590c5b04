// Resource exhaustion: a data directory on a disk that fills up during adds,
// cascading deletes and purges, and a data directory that cannot be written
// at all. Each call gives its status; what a call reported done is stored
// exactly, nothing else changes, `alertdb check` passes, and work resumes
// once space returns. Needs root to mount the small disk and the read-only
// view; without it those tests are skipped, saying so.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/guid.h"
#include "support/bounded_run.h"
#include "reliability/resources/resources_alert_data.h"
#include "support/test_environment.h"
#include "support/tool_run.h"

namespace alertdb_test {
namespace {

using resources::AlertData;
namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned kChildSeconds = 240;
#else
constexpr unsigned kChildSeconds = 60;
#endif
constexpr int kNobody = 65534;
// Room for the files and their logs, each of which may grow to some 4 MiB
// before it is copied back into its file.
constexpr std::size_t kDiskBytes = 48u << 20;
constexpr std::size_t kRoomLeft = 12u << 20;

// A file system mounted for one test and unmounted however the test ends.
class Mount {
 public:
  // A tmpfs of `bytes` at `dir`.
  static Mount tmpfs(const std::string &dir, std::size_t bytes) {
    Mount m(dir);
    std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
    m.mount("tmpfs", "tmpfs", MS_NOSUID | MS_NODEV, options.c_str());
    return m;
  }
  // `source` seen read-only at `dir`.
  static Mount readOnlyView(const std::string &source, const std::string &dir) {
    Mount m(dir);
    if (m.mount(source.c_str(), nullptr, MS_BIND, nullptr) &&
        ::mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
      m.error_ = errno;
    }
    return m;
  }
  Mount(Mount &&other) noexcept
      : dir_(std::move(other.dir_)), mounted_(other.mounted_), error_(other.error_) {
    other.mounted_ = false;
  }
  ~Mount() {
    if (mounted_) ::umount2(dir_.c_str(), MNT_DETACH);
  }
  bool usable() const { return mounted_ && error_ == 0; }
  std::string error() const { return std::strerror(error_); }
  const std::string &path() const { return dir_; }

 private:
  explicit Mount(std::string dir) : dir_(std::move(dir)) { fs::create_directories(dir_); }
  bool mount(const char *source, const char *type, unsigned long flags, const char *options) {
    mounted_ = ::mount(source, dir_.c_str(), type, flags, options) == 0;
    if (!mounted_) error_ = errno;
    return mounted_;
  }

  std::string dir_;
  bool mounted_ = false;
  int error_ = 0;
};

class ResourcesTest : public IsolatedTest {
 protected:
  // Makes `dir` the data directory, for this process and the children.
  void useDataDir(const std::string &dir) {
    dir_ = dir;
    setenv("ALERTDB_DATA_DIR", dir.c_str(), 1);
    // The purge finds the data directory through the console settings.
    writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dir + "\n");
  }

  BoundedRun tool(const std::vector<std::string> &args, const std::string &dir) {
    BoundedRunOptions options;
    options.seconds = kChildSeconds;
    options.env = {{"ALERTDB_DATA_DIR", dir}};
    return runBounded(toolPath(), args, options);
  }

  // `alertdb check` of every file of `dir`: exit 0, every file sound.
  void expectCheckPasses(const std::string &dir, const std::string &when) {
    BoundedRun run = tool({"check", "--format", "json"}, dir);
    EXPECT_EQ(run.exitCode, 0) << when << ": " << run.ending() << "\n" << run.out << run.err;
    EXPECT_FALSE(run.sanitizerReport()) << run.err;
    nlohmann::json files = nlohmann::json::parse(run.out, nullptr, false);
    ASSERT_FALSE(files.is_discarded()) << when << ": " << run.out;
    EXPECT_GE(files.size(), 6u) << when;
    for (const auto &file : files)
      EXPECT_EQ(file["status"], "sound") << when << ": " << file.dump();
  }

  // Every file of `dir` with its bytes.
  static std::map<std::string, std::string> contents(const std::string &dir) {
    std::map<std::string, std::string> out;
    for (const auto &entry : fs::directory_iterator(dir)) {
      out[entry.path().filename().string()] = readFile(entry.path().string());
    }
    return out;
  }

  static std::string joined(const std::vector<std::string> &lines, std::size_t most = 20) {
    std::string out;
    for (std::size_t i = 0; i < lines.size() && i < most; ++i) out += lines[i] + "\n";
    return out;
  }

  std::string dir_;
};

// ------------------------------------------------------------ a full disk

// Fills the file system of `dir` with one file until `keep` bytes are left.
std::size_t fillDisk(const std::string &path, std::size_t keep) {
  struct statvfs st;
  if (::statvfs(fs::path(path).parent_path().c_str(), &st) != 0) return 0;
  std::size_t available = static_cast<std::size_t>(st.f_bavail) * st.f_frsize;
  std::size_t want = available > keep ? available - keep : 0;
  std::ofstream out(path, std::ios::binary);
  std::string chunk(65536, 'f');
  std::size_t written = 0;
  while (written < want && out) {
    std::size_t n = std::min(chunk.size(), want - written);
    out.write(chunk.data(), static_cast<std::streamsize>(n));
    written += n;
  }
  out.flush();
  return written;
}

TEST_F(ResourcesTest, AFullDiskFailsCallsWithTheirStatusAndLosesNothing) {
  Mount disk = Mount::tmpfs(dataPath("disk"), kDiskBytes);
  if (!disk.usable()) {
    GTEST_SKIP() << "a tmpfs cannot be mounted here (" << disk.error()
                 << "); the full-disk test needs root";
  }
  useDataDir(disk.path());
  AlertData data(7);
  ASSERT_EQ(data.open(), 0u);
  // The data written while there was room.
  for (int n = 0; n < 60; ++n) ASSERT_EQ(data.addLogEntry(n % 10 == 3), 0u);
  for (int n = 0; n < 10; ++n) ASSERT_EQ(data.addUser(2), 0u);
  for (int n = 0; n < 4; ++n) ASSERT_EQ(data.addServer(2), 0u);
  data.close();
  ASSERT_EQ(joined(data.verify()), "");
  expectCheckPasses(disk.path(), "before the disk filled");

  ASSERT_EQ(data.open(), 0u);
  // Room for some hundreds of changes, then none.
  std::size_t filler = fillDisk(disk.path() + "/filler.bin", kRoomLeft);
  ASSERT_GT(filler, 0u);
  data.statuses.clear();
  std::size_t rounds = 0, calls = 0, failures = 0, failedAdds = 0, fullRounds = 0;
  auto call = [&](std::uint32_t status, bool add) {
    ++calls;
    if (status == 0) return;
    ++failures;
    failedAdds += add;
  };
  // Adds, cascades and purges until well after the disk is full.
  for (; rounds < 400 && fullRounds < 8; ++rounds) {
    call(data.addLogEntry(true), true);
    call(data.addLogEntry(false), true);
    call(data.addUser(2), true);
    call(data.addServer(2), true);
    if (rounds % 3 == 2) {
      call(data.deleteUser(), false);
      call(data.deleteServer(), false);
    }
    if (rounds % 5 == 4) call(data.purge(), false);
    if (failedAdds > 0) ++fullRounds;
  }
  ASSERT_GT(failedAdds, 0u) << "the disk never filled";
  EXPECT_EQ(joined(data.problems), "") << "every call gives a status, every success reads back";
  std::map<std::string, std::size_t> statuses = data.statuses;
  data.close();

  // While the disk is still full, and once space is back.
  BoundedRun checkWhileFull = tool({"check"}, disk.path());
  std::vector<std::string> whileFull = data.verify();
  ASSERT_EQ(::unlink((disk.path() + "/filler.bin").c_str()), 0);
  expectCheckPasses(disk.path(), "after space was freed");
  EXPECT_EQ(joined(data.verify()), "") << "after space was freed";

  // Work resumes.
  ASSERT_EQ(data.open(), 0u);
  EXPECT_EQ(data.addLogEntry(true), 0u);
  EXPECT_EQ(data.addUser(2), 0u);
  EXPECT_EQ(data.addServer(2), 0u);
  EXPECT_EQ(data.deleteUser(true), 0u);
  EXPECT_EQ(data.deleteServer(true), 0u);
  EXPECT_EQ(data.purge(true), 0u);
  data.close();
  EXPECT_EQ(joined(data.verify()), "") << "after work resumed";
  EXPECT_EQ(joined(data.problems), "");
  expectCheckPasses(disk.path(), "after work resumed");

  std::string seen;
  for (const auto &[name, n] : statuses) seen += " " + name + " " + std::to_string(n);
  std::printf(
      "[full disk] 48 MiB tmpfs, filled with one file to 12 MiB left: %zu rounds, %zu calls, %zu "
      "failed (%zu adds); the calls and the calls they made gave:%s\n"
      "  while full: check %s, %zu records read otherwise than the calls said%s\n"
      "  after the filler was removed: check passes, every record as the calls said, work "
      "resumed\n",
      rounds, calls, failures, failedAdds, seen.c_str(), checkWhileFull.ending().c_str(),
      whileFull.size(), whileFull.empty() ? "" : (" (first: " + whileFull[0] + ")").c_str());
  std::fflush(stdout);
}

// ------------------------------------------------------------ a read-only directory

// What the worker printed: each table's read and each change's status.
struct WorkerReport {
  std::map<std::string, std::string> reads;  // table -> "STATUS COUNT DIGEST"
  std::map<std::string, std::string> ops;    // change -> status name

  static WorkerReport parse(const std::string &out) {
    WorkerReport r;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line);
      std::string kind, name, rest;
      words >> kind >> name;
      std::getline(words, rest);
      if (kind == "read") r.reads[name] = rest;
      if (kind == "op") r.ops[name] = rest.substr(rest.find_first_not_of(' '));
    }
    return r;
  }
};

class ReadOnlyDirectoryTest : public ResourcesTest {
 protected:
  void SetUp() override {
    ResourcesTest::SetUp();
    useDataDir(dataPath("data"));
    fs::create_directories(dir_);
    AlertData data(11);
    ASSERT_EQ(data.open(), 0u);
    for (int n = 0; n < 30; ++n) ASSERT_EQ(data.addLogEntry(n % 7 == 1), 0u);
    for (int n = 0; n < 6; ++n) ASSERT_EQ(data.addUser(2), 0u);
    for (int n = 0; n < 3; ++n) ASSERT_EQ(data.addServer(2), 0u);
    data.close();
    ASSERT_EQ(joined(data.verify()), "");
    user_ = platform::GuidToString(data.users.front().id);
    server_ = platform::GuidToString(data.serverList.front().id);
    BoundedRun run = worker({"read"}, dir_);
    ASSERT_EQ(run.exitCode, 0) << run.ending() << run.err;
    readable_ = WorkerReport::parse(run.out);
    ASSERT_EQ(readable_.reads.size(), 8u) << run.out;
    for (const auto &[table, read] : readable_.reads) {
      ASSERT_EQ(read.rfind(" ALRT_OK ", 0), 0u) << table << read;
    }
    before_ = contents(dir_);
  }

  BoundedRun worker(const std::vector<std::string> &args, const std::string &dir, int uid = -1) {
    BoundedRunOptions options;
    options.seconds = kChildSeconds;
    options.env = {{"ALERTDB_DATA_DIR", dir}};
    options.uid = options.gid = uid;
    return runBounded(std::string(ALERTDB_TEST_BINARY_DIR) + "/programs/resources_worker", args,
                      options);
  }

  // Every change is refused with a named status, every read gives what is
  // stored or a named status, and no byte of the directory changes.
  void expectRefusedAndUnchanged(const BoundedRun &run, const std::string &how) {
    ASSERT_EQ(run.exitCode, 0) << how << ": " << run.ending() << run.err;
    EXPECT_FALSE(run.sanitizerReport()) << run.err;
    WorkerReport r = WorkerReport::parse(run.out);
    EXPECT_EQ(r.ops.size(), 12u) << how << ":\n" << run.out;
    std::string summary;
    for (const auto &[op, status] : r.ops) {
      summary += " " + op + "=" + status;
      EXPECT_NE(status, "UNKNOWN") << how << " " << op;
      // The purge succeeds whatever its deletes gave, when the log opens.
      if (op != "purge") {
        EXPECT_NE(status, "ALRT_OK") << how << ": " << op << " reported done";
      }
    }
    std::string reads;
    for (const auto &[table, read] : r.reads) {
      std::istringstream words(read);
      std::string status;
      words >> status;
      if (status == "ALRT_OK") {
        EXPECT_EQ(read, readable_.reads[table]) << how << ": " << table << " reads otherwise";
      } else {
        EXPECT_NE(status, "UNKNOWN") << how << " " << table;
      }
      reads += " " + table + "=" + status;
    }
    EXPECT_EQ(contents(dir_), before_) << how << ": the data directory changed";
    std::printf("[read-only data directory] %s\n  changes:%s\n  reads:%s\n", how.c_str(),
                summary.c_str(), reads.c_str());
    std::fflush(stdout);
  }

  std::string user_, server_;
  WorkerReport readable_;
  std::map<std::string, std::string> before_;
};

TEST_F(ReadOnlyDirectoryTest, ThroughAReadOnlyMountEveryChangeIsRefusedAndNothingChanges) {
  Mount view = Mount::readOnlyView(dir_, dataPath("readonly"));
  if (!view.usable()) {
    GTEST_SKIP() << "a read-only bind mount cannot be made here (" << view.error() << ")";
  }
  BoundedRun run = worker({"change", user_, server_}, view.path());
  expectRefusedAndUnchanged(run, "read-only bind mount, as root");
}

TEST_F(ReadOnlyDirectoryTest, WithoutWritePermissionEveryChangeIsRefusedAndNothingChanges) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the worker as another user";
  // Root writes whatever the modes say, so the worker runs as "nobody".
  struct Modes {
    std::string top, dir;
    ~Modes() {
      ::chmod(top.c_str(), 0700);
      ::chmod(dir.c_str(), 0700);
    }
  } restore{dataDir(), dir_};
  ASSERT_EQ(::chmod(dataDir().c_str(), 0711), 0);
  for (const auto &[name, bytes] : before_) {
    ASSERT_EQ(::chmod((dir_ + "/" + name).c_str(), 0444), 0) << name;
  }
  ASSERT_EQ(::chmod(dir_.c_str(), 0555), 0);
  BoundedRun run = worker({"change", user_, server_}, dir_, kNobody);
  expectRefusedAndUnchanged(run, "directory 0555 and files 0444, as nobody");
}

// A sound file that cannot be opened for want of a writable directory is
// not damaged: check must not call it so (nor send its user to recover).
TEST_F(ReadOnlyDirectoryTest, CheckCallsNoSoundFileOfAReadOnlyMountDamaged) {
  Mount view = Mount::readOnlyView(dir_, dataPath("readonly"));
  if (!view.usable()) {
    GTEST_SKIP() << "a read-only bind mount cannot be made here (" << view.error() << ")";
  }
  BoundedRun run = tool({"check", "--format", "json"}, view.path());
  nlohmann::json files = nlohmann::json::parse(run.out, nullptr, false);
  ASSERT_FALSE(files.is_discarded()) << run.ending() << run.out << run.err;
  ASSERT_FALSE(files.empty());
  for (const auto &file : files) {
    EXPECT_NE(file["status"], "damaged") << file.dump(1).substr(0, 600);
  }
  EXPECT_EQ(contents(dir_), before_);
}

}  // namespace
}  // namespace alertdb_test
