#include "wayloom/sim/RecordingWriter.hpp"

#include "backends/sim/JsonText.hpp"

namespace wayloom::sim {
namespace {

constexpr std::size_t kFlushAt = 64U << 10U;

std::string_view nameOf(RecordedType type) {
  switch (type) {
    case RecordedType::header:
      return "header";
    case RecordedType::advertisement:
      return "advertisement";
    case RecordedType::ranging:
      return "ranging";
    case RecordedType::location:
      return "location";
    case RecordedType::enter:
      return "enter";
    case RecordedType::exit:
      return "exit";
    case RecordedType::state:
      return "state";
    case RecordedType::authorization:
      return "authorization";
    case RecordedType::bluetooth:
      return "bluetooth";
    case RecordedType::network:
      return "network";
    case RecordedType::event:
      return "event";
    case RecordedType::updateMaps:
      return "update_maps";
    case RecordedType::truth:
      return "truth";
    case RecordedType::unknown:
      return "";
  }
  return "";
}

void writeIdentity(JsonText& text, const platform::BeaconIdentity& identity) {
  text.member("uuid", identity.uuid.string()).member("major", identity.major).member("minor", identity.minor);
}

void writeRegion(JsonText& text, const platform::CLRegionPtr& region) {
  text.key("region").beginObject().member("identifier", region->identifier());
  if (const auto* beacons = dynamic_cast<const platform::CLBeaconRegion*>(region.get()))
    text.member("uuid", beacons->proximityUUID().string())
        .member("major", beacons->major())
        .member("minor", beacons->minor());
  text.endObject();
}

void writeAdvertisement(JsonText& text, const RecordedEvent& event) {
  text.member("rssi", event.frame.rssi);
  writeIdentity(text, event.frame.identity);
  text.member("power", event.frame.power);
  if (!event.address.empty()) text.member("address", event.address);
}

void writeRanging(JsonText& text, const RecordedEvent& event) {
  writeRegion(text, event.region);
  text.key("beacons").beginArray();
  for (const auto& beacon : event.beacons) {
    text.beginObject();
    writeIdentity(text, beacon.identity());
    text.member("rssi", beacon.rssi)
        .member("accuracy", beacon.accuracy)
        .member("proximity", static_cast<int>(beacon.proximity))
        .endObject();
  }
  text.endArray();
}

void writeCoordinate(JsonText& text, const platform::CLLocationCoordinate2D& coordinate) {
  text.member("latitude", coordinate.latitude).member("longitude", coordinate.longitude);
}

void writeTruth(JsonText& text, const RecordedTruth& truth) {
  text.member("map_id", truth.mapId);
  if (truth.geographic)
    writeCoordinate(text, truth.coordinate);
  else
    text.member("x", truth.x).member("y", truth.y);
}

void writeContent(JsonText& text, const RecordedEvent& event) {
  switch (event.type) {
    case RecordedType::advertisement:
      return writeAdvertisement(text, event);
    case RecordedType::ranging:
      return writeRanging(text, event);
    case RecordedType::location:
      writeCoordinate(text, event.fix.coordinate);
      text.member("accuracy", event.fix.horizontalAccuracy)
          .member("timestamp", platform::secondsSince1970(event.fix.timestamp));
      return;
    case RecordedType::state:
      text.member("state", static_cast<int>(event.state));
      return writeRegion(text, event.region);
    case RecordedType::enter:
    case RecordedType::exit:
      return writeRegion(text, event.region);
    case RecordedType::authorization:
      text.member("status", static_cast<int>(event.authorization));
      return;
    case RecordedType::bluetooth:
      text.member("state", static_cast<int>(event.bluetooth));
      return;
    case RecordedType::network:
      text.member("up", event.networkUp);
      return;
    case RecordedType::event:
      text.member("event_type", event.eventType).key("details").raw(jsonText(event.details));
      return;
    case RecordedType::truth:
      return writeTruth(text, event.truth);
    case RecordedType::header:
    case RecordedType::updateMaps:
    case RecordedType::unknown:
      return;
  }
}

}  // namespace

struct RecordingWriter::Text : JsonText {};

RecordingWriter::RecordingWriter(std::ostream& stream) : stream_(stream), text_(std::make_unique<Text>()) {}

RecordingWriter::~RecordingWriter() { flush(); }

void RecordingWriter::header(const platform::Json& more) {
  text_->beginObject().member("type", "header").member("version", 1);
  for (const auto& [name, content] : more.items()) text_->raw(jsonText(name) + ":" + jsonText(content));
  text_->endObject().endLine();
}

void RecordingWriter::write(const RecordedEvent& event) {
  if (event.type == RecordedType::unknown || event.type == RecordedType::header) return;
  text_->beginObject().member("t", event.t).member("type", nameOf(event.type));
  writeContent(*text_, event);
  text_->endObject().endLine();
  if (text_->text().size() >= kFlushAt) flush();
}

void RecordingWriter::flush() {
  stream_.write(text_->text().data(), static_cast<std::streamsize>(text_->text().size()));
  stream_.flush();
  text_->clear();
}

}  // namespace wayloom::sim
