#include "view/PageText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace wayloom {
namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<double> floatValue(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0.0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  const auto rounded = static_cast<float>(value);
  if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(rounded)) return std::nullopt;
  return rounded;
}

// "%.1f" of the C locale, whatever the process's is.
void appendCoordinate(std::string& text, double value, char after) {
  std::array<char, 320> digits{};  // the largest double has 309 before the point
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 1).ptr;
  text.append(digits.data(), end) += after;
}

}  // namespace

std::string toUrlParams(const platform::Json& dictionary) {
  std::string params;
  for (const auto& [key, value] : dictionary.items()) {
    if (!params.empty()) params += '&';
    params += key + '=';
    params += value.is_string() ? value.get_ref<const std::string&>() : value.dump();
  }
  return params;
}

std::optional<Point> pointValue(std::string_view text) {
  const auto comma = text.find(',');
  if (comma == text.npos) return std::nullopt;
  const auto x = floatValue(text.substr(0, comma));
  const auto rest = text.substr(comma + 1);
  const auto y = floatValue(rest.substr(0, rest.find(',')));
  if (!x || !y) return std::nullopt;
  return Point{*x, *y};
}

std::optional<Point> tappedPoint(std::string_view message) {
  std::string piece(message.substr(message.rfind(':') + 1));
  std::erase(piece, '"');
  return pointValue(piece);
}

std::string highlightScript(const std::vector<Point>& points) {
  std::string script = "highlightPolygon(\"";
  for (const auto& point : points) {
    appendCoordinate(script, point.x, ',');
    appendCoordinate(script, point.y, ' ');
  }
  return script + "\");";
}

}  // namespace wayloom
