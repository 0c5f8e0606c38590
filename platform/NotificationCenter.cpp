#include "wayloom/platform/NotificationCenter.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "wayloom/platform/TaskScope.hpp"

namespace wayloom::platform {

struct NotificationCenter::Observation::Entry {
  std::string name;
  const void* object;
  Callback callback;
  std::uint64_t sequence;
  TaskScope scope;
};

struct NotificationCenter::State {
  using EntryPtr = std::shared_ptr<Observation::Entry>;
  using Entries = std::map<std::uint64_t, EntryPtr>;  // in the order of adding

  // The first observer of the name after one and up to another; null when there is none. A post goes from one to the
  // next, so that it holds no lock while it calls, and nobody copies lists.
  EntryPtr next(std::string_view name, std::uint64_t after, std::uint64_t last) const {
    const std::lock_guard lock(mutex);
    const auto found = observers.find(name);
    if (found == observers.end()) return nullptr;
    const auto entry = found->second.upper_bound(after);
    return entry != found->second.end() && entry->first <= last ? entry->second : nullptr;
  }

  void add(const EntryPtr& entry) {
    const std::lock_guard lock(mutex);
    entry->sequence = added + 1;
    observers[entry->name].emplace(entry->sequence, entry);
    ++added;
  }

  void remove(const Observation::Entry& entry) noexcept {
    const std::lock_guard lock(mutex);
    const auto found = observers.find(entry.name);
    found->second.erase(entry.sequence);
    if (found->second.empty()) observers.erase(found);
  }

  mutable std::mutex mutex;
  std::map<std::string, Entries, std::less<>> observers;
  std::atomic<std::uint64_t> added = 0;
};

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}

NotificationCenter::~NotificationCenter() = default;

std::unique_ptr<NotificationCenter::Observation> NotificationCenter::addObserver(std::string name, const void* object,
                                                                                 Callback callback) {
  auto entry = std::make_shared<Observation::Entry>(std::move(name), object, std::move(callback));
  std::unique_ptr<Observation> observation(new Observation(state_, entry));
  state_->add(entry);
  return observation;
}

void NotificationCenter::post(const Notification& notification) {
  const auto state = state_;  // a callback may destroy the centre
  const std::uint64_t last = state->added;
  for (auto entry = state->next(notification.name, 0, last); entry;
       entry = state->next(notification.name, entry->sequence, last)) {
    if (entry->object != nullptr && entry->object != notification.object) continue;
    if (const TaskScope::Guard guard(entry->scope.weak()); guard) entry->callback(notification);
  }
}

bool NotificationCenter::hasObservers(std::string_view name) const {
  const std::lock_guard lock(state_->mutex);
  return state_->observers.contains(name);
}

NotificationCenter::Observation::Observation(std::weak_ptr<State> state, std::shared_ptr<Entry> entry)
    : state_(std::move(state)), entry_(std::move(entry)) {}

NotificationCenter::Observation::~Observation() {
  if (const auto state = state_.lock()) state->remove(*entry_);
  entry_->scope.close();
}

}  // namespace wayloom::platform
