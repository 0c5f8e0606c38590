#include "tools/replay/ReplayPrinter.hpp"

#include "wayloom/platform/JsonParser.hpp"

#include "tools/replay/ElectionJson.hpp"

namespace wayloom::tools {
namespace {

constexpr std::size_t kFlushAt = 64U << 10U;
constexpr std::size_t kMostAttributes = 4096;

// A body as the value it is when it is JSON; as a text otherwise.
void appendBody(sim::JsonText& text, const std::string& body) {
  text.key("body");
  if (body.empty()) {
    text.null();
  } else if (const auto document = platform::parseJson(body).value) {
    text.raw(sim::jsonText(*document));
  } else {
    text.value(body);
  }
}

}  // namespace

bool ReplayPrinter::flush() {
  output_.write(text_.text());
  text_.clear();
  isWanted_ = output_.flush();
  return isWanted_;
}

void ReplayPrinter::began(sim::SimPlatform& world) {
  paths_ = RelativePaths({world.documents(), world.venue(), world.resourceBundle()});
}

sim::JsonText& ReplayPrinter::begin(double t, const char* event) {
  return text_.beginObject().member("t", t).member("event", event);
}

void ReplayPrinter::end() {
  text_.endObject().endLine();
  if (text_.text().size() >= kFlushAt) flush();
}

void ReplayPrinter::located(double t, const TWLMapLocationPtr& location) {
  auto& text = begin(t, "location");
  if (location)
    text.member("map_id", location->mapId())
        .member("x", location->pixelCoords().x)
        .member("y", location->pixelCoords().y)
        .member("uncertainty_m", location->uncertaintyRadiusMeters())
        .member("uncertainty_px", location->uncertaintyRadiusPixels());
  else
    text.key("map_id").null();
  end();
}

void ReplayPrinter::refined(double t, const RefinedPosition& position) {
  auto& text = begin(t, "refined");
  if (position.map)
    text.member("map_id", position.map->mapId())
        .member("x", position.pixels.x)
        .member("y", position.pixels.y)
        .member("radius_m", position.radius)
        .member("map_probability", position.mapProbability)
        .member("beacon", position.beacon->text())
        .member("beacon_probability", position.beaconProbability);
  else
    text.key("map_id").null();
  end();
}

void ReplayPrinter::synced(double t) {
  if (!printsAll_) return;
  begin(t, "sync");
  end();
}

void ReplayPrinter::failed(double t, const platform::Error& error) {
  if (!printsAll_) return;
  begin(t, "error")
      .member("domain", error.domain)
      .member("code", error.code)
      .member("description", paths_.shorten(error.description));
  end();
}

void ReplayPrinter::crossed(double t, const char* event, const TGFRegion& region) {
  if (!printsAll_) return;
  begin(t, event).member("identifier", region.identifier());
  end();
}

void ReplayPrinter::determinedState(double t, platform::CLRegionState state, const TGFRegion& region) {
  if (!printsAll_) return;
  begin(t, "state").member("identifier", region.identifier()).member("state", static_cast<int>(state));
  end();
}

void ReplayPrinter::ranged(double t, const TGFBeaconList& beacons, const TGFBeaconRegion& region) {
  if (!printsAll_) return;
  begin(t, "ranged").member("identifier", region.identifier()).key("beacons").beginArray();
  for (const auto& beacon : beacons) appendBeacon(beacon);
  text_.endArray();
  end();
}

void ReplayPrinter::appendBeacon(const TGFBeaconPtr& beacon) {
  text_.beginObject().member("identifier", beacon->identifier());
  text_.member("uuid", beacon->uuid() ? std::optional(beacon->uuid()->string()) : std::nullopt)
      .member("major", beacon->major())
      .member("minor", beacon->minor())
      .member("rssi", beacon->rssi())
      .member("accuracy", beacon->accuracy())
      .key("attributes")
      .raw(attributesOf(beacon))
      .endObject();
}

const std::string& ReplayPrinter::attributesOf(const TGFBeaconPtr& beacon) {
  if (attributes_.size() >= kMostAttributes) attributes_.clear();
  auto& entry = attributes_[&beacon->match()];
  if (!entry.owner) entry = {beacon, sim::jsonText(beacon->attributes())};
  return entry.json;
}

void ReplayPrinter::requested(double t, const platform::HttpRequest& request) {
  if (!printsAll_) return;
  auto& text = begin(t, "request").member("method", request.method).member("url", request.url);
  auto headers = platform::Json::object();
  for (const auto& [name, content] : request.headers) headers[name] = content;
  text.key("headers").raw(sim::jsonText(headers));
  appendBody(text, request.body);
  end();
}

void ReplayPrinter::logged(double t, sim::LogChannel channel, std::string_view line) {
  if (!printsAll_) return;
  begin(t, "log")
      .member("channel", channel == sim::LogChannel::engine ? "engine" : "system")
      .member("line", paths_.shorten(line));
  end();
}

void ReplayPrinter::scripted(double t, std::string_view script) {
  if (!printsAll_) return;
  begin(t, "script").member("text", script);
  end();
}

void ReplayPrinter::elected(double t, const ElectionTrace& trace) {
  if (!printsAll_) return;
  appendElection(begin(t, "election"), trace);
  end();
}

}  // namespace wayloom::tools
