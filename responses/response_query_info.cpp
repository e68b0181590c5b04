#include "responses/response_query_info.h"

namespace {

constexpr platform::QueryInfoEntry entry(std::uint16_t number, std::uint16_t fieldRef,
                                         std::uint8_t kind, std::uint8_t valueClass) {
  return {20, number, 0, fieldRef, 0, kind, valueClass, {}};
}

}  // namespace

const platform::QueryInfoEntry kResponseQueryInfo[kResponseQueryInfoCount] = {
    // "AlertResp_Table"
    entry(1, 1, 1, 3),
    entry(2, 2, 2, 1),
    entry(3, 3, 2, 1),
    entry(4, 4, 2, 1),
    entry(5, 5, 2, 1),
    entry(6, 6, 1, 1),
    entry(7, 7, 2, 1),
    entry(8, 8, 2, 3),
    entry(12, 12, 2, 3),
    entry(13, 13, 2, 3),
    entry(14, 14, 2, 3),
    entry(15, 15, 2, 1),
    entry(16, 16, 2, 9),
    entry(17, 10, 2, 3),
    // "AlertResultResp_Table"
    entry(18, 17, 1, 3),
    entry(19, 18, 2, 3),
    entry(20, 19, 2, 3),
    entry(21, 20, 2, 6),
    entry(22, 21, 2, 3),
    entry(23, 22, 2, 9),
};
