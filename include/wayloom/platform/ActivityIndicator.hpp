#pragma once

#include "wayloom/platform/Widget.hpp"

namespace wayloom::platform {

// Says that something is going on. Stopped, and therefore not to be seen, at first.
class ActivityIndicator : public Widget {
 public:
  virtual void start() = 0;
  virtual void stop() = 0;
};

}  // namespace wayloom::platform
