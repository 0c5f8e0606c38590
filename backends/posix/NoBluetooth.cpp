#include "wayloom/posix/NoBluetooth.hpp"

#include <utility>

namespace wayloom::posix {

void NoBluetooth::setStateCallback(StateCallback callback) {
  callback_ = std::move(callback);
  if (!callback_) return;
  // Taken over by value: the callback may set another one.
  tasks_->mainQueue().async(scope_.bind([this] {
    if (const auto current = callback_) current(state());
  }));
}

}  // namespace wayloom::posix
