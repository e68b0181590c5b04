// Runs SQL on a data file wherever it lives: the SQLite file in the test's
// data directory, or its schema on the test's PostgreSQL server. Each row
// comes back as its columns joined by '|' (NULL as nothing).
#pragma once

#include <string>
#include <vector>

namespace alertdb_test {

// `path` is the data file's path; `sql` is plain SQL both databases take.
std::vector<std::string> queryDataFile(const std::string &path, const std::string &sql);

// Whether the server in ALERTDB_STORE holds a schema named exactly `name`.
bool serverHoldsSchema(const std::string &name);

// Runs SQL on the test's server database (not in a data file's schema).
std::vector<std::string> queryServer(const std::string &sql);

}  // namespace alertdb_test
