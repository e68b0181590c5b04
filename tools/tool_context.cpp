#include "tools/tool_context.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "alertdb.h"

namespace alertdb_tool {

namespace {

struct RegisteredCommand {
  CLI::App *command;
  std::function<int()> run;
};

std::vector<RegisteredCommand> &registeredCommands() {
  static std::vector<RegisteredCommand> commands;
  return commands;
}

std::string g_dataDirOption;
std::string g_dataDirectory;

std::string perUserDataDirectory() {
  if (const char *xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') {
    return std::string(xdg) + "/alertdb";
  }
  const char *home = std::getenv("HOME");
  if (!home || !*home)
    throw ToolError("no data directory: neither --data-dir, ALERTDB_DATA_DIR nor HOME is set");
  return std::string(home) + "/.local/share/alertdb";
}

std::string resolveDataDirectory() {
  if (!g_dataDirOption.empty()) return g_dataDirOption;
  // The library's own lookup: ALERTDB_DATA_DIR, then the console settings file.
  char dir[260];
  if (platform::KepOMGetDataDir(dir, sizeof dir) == 0 && dir[0] != '\0') return dir;
  return perUserDataDirectory();
}

}  // namespace

std::string describeStatus(std::uint32_t status, const std::string &what) {
  return fmt::format("{} (0x{:X}): {}", AlertDBStatusName(status), status, what);
}

void failWithStatus(std::uint32_t status, const std::string &what) {
  throw ToolError(describeStatus(status, what));
}

CLI::App &addCommand(CLI::App &tool, const std::string &name, const std::string &summary,
                     std::function<int()> run) {
  CLI::App *command = tool.add_subcommand(name, summary);
  command->add_option("--data-dir", g_dataDirOption,
                      "the data directory (default: ALERTDB_DATA_DIR, the console settings "
                      "file, then $XDG_DATA_HOME/alertdb)");
  registeredCommands().push_back({command, std::move(run)});
  return *command;
}

int runChosenCommand() {
  for (const RegisteredCommand &registered : registeredCommands()) {
    if (!registered.command->parsed()) continue;
    try {
      return registered.run();
    } catch (const ToolError &error) {
      std::fprintf(stderr, "alertdb %s: %s\n", registered.command->get_name().c_str(),
                   error.what());
      return 1;
    }
  }
  return 2;
}

const std::string &dataDirectory() {
  if (!g_dataDirectory.empty()) return g_dataDirectory;
  std::string dir = resolveDataDirectory();
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (!std::filesystem::is_directory(dir, error)) {
    throw ToolError(fmt::format("cannot use the data directory {}", dir));
  }
  ::setenv("ALERTDB_DATA_DIR", dir.c_str(), 1);
  g_dataDirectory = dir;
  return g_dataDirectory;
}

std::string dataPath(const std::string &file) { return dataDirectory() + "/" + file; }

const std::vector<std::string> &dataFiles() {
  static const std::vector<std::string> files = {"AlCfgdb.dat",  "APgeProv.dat", "AlServdb.dat",
                                                 "AlEvntdb.dat", "KEPLogDB.dat", "AlRespDB.dat",
                                                 "kepuser.dat"};
  return files;
}

const std::vector<std::string> &restorableDataFiles() {
  static const std::vector<std::string> files = {"kepuser.dat", "AlRespDB.dat", "AlServdb.dat",
                                                 "AlEvntdb.dat", "AlCfgdb.dat"};
  return files;
}

std::string backupPathOf(const std::string &path) {
  std::vector<char> name(path.begin(), path.end());
  name.resize(path.size() + 8, '\0');
  platform::NameStripExtension(name.data());
  platform::NameAppendExtension(name.data(), "BAK");
  return name.data();
}

Progress::Progress(std::string what) : what_(std::move(what)), shown_(::isatty(2) == 1) {}

Progress::~Progress() { finish(); }

void Progress::update(std::uint64_t done, std::uint64_t total) {
  if (!shown_) return;
  if (total != 0) {
    std::fprintf(stderr, "\r%s: %llu of %llu", what_.c_str(), static_cast<unsigned long long>(done),
                 static_cast<unsigned long long>(total));
  } else {
    std::fprintf(stderr, "\r%s: %llu", what_.c_str(), static_cast<unsigned long long>(done));
  }
  std::fflush(stderr);
  active_ = true;
}

void Progress::finish() {
  if (!active_) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  active_ = false;
}

}  // namespace alertdb_tool
