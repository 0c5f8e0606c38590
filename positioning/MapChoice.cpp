#include "positioning/MapChoice.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace wayloom {

void MapChoice::setMaps(std::size_t count) {
  instant_.assign(count, 0.0);
  averaged_.assign(count, 0.0);
  chosen_ = kNone;
}

void MapChoice::clear() {
  std::fill(averaged_.begin(), averaged_.end(), 0.0);
  chosen_ = kNone;
}

void MapChoice::favour(std::uint32_t map) {
  averaged_[map] = 1.0;
  chosen_ = map;
}

void MapChoice::begin() { std::fill(instant_.begin(), instant_.end(), 0.0); }

void MapChoice::add(std::uint32_t map, double gain) { instant_[map] += std::pow(10.0, kExponent * gain / 10.0); }

std::uint32_t MapChoice::choose(double seconds) {
  const double share = chosen_ == kNone ? 1.0 : 1.0 - std::exp(-seconds / kTime);
  std::uint32_t best = kNone;
  for (std::uint32_t i = 0; i < instant_.size(); ++i) {
    averaged_[i] += share * (instant_[i] - averaged_[i]);
    if (instant_[i] > 0.0 && (best == kNone || averaged_[i] > averaged_[best])) best = i;
  }
  // A map none of whose beacons is heard can't be held.
  const bool holds = chosen_ != kNone && instant_[chosen_] > 0.0 && averaged_[best] < kLead * averaged_[chosen_];
  if (!holds) chosen_ = best;
  return chosen_;
}

double MapChoice::probability() const {
  const double total = std::accumulate(averaged_.begin(), averaged_.end(), 0.0);
  return total > 0.0 ? averaged_[chosen_] / total : 1.0;
}

}  // namespace wayloom
