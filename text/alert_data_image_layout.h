// Where the lookups find things in an alert data image: header words, block
// shapes, entry sizes and the fields read in each entry. All numbers are
// little-endian 32-bit words, all offsets byte offsets; nothing is aligned.
#pragma once

#include <cstdint>

#include "text/version_match.h"

namespace alert_data_image {

// Header words.
inline constexpr std::uint32_t kVersionWord = 4;
inline constexpr std::uint32_t kEventAreaWord = 12;
inline constexpr std::uint32_t kEventByClassIdWord = 16;
inline constexpr std::uint32_t kEventByIdWord = 20;
inline constexpr std::uint32_t kResponseAreaWord = 28;
inline constexpr std::uint32_t kResponseByIdWord = 36;
inline constexpr std::uint32_t kUserGroupsWord = 40;     // 0: none
inline constexpr std::uint32_t kServiceGroupsWord = 44;  // 0: none
inline constexpr std::uint32_t kProductTableWord = 68;
inline constexpr std::uint32_t kDomainTableWord = 72;
inline constexpr std::uint32_t kModemLocationTableWord = 76;
inline constexpr std::uint32_t kHeaderSize = 80;

// Our own use of two header words the layout leaves free: an image whose
// first word is kSizedMark holds its whole size in bytes at kSizeWord, and
// the lookups then never read past that size.
inline constexpr std::uint32_t kSizedMarkWord = 0;
inline constexpr std::uint32_t kSizedMark = 0x49424441;  // "ADBI"
inline constexpr std::uint32_t kSizeWord = 8;

// Blocks: a 16-byte header whose word 4 is the entry count, then the entries.
inline constexpr std::uint32_t kBlockHeaderSize = 16;
inline constexpr std::uint32_t kBlockCountWord = 4;

inline constexpr std::uint32_t kEventEntrySize = 8259;
inline constexpr std::uint32_t kResponseEntrySize = 4017;

inline constexpr std::uint32_t kEventByIdEntrySize = 36;
inline constexpr std::uint32_t kEventByIdKey = 16;
inline constexpr std::uint32_t kEventByIdIndex = 32;
inline constexpr std::uint32_t kEventByClassIdEntrySize = 36;
inline constexpr std::uint32_t kEventByClassIdKey = 12;
inline constexpr std::uint32_t kEventByClassIdIndex = 32;
inline constexpr std::uint32_t kResponseByIdEntrySize = 32;
inline constexpr std::uint32_t kResponseByIdKey = 12;
inline constexpr std::uint32_t kResponseByIdIndex = 28;

inline constexpr std::uint32_t kProductEntrySize = 96;
inline constexpr std::uint32_t kProductNumber = 28;
inline constexpr std::uint32_t kDomainEntrySize = 92;
inline constexpr std::uint32_t kDomainId = 12;
inline constexpr std::uint32_t kModemLocationEntrySize = 171;
inline constexpr std::uint32_t kModemLocationId = 28;  // the 143-byte record starts here

// Group chains: words of a group header, then entries that each start with
// their own size.
inline constexpr std::uint32_t kGroupFirstEntryWord = 0;
inline constexpr std::uint32_t kGroupCountWord = 4;
inline constexpr std::uint32_t kGroupNextWord = 12;  // 0 in the last group
inline constexpr std::uint32_t kUserGroupServiceTypeWord = 52;

inline constexpr std::uint32_t kServiceEntryId = 12;  // the catalogue record starts here
inline constexpr std::uint32_t kServiceEntryType = 2272;
inline constexpr std::uint32_t kUserEntryServiceId = 80;
inline constexpr std::uint32_t kUserEntryUserId = 112;

}  // namespace alert_data_image
