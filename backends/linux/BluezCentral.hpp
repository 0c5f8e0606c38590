#pragma once

#include <memory>
#include <mutex>

#include "wayloom/linux/RadioStatus.hpp"
#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::linux_ {

platform::CBCentralManagerState centralState(RadioCondition condition);

// The power state of the radio that a scanner uses.
class BluezCentral : public platform::CBCentralManager {
 public:
  explicit BluezCentral(std::shared_ptr<platform::TaskScheduler> tasks) : tasks_(std::move(tasks)) {}

  platform::CBCentralManagerState state() const override;
  void setStateCallback(StateCallback callback) override;

  void setState(platform::CBCentralManagerState state);  // main thread

 private:
  void tellSoon();

  std::shared_ptr<platform::TaskScheduler> tasks_;
  mutable std::mutex mutex_;
  platform::CBCentralManagerState state_ = platform::CBCentralManagerState::unknown;  // under the mutex
  StateCallback callback_;                                                            // main thread
  platform::TaskScope scope_;
};

}  // namespace wayloom::linux_
