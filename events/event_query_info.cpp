#include "events/event_query_info.h"

namespace {

constexpr platform::QueryInfoEntry entry(std::uint16_t number, std::uint16_t fieldRef,
                                         std::uint8_t kind, std::uint8_t valueClass) {
  return {20, number, 0, fieldRef, 0, kind, valueClass, {}};
}

}  // namespace

const platform::QueryInfoEntry kEventQueryInfo[kEventQueryInfoCount] = {
    entry(1, 1, 1, 3),   entry(15, 2, 2, 2),  entry(3, 3, 1, 2),   entry(2, 4, 2, 6),
    entry(4, 5, 2, 3),   entry(5, 6, 2, 2),   entry(6, 7, 2, 6),   entry(7, 8, 2, 9),
    entry(8, 9, 2, 2),   entry(9, 10, 2, 2),  entry(10, 11, 2, 2), entry(11, 12, 2, 6),
    entry(12, 13, 2, 2), entry(13, 14, 2, 2), entry(17, 15, 2, 6), entry(18, 16, 2, 6),
    entry(19, 10, 2, 3), entry(20, 17, 1, 3), entry(21, 18, 2, 3), entry(22, 19, 2, 3),
    entry(23, 20, 2, 2), entry(24, 21, 2, 6), entry(25, 22, 2, 3), entry(26, 23, 2, 2),
    entry(28, 24, 2, 2), entry(34, 25, 2, 2), entry(35, 26, 2, 3), entry(36, 27, 2, 2),
    entry(37, 28, 2, 2), entry(38, 29, 2, 3), entry(39, 30, 2, 2), entry(40, 31, 2, 9),
    entry(41, 10, 2, 3), entry(42, 32, 1, 3), entry(43, 33, 2, 3), entry(44, 34, 2, 3),
    entry(45, 35, 2, 9),
};
