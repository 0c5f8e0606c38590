#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "wayloom/platform/CBCentralManager.hpp"
#include "wayloom/platform/CLBeacon.hpp"
#include "wayloom/platform/CLLocationManagerDelegate.hpp"
#include "wayloom/platform/CLRegion.hpp"
#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/ranging/IBeaconFrame.hpp"

namespace wayloom::sim {

enum class RecordedType : std::uint8_t {
  header,
  advertisement,
  ranging,
  location,
  enter,
  exit,
  state,
  authorization,
  bluetooth,
  network,
  event,
  updateMaps,
  truth,
  unknown,  // of a type that this version does not know; it only passes time
};

// Where the device really was: on a map, by one of the two kinds of coordinates.
struct RecordedTruth {
  std::string mapId;
  bool geographic = false;
  platform::CLLocationCoordinate2D coordinate;  // when geographic
  double x = 0.0;                               // standard pixels, otherwise
  double y = 0.0;
};

// One line of a recording; docs/recording.md has the format. Besides `type`, `t` and `time`, only the members of its
// own type mean anything: one object serves for line after line and keeps its memory.
struct RecordedEvent {
  RecordedType type = RecordedType::unknown;
  double t = 0.0;               // seconds since 1970, as written; the header has none
  platform::CalendarTime time;  // the same, to the nanosecond

  ranging::IBeaconFrame frame;  // advertisement
  std::string address;          // advertisement: of the sender; may be empty

  // ranging, enter, exit, state: a CLBeaconRegion when the line names a UUID. Lines that describe a region alike share
  // one object.
  platform::CLRegionPtr region;
  std::vector<platform::CLBeacon> beacons;  // ranging
  platform::CLRegionState state = platform::CLRegionState::unknown;

  platform::CLLocation fix;  // location
  platform::CLAuthorizationStatus authorization = platform::CLAuthorizationStatus::notDetermined;
  platform::CBCentralManagerState bluetooth = platform::CBCentralManagerState::unknown;
  bool networkUp = true;

  std::string eventType;  // event
  platform::Json details;

  RecordedTruth truth;
};

}  // namespace wayloom::sim
