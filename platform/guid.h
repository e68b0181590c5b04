// Object IDs: random (version 4) GUIDs and their Windows text form.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform {

// 0 on success (S_OK); non-zero when the kernel's random source fails.
ALERTDB_API std::uint32_t CoCreateGuid(_GUID *guid);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"
ALERTDB_API std::string GuidToString(const _GUID &guid);
// Parses the form above (braces optional); false on bad text.
ALERTDB_API bool GuidFromString(const char *text, _GUID *guid);

}  // namespace platform
