// Turns outside bytes into a Json value without trusting them.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {

// The outcome of one parse: a value, or the reason why there is none.
struct JsonParseResult {
  std::optional<Json> value;
  std::string error;  // empty when there is a value; else one line of printable ASCII, with the byte offset if known
};

// What one document may come to. Beside its text it needs up to 130 bytes of memory for each element.
struct DocumentLimits {
  std::size_t bytes = 64U << 20U;
  std::size_t elements = 2'000'000;  // values, those inside of others too

  static constexpr DocumentLimits none() {
    return {std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max()};
  }
};

// Parses one whole document. Refused with an error: an empty text, invalid UTF-8, trailing characters, nesting deeper
// than `kMaximumJsonDepth`, and what is beyond the limits. Numbers beyond the range of a double are an error too;
// integers of more than 64 bits become doubles. Of members with one name the last value stands, in the place of the
// first. A leading byte order mark is skipped. Takes time in proportion to the text, times the logarithm of the longest
// object's members, whatever it says. Never throws. Any thread.
inline constexpr int kMaximumJsonDepth = 256;
JsonParseResult parseJson(std::string_view text, const DocumentLimits& limits = DocumentLimits::none());

}  // namespace wayloom::platform
