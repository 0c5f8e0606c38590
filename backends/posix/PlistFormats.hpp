// The two formats of property lists. Each parser gives the top-level value, or nothing when the bytes are malformed;
// both bound their depth and their memory whatever the bytes say. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::posix {

inline constexpr int kMaximumPlistDepth = 256;
inline constexpr std::string_view kBinaryPlistMagic = "bplist00";

std::optional<platform::Json> parseXmlPlist(std::string_view text);
std::optional<platform::Json> parseBinaryPlist(std::string_view bytes);

// Appends the UTF-8 form of a code point; false when it is none (a surrogate, or beyond U+10FFFF).
bool appendUtf8(std::string& text, char32_t codePoint);

bool isUtf8(std::string_view text);

}  // namespace wayloom::posix
