#include "wayloom/platform/NotificationCenter.hpp"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"

namespace wayloom::platform {

struct NotificationCenter::Observation::Entry {
  std::string name;
  const void* object;
  Callback callback;
  TaskScope scope;
};

struct NotificationCenter::State {
  using Entry = Observation::Entry;

  mutable std::mutex mutex;
  std::vector<std::shared_ptr<Entry>> entries;  // in the order of adding
};

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}
NotificationCenter::~NotificationCenter() = default;

std::unique_ptr<NotificationCenter::Observation> NotificationCenter::addObserver(std::string name, const void* object,
                                                                                 Callback callback) {
  auto entry = std::make_shared<Observation::Entry>();
  entry->name = std::move(name);
  entry->object = object;
  entry->callback = std::move(callback);
  const std::lock_guard lock(state_->mutex);
  state_->entries.push_back(entry);
  return std::unique_ptr<Observation>(new Observation(state_, std::move(entry)));
}

void NotificationCenter::post(const Notification& notification) {
  std::vector<std::shared_ptr<Observation::Entry>> receivers;
  {
    const std::lock_guard lock(state_->mutex);
    for (const auto& entry : state_->entries)
      if (entry->name == notification.name && (entry->object == nullptr || entry->object == notification.object))
        receivers.push_back(entry);
  }
  for (const auto& entry : receivers)
    if (const TaskScope::Guard guard{entry->scope.weak()}) entry->callback(notification);
}

bool NotificationCenter::hasObservers(std::string_view name) const {
  const std::lock_guard lock(state_->mutex);
  return std::any_of(state_->entries.begin(), state_->entries.end(),
                     [&](const auto& entry) { return entry->name == name; });
}

NotificationCenter::Observation::Observation(std::weak_ptr<State> state, std::shared_ptr<Entry> entry)
    : state_(std::move(state)), entry_(std::move(entry)) {}

NotificationCenter::Observation::~Observation() {
  if (const auto state = state_.lock()) {
    const std::lock_guard lock(state->mutex);
    std::erase(state->entries, entry_);
  }
  entry_->scope.close();
}

}  // namespace wayloom::platform
