// The alertdb tool's commands. Each returns the process exit code.
#pragma once

#include <string>
#include <vector>

namespace alertdb_tool {

using Arguments = std::vector<std::string>;

struct Command {
  const char *name;
  const char *usage;
  const char *summary;
  int (*run)(const Arguments &args);
};

// The data directory the library will use (set up by main).
const std::string &dataDirectory();

// The data files of the alerting data, in the order the tool reports them.
const std::vector<std::string> &dataFiles();

int runTables(const Arguments &args);
int runDescribe(const Arguments &args);
int runDemo(const Arguments &args);

}  // namespace alertdb_tool
