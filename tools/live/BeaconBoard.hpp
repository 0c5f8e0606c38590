// The beacons around, as a table that is brought up to date with every report.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "wayloom/linux/BluezScanner.hpp"
#include "wayloom/ranging/SignalEstimator.hpp"

namespace wayloom::tools {

enum class BoardOrder : std::uint8_t { identity, name, rssi, distance, rate, age };

// One beacon. Levels in dBm, distances in metres, ages in seconds, rates in reports a second over the last five whole
// seconds (or as many as there were).
struct BoardRow {
  platform::BeaconIdentity identity;
  std::string name;  // in the kit; empty: not in it
  std::string sender;
  int power = 0;
  double rssi = 0.0;
  double distance = 0.0;
  double rate = 0.0;
  double age = 0.0;
};

class BeaconBoard {
 public:
  using NameOf = std::function<std::string(const platform::BeaconIdentity&)>;

  // A beacon goes after this many seconds of silence. At most kMostBeacons are kept, those heard last.
  static constexpr double kMemory = 30.0;
  static constexpr std::size_t kMostBeacons = 2000;

  explicit BeaconBoard(NameOf nameOf) : nameOf_(std::move(nameOf)) {}

  void add(std::span<const linux_::BeaconReport> reports);
  std::vector<BoardRow> rows(platform::MonotonicTime now, BoardOrder order);

 private:
  static constexpr int kSeconds = 5;  // that a rate is taken over

  // Reports by the second, in a ring: those of a rate, and the one that is passing.
  struct Beacon {
    std::string name;
    linux_::BeaconReport last;
    ranging::SignalEstimator signal;
    platform::MonotonicTime first;
    std::array<int, kSeconds + 1> counts{};
    std::int64_t second = 0;

    void passTo(std::int64_t newSecond);
    double rate(platform::MonotonicTime now) const;
  };

  void forget(platform::MonotonicTime now);

  NameOf nameOf_;
  std::map<platform::BeaconIdentity, Beacon> beacons_;
};

}  // namespace wayloom::tools
