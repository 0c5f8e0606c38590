#include "ranging/LocationClients.hpp"

#include <algorithm>
#include <utility>

namespace wayloom::ranging {

void LocationClients::add(LocationClientPtr client) {
  const std::lock_guard lock(mutex_);
  auto changed = std::make_shared<Clients>(*clients_);
  changed->push_back(std::move(client));
  clients_ = std::move(changed);
}

void LocationClients::remove(const LocationClientPtr& client) {
  const std::lock_guard lock(mutex_);
  auto changed = std::make_shared<Clients>(*clients_);
  std::erase(*changed, client);
  clients_ = std::move(changed);
}

std::optional<FixRequest> LocationClients::fixRequest(std::optional<FixRequest> base) const {
  const std::lock_guard lock(mutex_);
  for (const auto& client : *clients_) {
    if (!client->updatesLocation) continue;
    if (!base) base = client->fixRequest;
    base->desiredAccuracy = std::min(base->desiredAccuracy, client->fixRequest.desiredAccuracy);
    base->distanceFilter = std::min(base->distanceFilter, client->fixRequest.distanceFilter);
  }
  return base;
}

bool LocationClients::tellFix(const platform::CLLocation& fix, platform::MonotonicTime now) {
  bool isTold = false;
  const auto walked = clients();
  for (const auto& client : *walked) {
    std::unique_lock lock(mutex_);
    const bool isWanted = client->updatesLocation;
    const double distance = client->fixRequest.distanceFilter;
    lock.unlock();
    if (!isWanted || client->delegate.get() == nullptr || !client->fixFilter.pass(fix, distance, now)) continue;
    isTold = true;
    client->delegate.tell([&](auto& delegate) {
      delegate.locationManagerDidUpdateLocations(client->manager, {&fix, 1});
    });
  }
  return isTold;
}

}  // namespace wayloom::ranging
