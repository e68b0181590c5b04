// The "purge" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addPurgeCommand(CLI::App &) {}

}  // namespace alertdb_tool
