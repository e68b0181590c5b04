// The "watch" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addWatchCommand(CLI::App &) {}

}  // namespace alertdb_tool
