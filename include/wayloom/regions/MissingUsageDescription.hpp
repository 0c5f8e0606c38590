#pragma once

#include <stdexcept>

namespace wayloom {

// The host forgot to say, in its Info.plist, what it wants locations for. A programming error of the host's, raised
// when the region manager is created.
class MissingUsageDescription : public std::logic_error {
 public:
  MissingUsageDescription()
      : std::logic_error("You must add NSLocationAlwaysUsageDescription key to your info.plist file.") {}

  static constexpr const char* name() { return "Missing info.plist key"; }
};

}  // namespace wayloom
