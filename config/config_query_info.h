// The query-information list of the alert configuration tables, shared by
// every table of "AlCfgdb.dat" and "APgeProv.dat"; each passes the whole list.
#pragma once

#include <cstdint>

#include "platform/store/record_store.h"

inline constexpr std::uint32_t kConfigQueryInfoCount = 77;
extern const platform::QueryInfoEntry kConfigQueryInfo[kConfigQueryInfoCount];

// The data file of the alert configuration tables.
inline constexpr const char *kConfigDataFile = "AlCfgdb.dat";
