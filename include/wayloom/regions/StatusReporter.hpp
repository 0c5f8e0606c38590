#pragma once

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom {

// The beacon status reporter as the region manager sees it. It is made and dropped on the queue of a kit download, and
// fed on the main thread.
class StatusReporter {
 public:
  virtual ~StatusReporter() = default;

  virtual void rangedBeacon(const platform::CLBeacon& beacon) = 0;  // every beacon of every ranging
};

}  // namespace wayloom
