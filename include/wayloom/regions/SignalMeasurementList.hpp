#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "wayloom/regions/TWLSignalMeasurement.hpp"

namespace wayloom {

// The samples of one beacon, oldest first. Up to `kInline` of them, more than an averaging window of the usual length
// holds at one ranging a second, lie in the object itself; only a longer history allocates.
class SignalMeasurementList {
 public:
  static constexpr std::size_t kInline = 8;

  std::size_t size() const { return spilled_.empty() ? count_ : spilled_.size(); }
  bool empty() const { return size() == 0; }
  std::span<const TWLSignalMeasurement> all() const {
    return spilled_.empty() ? std::span(inline_.data(), count_) : std::span(spilled_);
  }

  void append(const TWLSignalMeasurement& sample) {
    if (spilled_.empty() && count_ < kInline) {
      inline_[count_++] = sample;
      return;
    }
    if (spilled_.empty()) spilled_.assign(inline_.begin(), inline_.end());
    spilled_.push_back(sample);
  }

  // Drops, keeping the order, every sample for which `keep` is false.
  template <class Keep>
  void retain(Keep keep) {
    const auto drop = [&](const TWLSignalMeasurement& sample) { return !keep(sample); };
    if (spilled_.empty()) {
      const auto end = inline_.begin() + static_cast<std::ptrdiff_t>(count_);
      count_ = static_cast<std::size_t>(std::remove_if(inline_.begin(), end, drop) - inline_.begin());
      return;
    }
    std::erase_if(spilled_, drop);
    if (spilled_.size() > kInline) return;
    std::copy(spilled_.begin(), spilled_.end(), inline_.begin());
    count_ = spilled_.size();
    spilled_.clear();
  }

 private:
  std::array<TWLSignalMeasurement, kInline> inline_{};
  std::size_t count_ = 0;                      // of inline_, while nothing has spilled
  std::vector<TWLSignalMeasurement> spilled_;  // all samples once they are more than inline_ holds
};

}  // namespace wayloom
