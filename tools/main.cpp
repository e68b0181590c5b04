// alertdb: prepare, inspect, watch, back up, check, recover and purge the
// alerting data.
#include <CLI/CLI.hpp>

#include "tools/commands.h"
#include "tools/tool_context.h"

#ifndef ALERTDB_VERSION
#define ALERTDB_VERSION "unknown"
#endif

int main(int argc, char **argv) {
  using namespace alertdb_tool;
  CLI::App tool{
      "alertdb: prepare, inspect, watch, back up, check, recover and purge the alerting data",
      "alertdb"};
  tool.set_version_flag("--version", "alertdb " ALERTDB_VERSION);
  tool.require_subcommand(1);
  addInitCommand(tool);
  addTablesCommand(tool);
  addDescribeCommand(tool);
  addDumpCommand(tool);
  addWatchCommand(tool);
  addPurgeCommand(tool);
  addBackupCommand(tool);
  addCheckCommand(tool);
  addRecoverCommand(tool);
  addDemoCommand(tool);
  addRelayCommand(tool);
  try {
    tool.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    int printed = tool.exit(error);
    // Help and version are successes; every other parse failure is a usage error.
    return printed == 0 ? 0 : 2;
  }
  return runChosenCommand();
}
