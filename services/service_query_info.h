// The query-information list of the service data file "AlServdb.dat", shared
// by its fifteen tables; each passes the whole list.
#pragma once

#include <cstdint>

#include "platform/store/record_store.h"

inline constexpr std::uint32_t kServiceQueryInfoCount = 78;
extern const platform::QueryInfoEntry kServiceQueryInfo[kServiceQueryInfoCount];

// The data file of the service tables.
inline constexpr const char *kServiceDataFile = "AlServdb.dat";
