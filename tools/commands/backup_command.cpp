// The "backup" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addBackupCommand(CLI::App &) {}

}  // namespace alertdb_tool
