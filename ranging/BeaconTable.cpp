#include "ranging/BeaconTable.hpp"

#include <algorithm>
#include <utility>

namespace wayloom::ranging {
namespace {

using platform::BeaconIdentity;
using platform::MonotonicTime;

}  // namespace

BeaconTable::BeaconTable(std::size_t capacity) : capacity_(std::max<std::size_t>(capacity, 1)) {}

TrackedBeacon* BeaconTable::find(const BeaconIdentity& identity) {
  const auto found = index_.find(identity);
  return found == index_.end() ? nullptr : &slots_[found->second];
}

TrackedBeacon& BeaconTable::insert(const BeaconIdentity& identity) {
  const auto slot = takeSlot();
  slots_[slot] = {};
  slots_[slot].identity = identity;
  link(slot);
  if (spareNodes_.empty()) {
    index_.emplace(identity, slot);
  } else {
    auto node = std::move(spareNodes_.back());
    spareNodes_.pop_back();
    node.key() = identity;
    node.mapped() = slot;
    index_.insert(std::move(node));
  }
  return slots_[slot];
}

void BeaconTable::touch(TrackedBeacon& beacon, MonotonicTime now) {
  const auto slot = slotOf(beacon);
  unlink(slot);
  beacon.heardTwice = beacon.heardOnce;
  beacon.heardOnce = true;
  beacon.heard = now;
  link(slot);
}

void BeaconTable::eraseHeardBefore(MonotonicTime limit) {
  for (const auto* list : {&heardOnce_, &heardTwice_})
    while (list->oldest != kNone && slots_[list->oldest].heard < limit) erase(list->oldest);
}

std::uint32_t BeaconTable::takeSlot() {
  if (free_.empty() && slots_.size() < capacity_) {
    slots_.emplace_back();
    return static_cast<std::uint32_t>(slots_.size() - 1);
  }
  if (free_.empty()) erase(heardOnce_.oldest != kNone ? heardOnce_.oldest : heardTwice_.oldest);
  const auto slot = free_.back();
  free_.pop_back();
  return slot;
}

void BeaconTable::erase(std::uint32_t slot) {
  unlink(slot);
  spareNodes_.push_back(index_.extract(slots_[slot].identity));
  slots_[slot].inUse = false;
  free_.push_back(slot);
}

void BeaconTable::link(std::uint32_t slot) {
  auto& beacon = slots_[slot];
  auto& list = listOf(beacon);
  beacon.newer = kNone;
  beacon.older = list.newest;
  if (list.newest != kNone)
    slots_[list.newest].newer = slot;
  else
    list.oldest = slot;
  list.newest = slot;
}

void BeaconTable::unlink(std::uint32_t slot) {
  const auto& beacon = slots_[slot];
  auto& list = listOf(beacon);
  (beacon.newer == kNone ? list.newest : slots_[beacon.newer].older) = beacon.older;
  (beacon.older == kNone ? list.oldest : slots_[beacon.older].newer) = beacon.newer;
}

}  // namespace wayloom::ranging
