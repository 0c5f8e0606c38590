#pragma once

#include <functional>

namespace wayloom::platform {

enum class CBCentralManagerState : int {
  unknown = 0,
  resetting = 1,
  unsupported = 2,
  unauthorized = 3,
  poweredOff = 4,
  poweredOn = 5,
};

// The state of the Bluetooth radio. Thread-safe.
class CBCentralManager {
 public:
  using StateCallback = std::function<void(CBCentralManagerState)>;

  virtual ~CBCentralManager() = default;

  virtual CBCentralManagerState state() const = 0;

  // Called on the main queue: once soon after it is set, then on every change. An empty callback ends that. Main
  // thread.
  virtual void setStateCallback(StateCallback callback) = 0;
};

}  // namespace wayloom::platform
