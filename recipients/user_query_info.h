// The query-information list of the user data file "kepuser.dat", shared by
// the alert user, service instance, user object and per-user address tables;
// each passes the whole list.
#pragma once

#include <cstdint>

#include "platform/store/record_store.h"

inline constexpr std::uint32_t kUserQueryInfoCount = 76;
extern const platform::QueryInfoEntry kUserQueryInfo[kUserQueryInfoCount];

// The data file of the alert user tables.
inline constexpr const char *kUserDataFile = "kepuser.dat";
