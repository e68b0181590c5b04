#include <fmt/format.h>
#include <fmt/printf.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "text/template_segment_internal.h"

namespace alertdb_internal {

namespace {

enum class Bits { k8, k16, k32, k64 };

struct Conversion {
  bool left = false, plus = false, space = false, zero = false, alt = false;
  int width = -1;      // -1: none
  int precision = -1;  // -1: none
  Bits bits = Bits::k32;
  bool lengthGiven = false;
  bool shortOnly = false;  // only "h" was given
  char type = 0;
  std::size_t end = 0;  // where the literal text begins
};

bool startsWith(std::string_view s, std::size_t at, std::string_view prefix) {
  return s.substr(at, prefix.size()) == prefix;
}

// Digits from `at`, saturated at the segment limit so that "%99999s" cannot
// ask for a giant field.
int number(std::string_view s, std::size_t &at) {
  int value = 0;
  while (at < s.size() && s[at] >= '0' && s[at] <= '9') {
    value = std::min(value * 10 + (s[at] - '0'), static_cast<int>(kSegmentLimit));
    ++at;
  }
  return value;
}

std::optional<Conversion> parse(std::string_view s) {
  Conversion c;
  std::size_t at = 1;
  for (; at < s.size(); ++at) {
    const char f = s[at];
    if (f == '-') {
      c.left = true;
    } else if (f == '+') {
      c.plus = true;
    } else if (f == ' ') {
      c.space = true;
    } else if (f == '0') {
      c.zero = true;
    } else if (f == '#') {
      c.alt = true;
    } else {
      break;
    }
  }
  if (at < s.size() && s[at] >= '1' && s[at] <= '9') c.width = number(s, at);
  if (at < s.size() && s[at] == '.') {
    ++at;
    c.precision = number(s, at);  // "." alone is precision 0
  }
  static constexpr struct {
    std::string_view text;
    Bits bits;
  } kLengths[] = {{"hh", Bits::k8}, {"h", Bits::k16},   {"ll", Bits::k64},
                  {"l", Bits::k32}, {"I64", Bits::k64}, {"I32", Bits::k32},
                  {"j", Bits::k64}, {"z", Bits::k64},   {"t", Bits::k64}};
  if (at < s.size() && std::string_view("hlIjzt").find(s[at]) != std::string_view::npos) {
    for (const auto &length : kLengths) {
      if (startsWith(s, at, length.text)) {
        c.bits = length.bits;
        c.lengthGiven = true;
        c.shortOnly = length.text == "h";
        at += length.text.size();
        break;
      }
    }
  }
  if (at >= s.size() || std::string_view("diuoxXcs").find(s[at]) == std::string_view::npos) {
    return std::nullopt;
  }
  c.type = s[at];
  if ((c.type == 's' || c.type == 'c') && c.lengthGiven && !c.shortOnly) return std::nullopt;
  c.end = at + 1;
  return c;
}

// Appends to `out`, dropping what passes the segment limit.
class SegmentText {
 public:
  explicit SegmentText(char *out) : out_(out) {}

  void append(std::string_view text) {
    const std::size_t n = std::min(text.size(), kSegmentLimit - length_);
    std::memcpy(out_ + length_, text.data(), n);
    length_ += n;
  }
  void pad(std::size_t count) {
    const std::size_t n = std::min(count, kSegmentLimit - length_);
    std::memset(out_ + length_, ' ', n);
    length_ += n;
  }
  std::size_t length() const { return length_; }

 private:
  char *out_;
  std::size_t length_ = 0;
};

// Text conversions are done here rather than by {fmt}: {fmt} measures widths
// and precisions in Unicode code points and display columns, while templates
// are 8-bit text and the platform's print counts bytes.
void writeText(SegmentText &out, std::string_view text, const Conversion &c, bool usePrecision) {
  if (usePrecision && c.precision >= 0) text = text.substr(0, c.precision);
  // A zero byte ends a zero-terminated text ("%c" of 0).
  text = text.substr(0, text.find('\0'));
  const std::size_t fill = c.width > 0 && static_cast<std::size_t>(c.width) > text.size()
                               ? static_cast<std::size_t>(c.width) - text.size()
                               : 0;
  if (!c.left) out.pad(fill);
  out.append(text);
  if (c.left) out.pad(fill);
}

template <class T>
std::int64_t asSigned(std::int64_t v) {
  return static_cast<std::int64_t>(static_cast<std::make_signed_t<T>>(v));
}

template <class T>
std::uint64_t asUnsigned(std::int64_t v) {
  return static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<T>>(v));
}

// Valid until the end of the full expression that made `digits`.
std::string_view decimal(const fmt::format_int &digits) { return {digits.data(), digits.size()}; }

// The value as the platform's print reads it for this conversion and width.
std::int64_t signedArgument(std::int64_t v, Bits bits) {
  switch (bits) {
    case Bits::k8:
      return asSigned<std::int8_t>(v);
    case Bits::k16:
      return asSigned<std::int16_t>(v);
    case Bits::k32:
      return asSigned<std::int32_t>(v);
    case Bits::k64:
      break;
  }
  return v;
}

std::uint64_t unsignedArgument(std::int64_t v, Bits bits) {
  switch (bits) {
    case Bits::k8:
      return asUnsigned<std::int8_t>(v);
    case Bits::k16:
      return asUnsigned<std::int16_t>(v);
    case Bits::k32:
      return asUnsigned<std::int32_t>(v);
    case Bits::k64:
      break;
  }
  return static_cast<std::uint64_t>(v);
}

// An integer conversion of a number, through {fmt}'s printf-compatible
// formatting with a format rebuilt from the checked parts only.
void writeInteger(SegmentText &out, std::int64_t value, const Conversion &c) {
  const bool isSigned = c.type == 'd' || c.type == 'i';
  if (!c.plus && !c.space && !c.zero && !c.alt && c.width < 0 && c.precision < 0 &&
      (c.type == 'd' || c.type == 'i' || c.type == 'u')) {
    // The common "%ld" needs no format at all.
    if (isSigned) {
      out.append(decimal(fmt::format_int(signedArgument(value, c.bits))));
    } else {
      out.append(decimal(fmt::format_int(unsignedArgument(value, c.bits))));
    }
    return;
  }
  const bool isZero =
      isSigned ? signedArgument(value, c.bits) == 0 : unsignedArgument(value, c.bits) == 0;
  if (c.precision == 0 && isZero) {
    // Zero with precision 0 has no digits in C; {fmt} would write "0".
    std::string sign = isSigned && c.plus ? "+" : isSigned && c.space ? " " : "";
    if (c.type == 'o' && c.alt) sign += '0';
    writeText(out, sign, c, false);
    return;
  }
  std::string format = "%";
  if (c.left) format += '-';
  if (c.zero) format += '0';
  if (isSigned && c.plus) format += '+';
  if (isSigned && c.space) format += ' ';
  if (c.alt && (c.type == 'o' || c.type == 'x' || c.type == 'X')) format += '#';
  if (c.width > 0) format += std::to_string(c.width);
  if (c.precision >= 0) format += '.' + std::to_string(c.precision);
  format += isSigned ? 'd' : c.type;
  const std::string text = isSigned ? fmt::sprintf(format, signedArgument(value, c.bits))
                                    : fmt::sprintf(format, unsignedArgument(value, c.bits));
  out.append(text);
}

}  // namespace

std::size_t copySegment(std::string_view segment, char *out) {
  SegmentText text(out);
  text.append(segment);
  return text.length();
}

std::size_t formatSegment(std::string_view segment, const SegmentValue &value, char *out) {
  const std::optional<Conversion> c = parse(segment);
  if (!c) return copySegment(segment, out);
  SegmentText text(out);
  try {
    if (!value.isNumber) {
      writeText(text, value.text, *c, c->type == 's');
    } else if (c->type == 's') {
      writeText(text, decimal(fmt::format_int(value.number)), *c, true);
    } else if (c->type == 'c') {
      const char byte = static_cast<char>(value.number);
      writeText(text, std::string_view(&byte, 1), *c, false);
    } else {
      writeInteger(text, value.number, *c);
    }
  } catch (...) {
    return copySegment(segment, out);
  }
  text.append(segment.substr(c->end));
  return text.length();
}

}  // namespace alertdb_internal
