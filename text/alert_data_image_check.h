// A whole-image test for alert data images of unknown origin: after it
// passes for a size, the lookups read nothing outside that many bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/export.h"

// 0 when the image has layout version 0x30001 and every block, index entry,
// group and entry that a lookup can reach lies within the first `imageSize`
// bytes, each index entry names an entry of its area, and each index is
// sorted by its key. An image that records its own size may not record more
// than `imageSize`. ALRT_E_INVALIDPARAM (0x200CF) for a null image; 0xFFFF
// for any fault. Reads nothing past `imageSize` bytes.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t CheckAlertDataImage(const void *image,
                                                               std::size_t imageSize);
