// The beacons that a ranger remembers: found by identity in constant time, evicted in constant time, bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/ranging/SignalEstimator.hpp"

#include "platform/SeededHash.hpp"

namespace wayloom::ranging {

struct TrackedBeacon {
  platform::BeaconIdentity identity;
  SignalEstimator signal;
  platform::MonotonicTime heard;
  int power = 0;            // dBm at one metre, as the last frame claimed
  int rssiSum = 0;          // dBm, of the frames since the last tick
  int frames = 0;           // since the last tick
  bool heardOnce = false;   // since it was remembered
  bool heardTwice = false;  // or more often
  bool inUse = true;
  std::uint32_t newer = 0;  // neighbours in its list
  std::uint32_t older = 0;
};

// Two lists, newest first: beacons heard once, and those heard again. Slots are reused, never returned, so a table
// that has once held N beacons allocates nothing more for N.
class BeaconTable {
 public:
  explicit BeaconTable(std::size_t capacity);

  TrackedBeacon* find(const platform::BeaconIdentity& identity);

  // The identity must not be in the table. Evicts when full.
  TrackedBeacon& insert(const platform::BeaconIdentity& identity);

  // Marks a beacon as heard at `now` and as the newest of its list.
  void touch(TrackedBeacon& beacon, platform::MonotonicTime now);

  void eraseHeardBefore(platform::MonotonicTime limit);

  template <class Predicate>
  void eraseIf(Predicate predicate) {
    for (std::uint32_t slot = 0; slot < slots_.size(); ++slot)
      if (slots_[slot].inUse && predicate(slots_[slot])) erase(slot);
  }

  // In an order that depends on nothing but the calls made so far.
  template <class Visit>
  void forEach(Visit visit) {
    for (auto& beacon : slots_)
      if (beacon.inUse) visit(beacon);
  }

  std::size_t size() const { return index_.size(); }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFU;
  struct List {
    std::uint32_t newest = kNone;
    std::uint32_t oldest = kNone;
  };

  std::uint32_t slotOf(const TrackedBeacon& beacon) const {
    return static_cast<std::uint32_t>(&beacon - slots_.data());
  }
  List& listOf(const TrackedBeacon& beacon) { return beacon.heardTwice ? heardTwice_ : heardOnce_; }
  void link(std::uint32_t slot);
  void unlink(std::uint32_t slot);
  void erase(std::uint32_t slot);
  std::uint32_t takeSlot();

  std::size_t capacity_;
  std::vector<TrackedBeacon> slots_;
  std::vector<std::uint32_t> free_;
  using Index = std::unordered_map<platform::BeaconIdentity, std::uint32_t, platform::SeededHash>;
  Index index_;
  std::vector<Index::node_type> spareNodes_;
  List heardOnce_;
  List heardTwice_;
};

}  // namespace wayloom::ranging
