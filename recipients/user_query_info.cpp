#include "recipients/user_query_info.h"

namespace {

constexpr platform::QueryInfoEntry entry(std::uint16_t number, std::uint16_t fieldRef,
                                         std::uint8_t kind, std::uint8_t valueClass) {
  return {20, number, 0, fieldRef, 0, kind, valueClass, {}};
}

}  // namespace

const platform::QueryInfoEntry kUserQueryInfo[kUserQueryInfoCount] = {
    // "UserObj"
    entry(1, 0, 2, 3),
    entry(2, 1, 1, 3),
    entry(3, 2, 1, 2),
    entry(4, 3, 2, 2),
    entry(5, 4, 2, 2),
    entry(6, 5, 2, 2),
    entry(7, 6, 2, 2),
    entry(8, 7, 2, 2),
    entry(9, 8, 2, 2),
    entry(10, 9, 2, 9),
    // "AlertUsr_Table"
    entry(11, 1, 1, 3),
    entry(12, 2, 2, 6),
    entry(13, 3, 2, 9),
    // "USR_MHS_Service"
    entry(14, 4, 1, 3),
    entry(15, 5, 2, 3),
    entry(16, 6, 2, 2),
    entry(17, 7, 2, 2),
    entry(18, 8, 2, 6),
    entry(19, 9, 2, 9),
    // "USR_SNMP_Service"
    entry(20, 10, 1, 3),
    entry(21, 11, 2, 3),
    entry(22, 12, 2, 2),
    entry(23, 13, 2, 2),
    entry(24, 14, 2, 2),
    entry(25, 15, 2, 2),
    entry(26, 16, 2, 6),
    entry(27, 17, 2, 9),
    // "USR_MCI_Service"
    entry(28, 18, 1, 3),
    entry(29, 19, 2, 3),
    entry(30, 20, 2, 2),
    entry(31, 21, 2, 2),
    entry(32, 22, 2, 6),
    entry(33, 23, 2, 9),
    // "USR_COMPU_Service"
    entry(34, 24, 1, 3),
    entry(35, 25, 2, 3),
    entry(36, 26, 2, 2),
    entry(37, 27, 2, 2),
    entry(38, 28, 2, 6),
    entry(39, 29, 2, 9),
    // "USR_SMTP_Service"
    entry(40, 30, 1, 3),
    entry(41, 31, 2, 3),
    entry(42, 32, 2, 2),
    entry(43, 33, 2, 2),
    entry(44, 34, 2, 6),
    entry(45, 35, 2, 9),
    // "USR_MAPI_Service"
    entry(46, 36, 1, 3),
    entry(47, 37, 2, 3),
    entry(48, 38, 2, 2),
    entry(49, 39, 2, 2),
    entry(50, 40, 2, 6),
    entry(51, 41, 2, 9),
    // "USR_CCMAIL_Service"
    entry(52, 42, 1, 3),
    entry(53, 43, 2, 3),
    entry(54, 44, 2, 2),
    entry(55, 45, 2, 2),
    entry(56, 46, 2, 6),
    entry(57, 47, 2, 9),
    // "USR_APAGE_Service"
    entry(58, 48, 1, 3),
    entry(61, 49, 2, 3),
    entry(60, 50, 2, 3),
    entry(62, 51, 2, 2),
    entry(63, 52, 2, 2),
    entry(64, 53, 2, 6),
    entry(65, 54, 2, 9),
    // "USR_NPAGE_Service"
    entry(66, 55, 1, 3),
    entry(67, 56, 2, 3),
    entry(68, 57, 2, 2),
    entry(69, 58, 2, 2),
    entry(70, 59, 2, 6),
    entry(71, 60, 2, 9),
    // "UsrInst"
    entry(72, 61, 1, 3),
    entry(73, 62, 2, 3),
    entry(75, 63, 2, 3),
    entry(74, 64, 2, 3),
    entry(76, 65, 2, 1),
    entry(78, 66, 2, 9),
};
