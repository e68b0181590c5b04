// The "init" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addInitCommand(CLI::App &) {}

}  // namespace alertdb_tool
