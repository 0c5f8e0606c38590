#pragma once

#include <optional>
#include <string>

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {

// Reads XML and binary property lists. Thread-safe.
class PropertyListReader {
 public:
  virtual ~PropertyListReader() = default;

  // The top-level dictionary of the file, members in file order, or nothing when the file is missing, malformed or
  // holds something else. Dates read as seconds since 1970, data as base64 text.
  virtual std::optional<Json> readDictionary(const std::string& path) const = 0;
};

}  // namespace wayloom::platform
