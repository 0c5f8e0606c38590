#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "wayloom/platform/Time.hpp"

namespace wayloom::storage {

// Bytes to be stored as a blob.
struct Blob {
  std::string_view bytes;
};

// An argument of a statement: what takes the place of one "?". An empty optional is SQL NULL; a date becomes the number
// of seconds since 1970, a double. Texts and blobs are only referred to: they must last until the statement has been
// executed.
class DatabaseValue {
 public:
  using Content = std::variant<std::monostate, std::int64_t, double, std::string_view, Blob>;

  DatabaseValue(std::nullptr_t) {}
  template <std::integral Integer>
  DatabaseValue(Integer number) : content_(static_cast<std::int64_t>(number)) {}
  DatabaseValue(double number) : content_(number) {}
  DatabaseValue(std::string_view text) : content_(text) {}
  DatabaseValue(const std::string& text) : content_(std::string_view(text)) {}
  DatabaseValue(const char* text) : content_(std::string_view(text)) {}
  DatabaseValue(Blob blob) : content_(blob) {}
  DatabaseValue(platform::CalendarTime time) : content_(platform::secondsSince1970(time)) {}
  template <class Value>
  DatabaseValue(const std::optional<Value>& value) {
    if (value) content_ = DatabaseValue(*value).content();
  }

  const Content& content() const { return content_; }

 private:
  Content content_;
};

}  // namespace wayloom::storage
