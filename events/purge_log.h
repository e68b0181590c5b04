// PurgeLog: removes acknowledged and old entries from the event log.
#pragma once

#include <cstdint>

#include "platform/export.h"

// Bits of PurgeLog's argument.
inline constexpr std::uint32_t kPurgeOldActivity = 0x1;  // EventID 12545, "PurgeActivityDays"
inline constexpr std::uint32_t kPurgeOldEvents = 0x2;    // the others, "PurgeEventLogDays"
inline constexpr std::uint32_t kPurgeAcknowledged = 0x4;
inline constexpr std::uint32_t kPurgeAcknowledgedIfAuto = 0x8;  // when "AutoPurgeAckEvents" is 1

// 0 when the purge ran, whatever the single deletes gave; ALRT_E_INVALIDPARAM
// for no purge or both acknowledgement bits, ALRT_E_NODATADIR when the console
// settings name no data directory, ALRT_E_OPENFAILED when the log cannot be opened.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t PurgeLog(std::uint32_t flags);
