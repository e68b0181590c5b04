// What the backup, check and recover commands share: naming a data file on
// the command line, and telling a whole file's problems to people and
// programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/store/record_store.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

// The path of a data file named on the command line: a name alone is looked
// for in the data directory (in any letter case, as the library does), a
// name with a directory is taken as it is.
std::string dataFileArgument(const std::string &file);

// {"table": ..., "row": ..., "objectId": "{...}" or null, "problem": ...}
nlohmann::ordered_json problemJson(const platform::StoreProblem &problem);

// A progress display fed by the record store's progress calls.
platform::StoreProgress progressOf(Progress &progress);

}  // namespace alertdb_tool
