// The table name that a response table object holds itself, so that one
// record layout can serve under a name the caller chooses.
#pragma once

#include <cstddef>
#include <cstring>

namespace alertdb_internal {

inline constexpr std::size_t kTableNameSize = 64;

// `name`, or `fallback` when it is null; a longer name is cut to 63
// characters rather than overrun the member.
inline void CopyTableName(char (&target)[kTableNameSize], const char *name, const char *fallback) {
  const char *source = name ? name : fallback;
  std::size_t length = strnlen(source, kTableNameSize - 1);
  std::memcpy(target, source, length);
  target[length] = '\0';
}

}  // namespace alertdb_internal
