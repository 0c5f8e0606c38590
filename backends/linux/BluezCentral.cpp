#include "backends/linux/BluezCentral.hpp"

#include <utility>

namespace wayloom::linux_ {

using platform::CBCentralManagerState;

CBCentralManagerState centralState(RadioCondition condition) {
  switch (condition) {
    case RadioCondition::starting:
      return CBCentralManagerState::unknown;
    case RadioCondition::noBus:
    case RadioCondition::noAdapter:
      return CBCentralManagerState::unsupported;
    case RadioCondition::noDaemon:
      return CBCentralManagerState::resetting;
    case RadioCondition::unpowered:
      return CBCentralManagerState::poweredOff;
    case RadioCondition::refused:
      return CBCentralManagerState::unauthorized;
    case RadioCondition::resting:
    case RadioCondition::scanning:
    case RadioCondition::silent:
    case RadioCondition::failing:
      return CBCentralManagerState::poweredOn;
  }
  return CBCentralManagerState::unknown;
}

CBCentralManagerState BluezCentral::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void BluezCentral::setStateCallback(StateCallback callback) {
  callback_ = std::move(callback);
  tellSoon();
}

void BluezCentral::setState(CBCentralManagerState state) {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(state_, state) == state) return;
  }
  tellSoon();
}

// A copy is called, because the callback may set another.
void BluezCentral::tellSoon() {
  if (!callback_) return;
  tasks_->mainQueue().async(scope_.bind([this, now = state()] {
    if (const auto callback = callback_) callback(now);
  }));
}

}  // namespace wayloom::linux_
