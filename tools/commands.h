// The alertdb tool's commands. Each adds itself to the tool with its options.
#pragma once

namespace CLI {
class App;
}

namespace alertdb_tool {

void addInitCommand(CLI::App &tool);
void addTablesCommand(CLI::App &tool);
void addDescribeCommand(CLI::App &tool);
void addDumpCommand(CLI::App &tool);
void addWatchCommand(CLI::App &tool);
void addPurgeCommand(CLI::App &tool);
void addBackupCommand(CLI::App &tool);
void addCheckCommand(CLI::App &tool);
void addRecoverCommand(CLI::App &tool);
void addDemoCommand(CLI::App &tool);
void addRelayCommand(CLI::App &tool);

}  // namespace alertdb_tool
