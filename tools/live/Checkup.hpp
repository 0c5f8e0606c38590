// What may be wrong with a device, its radio, its servers and its venue, and what helps.
#pragma once

#include <optional>
#include <string>
#include <vector>

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

// `rfkill` is the folder in which the kernel tells which radios are blocked: /sys/class/rfkill.
CheckResult checkRadio(const linux_::RadioStatus& status, const std::string& rfkill, std::size_t beaconsHeard);
CheckResult checkFixes(const linux_::FixStatus& status);
CheckResult checkKit(const KitNames& venue);
// Asks the servers that the configuration names, without changing anything on them.
std::vector<CheckResult> checkServers(platform::HttpClient& http, const TWLConfig& configuration);

}  // namespace wayloom::tools
