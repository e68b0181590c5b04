// Inspecting data files through the record store's catalog.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "alertdb.h"
#include "tools/commands.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

// Prints the tables of one data file; false when it is missing or refused.
bool listTables(const std::string &file) {
  std::string path = dataPath(file);
  if (!platform::FileExists(path.c_str())) {
    std::printf("%-14s (not there)\n", file.c_str());
    return true;
  }
  KEPDB *h = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!h) {
    std::printf("%-14s refused: not a store, or damaged\n", file.c_str());
    return false;
  }
  std::vector<std::string> names;
  platform::QDBTableNames(h, &names);
  std::printf("%-14s %zu table%s\n", file.c_str(), names.size(), names.size() == 1 ? "" : "s");
  for (const std::string &name : names) {
    platform::StoreTableInfo info;
    if (platform::QDBTableInfo(h, name.c_str(), &info) == 0) {
      std::printf("  %-28s %8u records  %s\n", name.c_str(), info.recordCount, info.title.c_str());
    }
  }
  platform::QDBDone(h);
  return true;
}

}  // namespace

int runTables(const std::string &file) {
  bool ok = true;
  if (!file.empty()) return listTables(file) ? 0 : 1;
  for (const std::string &each : dataFiles()) ok = listTables(each) && ok;
  return ok ? 0 : 1;
}

int runDescribe(const std::vector<std::string> &args) {
  std::string path = dataPath(args[0]);
  KEPDB *h = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!h) {
    std::fprintf(stderr, "alertdb: cannot open %s\n", path.c_str());
    return 1;
  }
  platform::StoreTableInfo info;
  std::uint32_t r = platform::QDBTableInfo(h, args[1].c_str(), &info);
  platform::QDBDone(h);
  if (r != 0) {
    std::fprintf(stderr, "alertdb: %s holds no table %s\n", args[0].c_str(), args[1].c_str());
    return 1;
  }
  std::printf("%s: %s (%u records, object-ID key %u)\n", info.name.c_str(), info.title.c_str(),
              info.recordCount, info.idKey);
  std::printf("  %-3s %-26s %4s %5s %6s %8s  %s\n", "no", "field", "key", "attr", "size", "flags",
              "description");
  for (std::size_t i = 0; i < info.fields.size(); ++i) {
    const auto &f = info.fields[i];
    std::printf("  %-3zu %-26s %4u %5u %6u %#8x  %s%s%s\n", i, f.name.c_str(), f.keyNumber,
                f.attribute, f.size, f.flags, f.description.c_str(),
                f.queryType.empty() ? "" : "  ", f.queryType.c_str());
  }
  return 0;
}

void addTablesCommand(CLI::App &tool) {
  static std::string file;
  CLI::App &command = addCommand(tool, "tables", "list the tables of every data file, or of FILE",
                                 [] { return runTables(file); });
  command.add_option("FILE", file, "one data file");
}

void addDescribeCommand(CLI::App &tool) {
  static std::vector<std::string> args;
  CLI::App &command =
      addCommand(tool, "describe", "show the fields of a table", [] { return runDescribe(args); });
  command.add_option("FILE TABLE", args, "the data file and the table")->expected(2)->required();
}

}  // namespace alertdb_tool
