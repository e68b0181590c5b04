// The query-information list shared by the event tables ("EVENT_CLASS",
// "EVENT_LOG", "EVENT_RESP"); each passes the whole list.
#pragma once

#include <cstdint>

#include "platform/store/record_store.h"

inline constexpr std::uint32_t kEventQueryInfoCount = 37;
extern const platform::QueryInfoEntry kEventQueryInfo[kEventQueryInfoCount];
