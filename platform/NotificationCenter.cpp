#include "wayloom/platform/NotificationCenter.hpp"

#include <algorithm>
#include <map>
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

// The lists are replaced, never changed, so that a post goes through the one it found without holding the lock.
struct NotificationCenter::State {
  using Entries = std::vector<std::shared_ptr<Observation::Entry>>;

  std::shared_ptr<const Entries> entriesOf(std::string_view name) const {
    const std::lock_guard lock(mutex);
    const auto found = observers.find(name);
    return found == observers.end() ? nullptr : found->second;
  }

  void add(const std::shared_ptr<Observation::Entry>& entry) {
    const std::lock_guard lock(mutex);
    auto& current = observers[entry->name];
    auto changed = current ? std::make_shared<Entries>(*current) : std::make_shared<Entries>();
    changed->push_back(entry);
    current = std::move(changed);
  }

  void remove(const std::shared_ptr<Observation::Entry>& entry) {
    const std::lock_guard lock(mutex);
    const auto found = observers.find(entry->name);
    auto changed = std::make_shared<Entries>(*found->second);
    std::erase(*changed, entry);
    if (changed->empty())
      observers.erase(found);
    else
      found->second = std::move(changed);
  }

  mutable std::mutex mutex;
  std::map<std::string, std::shared_ptr<const Entries>, std::less<>> observers;
};

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}

NotificationCenter::~NotificationCenter() = default;

std::unique_ptr<NotificationCenter::Observation> NotificationCenter::addObserver(std::string name, const void* object,
                                                                                 Callback callback) {
  auto entry = std::make_shared<Observation::Entry>(std::move(name), object, std::move(callback));
  state_->add(entry);
  return std::unique_ptr<Observation>(new Observation(state_, std::move(entry)));
}

void NotificationCenter::post(const Notification& notification) {
  const auto entries = state_->entriesOf(notification.name);
  if (!entries) return;
  for (const auto& entry : *entries) {
    if (entry->object != nullptr && entry->object != notification.object) continue;
    if (const TaskScope::Guard guard(entry->scope.weak()); guard) entry->callback(notification);
  }
}

bool NotificationCenter::hasObservers(std::string_view name) const { return state_->entriesOf(name) != nullptr; }

NotificationCenter::Observation::Observation(std::weak_ptr<State> state, std::shared_ptr<Entry> entry)
    : state_(std::move(state)), entry_(std::move(entry)) {}

NotificationCenter::Observation::~Observation() {
  if (const auto state = state_.lock()) state->remove(entry_);
  entry_->scope.close();
}

}  // namespace wayloom::platform
