#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"

namespace wayloom {

// Numbers beacon identities: a hash table with open addressing that keeps its memory when it is emptied, unless that is
// far too much, so that a ranging allocates nothing once the table has grown to the venue's size.
class TrackedIndex {
 public:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  // Empties the table and makes room for `count` identities; no more may be put in before the next reset.
  void reset(std::size_t count) {
    const std::size_t needed = std::bit_ceil(2 * count + 2);  // two at least: placeOf() needs a bit to shift to
    if (slots_.size() < needed || slots_.size() / kMostSpare > needed) slots_ = std::vector<Slot>(needed);
    for (auto& slot : slots_) slot.number = kNone;
    shift_ = 64 - std::countr_zero(slots_.size());
  }

  // The identity's number, or kNone.
  std::uint32_t find(const platform::BeaconIdentity& identity) const {
    return slots_.empty() ? kNone : slots_[placeOf(identity)].number;
  }

  // The number that the identity has already, or else the one that it gets now.
  std::uint32_t findOrPut(const platform::BeaconIdentity& identity, std::uint32_t number) {
    Slot& slot = slots_[placeOf(identity)];
    if (slot.number == kNone) slot = {identity, number};
    return slot.number;
  }

 private:
  static constexpr std::size_t kMostSpare = 16;  // a crowd that went by must not slow down every later ranging

  struct Slot {
    platform::BeaconIdentity identity;
    std::uint32_t number = kNone;
  };

  // Where the identity is or would be; at least half of the slots are free, so the search ends.
  std::size_t placeOf(const platform::BeaconIdentity& identity) const {
    const auto mixed = static_cast<std::uint64_t>(identity.hash()) * 0x9E3779B97F4A7C15ULL;
    std::size_t place = static_cast<std::size_t>(mixed >> shift_) & (slots_.size() - 1);
    while (slots_[place].number != kNone && slots_[place].identity != identity)
      place = (place + 1) & (slots_.size() - 1);
    return place;
  }

  std::vector<Slot> slots_;
  int shift_ = 63;
};

}  // namespace wayloom
