#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace wayloom {

// Which beacon is the nearest, from probabilities that come once a second: averaged, and changed only when another
// clearly leads.
class BeaconChoice {
 public:
  static constexpr double kTime = 2.0;  // seconds over which is averaged
  static constexpr double kLead = 0.1;

  BeaconChoice() { shares_.reserve(256); }

  void clear() { shares_.clear(); }
  // Not for an empty list; the numbers differ from one another.
  void update(std::span<const std::uint32_t> numbers, std::span<const double> probabilities, double seconds);

  std::uint32_t beacon() const { return chosen_.number; }
  double probability() const { return chosen_.probability; }

 private:
  struct Share {
    std::uint32_t number;
    double probability;
  };

  void add(std::uint32_t number, double probability);

  std::vector<Share> shares_;
  Share chosen_{};
};

}  // namespace wayloom
