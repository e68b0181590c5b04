#include "platform/file_names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "platform/file_system_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform {

namespace fs {

std::string directoryOf(const std::string &path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void syncDirectory(const std::string &dir) {
  int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

}  // namespace fs

namespace {

bool exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// ASCII only: the result must not depend on the process locale.
bool equalIgnoringCase(const char *a, const char *b) {
  for (;; ++a, ++b) {
    unsigned char x = static_cast<unsigned char>(*a), y = static_cast<unsigned char>(*b);
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
    if (x != y) return false;
    if (x == '\0') return true;
  }
}

bool writeAll(int fd, const char *bytes, std::size_t length) {
  while (length > 0) {
    ssize_t n = ::write(fd, bytes, length);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes += n;
    length -= static_cast<std::size_t>(n);
  }
  return true;
}

bool copyContents(int from, int to) {
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(from, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!writeAll(to, buffer, static_cast<std::size_t>(n))) return false;
  }
}

std::uint32_t copyFile(const char *source, const char *destination) {
  const std::string from = ResolveFileName(source);
  const std::string to = ResolveFileName(destination);
  const bool destinationExisted = exists(to);
  // Every name is built before any descriptor is open, so nothing leaks if
  // building one throws.
  const std::string dir = fs::directoryOf(to);
  // The temporary file sits beside the destination so that rename() is atomic.
  std::string temp = (dir == "/" ? dir : dir + "/") + ".alertdb-copy-XXXXXX";
  const std::string wal = to + "-wal", shm = to + "-shm";

  int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return 1;
  int out = ::mkostemp(temp.data(), O_CLOEXEC);
  if (out < 0) {
    ::close(in);
    return 1;
  }
  struct stat st;
  bool ok = copyContents(in, out) && ::fstat(in, &st) == 0 &&
            ::fchmod(out, st.st_mode & 07777) == 0 && ::fsync(out) == 0;
  ::close(in);
  ok = ::close(out) == 0 && ok;
  if (ok && !destinationExisted) {
    // Journals beside a file that did not exist belong to a deleted store; they
    // go before the copy appears, or a store opened on it would replay them.
    ::unlink(wal.c_str());
    ::unlink(shm.c_str());
  }
  if (!ok || ::rename(temp.c_str(), to.c_str()) != 0) {
    ::unlink(temp.c_str());
    return 1;
  }
  fs::syncDirectory(dir);
  return 0;
}

}  // namespace

void NameStripFile(char *path) {
  if (!path) return;
  char *slash = std::strrchr(path, '/');
  if (!slash) {
    path[0] = '\0';
    return;
  }
  // "a//b" leaves "a", and the root stays the root.
  while (slash > path && slash[-1] == '/') --slash;
  slash[slash == path ? 1 : 0] = '\0';
}

void NameAppendFile(char *path, const char *name) {
  if (!path || !name) return;
  std::size_t length = std::strlen(path);
  if (length > 0) {
    while (*name == '/') ++name;
    if (path[length - 1] != '/') path[length++] = '/';
  }
  std::strcpy(path + length, name);
}

void NameStripExtension(char *path) {
  if (!path) return;
  char *slash = std::strrchr(path, '/');
  char *name = slash ? slash + 1 : path;
  char *dot = std::strrchr(name, '.');
  // A leading point names a hidden file; it is not an extension.
  if (dot && dot != name) *dot = '\0';
}

void NameAppendExtension(char *path, const char *extension) {
  if (!path || !extension) return;
  if (*extension == '.') ++extension;
  if (*extension == '\0') return;
  std::size_t length = std::strlen(path);
  path[length] = '.';
  std::strcpy(path + length + 1, extension);
}

std::string ResolveFileName(const std::string &path) {
  try {
    if (path.empty() || exists(path)) return path;
    const std::size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty()) return path;
    std::unique_ptr<DIR, int (*)(DIR *)> dir(::opendir(fs::directoryOf(path).c_str()), ::closedir);
    if (!dir) return path;
    // Of several names differing only in case, take the smallest so that the
    // choice does not depend on directory order.
    std::string found;
    while (const dirent *entry = ::readdir(dir.get())) {
      if (equalIgnoringCase(entry->d_name, name.c_str()) &&
          (found.empty() || std::strcmp(entry->d_name, found.c_str()) < 0)) {
        found = entry->d_name;
      }
    }
    if (found.empty()) return path;
    return path.substr(0, slash == std::string::npos ? 0 : slash + 1) + found;
  } catch (...) {
    try {
      return path;
    } catch (...) {
      return {};
    }
  }
}

std::uint32_t FileExists(const char *path) {
  if (!path || !*path) return 0;
  try {
    if (exists(ResolveFileName(path))) return 1;
    // With the data files on a server, a data file exists where it lives.
    return store::usesServerStore() && store::serverHoldsStore(path) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

std::uint32_t FileCopy(const char *source, const char *destination, std::uint32_t) {
  if (!source || !destination || !*source || !*destination) return 1;
  try {
    return copyFile(source, destination);
  } catch (...) {
    return 1;
  }
}

}  // namespace platform
