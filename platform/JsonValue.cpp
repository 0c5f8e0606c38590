#include "wayloom/platform/JsonValue.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace wayloom::platform {
namespace {

bool isBlank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }
bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string_view withoutLeadingBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  return text;
}

std::size_t digitsAt(std::string_view text, std::size_t begin) {
  std::size_t end = begin;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end - begin;
}

// Takes one sign off the text; whether it was a minus.
bool takeSign(std::string_view& text) {
  if (text.empty() || (text.front() != '-' && text.front() != '+')) return false;
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  return negative;
}

std::int64_t leadingInteger(std::string_view text) {
  text = withoutLeadingBlanks(text);
  const bool negative = takeSign(text);
  const auto digits = text.substr(0, digitsAt(text, 0));
  std::uint64_t magnitude = 0;
  constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const auto outcome = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude);
  if (outcome.ec == std::errc::result_out_of_range || magnitude > kLargest)
    return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  return negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
}

// The largest or the smallest magnitude, for an unsigned decimal number that no double can hold: which of the two
// shows in the place of its first digit that is not 0.
double outOfRangeMagnitude(std::string_view number) {
  const auto exponentMark = std::min(number.find_first_of("eE"), number.size());
  const auto mantissa = number.substr(0, exponentMark);
  const auto point = std::min(mantissa.find('.'), mantissa.size());
  const auto leading = mantissa.find_first_of("123456789");
  auto power = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(leading);
  auto exponent = number.substr(std::min(exponentMark + 1, number.size()));
  if (!exponent.empty())
    power += std::clamp<std::int64_t>(leadingInteger(exponent), -1'000'000'000'000, 1'000'000'000'000);
  return power > 0 ? std::numeric_limits<double>::max() : 0.0;
}

// How many characters from the begin of the text are a decimal number without a sign.
std::size_t decimalLength(std::string_view text) {
  const auto whole = digitsAt(text, 0);
  auto length = whole;
  std::size_t fraction = 0;
  if (length < text.size() && text[length] == '.') {
    fraction = digitsAt(text, length + 1);
    length += 1 + fraction;
  }
  if (whole + fraction == 0) return 0;
  if (length < text.size() && (text[length] == 'e' || text[length] == 'E')) {
    auto digits = length + 1;
    if (digits < text.size() && (text[digits] == '+' || text[digits] == '-')) ++digits;
    if (const auto count = digitsAt(text, digits); count > 0) length = digits + count;
  }
  return length;
}

double leadingDouble(std::string_view text) {
  text = withoutLeadingBlanks(text);
  const bool negative = takeSign(text);
  text = text.substr(0, decimalLength(text));
  double magnitude = 0.0;
  const auto outcome = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (outcome.ec == std::errc::result_out_of_range) magnitude = outOfRangeMagnitude(text);
  return negative ? -magnitude : magnitude;
}

std::int64_t truncated(double number) {
  if (std::isnan(number)) return 0;
  // 2^63 is a double; the largest integer is not.
  if (number >= 0x1p63) return std::numeric_limits<std::int64_t>::max();
  if (number < -0x1p63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

bool textIsTrue(std::string_view text) {
  text = withoutLeadingBlanks(text);
  takeSign(text);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  return !text.empty() && std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

}  // namespace

const Json* member(const Json* value, std::string_view key) {
  if (!value || !value->is_object()) return nullptr;
  for (const auto& [name, content] : value->get_ref<const Json::object_t&>())
    if (name == key) return &content;
  return nullptr;
}

bool isNull(const Json* value) { return value && value->is_null(); }

bool isNumeric(const Json* value) {
  if (value == nullptr || !value->is_string()) return value != nullptr && value->is_number();
  auto text = withoutLeadingBlanks(value->get_ref<const std::string&>());
  takeSign(text);
  return decimalLength(text) > 0;
}

std::int64_t integerValue(const Json* value) {
  if (!value) return 0;
  switch (value->type()) {
    case Json::value_t::boolean:
      return value->get<bool>() ? 1 : 0;
    case Json::value_t::number_integer:
      return value->get<std::int64_t>();
    case Json::value_t::number_unsigned: {
      constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
      return static_cast<std::int64_t>(std::min(value->get<std::uint64_t>(), kLargest));
    }
    case Json::value_t::number_float:
      return truncated(value->get<double>());
    case Json::value_t::string:
      return leadingInteger(value->get_ref<const std::string&>());
    default:
      return 0;
  }
}

double doubleValue(const Json* value) {
  if (!value) return 0.0;
  if (value->is_number()) return value->get<double>();
  if (value->is_boolean()) return value->get<bool>() ? 1.0 : 0.0;
  if (value->is_string()) return leadingDouble(value->get_ref<const std::string&>());
  return 0.0;
}

float floatValue(const Json* value) {
  constexpr double kLargest = std::numeric_limits<float>::max();
  const double number = doubleValue(value);
  return std::isfinite(number) ? static_cast<float>(std::clamp(number, -kLargest, kLargest))
                               : static_cast<float>(number);
}

bool boolValue(const Json* value) {
  if (!value) return false;
  if (value->is_boolean()) return value->get<bool>();
  if (value->is_number_float()) return value->get<double>() != 0.0;
  if (value->is_number()) return value->get<std::uint64_t>() != 0;
  return value->is_string() && textIsTrue(value->get_ref<const std::string&>());
}

std::optional<std::string> stringValue(const Json* value) {
  if (!value || !value->is_string()) return std::nullopt;
  return value->get_ref<const std::string&>();
}

}  // namespace wayloom::platform
