#pragma once

#include "wayloom/platform/CBCentralManager.hpp"

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// Knows the last state of the Platform's Bluetooth radio that was told. A Platform tells one listener only: all watches
// of a Platform share it. Main thread.
class BluetoothWatch {
 public:
  explicit BluetoothWatch(platform::Platform& platform);
  ~BluetoothWatch();
  BluetoothWatch(const BluetoothWatch&) = delete;
  BluetoothWatch& operator=(const BluetoothWatch&) = delete;

  platform::CBCentralManagerState state() const { return state_; }

 private:
  struct Watches;

  Watches& watches_;
  platform::CBCentralManagerState state_;
};

}  // namespace wayloom
