#pragma once

#include <memory>
#include <sdbus-c++/sdbus-c++.h>

namespace wayloom::linux_ {

inline constexpr const char* kMonitorManagerInterface = "org.bluez.AdvertisementMonitorManager1";
inline constexpr const char* kMonitorType = "or_patterns";

// What the Bluetooth service is shown to have it watch for iBeacon frames beside the scan: an object of
// org.bluez.AdvertisementMonitor1 below the root that is registered with its AdvertisementMonitorManager1.
//
// While a monitor is registered, the kernel has the controller report every frame of an active scan; without one, most
// controllers drop what they take for duplicates, and a steady beacon is heard once in a scan window of 10.24 s. The
// frames themselves arrive as the devices' properties, as those of the scan do, so nothing that the service calls here
// has to be acted upon.
class AdvertisementMonitor {
 public:
  static constexpr const char* kRoot = "/wayloom";

  explicit AdvertisementMonitor(sdbus::IConnection& connection);  // which must outlive it

 private:
  std::unique_ptr<sdbus::IObject> root_;
  std::unique_ptr<sdbus::IObject> monitor_;
};

}  // namespace wayloom::linux_
