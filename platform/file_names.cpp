#include "platform/file_names.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace platform {

namespace {

bool exists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

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

bool copyContents(int from, int to) {
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(from, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    for (ssize_t done = 0; done < n;) {
      ssize_t w = ::write(to, buffer + done, static_cast<std::size_t>(n - done));
      if (w < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      done += w;
    }
  }
}

}  // namespace

void NameStripFile(char *path) {
  if (!path) return;
  char *slash = std::strrchr(path, '/');
  if (!slash) {
    path[0] = '\0';
  } else if (slash == path) {
    path[1] = '\0';
  } else {
    *slash = '\0';
  }
}

void NameAppendFile(char *path, const char *name) {
  if (!path || !name) return;
  std::size_t length = std::strlen(path);
  if (length > 0 && path[length - 1] != '/') {
    path[length++] = '/';
    path[length] = '\0';
  }
  std::strcpy(path + length, name);
}

void NameStripExtension(char *path) {
  if (!path) return;
  char *slash = std::strrchr(path, '/');
  char *dot = std::strrchr(slash ? slash : path, '.');
  if (dot && dot != (slash ? slash + 1 : path)) *dot = '\0';
}

void NameAppendExtension(char *path, const char *extension) {
  if (!path || !extension) return;
  std::strcat(path, ".");
  std::strcat(path, extension);
}

std::string ResolveFileName(const std::string &path) {
  if (path.empty() || exists(path)) return path;
  std::size_t slash = path.rfind('/');
  std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty()) return path;
  DIR *d = ::opendir(dir.c_str());
  if (!d) return path;
  std::string found;
  while (dirent *entry = ::readdir(d)) {
    if (::strcasecmp(entry->d_name, name.c_str()) == 0) {
      found = entry->d_name;
      break;
    }
  }
  ::closedir(d);
  if (found.empty()) return path;
  return slash == std::string::npos ? found : path.substr(0, slash + 1) + found;
}

std::uint32_t FileExists(const char *path) {
  if (!path || !*path) return 0;
  try {
    return exists(ResolveFileName(path)) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

std::uint32_t FileCopy(const char *source, const char *destination, std::uint32_t) {
  if (!source || !destination || !*source || !*destination) return 1;
  try {
    std::string from = ResolveFileName(source);
    std::string to = ResolveFileName(destination);
    bool destinationExisted = exists(to);
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return 1;
    std::string temp = directoryOf(to) + "/.alertdb-copy-XXXXXX";
    int out = ::mkstemp(temp.data());
    if (out < 0) {
      ::close(in);
      return 1;
    }
    struct stat st;
    bool ok = copyContents(in, out) && ::fstat(in, &st) == 0 &&
              ::fchmod(out, st.st_mode & 07777) == 0 && ::fsync(out) == 0;
    ::close(in);
    ok = ::close(out) == 0 && ok;
    // The rename replaces the destination whole or not at all.
    if (!ok || ::rename(temp.c_str(), to.c_str()) != 0) {
      ::unlink(temp.c_str());
      return 1;
    }
    if (!destinationExisted) {
      // Journals beside a file that did not exist belong to a deleted store
      // and would be replayed onto the copy.
      ::unlink((to + "-wal").c_str());
      ::unlink((to + "-shm").c_str());
    }
    syncDirectory(directoryOf(to));
    return 0;
  } catch (...) {
    return 1;
  }
}

}  // namespace platform
