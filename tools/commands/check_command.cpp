// The "check" command: the full check of every data file, or of those named,
// naming each damaged file and record.
#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "alertdb.h"
#include "platform/store/server_changes.h"
#include "tools/commands.h"
#include "tools/output_format.h"
#include "tools/store_file_reports.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

constexpr const char *kDescription =
    "Checks data files whole, without changing them: the file's header, SQLite's integrity\n"
    "check, the catalog against the tables, and every record's checksum and key columns.\n"
    "With no FILE, every data file of the data directory that is there, and any other\n"
    "\"*.dat\" record store in it; a FILE without a directory is looked for there.\n"
    "Each file is \"sound\", \"damaged\", \"not a store\" or \"missing\"; each problem names its\n"
    "table, and for a record its row (insertion number) and object ID where it can be\n"
    "read. A damaged file can be salvaged with alertdb recover.\n"
    "Exit status 0 when every file is sound, 1 when anything is damaged or missing.";

struct CheckOptions {
  std::vector<std::string> files;
  OutputFormat format = OutputFormat::Table;
};

CheckOptions g_options;

bool sameName(const std::string &a, const std::string &b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// A file to check; one found in the directory is reported only when it is a
// record store, since settings files share the extension.
struct FileToCheck {
  std::string name;
  bool onlyIfStore = false;
};

// The files to check when none is named: the library's data files that are
// there, then the other "*.dat" files of the directory.
std::vector<FileToCheck> filesOfDirectory() {
  std::vector<FileToCheck> files;
  for (const std::string &file : dataFiles()) {
    if (platform::FileExists(dataPath(file).c_str())) files.push_back({file, false});
  }
  std::vector<std::string> others;
  // On a database server the data files are its schemas, not the directory's.
  if (!platform::StoreServerForMessages().empty()) {
    for (const std::string &name : platform::ServerStoreNames()) {
      bool known = std::any_of(dataFiles().begin(), dataFiles().end(),
                               [&](const std::string &file) { return sameName(file, name); });
      if (!known) files.push_back({name, true});
    }
    return files;
  }
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(dataDirectory(), error)) {
    std::string name = entry.path().filename().string();
    bool known = std::any_of(dataFiles().begin(), dataFiles().end(),
                             [&](const std::string &file) { return sameName(file, name); });
    if (!known && entry.is_regular_file(error) && name.size() > 4 &&
        sameName(name.substr(name.size() - 4), ".dat")) {
      others.push_back(name);
    }
  }
  std::sort(others.begin(), others.end());
  for (const std::string &name : others) files.push_back({name, true});
  return files;
}

// Checks one file into `entry` (left empty for a file that is not ours);
// false when it is not sound.
bool checkFile(const FileToCheck &file, nlohmann::ordered_json *entry,
               nlohmann::ordered_json *problemRows) {
  std::string path = dataFileArgument(file.name);
  platform::StoreCheckReport report;
  std::uint32_t status;
  {
    Progress progress("checking " + file.name);
    status = platform::QDBCheckFile(path.c_str(), &report, progressOf(progress));
  }
  if (file.onlyIfStore && !report.isStore) return true;
  const char *verdict = status == platform::QDB_OK           ? "sound"
                        : status == platform::QDB_E_NOTFOUND ? "missing"
                        : status != platform::QDB_E_DAMAGED  ? "unreadable"
                        : report.isStore                     ? "damaged"
                                                             : "not a store";
  (*entry)["file"] = file.name;
  (*entry)["path"] = path;
  (*entry)["status"] = verdict;
  (*entry)["format"] = report.format ? nlohmann::ordered_json(report.format) : nullptr;
  std::uint64_t records = 0, damaged = 0;
  nlohmann::ordered_json tables = nlohmann::ordered_json::array();
  for (const platform::StoreTableCheck &table : report.tables) {
    tables.push_back(
        {{"name", table.name}, {"records", table.records}, {"damaged", table.damaged}});
    records += table.records;
    damaged += table.damaged;
  }
  (*entry)["records"] = records;
  (*entry)["damagedRecords"] = damaged;
  (*entry)["tables"] = std::move(tables);
  nlohmann::ordered_json problems = nlohmann::ordered_json::array();
  for (const platform::StoreProblem &problem : report.problems) {
    nlohmann::ordered_json row = {{"file", file.name}, {"status", verdict}};
    problems.push_back(problemJson(problem));
    row.update(problems.back());
    problemRows->push_back(std::move(row));
  }
  (*entry)["problems"] = std::move(problems);
  if (status == platform::QDB_OK) return true;
  if (status == platform::QDB_E_NOTFOUND) {
    std::fprintf(stderr, "alertdb check: %s\n",
                 describeStatus(status, "no data file " + path).c_str());
  } else if (status != platform::QDB_E_DAMAGED) {
    std::fprintf(stderr, "alertdb check: %s\n",
                 describeStatus(status, file.name + " could not be checked").c_str());
  }
  return false;
}

int runCheck() {
  std::vector<FileToCheck> files;
  for (const std::string &file : g_options.files) files.push_back({file, false});
  if (files.empty()) files = filesOfDirectory();
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
  nlohmann::ordered_json problemRows = nlohmann::ordered_json::array();
  bool sound = true;
  for (const FileToCheck &file : files) {
    nlohmann::ordered_json entry;
    sound = checkFile(file, &entry, &problemRows) && sound;
    if (!entry.empty()) entries.push_back(std::move(entry));
  }
  if (entries.empty()) {
    std::fprintf(stderr, "alertdb check: no data files in %s\n", dataDirectory().c_str());
  }
  switch (g_options.format) {
    case OutputFormat::Json:
      printJson(entries);
      break;
    case OutputFormat::Csv: {
      // One row per problem, and one for each file without any.
      nlohmann::ordered_json rows = nlohmann::ordered_json::array();
      for (const auto &entry : entries) {
        if (entry["problems"].empty()) {
          rows.push_back({{"file", entry["file"]}, {"status", entry["status"]}});
        }
        for (const auto &row : problemRows) {
          if (row["file"] == entry["file"]) rows.push_back(row);
        }
      }
      printRows(OutputFormat::Csv, {"file", "status", "table", "row", "objectId", "problem"}, rows);
      break;
    }
    case OutputFormat::Table:
      printRows(OutputFormat::Table, {"file", "status", "records", "damagedRecords"}, entries);
      if (!problemRows.empty()) {
        std::printf("\n");
        printRows(OutputFormat::Table, {"file", "table", "row", "objectId", "problem"},
                  problemRows);
      }
      break;
  }
  return sound ? 0 : 1;
}

}  // namespace

void addCheckCommand(CLI::App &tool) {
  CLI::App &command = addCommand(tool, "check",
                                 "check data files whole: integrity, catalog, "
                                 "every record's checksum and keys",
                                 [] { return runCheck(); });
  command.footer(kDescription);
  command.add_option("FILE", g_options.files, "data files to check (default: every one)");
  addFormatOption(command, g_options.format);
}

}  // namespace alertdb_tool
