// What every command of the alertdb tool shares: the data directory, the data
// files, status reports and the progress display.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace alertdb_tool {

// A failure that ends the command: printed on standard error, exit status 1.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "ALRT_E_NOTFOUND (0x200D7): no record with that object ID"
std::string describeStatus(std::uint32_t status, const std::string &what);
[[noreturn]] void failWithStatus(std::uint32_t status, const std::string &what);

// Adds a command with the --data-dir option every command takes; `run` gives
// the exit status and runs only when that command is chosen.
CLI::App &addCommand(CLI::App &tool, const std::string &name, const std::string &summary,
                     std::function<int()> run);
// Runs the chosen command: 0 on success, 1 when it failed.
int runChosenCommand();

// The data directory: --data-dir, else ALERTDB_DATA_DIR, else "DataDir" of the
// console settings file, else the per-user data directory. Made on first use
// and handed to the library through ALERTDB_DATA_DIR, so both see the same one.
const std::string &dataDirectory();
std::string dataPath(const std::string &file);

// The data files of the alerting data, in the order the tool reports them.
const std::vector<std::string> &dataFiles();
// The data files that opening a table restores from their ".BAK" copy.
const std::vector<std::string> &restorableDataFiles();
// "DIR/AlCfgdb.BAK" for "DIR/AlCfgdb.dat": the copy that opening a table restores from.
std::string backupPathOf(const std::string &path);

// A one-line progress display on standard error, shown only when it is a
// terminal, so that pipes and logs get clean output.
class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress();
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  void update(std::uint64_t done, std::uint64_t total = 0);
  void finish();

 private:
  std::string what_;
  bool shown_;
  bool active_ = false;
};

}  // namespace alertdb_tool
