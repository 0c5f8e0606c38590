#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "wayloom/platform/UUID.hpp"

namespace wayloom {

// Hashes under a seed of its own, so that nobody who writes a kit can choose keys that fall together: the 128-bit
// product of two seeded words, folded to 64 bits.
class SeededHash {
 public:
  SeededHash() {
    std::random_device device;
    first_ = word(device);
    second_ = word(device) | 1U;
  }

  std::uint64_t operator()(std::uint64_t key) const { return fold(key ^ first_, second_); }
  std::uint64_t operator()(const platform::UUID& uuid) const {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, uuid.bytes().data(), sizeof high);
    std::memcpy(&low, uuid.bytes().data() + sizeof high, sizeof low);
    return fold(high ^ first_, low ^ second_);
  }

 private:
  __extension__ using Product = unsigned __int128;

  static std::uint64_t word(std::random_device& device) {
    return (static_cast<std::uint64_t>(device()) << 32U) | device();
  }
  static std::uint64_t fold(std::uint64_t left, std::uint64_t right) {
    const Product product = static_cast<Product>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
  }

  std::uint64_t first_;
  std::uint64_t second_;
};

// A hash table from keys to small numbers, for many look-ups after one filling: open addressing in one array that is at
// most half full, so that a look-up rarely leaves the first cache line. Keys can't be removed.
template <class Key>
class FlatTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;  // no value; can't be stored

  explicit FlatTable(std::size_t expected) : slots_(capacityFor(expected)) {}

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
  struct Slot {
    Key key{};
    std::uint32_t value = kNone;
  };

  static std::size_t capacityFor(std::size_t count) { return std::bit_ceil(2 * count + 2); }

  // The key's slot, or the empty one where it belongs.
  std::size_t slotOf(const Key& key) const {
    const std::size_t mask = slots_.size() - 1;
    auto index = static_cast<std::size_t>(hash_(key)) & mask;
    while (slots_[index].value != kNone && !(slots_[index].key == key)) index = (index + 1) & mask;
    return index;
  }

  void grow() {
    std::vector<Slot> old(capacityFor(slots_.size()));
    old.swap(slots_);
    for (auto& slot : old)
      if (slot.value != kNone) slots_[slotOf(slot.key)] = std::move(slot);
  }

  SeededHash hash_;
  std::vector<Slot> slots_;
  std::size_t size_ = 0;
};

}  // namespace wayloom
