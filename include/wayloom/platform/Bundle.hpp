#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Json.hpp"

namespace wayloom::platform {

// A folder of read-only resources: the host application's main bundle, or the library's own. Thread-safe.
class Bundle {
 public:
  virtual ~Bundle() = default;

  // The absolute path of "<name>.<type>" in this bundle when that file is there. A name that would leave the bundle
  // finds nothing.
  virtual std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const = 0;

  // The bundle's Info.plist; an empty object when there is none.
  virtual const Json& infoDictionary() const = 0;
};

}  // namespace wayloom::platform
