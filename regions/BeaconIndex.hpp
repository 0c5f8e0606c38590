#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/UUID.hpp"

#include "platform/FlatTable.hpp"

namespace wayloom {

// Where each identity's entries stand in a kit's array "ibeacons". Immutable once made.
//
// Every UUID, every major of a UUID and every exact identity that the kit names has a place, a small number, which
// keeps the last entry of that kind, if there is one.
class BeaconIndex {
 public:
  using Word = std::optional<std::uint16_t>;
  static constexpr std::uint32_t kNone = platform::FlatTable<std::uint64_t>::kNone;

  // The entries that speak of one identity, by their position in the array.
  struct Entries {
    std::uint32_t uuid = kNone;
    std::uint32_t major = kNone;
    std::uint32_t exact = kNone;
  };

  // Null: no entries. What isn't an object, has no readable UUID, or a number that no beacon can have, is left out.
  explicit BeaconIndex(const platform::Json::array_t* entries);

  // The most specific place that the identity has, or kNone. Absent numbers equal no entry's.
  std::uint32_t placeOf(const platform::UUID& uuid, Word major, Word minor) const;
  Entries entriesOf(const platform::UUID& uuid, Word major, Word minor) const;

  // Whether an entry names this UUID and, when a major is given, could match a beacon with these numbers.
  bool knows(const platform::UUID& uuid, Word major, Word minor) const;

  std::size_t placeCount() const { return entryOf_.size(); }

 private:
  class Builder;

  std::uint32_t entryAt(std::uint32_t place) const { return place == kNone ? kNone : entryOf_[place]; }

  platform::FlatTable<platform::UUID> uuids_;   // to places
  platform::FlatTable<std::uint64_t> numbers_;  // place of the UUID with major, or with major and minor, to places
  std::vector<std::uint32_t> entryOf_;          // by place
};

}  // namespace wayloom
