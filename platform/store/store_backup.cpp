// Backups of data files through SQLite's online backup: one read snapshot of
// the store, write-ahead log included, copied page by page while writers go
// on, into a file that takes the backup's name only once it is whole.
#include <sys/stat.h>

#include <new>
#include <string>

#include "platform/file_names.h"
#include "platform/store/record_store.h"
#include "platform/store/sqlite/sqlite_file_check_internal.h"
#include "platform/store/sqlite/sqlite_file_reader_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"
#include "platform/store/store_file_placement_internal.h"

namespace platform {

namespace {

using namespace store;
using namespace store::sqlite;

constexpr int kPagesPerStep = 256;
constexpr int kBusyPauseMs = 10;

bool sameFile(const std::string &a, const std::string &b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

std::uint32_t copyPages(sqlite3 *source, const std::string &path, const StoreProgress &progress) {
  sqlite3 *copy = nullptr;
  int rc =
      sqlite3_open_v2(path.c_str(), &copy, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(copy);
    return QDB_E_IO;
  }
  // The copy is nobody's until it is whole, and it is synced as a whole.
  if (execute(copy, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF") != SQLITE_OK) {
    sqlite3_close_v2(copy);
    return QDB_E_IO;
  }
  // A read transaction held across every step keeps one snapshot: commits
  // made meanwhile do not restart the copy or tear it.
  rc = execute(source, "BEGIN");
  if (rc == SQLITE_OK) rc = execute(source, "SELECT count(*) FROM sqlite_master");
  sqlite3_backup *backup =
      rc == SQLITE_OK ? sqlite3_backup_init(copy, "main", source, "main") : nullptr;
  std::uint32_t status = rc == SQLITE_OK ? QDB_OK : resultOf(rc);
  if (backup) {
    int waited = 0;
    do {
      rc = sqlite3_backup_step(backup, kPagesPerStep);
      if (progress) {
        int pages = sqlite3_backup_pagecount(backup);
        progress(static_cast<std::uint64_t>(pages - sqlite3_backup_remaining(backup)),
                 static_cast<std::uint64_t>(pages));
      }
      if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) {
        if ((waited += kBusyPauseMs) > kBusyTimeoutMs) break;
        sqlite3_sleep(kBusyPauseMs);
      }
    } while (rc == SQLITE_OK || rc == SQLITE_BUSY || rc == SQLITE_LOCKED);
    int finished = sqlite3_backup_finish(backup);
    status = rc == SQLITE_DONE ? resultOf(finished) : resultOf(rc);
    if (rc != SQLITE_DONE && status == QDB_OK) status = QDB_E_IO;
  } else if (status == QDB_OK) {
    status = resultOf(sqlite3_errcode(copy));
    if (status == QDB_OK) status = QDB_E_IO;
  }
  execute(source, "COMMIT");
  if (sqlite3_close(copy) != SQLITE_OK) {
    sqlite3_close_v2(copy);
    if (status == QDB_OK) status = QDB_E_IO;
  }
  return status;
}

}  // namespace

std::uint32_t QDBBackupFile(const char *source, const char *target, const StoreProgress &progress) {
  if (!source || !*source || !target || !*target) return QDB_E_BADARG;
  try {
    std::string from = ResolveFileName(source), to = ResolveFileName(target);
    switch (inspectFile(from)) {
      case FileState::Missing:
        return QDB_E_NOTFOUND;
      case FileState::NotStore:
      case FileState::Damaged:
        return QDB_E_DAMAGED;
      case FileState::Store:
        break;
    }
    // A backup over its own source would replace what it reads.
    if (sameFile(from, to)) return QDB_E_BADARG;
    if (openedElsewhere(to)) return QDB_E_BUSY;
    ReadOnlyFile reader;
    std::uint32_t status = reader.open(from);
    if (status != QDB_OK) return status;
    FileInMaking copy;
    if (!copy.create(to)) return QDB_E_IO;
    if ((status = copyPages(reader.db(), copy.path(), progress)) != QDB_OK) return status;
    // Damage read from the source must not become the backup.
    StoreCheckReport report;
    status = QDBCheckFile(copy.path().c_str(), &report);
    if (status != QDB_OK)
      return status == QDB_E_DAMAGED || status == QDB_E_NOTFOUND ? QDB_E_DAMAGED : status;
    reader.closeSound();
    copy.takeModeOf(from);
    // A log left beside the old backup would be replayed onto the new one.
    removeCompanions(to);
    return copy.replaceTarget();
  } catch (const std::bad_alloc &) {
    return QDB_E_NOMEMORY;
  } catch (...) {
    return QDB_E_IO;
  }
}

}  // namespace platform
