#pragma once

#include <functional>
#include <memory>
#include <string>

#include "wayloom/platform/Notification.hpp"

namespace wayloom::platform {

// Hands notifications to whoever observes their name. Thread-safe; callbacks run on the posting thread, in the order
// in which the observers were added, and never under a lock.
class NotificationCenter {
 public:
  using Callback = std::function<void(const Notification&)>;

  // Destruction ends the observation; no callback follows, and one under way on another thread is waited for.
  class Observation;

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  // With an object, only that object's notifications; with null, everybody's.
  [[nodiscard]] std::unique_ptr<Observation> addObserver(std::string name, const void* object, Callback callback);

  // Delivers before it returns.
  void post(const Notification& notification);

  // Whether anybody observes the name: lets a poster skip building what nobody reads.
  bool hasObservers(std::string_view name) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

class NotificationCenter::Observation {
 public:
  ~Observation();
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;

 private:
  friend class NotificationCenter;
  struct Entry;
  Observation(std::weak_ptr<State> state, std::shared_ptr<Entry> entry);
  std::weak_ptr<State> state_;
  std::shared_ptr<Entry> entry_;
};

}  // namespace wayloom::platform
