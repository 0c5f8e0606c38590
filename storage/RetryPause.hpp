#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include "wayloom/platform/Time.hpp"

namespace wayloom::storage {

// The time to wait before something is tried again that has failed: 1 s at first, then 2, 4, up to 30. It starts small
// again when nothing has failed for as long as the longest pause.
class RetryPause {
 public:
  bool isOver(platform::MonotonicTime now) const { return !until_ || now >= *until_; }
  void lengthen(platform::MonotonicTime now) {
    const bool isNew = !until_ || now - *until_ > kLongest;
    pause_ = isNew ? kFirst : std::min(pause_ * 2, kLongest);
    until_ = now + pause_;
  }
  void end() { until_.reset(); }

 private:
  static constexpr platform::Duration kFirst = std::chrono::seconds(1);
  static constexpr platform::Duration kLongest = std::chrono::seconds(30);

  platform::Duration pause_ = kFirst;
  std::optional<platform::MonotonicTime> until_;
};

}  // namespace wayloom::storage
