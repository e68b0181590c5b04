// One segment of a message template: the text from a "%" up to the next "%"
// or the template's end, formatted with the one value its list entry gives.
// Templates are written by administrators, so the conversion is checked here
// before anything is formatted: nothing a template holds can make the
// formatting write, read a wrong argument or produce an unbounded text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace alertdb_internal {

// The most a segment contributes, conversion and literal text together.
inline constexpr std::size_t kSegmentLimit = 1024;

// The value of one list entry: a text, or a 32-bit number with the
// signedness of its source.
struct SegmentValue {
  bool isNumber = false;
  std::string_view text;
  std::int64_t number = 0;
};

inline SegmentValue textValue(std::string_view text) { return {false, text, 0}; }
inline SegmentValue numberValue(std::int64_t number) { return {true, {}, number}; }

// Formats `segment` (which starts at its "%") with `value` into `out`, which
// holds kSegmentLimit bytes, and returns the length written (no terminator).
// Which conversions are accepted, how a value of the other kind shows, and
// the caps: text/replaceable_parameters.h. A segment that is not accepted is
// copied as it stands, by copySegment.
std::size_t formatSegment(std::string_view segment, const SegmentValue &value, char *out);

// `segment` copied as it stands, cut to kSegmentLimit bytes.
std::size_t copySegment(std::string_view segment, char *out);

}  // namespace alertdb_internal
