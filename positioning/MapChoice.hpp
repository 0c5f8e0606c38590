#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wayloom {

// On which of several maps is the device? Where beacons are received strongest in sum, over some seconds.
class MapChoice {
 public:
  static constexpr double kExponent = 0.8;  // of the received power: below 1, several beacons outweigh one
  static constexpr double kTime = 15.0;     // seconds over which is averaged
  static constexpr double kLead = 1.1;      // so many times as strong another map must be to take over

  void setMaps(std::size_t count);
  void clear();
  // Holds that the device has been on this map for long.
  void favour(std::uint32_t map);

  // One instant: begin, each heard beacon, choose. `gain` in dB over the beacon's power at one metre.
  void begin();
  void add(std::uint32_t map, double gain);
  std::uint32_t choose(double seconds);

  // Of the map that was chosen last.
  double probability() const;

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  std::vector<double> instant_;
  std::vector<double> averaged_;
  std::uint32_t chosen_ = kNone;
};

}  // namespace wayloom
