#include "support/test_environment.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace alertdb_test {

void IsolatedTest::SetUp() {
  char pattern[] = "/tmp/alertdb-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  dataDir_ = pattern;
  setenv("ALERTDB_DATA_DIR", dataDir_.c_str(), 1);
  // The directory name is unique on the machine, so it makes a unique namespace.
  std::string ns = "alertdbtest_" + dataDir_.substr(dataDir_.rfind('-') + 1) + "_";
  setenv("ALERTDB_EVENT_NAMESPACE", ns.c_str(), 1);
  setenv("ALERTDB_CONSOLE_DIR", dataDir_.c_str(), 1);
}

void IsolatedTest::TearDown() {
  std::error_code ec;
  if (!dataDir_.empty()) std::filesystem::remove_all(dataDir_, ec);
  // The test's named events live in shared memory under its namespace.
  const char *ns = std::getenv("ALERTDB_EVENT_NAMESPACE");
  if (!ns || !*ns) return;
  std::string prefix = std::string("alertdb.") + ns;
  for (const auto &entry : std::filesystem::directory_iterator("/dev/shm", ec)) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) {
      std::filesystem::remove(entry.path(), ec);
    }
  }
}

void IsolatedTest::writeFile(const std::string &path, const std::string &bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string IsolatedTest::readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

bool IsolatedTest::fileExists(const std::string &path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace alertdb_test
