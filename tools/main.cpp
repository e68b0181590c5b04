// alertdb: prepare, inspect, watch, back up and purge the alerting data.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "alertdb.h"
#include "tools/commands.h"

#ifndef ALERTDB_DEFAULT_DATA_DIR
#define ALERTDB_DEFAULT_DATA_DIR "alertdb-data"
#endif

namespace alertdb_tool {

namespace {

std::string g_dataDirectory;

const Command kCommands[] = {
    {"demo", "demo", "prepare the data directory and report what it holds", runDemo},
    {"tables", "tables [FILE]", "list the tables of every data file, or of FILE", runTables},
    {"describe", "describe FILE TABLE", "show the fields of a table", runDescribe},
};

void usage() {
  std::printf("usage: alertdb COMMAND [ARGS]\n\ncommands:\n");
  for (const Command &c : kCommands) std::printf("  %-22s %s\n", c.usage, c.summary);
  std::printf(
      "\nThe data directory is ALERTDB_DATA_DIR, else \"DataDir\" of the console settings\n"
      "file QADMIN.DAT, else %s.\n",
      ALERTDB_DEFAULT_DATA_DIR);
}

// The library's own lookup first; the tool's embedded default otherwise.
bool setUpDataDirectory() {
  char dir[260];
  if (platform::KepOMGetDataDir(dir, sizeof dir) == 0) {
    g_dataDirectory = dir;
  } else {
    g_dataDirectory = ALERTDB_DEFAULT_DATA_DIR;
    setenv("ALERTDB_DATA_DIR", g_dataDirectory.c_str(), 1);
  }
  struct stat st;
  if (::stat(g_dataDirectory.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  std::string partial;
  for (std::size_t i = 0; i <= g_dataDirectory.size(); ++i) {
    if (i == g_dataDirectory.size() || (g_dataDirectory[i] == '/' && i > 0)) {
      partial = g_dataDirectory.substr(0, i);
      ::mkdir(partial.c_str(), 0755);
    }
  }
  return ::stat(g_dataDirectory.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

const std::string &dataDirectory() { return g_dataDirectory; }

const std::vector<std::string> &dataFiles() {
  static const std::vector<std::string> files = {"AlCfgdb.dat",  "APgeProv.dat", "AlServdb.dat",
                                                 "AlEvntdb.dat", "KEPLogDB.dat", "AlRespDB.dat",
                                                 "kepuser.dat"};
  return files;
}

}  // namespace alertdb_tool

int main(int argc, char **argv) {
  using namespace alertdb_tool;
  if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
    usage();
    return argc < 2 ? 2 : 0;
  }
  for (const Command &c : kCommands) {
    if (std::strcmp(argv[1], c.name) != 0) continue;
    if (!setUpDataDirectory()) {
      std::fprintf(stderr, "alertdb: cannot use the data directory %s\n", dataDirectory().c_str());
      return 1;
    }
    return c.run(Arguments(argv + 2, argv + argc));
  }
  std::fprintf(stderr, "alertdb: unknown command '%s'\n", argv[1]);
  usage();
  return 2;
}
