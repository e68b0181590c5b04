// Display texts of the severity (0-4) and operational status (0-3) scales.
// Numbers off the scale leave the buffer as it was.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

// 0, or 0xFFFF when textBuffer (at least 128 bytes) is null.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetSeverityText(char *textBuffer,
                                                           std::int32_t severityValue,
                                                           HINSTANCE moduleHandle);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetOperationalStatusText(char *textBuffer,
                                                                    std::int32_t statusValue,
                                                                    HINSTANCE moduleHandle);
