// Writes JSON as text, without a document in between.
//
//   JsonText text;
//   text.beginObject().member("t", 1.5).member("event", "sync").endObject();
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::sim {

// The value as JsonText writes it: on one line, or with members on lines of their own, indented by so many blanks.
std::string jsonText(const platform::Json& value, int indent = -1);

// Keeps its memory from one clear() to the next. The caller's order of calls must make sense; it puts the commas.
class JsonText {
 public:
  JsonText& beginObject() { return open('{'); }
  JsonText& endObject() { return close('}'); }
  JsonText& beginArray() { return open('['); }
  JsonText& endArray() { return close(']'); }
  JsonText& key(std::string_view name);  // plain ASCII

  JsonText& null() { return raw("null"); }
  JsonText& value(bool flag) { return raw(flag ? "true" : "false"); }
  JsonText& value(double number);  // the shortest text that reads back as the same double; null when it isn't finite
  JsonText& value(const char* text) { return value(std::string_view(text)); }
  JsonText& value(const std::string& text) { return value(std::string_view(text)); }
  // What isn't UTF-8 becomes U+FFFD; control characters are escaped, those that JSON allows as well.
  JsonText& value(std::string_view text);
  template <std::integral Number>
  JsonText& value(Number number) {
    if constexpr (std::signed_integral<Number>)
      return integer(static_cast<std::int64_t>(number));
    else
      return integer(static_cast<std::uint64_t>(number));
  }
  template <class Value>
  JsonText& value(const std::optional<Value>& maybe) {
    return maybe ? value(*maybe) : null();
  }
  JsonText& raw(std::string_view json);  // a complete value

  template <class Value>
  JsonText& member(std::string_view name, const Value& content) {
    return key(name).value(content);
  }

  void endLine() {
    text_ += '\n';
    needsComma_ = false;
  }

  const std::string& text() const { return text_; }
  void clear() {
    text_.clear();
    needsComma_ = false;
  }

 private:
  JsonText& open(char bracket);
  JsonText& close(char bracket);
  JsonText& integer(std::int64_t number);
  JsonText& integer(std::uint64_t number);
  void separate() {
    if (needsComma_) text_ += ',';
  }

  std::string text_;
  bool needsComma_ = false;
};

}  // namespace wayloom::sim
