#pragma once

#include <memory>

#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::posix {

// The Bluetooth of a host without a radio: unsupported, for ever.
class NoBluetooth : public platform::CBCentralManager {
 public:
  explicit NoBluetooth(std::shared_ptr<platform::TaskScheduler> tasks) : tasks_(std::move(tasks)) {}

  platform::CBCentralManagerState state() const override { return platform::CBCentralManagerState::unsupported; }
  void setStateCallback(StateCallback callback) override;

 private:
  std::shared_ptr<platform::TaskScheduler> tasks_;
  StateCallback callback_;
  platform::TaskScope scope_;
};

}  // namespace wayloom::posix
