// The "watch" command: a time-stamped line for each change of the alerting
// data, as the library signals it on "AlertDBModifyEvent".
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <string>

#include "alertdb.h"
#include "tools/change_event.h"
#include "tools/commands.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

struct WatchOptions {
  std::uint32_t count = 0;
  double timeoutSeconds = 0;
  bool reset = false;
  CLI::Option *countOption = nullptr;
  CLI::Option *timeoutOption = nullptr;
};

WatchOptions g_options;

constexpr const char *kDescription =
    "Waits for changes of the alerting data: the library sets the manual-reset event\n"
    "\"AlertDBModifyEvent\" after each one and never resets it. Each time it is set, a line\n"
    "goes to standard output, at once:\n"
    "  2025-03-15T10:20:30.123+01:00 AlertDBModifyEvent set\n"
    "with the local time and its offset from UTC; \"set 3 times\" when several changes came\n"
    "before the line could be written, \"and reset\" with --reset. Only changes after the\n"
    "start count: an event already set then is noted once on standard error (and reset,\n"
    "with --reset).\n"
    "Ends after --count changes (exit 0), or when --timeout passes: exit 0, unless --count\n"
    "was given and not reached (exit 1). With neither, it runs until interrupted.";

// "2025-03-15T10:20:30.123+01:00", local time.
std::string localTimestamp() {
  auto now = std::chrono::system_clock::now();
  std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char date[32];
  char zone[8];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(zone, sizeof zone, "%z", &local);
  std::string offset = zone;
  // ISO 8601 writes the offset as +hh:mm.
  if (offset.size() == 5) offset.insert(3, ":");
  char text[64];
  std::snprintf(text, sizeof text, "%s.%03d%s", date, static_cast<int>(millis), offset.c_str());
  return text;
}

using Clock = std::chrono::steady_clock;

// The wait's time-out in milliseconds up to `deadline`; kInfinite waits for good.
std::uint32_t millisecondsUntil(const Clock::time_point *deadline) {
  if (!deadline) return platform::kInfinite;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
  if (left <= 0) return 0;
  // Longer waits are taken in steps; kInfinite itself would never end.
  constexpr long long kLongestStep = 24LL * 3600 * 1000;
  return static_cast<std::uint32_t>(left < kLongestStep ? left : kLongestStep);
}

int runWatch() {
  const WatchOptions &options = g_options;
  const bool counted = options.countOption->count() > 0;
  const bool timed = options.timeoutOption->count() > 0;
  ChangeEvent event;
  std::uint32_t seen = event.setCount();
  if (event.isSet()) {
    if (options.reset) {
      platform::ResetEvent(event.handle());
      std::fprintf(stderr, "alertdb watch: the change event was set before the start; reset it\n");
    } else {
      std::fprintf(stderr,
                   "alertdb watch: the change event was set before the start; "
                   "waiting for the next change\n");
    }
  }
  if (::isatty(2) == 1) {
    std::fprintf(stderr, "alertdb watch: waiting for changes (Ctrl-C ends)\n");
  }
  Clock::time_point deadline;
  if (timed) {
    deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(options.timeoutSeconds));
  }
  std::uint64_t changes = 0;
  for (;;) {
    std::uint32_t waitFor = millisecondsUntil(timed ? &deadline : nullptr);
    std::uint32_t now = seen;
    std::uint32_t result = platform::WaitForEventSetAfter(event.handle(), seen, waitFor, &now);
    if (result == platform::kWaitFailed) throw ToolError("waiting on the change event failed");
    if (result == platform::kWaitTimeout) {
      if (timed && Clock::now() >= deadline) break;
      continue;
    }
    // Unsigned arithmetic: the count wraps.
    std::uint32_t sets = now - seen;
    seen = now;
    changes += sets;
    std::string line = localTimestamp() + " " + ChangeEvent::kName + " set";
    if (sets > 1) line += " " + std::to_string(sets) + " times";
    if (options.reset) line += " and reset";
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    if (options.reset) platform::ResetEvent(event.handle());
    if (counted && changes >= options.count) return 0;
  }
  if (counted) {
    std::fprintf(stderr, "alertdb watch: timed out after %g s with %llu of %u changes seen\n",
                 options.timeoutSeconds, static_cast<unsigned long long>(changes), options.count);
    return 1;
  }
  return 0;
}

}  // namespace

void addWatchCommand(CLI::App &tool) {
  CLI::App &command = addCommand(tool, "watch", "print a line each time the alerting data changes",
                                 [] { return runWatch(); });
  command.footer(kDescription);
  g_options.countOption =
      command.add_option("--count", g_options.count, "stop after N changes (exit 0)")
          ->type_name("N")
          ->check(CLI::Range(1u, 0xFFFFFFFFu));
  g_options.timeoutOption =
      command
          .add_option("--timeout", g_options.timeoutSeconds,
                      "stop after SECONDS (fractions allowed); exit 1 if --count was not reached")
          ->type_name("SECONDS")
          ->check(CLI::Range(0.0, 1.0e9));
  command.add_flag("--reset", g_options.reset,
                   "reset the event after each report, so that others see it clear");
}

}  // namespace alertdb_tool
