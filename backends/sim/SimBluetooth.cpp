#include "wayloom/sim/SimBluetooth.hpp"

#include <utility>

namespace wayloom::sim {

void SimBluetooth::setStateCallback(StateCallback callback) {
  callback_ = std::move(callback);
  if (callback_) tell();
}

void SimBluetooth::setState(platform::CBCentralManagerState state) {
  if (std::exchange(state_, state) != state && callback_) tell();
}

// The callback may replace itself, so a copy is called.
void SimBluetooth::tell() {
  tasks_->mainQueue().async(scope_.bind([this, state = state_] {
    if (const auto callback = callback_) callback(state);
  }));
}

}  // namespace wayloom::sim
