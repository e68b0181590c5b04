// The "relay" command: on a machine whose data files live on a PostgreSQL
// server, sets the machine's change event for changes made on any machine.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "platform/named_event.h"
#include "platform/store/server_changes.h"
#include "tools/change_event.h"
#include "tools/commands.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

constexpr const char *kDescription =
    "With the data files on a PostgreSQL server (ALERTDB_STORE holds its connection URI),\n"
    "the library notifies the server with each change of the alerting data. This command\n"
    "listens for those notifications and sets this machine's \"AlertDBModifyEvent\" for each,\n"
    "so that programs here see changes made on every machine. Run one on each machine (the\n"
    "systemd unit alertdb-relay.service does). A lost connection is made again; messages go\n"
    "to standard error and never show the server's password.\n"
    "Runs until interrupted, for --timeout seconds, or until --count change signals were\n"
    "relayed (exit 0). Exit 1 when no server is configured.";

double g_timeoutSeconds = 0;
std::uint64_t g_count = 0;
CLI::Option *g_timeoutOption = nullptr;

using Clock = std::chrono::steady_clock;

int runRelay() {
  std::string server = platform::StoreServerForMessages();
  if (server.empty()) {
    throw ToolError("the data files are not on a server: set ALERTDB_STORE to its URI");
  }
  ChangeEvent event;
  const bool timed = g_timeoutOption->count() > 0;
  Clock::time_point deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(timed ? g_timeoutSeconds : 0));
  auto left = [&]() -> int {
    if (!timed) return 1000;
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return ms <= 0 ? 0 : static_cast<int>(ms < 1000 ? ms : 1000);
  };
  platform::ServerChangeListener listener;
  bool listening = false;
  std::uint64_t relayed = 0;
  while (!timed || Clock::now() < deadline) {
    if (!listening) {
      std::string why;
      if (listener.listen(&why) == 0) {
        listening = true;
        std::fprintf(stderr, "alertdb relay: listening on %s\n", server.c_str());
      } else {
        std::fprintf(stderr, "alertdb relay: %s; trying again\n", why.c_str());
        std::this_thread::sleep_for(std::chrono::milliseconds(timed ? left() : 5000));
        continue;
      }
    }
    int changes = listener.wait(left());
    if (changes > 0) {
      platform::SetEvent(event.handle());
      relayed += static_cast<std::uint64_t>(changes);
      if (g_count > 0 && relayed >= g_count) return 0;
    } else if (changes < 0) {
      std::fprintf(stderr, "alertdb relay: lost the connection to %s\n", server.c_str());
      listening = false;
    }
  }
  return 0;
}

}  // namespace

void addRelayCommand(CLI::App &tool) {
  CLI::App &command =
      addCommand(tool, "relay", "set this machine's change event for changes made on the server",
                 [] { return runRelay(); });
  command.footer(kDescription);
  g_timeoutOption = command
                        .add_option("--timeout", g_timeoutSeconds,
                                    "end after SECONDS (exit 0); without it, runs until stopped")
                        ->type_name("SECONDS")
                        ->check(CLI::PositiveNumber);
  command.add_option("--count", g_count, "end after relaying N change signals (exit 0)")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
}

}  // namespace alertdb_tool
