#include "tools/data_file_list.h"

#include <strings.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "tools/catalog_records.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

bool isKnownDataFile(const std::string &name) {
  const std::vector<std::string> &known = dataFiles();
  return std::any_of(known.begin(), known.end(), [&](const std::string &file) {
    return strcasecmp(file.c_str(), name.c_str()) == 0;
  });
}

std::vector<std::string> dataFilesToList() {
  std::vector<std::string> files = dataFiles();
  std::vector<std::string> others;
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(dataDirectory(), error)) {
    std::string name = entry.path().filename().string();
    if (!entry.is_regular_file(error) || name.size() <= 4 ||
        strcasecmp(name.c_str() + name.size() - 4, ".dat") != 0 || isKnownDataFile(name)) {
      continue;
    }
    // Settings files share the extension; only stores are listed.
    if (StoreFile(entry.path().string()).isOpen()) others.push_back(name);
  }
  std::sort(others.begin(), others.end());
  files.insert(files.end(), others.begin(), others.end());
  return files;
}

}  // namespace alertdb_tool
