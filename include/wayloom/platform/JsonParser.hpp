// Turns outside bytes into a Json value without trusting them.
#pragma once

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

// Parses one whole document. Refused with an error: an empty text, invalid UTF-8, trailing characters, and nesting
// deeper than `kMaximumJsonDepth`. Numbers beyond the range of a double are an error too; integers of more than 64 bits
// become doubles. Of members with one name the last value stands, in the place of the first. A leading byte order mark
// is skipped. Never throws. Any thread.
inline constexpr int kMaximumJsonDepth = 256;
JsonParseResult parseJson(std::string_view text);

}  // namespace wayloom::platform
