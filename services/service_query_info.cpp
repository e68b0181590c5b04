#include "services/service_query_info.h"

namespace {

constexpr platform::QueryInfoEntry entry(std::uint16_t number, std::uint16_t fieldRef,
                                         std::uint8_t kind, std::uint8_t valueClass) {
  return {20, number, 0, fieldRef, 0, kind, valueClass, {}};
}

}  // namespace

const platform::QueryInfoEntry kServiceQueryInfo[kServiceQueryInfoCount] = {
    // "Notify_Services"
    entry(1, 1, 1, 3),
    entry(2, 2, 2, 3),
    entry(3, 3, 2, 1),
    entry(4, 4, 2, 1),
    entry(8, 8, 2, 6),
    entry(9, 9, 2, 6),
    entry(11, 10, 2, 3),
    entry(10, 11, 2, 9),
    // "MHS_Service"
    entry(12, 12, 1, 3),
    entry(18, 18, 2, 9),
    // "SNMP_Service"
    entry(19, 19, 1, 3),
    entry(21, 21, 2, 2),
    entry(23, 23, 2, 2),
    entry(24, 24, 2, 9),
    // "MCI_Service"
    entry(25, 25, 1, 3),
    entry(26, 26, 2, 2),
    entry(28, 28, 2, 2),
    entry(30, 30, 2, 2),
    entry(31, 31, 2, 2),
    entry(32, 32, 2, 2),
    entry(33, 33, 2, 9),
    // "COMPUS_Service"
    entry(34, 34, 1, 3),
    entry(35, 35, 2, 2),
    entry(36, 36, 2, 2),
    entry(37, 37, 2, 2),
    entry(40, 40, 2, 2),
    entry(41, 41, 2, 2),
    entry(42, 42, 2, 9),
    // "SMTP_Service"
    entry(43, 43, 1, 3),
    entry(45, 45, 2, 2),
    entry(46, 46, 2, 2),
    entry(49, 49, 2, 9),
    // "MAPI_Service"
    entry(50, 50, 1, 3),
    entry(51, 51, 2, 2),
    entry(52, 52, 2, 2),
    entry(55, 55, 2, 9),
    // "CCMAIL_Service"
    entry(56, 56, 1, 3),
    entry(57, 57, 2, 2),
    entry(58, 58, 2, 2),
    entry(59, 59, 2, 2),
    entry(60, 60, 2, 2),
    entry(61, 61, 2, 9),
    // "WAVE_Service"
    entry(62, 62, 1, 3),
    entry(63, 63, 2, 2),
    entry(64, 64, 2, 2),
    entry(65, 65, 2, 9),
    // "TTS_Service"
    entry(66, 66, 1, 3),
    entry(68, 69, 2, 9),
    // "PHONE_Service"
    entry(69, 70, 1, 3),
    entry(70, 71, 2, 2),
    entry(71, 72, 2, 2),
    entry(72, 73, 2, 2),
    entry(73, 74, 2, 2),
    entry(74, 75, 2, 2),
    entry(75, 76, 2, 9),
    // "APAGE_Service"
    entry(82, 77, 1, 3),
    entry(83, 78, 2, 1),
    entry(84, 79, 2, 1),
    entry(85, 80, 2, 1),
    entry(86, 81, 2, 2),
    entry(87, 82, 2, 6),
    entry(88, 83, 2, 2),
    entry(89, 84, 2, 2),
    entry(90, 85, 2, 9),
    // "NPAGE_Service"
    entry(76, 86, 1, 3),
    entry(78, 87, 2, 2),
    entry(77, 88, 2, 6),
    entry(79, 89, 2, 2),
    entry(80, 90, 2, 2),
    entry(81, 91, 2, 9),
    // "GENPORT_Service"
    entry(91, 92, 1, 3),
    entry(92, 93, 2, 2),
    entry(93, 94, 2, 9),
    // "BROADCAST_Service"
    entry(94, 95, 1, 3),
    entry(95, 96, 2, 2),
    entry(96, 97, 2, 2),
    entry(97, 98, 2, 6),
    entry(98, 99, 2, 9),
};
