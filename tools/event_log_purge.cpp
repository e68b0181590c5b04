#include "tools/event_log_purge.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "alertdb.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

constexpr const char *kLogFile = "KEPLogDB.dat";
constexpr const char *kLogTable = "EVENT_LOG";
// "DataDir" is read into 260 bytes.
constexpr std::size_t kMaxDataDirLength = 259;

std::optional<std::uint64_t> tryCountLogEntries() {
  std::string path = dataPath(kLogFile);
  if (!platform::FileExists(path.c_str())) return std::nullopt;
  KEPDB *handle = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!handle) return std::nullopt;
  platform::StoreTableInfo info;
  std::uint32_t status = platform::QDBTableInfo(handle, kLogTable, &info);
  platform::QDBDone(handle);
  if (status != 0) return std::nullopt;
  return info.recordCount;
}

// PurgeLog finds the data directory (and its QADMIN.INI) through the console
// settings file, not through ALERTDB_DATA_DIR. While it runs, a settings file
// of our own naming the tool's data directory stands in for the console's, so
// that the log purged is the one the tool reports on.
class ConsoleSettingsForDataDirectory {
 public:
  ConsoleSettingsForDataDirectory() {
    const std::string &dataDir = dataDirectory();
    if (dataDir.size() > kMaxDataDirLength) {
      failWithStatus(ALRT_E_NODATADIR,
                     fmt::format("the purge takes a data directory of at most {} characters",
                                 kMaxDataDirLength));
    }
    std::error_code error;
    std::string pattern =
        (std::filesystem::temp_directory_path(error) / "alertdb-purge-XXXXXX").string();
    if (error || !::mkdtemp(pattern.data())) {
      failWithStatus(ALRT_E_NODATADIR, "cannot make a temporary directory for the purge settings");
    }
    directory_ = pattern;
    std::ofstream settings(directory_ + "/QADMIN.DAT", std::ios::trunc);
    settings << "[Directories]\nDataDir=" << dataDir << "\n";
    settings.close();
    if (!settings) {
      removeDirectory();
      failWithStatus(ALRT_E_NODATADIR, "cannot write the purge settings");
    }
    if (const char *previous = std::getenv("ALERTDB_CONSOLE_DIR")) previous_ = previous;
    ::setenv("ALERTDB_CONSOLE_DIR", directory_.c_str(), 1);
  }

  ~ConsoleSettingsForDataDirectory() {
    if (previous_) {
      ::setenv("ALERTDB_CONSOLE_DIR", previous_->c_str(), 1);
    } else {
      ::unsetenv("ALERTDB_CONSOLE_DIR");
    }
    removeDirectory();
  }

  ConsoleSettingsForDataDirectory(const ConsoleSettingsForDataDirectory &) = delete;
  ConsoleSettingsForDataDirectory &operator=(const ConsoleSettingsForDataDirectory &) = delete;

 private:
  void removeDirectory() {
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }

  std::string directory_;
  std::optional<std::string> previous_;
};

// PurgeLog gives no progress of its own: on a terminal, the shrinking log is
// counted from a second thread while it runs.
class PurgeProgress {
 public:
  explicit PurgeProgress(std::uint64_t before) : before_(before) {
    if (::isatty(2) != 1 || before == 0) return;
    watcher_ = std::thread([this] { watch(); });
  }

  ~PurgeProgress() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    if (watcher_.joinable()) watcher_.join();
  }

  PurgeProgress(const PurgeProgress &) = delete;
  PurgeProgress &operator=(const PurgeProgress &) = delete;

 private:
  void watch() {
    Progress progress("purging the event log, entries removed");
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return done_; })) {
      lock.unlock();
      std::optional<std::uint64_t> now = tryCountLogEntries();
      if (now) progress.update(before_ > *now ? before_ - *now : 0, before_);
      lock.lock();
    }
  }

  std::uint64_t before_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread watcher_;
};

std::string purgeFailure(std::uint32_t status) {
  switch (status) {
    case ALRT_E_INVALIDPARAM:
      return "the purge refused its flags";
    case ALRT_E_NODATADIR:
      return "the purge found no data directory";
    case ALRT_E_OPENFAILED:
      return fmt::format("cannot open the event log {} (it is not there, or it is damaged)",
                         dataPath(kLogFile));
    default:
      return "the purge failed";
  }
}

}  // namespace

std::uint64_t countLogEntries() {
  std::optional<std::uint64_t> count = tryCountLogEntries();
  if (!count) {
    failWithStatus(ALRT_E_OPENFAILED,
                   fmt::format("cannot read the event log {} (it is not there, or it is damaged)",
                               dataPath(kLogFile)));
  }
  return *count;
}

LogPurgeCounts purgeEventLog(std::uint32_t flags) {
  LogPurgeCounts counts;
  counts.before = countLogEntries();
  std::uint32_t status;
  {
    ConsoleSettingsForDataDirectory settings;
    PurgeProgress progress(counts.before);
    status = PurgeLog(flags);
  }
  if (status != 0) failWithStatus(status, purgeFailure(status));
  counts.after = countLogEntries();
  return counts;
}

}  // namespace alertdb_tool
