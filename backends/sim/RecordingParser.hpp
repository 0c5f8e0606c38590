#pragma once

#include <simdjson.h>
#include <string>
#include <string_view>

#include "wayloom/sim/RecordedEvent.hpp"

#include "backends/sim/RecordedMembers.hpp"
#include "backends/sim/RegionCache.hpp"

namespace wayloom::sim {

// Turns one line into an event. It keeps what it needs from line to line, so that ordinary lines allocate nothing.
class RecordingParser {
 public:
  // False, with the reason, when the line is malformed. At least simdjson::SIMDJSON_PADDING bytes behind the line must
  // be readable.
  bool parse(std::string_view line, RecordedEvent& event, std::string& reason);

 private:
  bool parseJson(std::string_view line, simdjson::dom::object& object, std::string& reason);
  bool parseUnusualJson(std::string_view line, simdjson::dom::object& object, std::string& reason);
  bool readTime(RecordedEvent& event, std::string& reason) const;
  bool readContent(std::string_view line, RecordedEvent& event, std::string& reason);

  bool readHeader(std::string& reason) const;
  bool readAdvertisement(RecordedEvent& event, std::string& reason);
  bool readRanging(RecordedEvent& event, std::string& reason);
  bool readFix(RecordedEvent& event, std::string& reason) const;
  bool readRegionState(RecordedEvent& event, std::string& reason);
  bool readHostEvent(std::string_view line, RecordedEvent& event, std::string& reason) const;
  bool readTruth(RecordedEvent& event, std::string& reason) const;

  bool readRegion(RecordedEvent& event, std::string& reason);
  bool readBeacon(simdjson::dom::element element, platform::CLBeacon& beacon, std::string& reason);
  bool readIdentity(const RecordedMembers& members, platform::BeaconIdentity& identity, std::string& reason);

  simdjson::dom::parser json_;
  RecordedMembers members_;  // of the line
  RecordedMembers inner_;    // of an object in it
  RegionCache regions_;
  std::string lastUuidText_;  // most lines name the same one again and again
  platform::UUID lastUuid_;
};

}  // namespace wayloom::sim
