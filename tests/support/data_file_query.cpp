#include "support/data_file_query.h"

#include <libpq-fe.h>
#include <sqlite3.h>

#include <cstdlib>

namespace alertdb_test {

namespace {

std::vector<std::string> onServer(const std::string &schema, const std::string &sql) {
  std::vector<std::string> rows;
  const char *uri = std::getenv("ALERTDB_STORE");
  PGconn *conn = PQconnectdb(uri ? uri : "");
  if (PQstatus(conn) == CONNECTION_OK) {
    if (!schema.empty()) {
      char *name = PQescapeIdentifier(conn, schema.c_str(), schema.size());
      PQclear(PQexec(conn, ("SET search_path TO " + std::string(name)).c_str()));
      PQfreemem(name);
    }
    PGresult *r = PQexec(conn, sql.c_str());
    for (int i = 0; i < PQntuples(r); ++i) {
      std::string row;
      for (int c = 0; c < PQnfields(r); ++c) {
        row += std::string(c ? "|" : "") + PQgetvalue(r, i, c);
      }
      rows.push_back(row);
    }
    PQclear(r);
  }
  PQfinish(conn);
  return rows;
}

bool onServerStore() {
  const char *store = std::getenv("ALERTDB_STORE");
  return store && std::string(store).rfind("postgresql://", 0) == 0;
}

}  // namespace

std::vector<std::string> queryDataFile(const std::string &path, const std::string &sql) {
  if (onServerStore()) {
    std::string name = path.substr(path.rfind('/') + 1);
    // The schema of the file, matched as the library matches it.
    std::vector<std::string> schema = onServer(
        "", "SELECT nspname FROM pg_namespace WHERE lower(nspname) = lower('" + name + "')");
    return schema.empty() ? std::vector<std::string>{} : onServer(schema[0], sql);
  }
  std::vector<std::string> rows;
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_exec(
        db, sql.c_str(),
        [](void *out, int n, char **values, char **) {
          std::string row;
          for (int i = 0; i < n; ++i) {
            row += std::string(i ? "|" : "") + (values[i] ? values[i] : "");
          }
          static_cast<std::vector<std::string> *>(out)->push_back(row);
          return 0;
        },
        &rows, nullptr);
  }
  sqlite3_close(db);
  return rows;
}

bool serverHoldsSchema(const std::string &name) {
  if (!onServerStore() || name.find('\'') != std::string::npos) return false;
  return onServer("", "SELECT 1 FROM pg_namespace WHERE nspname = '" + name + "'").size() == 1;
}

std::vector<std::string> queryServer(const std::string &sql) { return onServer("", sql); }

}  // namespace alertdb_test
