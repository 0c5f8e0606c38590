// Lenient reading of single JSON values: documents give numbers as numbers or as text, and every reader of a number
// accepts both. A text is converted by its leading part (blanks, a sign, digits), as far as it goes, in every locale
// alike.
//
// All functions accept any type of value and a null pointer (a missing member), never throw, and may be called from
// any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {

// The member of an object, or null when `value` is no object or has no such member. JSON null is a member.
const Json* member(const Json* value, std::string_view key);
inline const Json* member(const Json& value, std::string_view key) { return member(&value, key); }

// Whether the value is there and is JSON null.
bool isNull(const Json* value);

// Whether there is a number to read: a number, or a text that begins with one.
bool isNumeric(const Json* value);

// A number truncated towards zero (saturated at the ends of the range, NaN is 0); true is 1; a text by its leading
// decimal integer ("12 m" is 12, "x" is 0); anything else 0.
std::int64_t integerValue(const Json* value);

// A number; true is 1; a text by its leading decimal number with optional fraction and exponent (beyond a double's
// range the largest finite one); anything else 0, "inf" and "nan" too.
double doubleValue(const Json* value);

// As doubleValue, rounded to single precision; beyond its range the largest finite float.
float floatValue(const Json* value);

// Any number but 0; true; a text that begins, after blanks, a sign and zeros, with one of YyTt1-9; anything else false.
bool boolValue(const Json* value);

// The text of a string value; anything else is absent and gives an empty optional.
std::optional<std::string> stringValue(const Json* value);

}  // namespace wayloom::platform
