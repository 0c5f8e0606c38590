#include "backends/sim/RecordedMembers.hpp"

#include <algorithm>
#include <cmath>

namespace wayloom::sim {
namespace {

constexpr std::size_t kCount = static_cast<std::size_t>(Member::count);
// The most frequent ones first: they are searched in this order.
constexpr std::array<std::string_view, kCount> kNames = {
    "t",      "type",    "rssi",       "uuid",       "major",     "minor",    "power",     "address",
    "region", "beacons", "identifier", "accuracy",   "proximity", "latitude", "longitude", "timestamp",
    "state",  "status",  "up",         "event_type", "map_id",    "x",        "y",         "version"};

bool fail(Member member, std::string_view what, std::string& reason) {
  reason.assign(1, '"').append(nameOf(member)).append("\" ").append(what);
  return false;
}

}  // namespace

std::string_view nameOf(Member member) { return kNames[static_cast<std::size_t>(member)]; }

void RecordedMembers::collect(const simdjson::dom::object& object) {
  present_ = 0;
  for (const auto field : object) {
    const auto found = std::find(kNames.begin(), kNames.end(), field.key);
    if (found == kNames.end()) continue;
    const auto index = static_cast<std::size_t>(found - kNames.begin());
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
