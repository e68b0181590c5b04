#include "support/test_environment.h"

#include <libpq-fe.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/object_manager.h"
#include "support/data_file_query.h"

namespace alertdb_test {

namespace {

std::string serverUri(const std::string &socketDir, const std::string &database) {
  return "postgresql:///" + database + "?host=" + socketDir + "&user=alertdb";
}

// Runs one statement on the test server's maintenance database.
std::string onServer(const std::string &socketDir, const std::string &sql) {
  PGconn *conn = PQconnectdb(serverUri(socketDir, "postgres").c_str());
  std::string error;
  if (PQstatus(conn) != CONNECTION_OK) {
    error = PQerrorMessage(conn);
  } else {
    PGresult *r = PQexec(conn, sql.c_str());
    if (PQresultStatus(r) != PGRES_COMMAND_OK) error = PQresultErrorMessage(r);
    PQclear(r);
  }
  PQfinish(conn);
  return error;
}

}  // namespace

bool IsolatedTest::onServerStore() {
  const char *store = std::getenv("ALERTDB_STORE");
  return store && std::string(store).rfind("postgresql://", 0) == 0;
}

void IsolatedTest::SetUp() {
  char pattern[] = "/tmp/alertdb-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  dataDir_ = pattern;
  setenv("ALERTDB_DATA_DIR", dataDir_.c_str(), 1);
  // The directory name is unique on the machine, so it makes a unique namespace.
  std::string ns = "alertdbtest_" + dataDir_.substr(dataDir_.rfind('-') + 1) + "_";
  setenv("ALERTDB_EVENT_NAMESPACE", ns.c_str(), 1);
  setenv("ALERTDB_CONSOLE_DIR", dataDir_.c_str(), 1);
  if (std::getenv("ALERTDB_TEST_POSTGRES_SOCKET")) startAfreshOnServer();
}

void IsolatedTest::startAfreshOnServer() {
  const char *socketDir = std::getenv("ALERTDB_TEST_POSTGRES_SOCKET");
  if (!socketDir) return;
  // The directory's unique suffix, in hex (database names ignore case), and
  // a count for the test's later databases.
  std::string database = "alertdb_test_";
  for (char c : dataDir_.substr(dataDir_.rfind('-') + 1)) {
    static const char digits[] = "0123456789abcdef";
    database += digits[(static_cast<unsigned char>(c) >> 4) & 0xF];
    database += digits[static_cast<unsigned char>(c) & 0xF];
  }
  if (!databases_.empty()) database += "_" + std::to_string(databases_.size());
  std::string error = onServer(socketDir, "CREATE DATABASE " + database);
  ASSERT_EQ(error, "") << "the test server refused a database for the test";
  databases_.push_back(database);
  setenv("ALERTDB_STORE", serverUri(socketDir, database).c_str(), 1);
}

void IsolatedTest::TearDown() {
  // An object manager a test put in place goes with it.
  platform::KepOMSetProvider(nullptr);
  // Sessions a test left open, its own or its children's, end with it.
  for (const std::string &database : databases_) {
    onServer(std::getenv("ALERTDB_TEST_POSTGRES_SOCKET"),
             "DROP DATABASE IF EXISTS " + database + " WITH (FORCE)");
  }
  if (!databases_.empty()) unsetenv("ALERTDB_STORE");
  databases_.clear();
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
  if (::stat(path.c_str(), &st) == 0) return true;
  // On a server a data file is its schema, under the name it was made with.
  return onServerStore() && serverHoldsSchema(path.substr(path.rfind('/') + 1));
}

}  // namespace alertdb_test
