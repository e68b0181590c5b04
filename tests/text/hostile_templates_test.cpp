// Conversions written by administrators: what is accepted is formatted as the
// C library would format it with the argument of the right kind, and the rest
// is neither executed nor allowed to read or write anything.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "text/expansion_fixture.h"

namespace {

using alertdb_test::ExpansionInputs;

std::string expandMessage(ExpansionInputs &in, const std::string &text,
                          std::initializer_list<int> ids, std::uint32_t namesOnly = 0) {
  in.message(text, ids);
  auto out = in.expand(namesOnly);
  EXPECT_EQ(out.result, 0u) << text;
  return out.message;
}

template <class... Args>
std::string cFormat(const std::string &format, Args... args) {
  std::vector<char> buffer(4096);
  std::snprintf(buffer.data(), buffer.size(), format.c_str(), args...);
  return buffer.data();
}

TEST(HostileTemplates, UnacceptedConversionsAreCopiedAsWritten) {
  ExpansionInputs in;
  EXPECT_EQ(expandMessage(in, "count%n here", {4}), "count%n here");
  EXPECT_EQ(expandMessage(in, "%hn%ln%lln", {4, 9, 11}), "%hn%ln%lln");
  EXPECT_EQ(expandMessage(in, "[%*d]", {9}), "[%*d]") << "no second argument to read";
  EXPECT_EQ(expandMessage(in, "[%.*s]", {4}), "[%.*s]");
  EXPECT_EQ(expandMessage(in, "[%1$s]", {4}), "[%1$s]");
  EXPECT_EQ(expandMessage(in, "Done %", {4}), "Done %") << "a lone mark at the end";
  EXPECT_EQ(expandMessage(in, "100%%! by %s", {4, 2, 1}), "100%%! by alice")
      << "every mark uses an entry";
  EXPECT_EQ(expandMessage(in, "100% sure", {2}), "100WS-07ure") << "\"% s\" is a conversion";
  EXPECT_EQ(expandMessage(in, "%f %e %g %a %p", {9, 9, 9, 9, 9}), "%f %e %g %a %p");
  EXPECT_EQ(expandMessage(in, "%ls %lc %S %C %q %5", {4, 4, 4, 4, 4, 4}), "%ls %lc %S %C %q %5");
  EXPECT_EQ(expandMessage(in, "%-", {4}), "%-");
}

TEST(HostileTemplates, WidthAndPrecisionAreCappedPerSegment) {
  ExpansionInputs in;
  std::string out = expandMessage(in, "<%99999s>", {4});
  ASSERT_EQ(out.size(), 1 + 1024u) << "the segment stops at 1024 characters, tail included";
  EXPECT_EQ(out.substr(1024 - 9 + 1), "Disk Full");

  out = expandMessage(in, "%.4294967296d|", {9});
  ASSERT_EQ(out.size(), 1024u);
  EXPECT_EQ(out.substr(0, 2), "-0");

  out = expandMessage(in, "%-2000s|%s", {4, 2});
  EXPECT_EQ(out, "Disk Full" + std::string(1024 - 9, ' ') + "WS-07");

  // A text longer than the segment is cut too.
  std::memset(in.event().EventText, 'x', 2048);
  in.event().EventText[2048] = '\0';
  EXPECT_EQ(expandMessage(in, "%s!", {12}), std::string(1024, 'x'));
  EXPECT_EQ(expandMessage(in, "%.10s!", {12}), "xxxxxxxxxx!");
}

TEST(HostileTemplates, ConversionsOfTheOtherKindReadTheValueAsItIs) {
  ExpansionInputs in;
  EXPECT_EQ(expandMessage(in, "[%ld]", {4}), "[Disk Full]");
  EXPECT_EQ(expandMessage(in, "[%12d]", {4}), "[   Disk Full]");
  EXPECT_EQ(expandMessage(in, "[%-12x]", {2}), "[WS-07       ]");
  EXPECT_EQ(expandMessage(in, "[%+.2d]", {1}), "[alice]") << "precision is for digits";
  EXPECT_EQ(expandMessage(in, "[%c]", {1}), "[alice]");
  EXPECT_EQ(expandMessage(in, "[%s][%6s][%-6s][%.2s]", {9, 9, 11, 11}),
            "[-42][   -42][4711  ][47]");
  EXPECT_EQ(expandMessage(in, "[%ld][%-14d]", {11, 9}, 1), "[<Event ID>][<Product ErrorCode>]");
  EXPECT_EQ(expandMessage(in, "[%ld][%5lu]", {8, 14}), "[MAJOR][Degraded]");
  in.event().ErrorCode = 65;
  EXPECT_EQ(expandMessage(in, "[%c][%-3c][%3c]", {9, 9, 9}), "[A][A  ][  A]");
  in.event().ErrorCode = 0x100;
  EXPECT_EQ(expandMessage(in, "[%c]", {9}), "[]") << "a zero character ends its text";
}

// Every combination of flags, widths, precisions, length modifiers and
// integer conversions against snprintf given the argument that the
// platform's print would read: 32 bits by default and for "l".
TEST(HostileTemplates, IntegerConversionsMatchTheCLibrary) {
  const char *flagSets[] = {"", "-", "+", " ", "0", "#", "-0", "+0", "- #", "0#", "+ "};
  const char *widths[] = {"", "1", "7", "12"};
  const char *precisions[] = {"", ".", ".0", ".3", ".10"};
  const char types[] = "diuoxX";
  const std::int32_t errorCodes[] = {0, 1, -1, 42, -42, INT32_MIN, INT32_MAX, 65537};
  const std::uint32_t eventIds[] = {0, 4711, 3000000000u, UINT32_MAX};
  ExpansionInputs in;
  int compared = 0;
  for (const char *flags : flagSets)
    for (const char *width : widths)
      for (const char *precision : precisions)
        for (const char *type = types; *type; ++type) {
          const std::string head = std::string("%") + flags + width + precision;
          for (const std::string length : {"", "l", "h", "hh", "ll", "I64"}) {
            const std::string conversion = head + length + *type;
            const std::string cLength = length == "l" ? "" : length == "I64" ? "ll" : length;
            const std::string cConversion = head + cLength + *type + "|";
            for (std::int32_t code : errorCodes) {
              in.event().ErrorCode = code;
              const std::string expected = cLength == "ll"
                                               ? cFormat(cConversion, static_cast<long long>(code))
                                               : cFormat(cConversion, code);
              ASSERT_EQ(expandMessage(in, conversion + "|", {9}), expected) << conversion;
              ++compared;
            }
            for (std::uint32_t id : eventIds) {
              in.event().EventID = id;
              const std::string expected = cLength == "ll"
                                               ? cFormat(cConversion, static_cast<long long>(id))
                                               : cFormat(cConversion, id);
              ASSERT_EQ(expandMessage(in, conversion + "|", {11}), expected) << conversion;
              ++compared;
            }
          }
        }
  EXPECT_EQ(compared, 11 * 4 * 5 * 6 * 6 * 12);
}

TEST(HostileTemplates, TextConversionsMatchTheCLibraryCountingBytes) {
  const char *conversions[] = {"%s",    "%-s",    "%5s",  "%-5s",  "%.3s", "%.0s",   "%.s",
                               "%8.3s", "%-8.3s", "%20s", "%-20s", "%hs",  "%12.40s"};
  const char *texts[] = {"", "a", "alice", "Caf\xe9 \xe0 la carte", "\xc3\xa9t\xc3\xa9 long text"};
  ExpansionInputs in;
  for (const char *conversion : conversions) {
    for (const char *text : texts) {
      std::strcpy(in.event().UserName, text);
      std::string cConversion = conversion;
      if (cConversion == "%hs") cConversion = "%s";
      EXPECT_EQ(expandMessage(in, std::string(conversion) + "|", {1}),
                cFormat(cConversion + "|", text))
          << conversion << " " << text;
    }
  }
}

}  // namespace
