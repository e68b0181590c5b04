// Layout version test of an alert data image.
#pragma once

#include <cstdint>

#include "platform/export.h"

// The layout of the alert data image that the lookups read.
inline constexpr std::uint32_t kImageLayoutVersion = 0x30001;

// 0 when the image's second 32-bit word is 0x30001; 0xFFFF when it is not or
// `imageStart` is null. The image need not be aligned.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DoesVersionMatch(const void *imageStart);
