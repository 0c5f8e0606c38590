#pragma once

#include <any>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wayloom::platform {

// A few named values that travel with a notification; each name documents the type behind it.
class UserInfo {
 public:
  UserInfo() = default;

  void set(std::string_view key, std::any value) { entries_.emplace_back(key, std::move(value)); }

  // The value under the key, or null when it is missing or of another type.
  template <class T>
  const T* get(std::string_view key) const {
    for (const auto& [name, value] : entries_)
      if (name == key) return std::any_cast<T>(&value);
    return nullptr;
  }

 private:
  std::vector<std::pair<std::string, std::any>> entries_;
};

struct Notification {
  std::string name;
  const void* object = nullptr;  // who posts it; compared, never dereferenced
  UserInfo userInfo;
};

}  // namespace wayloom::platform
