// The query-information list of the response data file "AlRespDB.dat",
// shared by the response and response result tables; each passes the whole
// list.
#pragma once

#include <cstdint>

#include "platform/store/record_store.h"

inline constexpr std::uint32_t kResponseQueryInfoCount = 20;
extern const platform::QueryInfoEntry kResponseQueryInfo[kResponseQueryInfoCount];

// The data file of the response tables.
inline constexpr const char *kResponseDataFile = "AlRespDB.dat";
