#pragma once

#include <optional>

#include "wayloom/platform/CLLocation.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::ranging {

// Which fixes one location manager is told. Belongs to one queue.
class FixFilter {
 public:
  // Fixes are told at least this often, however near they are to one another, so that who stands still does not grow
  // old.
  static constexpr platform::Duration kLongestSilence = std::chrono::minutes(1);
  // A receiver's first fix is often a remembered one. One that has come so much faster than the one told last, seconds
  // from its timestamp to now, is told even at the same place: whoever refuses old fixes has had none yet.
  static constexpr double kFresher = 2.0;

  // Whether the fix is to be told; it then counts as told. Fixes less than `distance` metres from that one are not.
  bool pass(const platform::CLLocation& fix, double distance, platform::MonotonicTime now);

 private:
  std::optional<platform::CLLocation> told_;
  platform::MonotonicTime toldAt_;
};

// Whether a receiver can mean it: coordinates in range, an accuracy that is a positive number.
bool isPlausible(const platform::CLLocation& fix);

// Great-circle distance in metres.
double metresBetween(const platform::CLLocationCoordinate2D& a, const platform::CLLocationCoordinate2D& b);

}  // namespace wayloom::ranging
