#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/file_names.h"
#include "platform/file_system_internal.h"
#include "platform/store/record_store.h"
#include "platform/store/store_file_placement_internal.h"

namespace platform::store {

namespace {

// SQLite's "dead man switch" byte in the shared memory: every connection
// holds a read lock on it while it has the shared memory mapped.
constexpr off_t kSharedMemoryInUseByte = 128;

bool syncFile(const std::string &path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = ::fsync(fd) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

FileInMaking::~FileInMaking() {
  if (path_.empty() || placed_) return;
  ::unlink(path_.c_str());
  removeCompanions(path_);
}

bool FileInMaking::create(const std::string &target) {
  target_ = target;
  std::string dir = fs::directoryOf(target);
  std::string temp = (dir == "/" ? dir : dir + "/") + ".alertdb-new-XXXXXX";
  int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return false;
  ::close(fd);
  path_ = temp;
  return true;
}

void FileInMaking::takeModeOf(const std::string &model) {
  struct stat st;
  if (::stat(model.c_str(), &st) == 0) ::chmod(path_.c_str(), st.st_mode & 07777);
}

std::uint32_t FileInMaking::replaceTarget() {
  if (!syncFile(path_) || ::rename(path_.c_str(), target_.c_str()) != 0) return QDB_E_IO;
  placed_ = true;
  removeCompanions(path_);
  fs::syncDirectory(fs::directoryOf(target_));
  return QDB_OK;
}

std::uint32_t FileInMaking::placeAsNewTarget() {
  if (!syncFile(path_)) return QDB_E_IO;
  // link() refuses to replace what is there.
  if (::link(path_.c_str(), target_.c_str()) != 0) return errno == EEXIST ? QDB_E_EXISTS : QDB_E_IO;
  ::unlink(path_.c_str());
  placed_ = true;
  removeCompanions(path_);
  fs::syncDirectory(fs::directoryOf(target_));
  return QDB_OK;
}

void removeCompanions(const std::string &path) {
  for (const char *suffix : {"-wal", "-shm", "-journal"}) ::unlink((path + suffix).c_str());
}

bool openedElsewhere(const std::string &path) {
  int fd = ::open((path + "-shm").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = kSharedMemoryInUseByte;
  lock.l_len = 1;
  bool inUse = ::fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  ::close(fd);
  return inUse;
}

}  // namespace platform::store

namespace platform {

std::uint32_t QDBFileInUse(const char *path, bool *inUse) {
  if (!path || !*path || !inUse) return QDB_E_BADARG;
  try {
    *inUse = store::openedElsewhere(ResolveFileName(path));
    return QDB_OK;
  } catch (const std::bad_alloc &) {
    return QDB_E_NOMEMORY;
  } catch (...) {
    return QDB_E_IO;
  }
}

}  // namespace platform
