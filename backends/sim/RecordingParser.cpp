#include "backends/sim/RecordingParser.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

#include "wayloom/platform/JsonParser.hpp"

namespace wayloom::sim {
namespace {

using platform::CLBeacon;
using simdjson::dom::object;

constexpr std::size_t kGreatestDepth = 1U << 20U;
// The years 1824 to 2115: any two of these times are less than 2^63 ns apart.
constexpr double kLatestTime = 4.6e9;
constexpr int kVersion = 1;
constexpr int kStrongest = std::numeric_limits<int>::max();  // either way, so that its negation is an int as well

constexpr std::array<std::pair<std::string_view, RecordedType>, 13> kTypes = {{
    {"ranging", RecordedType::ranging},
    {"advertisement", RecordedType::advertisement},
    {"location", RecordedType::location},
    {"truth", RecordedType::truth},
    {"enter", RecordedType::enter},
    {"exit", RecordedType::exit},
    {"state", RecordedType::state},
    {"authorization", RecordedType::authorization},
    {"bluetooth", RecordedType::bluetooth},
    {"network", RecordedType::network},
    {"event", RecordedType::event},
    {"update_maps", RecordedType::updateMaps},
    {"header", RecordedType::header},
}};

RecordedType typeNamed(std::string_view name) {
  for (const auto& [text, type] : kTypes)
    if (text == name) return type;
  return RecordedType::unknown;
}

bool fail(std::string& reason, std::string_view text) {
  reason = text;
  return false;
}

template <class Enumeration>
bool readEnumeration(const RecordedMembers& members, Member member, int highest, Enumeration& target,
                     std::string& reason) {
  int number = 0;
  if (!members.integer(member, 0, highest, number, reason)) return false;
  target = static_cast<Enumeration>(number);
  return true;
}

// A major or minor; null, like none at all, means any.
bool readRegionNumber(const RecordedMembers& members, Member member, std::optional<std::uint16_t>& target,
                      std::string& reason) {
  int number = 0;
  if (!members.has(member)) return true;
  if (!members.integer(member, 0, UINT16_MAX, number, reason)) return false;
  target = static_cast<std::uint16_t>(number);
  return true;
}

}  // namespace

bool RecordingParser::parse(std::string_view line, RecordedEvent& event, std::string& reason) {
  object root;
  std::string_view type;
  if (!parseJson(line, root, reason)) return false;
  members_.collect(root);
  if (!members_.text(Member::type, type, reason)) return false;
  event.type = typeNamed(type);
  if (event.type == RecordedType::header) return readHeader(reason);
  return readTime(event, reason) && readContent(line, event, reason);
}

bool RecordingParser::parseJson(std::string_view line, object& object, std::string& reason) {
  simdjson::dom::element root;
  auto error = json_.parse(line.data(), line.size(), false).get(root);
  const auto possibleDepth = std::min(line.size() + 2, kGreatestDepth);
  if (error == simdjson::DEPTH_ERROR && json_.max_depth() < possibleDepth) {
    if (json_.allocate(line.size(), possibleDepth) == simdjson::SUCCESS)
      error = json_.parse(line.data(), line.size(), false).get(root);
  }
  if (error == simdjson::DEPTH_ERROR) return fail(reason, "not JSON that can be read: nested too deeply");
  if (error != simdjson::SUCCESS) return parseUnusualJson(line, object, reason);
  if (root.get(object) == simdjson::SUCCESS) return true;
  return fail(reason, "not a JSON object");
}

// The careful parser knows what is wrong, and reads integers of any length; what it has read, the other one can read.
bool RecordingParser::parseUnusualJson(std::string_view line, object& object, std::string& reason) {
  const auto result = platform::parseJson(line);
  if (!result.value) return fail(reason, "not JSON: " + result.error);
  const std::string text = result.value->dump();
  if (json_.parse(text).get(object) == simdjson::SUCCESS) return true;
  return fail(reason, "not a JSON object");
}

bool RecordingParser::readTime(RecordedEvent& event, std::string& reason) const {
  if (!members_.number(Member::t, event.t, reason)) return false;
  if (!(event.t >= -kLatestTime && event.t <= kLatestTime))
    return fail(reason, "\"t\" is out of range: seconds since 1970 are at most 4600000000");
  event.time = platform::calendarTimeFromSeconds(event.t);
  return true;
}

bool RecordingParser::readContent(std::string_view line, RecordedEvent& event, std::string& reason) {
  switch (event.type) {
    case RecordedType::advertisement:
      return readAdvertisement(event, reason);
    case RecordedType::ranging:
      return readRanging(event, reason);
    case RecordedType::location:
      return readFix(event, reason);
    case RecordedType::enter:
    case RecordedType::exit:
      return readRegion(event, reason);
    case RecordedType::state:
      return readRegionState(event, reason);
    case RecordedType::authorization:
      return readEnumeration(members_, Member::status, 4, event.authorization, reason);
    case RecordedType::bluetooth:
      return readEnumeration(members_, Member::state, 5, event.bluetooth, reason);
    case RecordedType::network:
      return members_.flag(Member::up, event.networkUp, reason);
    case RecordedType::event:
      return readHostEvent(line, event, reason);
    case RecordedType::truth:
      return readTruth(event, reason);
    case RecordedType::header:
    case RecordedType::updateMaps:
    case RecordedType::unknown:
      return true;
  }
  return true;
}

bool RecordingParser::readHeader(std::string& reason) const {
  int version = kVersion;
  if (members_.has(Member::version) &&
      !members_.integer(Member::version, 0, std::numeric_limits<int>::max(), version, reason))
    return false;
  if (version == kVersion) return true;
  return fail(reason, "a recording of version " + std::to_string(version) + "; only version 1 is known");
}

bool RecordingParser::readAdvertisement(RecordedEvent& event, std::string& reason) {
  auto& frame = event.frame;
  std::string_view address;
  if (!readIdentity(members_, frame.identity, reason) ||
      !members_.boundedInteger(Member::rssi, -kStrongest, kStrongest, frame.rssi, reason) ||
      !members_.boundedInteger(Member::power, -128, 127, frame.power, reason))
    return false;
  if (members_.has(Member::address) && !members_.text(Member::address, address, reason)) return false;
  event.address = address;
  return true;
}

bool RecordingParser::readRanging(RecordedEvent& event, std::string& reason) {
  simdjson::dom::array beacons;
  if (!members_.array(Member::beacons, beacons, reason) || !readRegion(event, reason)) return false;
  if (dynamic_cast<const platform::CLBeaconRegion*>(event.region.get()) == nullptr)
    return fail(reason, "\"region\": \"uuid\" is missing");
  event.beacons.clear();
  for (const auto element : beacons) {
    if (readBeacon(element, event.beacons.emplace_back(), reason)) continue;
    return fail(reason, "\"beacons\"[" + std::to_string(event.beacons.size() - 1) + "]: " + reason);
  }
  return true;
}

bool RecordingParser::readBeacon(simdjson::dom::element element, CLBeacon& beacon, std::string& reason) {
  object members;
  platform::BeaconIdentity identity;
  if (element.get(members) != simdjson::SUCCESS) return fail(reason, "must be an object");
  inner_.collect(members);
  if (!readIdentity(inner_, identity, reason) ||
      !inner_.boundedInteger(Member::rssi, -kStrongest, kStrongest, beacon.rssi, reason) ||
      !inner_.number(Member::accuracy, beacon.accuracy, reason))
    return false;
  beacon.proximityUUID = identity.uuid;
  beacon.major = identity.major;
  beacon.minor = identity.minor;
  return !inner_.has(Member::proximity) || readEnumeration(inner_, Member::proximity, 3, beacon.proximity, reason);
}

bool RecordingParser::readIdentity(const RecordedMembers& members, platform::BeaconIdentity& identity,
                                   std::string& reason) {
  std::string_view text;
  int major = 0;
  int minor = 0;
  if (!members.text(Member::uuid, text, reason) || !members.integer(Member::major, 0, UINT16_MAX, major, reason) ||
      !members.integer(Member::minor, 0, UINT16_MAX, minor, reason))
    return false;
  if (text != lastUuidText_) {
    const auto uuid = platform::UUID::parse(text);
    if (!uuid) return fail(reason, "\"uuid\" is no UUID");
    lastUuid_ = *uuid;
    lastUuidText_ = text;
  }
  identity = {lastUuid_, static_cast<std::uint16_t>(major), static_cast<std::uint16_t>(minor)};
  return true;
}

bool RecordingParser::readRegion(RecordedEvent& event, std::string& reason) {
  object members;
  RegionText text;
  if (!members_.object(Member::region, members, reason)) return false;
  inner_.collect(members);
  if (!inner_.text(Member::identifier, text.identifier, reason) ||
      (inner_.has(Member::uuid) && !inner_.text(Member::uuid, text.uuid, reason)) ||
      !readRegionNumber(inner_, Member::major, text.major, reason) ||
      !readRegionNumber(inner_, Member::minor, text.minor, reason))
    return fail(reason, "\"region\": " + reason);
  if (inner_.has(Member::uuid) && text.uuid.empty()) return fail(reason, "\"region\": \"uuid\" is no UUID");
  event.region = regions_.find(text);
  return event.region ? true : fail(reason, "\"region\": \"uuid\" is no UUID");
}

bool RecordingParser::readFix(RecordedEvent& event, std::string& reason) const {
  auto& fix = event.fix;
  double timestamp = event.t;
  if (!members_.number(Member::latitude, fix.coordinate.latitude, reason) ||
      !members_.number(Member::longitude, fix.coordinate.longitude, reason) ||
      !members_.number(Member::accuracy, fix.horizontalAccuracy, reason) ||
      (members_.has(Member::timestamp) && !members_.number(Member::timestamp, timestamp, reason)))
    return false;
  fix.timestamp = platform::calendarTimeFromSeconds(timestamp);
  return true;
}

bool RecordingParser::readRegionState(RecordedEvent& event, std::string& reason) {
  return readEnumeration(members_, Member::state, 2, event.state, reason) && readRegion(event, reason);
}

// Rare enough for a second parse, which gives a document instead of a tape.
bool RecordingParser::readHostEvent(std::string_view line, RecordedEvent& event, std::string& reason) const {
  std::string_view eventType;
  if (!members_.text(Member::eventType, eventType, reason)) return false;
  event.eventType = eventType;
  auto result = platform::parseJson(line);
  if (!result.value) return fail(reason, result.error);
  event.details = std::move((*result.value)["details"]);
  return true;
}

bool RecordingParser::readTruth(RecordedEvent& event, std::string& reason) const {
  auto& truth = event.truth;
  std::string_view mapId;
  if (!members_.text(Member::mapId, mapId, reason)) return false;
  truth.mapId = mapId;
  truth.geographic = members_.has(Member::latitude) || members_.has(Member::longitude);
  if (truth.geographic)
    return members_.number(Member::latitude, truth.coordinate.latitude, reason) &&
           members_.number(Member::longitude, truth.coordinate.longitude, reason);
  return members_.number(Member::x, truth.x, reason) && members_.number(Member::y, truth.y, reason);
}

}  // namespace wayloom::sim
