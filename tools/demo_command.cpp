// The main job: prepare the data directory and report what it holds.
#include <cstdio>
#include <string>

#include "alertdb.h"
#include "tools/commands.h"

namespace alertdb_tool {

int runDemo(const Arguments &) {
  std::printf("data directory: %s\n", dataDirectory().c_str());
  int failures = 0;
  for (const std::string &file : dataFiles()) {
    std::string path = dataDirectory() + "/" + file;
    // Opening in create mode makes an empty store where none is yet.
    KEPDB *h = platform::QDBInit(0, path.c_str(), platform::kOpenCreate, 1);
    if (!h) {
      std::printf("%-14s refused: not a store, or damaged\n", file.c_str());
      ++failures;
      continue;
    }
    platform::QDBDone(h);
  }
  if (runTables({}) != 0) ++failures;
  return failures == 0 ? 0 : 1;
}

}  // namespace alertdb_tool
