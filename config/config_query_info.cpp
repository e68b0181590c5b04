#include "config/config_query_info.h"

namespace {

constexpr platform::QueryInfoEntry entry(std::uint16_t number, std::uint16_t fieldRef,
                                         std::uint8_t kind, std::uint8_t valueClass) {
  return {20, number, 0, fieldRef, 0, kind, valueClass, {}};
}

}  // namespace

const platform::QueryInfoEntry kConfigQueryInfo[kConfigQueryInfoCount] = {
    // "ALRT_Server_Config"
    entry(1, 1, 1, 3),
    entry(2, 2, 1, 2),
    entry(3, 3, 2, 6),
    entry(4, 4, 2, 6),
    entry(5, 5, 2, 6),
    entry(6, 6, 2, 6),
    entry(7, 7, 2, 6),
    entry(8, 8, 2, 6),
    entry(9, 9, 2, 6),
    entry(10, 10, 2, 1),
    entry(11, 11, 2, 1),
    entry(12, 12, 2, 6),
    entry(13, 13, 2, 6),
    entry(14, 14, 2, 9),
    entry(15, 10, 2, 3),
    // "ALRT_ExtAgent_Config"
    entry(16, 15, 1, 3),
    entry(17, 16, 1, 2),
    entry(18, 17, 2, 6),
    entry(19, 18, 2, 6),
    entry(20, 19, 2, 2),
    entry(21, 20, 2, 6),
    entry(22, 21, 2, 6),
    entry(23, 22, 2, 9),
    // "AGNT_SERV_Relation_"
    entry(24, 23, 1, 3),
    entry(25, 24, 2, 3),
    entry(26, 25, 2, 3),
    entry(27, 26, 2, 9),
    // "SERV_AGNT_REL_Service"
    entry(28, 27, 1, 3),
    entry(29, 28, 2, 3),
    entry(30, 29, 2, 3),
    entry(31, 30, 2, 9),
    // "SNMPTrapList"
    entry(32, 31, 1, 3),
    entry(33, 32, 2, 3),
    entry(34, 33, 2, 2),
    entry(35, 34, 2, 6),
    entry(36, 35, 2, 3),
    entry(37, 36, 2, 6),
    entry(38, 37, 2, 2),
    entry(39, 38, 2, 2),
    entry(40, 39, 2, 9),
    // "AutoPingList"
    entry(41, 40, 1, 3),
    entry(42, 41, 2, 3),
    entry(43, 42, 2, 2),
    entry(44, 43, 2, 6),
    entry(45, 44, 2, 3),
    entry(46, 45, 1, 2),
    entry(47, 46, 2, 6),
    entry(48, 47, 2, 6),
    entry(49, 48, 2, 9),
    entry(50, 49, 2, 2),
    // "ModemTable"
    entry(51, 50, 1, 3),
    entry(52, 51, 1, 2),
    entry(53, 52, 2, 2),
    entry(54, 53, 2, 2),
    entry(55, 54, 2, 2),
    entry(56, 55, 2, 2),
    entry(57, 56, 2, 6),
    entry(58, 57, 2, 6),
    entry(59, 58, 2, 2),
    entry(60, 59, 2, 3),
    entry(61, 60, 2, 6),
    entry(62, 61, 2, 2),
    entry(63, 62, 2, 6),
    entry(64, 63, 2, 9),
    // "ServerInstService"
    entry(65, 64, 1, 3),
    entry(66, 65, 2, 3),
    entry(68, 66, 2, 3),
    entry(67, 67, 2, 2),
    entry(69, 68, 2, 9),
    // "ModemLocation"
    entry(70, 69, 1, 3),
    entry(71, 70, 2, 2),
    entry(72, 71, 2, 9),
    // "APageServProvider"
    entry(73, 72, 1, 3),
    entry(74, 73, 2, 2),
    entry(75, 74, 2, 2),
    entry(76, 75, 2, 2),
    entry(77, 76, 2, 9),
};
