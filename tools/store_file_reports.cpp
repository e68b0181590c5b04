#include "tools/store_file_reports.h"

#include "alertdb.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

std::string dataFileArgument(const std::string &file) {
  std::string path = file.find('/') == std::string::npos ? dataPath(file) : file;
  return platform::ResolveFileName(path);
}

nlohmann::ordered_json problemJson(const platform::StoreProblem &problem) {
  nlohmann::ordered_json out;
  out["table"] =
      problem.table.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(problem.table);
  out["row"] = problem.row > 0 ? nlohmann::ordered_json(problem.row) : nlohmann::ordered_json();
  out["objectId"] = problem.hasObjectId
                        ? nlohmann::ordered_json(platform::GuidToString(problem.objectId))
                        : nlohmann::ordered_json();
  out["problem"] = problem.what;
  return out;
}

platform::StoreProgress progressOf(Progress &progress) {
  return [&progress](std::uint64_t done, std::uint64_t total) { progress.update(done, total); };
}

}  // namespace alertdb_tool
