// The members of recorded lines by number instead of by name, and their strict reading.
#pragma once

#include <array>
#include <cstdint>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace wayloom::sim {

enum class Member : std::uint8_t {
  t,
  type,
  rssi,
  uuid,
  major,
  minor,
  power,
  address,
  region,
  beacons,
  identifier,
  accuracy,
  proximity,
  latitude,
  longitude,
  timestamp,
  state,
  status,
  up,
  eventType,
  mapId,
  x,
  y,
  version,
  count
};

std::string_view nameOf(Member member);

// What one JSON object says under the known names; of members with one name the last counts.
class RecordedMembers {
 public:
  void collect(const simdjson::dom::object& object);

  // Whether it is there and not null.
  bool has(Member member) const { return isPresent(member) && !value(member).is_null(); }

  // These return false, with the reason, when the member is missing or of another type.
  bool number(Member member, double& target, std::string& reason) const;
  // A whole number within the limits.
  bool integer(Member member, int lowest, int highest, int& target, std::string& reason) const;
  // Any number, rounded, and brought within the limits.
  bool boundedInteger(Member member, int lowest, int highest, int& target, std::string& reason) const;
  bool flag(Member member, bool& target, std::string& reason) const;
  bool text(Member member, std::string_view& target, std::string& reason) const;
  bool object(Member member, simdjson::dom::object& target, std::string& reason) const;
  bool array(Member member, simdjson::dom::array& target, std::string& reason) const;

 private:
  bool isPresent(Member member) const { return (present_ >> static_cast<unsigned>(member) & 1U) != 0; }
  simdjson::dom::element value(Member member) const { return values_[static_cast<std::size_t>(member)]; }
  template <class Value>
  bool read(Member member, Value& target, const char* kind, std::string& reason) const;

  std::uint32_t present_ = 0;
  std::array<simdjson::dom::element, static_cast<std::size_t>(Member::count)> values_;
};

static_assert(static_cast<unsigned>(Member::count) <= 32);

}  // namespace wayloom::sim
