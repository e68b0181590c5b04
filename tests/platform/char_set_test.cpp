#include "platform/char_set.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string ToOem(const std::string &ansi) {
  std::string out(ansi.size() + 1, 'x');
  EXPECT_EQ(platform::CharToOemA(ansi.c_str(), out.data()), 1);
  EXPECT_EQ(out[ansi.size()], '\0');
  out.resize(ansi.size());
  return out;
}

TEST(CharSetTest, ConvertsLettersKeepsAsciiAndMarksTheRest) {
  EXPECT_EQ(ToOem("caf\xE9 M\xFCller \xC7\xE0 \xDF"), "caf\x82 M\x81ller \x80\x85 \xE1");
  EXPECT_EQ(ToOem("\xA3\xB0\xF1\xBD\xFF"), "\x9C\xF8\xA4\xAB\x98");
  // Euro, curly quotes, copyright and letters that code page 437 lacks.
  EXPECT_EQ(ToOem("\x80\x93\xA9\xC0\xFD"), "?????");
  std::string ascii;
  for (int c = 1; c < 0x80; ++c) ascii += static_cast<char>(c);
  EXPECT_EQ(ToOem(ascii), ascii);
}

TEST(CharSetTest, ConvertsInPlaceAndRefusesNull) {
  char text[] = "R\xE9sum\xE9 \xA7";
  EXPECT_EQ(platform::CharToOemA(text, text), 1);
  EXPECT_STREQ(text, "R\x82sum\x82 ?");
  char buffer[4] = "abc";
  EXPECT_EQ(platform::CharToOemA(nullptr, buffer), 0);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(platform::CharToOemA("abc", nullptr), 0);
}

}  // namespace
