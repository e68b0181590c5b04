// The "purge" command: the log purge, with its flags by name.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/commands.h"
#include "tools/event_log_purge.h"
#include "tools/output_format.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

struct PurgeOptions {
  bool acknowledged = false;
  bool acknowledgedIfAuto = false;
  bool old = false;
  bool activity = false;
  OutputFormat format = OutputFormat::Table;
};

PurgeOptions g_options;

constexpr const char *kDescription =
    "Removes entries from the event log (KEPLogDB.dat) and reports how many went.\n"
    "Choose at least one of the purges above. The ages come from QADMIN.INI in the data\n"
    "directory, section [Alert Log Purge Settings]: PurgeEventLogDays and PurgeActivityDays\n"
    "(absent or negative: never), AutoPurgeAckEvents (1: --acknowledged-if-auto purges).\n"
    "An entry goes when one of the chosen purges applies to it. Exit status: 0 when the\n"
    "purge ran, 1 when it failed (no event log, a damaged file), 2 for a bad choice of flags.";

// The chosen purges by the names the JSON output gives them.
std::vector<std::string> chosenNames(const PurgeOptions &options) {
  std::vector<std::string> names;
  if (options.acknowledged) names.push_back("acknowledged");
  if (options.acknowledgedIfAuto) names.push_back("acknowledged-if-auto");
  if (options.old) names.push_back("old");
  if (options.activity) names.push_back("activity");
  return names;
}

std::uint32_t purgeFlags(const PurgeOptions &options) {
  std::uint32_t flags = 0;
  if (options.acknowledged) flags |= kPurgeAcknowledged;
  if (options.acknowledgedIfAuto) flags |= kPurgeAcknowledgedIfAuto;
  if (options.old) flags |= kPurgeOldEvents;
  if (options.activity) flags |= kPurgeOldActivity;
  return flags;
}

int usageError(const char *message) {
  std::fprintf(stderr, "alertdb purge: %s\nRun with --help for more information.\n", message);
  return 2;
}

int runPurge() {
  const PurgeOptions &options = g_options;
  if (!options.acknowledged && !options.acknowledgedIfAuto && !options.old && !options.activity) {
    return usageError(
        "nothing to purge: give --acknowledged, --acknowledged-if-auto, --old or --activity");
  }
  if (options.acknowledged && options.acknowledgedIfAuto) {
    return usageError(
        "--acknowledged and --acknowledged-if-auto exclude each other: the first purges every "
        "acknowledged entry, the second only when AutoPurgeAckEvents is 1");
  }
  LogPurgeCounts counts = purgeEventLog(purgeFlags(options));
  nlohmann::ordered_json report = {{"log", dataPath("KEPLogDB.dat")},
                                   {"purged", chosenNames(options)},
                                   {"removed", counts.removed()},
                                   {"before", counts.before},
                                   {"left", counts.after}};
  switch (options.format) {
    case OutputFormat::Json:
      printJson(report);
      break;
    case OutputFormat::Csv:
      report["purged"] = fmt::format("{}", fmt::join(chosenNames(options), " "));
      printRows(options.format, {"log", "purged", "removed", "before", "left"},
                nlohmann::ordered_json::array({report}));
      break;
    case OutputFormat::Table:
      std::printf("removed %llu of %llu entr%s from the event log; %llu left\n",
                  static_cast<unsigned long long>(counts.removed()),
                  static_cast<unsigned long long>(counts.before), counts.before == 1 ? "y" : "ies",
                  static_cast<unsigned long long>(counts.after));
      break;
  }
  return 0;
}

}  // namespace

void addPurgeCommand(CLI::App &tool) {
  CLI::App &command = addCommand(tool, "purge", "remove acknowledged or old entries from the log",
                                 [] { return runPurge(); });
  command.footer(kDescription);
  command.add_flag("--acknowledged", g_options.acknowledged,
                   "every acknowledged entry, whatever its age");
  command.add_flag("--acknowledged-if-auto", g_options.acknowledgedIfAuto,
                   "every acknowledged entry, but only when AutoPurgeAckEvents is 1");
  command.add_flag("--old", g_options.old,
                   "entries older than PurgeEventLogDays, activity entries (event ID 12545) "
                   "excepted");
  command.add_flag("--activity", g_options.activity,
                   "activity entries (event ID 12545) older than PurgeActivityDays");
  addFormatOption(command, g_options.format);
}

}  // namespace alertdb_tool
