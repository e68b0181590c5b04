// The alertdb tool's commands. Each adds itself to the tool with its options.
#pragma once

namespace CLI {
class App;
}

namespace alertdb_tool {

void addDemoCommand(CLI::App &tool);
void addTablesCommand(CLI::App &tool);
void addDescribeCommand(CLI::App &tool);

}  // namespace alertdb_tool
