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
  std::string error;  // empty when there is a value; else one line that names the byte offset
};

// Parses one whole document. Refused with an error: an empty text, invalid UTF-8, trailing characters, and nesting
// deeper than `kMaximumJsonDepth`. Numbers that no double can hold are an error too. Never throws. Any thread.
inline constexpr int kMaximumJsonDepth = 256;
JsonParseResult parseJson(std::string_view text);

}  // namespace wayloom::platform
