// A user object's names by its ID, read from the user object table.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"

// Copy the full name (KepGetUserName) or the login name (KepGetUserLoginName)
// of user object `userObjectId`, terminator included, into `nameBuffer`,
// which holds at least maxLength + 1 bytes. ALRT_E_INVALIDPARAM,
// ALRT_E_OPENFAILED (the table is not created here), ALRT_E_NOTFOUND, or
// ALRT_E_TOOLARGE when the name is longer than maxLength (buffer untouched).
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t KepGetUserName(_GUID *userObjectId,
                                                          std::uint32_t maxLength,
                                                          char *nameBuffer);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t KepGetUserLoginName(_GUID *userObjectId,
                                                               std::uint32_t maxLength,
                                                               char *nameBuffer);
