#include "backends/sim/JsonText.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <simdjson.h>

namespace wayloom::sim {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool isPlain(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
}

// DEL, or one of U+0080 to U+009F: JSON may have them as they are, and terminals obey some of them.
std::size_t lengthOfLateControl(std::string_view text) {
  if (text.front() == '\x7F') return 1;
  return text.size() > 1 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0 ? 2 : 0;
}

void appendUnicodeEscape(std::string& out, char character) {
  fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(static_cast<unsigned char>(character)));
}

// Length of the UTF-8 sequence at the beginning, or 0 when there is none.
std::size_t sequenceLength(std::string_view text) {
  for (std::size_t length = 2; length <= std::min<std::size_t>(4, text.size()); ++length)
    if (simdjson::validate_utf8(text.data(), length)) return length;
  return 0;
}

void appendEscaped(std::string& out, char character) {
  static constexpr std::string_view kControls = "\b\t\n\f\r";
  static constexpr std::string_view kLetters = "btnfr";
  if (character == '"' || character == '\\')
    out.append("\\").push_back(character);
  else if (const auto found = kControls.find(character); found != kControls.npos)
    out.append("\\").push_back(kLetters[found]);
  else
    appendUnicodeEscape(out, character);
}

void appendSpecial(std::string& out, std::string_view text) {
  while (!text.empty()) {
    std::size_t length = 1;
    if (isPlain(text.front())) {
      out += text.front();
    } else if (const auto late = lengthOfLateControl(text); late > 0) {
      length = late;
      appendUnicodeEscape(out, text[late - 1]);
    } else if (static_cast<unsigned char>(text.front()) < 0x80) {
      appendEscaped(out, text.front());
    } else if (length = sequenceLength(text); length > 0) {
      out += text.substr(0, length);
    } else {
      length = 1;
      out += kReplacement;
    }
    text.remove_prefix(length);
  }
}

}  // namespace

std::string jsonText(const platform::Json& value, int indent) {
  const auto text = value.dump(indent, ' ', false, platform::Json::error_handler_t::replace);
  std::string out;
  out.reserve(text.size());
  std::size_t done = 0;
  for (auto at = text.find_first_of("\x7F\xC2"); at != text.npos; at = text.find_first_of("\x7F\xC2", at + 1)) {
    const auto length = lengthOfLateControl(std::string_view(text).substr(at));
    if (length == 0) continue;
    out.append(text, done, at - done);
    appendUnicodeEscape(out, text[at + length - 1]);
    done = at + length;
  }
  return out.append(text, done);
}

JsonText& JsonText::open(char bracket) {
  separate();
  text_ += bracket;
  needsComma_ = false;
  return *this;
}

JsonText& JsonText::close(char bracket) {
  text_ += bracket;
  needsComma_ = true;
  return *this;
}

JsonText& JsonText::key(std::string_view name) {
  separate();
  text_ += '"';
  text_ += name;
  text_ += "\":";
  needsComma_ = false;
  return *this;
}

JsonText& JsonText::value(double number) {
  if (!std::isfinite(number)) return null();
  separate();
  const auto begin = text_.size();
  fmt::format_to(std::back_inserter(text_), "{}", number);
  if (text_.find_first_of(".e", begin) == text_.npos) text_ += ".0";
  needsComma_ = true;
  return *this;
}

JsonText& JsonText::value(std::string_view text) {
  separate();
  text_ += '"';
  if (std::all_of(text.begin(), text.end(), isPlain))
    text_ += text;
  else
    appendSpecial(text_, text);
  text_ += '"';
  needsComma_ = true;
  return *this;
}

JsonText& JsonText::raw(std::string_view json) {
  separate();
  text_ += json;
  needsComma_ = true;
  return *this;
}

JsonText& JsonText::integer(std::int64_t number) {
  const fmt::format_int digits(number);
  return raw({digits.data(), digits.size()});
}

JsonText& JsonText::integer(std::uint64_t number) {
  const fmt::format_int digits(number);
  return raw({digits.data(), digits.size()});
}

}  // namespace wayloom::sim
