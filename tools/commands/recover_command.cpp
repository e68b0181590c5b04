// The "recover" command: the records of a damaged data file that can still be
// read, salvaged into a new store that takes the file's place, with the
// damaged original kept whole under a new name.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
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
    "Salvages a damaged data file: every record that can still be read is copied, with the\n"
    "file's catalog, into a new store, which then takes the file's place. The damaged\n"
    "original is kept unchanged beside it as FILE.damaged-<UTC time>, with its -wal and\n"
    "-shm files, so nothing is lost. Reports per table how many records were saved and how\n"
    "many lost, and why. A FILE without a directory is looked for in the data directory.\n"
    "Refuses, changing nothing, a file that is sound, missing, not a record store, or open\n"
    "in another program. Stop the programs that use the file first.";

struct RecoverOptions {
  std::string file;
  OutputFormat format = OutputFormat::Table;
};

RecoverOptions g_options;

std::string directoryOf(const std::string &path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseName(const std::string &path) { return path.substr(path.rfind('/') + 1); }

bool exists(const std::string &path) { return ::access(path.c_str(), F_OK) == 0; }

void syncDirectory(const std::string &dir) {
  int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

// "20250315T102030Z"
std::string utcStamp() {
  std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &utc);
  return text;
}

// A name beside `path` that nothing has yet.
std::string freshName(const std::string &path, const std::string &what, const std::string &stamp) {
  std::string name = path + "." + what + "-" + stamp;
  for (int n = 2; exists(name) || exists(name + "-wal"); ++n) {
    name = path + "." + what + "-" + stamp + "-" + std::to_string(n);
  }
  return name;
}

// The -wal and -shm files beside a data file.
std::vector<std::string> companionsOf(const std::string &path) {
  std::vector<std::string> suffixes;
  for (const char *suffix : {"-wal", "-shm"}) {
    if (exists(path + suffix)) suffixes.push_back(suffix);
  }
  return suffixes;
}

// Puts the recovered store in the data file's place, keeping the original
// under `damaged`. The original gets its new name before anything moves, and
// one rename puts the complete new store under the file's name, so that a
// crash leaves that name with the original or the new store. The original's
// log goes along first: left beside the new store, it would be replayed onto
// it. An empty log and shared memory that only reading the file made are
// removed instead.
void putInPlace(const std::string &path, const std::string &damaged, const std::string &recovered,
                const std::vector<std::string> &companionsBefore) {
  std::error_code error;
  bool readingMadeThem =
      companionsBefore.empty() && std::filesystem::file_size(path + "-wal", error) == 0 && !error;
  if (readingMadeThem) {
    for (const char *suffix : {"-wal", "-shm"}) ::unlink((path + suffix).c_str());
  }
  auto undo = [&](const std::vector<std::string> &moved, const std::string &what) {
    int error = errno;
    for (const std::string &suffix : moved) {
      ::rename((damaged + suffix).c_str(), (path + suffix).c_str());
    }
    ::unlink(damaged.c_str());
    ::unlink(recovered.c_str());
    throw ToolError(what + ": " + std::strerror(error) + "; nothing was changed");
  };
  if (::link(path.c_str(), damaged.c_str()) != 0)
    undo({}, "cannot keep the original as " + damaged);
  std::vector<std::string> moved;
  for (const std::string &suffix : companionsOf(path)) {
    if (::rename((path + suffix).c_str(), (damaged + suffix).c_str()) != 0) {
      undo(moved, "cannot move the original's " + suffix.substr(1) + " file");
    }
    moved.push_back(suffix);
  }
  syncDirectory(directoryOf(path));
  if (::rename(recovered.c_str(), path.c_str()) != 0) {
    undo(moved, "cannot put the recovered store in place");
  }
  syncDirectory(directoryOf(path));
}

int runRecover() {
  // The server recovers from crashes itself and has no file to salvage.
  if (std::string server = platform::StoreServerForMessages(); !server.empty()) {
    throw ToolError("the data files are on the PostgreSQL server " + server +
                    ": 'check' finds damage there; restore it from the server's backups");
  }
  std::string path = dataFileArgument(g_options.file);
  std::string name = baseName(path);
  std::vector<std::string> companionsBefore = companionsOf(path);
  platform::StoreCheckReport check;
  std::uint32_t status;
  {
    Progress progress("checking " + name);
    status = platform::QDBCheckFile(path.c_str(), &check, progressOf(progress));
  }
  if (status == platform::QDB_E_NOTFOUND) failWithStatus(status, "no data file " + path);
  if (status == platform::QDB_OK) {
    throw ToolError(name + " is sound: there is nothing to recover, and it was left as it is");
  }
  if (status != platform::QDB_E_DAMAGED) failWithStatus(status, name + " could not be checked");
  if (!check.isStore) {
    failWithStatus(status, name + " is not a record store (" + check.problems[0].what +
                               "): there are no records to recover");
  }
  bool inUse = false;
  if (platform::QDBFileInUse(path.c_str(), &inUse) == platform::QDB_OK && inUse) {
    throw ToolError(name + " is open in another program: stop it before recovering the file");
  }

  std::string stamp = utcStamp();
  std::string damaged = freshName(path, "damaged", stamp);
  std::string recovered = freshName(path, "recovered", stamp);
  platform::StoreSalvageReport salvage;
  {
    Progress progress("salvaging " + name);
    status =
        platform::QDBSalvageFile(path.c_str(), recovered.c_str(), &salvage, progressOf(progress));
  }
  if (status != platform::QDB_OK) {
    failWithStatus(status,
                   "no records of " + name + " could be salvaged" +
                       (salvage.problems.empty() ? "" : " (" + salvage.problems[0].what + ")") +
                       "; nothing was changed");
  }
  if (platform::QDBFileInUse(path.c_str(), &inUse) == platform::QDB_OK && inUse) {
    ::unlink(recovered.c_str());
    throw ToolError(name + " was opened by another program meanwhile: nothing was changed");
  }
  putInPlace(path, damaged, recovered, companionsBefore);

  std::uint64_t saved = 0, lost = 0;
  nlohmann::ordered_json tables = nlohmann::ordered_json::array();
  for (const platform::StoreSalvageTable &table : salvage.tables) {
    tables.push_back({{"name", table.name}, {"saved", table.saved}, {"lost", table.lost}});
    saved += table.saved;
    lost += table.lost;
  }
  nlohmann::ordered_json problems = nlohmann::ordered_json::array();
  for (const platform::StoreProblem &problem : salvage.problems) {
    problems.push_back(problemJson(problem));
  }
  switch (g_options.format) {
    case OutputFormat::Json:
      printJson({{"file", name},
                 {"path", path},
                 {"damagedCopy", baseName(damaged)},
                 {"saved", saved},
                 {"lost", lost},
                 {"tables", tables},
                 {"problems", problems}});
      break;
    case OutputFormat::Csv:
      printRows(OutputFormat::Csv, {"name", "saved", "lost"}, tables);
      break;
    case OutputFormat::Table:
      std::printf("%s recovered: %llu records saved, %llu lost.\n", name.c_str(),
                  static_cast<unsigned long long>(saved), static_cast<unsigned long long>(lost));
      std::printf("The damaged original is kept as %s.\n\n", baseName(damaged).c_str());
      printRows(OutputFormat::Table, {"name", "saved", "lost"}, tables);
      if (!problems.empty()) {
        std::printf("\n");
        printRows(OutputFormat::Table, {"table", "row", "objectId", "problem"}, problems);
      }
      break;
  }
  return 0;
}

}  // namespace

void addRecoverCommand(CLI::App &tool) {
  CLI::App &command = addCommand(
      tool, "recover", "salvage the readable records of a damaged data file into a new store",
      [] { return runRecover(); });
  command.footer(kDescription);
  command.add_option("FILE", g_options.file, "the damaged data file")->required();
  addFormatOption(command, g_options.format);
}

}  // namespace alertdb_tool
