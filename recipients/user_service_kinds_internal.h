// The nine kinds of service through which a single user is reached: their
// service type numbers and the names an instance record carries.
#pragma once

#include <cstdint>

namespace alertdb_internal {

struct UserServiceKind {
  std::uint32_t serviceType;
  const char *serviceName;
};

inline constexpr UserServiceKind kUserMhs{1, "MHS"};
inline constexpr UserServiceKind kUserSnmp{2, "SNMP Trap"};
inline constexpr UserServiceKind kUserMci{3, "MCI Mail"};
inline constexpr UserServiceKind kUserCompus{4, "CompuServe"};
inline constexpr UserServiceKind kUserSmtp{5, "Internet Mail"};
inline constexpr UserServiceKind kUserMapi{6, "Microsoft Mail"};
inline constexpr UserServiceKind kUserCcmail{7, "CC:Mail"};
inline constexpr UserServiceKind kUserApage{11, "Alphanumeric Pager"};
inline constexpr UserServiceKind kUserNpage{12, "Numeric Pager"};

}  // namespace alertdb_internal
