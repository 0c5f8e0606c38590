#pragma once

#include "wayloom/platform/UUID.hpp"

namespace wayloom::platform {

// Who this installation is.
class DeviceIdentity {
 public:
  virtual ~DeviceIdentity() = default;

  // The same for every run of one installation. Thread-safe.
  virtual UUID identifierForVendor() const = 0;
};

}  // namespace wayloom::platform
