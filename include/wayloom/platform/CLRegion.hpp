#pragma once

#include <memory>
#include <string>
#include <utility>

namespace wayloom::platform {

enum class CLRegionState : int { unknown = 0, inside = 1, outside = 2 };

// A region that the platform watches; immutable once it is handed to a location manager. Two regions with one
// identifier are the same region to the platform: the later one replaces the earlier.
class CLRegion {
 public:
  explicit CLRegion(std::string identifier) : identifier_(std::move(identifier)) {}
  virtual ~CLRegion() = default;

  const std::string& identifier() const { return identifier_; }

  bool notifyOnEntry = true;
  bool notifyOnExit = true;

 private:
  std::string identifier_;
};

using CLRegionPtr = std::shared_ptr<const CLRegion>;

}  // namespace wayloom::platform
