// The severity colour that the event tables derive from a severity.
#pragma once

#include <cstdint>

// 1 (critical) is colour 3, 2 is 2, 3 is 1; every other severity is 0.
inline unsigned char SeverityColourOf(std::uint32_t severity) {
  switch (severity) {
    case 1:
      return 3;
    case 2:
      return 2;
    case 3:
      return 1;
    default:
      return 0;
  }
}
