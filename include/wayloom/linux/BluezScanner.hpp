// Hears iBeacon frames through BlueZ, the Bluetooth service of Linux, over D-Bus.
//
//   struct Ear : linux_::ScannerListener {
//     void heard(std::span<const linux_::BeaconReport> reports) override { ... }
//   } ear;
//   linux_::BluezScanner scanner(*loop, {}, ear);
//   scanner.setWanted(true);
//
// The namespace ends in an underscore because `linux` is a macro in the GNU dialects of C++.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "wayloom/linux/RadioStatus.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"

namespace wayloom::linux_ {

// The times are for tests; the defaults suit a real radio.
struct BluezOptions {
  std::string bus = {};      // D-Bus address; empty: the system bus
  std::string adapter = {};  // "hci0"; empty: the first that is powered
  // Advertisements of no device at all for this long: the scan is restarted. Longer than the scan windows of 10.24 s in
  // each of which many controllers report a device once; short enough for two attempts before a region is left.
  platform::Duration watchdog = std::chrono::seconds(13);
  platform::Duration callTimeout = std::chrono::seconds(3);
  platform::Duration firstRetry = std::chrono::milliseconds(250);  // doubles up to:
  platform::Duration longestRetry = std::chrono::seconds(2);
  // Messages are gathered for this long before they are read, less when many come, so that a busy venue wakes the
  // process seldom.
  platform::Duration gathering = std::chrono::milliseconds(50);
};

// A Bluetooth device address, most significant byte first. Of many devices it changes every few minutes.
struct DeviceAddress {
  std::array<std::uint8_t, 6> bytes{};

  std::string text() const;  // "D3:AD:13:A2:01:0E"
  auto operator<=>(const DeviceAddress&) const = default;
};

// One frame as received. `frame.rssi` is a measurement: -127 to -1 dBm.
struct BeaconReport {
  ranging::IBeaconFrame frame;
  platform::MonotonicTime receivedAt;  // of posix::PosixMonotonicClock
  DeviceAddress sender;
};

// Told on the main queue.
class ScannerListener {
 public:
  virtual ~ScannerListener() = default;
  virtual void heard(std::span<const BeaconReport> reports) = 0;  // in order; valid during the call
  virtual void radioChanged(const RadioStatus&) {}                // once soon after the start, then on every change
};

// Keeps a scan going through everything that can happen to one: the service comes and goes, adapters are plugged and
// powered, calls fail or hang, a scan falls silent. Whatever the cause, it is heard again a few seconds after its end.
//
// Made and destroyed on the main thread; the listener may destroy it. A thread of its own talks to the bus and never
// waits for anything, so destruction is quick whatever hangs. At most 4096 senders are remembered, and as many reports
// wait for the main thread, the oldest giving way.
class BluezScanner {
 public:
  // The listener is not owned.
  BluezScanner(platform::TaskScheduler& tasks, BluezOptions options, ScannerListener& listener);
  ~BluezScanner();
  BluezScanner(const BluezScanner&) = delete;
  BluezScanner& operator=(const BluezScanner&) = delete;

  // Whether to scan; not at first. Any thread.
  void setWanted(bool wanted);

  RadioStatus status() const;  // any thread

 private:
  class Parts;
  std::shared_ptr<Parts> parts_;
};

}  // namespace wayloom::linux_
