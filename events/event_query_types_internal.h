// The query types the event tables register when they create their table.
#pragma once

#include "platform/win_types.h"

namespace alertdb_internal {

// "QInfo_Svrty", "QInfo_SClr", ["QInfo_OpStt",] "QInfo_Str", "QInfo_Num",
// "QInfo_None", each only after the one before succeeded. Failures are not
// reported: the table exists either way.
void RegisterEventQueryTypes(KEPDB *handle, bool withOperationalStatus);

}  // namespace alertdb_internal
