#include "backends/linux/AdvertisementMonitor.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace wayloom::linux_ {
namespace {

constexpr const char* kMonitorInterface = "org.bluez.AdvertisementMonitor1";

// Where in a field to look, the field's type, and the bytes that have to be there.
using Pattern = sdbus::Struct<std::uint8_t, std::uint8_t, std::vector<std::uint8_t>>;

// Manufacturer data of company 0x004C that begins as an iBeacon frame does.
std::vector<Pattern> patterns() {
  constexpr std::uint8_t manufacturerData = 0xFF;
  return {{std::uint8_t{0}, manufacturerData, std::vector<std::uint8_t>{0x4C, 0x00, 0x02, 0x15}}};
}

}  // namespace

AdvertisementMonitor::AdvertisementMonitor(sdbus::IConnection& connection)
    : root_(sdbus::createObject(connection, kRoot)),
      monitor_(sdbus::createObject(connection, std::string(kRoot) + "/beacons")) {
  root_->addObjectManager();
  for (const char* method : {"Activate", "Release"})
    monitor_->registerMethod(method).onInterface(kMonitorInterface).implementedAs([] {}).withNoReply();
  for (const char* method : {"DeviceFound", "DeviceLost"})
    monitor_->registerMethod(method)
        .onInterface(kMonitorInterface)
        .implementedAs([](const sdbus::ObjectPath&) {})
        .withNoReply();
  monitor_->registerProperty("Type").onInterface(kMonitorInterface).withGetter([] {
    return std::string(kMonitorType);
  });
  monitor_->registerProperty("Patterns").onInterface(kMonitorInterface).withGetter(patterns);
  // 0: every frame, where the controller matches the patterns itself.
  monitor_->registerProperty("RSSISamplingPeriod").onInterface(kMonitorInterface).withGetter([] {
    return std::uint16_t{0};
  });
  monitor_->finishRegistration();
}

}  // namespace wayloom::linux_
