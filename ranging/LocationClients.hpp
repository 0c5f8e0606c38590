// The location managers of an application: who is told what is heard, and which fixes they want between them.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "wayloom/platform/CLLocationManager.hpp"
#include "wayloom/platform/DelegateSlot.hpp"
#include "wayloom/ranging/FixRequest.hpp"

#include "ranging/FixFilter.hpp"

namespace wayloom::ranging {

// One of them.
struct LocationClient {
  platform::CLLocationManager* manager = nullptr;  // lives as long as the delegate is set
  platform::DelegateSlot<platform::CLLocationManagerDelegate> delegate{};
  FixFilter fixFilter{};  // main thread

  // Under the lock of LocationClients.
  FixRequest fixRequest{};
  bool updatesLocation = false;
};

using LocationClientPtr = std::shared_ptr<LocationClient>;

class LocationClients {
 public:
  // Any thread.
  void add(LocationClientPtr client);
  void remove(const LocationClientPtr& client);

  // Any thread. Changes a client's request, or whether it updates locations.
  template <class Change>
  void changeFixRequest(LocationClient& client, Change change) {
    const std::lock_guard lock(mutex_);
    change(client);
  }

  // Any thread. What the clients that update locations want between them, and `base`, if there is any.
  std::optional<FixRequest> fixRequest(std::optional<FixRequest> base) const;

  // Main thread. Calls `call(delegate, manager)` for each client that has a delegate, under no lock: managers may come
  // and go meanwhile.
  template <class Call>
  void tell(Call call) {
    const auto walked = clients();
    for (const auto& client : *walked) client->delegate.tell([&](auto& delegate) { call(delegate, client->manager); });
  }

  // Main thread. Tells a fix to those who update locations and whose filter it passes; whether there were any.
  bool tellFix(const platform::CLLocation& fix, platform::MonotonicTime now);

 private:
  using Clients = std::vector<LocationClientPtr>;

  // To be held during a walk: the list that it walks through may be replaced meanwhile.
  std::shared_ptr<const Clients> clients() const {
    const std::lock_guard lock(mutex_);
    return clients_;
  }

  mutable std::mutex mutex_;
  std::shared_ptr<const Clients> clients_ = std::make_shared<Clients>();
};

}  // namespace wayloom::ranging
