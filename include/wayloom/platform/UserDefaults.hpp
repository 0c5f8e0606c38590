#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace wayloom::platform {

// A small persistent store of the host application's settings. Thread-safe.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  virtual std::int64_t integerForKey(std::string_view key) const = 0;  // 0 when absent
  virtual void setInteger(std::string_view key, std::int64_t value) = 0;
  virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
  virtual void setString(std::string_view key, std::string_view value) = 0;

  // Writes what changed to disk before it returns; false when that failed (the values stay in memory).
  virtual bool synchronize() = 0;
};

}  // namespace wayloom::platform
