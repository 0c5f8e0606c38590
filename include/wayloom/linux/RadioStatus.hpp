#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace wayloom::linux_ {

// What the Bluetooth scanner is about, or what keeps it from its work.
enum class RadioCondition : std::uint8_t {
  resting,    // nobody wants it to scan
  starting,   // nothing is known yet
  scanning,   // and advertisements come in, or it has just begun
  silent,     // scanning, but no device at all has been heard for a while; the scan is restarted now and then
  noBus,      // the message bus can't be reached
  noDaemon,   // the Bluetooth service does not run
  noAdapter,  // it has no adapter, or not the one asked for
  unpowered,  // the adapter is off
  refused,    // this process may not use Bluetooth
  failing,    // calls to the service fail or are not answered
};

struct RadioStatus {
  RadioCondition condition = RadioCondition::starting;
  // Whether advertisements are heard, as far as is known: only then does silence say anything about beacons. A restart
  // of the scan changes nothing about it, nor does silence.
  bool listening = false;
  // Whether the service keeps an advertisement monitor beside the scan, which makes controllers report every frame.
  bool hasMonitor = false;
  std::string adapter{};  // "hci0"; empty: none
  std::string detail{};   // what the service or the system said, printable; may be empty

  bool operator==(const RadioStatus&) const = default;
};

// Whether somebody has to do something about it.
bool isTrouble(RadioCondition condition);

// The condition as a sentence for a log, and what helps against it; the second is empty when nothing needs help.
std::string_view description(RadioCondition condition);
std::string_view advice(RadioCondition condition);

}  // namespace wayloom::linux_
