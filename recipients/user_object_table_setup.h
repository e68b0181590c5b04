// The object manager's part in the user object table: the product's object
// manager creates "UserObj" when it is installed, and this library only opens
// it. The stand-in for the object manager does the same through this call.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// Creates the user object table "UserObj" in "KepUser.dat" of the data
// directory when it is not there yet, with the stand-in's own title and
// field descriptions (the library's string table holds none for it). 0 when
// the table is there afterwards; otherwise the status of the failed open or
// create. Used by `alertdb init` and by tests.
ALERTDB_API std::uint32_t KepOMCreateUserObjectTable();

}  // namespace platform
