// The "tables" command: every data file of the data directory, the tables its
// catalog holds and their record counts.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/catalog_records.h"
#include "tools/commands.h"
#include "tools/data_file_list.h"
#include "tools/output_format.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

struct TablesOptions {
  std::string file;
  OutputFormat format = OutputFormat::Table;
};

void reportProblem(const std::string &text) {
  std::fprintf(stderr, "alertdb tables: %s\n", text.c_str());
}

// One data file with its tables; false when it is missing, refused, or a
// table of it cannot be counted.
bool listFile(const std::string &file, nlohmann::ordered_json *entry) {
  (*entry)["name"] = file;
  (*entry)["status"] = "ok";
  (*entry)["tables"] = nlohmann::ordered_json::array();
  std::string path = dataFilePath(file);
  if (!platform::FileExists(path.c_str())) {
    (*entry)["status"] = "missing";
    reportProblem(describeStatus(ALRT_MISSINGFILE, missingFileText(file)));
    return false;
  }
  StoreFile store(path);
  std::vector<std::string> names;
  std::uint32_t status = store.isOpen() ? store.tableNames(&names) : kRefusedFileStatus;
  if (status != 0) {
    (*entry)["status"] = "refused";
    reportProblem(describeStatus(status, refusedFileText(file)));
    return false;
  }
  bool ok = true;
  for (const std::string &name : names) {
    platform::StoreTableInfo info;
    nlohmann::ordered_json table = {{"name", name}};
    status = store.tableInfo(name, &info);
    if (status == 0) {
      table["title"] = info.title;
      table["records"] = info.recordCount;
    } else {
      table["title"] = nullptr;
      table["records"] = nullptr;
      table["error"] = AlertDBStatusName(status);
      reportProblem(
          describeStatus(status, fmt::format("cannot count the records of {} in {}", name, file)));
      ok = false;
    }
    (*entry)["tables"].push_back(std::move(table));
  }
  return ok;
}

void printTablesText(const nlohmann::ordered_json &files) {
  for (const auto &file : files) {
    const std::string name = file["name"];
    const std::string status = file["status"];
    if (status != "ok") {
      std::printf("%-14s %s\n", name.c_str(),
                  status == "missing" ? "missing" : "refused: not a store, or damaged");
      continue;
    }
    std::size_t count = file["tables"].size();
    std::printf("%-14s %zu table%s\n", name.c_str(), count, count == 1 ? "" : "s");
    for (const auto &table : file["tables"]) {
      const std::string tableName = table["name"];
      if (table["records"].is_null()) {
        std::printf("  %-28s %8s          %s\n", tableName.c_str(), "?",
                    table["error"].get<std::string>().c_str());
      } else {
        std::printf("  %-28s %8u records  %s\n", tableName.c_str(),
                    table["records"].get<std::uint32_t>(),
                    table["title"].get<std::string>().c_str());
      }
    }
  }
}

void printTablesCsv(const nlohmann::ordered_json &files) {
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  for (const auto &file : files) {
    if (file["tables"].empty()) {
      rows.push_back({{"file", file["name"]}, {"status", file["status"]}});
    }
    for (const auto &table : file["tables"]) {
      rows.push_back({{"file", file["name"]},
                      {"status", file["status"]},
                      {"table", table["name"]},
                      {"title", table["title"]},
                      {"records", table["records"]}});
    }
  }
  printRows(OutputFormat::Csv, {"file", "status", "table", "title", "records"}, rows);
}

int runTables(const TablesOptions &options) {
  std::vector<std::string> files;
  if (options.file.empty()) {
    files = dataFilesToList();
  } else {
    files.push_back(options.file);
  }
  nlohmann::ordered_json listed = nlohmann::ordered_json::array();
  bool ok = true;
  for (const std::string &file : files) {
    nlohmann::ordered_json entry;
    ok = listFile(file, &entry) && ok;
    listed.push_back(std::move(entry));
  }
  switch (options.format) {
    case OutputFormat::Json:
      printJson(listed);
      break;
    case OutputFormat::Csv:
      printTablesCsv(listed);
      break;
    case OutputFormat::Table:
      printTablesText(listed);
      break;
  }
  return ok ? 0 : 1;
}

}  // namespace

void addTablesCommand(CLI::App &tool) {
  static TablesOptions options;
  CLI::App &command =
      addCommand(tool, "tables",
                 "list every data file of the data directory (or FILE), its tables and their "
                 "record counts",
                 [] { return runTables(options); });
  command.add_option("FILE", options.file, "one data file, by name or path");
  addFormatOption(command, options.format);
}

}  // namespace alertdb_tool
