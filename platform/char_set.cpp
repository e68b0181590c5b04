#include "platform/char_set.h"

namespace platform {
namespace {

// Code page 437 form of Windows-1252 0x80-0xFF; '?' where 437 has no such letter.
// clang-format off
constexpr unsigned char kOemOfAnsi[128] = {
    // 0x80: euro, undefined, quotes, florin, ellipsis, daggers, caron letters, ligatures
    '?', '?', '?', 0x9F, '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?',
    // 0x90: undefined, quotes, bullet, dashes, tilde, trade mark, ...
    '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?', '?',
    // 0xA0: nbsp ¡ ¢ £ ¤ ¥ ¦ § ¨ © ª « ¬ shy ® ¯
    0xFF, 0xAD, 0x9B, 0x9C, '?', 0x9D, '?', '?', '?', '?', 0xA6, 0xAE, 0xAA, '?', '?', '?',
    // 0xB0: ° ± ² ³ ´ µ ¶ · ¸ ¹ º » ¼ ½ ¾ ¿
    0xF8, 0xF1, 0xFD, '?', '?', 0xE6, '?', 0xFA, '?', '?', 0xA7, 0xAF, 0xAC, 0xAB, '?', 0xA8,
    // 0xC0: À Á Â Ã Ä Å Æ Ç È É Ê Ë Ì Í Î Ï
    '?', '?', '?', '?', 0x8E, 0x8F, 0x92, 0x80, '?', 0x90, '?', '?', '?', '?', '?', '?',
    // 0xD0: Ð Ñ Ò Ó Ô Õ Ö × Ø Ù Ú Û Ü Ý Þ ß
    '?', 0xA5, '?', '?', '?', '?', 0x99, '?', '?', '?', '?', '?', 0x9A, '?', '?', 0xE1,
    // 0xE0: à á â ã ä å æ ç è é ê ë ì í î ï
    0x85, 0xA0, 0x83, '?', 0x84, 0x86, 0x91, 0x87, 0x8A, 0x82, 0x88, 0x89, 0x8D, 0xA1, 0x8C, 0x8B,
    // 0xF0: ð ñ ò ó ô õ ö ÷ ø ù ú û ü ý þ ÿ
    '?', 0xA4, 0x95, 0xA2, 0x93, '?', 0x94, 0xF6, '?', 0x97, 0xA3, 0x96, 0x81, '?', '?', 0x98,
};
// clang-format on

}  // namespace

std::int32_t CharToOemA(const char *source, char *destination) {
  if (source == nullptr || destination == nullptr) return 0;
  // Byte by byte, so that source == destination converts in place.
  for (;; ++source, ++destination) {
    unsigned char c = static_cast<unsigned char>(*source);
    *destination = static_cast<char>(c < 0x80 ? c : kOemOfAnsi[c - 0x80]);
    if (c == 0) break;
  }
  return 1;
}

}  // namespace platform
