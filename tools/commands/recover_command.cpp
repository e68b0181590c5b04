// The "recover" command (not written yet: it registers nothing).
#include "tools/commands.h"

namespace alertdb_tool {

void addRecoverCommand(CLI::App &) {}

}  // namespace alertdb_tool
