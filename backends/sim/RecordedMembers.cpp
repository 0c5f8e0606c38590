#include "backends/sim/RecordedMembers.hpp"

#include <algorithm>
#include <cmath>

namespace wayloom::sim {
namespace {

constexpr std::size_t kCount = static_cast<std::size_t>(Member::count);
constexpr std::array<std::string_view, kCount> kNames = {
    "t",      "type",    "rssi",       "uuid",       "major",     "minor",    "power",     "address",
    "region", "beacons", "identifier", "accuracy",   "proximity", "latitude", "longitude", "timestamp",
    "state",  "status",  "up",         "event_type", "map_id",    "x",        "y",         "version"};

// A table in which each name has a place of its own, by its length and two of its characters.
constexpr std::size_t kPlaces = 256;
constexpr std::size_t placeOf(std::string_view name) {
  const std::size_t first = static_cast<unsigned char>(name.front());
  const std::size_t third = static_cast<unsigned char>(name[name.size() / 2]);
  return (name.size() * 37U + first * 5U + third * 11U) % kPlaces;
}
constexpr auto makeTable() {
  std::array<std::uint8_t, kPlaces> table{};
  for (auto& place : table) place = kCount;
  for (std::size_t i = 0; i < kCount; ++i) table[placeOf(kNames[i])] = static_cast<std::uint8_t>(i);
  return table;
}
constexpr auto kTable = makeTable();
constexpr bool isInjective() {
  for (std::size_t i = 0; i < kCount; ++i)
    if (kTable[placeOf(kNames[i])] != i) return false;
  return true;
}
static_assert(isInjective());

bool fail(Member member, std::string_view what, std::string& reason) {
  reason.assign(1, '"').append(nameOf(member)).append("\" ").append(what);
  return false;
}

}  // namespace

std::string_view nameOf(Member member) { return kNames[static_cast<std::size_t>(member)]; }

void RecordedMembers::collect(const simdjson::dom::object& object) {
  present_ = 0;
  for (const auto field : object) {
    if (field.key.empty()) continue;
    const auto index = kTable[placeOf(field.key)];
    if (index == kCount || kNames[index] != field.key) continue;
    values_[index] = field.value;
    present_ |= 1U << index;
  }
}

template <class Value>
bool RecordedMembers::read(Member member, Value& target, const char* kind, std::string& reason) const {
  if (!isPresent(member)) return fail(member, "is missing", reason);
  if (value(member).get(target) == simdjson::SUCCESS) return true;
  return fail(member, std::string("must be ") + kind, reason);
}

bool RecordedMembers::number(Member member, double& target, std::string& reason) const {
  return read(member, target, "a number", reason);
}

bool RecordedMembers::integer(Member member, int lowest, int highest, int& target, std::string& reason) const {
  double number = 0.0;
  const bool isNumber = isPresent(member) && value(member).get(number) == simdjson::SUCCESS;
  if (isNumber && number >= lowest && number <= highest && std::trunc(number) == number) {
    target = static_cast<int>(number);
    return true;
  }
  if (!isPresent(member)) return fail(member, "is missing", reason);
  return fail(member, "must be an integer from " + std::to_string(lowest) + " to " + std::to_string(highest), reason);
}

bool RecordedMembers::boundedInteger(Member member, int lowest, int highest, int& target, std::string& reason) const {
  double number = 0.0;
  if (!read(member, number, "a number", reason)) return false;
  target = static_cast<int>(std::lround(std::clamp<double>(number, lowest, highest)));
  return true;
}

bool RecordedMembers::flag(Member member, bool& target, std::string& reason) const {
  return read(member, target, "true or false", reason);
}

bool RecordedMembers::text(Member member, std::string_view& target, std::string& reason) const {
  return read(member, target, "a text", reason);
}

bool RecordedMembers::object(Member member, simdjson::dom::object& target, std::string& reason) const {
  return read(member, target, "an object", reason);
}

bool RecordedMembers::array(Member member, simdjson::dom::array& target, std::string& reason) const {
  return read(member, target, "an array", reason);
}

}  // namespace wayloom::sim
