// Every test runs in its own data directory and event namespace, so that
// ctest can run tests in parallel. When ALERTDB_TEST_POSTGRES_SOCKET names
// the socket directory of a test server, each test also gets a database of
// its own there, and the library keeps its data files in it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace alertdb_test {

class IsolatedTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The test's data directory (ALERTDB_DATA_DIR), created empty.
  const std::string &dataDir() const { return dataDir_; }
  // A path inside the data directory.
  std::string dataPath(const std::string &name) const { return dataDir_ + "/" + name; }

  // Whether the data files live on a database server in this run.
  static bool onServerStore();
  // On a server, moves the data files to a new, empty database, as a new
  // data directory does for local files; nothing otherwise.
  void startAfreshOnServer();

  static void writeFile(const std::string &path, const std::string &bytes);
  static std::string readFile(const std::string &path);
  static bool fileExists(const std::string &path);

 private:
  std::string dataDir_;
  std::vector<std::string> databases_;
};

}  // namespace alertdb_test
