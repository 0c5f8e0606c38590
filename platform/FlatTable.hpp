#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/SeededHash.hpp"

namespace wayloom::platform {

// A hash table from keys to small numbers, for many look-ups after one filling: open addressing in one array that is at
// most half full, so that a look-up rarely leaves the first cache line. Keys can't be removed one by one.
template <class Key>
class FlatTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;  // no value; can't be stored

  explicit FlatTable(std::size_t expected = 0) { setSlots(capacityFor(expected)); }

  // Empties the table. Unless they are far too much or too little, it keeps its slots, so a table that is filled again
  // and again with about as many keys allocates nothing.
  void reset(std::size_t expected) {
    const auto needed = capacityFor(expected);
    if (slots_.size() < needed || slots_.size() / kMostSpare > needed)
      setSlots(needed);
    else
      for (auto& slot : slots_) slot.value = kNone;
    size_ = 0;
  }

  std::uint32_t find(const Key& key) const { return slots_[slotOf(key)].value; }

  // The value under the key, after storing `value` if there was none.
  std::uint32_t findOrInsert(const Key& key, std::uint32_t value) {
    auto* slot = &slots_[slotOf(key)];
    if (slot->value != kNone) return slot->value;
    if (2 * (size_ + 1) > slots_.size()) {
      grow();
      slot = &slots_[slotOf(key)];
    }
    *slot = {key, value};
    ++size_;
    return value;
  }

 private:
  static constexpr std::size_t kMostSpare = 16;  // a crowd that went by must not slow down every later reset

  struct Slot {
    Key key{};
    std::uint32_t value = kNone;
  };

  void setSlots(std::size_t count) {
    slots_ = std::vector<Slot>(count);
    shift_ = 32 - std::countr_zero(count);
  }

  static std::size_t capacityFor(std::size_t count) { return std::bit_ceil(2 * count + 2); }

  // The key's slot, or the empty one where it belongs.
  std::size_t slotOf(const Key& key) const {
    const std::size_t mask = slots_.size() - 1;
    auto index = static_cast<std::size_t>(hash_(key) >> shift_);
    while (slots_[index].value != kNone && !(slots_[index].key == key)) index = (index + 1) & mask;
    return index;
  }

  void grow() {
    const auto old = std::move(slots_);
    setSlots(2 * old.size());
    for (const auto& slot : old)
      if (slot.value != kNone) slots_[slotOf(slot.key)] = slot;
  }

  SeededHash hash_;
  std::vector<Slot> slots_;
  int shift_ = 0;  // leaves as many of a hash's uppermost bits as number the slots
  std::size_t size_ = 0;
};

}  // namespace wayloom::platform
