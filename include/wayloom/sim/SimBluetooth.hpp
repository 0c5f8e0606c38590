#pragma once

#include <memory>

#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/Tasks.hpp"

namespace wayloom::sim {

// A radio whose state is whatever the simulation says; on at first.
class SimBluetooth : public platform::CBCentralManager {
 public:
  explicit SimBluetooth(std::shared_ptr<platform::TaskScheduler> tasks) : tasks_(std::move(tasks)) {}

  platform::CBCentralManagerState state() const override { return state_; }
  void setStateCallback(StateCallback callback) override;

  void setState(platform::CBCentralManagerState state);

 private:
  void tell();

  std::shared_ptr<platform::TaskScheduler> tasks_;
  platform::CBCentralManagerState state_ = platform::CBCentralManagerState::poweredOn;
  StateCallback callback_;
  platform::TaskScope scope_;
};

}  // namespace wayloom::sim
