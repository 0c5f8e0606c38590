// What may be wrong with a device, its radio, its servers and its venue, and what helps.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/linux/GeoClueFixes.hpp"
#include "wayloom/linux/RadioStatus.hpp"
#include "wayloom/maps/TWLConfig.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/platform/Time.hpp"

#include "tools/live/KitNames.hpp"

namespace wayloom::tools {

// The command's exit statuses: that of the first diagnosis that is wrong. Scripts rely on them.
enum class Diagnosis : std::uint8_t {
  fine = 0,
  noBus = 10,
  noBluetoothService = 11,
  noAdapter = 12,
  blocked = 13,
  unpowered = 14,
  bluetoothRefused = 15,
  scanSilent = 16,
  bluetoothFailing = 17,
  framesRare = 18,
  noLocationService = 20,
  noLocationAgent = 21,
  locationRefused = 22,
  noFix = 23,
  clockUnset = 30,
  kitServerUnreachable = 40,
  tokenRefused = 41,
  mapServerUnreachable = 42,
  serverNotConfigured = 43,
  venueUnusable = 50,
  noMappedBeacons = 51,
};

struct CheckResult {
  std::string check;  // "radio", "clock", ...
  Diagnosis diagnosis = Diagnosis::fine;
  std::string text;    // what was found, a sentence
  std::string advice;  // what helps; empty when all is well
};

CheckResult checkClock(platform::CalendarTime now);

// How often beacons are heard.
class FrameRates {
 public:
  void add(std::span<const linux_::BeaconReport> reports);

  std::size_t beacons() const { return heard_.size(); }
  // Frames a second of each beacon since it was first heard, in ascending order; none of beacons that came in the last
  // two seconds.
  std::vector<double> at(platform::MonotonicTime now) const;

 private:
  struct Heard {
    int frames = 0;
    platform::MonotonicTime first;
  };

  static constexpr std::size_t kMostBeacons = 1000;

  std::map<platform::BeaconIdentity, Heard> heard_;
};

// `kernel` is the folder in which the kernel tells of its devices by their class: /sys/class.
CheckResult checkRadio(const linux_::RadioStatus& status, const std::string& kernel, const FrameRates& heard,
                       platform::MonotonicTime now);
CheckResult checkFixes(const linux_::FixStatus& status);
CheckResult checkKit(const KitNames& venue);
// Asks the servers that the configuration names, without changing anything on them.
std::vector<CheckResult> checkServers(platform::HttpClient& http, platform::TaskScheduler& tasks,
                                      const TWLConfig& configuration);

}  // namespace wayloom::tools
