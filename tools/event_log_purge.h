// The log purge as the tool runs it: on the event log of the tool's data
// directory, with the entries counted before and after.
#pragma once

#include <cstdint>

namespace alertdb_tool {

struct LogPurgeCounts {
  std::uint64_t before = 0;
  std::uint64_t after = 0;
  // Other writers may add entries meanwhile; what went is never negative.
  std::uint64_t removed() const { return before > after ? before - after : 0; }
};

// The entries of the event log (KEPLogDB.dat) of the data directory; throws
// ToolError naming the status when the log cannot be opened.
std::uint64_t countLogEntries();

// Runs PurgeLog(flags) with its settings (QADMIN.INI) read from the data
// directory, showing progress on a terminal; throws ToolError naming the
// status when the purge fails.
LogPurgeCounts purgeEventLog(std::uint32_t flags);

}  // namespace alertdb_tool
