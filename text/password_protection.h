// Protection of stored service passwords. A password is a 49-byte block (a
// zero-terminated text of at most 48 characters plus whatever follows it); its
// protected form fills the same 49 bytes.
#pragma once

#include <cstdint>

#include "platform/export.h"

// 1 when passwords are to be encrypted, 0 when not. Read once per process from
// "QADMIN.INI" in the data directory (section "Alert Service", key "Encrypt
// Passwords", on unless 0); 0 when no data directory is configured. A change
// of the files takes effect when the library is next loaded.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetEncryptionStatus(void);

// Write the protected (Encrypt) or clear (Decrypt) form of the 49 bytes at
// `sourceBlock` to `targetBlock`; the two may be the same block, such as a
// record's char Password[49]. With encryption off the bytes are copied
// unchanged. 0, or 0xFFFF when either pointer is null (nothing touched).
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t EncryptPassword(const char *sourceBlock,
                                                           char *targetBlock);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t DecryptPassword(const char *sourceBlock,
                                                           char *targetBlock);
