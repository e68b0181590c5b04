// The "check" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addCheckCommand(CLI::App &) {}

}  // namespace alertdb_tool
