// What is known of the devices that send iBeacon frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "wayloom/linux/BluezScanner.hpp"

namespace wayloom::linux_ {

// News of one device; what a message does not mention is empty.
struct DeviceUpdate {
  std::optional<int> rssi;  // a measurement, -127 to -1 dBm
  bool rssiGone = false;
  bool mentionsData = false;                      // what was advertised, of any format
  std::optional<ranging::IBeaconFrame> beacon{};  // an iBeacon frame among that data; its rssi means nothing

  // 0, 127 and what else is no measurement counts for nothing.
  void setRssi(int value);
  void addManufacturerData(std::uint16_t company, std::span<const std::uint8_t> data);
  void addOtherData() { mentionsData = true; }

  bool isEmpty() const { return !rssi && !rssiGone && !mentionsData; }
};

// Remembers what each device sends, because a message tells only what has changed. Many beacons send frames of several
// formats in turn, each perhaps with a power of its own: a strength belongs to the format that its message mentions, or
// else to the one that was mentioned last.
//
// Bounded: a newcomer to a full table takes the place of the device that was silent for longest. Devices that never
// sent an iBeacon frame take no place.
class DeviceTable {
 public:
  explicit DeviceTable(std::size_t capacity) : capacity_(capacity) {}

  // Takes the news in. A report when they mean that an iBeacon frame was received: a frame with its strength, a
  // strength alone of a device that sent an iBeacon frame last, or a frame of a device whose strength has not changed.
  std::optional<BeaconReport> update(std::string_view path, const DeviceUpdate& news, platform::MonotonicTime now);
  // The same for what was known before: never a report.
  void remember(std::string_view path, const DeviceUpdate& news) { take(path, news); }

  void remove(std::string_view path);
  void clear();
  std::size_t size() const { return devices_.size(); }

 private:
  struct Device {
    std::string path;
    DeviceAddress address;
    ranging::IBeaconFrame frame{};  // the last one
    std::optional<int> rssi{};      // told last, of whatever format
    bool sentBeaconLast = true;     // rather than another format
  };
  using Devices = std::list<Device>;  // the one heard last in front

  Device* take(std::string_view path, const DeviceUpdate& news);
  Devices::iterator insert(std::string_view path);

  std::size_t capacity_;
  Devices devices_;
  std::unordered_map<std::string_view, Devices::iterator> index_;  // keys are the devices' own paths
};

// The address in an object path such as "/org/bluez/hci0/dev_D3_AD_13_A2_01_0E"; zeros when there is none.
DeviceAddress addressInPath(std::string_view path);

}  // namespace wayloom::linux_
