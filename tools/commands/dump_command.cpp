// The "dump" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addDumpCommand(CLI::App &) {}

}  // namespace alertdb_tool
