// The "backup" command: the ".BAK" copy of each data file that opening a
// table restores from, written as a consistent snapshot and then proved.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
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
    "Writes the backup of each data file that opening a table restores from when the file\n"
    "is missing: \"AlCfgdb.dat\" goes to \"AlCfgdb.BAK\" beside it, and so on for\n"
    "kepuser.dat, AlRespDB.dat, AlServdb.dat and AlEvntdb.dat. Each backup is one\n"
    "consistent snapshot of what programs had committed (SQLite's online backup, so they\n"
    "may go on writing meanwhile), built under a temporary name and put in place only when\n"
    "whole; then it is opened and fully checked. A damaged data file gets no backup, and\n"
    "its previous backup is kept. Exit status 1 when any backup failed.";

OutputFormat g_format = OutputFormat::Table;

std::string baseName(const std::string &path) { return path.substr(path.rfind('/') + 1); }

// Writes and proves one backup; false, with the reason in the entry, when
// it failed.
bool backUp(const std::string &file, nlohmann::ordered_json *entry) {
  std::string path = dataPath(file);
  std::string target = backupPathOf(path);
  (*entry)["file"] = file;
  (*entry)["backup"] = baseName(target);
  (*entry)["status"] = "written";
  (*entry)["tables"] = nullptr;
  (*entry)["records"] = nullptr;
  (*entry)["error"] = nullptr;
  auto fail = [&](std::uint32_t status, const std::string &what) {
    std::string text = describeStatus(status, fmt::format("{}: {}", file, what));
    std::fprintf(stderr, "alertdb backup: %s\n", text.c_str());
    (*entry)["status"] = "failed";
    (*entry)["error"] = text;
    return false;
  };
  if (!platform::FileExists(path.c_str())) {
    (*entry)["status"] = "absent";
    return true;
  }
  std::uint32_t status;
  {
    Progress progress("backing up " + file);
    status = platform::QDBBackupFile(path.c_str(), target.c_str(), progressOf(progress));
  }
  switch (status) {
    case platform::QDB_OK:
      break;
    case platform::QDB_E_DAMAGED:
      return fail(status, "the file is damaged (see alertdb check); the previous backup is kept");
    case platform::QDB_E_BUSY:
      return fail(status, fmt::format("{} is open in another program", baseName(target)));
    default:
      return fail(status, "the backup could not be written; the previous backup is kept");
  }
  // Proof: the copy opens as a store and passes the full check.
  KEPDB *handle = platform::QDBInit(0, target.c_str(), platform::kOpenExisting, 1);
  if (!handle) return fail(platform::QDB_E_DAMAGED, "the backup written does not open");
  platform::QDBDone(handle);
  platform::StoreCheckReport report;
  status = platform::QDBCheckFile(target.c_str(), &report);
  if (status != platform::QDB_OK) {
    return fail(status, fmt::format("the backup written fails its check: {}",
                                    report.problems.empty() ? "" : report.problems[0].what));
  }
  std::uint64_t records = 0;
  for (const platform::StoreTableCheck &table : report.tables) records += table.records;
  (*entry)["tables"] = report.tables.size();
  (*entry)["records"] = records;
  return true;
}

int runBackup() {
  // A server keeps its own backups; a file copy of one schema is not one.
  if (std::string server = platform::StoreServerForMessages(); !server.empty()) {
    throw ToolError("the data files are on the PostgreSQL server " + server +
                    ": back them up with the server's tools (pg_dump, or its base backups)");
  }
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
  bool ok = true;
  for (const std::string &file : restorableDataFiles()) {
    nlohmann::ordered_json entry;
    ok = backUp(file, &entry) && ok;
    entries.push_back(std::move(entry));
  }
  printRows(g_format, {"file", "backup", "status", "tables", "records"}, entries);
  return ok ? 0 : 1;
}

}  // namespace

void addBackupCommand(CLI::App &tool) {
  CLI::App &command =
      addCommand(tool, "backup", "write the .BAK backup of each data file that tables restore from",
                 [] { return runBackup(); });
  command.footer(kDescription);
  addFormatOption(command, g_format);
}

}  // namespace alertdb_tool
